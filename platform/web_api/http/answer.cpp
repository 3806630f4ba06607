#include "platform/web_api/http/answer.h"

#include <time.h>

#include <array>
#include <boost/beast/http/status.hpp>
#include <charconv>

#include "KxErrorManager.h"
#include "platform/json/json_text.h"
#include "platform/web_api/http/problem_details.h"

namespace KxNTamberWebApi {

namespace {

constexpr std::string_view JSON_MEDIA_TYPE = "application/json";

void appendNumber(std::string& text, std::size_t number) {
    std::array<char, 20> digits;
    const auto end = std::to_chars(digits.begin(), digits.end(), number).ptr;
    text.append(digits.data(), static_cast<std::size_t>(end - digits.data()));
}

/// The Date field, made anew at most once a second on each thread.
std::string_view dateField() {
    struct Cached {
        time_t second = -1;
        std::array<char, 48> text{};
        std::size_t size = 0;
    };
    thread_local Cached cached;
    timespec now;
    clock_gettime(CLOCK_REALTIME_COARSE, &now);
    if (now.tv_sec != cached.second) {
        tm parts;
        gmtime_r(&now.tv_sec, &parts);
        // The process keeps the C locale, in which names of days and months are those that HTTP wants.
        cached.size = strftime(cached.text.data(), cached.text.size(), "Date: %a, %d %b %Y %H:%M:%S GMT\r\n", &parts);
        cached.second = now.tv_sec;
    }
    return {cached.text.data(), cached.size};
}

}  // namespace

Answer makeRefusal(int status, std::string_view detail) {
    return {status, makeProblemDetails(status, findStatusTitle(status), detail), PROBLEM_MEDIA_TYPE, {}};
}

std::string makeAnswerHead(const Answer& answer, const AnswerFraming& framing) {
    std::string head;
    head.reserve(320);
    head += framing.isHttp10 ? "HTTP/1.0 " : "HTTP/1.1 ";
    appendNumber(head, static_cast<std::size_t>(answer.status));
    head += ' ';
    const auto reason = boost::beast::http::obsolete_reason(static_cast<boost::beast::http::status>(answer.status));
    head.append(reason.data(), reason.size());
    head += "\r\n";
    head += dateField();
    if (!answer.mediaType.empty()) {
        head += "Content-Type: ";
        head += answer.mediaType;
        head += "\r\n";
    }
    if (answer.status != 204 && answer.status != 304) {
        head += "Content-Length: ";
        appendNumber(head, answer.body.size());
        head += "\r\n";
    }
    if (!answer.allow.empty()) {
        head += "Allow: ";
        head += answer.allow;
        head += "\r\n";
    }
    switch (answer.status) {
        case 401:
            head += "WWW-Authenticate: Bearer\r\n";
            break;
        case 426:
            head += "Upgrade: websocket\r\nSec-WebSocket-Version: 13\r\n";
            break;
        case 503:
            head += "Retry-After: 1\r\n";
            break;
        case 429:
            head += "Retry-After: ";
            appendNumber(head, static_cast<std::size_t>(answer.retryAfter));
            head += "\r\n";
            break;
        default:
            break;
    }
    head += answer.fields.empty() ? std::string_view("Cache-Control: no-store\r\n") : answer.fields;
    head += "X-Content-Type-Options: nosniff\r\n";
    if (answer.status == 426) {
        head += framing.keepsConnection ? "Connection: upgrade\r\n" : "Connection: upgrade, close\r\n";
    } else if (!framing.keepsConnection) {
        head += "Connection: close\r\n";
    } else if (framing.isHttp10) {
        head += "Connection: keep-alive\r\n";
    }
    head += "\r\n";
    return head;
}

void KxCResponse::setError(KxCErrorListPool& pool, int code, const char* statusName, const char* message, int flag) {
    setError(pool, code, statusName, std::string_view(message), flag);
}

void KxCResponse::setError(KxCErrorListPool&, int code, const char* statusName, std::string_view message, int) {
    state->switchesToStream = false;
    state->answer = {code, makeProblemDetails(code, statusName, message), PROBLEM_MEDIA_TYPE, {}};
}

void KxCResponse::setJsonBody(KxCErrorListPool&, int code, const KxNJson::json* document) {
    state->switchesToStream = false;
    state->answer = {code, KxNJson::makeJsonText(*document), JSON_MEDIA_TYPE, {}};
}

void KxCResponse::setJsonBody(KxCErrorListPool&, int code, const char* text) {
    state->switchesToStream = false;
    state->answer = {code, text, JSON_MEDIA_TYPE, {}};
}

void KxCResponse::setTextBody(KxCErrorListPool&, int code, const char* mediaType, std::string_view text) {
    state->switchesToStream = false;
    state->answer = {code, std::string(text), mediaType, {}};
}

void KxCResponse::setEmptyBody(KxCErrorListPool&, int code) {
    state->switchesToStream = false;
    state->answer = {code == 0 ? 204 : code, {}, {}, {}};
}

void KxCResponse::switchWebSocket(KxCErrorListPool&, const char* name, KxCWebSocket::DataCallback dataCallback,
                                  const void* dataContext, std::uint32_t dataLength,
                                  KxCWebSocket::CloseCallback closeCallback, const void* closeContext,
                                  std::uint32_t closeLength) {
    state->answer = {};
    state->switchesToStream = true;
    state->stream = {
        name != nullptr ? name : "", dataCallback, dataContext, dataLength, closeCallback, closeContext, closeLength};
}

void KxCResponse::setSubprotocol(const char* name) {
    state->stream.subprotocol = name;
}

}  // namespace KxNTamberWebApi

// An HTTP answer and its bytes.
#pragma once

#include <string>
#include <string_view>

#include "KxTamberWebApi/KxResponse.h"

namespace KxNTamberWebApi {

struct Answer {
    int status = 0;  ///< 0 while nothing was answered
    std::string body;
    std::string_view mediaType;  ///< of the body; a constant
    std::string_view allow;      ///< value of the Allow field; lives as long as the process
    std::string fields = {};     ///< whole field lines, in place of the one that forbids to keep the answer
    int retryAfter = 0;          ///< seconds, of the Retry-After field; 0 for none
};

/// One of the library's own refusals, as problem details.
Answer makeRefusal(int status, std::string_view detail);

/// How the answer goes out.
struct AnswerFraming {
    bool keepsConnection = true;
    bool isHttp10 = false;
    bool hidesBody = false;  ///< HEAD: the fields of the answer without its body
};

/// The status line and the fields, up to and including the empty line.
std::string makeAnswerHead(const Answer& answer, const AnswerFraming& framing);

/// The interim answer to `Expect: 100-continue`.
inline constexpr std::string_view CONTINUE_ANSWER = "HTTP/1.1 100 Continue\r\n\r\n";

/// What KxCResponse::switchWebSocket asked for.
struct StreamRequest {
    std::string name;
    KxCWebSocket::DataCallback dataCallback = nullptr;
    const void* dataContext = nullptr;
    std::uint32_t dataLength = 0;
    KxCWebSocket::CloseCallback closeCallback = nullptr;
    const void* closeContext = nullptr;
    std::uint32_t closeLength = 0;
    std::string_view subprotocol = "kx.logs.v1";  ///< a constant
};

struct KxCResponse::State {
    Answer answer;
    bool switchesToStream = false;  ///< `stream` is the answer
    StreamRequest stream;

    bool isUntouched() const { return answer.status == 0 && !switchesToStream; }
};

}  // namespace KxNTamberWebApi

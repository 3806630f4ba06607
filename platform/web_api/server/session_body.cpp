// Requests with a body, and the upgrade to a stream.
#include <algorithm>
#include <boost/asio/post.hpp>
#include <exception>
#include <new>
#include <system_error>
#include <utility>

#include "KxErrorManager.h"
#include "KxJson.h"
#include "KxLog.h"
#include "platform/json/json_text.h"
#include "platform/web_api/access/access_rules.h"
#include "platform/web_api/access/authorization.h"
#include "platform/web_api/http/content_disposition.h"
#include "platform/web_api/server/operation.h"
#include "platform/web_api/server/session.h"
#include "platform/web_api/websocket/web_socket.h"

namespace KxNTamberWebApi {

using boost::beast::http::field;

namespace {

/// The library's message without its own error number in brackets.
std::string_view withoutErrorNumber(std::string_view message) {
    const std::size_t end = message.find("] ");
    return message.starts_with('[') && end != message.npos ? message.substr(end + 2) : message;
}

}  // namespace

Task<bool> Session::sendContinue(const Exchange& exchange) {
    if (!exchange.expectsContinue || exchange.body->isComplete() || !buffer.pending().empty()) {
        co_return true;
    }
    const std::array<asio::const_buffer, 2> buffers{asio::buffer(CONTINUE_ANSWER), asio::const_buffer()};
    const bool isSent = co_await send(buffers);
    co_return isSent;
}

Task<void> Session::readJson(Exchange& exchange) {
    std::string text;
    const bool mayGoOn = co_await sendContinue(exchange);
    if (!mayGoOn) {
        co_return;
    }
    const bool isWhole = co_await readText(exchange, text);
    if (isWhole) {
        runWithJson(exchange, text);
    }
}

/// Reads a body that is to be held in memory. False when it did not come whole; the answer, if any, then stands.
Task<bool> Session::readText(Exchange& exchange, std::string& text) {
    BodyDecoder& body = *exchange.body;
    std::array<char, 4096> decoded;
    while (!body.isComplete()) {
        deadline.set(core.limits.progress);
        error_code error;
        const std::string_view pending = buffer.pending();
        const BodyDecoder::Step step =
            body.decode(pending.data(), pending.size(), decoded.data(), decoded.size(), error);
        if (error) {
            exchange.refuse(400, "The body is not well-formed: " + error.message());
            co_return false;
        }
        buffer.consume(step.consumed);
        text.append(decoded.data(), step.produced);
        if (text.size() > core.limits.jsonBody) {
            exchange.refuse(413, "The body is larger than " + std::to_string(core.limits.jsonBody) + " bytes");
            co_return false;
        }
        if (step.consumed > 0 || step.produced > 0) {
            continue;
        }
        const asio::mutable_buffer room = buffer.prepare();
        const std::size_t got = co_await transport->async_read_some(room, resumeWith(error));
        if (error || got == 0) {
            if (isLate) {
                exchange.refuse(408, "The body did not arrive in time");
            } else if (room.size() == 0) {
                exchange.refuse(400, "The body is not well-formed");
            }
            co_return false;
        }
        buffer.commit(got);
    }
    deadline.clear();
    co_return true;
}

void Session::runWithJson(Exchange& exchange, const std::string& text) {
    if (text.empty()) {
        runOperation(exchange, nullptr);
        return;
    }
    KxNJson::json content;
    try {
        const RequestThreads::Operation parsing(core.requests);
        content = KxNJson::parseJsonText(text, core.limits.jsonDepth);
    } catch (const std::bad_alloc&) {
        exchange.refuse(503, "There is not enough memory for the body");
        return;
    } catch (const std::exception& failure) {
        exchange.refuse(400, "The body is not valid JSON: " + std::string(withoutErrorNumber(failure.what())));
        return;
    }
    runOperation(exchange, &content);
}

/// Fills in what the head says of an upload. False when it is refused.
bool Session::describeUpload(Exchange& exchange, UploadRequest& upload) {
    const RequestParser::value_type& request = exchange.request();
    upload.endpoint = exchange.match.endpoint;
    upload.values = exchange.match.values();
    upload.target = request.target();
    upload.contentType = request[field::content_type];
    upload.maximumSize = core.settings.maxUploadBytes;
    const bool hasDisposition = request.count(field::content_disposition) > 0;
    // A length of 0 is an empty file when the head describes one, and else a request without a body.
    upload.hasBody = !exchange.body->isComplete() ||
                     (request.count(field::content_length) > 0 && (hasDisposition || !upload.contentType.empty()));
    if (upload.maximumSize != 0 && exchange.body->remaining() > upload.maximumSize) {
        exchange.refuse(413, "The upload is larger than " + std::to_string(upload.maximumSize) + " bytes");
        return false;
    }
    const auto type = parseContentType(upload.contentType);
    if (type && type->mediaType == "multipart/form-data") {
        upload.boundary = type->boundary;
        if (upload.boundary.empty()) {
            exchange.refuse(400, "The form has no usable boundary");
            return false;
        }
    } else if (hasDisposition) {
        std::string error;
        const auto disposition = parseContentDisposition(request[field::content_disposition], error);
        if (!disposition) {
            exchange.refuse(400, "Content-Disposition is not well-formed: " + error);
            return false;
        }
        upload.fileName = disposition->fileName;
    }
    return true;
}

Task<void> Session::takeUpload(Exchange& exchange) {
    UploadRequest request{};
    if (!describeUpload(exchange, request)) {
        co_return;
    }
    const bool mayGoOn = co_await sendContinue(exchange);
    if (!mayGoOn) {
        co_return;
    }
    Upload upload(request, core.registration, *transport, buffer, *exchange.body, deadline, core.limits);
    bool hadThread = true;
    asio::use_awaitable_t<Executor> resumed;
    co_await asio::async_initiate<asio::use_awaitable_t<Executor>, void()>(
        [this, &upload, &hadThread](auto&& handler) {
            // Both ways out share the handler, and only one is taken.
            auto resume = std::make_shared<std::decay_t<decltype(handler)>>(std::forward<decltype(handler)>(handler));
            const auto goOn = [this, resume] { asio::post(core.context, [resume] { std::move (*resume)(); }); };
            core.uploads.submit({[&upload, goOn](bool mayHoldSession) {
                                     const bool result = upload.run(mayHoldSession);
                                     goOn();
                                     return result;
                                 },
                                 [&hadThread, goOn] {
                                     hadThread = false;
                                     goOn();
                                 }});
        },
        resumed);
    if (!hadThread) {
        exchange.refuse(503, "Too many uploads are under way");
        co_return;
    }
    exchange.uploadedName = upload.name();
    exchange.response.answer = std::move(upload.answer());
}

namespace {

/// What the thread of a stream needs.
struct StreamWork {
    ServerCore& core;
    RouteMatch match;
    std::shared_ptr<KxCWebSocket::State> connection;

    void run() const;
};

constexpr unsigned short SERVER_FAILED = 1011;
constexpr unsigned short SERVER_GOES = 1001;

void StreamWork::run() const {
    const HandlerUse use(core.registration);
    if (use.handler() == nullptr) {
        connection->setCloseCode(SERVER_GOES);
        connection->release();
        return;
    }
    KxCErrorListPool pool;
    auto* const socket = new KxCWebSocket(connection);  // the operation's, which deletes it
    if (core.isStopping) {
        connection->end();
    }
    try {
        use.handler()->handleWebSocket(pool, match.endpoint, match.values(), socket);
    } catch (const std::exception& failure) {
        KxCRTE_LOG(4, "Korvex Container Service: Web API: stream %s threw: %s", match.endpoint->operationId,
                   failure.what());
    } catch (...) {
        KxCRTE_LOG(4, "Korvex Container Service: Web API: stream %s threw", match.endpoint->operationId);
    }
    logErrors(pool, match.endpoint->operationId);
    if (!connection->isReleased()) {
        connection->setCloseCode(SERVER_FAILED);
        delete socket;
    }
}

}  // namespace

/// Turns the connection into a stream, which it is from here on; the session ends.
void Session::openStream(Exchange& exchange) {
    const RequestParser::value_type& request = exchange.request();
    const std::string offered = joinFields(request, field::sec_websocket_protocol);
    const bool selectsLogs = parseSubprotocols(offered).offersLogs;
    auto connection = std::make_shared<KxCWebSocket::State>(core.connections, core.requests, core.limits, transport,
                                                            std::move(exchange.response.stream));
    auto work = std::make_shared<StreamWork>(StreamWork{core, std::move(exchange.match), connection});
    connection->accept(exchange.parser->release(), selectsLogs ? std::string(LOG_SUBPROTOCOL) : std::string(),
                       [work = std::move(work)] {
                           try {
                               work->core.streams.start([work] { work->run(); });
                           } catch (const std::system_error& failure) {
                               KxCRTE_LOG(4, "Korvex Container Service: Web API cannot make a stream thread: %s",
                                          failure.what());
                               work->connection->setCloseCode(SERVER_FAILED);
                               work->connection->release();
                           }
                       });
    leave();
}

}  // namespace KxNTamberWebApi

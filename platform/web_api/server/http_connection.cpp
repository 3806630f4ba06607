#include "platform/web_api/server/http_connection.h"

#include <array>
#include <boost/asio/basic_waitable_timer.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <exception>
#include <new>
#include <utility>

#include "KxJson.h"
#include "KxLog.h"
#include "platform/json/json_text.h"
#include "platform/web_api/description/openapi.h"
#include "platform/web_api/operation/operation.h"
#include "platform/web_api/server/api_description.h"
#include "platform/web_api/server/stream_operation.h"
#include "platform/web_api/server/take_upload.h"

namespace KxNTamberWebApi {

using KxNNet::mustWait;
using KxNNet::Outcome;
using KxNNet::Step;

namespace {

/// The library's message without its own error number in brackets.
std::string_view withoutErrorNumber(std::string_view message) {
    const std::size_t end = message.find("] ");
    return message.starts_with('[') && end != message.npos ? message.substr(end + 2) : message;
}

/// Drops what has arrived of a body that nobody took. False when more of it is to come.
bool skipReadAhead(Exchange& exchange) {
    if (!exchange.body) {
        return true;
    }
    std::array<char, 4096> dropped;
    while (!exchange.body->isComplete()) {
        const RequestBody::Piece piece = exchange.body->nextReadAhead(dropped);
        if (!piece.problem.empty() || piece.outcome != Outcome::done) {
            return false;
        }
    }
    return true;
}

constexpr int SWITCHING_PROTOCOLS = 101;

}  // namespace

HttpConnection::HttpConnection(ServerCore& serverCore, KxNCommon::UniqueFd socket, std::string peerAddress)
    : Connection(serverCore.connections),
      core(serverCore),
      peer(std::move(peerAddress)),
      client(core.limits, std::make_shared<KxNNet::LoopStream>(core.context.get_executor(), std::move(socket),
                                                               core.tls->contextForConnection().get())) {
    join();
}

HttpConnection::~HttpConnection() {
    leave();
}

void HttpConnection::begin() {
    boost::asio::co_spawn(core.context.get_executor(), serve(shared_from_this()), boost::asio::detached);
}

/// The life of a connection: one request after the other, until one ends it.
KxNNet::Task<void> HttpConnection::serve(std::shared_ptr<HttpConnection> self) {
    try {
        bool goesOn = co_await self->openTls();
        std::size_t headSize = 0;
        while (goesOn) {
            goesOn = co_await self->readHead(headSize);
            if (goesOn) {
                goesOn = co_await self->answerRequest(headSize);
            }
        }
    } catch (const std::exception& failure) {
        KxCRTE_LOG(3, "Korvex Container Service: Web API drops the connection from %s: %s", self->peer.c_str(),
                   failure.what());
    }
}

KxNNet::Task<bool> HttpConnection::openTls() {
    KxNNet::LoopStream& stream = client.stream();
    if (!stream.isTls()) {
        co_return true;
    }
    client.expectRequest(core.limits.header);
    for (;;) {
        const Step step = stream.tryHandshake();
        if (!mustWait(step.outcome)) {
            certificateSubject = stream.clientSubject();
            co_return step.outcome == Outcome::done;
        }
        co_await stream.until(step.outcome);
    }
}

/// Waits for the head of the next request. False when the connection is to be left.
KxNNet::Task<bool> HttpConnection::readHead(std::size_t& headSize) {
    KxNNet::LoopStream& stream = client.stream();
    if (buffer.pending().empty()) {
        client.expectRequest(core.limits.keepAlive);
    } else {
        client.expectWithin(core.limits.header);
    }
    if (core.isStopping) {
        co_return false;
    }
    // Mostly nothing has come yet; a read would only find that out.
    bool mayHaveCome = stream.hasBuffered();
    for (;;) {
        switch (buffer.findHead(core.limits.requestLine, core.limits.headerBlock, headSize)) {
            case RequestBuffer::Head::complete:
                client.expectNothing();
                co_return true;
            case RequestBuffer::Head::lineTooLong:
                co_await refuseHead(414, "The request line is too long");
                co_return false;
            case RequestBuffer::Head::blockTooLong:
                co_await refuseHead(431, "The header block is too large");
                co_return false;
            case RequestBuffer::Head::incomplete:
                break;
        }
        Step step{Outcome::wantsRead};
        if (mayHaveCome) {
            const std::span<char> room = buffer.prepare();
            step = room.empty() ? Step{Outcome::failed} : stream.tryRead(room);
        }
        mayHaveCome = true;
        if (mustWait(step.outcome)) {
            buffer.shrink();
            co_await stream.until(step.outcome);
        } else if (step.outcome == Outcome::done) {
            buffer.commit(step.size);
            mayHaveCome = stream.hasBuffered();
            if (client.isIdle()) {
                client.expectWithin(core.limits.header);
            }
        } else {
            if (client.isLate()) {
                co_await refuseHead(408, "The header block did not arrive in time");
            }
            co_return false;
        }
    }
}

/// Answers the request whose head is in the buffer. False when the connection is to be left.
KxNNet::Task<bool> HttpConnection::answerRequest(std::size_t headSize) {
    Exchange exchange;
    const Next next = examine(exchange, buffer.pending().substr(0, headSize), buffer, client.stream(),
                              {peer, certificateSubject}, core);
    setGrant(exchange.caller.grant);
    buffer.consume(headSize);
    switch (next) {
        case Next::answer:
            break;
        case Next::runOperation:
            runOperation(exchange, nullptr);
            if (exchange.response.switchesToStream && becomesStream(exchange)) {
                co_return false;
            }
            break;
        case Next::readJson:
            co_await readJson(exchange);
            break;
        case Next::takeUpload:
            co_await takeUpload(exchange, client, core);
            break;
    }
    tellObserver(exchange, exchange.response.answer.status, core);
    co_await tell(exchange);
    if (exchange.response.answer.status == 429) {
        co_await holdBack();
    }
    if (exchange.response.answer.status == 0) {
        co_return false;  // nobody is there to be answered
    }
    co_return co_await sendAnswer(exchange);
}

void HttpConnection::runOperation(Exchange& exchange, const KxNJson::json* content) {
    if (!core.requests.mayBegin()) {
        exchange.refuse(503, "Too many requests are waiting");
        return;
    }
    const KxSTamberWebApiEndpoint* const endpoint = exchange.match.endpoint;
    if (endpoint == &openApiEndpoint) {
        const RequestThreads::Operation describing(core.requests);
        exchange.response.answer = describeApi(core);
        return;
    }
    ServedEndpoint& served = core.served.at(endpoint);
    const RequestThreads::Operation operation(core.requests, &served.tendsToBlock);
    callOperation(served.registration, endpoint, exchange.caller, content, exchange.match.values(), exchange.response);
}

KxNNet::Task<void> HttpConnection::readJson(Exchange& exchange) {
    std::string text;
    if (co_await client.sendContinue(exchange) && co_await readText(exchange, text)) {
        runWithJson(exchange, text);
    }
}

/// Reads a body that is to be held in memory. False when it did not come whole; the answer, if any, then stands.
KxNNet::Task<bool> HttpConnection::readText(Exchange& exchange, std::string& text) {
    RequestBody& body = *exchange.body;
    std::array<char, 4096> room;
    client.expectWithin(core.limits.progress);
    while (!body.isComplete()) {
        const RequestBody::Piece piece = body.next(room);
        if (!piece.problem.empty()) {
            exchange.refuse(400, piece.problem);
            co_return false;
        }
        if (mustWait(piece.outcome)) {
            co_await client.stream().until(piece.outcome);
            continue;
        }
        if (piece.outcome != Outcome::done) {
            if (client.isLate()) {
                exchange.refuse(408, "The body did not arrive in time");
            }
            co_return false;
        }
        client.expectWithin(core.limits.progress);
        if (text.empty() && !piece.bytes.empty() && refusesType(exchange)) {
            co_return false;
        }
        text.append(piece.bytes);
        if (text.size() > core.limits.jsonBody) {
            exchange.refuse(413, "The body is larger than " + std::to_string(core.limits.jsonBody) + " bytes");
            co_return false;
        }
    }
    client.expectNothing();
    co_return true;
}

void HttpConnection::runWithJson(Exchange& exchange, const std::string& text) {
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

/// Turns the connection into a stream, if the request is one for that; otherwise the answer stands.
bool HttpConnection::becomesStream(Exchange& exchange) {
    exchange.response.switchesToStream = false;
    if (!asksForWebSocket(exchange.request())) {
        exchange.refuse(426, "This is a WebSocket: the request must ask for the upgrade");
        return false;
    }
    if (!exchange.body->isComplete() || !openStream(core, exchange, client.share(), buffer.pending())) {
        exchange.refuse(400, "The WebSocket handshake is not well-formed");
        return false;
    }
    tellObserver(exchange, SWITCHING_PROTOCOLS, core);
    leave();
    return true;
}

/// Tells of a change or a refusal. A change is on the disk when this is over, or the log says that it is not.
KxNNet::Task<void> HttpConnection::tell(const Exchange& exchange) {
    const AuditKind kind = findAuditKind(exchange);
    if (kind == AuditKind::refusal) {
        core.audit->tellRefusal(makeAuditRecord(exchange, peer));
    }
    if (kind != AuditKind::change) {
        co_return;
    }
    AuditRecord record = makeAuditRecord(exchange, peer);
    if (!core.audit->isKept()) {
        core.audit->tellChange(std::move(record), {});
        co_return;
    }
    co_await KxNNet::untilCalled(core.context.get_executor(), [&](auto resume) {
        core.audit->tellChange(std::move(record), [resume] { resume(true); });
    });
}

/// Who guesses tokens waits for each answer, and so leaves the processor to the others.
KxNNet::Task<void> HttpConnection::holdBack() {
    using Clock = std::chrono::steady_clock;
    boost::asio::basic_waitable_timer<Clock, boost::asio::wait_traits<Clock>, KxNNet::Executor> timer(
        core.context.get_executor(), core.limits.guessPause);
    co_await timer.async_wait(boost::asio::use_awaitable_t<KxNNet::Executor>());
}

KxNNet::Task<bool> HttpConnection::sendAnswer(Exchange& exchange) {
    const bool hasSkipped = skipReadAhead(exchange);
    exchange.keepsConnection = exchange.keepsConnection && hasSkipped && !client.isLate() && !core.isStopping;
    const Answer& answer = exchange.response.answer;
    AnswerFraming framing;
    framing.keepsConnection = exchange.keepsConnection;
    framing.isHttp10 = exchange.request().version() < 11;
    framing.hidesBody =
        exchange.request().method() == boost::beast::http::verb::head || answer.status == 204 || answer.status == 304;
    const std::string head = makeAnswerHead(answer, framing);
    const bool isSent = co_await client.send(head, framing.hidesBody ? std::string_view() : answer.body);
    if (isSent && !exchange.keepsConnection) {
        client.announceEnd();
        if (!hasSkipped || !exchange.body) {
            co_await client.discard(exchange.mayComeIn ? core.limits.discardKnown : core.limits.discardUnknown);
        }
    }
    co_return isSent&& exchange.keepsConnection;
}

/// Answers something that is no request.
KxNNet::Task<void> HttpConnection::refuseHead(int status, std::string_view detail) {
    const Answer answer = makeRefusal(status, detail);
    tellObserver(Exchange(), status, core);
    AnswerFraming framing;
    framing.keepsConnection = false;
    const std::string head = makeAnswerHead(answer, framing);
    const bool isSent = co_await client.send(head, answer.body);
    if (isSent) {
        client.announceEnd();
        co_await client.discard(core.limits.discardUnknown);
    }
}

}  // namespace KxNTamberWebApi

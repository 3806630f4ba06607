#include "platform/web_api/server/session.h"

#include <array>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <exception>
#include <utility>

#include "KxLog.h"

namespace KxNTamberWebApi {

Session::Session(ServerCore& serverCore, Socket socket, std::string peerAddress)
    : Connection(serverCore.connections),
      core(serverCore),
      peer(std::move(peerAddress)),
      transport(std::make_shared<Transport>(std::move(socket), core.tls->contextForConnection())) {
    join();
}

Session::~Session() {
    leave();
}

void Session::begin() {
    asio::co_spawn(core.context.get_executor(), serve(shared_from_this()), asio::detached);
}

void Session::sweep(std::int64_t now) {
    if (!deadline.hasPassed(now)) {
        return;
    }
    if (isIdle) {
        transport->shutdownBoth();
    } else if (isSending || isLate) {
        transport->cut();
    } else {
        isLate = true;
        transport->shutdownReading();
    }
}

void Session::onStopping() {
    if (isIdle) {
        transport->shutdownBoth();
    }
}

void Session::abort() {
    transport->cut();
}

Task<void> Session::serve(std::shared_ptr<Session> self) {
    try {
        const bool isOpen = co_await self->openTls();
        if (!isOpen) {
            co_return;
        }
        std::size_t headSize = 0;
        for (bool goesOn = true; goesOn;) {
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

Task<bool> Session::openTls() {
    if (!transport->isTls()) {
        co_return true;
    }
    deadline.set(core.limits.header);
    const error_code error = co_await transport->handshake();
    if (error) {
        co_return false;
    }
    certificateSubject = transport->clientSubject();
    co_return true;
}

/// Waits for the head of the next request. False when the connection is to be left.
Task<bool> Session::readHead(std::size_t& headSize) {
    bool hasBegun = !buffer.pending().empty();
    isIdle = !hasBegun;
    deadline.set(hasBegun ? core.limits.header : core.limits.keepAlive);
    if (core.isStopping) {
        co_return false;
    }
    for (;;) {
        switch (buffer.findHead(core.limits.requestLine, core.limits.headerBlock, headSize)) {
            case RequestBuffer::Head::complete:
                deadline.clear();
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
        if (hasBegun && isIdle) {
            isIdle = false;
            deadline.set(core.limits.header);
        }
        const asio::mutable_buffer room = buffer.prepare();
        error_code error;
        const std::size_t got = co_await transport->async_read_some(room, resumeWith(error));
        if (error || room.size() == 0) {
            if (isLate) {
                co_await refuseHead(408, "The header block did not arrive in time");
            }
            co_return false;
        }
        buffer.commit(got);
        hasBegun = true;
    }
}

/// Answers the request whose head is in the buffer. False when the connection is to be left.
Task<bool> Session::answerRequest(std::size_t headSize) {
    Exchange exchange;
    isIdle = false;
    const Next next = examine(exchange, buffer.pending().substr(0, headSize));
    buffer.consume(headSize);
    switch (next) {
        case Next::answer:
            break;
        case Next::readJson:
            co_await readJson(exchange);
            break;
        case Next::takeUpload:
            co_await takeUpload(exchange);
            break;
        case Next::openStream:
            openStream(exchange);
            co_return false;
    }
    writeAuditLine(exchange);
    if (exchange.response.answer.status == 0) {
        co_return false;  // nobody is there to be answered
    }
    co_return co_await sendAnswer(exchange);
}

Task<bool> Session::sendAnswer(Exchange& exchange) {
    const bool hasSkipped = skipBufferedBody(exchange);
    exchange.keepsConnection = exchange.keepsConnection && hasSkipped && !isLate && !core.isStopping;
    AnswerFraming framing;
    framing.keepsConnection = exchange.keepsConnection;
    framing.isHttp10 = exchange.request().version() < 11;
    const Answer& answer = exchange.response.answer;
    framing.hidesBody =
        exchange.request().method() == boost::beast::http::verb::head || answer.status == 204 || answer.status == 304;
    const std::string head = makeAnswerHead(answer, framing);
    const std::array<asio::const_buffer, 2> buffers{asio::buffer(head),
                                                    asio::buffer(framing.hidesBody ? std::string_view() : answer.body)};
    error_code error;
    const std::size_t sent = transport->writeNow(buffers, error);
    const std::size_t size = asio::buffer_size(buffers);
    if (error) {
        co_return false;
    }
    if (sent < size) {
        std::array<asio::const_buffer, 2> rest = buffers;
        rest[1] += sent > rest[0].size() ? sent - rest[0].size() : 0;
        rest[0] += sent;
        const bool isSent = co_await send(rest);
        if (!isSent) {
            co_return false;
        }
    }
    if (!exchange.keepsConnection) {
        co_await close();
        if (!hasSkipped || !exchange.body) {
            co_await discard(exchange.mayComeIn ? core.limits.discardKnown : core.limits.discardUnknown);
        }
    }
    co_return exchange.keepsConnection;
}

Task<bool> Session::send(std::array<asio::const_buffer, 2> buffers) {
    isSending = true;
    for (asio::const_buffer& rest : buffers) {
        while (rest.size() > 0) {
            deadline.set(core.limits.progress);
            error_code error;
            rest += co_await transport->async_write_some(rest, resumeWith(error));
            if (error) {
                co_return false;
            }
        }
    }
    isSending = false;
    deadline.clear();
    co_return true;
}

/// Drops what has arrived of a body that nobody took. False when more of it is to come.
bool Session::skipBufferedBody(Exchange& exchange) {
    if (!exchange.body) {
        return true;
    }
    std::array<char, 4096> dropped;
    while (!exchange.body->isComplete()) {
        const std::string_view pending = buffer.pending();
        error_code error;
        const BodyDecoder::Step step =
            exchange.body->decode(pending.data(), pending.size(), dropped.data(), dropped.size(), error);
        if (error || (step.consumed == 0 && step.produced == 0)) {
            return false;
        }
        buffer.consume(step.consumed);
    }
    return true;
}

/// Reads on for a while after the last answer: closing a connection on which bytes wait would destroy the answer on its
/// way.
Task<void> Session::discard(std::size_t limit) {
    deadline.set(core.limits.discard);
    for (std::size_t dropped = 0; dropped < limit;) {
        error_code error;
        dropped += co_await transport->drop(error);
        if (error) {
            co_return;
        }
    }
}

/// Answers something that is no request.
Task<void> Session::refuseHead(int status, std::string_view detail) {
    const Answer answer = makeRefusal(status, detail);
    AnswerFraming framing;
    framing.keepsConnection = false;
    const std::string head = makeAnswerHead(answer, framing);
    const std::array<asio::const_buffer, 2> buffers{asio::buffer(head), asio::buffer(answer.body)};
    const bool isSent = co_await send(buffers);
    if (isSent) {
        co_await close();
        co_await discard(core.limits.discardUnknown);
    }
}

/// Tells the client that nothing more comes.
Task<void> Session::close() {
    isIdle = true;
    deadline.set(core.limits.discard);
    co_await transport->sayGoodbye();
    transport->shutdownWriting();
}

}  // namespace KxNTamberWebApi

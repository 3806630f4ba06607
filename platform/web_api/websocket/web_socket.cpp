#include "platform/web_api/websocket/web_socket.h"

#include <algorithm>
#include <array>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/post.hpp>
#include <chrono>
#include <utility>

#include "KxLog.h"
#include "platform/net/tcp_progress.h"

namespace KxNTamberWebApi {

using KxNNet::mustWait;
using KxNNet::Outcome;
using KxNNet::Step;
using KxNNet::Task;

namespace {

/// Bytes that may wait to be sent, mostly of control frames: a client that makes us owe more does not take what it asks
/// for.
constexpr std::size_t LONGEST_QUEUE = 64 * 1024;

iovec pieceOf(std::string_view bytes) {
    return {const_cast<char*>(bytes.data()), bytes.size()};
}

}  // namespace

KxCWebSocket::State::State(ConnectionRegistry& allConnections, RequestThreads& requestThreads,
                           const Limits& serverLimits, std::shared_ptr<KxNNet::LoopStream> connection,
                           StreamRequest requested)
    : Connection(allConnections),
      threads(requestThreads),
      limits(serverLimits),
      request(std::move(requested)),
      stream(std::move(connection)),
      frames(limits.clientMessage),
      liveness(limits) {
    closeDeadline.set(limits.closeHandshake);
}

KxCWebSocket::State::~State() {
    leave();
}

void KxCWebSocket::State::start(std::string upgradeAnswer, std::string readAhead, std::function<void()> established) {
    join();
    rest = std::move(upgradeAnswer);
    boost::asio::co_spawn(stream->executor(), serve(shared_from_this(), std::move(readAhead), std::move(established)),
                          boost::asio::detached);
}

/// The life of the connection, from the answer to the upgrade to its end.
Task<void> KxCWebSocket::State::serve(std::shared_ptr<State> self, std::string readAhead,
                                      std::function<void()> established) {
    try {
        co_await self->answerUpgrade();
        if (self->openFlag) {
            established();
            established = nullptr;
            co_await self->readFrames(std::move(readAhead));
        }
    } catch (const std::exception& failure) {
        KxCRTE_LOG(3, "Korvex Container Service: Web API drops a stream: %s", failure.what());
    }
    self->lost();
}

Task<void> KxCWebSocket::State::answerUpgrade() {
    while (!rest.empty()) {
        const iovec piece = pieceOf(rest);
        const Step step = stream->tryWrite({&piece, 1});
        if (step.outcome == Outcome::done) {
            rest.erase(0, step.size);
        } else if (mustWait(step.outcome)) {
            co_await stream->until(step.outcome);
        } else {
            co_return;
        }
    }
    rest.shrink_to_fit();
    closeDeadline.clear();
    openFlag = true;
    std::unique_lock lock(mutex);
    isWriting = false;
}

/// Reads what the client sends until the connection ends.
Task<void> KxCWebSocket::State::readFrames(std::string readAhead) {
    take(readAhead);
    readAhead = {};
    for (;;) {
        const Outcome outcome = takeInput();
        if (mustWait(outcome)) {
            co_await stream->until(outcome);
        } else if (outcome != Outcome::done) {
            co_return;
        }
    }
}

Outcome KxCWebSocket::State::takeInput() {
    std::array<char, 4096> room;
    const Step step = stream->tryRead(room);
    if (step.outcome != Outcome::done) {
        return step.outcome;
    }
    take({room.data(), step.size});
    return step.size < room.size() && !stream->hasBuffered() ? Outcome::wantsRead : Outcome::done;
}

void KxCWebSocket::State::take(std::string_view bytes) {
    for (;;) {
        const FrameReader::Event event = frames.next(bytes);
        switch (event) {
            case FrameReader::Event::none:
                return;
            case FrameReader::Event::message:
                passMessage(frames.payload());
                break;
            case FrameReader::Event::ping:
                sendControl(makeControlFrame(Opcode::pong, frames.payload()));
                break;
            case FrameReader::Event::close:
            case FrameReader::Event::broken:
                endByClient(event);
                break;
        }
    }
}

/// Answers the client's close, or its breach of the protocol.
void KxCWebSocket::State::endByClient(FrameReader::Event event) {
    closeDeadline.set(limits.closeHandshake);
    std::unique_lock lock(mutex);
    openFlag = false;
    (event == FrameReader::Event::close ? clientHasClosed : clientIsBroken) = true;
    if (!isClosing) {
        isClosing = true;
        due += makeCloseFrame(frames.closeCode());
    }
    ending.cancel();
    changed.notify_all();
    sendDue(lock);
    callCloseCallback(lock);
}

void KxCWebSocket::State::attach(KxCWebSocket* owner) {
    std::unique_lock lock(mutex);
    socket = owner;
    if (!isOpen()) {
        callCloseCallback(lock);
    }
}

void KxCWebSocket::State::passMessage(std::string_view text) {
    std::unique_lock lock(mutex);
    if (request.dataCallback == nullptr || socket == nullptr || isDestroyed || isInCallback) {
        return;
    }
    callBack(lock,
             [&] { request.dataCallback(request.dataContext, request.dataLength, socket, text.data(), text.size()); });
}

/// Calls one of the handler's callbacks, and lets go of `lock` meanwhile.
template <typename Callback>
void KxCWebSocket::State::callBack(std::unique_lock<std::mutex>& lock, Callback callback) {
    isInCallback = true;
    lock.unlock();
    try {
        const RequestThreads::Operation operation(threads);
        callback();
    } catch (const std::exception& failure) {
        KxCRTE_LOG(4, "Korvex Container Service: Web API: a stream's callback threw: %s", failure.what());
    } catch (...) {
        KxCRTE_LOG(4, "Korvex Container Service: Web API: a stream's callback threw");
    }
    lock.lock();
    isInCallback = false;
    changed.notify_all();
}

bool KxCWebSocket::State::sendText(std::string_view text, int timeoutMilliseconds) {
    KxNNet::WaitLimits waitLimits{ending, std::nullopt};
    if (timeoutMilliseconds >= 0) {
        waitLimits.deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMilliseconds);
    }
    std::unique_lock lock(mutex);
    if (isEnding || !takeWayOut(lock, waitLimits)) {
        return isEnding && queue(lock, text);
    }
    lock.unlock();
    const bool isTaken = writeFrame(text, waitLimits);
    lock.lock();
    isWriting = false;
    sendDue(lock);
    if (!isTaken && !waitLimits.deadline) {
        // The reading coroutine finds the end now, too. Until it has noted it, the connection must not seem open.
        changed.wait(lock, [this] { return isGone || isClosing || isInCallback; });
    }
    return isTaken;
}

/// Leaves a message to the event loop: nobody waits for the client any more. False when it does not fit, or is too
/// late.
bool KxCWebSocket::State::queue(std::unique_lock<std::mutex>& lock, std::string_view text) {
    if (isGone || isClosing || due.size() + text.size() > LONGEST_QUEUE) {
        return false;
    }
    due.append(FrameHead(Opcode::text, text.size()).bytes()).append(text);
    sendDue(lock);
    return true;
}

/// Waits until nobody writes. False when nothing may be sent any more, or the limits end the wait.
bool KxCWebSocket::State::takeWayOut(std::unique_lock<std::mutex>& lock, const KxNNet::WaitLimits& waitLimits) {
    const auto isFree = [this] { return !isWriting || isGone || isClosing || isEnding; };
    if (waitLimits.deadline) {
        changed.wait_until(lock, *waitLimits.deadline, isFree);
    } else {
        changed.wait(lock, isFree);
    }
    if (isWriting || isGone || isClosing) {
        return false;
    }
    isWriting = true;
    return true;
}

/// Writes a whole message as far as the limits allow; what is then left of it goes out by the event loop. False when
/// nothing of it will arrive.
bool KxCWebSocket::State::writeFrame(std::string_view text, const KxNNet::WaitLimits& waitLimits) {
    const FrameHead head(Opcode::text, text.size());
    std::string_view first = head.bytes();
    bool hasBegun = false;
    while (!first.empty() || !text.empty()) {
        const std::array<iovec, 2> pieces{pieceOf(first), pieceOf(text)};
        const Step step = stream->write(pieces, waitLimits);
        if (step.outcome != Outcome::done) {
            if (step.outcome == Outcome::closed || step.outcome == Outcome::failed) {
                stream->shutdown();
                return false;
            }
            // TLS may hold a record of it already, even where nothing counts as written.
            if (hasBegun || stream->isTls() || isEnding) {
                rest.append(first).append(text);
            }
            return !rest.empty();
        }
        hasBegun = true;
        const std::size_t ofFirst = std::min(step.size, first.size());
        first.remove_prefix(ofFirst);
        text.remove_prefix(step.size - ofFirst);
    }
    return true;
}

/// Sends a control frame now, or behind what is being written.
void KxCWebSocket::State::sendControl(std::string_view frame) {
    std::unique_lock lock(mutex);
    if (isGone || isClosing) {
        return;
    }
    due += frame;
    if (due.size() > LONGEST_QUEUE) {
        stream->cut();
    }
    sendDue(lock);
}

/// Sends what is left and what is due, unless somebody else has the way out, who does so then. Never waits: the event
/// loop goes on where the socket takes no more.
void KxCWebSocket::State::sendDue(std::unique_lock<std::mutex>& lock) {
    if (isWriting) {
        return;
    }
    isWriting = true;
    for (;;) {
        rest += due;
        due.clear();
        if (rest.empty() || isGone) {
            break;
        }
        lock.unlock();
        const iovec piece = pieceOf(rest);
        const Step step = stream->tryWrite({&piece, 1});
        if (mustWait(step.outcome)) {
            boost::asio::co_spawn(stream->executor(), drain(shared_from_this()), boost::asio::detached);
            lock.lock();
            return;
        }
        lock.lock();
        if (step.outcome != Outcome::done) {
            stream->shutdown();
            break;
        }
        rest.erase(0, step.size);
    }
    rest = {};
    isWriting = false;
    changed.notify_all();
    if (isClosing && !isGone && (clientHasClosed || clientIsBroken)) {
        stream->shutdownWriting();
        // What a client that broke the protocol still sends is read on, for closing a connection on which bytes wait
        // would destroy our reason on its way.
        if (clientHasClosed) {
            stream->shutdown();
        }
    }
}

/// Goes on with `sendDue`, on whose behalf it has the way out, once the socket takes more.
Task<void> KxCWebSocket::State::drain(std::shared_ptr<State> self) {
    co_await self->stream->until(Outcome::wantsWrite);
    std::unique_lock lock(self->mutex);
    self->isWriting = false;
    self->sendDue(lock);
}

void KxCWebSocket::State::ping() {
    std::unique_lock lock(mutex);
    if (isWriting || isDestroyed || isClosing) {
        liveness.pingWasNotSent();
        return;
    }
    lock.unlock();
    sendControl(makeControlFrame(Opcode::ping, {}));
}

/// The connection can carry nothing more.
void KxCWebSocket::State::lost() {
    stream->shutdown();
    std::unique_lock lock(mutex);
    isGone = true;
    openFlag = false;
    changed.notify_all();
    callCloseCallback(lock);
}

void KxCWebSocket::State::end() {
    std::unique_lock lock(mutex);
    isEnding = true;
    ending.cancel();
    changed.notify_all();
    callCloseCallback(lock);
}

/// Calls the callback unless it was called before or must not be called any more; lets go of `lock` meanwhile.
void KxCWebSocket::State::callCloseCallback(std::unique_lock<std::mutex>& lock) {
    if (socket == nullptr || isDestroyed || closeWasTold || request.closeCallback == nullptr) {
        return;
    }
    closeWasTold = true;
    changed.wait(lock, [this] { return !isInCallback; });
    if (isDestroyed) {
        return;
    }
    callBack(lock, [this] { request.closeCallback(request.closeContext, request.closeLength, socket); });
}

void KxCWebSocket::State::release() {
    std::unique_lock lock(mutex);
    isDestroyed = true;
    openFlag = false;
    changed.wait(lock, [this] { return !isInCallback; });
    socket = nullptr;
    if (!isClosing) {
        isClosing = true;
        closeDeadline.set(limits.closeHandshake);
        due += makeCloseFrame(closeCode);
    }
    sendDue(lock);
}

bool KxCWebSocket::State::isReleased() {
    std::lock_guard lock(mutex);
    return isDestroyed;
}

void KxCWebSocket::State::onGrantEnded() {
    setCloseCode(CLOSE_POLICY);
    if (const auto self = weak_from_this().lock()) {  // the handler's callback may wait, which the sweep must not
        boost::asio::post(stream->executor(), [self] { self->end(); });
    }
}

void KxCWebSocket::State::sweep(std::int64_t now) {
    Liveness::Facts facts{.serverEnds = isEnding, .closeIsLate = closeDeadline.hasPassed(now)};
    {
        std::lock_guard lock(mutex);
        facts.dataWaits = isWriting;
        facts.closeIsDue = isClosing;
        facts.clientHasEnded = clientHasClosed || clientIsBroken;
    }
    switch (liveness.judge(now, KxNNet::readTcpProgress(stream->descriptor()), facts)) {
        case Liveness::Verdict::lives:
            break;
        case Liveness::Verdict::mustBePinged:
            if (const auto self = weak_from_this().lock()) {
                boost::asio::post(stream->executor(), [self] { self->ping(); });
            }
            break;
        case Liveness::Verdict::isLost:
            stream->cut();
            break;
    }
}

void KxCWebSocket::State::abort() {
    stream->cut();
}

KxCWebSocket::KxCWebSocket(std::shared_ptr<State> connection) : state(std::move(connection)) {
    state->attach(this);
}

KxCWebSocket::~KxCWebSocket() {
    try {
        state->release();
    } catch (...) {
        state->abort();  // without memory for an orderly close
    }
}

bool KxCWebSocket::sendText(KxCErrorListPool&, const char* text, std::size_t length, int timeoutMilliseconds,
                            bool joinable) {
    return joinable && length == 0 ? isOpen() : state->sendText({text, length}, timeoutMilliseconds);
}

bool KxCWebSocket::isOpen() const {
    return state->isOpen();
}

}  // namespace KxNTamberWebApi

#include "platform/web_api/websocket/web_socket.h"

#include <algorithm>
#include <boost/asio/bind_executor.hpp>
#include <boost/asio/dispatch.hpp>
#include <boost/asio/post.hpp>
#include <chrono>
#include <utility>

#include "KxLog.h"
#include "platform/net/tcp_progress.h"

namespace KxNTamberWebApi {

namespace websocket = boost::beast::websocket;
namespace http = boost::beast::http;

namespace {

/// Joinable texts are put together up to this size, so that a message is not held back by its own length.
constexpr std::size_t JOINED_SIZE = 64 * 1024;

}  // namespace

KxCWebSocket::State::State(ConnectionRegistry& allConnections, RequestThreads& requestThreads,
                           const Limits& serverLimits, std::shared_ptr<Transport> connection, StreamRequest requested)
    : Connection(allConnections),
      threads(requestThreads),
      limits(serverLimits),
      stream(std::move(requested)),
      strand(asio::make_strand(connection->get_executor())),
      transport(std::move(connection)),
      turns(*transport),
      webSocket(turns) {
    webSocket.auto_fragment(false);
    webSocket.read_message_max(limits.clientMessage);
    webSocket.control_callback([this](websocket::frame_type kind, boost::beast::string_view) {
        if (kind == websocket::frame_type::close) {
            turns.close();
        }
    });
    closeDeadline.set(limits.closeHandshake);
}

KxCWebSocket::State::~State() {
    leave();
}

void KxCWebSocket::State::accept(RequestParser::value_type request, std::string subprotocol,
                                 std::function<void()> established) {
    join();
    webSocket.set_option(
        websocket::stream_base::decorator([protocol = std::move(subprotocol)](websocket::response_type& response) {
            response.set(http::field::server, "");  // else the library's own banner would stand here
            if (!protocol.empty()) {
                response.set(http::field::sec_websocket_protocol, protocol);
            }
        }));
    upgradeRequest = std::move(request);
    asio::dispatch(strand, [this, self = shared_from_this(), action = std::move(established)]() mutable {
        webSocket.async_accept(upgradeRequest,
                               asio::bind_executor(strand, [this, self, begin = std::move(action)](error_code error) {
                                   upgradeRequest = {};
                                   if (error) {
                                       return;
                                   }
                                   closeDeadline.clear();
                                   openFlag = true;
                                   begin();
                                   read();
                               }));
    });
}

void KxCWebSocket::State::attach(KxCWebSocket* owner) {
    std::unique_lock lock(mutex);
    socket = owner;
    if (!isOpen()) {
        callCloseCallback(lock);
    }
}

void KxCWebSocket::State::read() {
    webSocket.async_read(incoming, asio::bind_executor(strand, [this, self = shared_from_this()](
                                                                   error_code error, std::size_t) { onRead(error); }));
}

void KxCWebSocket::State::onRead(error_code error) {
    if (error) {
        lost();
        return;
    }
    if (stream.dataCallback != nullptr && webSocket.got_text()) {
        passMessage();
    }
    incoming.consume(incoming.size());
    read();
}

void KxCWebSocket::State::passMessage() {
    std::unique_lock lock(mutex);
    if (socket == nullptr || isDestroyed || isInCallback) {
        return;
    }
    callBack(lock, [this] {
        const auto data = incoming.cdata();
        stream.dataCallback(stream.dataContext, stream.dataLength, socket, static_cast<const char*>(data.data()),
                            data.size());
    });
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

bool KxCWebSocket::State::sendText(const char* text, std::size_t length, int timeoutMilliseconds, bool joinable) {
    std::unique_lock lock(mutex);
    const auto hasRoom = [this] { return isGone || queued <= limits.streamQueue; };
    if (timeoutMilliseconds < 0) {
        changed.wait(lock, hasRoom);
    } else if (!changed.wait_for(lock, std::chrono::milliseconds(timeoutMilliseconds), hasRoom)) {
        return false;
    }
    if (isGone) {
        return false;
    }
    if (joinable && length == 0) {
        return true;
    }
    // Not on the strand, that is, in a callback: there a wait would hold up what it waits for.
    if (timeoutMilliseconds < 0 && !isWriting && !strand.running_in_this_thread() && turns.tryTake()) {
        return writeAtOnce(lock, {text, length});
    }
    if (joinable && !queue.empty() && queue.back().joinable && queue.back().text.size() < JOINED_SIZE) {
        queue.back().text.append(text, length);
    } else {
        queue.push_back({std::string(text, length), joinable});
    }
    queued += length;
    if (!isWriting) {
        isWriting = true;
        asio::post(strand, [this, self = shared_from_this()] { write(); });
    }
    return true;
}

/// Writes a message on the calling thread, which has the turn, and lets go of `lock` meanwhile.
bool KxCWebSocket::State::writeAtOnce(std::unique_lock<std::mutex>& lock, std::string_view text) {
    isWriting = true;
    lock.unlock();
    const bool isSent = turns.writeText(text);
    lock.lock();
    isWriting = false;
    if (!isSent) {
        // The read fails now too. Until the strand has noted it, the connection must not seem open.
        changed.wait(lock, [this] { return isGone.load(); });
    }
    return isSent;
}

/// Writes the first message of the queue; `isWriting` is set.
void KxCWebSocket::State::write() {
    {
        std::unique_lock lock(mutex);
        if (isGone || queue.empty()) {
            isWriting = false;
            lock.unlock();
            closeWhenSent();
            return;
        }
        current = std::move(queue.front());
        queue.pop_front();
    }
    webSocket.text(true);
    webSocket.async_write(asio::buffer(current.text),
                          asio::bind_executor(strand, [this, self = shared_from_this()](error_code error, std::size_t) {
                              onWritten(error);
                          }));
}

void KxCWebSocket::State::onWritten(error_code error) {
    {
        std::lock_guard lock(mutex);
        queued -= current.text.size();
        changed.notify_all();
    }
    if (error) {
        {
            std::lock_guard lock(mutex);
            isWriting = false;
        }
        lost();
        return;
    }
    write();
}

/// Closes the connection when its owner has gone and nothing is left to be sent. On the strand.
void KxCWebSocket::State::closeWhenSent() {
    {
        std::lock_guard lock(mutex);
        if (!isDestroyed || isWriting || !queue.empty() || isClosing) {
            return;
        }
        isClosing = true;
    }
    if (isGone) {
        transport->shutdownBoth();
        return;
    }
    closeDeadline.set(limits.closeHandshake);
    const websocket::close_reason reason(static_cast<websocket::close_code>(closeCode.load()));
    webSocket.async_close(reason, asio::bind_executor(strand, [this, self = shared_from_this()](error_code) {
                              transport->shutdownBoth();
                          }));
}

void KxCWebSocket::State::ping() {
    {
        std::lock_guard lock(mutex);
        if (isGone || isWriting || isPinging || isDestroyed) {
            pingedAt = 0;  // no pong will come
            return;
        }
    }
    isPinging = true;
    webSocket.async_ping({}, asio::bind_executor(strand, [this, self = shared_from_this()](error_code error) {
                             isPinging = false;
                             if (error) {
                                 lost();
                             }
                         }));
}

/// The connection can carry nothing more. On the strand.
void KxCWebSocket::State::lost() {
    transport->shutdownBoth();
    std::unique_lock lock(mutex);
    isGone = true;
    openFlag = false;
    queue.clear();
    changed.notify_all();
    callCloseCallback(lock);
}

void KxCWebSocket::State::end() {
    std::unique_lock lock(mutex);
    isEnding = true;
    callCloseCallback(lock);
}

/// Calls the callback unless it was called before or must not be called any more; lets go of `lock` meanwhile.
void KxCWebSocket::State::callCloseCallback(std::unique_lock<std::mutex>& lock) {
    if (socket == nullptr || isDestroyed || closeWasTold || stream.closeCallback == nullptr) {
        return;
    }
    closeWasTold = true;
    changed.wait(lock, [this] { return !isInCallback; });
    if (isDestroyed) {
        return;
    }
    callBack(lock, [this] { stream.closeCallback(stream.closeContext, stream.closeLength, socket); });
}

void KxCWebSocket::State::release() {
    {
        std::unique_lock lock(mutex);
        isDestroyed = true;
        openFlag = false;
        changed.wait(lock, [this] { return !isInCallback; });
        socket = nullptr;
    }
    asio::post(strand, [this, self = shared_from_this()] { closeWhenSent(); });
}

bool KxCWebSocket::State::isReleased() {
    std::lock_guard lock(mutex);
    return isDestroyed;
}

void KxCWebSocket::State::sweep(std::int64_t now) {
    const KxNNet::TcpProgress progress = KxNNet::readTcpProgress(transport->descriptor());
    const bool hasReceived = progress.bytesReceived != bytesReceived;
    const bool isAcknowledging = progress.bytesAcknowledged != bytesAcknowledged;
    bytesReceived = progress.bytesReceived;
    bytesAcknowledged = progress.bytesAcknowledged;
    if (isAcknowledging || lastAcknowledged == 0) {
        lastAcknowledged = now;
    }
    if (closeDeadline.hasPassed(now)) {
        // Megabytes of the stream's end may still wait in the kernel for a client that is slow.
        const auto patience = progress.bytesWaiting > 0 ? limits.streamProgress : limits.closeHandshake;
        if (now - lastAcknowledged >= patience.count()) {
            transport->cut();
        }
        return;
    }
    if (hasReceived || isAcknowledging || lastMoved == 0) {
        lastMoved = now;
    }
    if (hasReceived) {
        pingedAt = 0;
    }
    bool dataWaits;
    {
        std::lock_guard lock(mutex);
        dataWaits = isWriting;
    }
    std::int64_t awaitedSince = pingedAt;
    if (dataWaits && awaitedSince != 0 && pingedAt.compare_exchange_strong(awaitedSince, now)) {
        awaitedSince = now;  // a pong may have to wait behind the data
    }
    const std::int64_t still = now - lastMoved;
    const bool isStuck = dataWaits && still >= limits.streamProgress.count();
    const bool isSilent = !dataWaits && awaitedSince != 0 && now - awaitedSince >= limits.pongWithin.count();
    if (isStuck || isSilent) {
        transport->cut();
    } else if (!dataWaits && awaitedSince == 0 && still >= limits.pingAfter.count()) {
        pingedAt = now;
        if (const auto self = weak_from_this().lock()) {
            asio::post(strand, [self] { self->ping(); });
        }
    }
}

void KxCWebSocket::State::abort() {
    transport->cut();
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
    return state->sendText(text, length, timeoutMilliseconds, joinable);
}

bool KxCWebSocket::isOpen() const {
    return state->isOpen();
}

}  // namespace KxNTamberWebApi

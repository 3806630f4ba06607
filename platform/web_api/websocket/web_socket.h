// The server's side of one WebSocket.
//
// Lifetimes. The record of a connection (KxCWebSocket::State) is shared by the KxCWebSocket that the handler holds and
// by whatever input or output is under way, so neither outlives it. Everything that touches the connection runs on its
// strand, but for one thing: while nothing waits to be sent, `sendText` writes by itself when it gets a turn. Else it
// and the destructor only touch the queue and the flags, under `mutex`, and post to the strand. A callback is entered
// under that mutex only while `isDestroyed` is not set, which the destructor sets before it waits for the callback that
// runs: so none runs after the destructor has returned, and none begins once it has begun.
#pragma once

#include <boost/asio/strand.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket/stream.hpp>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "platform/web_api/http/answer.h"
#include "platform/web_api/http/request_parser.h"
#include "platform/web_api/server/connection.h"
#include "platform/web_api/server/limits.h"
#include "platform/web_api/server/transport.h"
#include "platform/web_api/threads/request_threads.h"
#include "platform/web_api/websocket/frame_turns.h"

namespace KxNTamberWebApi {

struct KxCWebSocket::State : public Connection, public std::enable_shared_from_this<KxCWebSocket::State> {
public:
    /// Takes over the connection of an upgrade request.
    State(ConnectionRegistry& allConnections, RequestThreads& threads, const Limits& limits,
          std::shared_ptr<Transport> transport, StreamRequest stream);
    ~State() override;

    /// Answers the upgrade request, then calls `established` on the strand, or nothing when the connection is lost.
    /// `subprotocol` is the one selected, empty for none.
    void accept(RequestParser::value_type request, std::string subprotocol, std::function<void()> established);

    // The handler's side.
    bool sendText(const char* text, std::size_t length, int timeoutMilliseconds, bool joinable);
    bool isOpen() const { return openFlag.load() && !isEnding.load(); }
    /// Begins when `socket` exists, through which callbacks are called.
    void attach(KxCWebSocket* socket);
    /// Ends all callbacks; the connection is closed once the queue has been sent.
    void release();
    bool isReleased();
    /// The close code sent in the end; 1000 unless it is set before `release`.
    void setCloseCode(unsigned short code) { closeCode = code; }

    /// Ends the stream from the server's side: tells the handler as if the client had closed, but texts are still sent.
    void end();

    void sweep(std::int64_t now) override;
    void onStopping() override {}
    std::shared_ptr<KxCWebSocket::State> asStream() override { return weak_from_this().lock(); }
    void abort() override;

private:
    struct Message {
        std::string text;
        bool joinable;
    };

    bool writeAtOnce(std::unique_lock<std::mutex>& lock, std::string_view text);
    void read();
    void onRead(error_code error);
    void write();
    void onWritten(error_code error);
    void closeWhenSent();
    void ping();
    void lost();
    void callCloseCallback(std::unique_lock<std::mutex>& lock);
    template <typename Callback>
    void callBack(std::unique_lock<std::mutex>& lock, Callback callback);
    void passMessage();

    RequestThreads& threads;
    const Limits& limits;
    const StreamRequest stream;
    asio::strand<Executor> strand;

    // On the strand.
    std::shared_ptr<Transport> transport;
    FrameTurns turns;
    boost::beast::websocket::stream<FrameTurns&, false> webSocket;
    RequestParser::value_type upgradeRequest;
    boost::beast::flat_buffer incoming;
    Message current{{}, false};  // being written
    bool isClosing = false;
    bool isPinging = false;

    // Any thread.
    std::atomic<bool> openFlag{false};
    std::atomic<bool> isEnding{false};  // by the server
    std::atomic<bool> isGone{false};    // nothing can be sent or received any more
    std::atomic<unsigned short> closeCode{1000};
    KxNNet::Deadline closeDeadline;

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Message> queue;
    std::size_t queued = 0;  // bytes in the queue and in `current`
    bool isWriting = false;  // the strand, or `sendText` itself
    KxCWebSocket* socket = nullptr;
    bool isDestroyed = false;
    bool isInCallback = false;
    bool closeWasTold = false;

    std::atomic<std::int64_t> pingedAt{0};  // 0 while no pong is awaited

    // The sweep's own.
    std::uint64_t bytesAcknowledged = 0;
    std::uint64_t bytesReceived = 0;
    std::int64_t lastMoved = 0;
    std::int64_t lastAcknowledged = 0;
};

}  // namespace KxNTamberWebApi

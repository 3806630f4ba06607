// The server's side of one WebSocket.
//
// The client's frames are read on the event loop. Frames to the client are written whole, by whichever thread has one:
// a message by the thread of the stream, which waits while the client does not read; control frames by the loop, or by
// that thread behind its message. `isWriting` says that somebody has the way out. What the socket has not taken of a
// frame whose writer could not wait goes out first, by the loop.
//
// The record of a connection (KxCWebSocket::State) is shared by the KxCWebSocket that the handler holds and by the
// coroutines that wait for the client, so none of them outlives it. A callback is entered under `mutex` only while
// `isDestroyed` is not set, which the destructor sets before it waits for the callback that runs: so none runs after
// the destructor has returned, and none begins once it has begun.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/net/cancellation.h"
#include "platform/net/deadline.h"
#include "platform/net/loop_stream.h"
#include "platform/web_api/connection/connection_registry.h"
#include "platform/web_api/connection/limits.h"
#include "platform/web_api/http/answer.h"
#include "platform/web_api/threads/request_threads.h"
#include "platform/web_api/websocket/frames.h"
#include "platform/web_api/websocket/liveness.h"

namespace KxNTamberWebApi {

struct KxCWebSocket::State : public Connection, public std::enable_shared_from_this<KxCWebSocket::State> {
public:
    /// Takes over the connection of an upgrade request. Throws std::system_error when the process is out of
    /// descriptors.
    State(ConnectionRegistry& allConnections, RequestThreads& threads, const Limits& limits,
          std::shared_ptr<KxNNet::LoopStream> stream, StreamRequest requested);
    ~State() override;

    /// Sends `upgradeAnswer` and then calls `established` on the event loop, or nothing when the connection is lost.
    /// `readAhead` has come behind the request.
    void start(std::string upgradeAnswer, std::string readAhead, std::function<void()> established);

    // The handler's side.
    bool sendText(std::string_view text, int timeoutMilliseconds);
    bool isOpen() const { return openFlag.load() && !isEnding.load(); }
    /// Begins when `socket` exists, through which callbacks are called.
    void attach(KxCWebSocket* socket);
    /// Ends all callbacks; the connection is closed once what is being written has been sent.
    void release();
    bool isReleased();
    /// The close code sent in the end; 1000 unless it is set before `release`.
    void setCloseCode(std::uint16_t code) { closeCode = code; }

    /// Ends the stream from the server's side: tells the handler as if the client had closed. Texts are still sent, but
    /// nobody waits for the client any more.
    void end();

    void sweep(std::int64_t now) override;
    void onGrantEnded() override;
    void onStopping() override {}
    std::shared_ptr<KxCWebSocket::State> asStream() override { return weak_from_this().lock(); }
    void abort() override;

private:
    // On the event loop.
    static KxNNet::Task<void> serve(std::shared_ptr<State> self, std::string readAhead,
                                    std::function<void()> established);
    KxNNet::Task<void> answerUpgrade();
    KxNNet::Task<void> readFrames(std::string readAhead);
    KxNNet::Outcome takeInput();
    void take(std::string_view bytes);
    void endByClient(FrameReader::Event event);
    static KxNNet::Task<void> drain(std::shared_ptr<State> self);

    // Any thread.
    bool queue(std::unique_lock<std::mutex>& lock, std::string_view text);
    bool takeWayOut(std::unique_lock<std::mutex>& lock, const KxNNet::WaitLimits& waitLimits);
    bool writeFrame(std::string_view text, const KxNNet::WaitLimits& waitLimits);
    void sendControl(std::string_view frame);
    void sendDue(std::unique_lock<std::mutex>& lock);
    void ping();
    void lost();
    void callCloseCallback(std::unique_lock<std::mutex>& lock);
    template <typename Callback>
    void callBack(std::unique_lock<std::mutex>& lock, Callback callback);
    void passMessage(std::string_view text);

    RequestThreads& threads;
    const Limits& limits;
    const StreamRequest request;
    const std::shared_ptr<KxNNet::LoopStream> stream;
    KxNNet::Cancellation ending;  ///< ends the wait of a writer: its client has closed, or the server ends the stream

    FrameReader frames;  // the reading coroutine's own
    std::string rest;    // of frames that the socket has not taken; belongs to who has the way out

    // Any thread.
    std::atomic<bool> openFlag{false};
    std::atomic<bool> isEnding{false};  // by the server
    std::atomic<bool> isGone{false};    // the reading coroutine has found the end
    std::atomic<std::uint16_t> closeCode{CLOSE_NORMAL};
    KxNNet::Deadline closeDeadline;

    std::mutex mutex;
    std::condition_variable changed;
    bool isWriting = true;   // somebody has the way out; at first the answer to the upgrade
    std::string due;         // frames that wait for it: of control, or of messages for which nobody waits
    bool isClosing = false;  // our close is due or sent, and nothing follows it
    bool clientHasClosed = false;
    bool clientIsBroken = false;  // it has sent what the protocol forbids
    KxCWebSocket* socket = nullptr;
    bool isDestroyed = false;
    bool isInCallback = false;
    bool closeWasTold = false;

    Liveness liveness;  // the sweep's own, but for pings that were not sent
};

}  // namespace KxNTamberWebApi

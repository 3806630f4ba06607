// The stream of a client that speaks HTTP, and how long the server waits for that client.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>

#include "platform/net/deadline.h"
#include "platform/net/loop_stream.h"
#include "platform/web_api/connection/limits.h"
#include "platform/web_api/server/exchange.h"

namespace KxNTamberWebApi {

/// All of it on the event loop, but for `sweep` and `leaveIfIdle`, which any thread may call.
class ClientStream {
public:
    /// `limits` outlive the object. The stream may be shared with the WebSocket that the connection becomes.
    ClientStream(const Limits& serverLimits, std::shared_ptr<KxNNet::LoopStream> connection)
        : limits(serverLimits), connected(std::move(connection)) {}

    KxNNet::LoopStream& stream() { return *connected; }
    std::shared_ptr<KxNNet::LoopStream> share() const { return connected; }

    // What the client has to do, and until when. An earlier expectation ends with the next one.

    /// Between two requests, when the connection may go without an answer.
    void expectRequest(std::chrono::milliseconds patience);
    /// Within a request.
    void expectWithin(std::chrono::milliseconds patience);
    void expectNothing() { deadline.clear(); }

    /// Whether nothing of a request has come.
    bool isIdle() const { return idle; }
    /// Whether the client has not done in time what was expected. It is not read from any more, and can be answered.
    bool isLate() const { return late; }
    void noteLate() { late = true; }

    /// Sends all of `first` and `second`. False when the client has gone, or does not take them in time.
    KxNNet::Task<bool> send(std::string_view first, std::string_view second);

    /// Sends the go-ahead that a request may ask for before it sends its body (RFC 9110 10.1.1). False as above.
    KxNNet::Task<bool> sendContinue(const Exchange& exchange);

    /// Tells the client that nothing more comes.
    void announceEnd();
    /// Reads on for a while after the last answer, at most `limit` bytes: closing a connection on which bytes wait
    /// would destroy the answer on its way.
    KxNNet::Task<void> discard(std::size_t limit);

    /// Ends what has passed its deadline. `now` is that of coarseMilliseconds.
    void sweep(std::int64_t now);
    void leaveIfIdle();

private:
    const Limits& limits;
    const std::shared_ptr<KxNNet::LoopStream> connected;
    KxNNet::Deadline deadline;
    std::atomic<bool> idle{true};
    std::atomic<bool> sending{false};  // what a passed deadline then ends is the connection, not a request
    std::atomic<bool> late{false};
};

}  // namespace KxNTamberWebApi

// What every connection has in common: a deadline that one sweep for all of them looks at.
#pragma once

#include <atomic>
#include <boost/intrusive/list.hpp>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "KxTamberWebApi/KxWebSocket.h"
#include "platform/net/deadline.h"

namespace KxNTamberWebApi {

class ConnectionRegistry;

/// One connection. It registers itself, and must have left the registry before its descriptor is closed: until then
/// the sweep may shut the descriptor down.
class Connection : public boost::intrusive::list_base_hook<> {
public:
    explicit Connection(ConnectionRegistry& owner) : registry(&owner) {}
    virtual ~Connection() = default;
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// Looks at the deadlines. Called from the sweep, concurrently with everything else; must not block.
    virtual void sweep(std::int64_t now) = 0;
    /// The server is stopping: a connection that is not working on a request goes now.
    virtual void onStopping() = 0;
    /// The stream that this connection is, or null.
    virtual std::shared_ptr<KxCWebSocket::State> asStream() { return nullptr; }
    /// Whom it works for may not go on. Called from the sweep, concurrently with everything else.
    virtual void onGrantEnded() { abort(); }
    /// The grace is over: whatever is under way ends.
    virtual void abort() = 0;

    /// What let in whom the connection works for (Caller::grant).
    void setGrant(std::uint32_t given) { grant.store(given, std::memory_order_relaxed); }

protected:
    void join();
    void leave();

private:
    friend class ConnectionRegistry;
    ConnectionRegistry* registry;
    std::atomic<std::uint32_t> grant{0};
};

/// All connections of a server. Any thread.
class ConnectionRegistry {
public:
    /// Looks at all deadlines.
    void sweep();
    void announceStop();
    void abortAll();
    /// Ends what is open by a grant for which `holds` is false, the streams among them too.
    void endWithoutGrant(const std::function<bool(std::uint32_t grant)>& holds);
    /// All connections that are streams now.
    std::vector<std::shared_ptr<KxCWebSocket::State>> streams();
    std::size_t count() const;
    /// Waits until no connection is left; false when the time is over first.
    bool waitUntilEmpty(std::chrono::milliseconds timeout);

private:
    friend class Connection;
    template <typename Action>
    void forEach(Action action);

    mutable std::mutex mutex;
    std::condition_variable emptied;
    boost::intrusive::list<Connection> members;
};

}  // namespace KxNTamberWebApi

// Connections to Podman that are open but idle.
#pragma once

#include <chrono>
#include <mutex>
#include <optional>
#include <vector>

#include "platform/net/stream.h"

namespace KxNContainer {

/// Keeps a few connections for reuse. Any thread.
class ConnectionPool {
public:
    /// A connection that is still open, the most recently used one; none when there is none.
    std::optional<KxNNet::Stream> take();

    /// Keeps `connection` for later, or closes it when there are enough.
    void put(KxNNet::Stream connection);

    /// Closes those that were idle for long.
    void closeStale();

    void closeAll();

private:
    struct Idle {
        KxNNet::Stream connection;
        std::chrono::steady_clock::time_point since;
    };

    std::mutex mutex;
    std::vector<Idle> idle;  ///< the longest idle first
};

}  // namespace KxNContainer

#include "platform/container_runtime/podman/connection_pool.h"

#include <algorithm>
#include <utility>

#include "platform/container_runtime/podman/podman_address.h"

namespace KxNContainer {

namespace {

constexpr std::size_t MAX_IDLE = 8;
constexpr std::chrono::seconds MAX_IDLE_TIME{30};

}  // namespace

std::optional<KxNNet::Stream> ConnectionPool::take() {
    const std::lock_guard lock(mutex);
    while (!idle.empty()) {
        KxNNet::Stream connection = std::move(idle.back().connection);
        idle.pop_back();
        if (isQuiet(connection)) {
            return connection;
        }
    }
    return std::nullopt;
}

void ConnectionPool::put(KxNNet::Stream connection) {
    const std::lock_guard lock(mutex);
    if (idle.size() < MAX_IDLE) {
        idle.push_back({std::move(connection), std::chrono::steady_clock::now()});
    }
}

void ConnectionPool::closeStale() {
    const auto oldest = std::chrono::steady_clock::now() - MAX_IDLE_TIME;
    const std::lock_guard lock(mutex);
    const auto fresh = std::find_if(idle.begin(), idle.end(), [&](const Idle& entry) { return entry.since > oldest; });
    idle.erase(idle.begin(), fresh);
}

void ConnectionPool::closeAll() {
    const std::lock_guard lock(mutex);
    idle.clear();
}

}  // namespace KxNContainer

#include "platform/web_api/connection/connection_registry.h"

#include <algorithm>

namespace KxNTamberWebApi {

void Connection::join() {
    std::lock_guard lock(registry->mutex);
    registry->members.push_front(*this);
}

void Connection::leave() {
    std::lock_guard lock(registry->mutex);
    if (is_linked()) {
        registry->members.erase(registry->members.iterator_to(*this));
        if (registry->members.empty()) {
            registry->emptied.notify_all();
        }
    }
}

template <typename Action>
void ConnectionRegistry::forEach(Action action) {
    std::lock_guard lock(mutex);
    std::for_each(members.begin(), members.end(), action);
}

void ConnectionRegistry::sweep() {
    const std::int64_t now = KxNNet::coarseMilliseconds();
    forEach([now](Connection& one) { one.sweep(now); });
}

void ConnectionRegistry::announceStop() {
    forEach([](Connection& one) { one.onStopping(); });
}

void ConnectionRegistry::abortAll() {
    forEach([](Connection& one) { one.abort(); });
}

void ConnectionRegistry::endWithoutGrant(const std::function<bool(std::uint32_t)>& holds) {
    forEach([&holds](Connection& one) {
        const std::uint32_t grant = one.grant.load(std::memory_order_relaxed);
        if (grant != 0 && !holds(grant)) {
            one.setGrant(0);
            one.onGrantEnded();
        }
    });
}

std::vector<std::shared_ptr<KxCWebSocket::State>> ConnectionRegistry::streams() {
    std::vector<std::shared_ptr<KxCWebSocket::State>> found;
    forEach([&found](Connection& one) {
        if (auto stream = one.asStream()) {
            found.push_back(std::move(stream));
        }
    });
    return found;
}

std::size_t ConnectionRegistry::count() const {
    std::lock_guard lock(mutex);
    return members.size();
}

bool ConnectionRegistry::waitUntilEmpty(std::chrono::milliseconds timeout) {
    std::unique_lock lock(mutex);
    return emptied.wait_for(lock, timeout, [this] { return members.empty(); });
}

}  // namespace KxNTamberWebApi

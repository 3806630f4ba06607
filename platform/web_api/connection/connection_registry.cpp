#include "platform/web_api/connection/connection_registry.h"

namespace KxNTamberWebApi {

void Connection::join() {
    std::lock_guard lock(registry->mutex);
    nextMember = registry->first;
    if (nextMember != nullptr) {
        nextMember->previousMember = this;
    }
    registry->first = this;
    ++registry->members;
    isMember = true;
}

void Connection::leave() {
    std::lock_guard lock(registry->mutex);
    if (!isMember) {
        return;
    }
    isMember = false;
    (previousMember != nullptr ? previousMember->nextMember : registry->first) = nextMember;
    if (nextMember != nullptr) {
        nextMember->previousMember = previousMember;
    }
    if (--registry->members == 0) {
        registry->emptied.notify_all();
    }
}

template <typename Action>
void ConnectionRegistry::forEach(Action action) {
    std::lock_guard lock(mutex);
    for (Connection* one = first; one != nullptr; one = one->nextMember) {
        action(*one);
    }
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
    return members;
}

bool ConnectionRegistry::waitUntilEmpty(std::chrono::milliseconds timeout) {
    std::unique_lock lock(mutex);
    return emptied.wait_for(lock, timeout, [this] { return members == 0; });
}

}  // namespace KxNTamberWebApi

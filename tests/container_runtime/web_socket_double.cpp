#include "web_socket_double.h"

#include <utility>

namespace KxNTamberWebApi {

KxCWebSocket::KxCWebSocket(std::shared_ptr<State> shared) : state(std::move(shared)) {}
KxCWebSocket::~KxCWebSocket() = default;

bool KxCWebSocket::sendText(KxCErrorListPool&, const char* text, std::size_t length, int, bool) {
    std::unique_lock lock(state->mutex);
    state->changed.wait(lock, [this] { return state->isReading || !state->isOpen; });
    if (state->isOpen) {
        state->sent.append(text, length);
    }
    state->changed.notify_all();
    return state->isOpen;
}

bool KxCWebSocket::isOpen() const {
    const std::lock_guard lock(state->mutex);
    return state->isOpen;
}

void KxCWebSocket::State::close() {
    const std::lock_guard lock(mutex);
    isOpen = false;
    changed.notify_all();
}

void KxCWebSocket::State::setReading(bool reads) {
    const std::lock_guard lock(mutex);
    isReading = reads;
    changed.notify_all();
}

std::string KxCWebSocket::State::sentSoFar() {
    const std::lock_guard lock(mutex);
    return sent;
}

}  // namespace KxNTamberWebApi

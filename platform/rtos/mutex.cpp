#include <chrono>
#include <condition_variable>
#include <mutex>

#include "KxRtos.h"

namespace KxNRtosAbstraction {

// Not a std::timed_mutex: the thread sanitizer does not see the lock that its timed wait takes.
struct KxCMutex::State {
    std::mutex guard;
    std::condition_variable released;
    bool isHeld = false;
    const char* name = nullptr;  // for whoever looks at it with a debugger
};

KxCMutex::KxCMutex(const char* name) : state(std::make_unique<State>()) {
    state->name = name;
}

KxCMutex::~KxCMutex() = default;

bool KxCMutex::lock(int timeoutMilliseconds) {
    std::unique_lock lock(state->guard);
    const auto isFree = [this] { return !state->isHeld; };
    if (timeoutMilliseconds < 0) {
        state->released.wait(lock, isFree);
    } else if (!state->released.wait_for(lock, std::chrono::milliseconds(timeoutMilliseconds), isFree)) {
        return false;
    }
    state->isHeld = true;
    return true;
}

void KxCMutex::unlock() {
    const std::lock_guard lock(state->guard);
    state->isHeld = false;
    state->released.notify_one();
}

}  // namespace KxNRtosAbstraction

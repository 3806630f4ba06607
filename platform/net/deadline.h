// A point in time that one thread sets and another looks at.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

namespace KxNNet {

/// Milliseconds of a coarse clock (a few milliseconds) that never jumps: cheap enough to be read for every request.
/// clock_gettime(2), CLOCK_MONOTONIC_COARSE.
std::int64_t coarseMilliseconds();

/// Any thread.
class Deadline {
public:
    void set(std::chrono::milliseconds fromNow) {
        at.store(coarseMilliseconds() + fromNow.count(), std::memory_order_relaxed);
    }
    void clear() { at.store(0, std::memory_order_relaxed); }
    bool hasPassed(std::int64_t now) const {
        const std::int64_t value = at.load(std::memory_order_relaxed);
        return value != 0 && value <= now;
    }

private:
    std::atomic<std::int64_t> at{0};
};

}  // namespace KxNNet

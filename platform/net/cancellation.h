// Ends blocking work from another thread.
#pragma once

#include <atomic>

#include "platform/common/unique_fd.h"

namespace KxNNet {

/// Once cancelled it stays so. Whoever blocks polls `descriptor()` beside its own descriptor: it becomes readable and
/// stays readable. Any thread.
class Cancellation {
public:
    /// Throws std::system_error when the process is out of descriptors.
    Cancellation();
    Cancellation(const Cancellation&) = delete;
    Cancellation& operator=(const Cancellation&) = delete;

    void cancel();
    bool isCancelled() const { return cancelled.load(std::memory_order_relaxed); }
    int descriptor() const { return event.get(); }

private:
    KxNCommon::UniqueFd event;
    std::atomic<bool> cancelled{false};
};

}  // namespace KxNNet

// Keeps signals away from a thread of the platform's own.
#pragma once

#include <csignal>

namespace KxNCommon {

/// Blocks every signal for the calling thread while it lives. A thread made meanwhile inherits that for good, and so
/// never runs the process's signal handlers nor has its system calls interrupted.
class BlockedSignals {
public:
    BlockedSignals() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &previous);
    }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &previous, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t previous{};
};

}  // namespace KxNCommon

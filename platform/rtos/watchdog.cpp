#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "KxLog.h"
#include "KxRtos.h"
#include "platform/common/blocked_signals.h"
#include "platform/rtos/service_manager.h"

namespace KxNRtosAbstraction {

namespace {

using Clock = std::chrono::steady_clock;

}  // namespace

struct KxCLifeSign::State {
    State(const char* itsName, std::function<void(Answer)> itsAsk) : name(itsName), ask(std::move(itsAsk)) {}

    const char* const name;
    const std::function<void(Answer)> ask;
    std::atomic<Clock::time_point> answered{Clock::now()};
    bool isMissed = false;  // and that was said
};

namespace {

/// Asks all life signs and tells the service manager when they answer.
class Watchdog {
public:
    static Watchdog& getInstance() {
        static Watchdog& watchdog = *new Watchdog;  // its thread runs while the process exits
        return watchdog;
    }

    void add(std::shared_ptr<KxCLifeSign::State> sign) {
        const std::lock_guard lock(mutex);
        signs.push_back(std::move(sign));
    }

    void remove(const std::shared_ptr<KxCLifeSign::State>& sign) {
        const std::lock_guard lock(mutex);
        std::erase(signs, sign);
    }

    void start(std::chrono::microseconds watchdogPeriod) {
        const std::lock_guard lock(mutex);
        if (std::exchange(isStarted, true)) {
            return;
        }
        period = watchdogPeriod;
        for (const auto& sign : signs) {
            sign->answered = Clock::now();
        }
        try {
            const KxNCommon::BlockedSignals blocked;
            std::thread thread([this] { run(); });
            pthread_setname_np(thread.native_handle(), "kx-watchdog");
            thread.detach();
        } catch (const std::system_error& error) {
            KxCRTE_LOG(4, "Korvex Container Service: The thread of the watchdog cannot be started: %s", error.what());
        }
    }

private:
    [[noreturn]] void run() {
        for (;;) {
            if (askAll()) {
                notifyServiceManager("WATCHDOG=1", "lives");
            }
            std::this_thread::sleep_for(period / 3);
        }
    }

    /// Whether all have answered lately.
    bool askAll() {
        const std::lock_guard lock(mutex);
        const auto oldest = Clock::now() - period * 3 / 2;
        bool areAlive = true;
        for (const auto& sign : signs) {
            const bool wasMissed = std::exchange(sign->isMissed, sign->answered.load() < oldest);
            areAlive = areAlive && !sign->isMissed;
            if (sign->isMissed && !wasMissed) {
                KxCRTE_LOG(4, "Korvex Container Service: The %s hangs; the service manager will notice", sign->name);
            }
            sign->ask([sign] { sign->answered = Clock::now(); });
        }
        return areAlive;
    }

    std::mutex mutex;
    std::vector<std::shared_ptr<KxCLifeSign::State>> signs;
    std::chrono::microseconds period{};
    bool isStarted = false;
};

}  // namespace

KxCLifeSign::KxCLifeSign(const char* name, std::function<void(Answer)> ask)
    : state(std::make_shared<State>(name, std::move(ask))) {
    Watchdog::getInstance().add(state);
}

KxCLifeSign::~KxCLifeSign() {
    Watchdog::getInstance().remove(state);
}

void KxCLifeSign::answer() {
    state->answered = Clock::now();
}

void startWatchdog() {
    const char* const period = std::getenv("WATCHDOG_USEC");
    const char* const process = std::getenv("WATCHDOG_PID");
    const std::int64_t microseconds = period != nullptr ? std::strtoll(period, nullptr, 10) : 0;
    if (microseconds > 0 && (process == nullptr || std::atol(process) == ::getpid())) {
        Watchdog::getInstance().start(std::chrono::microseconds(microseconds));
    }
}

}  // namespace KxNRtosAbstraction

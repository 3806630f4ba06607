#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>

#include "KxErrorManager.h"
#include "KxRtos.h"
#include "platform/common/blocked_signals.h"
#include "platform/common/unique_fd.h"

namespace KxNRtosAbstraction {

namespace {

// What signal context touches. A signal that arrives again before it was delivered is delivered once.
std::array<std::atomic<bool>, NSIG> arrived{};
static_assert(std::atomic<bool>::is_always_lock_free);
std::atomic<int> arrivalEvent{-1};

void noteArrival(int signalNumber) {
    const int interruptedErrno = errno;
    arrived[static_cast<std::size_t>(signalNumber)].store(true);
    const std::uint64_t one = 1;
    static_cast<void>(!::write(arrivalEvent.load(), &one, sizeof(one)));
    errno = interruptedErrno;
}

// Calls the registered handlers, one at a time, on a thread of its own.
class Delivery {
public:
    static Delivery& getInstance() {
        static Delivery& delivery = *new Delivery;
        return delivery;
    }

    // Makes the event and the thread where they are missing. False, with an error in `pool`, when that fails.
    bool start(KxCErrorListPool& pool);

    void setHandler(int signalNumber, SignalHandler handler, KxCErrorListPool& pool);

    // When it returns the handler is not running, unless this is called by it.
    void clearHandler(int signalNumber);

private:
    struct Registration {
        SignalHandler handler = nullptr;
        KxCErrorListPool* pool = nullptr;
    };

    [[noreturn]] void deliver();
    void callHandler(int signalNumber);

    KxNCommon::UniqueFd event;
    std::mutex mutex;
    std::condition_variable handlerReturned;
    std::array<Registration, NSIG> registrations;
    int runningSignal = 0;
    bool isStarted = false;
    std::thread::id threadId;
};

bool Delivery::start(KxCErrorListPool& pool) {
    const std::lock_guard lock(mutex);
    if (isStarted) {
        return true;
    }
    event = KxNCommon::UniqueFd(::eventfd(0, EFD_CLOEXEC));
    if (!event) {
        pool.addError(0, std::string("The event for signals cannot be made: ") + std::strerror(errno));
        return false;
    }
    arrivalEvent.store(event.get());
    try {
        const KxNCommon::BlockedSignals blocked;
        std::thread thread([this] { deliver(); });
        threadId = thread.get_id();
        thread.detach();
    } catch (const std::system_error& error) {
        pool.addError(0, std::string("The thread for signals cannot be started: ") + error.what());
        return false;
    }
    isStarted = true;
    return true;
}

void Delivery::setHandler(int signalNumber, SignalHandler handler, KxCErrorListPool& pool) {
    const std::lock_guard lock(mutex);
    registrations[static_cast<std::size_t>(signalNumber)] = {handler, &pool};
}

void Delivery::clearHandler(int signalNumber) {
    std::unique_lock lock(mutex);
    registrations[static_cast<std::size_t>(signalNumber)] = {};
    arrived[static_cast<std::size_t>(signalNumber)].store(false);
    if (std::this_thread::get_id() != threadId) {
        handlerReturned.wait(lock, [&] { return runningSignal != signalNumber; });
    }
}

void Delivery::deliver() {
    for (;;) {
        std::uint64_t count;
        static_cast<void>(!::read(arrivalEvent.load(), &count, sizeof(count)));
        for (int signalNumber = 1; signalNumber < NSIG; ++signalNumber) {
            if (arrived[static_cast<std::size_t>(signalNumber)].exchange(false)) {
                callHandler(signalNumber);
            }
        }
    }
}

void Delivery::callHandler(int signalNumber) {
    std::unique_lock lock(mutex);
    const Registration registration = registrations[static_cast<std::size_t>(signalNumber)];
    if (registration.handler == nullptr) {
        return;
    }
    runningSignal = signalNumber;
    lock.unlock();
    registration.handler(*registration.pool, signalNumber);
    lock.lock();
    runningSignal = 0;
    handlerReturned.notify_all();
}

bool setAction(KxCErrorListPool& pool, int signalNumber, void (*action)(int), const char* what) {
    struct sigaction wanted {};
    wanted.sa_handler = action;
    wanted.sa_flags = SA_RESTART;
    sigemptyset(&wanted.sa_mask);
    if (::sigaction(signalNumber, &wanted, nullptr) == 0) {
        return true;
    }
    pool.addError(
        0, std::string(what) + " for signal " + std::to_string(signalNumber) + " failed: " + std::strerror(errno));
    return false;
}

bool isSignal(KxCErrorListPool& pool, int signalNumber, const char* what) {
    if (signalNumber > 0 && signalNumber < NSIG) {
        return true;
    }
    pool.addError(0, std::string(what) + " failed: there is no signal " + std::to_string(signalNumber));
    return false;
}

}  // namespace

void installSignalHandler(KxCErrorListPool& pool, int signalNumber, SignalHandler handler) {
    constexpr const char* WHAT = "Installing the handler";
    Delivery& delivery = Delivery::getInstance();
    if (!isSignal(pool, signalNumber, WHAT) || !delivery.start(pool)) {
        return;
    }
    delivery.setHandler(signalNumber, handler, pool);
    if (!setAction(pool, signalNumber, noteArrival, WHAT)) {
        delivery.clearHandler(signalNumber);
    }
}

void removeSignalHandler(KxCErrorListPool& pool, int signalNumber) {
    constexpr const char* WHAT = "Restoring the default action";
    if (isSignal(pool, signalNumber, WHAT)) {
        setAction(pool, signalNumber, SIG_DFL, WHAT);
        Delivery::getInstance().clearHandler(signalNumber);
    }
}

}  // namespace KxNRtosAbstraction

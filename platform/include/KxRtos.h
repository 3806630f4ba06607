// RTOS abstraction: single instance, signals, the service-initialised report, mutexes.
#pragma once

#include <functional>
#include <memory>

class KxCErrorListPool;

namespace KxNRtosAbstraction {

/// True when this process is the only instance. The claim is a kernel lock (flock(2) on a file in /run) that
/// ends with the process, however it ends, and is not inherited by children.
/// `waitMilliseconds` is how long to wait for another instance to go, 0 for not at all. When the lock file
/// cannot be used at all, logs at level 4 and returns false: two services on one target are worse than none.
bool isSingletonProcess(int waitMilliseconds);

using SignalHandler = void (*)(KxCErrorListPool& pool, int signalNumber);

/// Has `handler` called with `pool` whenever `signalNumber` arrives. The call comes from a thread of the platform,
/// not from signal context, so it may log and take locks; one signal at a time. Failures go to `pool`.
void installSignalHandler(KxCErrorListPool& pool, int signalNumber, SignalHandler handler);

/// Restores the signal's default action. When it returns, the handler is not running and will not be called again,
/// unless it is the handler itself that calls.
void removeSignalHandler(KxCErrorListPool& pool, int signalNumber);

/// Has `observer` called whenever one of those signals with a handler that ask a process to end (SIGTERM, SIGINT)
/// arrives: on the thread of the handler, and before it. For a library of the platform that holds up the end and whom
/// nobody tells of it. The last one given counts; null for none.
void observeTermination(void (*observer)());

/// Reports the end of start-up to the service manager that started the process (sd_notify(3)), if there is one. Where
/// that watches the process (sd_watchdog_enabled(3)), it is told from here on that the process lives, as long as all
/// life signs are given.
void setServiceInitialized();

/// An activity without which the service is of no use. Where the service manager watches the process it is asked
/// several times in each watchdog period whether it goes on; when it has not answered for one and a half of them, the
/// manager hears no more of the process and starts it again.
class KxCLifeSign {
public:
    using Answer = std::function<void()>;

    /// `name` stands in the level-4 line about a missing answer, and lives as long as the object. `ask` is called by a
    /// thread of the platform; it returns at once and has the activity call `answer`, which may outlive the object.
    KxCLifeSign(const char* name, std::function<void(Answer answer)> ask);
    /// When it returns, `ask` is not running and is not called again.
    ~KxCLifeSign();
    KxCLifeSign(const KxCLifeSign&) = delete;
    KxCLifeSign& operator=(const KxCLifeSign&) = delete;

    /// The activity goes on; also without being asked. Any thread; takes no lock.
    void answer();

    struct State;  ///< the library's own

private:
    const std::shared_ptr<State> state;
};

/// A mutex. Not recursive.
class KxCMutex {
public:
    /// `name` is shown by debugging tools of the platform; null for none.
    explicit KxCMutex(const char* name);
    ~KxCMutex();
    KxCMutex(const KxCMutex&) = delete;
    KxCMutex& operator=(const KxCMutex&) = delete;

    /// Waits up to `timeoutMilliseconds`, -1 for ever. True when the mutex was taken.
    bool lock(int timeoutMilliseconds);
    void unlock();

private:
    struct State;
    std::unique_ptr<State> state;
};

/// Holds a mutex for a scope; waits for it for ever.
class KxCMutexLock {
public:
    explicit KxCMutexLock(KxCMutex& held) : mutex(&held) { held.lock(-1); }
    ~KxCMutexLock() { unlock(); }
    KxCMutexLock(const KxCMutexLock&) = delete;
    KxCMutexLock& operator=(const KxCMutexLock&) = delete;

    /// Lets go before the end of the scope. A second call does nothing.
    void unlock() {
        if (mutex != nullptr) {
            mutex->unlock();
            mutex = nullptr;
        }
    }

private:
    KxCMutex* mutex;
};

}  // namespace KxNRtosAbstraction

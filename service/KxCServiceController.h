// The container runtime's life and the end of the process, as the entry routine sees them.
#pragma once

class KxCErrorListPool;

namespace KxNContainer {
class KxCContainer;
}

/// All of it is called on the main thread, except `requestShutdown` and `onSignal`.
class KxCServiceController {
public:
    KxCServiceController() = default;
    KxCServiceController(const KxCServiceController&) = delete;
    KxCServiceController& operator=(const KxCServiceController&) = delete;

    /// Creates the shutdown event and has SIGTERM and SIGINT set it. Comes before everything else; `pool` must live
    /// until `remove`.
    void install(KxCErrorListPool& pool);

    /// Undoes `install`.
    void remove() noexcept;

    bool init();
    bool start();
    bool stop();
    bool isEnabled();
    bool disable();

    /// Blocks until the shutdown event is set, or until it cannot be waited for, which a level-4 line reports.
    void waitForShutdown();

    /// Sets the shutdown event, if there is one. Any thread.
    static void requestShutdown();

    /// What SIGTERM and SIGINT do. Called on a thread of the platform.
    static void onSignal(KxCErrorListPool& pool, int signalNumber);

private:
    KxCErrorListPool* pool = nullptr;
    KxNContainer::KxCContainer* container = nullptr;
};

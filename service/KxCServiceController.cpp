#include "service/KxCServiceController.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>

#include "KxContainer.h"
#include "KxLog.h"
#include "KxRtos.h"

namespace {

/// Written before the signal handlers are installed and set back to -1 only after they are removed, so that they read
/// it without a lock.
int shutdownEvent = -1;

}  // namespace

void KxCServiceController::install(KxCErrorListPool& errorPool) {
    pool = &errorPool;
    container = KxNContainer::KxCContainer::GetInstance();
    shutdownEvent = eventfd(0, EFD_CLOEXEC);
    if (shutdownEvent < 0) {
        KxCRTE_LOG_Impl(4, "Korvex Container Service: eventfd failed: %d", errno);
        shutdownEvent = -1;
    }
    KxNRtosAbstraction::installSignalHandler(*pool, SIGTERM, &onSignal);
    KxNRtosAbstraction::installSignalHandler(*pool, SIGINT, &onSignal);
}

void KxCServiceController::remove() noexcept {
    KxNRtosAbstraction::removeSignalHandler(*pool, SIGTERM);
    KxNRtosAbstraction::removeSignalHandler(*pool, SIGINT);
    if (shutdownEvent >= 0) {
        close(shutdownEvent);
        shutdownEvent = -1;
    }
}

bool KxCServiceController::init() {
    return container->init();
}

bool KxCServiceController::start() {
    return container->Start();
}

bool KxCServiceController::stop() {
    return container->Stop();
}

bool KxCServiceController::isEnabled() {
    return container->IsContainerServiceEnabled(false);
}

bool KxCServiceController::disable() {
    return container->DisableContainerService();
}

void KxCServiceController::waitForShutdown() {
    if (shutdownEvent < 0) {
        KxCRTE_LOG_Impl(4, "Korvex Container Service: invalid shutdown event fd");
        return;
    }
    pollfd event{shutdownEvent, POLLIN, 0};
    do {
        if (poll(&event, 1, -1) < 0) {
            if (errno == EINTR) {
                event.revents = 0;
                continue;
            }
            KxCRTE_LOG_Impl(4, "Korvex Container Service: poll failed: %d", errno);
            return;
        }
    } while ((event.revents & POLLIN) == 0);

    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t ignored = read(shutdownEvent, &count, sizeof(count));
    KxCRTE_LOG_Impl(2, "Korvex Container Service: Shutdown requested (eventfd).\n");
}

void KxCServiceController::requestShutdown() {
    if (shutdownEvent >= 0) {
        const std::uint64_t one = 1;
        [[maybe_unused]] const ssize_t ignored = write(shutdownEvent, &one, sizeof(one));
    }
}

void KxCServiceController::onSignal(KxCErrorListPool&, int signalNumber) {
    if (signalNumber != SIGTERM && signalNumber != SIGINT) {
        KxCRTE_LOG_Impl(3, "Korvex Container Service: Cannot handle signal %d.", signalNumber);
        return;
    }
    KxCRTE_LOG_Impl(2, "Korvex Container Service: Shutdown requested (signal %d).", signalNumber);
    requestShutdown();
}

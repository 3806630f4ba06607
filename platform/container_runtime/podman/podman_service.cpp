#include "platform/container_runtime/podman/podman_service.h"

#include <poll.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "KxLog.h"
#include "platform/common/blocked_signals.h"

namespace KxNContainer {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::chrono::seconds START_TIME{30};
constexpr milliseconds START_POLL{20};
constexpr milliseconds FIRST_PAUSE{100};
constexpr milliseconds LONGEST_PAUSE{30'000};
/// A Podman that lived this long did not die of its start: the pauses begin anew.
constexpr std::chrono::seconds STEADY_TIME{60};
constexpr std::chrono::seconds PING_PERIOD{10};
/// How often Podman is asked where nothing else tells that it has ended.
constexpr std::chrono::seconds SHORT_PING_PERIOD{2};
/// How many answers in turn may be missing: one that is known to run may be busy.
constexpr int MAX_FAILURES_RUNNING = 6;
constexpr int MAX_FAILURES_UNKNOWN = 2;
constexpr milliseconds END_PATIENCE{5000};

}  // namespace

bool PodmanService::start(PodmanCommand podmanCommand, std::string& reason) {
    stop();
    if (!log.open(reason)) {
        return false;
    }
    command = std::move(podmanCommand);
    std::promise<std::string> outcome;
    std::future<std::string> failure = outcome.get_future();
    try {
        stopping = std::make_unique<KxNNet::Cancellation>();
        const KxNCommon::BlockedSignals blocked;
        thread = std::thread(&PodmanService::run, this, std::move(outcome));
    } catch (const std::exception& error) {
        reason = std::string("Cannot watch Podman: ") + error.what();
        return false;
    }
    reason = failure.get();
    if (reason.empty()) {
        return true;
    }
    stop();
    return false;
}

void PodmanService::stop() {
    if (!thread.joinable()) {
        return;
    }
    stopping->cancel();
    thread.join();
    const bool isOurs = process && process.isOurs();
    process.end(END_PATIENCE, [this] { log.drain(); });
    log.drain();
    if (isOurs) {
        KxCRTE_LOG(2, "Korvex Container Service: Podman was stopped; containers keep running");
    }
}

/// Body of the supervising thread. `outcome` gets why the first start failed, or an empty text.
void PodmanService::run(std::promise<std::string> outcome) {
    std::string reason;
    const bool isUp = bringUp(reason);
    outcome.set_value(isUp ? std::string() : reason);
    milliseconds pause = FIRST_PAUSE;
    while (isUp) {
        const auto since = Clock::now();
        if (watch() == Event::Stopped) {
            return;
        }
        if (Clock::now() - since > STEADY_TIME) {
            pause = FIRST_PAUSE;
        }
        for (bool isBack = false; !isBack; pause = std::min(2 * pause, LONGEST_PAUSE)) {
            if (!pauseFor(pause)) {
                return;
            }
            isBack = bringUp(reason);
            if (!isBack && !stopping->isCancelled()) {
                KxCRTE_LOG(4, "Korvex Container Service: %s", reason.c_str());
            }
        }
    }
}

bool PodmanService::bringUp(std::string& reason) {
    log.drain();  // a Podman that was left behind may be waiting for it
    return useRunning() || launch(reason);
}

bool PodmanService::useRunning() {
    pid_t pid = 0;
    if (!client.ping(*stopping, nullptr, &pid)) {
        return false;
    }
    // The first process of the system listens for others, and does not end with them.
    process = pid > 1 ? PodmanProcess::find(pid) : PodmanProcess();
    KxCRTE_LOG(2, "Korvex Container Service: Using the Podman that answers at %s (process %d)",
               client.getAddress().text().c_str(), static_cast<int>(pid));
    return true;
}

bool PodmanService::launch(std::string& reason) {
    const KxNCommon::UniqueFd output = log.openForPodman();
    process = PodmanProcess::start(command, output.get(), reason);
    if (!process) {
        return false;
    }
    if (!isAnswering(reason)) {
        process = PodmanProcess();
        return false;
    }
    KxCRTE_LOG(2, "Korvex Container Service: Podman was started and answers at %s", client.getAddress().text().c_str());
    return true;
}

/// Waits until the Podman that was just started answers.
bool PodmanService::isAnswering(std::string& reason) {
    const auto deadline = Clock::now() + START_TIME;
    while (!client.ping(*stopping, &reason)) {
        pollfd events[] = {{stopping->descriptor(), POLLIN, 0}, {process.descriptor(), POLLIN, 0}};
        ::poll(events, 2, static_cast<int>(START_POLL.count()));
        log.drain();
        if (events[0].revents != 0) {
            reason = "The container service is stopping";
            return false;
        }
        if (events[1].revents != 0) {
            reason = "Podman " + process.collect() + " while it was started: " + log.lastLine();
            return false;
        }
        if (Clock::now() >= deadline) {
            reason.insert(0, "Podman was started but does not answer: ");
            return false;
        }
    }
    return true;
}

PodmanService::Event PodmanService::watch() {
    int failures = 0;
    for (;;) {
        const auto nextPing = Clock::now() + (process && failures == 0 ? PING_PERIOD : SHORT_PING_PERIOD);
        // A negative descriptor is not waited for.
        pollfd events[] = {{stopping->descriptor(), POLLIN, 0},
                           {process ? process.descriptor() : -1, POLLIN, 0},
                           {log.descriptor(), POLLIN, 0}};
        while (events[0].revents == 0 && events[1].revents == 0 && Clock::now() < nextPing) {
            const auto left = std::chrono::ceil<milliseconds>(nextPing - Clock::now());
            ::poll(events, 3, static_cast<int>(std::max<long long>(left.count(), 0)));
            log.drain();
        }
        if (events[0].revents != 0) {
            return Event::Stopped;
        }
        if (events[1].revents != 0) {
            KxCRTE_LOG(3, "Korvex Container Service: Podman %s; it is started again", process.collect().c_str());
            return Event::Died;
        }
        client.closeStaleConnections();
        if (!isAlive(failures)) {
            return Event::Died;
        }
    }
}

/// Asks Podman whether it answers. False when it has not for so long that it counts as gone. One that was found and
/// still runs is nobody's to replace.
bool PodmanService::isAlive(int& failures) {
    std::string reason;
    if (client.ping(*stopping, &reason) || stopping->isCancelled()) {
        failures = 0;
        return true;
    }
    ++failures;
    if (failures == 1) {
        KxCRTE_LOG(3, "Korvex Container Service: Podman does not answer: %s", reason.c_str());
    }
    const bool isFound = process && !process.isOurs();
    if (isFound || failures < (process ? MAX_FAILURES_RUNNING : MAX_FAILURES_UNKNOWN)) {
        return true;
    }
    KxCRTE_LOG(4, "Korvex Container Service: Podman did not answer %d times; it is started again", failures);
    process.end(END_PATIENCE, [this] { log.drain(); });
    return false;
}

/// False when the service is stopping.
bool PodmanService::pauseFor(milliseconds pause) {
    pollfd stopped{stopping->descriptor(), POLLIN, 0};
    return ::poll(&stopped, 1, static_cast<int>(pause.count())) <= 0;
}

}  // namespace KxNContainer

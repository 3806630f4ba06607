#include "platform/container_runtime/podman/podman_service.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <exception>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "KxLog.h"
#include "platform/common/blocked_signals.h"

namespace KxNContainer {

namespace {

using Clock = std::chrono::steady_clock;
using KxNProcess::ServiceProcess;
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

void PodmanService::start(KxNProcess::Program podmanCommand, std::int32_t cpus) {
    stop();
    log.open();
    command = std::move(podmanCommand);
    cpuCount = cpus;
    begin();
}

void PodmanService::watchExternal() {
    stop();
    command.reset();
    begin();
}

void PodmanService::begin() {
    std::promise<void> started;
    std::future<void> outcome = started.get_future();
    try {
        stopping = std::make_unique<KxNNet::Cancellation>();
        asked = KxNCommon::UniqueFd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        lifeSign.emplace("Podman watch", [this](const auto&) { ::eventfd_write(asked.get(), 1); });
        const KxNCommon::BlockedSignals blocked;
        thread = std::thread(&PodmanService::run, this, std::move(started));
        pthread_setname_np(thread.native_handle(), "kx-podman-watch");
    } catch (const std::system_error& error) {
        throw std::runtime_error(std::string("Cannot watch Podman: ") + error.what());
    }
    try {
        outcome.get();
    } catch (...) {
        stop();
        throw;
    }
}

void PodmanService::stop() {
    if (!thread.joinable()) {
        return;
    }
    stopping->cancel();
    thread.join();
    lifeSign.reset();
    setAnswering(false);
    const bool isOurs = process && process.isOurs();
    process.end(END_PATIENCE, [this] { log.drain(); });
    log.drain();
    if (isOurs) {
        KxCRTE_LOG(2, "Korvex Container Service: Podman was stopped; containers keep running");
    }
}

/// Body of the supervising thread. `started` gets the outcome of the first start.
void PodmanService::run(std::promise<void> started) {
    try {
        bringUp();
    } catch (...) {
        started.set_exception(std::current_exception());
        return;
    }
    started.set_value();
    milliseconds pause = FIRST_PAUSE;
    for (auto since = Clock::now(); watch() == Event::Died; since = Clock::now()) {
        if (Clock::now() - since > STEADY_TIME) {
            pause = FIRST_PAUSE;
        }
        for (bool isBack = false; !isBack; pause = std::min(2 * pause, LONGEST_PAUSE)) {
            if (!pauseFor(pause)) {
                return;
            }
            try {
                bringUp();
                isBack = true;
                ++restartCount;
            } catch (const std::exception& error) {
                if (!stopping->isCancelled()) {
                    KxCRTE_LOG(4, "Korvex Container Service: %s", error.what());
                }
            }
        }
    }
}

void PodmanService::bringUp() {
    log.drain();  // a Podman that was left behind may be waiting for it
    setAnswering(false);
    if (!useRunning()) {
        launch();
    }
    setAnswering(true);
}

bool PodmanService::useRunning() {
    const PodmanPing ping = client.ping(*stopping);
    if (!ping) {
        return false;
    }
    // The first process of the system listens for others, and does not end with them.
    process = ping.server > 1 ? ServiceProcess::find(ping.server) : ServiceProcess();
    KxCRTE_LOG(2, "Korvex Container Service: Using the Podman that answers at %s (process %d)",
               client.getAddress().text().c_str(), static_cast<int>(ping.server));
    return true;
}

void PodmanService::launch() {
    process = command ? ServiceProcess::start(*command, cpuCount, log.openForPodman().get()) : ServiceProcess();
    try {
        awaitAnswer();
    } catch (...) {
        process = ServiceProcess();
        throw;
    }
    if (!command) {
        useRunning();
        return;
    }
    KxCRTE_LOG(2, "Korvex Container Service: Podman was started and answers at %s", client.getAddress().text().c_str());
}

/// Waits until the Podman that was just started, here or elsewhere, answers.
void PodmanService::awaitAnswer() {
    const auto deadline = Clock::now() + START_TIME;
    for (PodmanPing ping = client.ping(*stopping); !ping; ping = client.ping(*stopping)) {
        pollfd events[] = {{stopping->descriptor(), POLLIN, 0}, {process ? process.descriptor() : -1, POLLIN, 0}};
        ::poll(events, 2, static_cast<int>(START_POLL.count()));
        log.drain();
        answerWatchdog();
        if (events[0].revents != 0) {
            throw std::runtime_error("The container service is stopping");
        }
        if (events[1].revents != 0) {
            throw std::runtime_error("Podman " + process.collect() + " while it was started: " + log.lastLine());
        }
        if (Clock::now() >= deadline) {
            throw std::runtime_error("Podman was started but does not answer: " + ping.reason);
        }
    }
}

PodmanService::Event PodmanService::watch() {
    int failures = 0;
    for (;;) {
        const auto nextPing = Clock::now() + (process && failures == 0 ? PING_PERIOD : SHORT_PING_PERIOD);
        // A negative descriptor is not waited for.
        pollfd events[] = {{stopping->descriptor(), POLLIN, 0},
                           {process ? process.descriptor() : -1, POLLIN, 0},
                           {log.descriptor(), POLLIN, 0},
                           {asked.get(), POLLIN, 0}};
        while (events[0].revents == 0 && events[1].revents == 0 && Clock::now() < nextPing) {
            const auto left = std::chrono::ceil<milliseconds>(nextPing - Clock::now());
            ::poll(events, std::size(events), static_cast<int>(std::max<long long>(left.count(), 0)));
            log.drain();
            answerWatchdog();
        }
        if (events[0].revents != 0) {
            return Event::Stopped;
        }
        if (events[1].revents != 0) {
            setAnswering(false);
            KxCRTE_LOG(3, "Korvex Container Service: Podman %s; it is started again", process.collect().c_str());
            return Event::Died;
        }
        client.closeStaleConnections();
        if (!isAlive(failures)) {
            return Event::Died;
        }
    }
}

/// Asks Podman whether it answers. False when it has not for so long that it counts as gone. One that was found where
/// this process starts its own, and still runs, is nobody's to replace.
bool PodmanService::isAlive(int& failures) {
    const PodmanPing ping = client.ping(*stopping);
    if (ping || stopping->isCancelled()) {
        failures = 0;
        setAnswering(true);
        return true;
    }
    setAnswering(false);
    ++failures;
    if (failures == 1) {
        KxCRTE_LOG(3, "Korvex Container Service: Podman does not answer: %s", ping.reason.c_str());
    }
    const bool isNobodys = command && process && !process.isOurs();
    if (isNobodys || failures < (process ? MAX_FAILURES_RUNNING : MAX_FAILURES_UNKNOWN)) {
        return true;
    }
    KxCRTE_LOG(4, "Korvex Container Service: Podman did not answer %d times; it is started again", failures);
    if (!command) {
        process.kill();
    }
    process.end(END_PATIENCE, [this] { log.drain(); });
    return false;
}

void PodmanService::setAnswering(bool answers) {
    if (answering.exchange(answers) != answers) {
        stateSince = KxCVorrelClock::utcMilliseconds();
    }
}

/// False when the service is stopping.
bool PodmanService::pauseFor(milliseconds pause) {
    const auto end = Clock::now() + pause;
    for (auto left = pause; left.count() > 0; left = std::chrono::ceil<milliseconds>(end - Clock::now())) {
        pollfd events[] = {{stopping->descriptor(), POLLIN, 0}, {asked.get(), POLLIN, 0}};
        ::poll(events, std::size(events), static_cast<int>(left.count()));
        if (events[0].revents != 0) {
            return false;
        }
        answerWatchdog();
    }
    return true;
}

/// Wherever the thread waits, it comes by here when it is asked, or within a few seconds.
void PodmanService::answerWatchdog() {
    eventfd_t count;
    ::eventfd_read(asked.get(), &count);
    lifeSign->answer();
}

}  // namespace KxNContainer

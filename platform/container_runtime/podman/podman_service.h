// Keeps a Podman service running.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "KxClock.h"
#include "KxRtos.h"
#include "platform/common/unique_fd.h"
#include "platform/container_runtime/podman/podman_client.h"
#include "platform/container_runtime/podman/podman_log.h"
#include "platform/net/cancellation.h"
#include "platform/process/service_process.h"

namespace KxNContainer {

/// Uses the Podman that answers, or starts one; watches it and, when it is gone, does the same again, after a pause
/// that grows with each failure. One thread at a time.
class PodmanService {
public:
    /// `logPath` is where the FIFO for Podman's output is kept.
    PodmanService(PodmanClient& podman, std::string logPath) : client(podman), log(std::move(logPath)) {}
    ~PodmanService() { stop(); }

    /// Returns once Podman answers, which may then use `cpus` CPUs; 0 or less for all. Throws std::runtime_error, and
    /// then nothing runs.
    void start(KxNProcess::Program podmanCommand, std::int32_t cpus);

    /// The same for a Podman that somebody else starts, and starts again when it has ended: waits for it, and kills one
    /// that no longer answers.
    void watchExternal();

    /// Ends the watch, then Podman if it was started here. Harmless when nothing runs.
    void stop();

    /// Whether Podman answered when it was last asked. Any thread.
    bool isAnswering() const { return answering; }
    /// Since when that is so, in milliseconds since the Unix epoch. Any thread.
    std::int64_t answersSince() const { return stateSince; }
    /// How often it was brought up again after it had gone. Any thread.
    std::uint64_t restarts() const { return restartCount; }

private:
    enum class Event { Stopped, Died };

    void begin();
    void run(std::promise<void> started);
    void bringUp();
    bool useRunning();
    void launch();
    void awaitAnswer();
    Event watch();
    bool isAlive(int& failures);
    void setAnswering(bool answers);
    bool pauseFor(std::chrono::milliseconds pause);
    void answerWatchdog();

    PodmanClient& client;
    std::atomic<bool> answering{false};
    std::atomic<std::int64_t> stateSince{KxCVorrelClock::utcMilliseconds()};
    std::atomic<std::uint64_t> restartCount{0};
    std::optional<KxNProcess::Program> command;  ///< none when somebody else starts Podman
    std::int32_t cpuCount = 0;
    PodmanLog log;
    KxNProcess::ServiceProcess process;  ///< holds none when Podman was found by TCP, where nobody tells its process
    std::unique_ptr<KxNNet::Cancellation> stopping;
    KxNCommon::UniqueFd asked;  ///< an event: the watchdog wants to know whether the thread goes on
    std::optional<KxNRtosAbstraction::KxCLifeSign> lifeSign;
    std::thread thread;
};

}  // namespace KxNContainer

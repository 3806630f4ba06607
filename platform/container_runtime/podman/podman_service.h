// Keeps a Podman service running.
#pragma once

#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "platform/container_runtime/podman/podman_client.h"
#include "platform/container_runtime/podman/podman_log.h"
#include "platform/net/cancellation.h"
#include "platform/process/podman_process.h"

namespace KxNContainer {

/// Uses the Podman that answers, or starts one; watches it and, when it is gone, does the same again, after a pause
/// that grows with each failure. One thread at a time.
class PodmanService {
public:
    /// `logPath` is where the FIFO for Podman's output is kept.
    PodmanService(PodmanClient& podman, std::string logPath) : client(podman), log(std::move(logPath)) {}
    ~PodmanService() { stop(); }

    /// Returns once Podman answers. On false nothing runs, and `reason` says why.
    bool start(PodmanCommand podmanCommand, std::string& reason);

    /// Ends the watch, then Podman if it was started here. Harmless when nothing runs.
    void stop();

private:
    enum class Event { Stopped, Died };

    void run(std::promise<std::string> outcome);
    bool bringUp(std::string& reason);
    bool useRunning();
    bool launch(std::string& reason);
    bool isAnswering(std::string& reason);
    Event watch();
    bool isAlive(int& failures);
    bool pauseFor(std::chrono::milliseconds pause);

    PodmanClient& client;
    PodmanCommand command;
    PodmanLog log;
    PodmanProcess process;  ///< holds none when Podman was found by TCP, where nobody tells its process
    std::unique_ptr<KxNNet::Cancellation> stopping;
    std::thread thread;
};

}  // namespace KxNContainer

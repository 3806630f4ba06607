// The log of one container: where it is, who writes it, and whether it goes on.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "platform/container_runtime/logs/container_log.h"
#include "platform/container_runtime/logs/entry/log_reader.h"
#include "platform/container_runtime/logs/watch/followed_log.h"
#include "platform/container_runtime/podman/podman_client.h"

namespace KxNContainer {

class LogWatch;

/// What logs are read with.
struct LogTools {
    PodmanClient& podman;
    LogWatch& watch;
};

/// Podman's answer about a container, and what it says, if it is one.
struct Inspection {
    PodmanReply reply;
    std::optional<ContainerLog> container;
};

/// How long Podman has to answer about a container whose log is being followed.
inline constexpr std::chrono::seconds INSPECTION_TIME{5};

/// Throws PodmanFailure when Podman does not answer within `longest`.
Inspection inspectContainer(PodmanClient& podman, const std::string& path, const KxNNet::Cancellation& ending,
                            std::chrono::seconds longest);

/// The same, but asks again when Podman has died or cannot be reached: within that time it may be back.
Inspection inspectPatiently(PodmanClient& podman, const std::string& path, const KxNNet::Cancellation& ending,
                            std::chrono::seconds longest);

/// Reads a log that is kept on this machine. One thread.
class LogSource {
public:
    enum class Until { endOfRun, cancelled };

    /// Throws std::system_error when the log cannot be opened or is of a kind that is not read here,
    /// std::invalid_argument for a cursor that is none.
    LogSource(const LogTools& usedTools, const std::string& name, const ContainerLog& container, const LogRange& range,
              const std::string& cursor, Until until);
    ~LogSource();
    LogSource(const LogSource&) = delete;
    LogSource& operator=(const LogSource&) = delete;

    /// As LogReader::next. A gap leaves a line in our log.
    LogStep next();
    std::string cursor() { return reader->cursor(); }

    /// As LogReader::wait. Where the writer of the log cannot be seen from here, Podman is asked now and then whether
    /// the container still runs.
    bool wait(const KxNNet::Cancellation& cancellation, std::chrono::milliseconds longest);

    /// The run of the container that is under way, or the last one.
    FollowedLog::Run run() const;
    std::uint64_t activity() const;
    /// Takes what Podman says of the container by now.
    void update(const ContainerLog& container);

private:
    const LogTools tools;
    const std::string containerName;
    const std::string containerId;
    std::shared_ptr<FollowedLog> log;  ///< while it is followed
    std::unique_ptr<LogReader> reader;
};

}  // namespace KxNContainer

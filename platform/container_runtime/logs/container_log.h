// What Podman says of a container and its log.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/container_runtime/logs/entry/log_entry.h"

namespace KxNContainer {

struct ContainerLog {
    enum class Driver { file, journal, other };

    std::string id;  ///< the full one
    Driver driver = Driver::other;
    std::string driverName;
    std::string path;  ///< of the file
    bool hasTerminal = false;
    bool isRunning = false;
    bool hasStarted = true;  ///< at least once
    pid_t process = 0;       ///< its first one while it runs
    std::int32_t exitCode = 0;

    /// None when `inspection` is not what Podman answers.
    static std::optional<ContainerLog> parse(const std::string& inspection);
};

/// What the query of a request for a log asks for. None when it is not understood, or does not ask to follow.
std::optional<LogRange> parseLogQuery(std::string_view query);

}  // namespace KxNContainer

// What the kernel counts for a container, read from its control group (cgroups(7)) and its network namespace.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace KxNConsole {

/// None where the container has no group, network or limit of its own.
struct Counters {
    std::optional<std::uint64_t> cpuNanoseconds;
    std::optional<std::uint64_t> memoryBytes;  ///< without what is only cached and not in use
    std::optional<std::uint64_t> memoryLimitBytes;
    std::optional<std::uint64_t> processes;  ///< and threads
    std::optional<std::uint64_t> readBytes, writtenBytes;
    std::optional<std::uint64_t> receivedBytes, sentBytes;
};

/// The directory of the group in which `membership`, the text of a /proc/PID/cgroup, puts a process of the container
/// `id`: of the unified hierarchy or, where `controller` is not mounted there, of that controller's own. `root` is
/// where the hierarchies are mounted. Empty where the process is in no group that is named after the container.
std::string findGroup(std::string_view membership, std::string_view controller, std::string_view id,
                      const std::string& root);

/// The counters of the container `id`, whose first process the kernel tells of in the directory `process`, /proc/PID;
/// none when that has ended.
std::optional<Counters> readCounters(const std::string& process, std::string_view id,
                                     const std::string& root = "/sys/fs/cgroup");

}  // namespace KxNConsole

// What the kernel knows of the process, as counters over time.
#pragma once

#include <sys/resource.h>

#include <chrono>
#include <vector>

#include "KxJson.h"
#include "platform/common/unique_fd.h"

namespace KxNProfiler {

/// One group of values that a trace viewer draws as one track.
struct Counter {
    const char* source;  ///< "kernel" or "memory"
    const char* name;
    KxNJson::json values;  ///< numbers by name
};

/// Samples the process. One thread at a time.
class ProcessCounters {
public:
    ProcessCounters();

    /// Rates are those since the last sample, or since construction.
    std::vector<Counter> sample();

private:
    Counter sampleMemory() const;

    std::chrono::steady_clock::time_point lastTime;
    rusage lastUsage{};
    KxNCommon::UniqueFd memoryFile;  // proc_pid_statm(5)
};

}  // namespace KxNProfiler

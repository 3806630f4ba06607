#include "platform/profiler/process_counters.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>

namespace KxNProfiler {

namespace {

double seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1'000'000;
}

}  // namespace

ProcessCounters::ProcessCounters()
    : lastTime(std::chrono::steady_clock::now()), memoryFile(::open("/proc/self/statm", O_RDONLY | O_CLOEXEC)) {
    ::getrusage(RUSAGE_SELF, &lastUsage);
}

std::vector<Counter> ProcessCounters::sample() {
    const auto now = std::chrono::steady_clock::now();
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    const double elapsed = std::max(std::chrono::duration<double>(now - lastTime).count(), 0.001);
    const auto percent = [&](const timeval& from, const timeval& to) {
        return (seconds(to) - seconds(from)) / elapsed * 100;
    };
    const auto perSecond = [&](long from, long to) { return static_cast<double>(to - from) / elapsed; };
    std::vector<Counter> counters = {
        {"kernel",
         "CPU, percent of one",
         {{"user", percent(lastUsage.ru_utime, usage.ru_utime)},
          {"system", percent(lastUsage.ru_stime, usage.ru_stime)}}},
        {"kernel",
         "Context switches per second",
         {{"voluntary", perSecond(lastUsage.ru_nvcsw, usage.ru_nvcsw)},
          {"involuntary", perSecond(lastUsage.ru_nivcsw, usage.ru_nivcsw)}}},
        {"kernel",
         "Page faults per second",
         {{"minor", perSecond(lastUsage.ru_minflt, usage.ru_minflt)},
          {"major", perSecond(lastUsage.ru_majflt, usage.ru_majflt)}}},
        sampleMemory(),
    };
    lastTime = now;
    lastUsage = usage;
    return counters;
}

Counter ProcessCounters::sampleMemory() const {
    std::array<char, 128> text{};
    const ssize_t length = ::pread(memoryFile.get(), text.data(), text.size() - 1, 0);
    unsigned long resident = 0;
    unsigned long shared = 0;
    if (length <= 0 || std::sscanf(text.data(), "%*u %lu %lu", &resident, &shared) != 2) {
        return {"memory", "Resident memory, KiB", KxNJson::json::object()};
    }
    const double kibPerPage = static_cast<double>(::sysconf(_SC_PAGESIZE)) / 1024;
    return {"memory",
            "Resident memory, KiB",
            {{"anonymous", static_cast<double>(resident - std::min(shared, resident)) * kibPerPage},
             {"files", static_cast<double>(shared) * kibPerPage}}};
}

}  // namespace KxNProfiler

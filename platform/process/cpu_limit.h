// The CPUs that a thread and what it starts may run on.
#pragma once

#include <sched.h>

#include <cstdint>

namespace KxNProcess {

/// Narrows the calling thread, and so the processes that it starts, to some of the CPUs that it has, while it lives.
class CpuLimit {
public:
    /// 0 or less for all.
    explicit CpuLimit(std::int32_t cpus);
    ~CpuLimit();
    CpuLimit(const CpuLimit&) = delete;
    CpuLimit& operator=(const CpuLimit&) = delete;

private:
    cpu_set_t previous{};
    bool isNarrowed = false;
};

}  // namespace KxNProcess

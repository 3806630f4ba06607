#include "platform/process/cpu_limit.h"

namespace KxNProcess {

CpuLimit::CpuLimit(std::int32_t cpus) {
    if (cpus <= 0 || ::sched_getaffinity(0, sizeof previous, &previous) != 0) {
        return;
    }
    cpu_set_t narrowed;
    CPU_ZERO(&narrowed);
    for (int cpu = 0; cpu < CPU_SETSIZE && CPU_COUNT(&narrowed) < cpus; ++cpu) {
        if (CPU_ISSET(cpu, &previous)) {
            CPU_SET(cpu, &narrowed);
        }
    }
    isNarrowed = ::sched_setaffinity(0, sizeof narrowed, &narrowed) == 0;
}

CpuLimit::~CpuLimit() {
    if (isNarrowed) {
        ::sched_setaffinity(0, sizeof previous, &previous);
    }
}

}  // namespace KxNProcess

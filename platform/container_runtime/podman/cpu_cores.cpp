#include "platform/container_runtime/podman/cpu_cores.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <thread>

namespace KxNContainer {

namespace {

std::uint32_t readAllowedCpus() {
    cpu_set_t allowed;
    if (::sched_getaffinity(::getpid(), sizeof(allowed), &allowed) != 0) {
        return std::max(1U, std::thread::hardware_concurrency());  // a kernel with more CPUs than the set holds
    }
    return static_cast<std::uint32_t>(CPU_COUNT(&allowed));
}

}  // namespace

std::uint32_t countAllowedCpus() {
    static const std::uint32_t count = readAllowedCpus();
    return count;
}

}  // namespace KxNContainer

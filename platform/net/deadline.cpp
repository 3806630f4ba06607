#include "platform/net/deadline.h"

#include <time.h>

namespace KxNNet {

std::int64_t coarseMilliseconds() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000;
}

}  // namespace KxNNet

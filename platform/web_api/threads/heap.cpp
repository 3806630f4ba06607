#include "platform/web_api/threads/heap.h"

#include <malloc.h>

#include <algorithm>

namespace KxNTamberWebApi {

namespace {

// Twelve seconds of sweeps (limits.h): the threads that served a burst end up to ten seconds after it, and give back
// what they kept for themselves.
constexpr int SWEEPS_AFTER_BURST = 24;
constexpr int SWEEPS_PER_TRIM = 4;

}  // namespace

void boundHeaps() {
    ::mallopt(M_ARENA_MAX, 2);
    ::mallopt(M_TRIM_THRESHOLD, 256 * 1024);
    ::mallopt(M_MMAP_THRESHOLD, 512 * 1024);
}

void BurstWatch::note(std::size_t connections) {
    most = std::max(most, connections);
    if (most >= 2 && connections <= most / 2) {
        most = connections;
        sweepsToWatch = SWEEPS_AFTER_BURST;
    }
    if (sweepsToWatch > 0 && --sweepsToWatch % SWEEPS_PER_TRIM == 0) {
        ::malloc_trim(0);
    }
}

}  // namespace KxNTamberWebApi

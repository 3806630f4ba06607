#include "platform/web_api/threads/heap.h"

#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>

namespace KxNTamberWebApi {

namespace {

// Twelve seconds of sweeps (limits.h): the threads that served a burst end up to ten seconds after it, and give back
// what they kept for themselves.
constexpr int SWEEPS_AFTER_BURST = 24;
constexpr int SWEEPS_PER_TRIM = 4;

constexpr std::size_t GROWTH = 256UL * 1024;  // so much more may stay

// What is larger is the system's again at once.
constexpr int LARGEST_KEPT = 16 * 1024 * 1024;

}  // namespace

void boundHeaps() {
    ::mallopt(M_ARENA_MAX, 1);
    ::mallopt(M_TRIM_THRESHOLD, 2 * LARGEST_KEPT);
    ::mallopt(M_MMAP_THRESHOLD, LARGEST_KEPT);
}

HeapWatch::HeapWatch() : memoryFile(::open("/proc/self/statm", O_RDONLY | O_CLOEXEC)) {}

void HeapWatch::note(std::size_t connections) {
    if (isBurstOver(connections) || ownBytes() > keptBytes + GROWTH) {
        ::malloc_trim(0);
        keptBytes = ownBytes();
    }
    keptBytes = std::min(keptBytes, ownBytes());
}

/// True now and then for a while after it.
bool HeapWatch::isBurstOver(std::size_t connections) {
    most = std::max(most, connections);
    if (most >= 2 && connections <= most / 2) {
        most = connections;
        sweepsToWatch = SWEEPS_AFTER_BURST;
    }
    return sweepsToWatch > 0 && --sweepsToWatch % SWEEPS_PER_TRIM == 0;
}

/// Resident and of no file.
std::size_t HeapWatch::ownBytes() const {
    std::array<char, 128> text{};
    unsigned long resident = 0;
    unsigned long ofFiles = 0;
    if (::pread(memoryFile.get(), text.data(), text.size() - 1, 0) <= 0 ||
        std::sscanf(text.data(), "%*u %lu %lu", &resident, &ofFiles) != 2) {
        return SIZE_MAX / 2;  // as if it had grown
    }
    return (resident - ofFiles) * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

}  // namespace KxNTamberWebApi

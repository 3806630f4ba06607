#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>

#include "KxClock.h"
#include "KxErrorManager.h"
#include "KxLog.h"

namespace {

constexpr std::int64_t EARLIEST_PLAUSIBLE_UTC = 1'704'067'200'000;  // 2024-01-01, before this program existed

std::int64_t readMilliseconds(clockid_t clock) {
    timespec now{};
    ::clock_gettime(clock, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

void checkReadable(KxCErrorListPool& pool, clockid_t clock, const char* name) {
    timespec now{};
    if (::clock_gettime(clock, &now) != 0) {
        pool.addError(0, std::string("The ") + name + " clock cannot be read: " + std::strerror(errno));
    }
}

}  // namespace

void KxCVorrelClock::init(KxCErrorListPool& pool) {
    checkReadable(pool, CLOCK_REALTIME, "wall");
    checkReadable(pool, CLOCK_MONOTONIC, "monotonic");
    if (const std::int64_t now = utcMilliseconds(); now < EARLIEST_PLAUSIBLE_UTC) {
        KxCRTE_LOG(3, "Korvex Container Service: The wall clock is wrong: it says %lld seconds after 1970-01-01 UTC",
                   static_cast<long long>(now / 1000));
    }
}

std::int64_t KxCVorrelClock::utcMilliseconds() {
    return readMilliseconds(CLOCK_REALTIME);
}

std::int64_t KxCVorrelClock::monotonicMilliseconds() {
    return readMilliseconds(CLOCK_MONOTONIC);
}

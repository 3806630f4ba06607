// What the operations of the console work with.
#pragma once

#include "KxClock.h"
#include "KxContainer.h"
#include "platform/console/device/health.h"
#include "platform/console/events/event_ring.h"
#include "platform/console/metrics/request_counts.h"

namespace KxNConsole {

struct Parts {
    explicit Parts(KxNContainer::KxCContainer& runtime) : container(runtime) {}

    KxNContainer::KxCContainer& container;
    EventRing events{static_cast<std::uint64_t>(KxCVorrelClock::utcMilliseconds()) * 1000};
    RequestCounts requests;
    Health health;
    const std::int64_t begunAt = KxCVorrelClock::monotonicMilliseconds();
};

}  // namespace KxNConsole

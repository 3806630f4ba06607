// Whether the parts that the service needs are well.
#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "platform/console/call.h"

namespace KxNConsole {

struct HealthPart {
    enum State { OK, DEGRADED, FAILED } state = OK;  ///< degraded: it works, but not for long or not as it should
    std::string reason;                              ///< empty when it is well
    std::int64_t since = 0;  ///< of this state, in milliseconds since the Unix epoch; 0 while that is not known
};

struct HealthReport {
    HealthPart podman, storage, certificate, audit;
    std::optional<std::int64_t> certificateEnd;  ///< in milliseconds since the Unix epoch

    bool isWell() const;
};

/// Looks at the parts at most once in a few seconds, whoever asks how often. Any thread.
class Health {
public:
    HealthReport look(KxNContainer::KxCContainer& container);

private:
    std::mutex mutex;
    HealthReport last;
    std::optional<std::int64_t> lookedAt;  // milliseconds of the clock that never jumps
};

/// GET /health
void getHealth(const Call& call);

}  // namespace KxNConsole

// The target's clock.
#pragma once

#include <cstdint>

class KxCErrorListPool;

class KxCVorrelClock {
public:
    /// Checks that the clocks can be read; a failure goes to `pool`. A wall clock that is obviously wrong is
    /// a level-3 log line, not an error: nothing in the process measures time with it.
    static void init(KxCErrorListPool& pool);

    /// Milliseconds since the Unix epoch, UTC. Jumps when the clock is set. Any thread.
    static std::int64_t utcMilliseconds();

    /// Milliseconds of a clock that never jumps; only differences mean something. Any thread.
    static std::int64_t monotonicMilliseconds();
};

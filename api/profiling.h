// The switch between the operations and the target's profiler.
#pragma once

#include "api/operations.h"

namespace KxNCre {

/// The process-wide profiling flag. Written before the web API server starts, read by every operation.
extern bool isProfiling;

/// Opens the profiler, registers every operation with it and raises the flag.
void startProfiling();

/// Completes the trace. No operation may be running.
void stopProfiling();

/// Records that the calling thread enters `operation`. False, and nothing recorded, when the profiler is not active.
bool recordEnter(KxEOperation operation);

/// Records that the calling thread leaves `operation`.
void recordExit(KxEOperation operation);

}  // namespace KxNCre

// GET /metrics: the figures of the service for Prometheus.
#pragma once

#include "platform/console/call.h"

namespace KxNConsole {

/// Asks nobody: what is told is known already, or the kernel tells it at once.
void getMetrics(const Call& call);

}  // namespace KxNConsole

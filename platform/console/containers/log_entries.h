// GET /containers/{name}/log-entries/ws: the log of a container in entries, over its ends and starts.
#pragma once

#include "platform/console/call.h"

namespace KxNConsole {

/// Before the upgrade.
void openLogEntries(const Call& call);

/// On the established WebSocket.
void followLogEntries(const StreamCall& call);

}  // namespace KxNConsole

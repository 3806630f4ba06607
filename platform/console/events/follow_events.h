// GET /events/ws: what happens, as it happens.
#pragma once

#include "platform/console/call.h"

namespace KxNConsole {

/// Before the upgrade.
void openEvents(const Call& call);

/// On the established WebSocket.
void followEvents(const StreamCall& call);

}  // namespace KxNConsole

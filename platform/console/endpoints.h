// The console's endpoint table: its routes, and what answers them.
#pragma once

#include "KxTamberWebApi/KxEndpoint.h"
#include "platform/console/call.h"

namespace KxNConsole {

/// The endpoint records, ended by a null pointer.
const KxSTamberWebApiEndpoint* const* endpoints();

/// Answers a request of one of them.
void callOperation(const KxSTamberWebApiEndpoint& endpoint, const Call& call);

/// Works on a WebSocket that one of them has opened.
void callStream(const KxSTamberWebApiEndpoint& endpoint, const StreamCall& call);

}  // namespace KxNConsole

// The console's endpoint table: its routes, and what answers them.
#pragma once

#include "KxTamberWebApi/KxEndpoint.h"
#include "platform/console/call.h"

namespace KxNConsole {

/// The endpoint records, ended by a null pointer.
const KxSTamberWebApiEndpoint* const* endpoints();

/// What answers the requests of an endpoint of the table.
void (*findOperation(const KxSTamberWebApiEndpoint* endpoint))(const Call& call);

}  // namespace KxNConsole

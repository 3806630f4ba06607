// GET /audit: the record that the server keeps of changes and refusals.
#pragma once

#include "platform/console/call.h"

namespace KxNConsole {

void getAudit(const Call& call);

}  // namespace KxNConsole

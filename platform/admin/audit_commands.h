// kx-container-admin audit …
#pragma once

#include <string>

#include "platform/admin/identity_commands.h"

namespace KxNAdmin {

/// Verifies the chain through the files in `words`, or through those that the service keeps at `path`. False when
/// something does not fit. Throws like the other commands.
bool verifyAudit(const std::string& path, Words words, const Output& output);

}  // namespace KxNAdmin

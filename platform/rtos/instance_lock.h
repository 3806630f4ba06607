// The lock that makes a process the only one of its kind.
#pragma once

#include <string>

#include "platform/common/unique_fd.h"

namespace KxNRtosAbstraction {

/// Waits up to `waitMilliseconds` for the lock on the file at `path`, which is made where it is missing. What comes
/// back holds the lock while it is open; it is empty when another process holds it or, with a level-4 line, when the
/// file cannot be used.
KxNCommon::UniqueFd lockInstance(const std::string& path, int waitMilliseconds);

}  // namespace KxNRtosAbstraction

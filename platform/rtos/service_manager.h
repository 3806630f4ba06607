// What is said to the service manager that started the process.
#pragma once

#include <string_view>

namespace KxNRtosAbstraction {

/// Sends `state` (sd_notify(3)) to the socket that NOTIFY_SOCKET names; without one does nothing. When that fails, logs
/// at level 3 that it was not told that the service `what`. Any thread.
void notifyServiceManager(std::string_view state, const char* what);

/// Begins to tell the manager that the process lives, if it has asked for that. Not when called again.
void startWatchdog();

}  // namespace KxNRtosAbstraction

// The entries of a container's log for who comes back to it, with gaps and the container's states.
#pragma once

#include <string>

#include "KxContainer.h"
#include "platform/container_runtime/logs/log_source.h"

namespace KxNContainer {

/// As `KxCContainer::FollowLogEntries` describes. Throws PodmanFailure when Podman cannot be reached at the beginning,
/// and what the sink throws.
PodmanReply followEntries(const LogTools& tools, const std::string& containerName, const KxSLogBegin& begin,
                          KxCLogEntrySink& sink, const KxNNet::Cancellation& ending);

}  // namespace KxNContainer

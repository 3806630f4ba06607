// The process that writes a container's log.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "platform/common/unique_fd.h"

namespace KxNContainer {

/// The conmon(8) that watches over a container while it runs. Before it ends it writes the container's exit status to a
/// file that is named after the container: then the log is complete.
struct LogWriter {
    KxNCommon::UniqueFd process;  ///< pidfd_open(2): readable when it has ended
    pid_t pid = 0;
    std::string exitDirectory;  ///< where that file comes; empty when it does not say

    explicit operator bool() const { return static_cast<bool>(process); }
};

/// The writer for the container with this full id, whose first process is `containerProcess`, 0 when that is not known.
/// None when there is none, that is, when the container does not run, or when its processes cannot be seen from here.
LogWriter findLogWriter(std::string_view containerId, pid_t containerProcess);

}  // namespace KxNContainer

// The one way in which this process starts a program.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "platform/common/unique_fd.h"

namespace KxNProcess {

struct Program {
    std::string executable;                ///< a path, or a name that is looked for in PATH
    std::vector<std::string> arguments;    ///< without the program's own name
    std::vector<std::string> environment;  ///< all of it, "NAME=value" each
    std::string workingDirectory{};        ///< empty: this process's own
};

/// A process that was started. Who has one waits for its end: waitid(2).
struct Spawned {
    pid_t pid;
    KxNCommon::UniqueFd handle;  ///< readable from the moment when the process has ended
};

/// Starts `program` in a process group of its own; `output` is a descriptor of the caller that becomes its standard
/// output and error. It has nothing to read and gets no other descriptor and no signal disposition of ours. Throws
/// std::system_error, which names the program.
Spawned spawn(const Program& program, int output);

}  // namespace KxNProcess

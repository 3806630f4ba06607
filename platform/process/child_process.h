// Runs a program to its end, and not longer than it may.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "platform/net/cancellation.h"

namespace KxNContainer {

struct ChildCommand {
    std::string executable;                ///< a path
    std::vector<std::string> arguments;    ///< without the program's own name
    std::vector<std::string> environment;  ///< all of it, "NAME=value" each
    std::string workingDirectory;
};

struct ChildResult {
    enum class End { Exited, NotStarted, TimedOut, Cancelled };

    End end = End::NotStarted;
    int exitCode = 0;    ///< of a program that exited; 128 and the signal's number when a signal ended it
    std::string output;  ///< standard output and error as they came: the first and the last 32 KiB
    std::string error;   ///< why it was not started
};

/// Runs `command` without a shell, with nothing to read, no descriptor of ours and signals at their defaults, and
/// blocks until it has ended. At `deadline`, or when `cancellation` is given, it is told to end and after a moment
/// killed.
///
/// When this returns, whatever the program started has ended too, even what left its process group; the same holds
/// when our process is killed meanwhile. (Where the system refuses us a PID namespace only the process group ends.)
/// Any thread, which must live as long as the call.
ChildResult runChild(const ChildCommand& command, const KxNNet::Cancellation& cancellation,
                     std::chrono::steady_clock::time_point deadline);

/// The first of `candidates` that can be executed; one without a '/' is looked for in PATH. Empty when there is none.
std::string findExecutable(const std::vector<std::string>& candidates);

}  // namespace KxNContainer

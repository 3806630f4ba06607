// Runs a program to its end, and not longer than it may.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "platform/net/cancellation.h"
#include "platform/process/spawn.h"

namespace KxNProcess {

struct RunResult {
    enum class End { Exited, NotStarted, TimedOut, Cancelled };

    End end = End::NotStarted;
    int exitCode = 0;    ///< of a program that exited; 128 and the signal's number when a signal ended it
    std::string output;  ///< standard output and error as they came: the first and the last 32 KiB
    std::string error;   ///< why it was not started
};

/// Runs `program`, whose executable is a path, and blocks until it has ended. At `deadline`, or when `cancellation` is
/// given, it is told to end and after a moment killed. An exit status of 126 or 127 counts as not started.
///
/// When this returns, whatever the program started has ended too, even what left its process group; the same holds
/// when our process is killed meanwhile. (Where the system refuses us a PID namespace only the process group ends.)
/// Any thread.
RunResult runToEnd(const Program& program, const KxNNet::Cancellation& cancellation,
                   std::chrono::steady_clock::time_point deadline);

/// The first of `candidates` that can be executed; one without a '/' is looked for in PATH. Empty when there is none.
std::string findExecutable(const std::vector<std::string>& candidates);

}  // namespace KxNProcess

#include "platform/process/run_to_end.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <future>
#include <sstream>
#include <string_view>
#include <system_error>

#include "platform/common/blocked_signals.h"
#include "platform/common/system_text.h"
#include "platform/common/unique_fd.h"
#include "platform/process/bounded_output.h"

namespace KxNProcess {

namespace {

using Clock = std::chrono::steady_clock;
using End = RunResult::End;
using KxNCommon::UniqueFd;

// What a program gets between being told to end and being killed.
constexpr std::chrono::seconds TERMINATION_GRACE{2};

// What env(1) and the shell exit with when they cannot run a program.
constexpr int NOT_EXECUTABLE = 126;
constexpr int NOT_FOUND = 127;

// The first process of the namespace: collects what the program leaves behind and ends with it, upon which the kernel
// ends whatever else is in the namespace. It has the parent-death signal by the time that it looks whether our process,
// $0, still lives. What asks its group to end is for the program, and what it says itself for nobody.
constexpr const char* INIT =
    R"(exec 2>/dev/null; trap : TERM; [ -e "/proc/$0/exe" ] || exit; (exec "$@" 2>&1); exit $?)";

/// `program` as a child that ends with our process. What says how programs are loaded is for the program itself, not
/// for the system's own tools before it.
Program endingWithUs(const Program& program) {
    Program child{"/usr/bin/setpriv",
                  {"--pdeathsig", "KILL", "/bin/sh", "-c", INIT, std::to_string(::getpid()), "/usr/bin/env"},
                  {},
                  program.workingDirectory};
    for (const std::string& entry : program.environment) {
        (entry.starts_with("LD_") ? child.arguments : child.environment).push_back(entry);
    }
    child.arguments.push_back(program.executable);
    child.arguments.insert(child.arguments.end(), program.arguments.begin(), program.arguments.end());
    return child;
}

/// A running program.
class Child {
public:
    explicit Child(const Program& program) {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) {
            throw KxNCommon::systemError("Cannot make a pipe");
        }
        output = UniqueFd(ends[0]);
        const UniqueFd writing(ends[1]);
        ::fcntl(output.get(), F_SETFL, O_NONBLOCK);
        process = spawn(endingWithUs(program), writing.get());
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child() {
        if (process.pid > 0) {
            ::kill(-process.pid, SIGKILL);
            collect();
        }
    }

    /// `cancellation` is a descriptor that becomes readable, -1 for none.
    End readToTheEnd(int cancellation, Clock::time_point deadline) {
        for (;;) {
            pollfd events[] = {{output.get(), POLLIN, 0}, {process.handle.get(), POLLIN, 0}, {cancellation, POLLIN, 0}};
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
            if (left <= 0) {
                return End::TimedOut;
            }
            ::poll(events, std::size(events), static_cast<int>(std::min<std::int64_t>(left, 60'000)));
            if (events[2].revents != 0) {
                return End::Cancelled;
            }
            if (events[0].revents != 0) {
                readOutput();
            } else if (events[1].revents != 0) {
                return End::Exited;
            }
        }
    }

    void terminate() {
        ::kill(-process.pid, SIGTERM);
        if (readToTheEnd(-1, Clock::now() + TERMINATION_GRACE) != End::Exited) {
            ::kill(-process.pid, SIGKILL);
        }
    }

    /// Waits for the end; the exit status as a shell gives it.
    int collect() {
        const auto id = static_cast<id_t>(process.pid);
        siginfo_t info{};
        while (::waitid(P_PID, id, &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
        }
        // What is left of the group where there was no namespace; as long as we do not let go of it nobody else has its
        // number.
        ::kill(-process.pid, SIGKILL);
        ::waitid(P_PID, id, &info, WEXITED);
        process.pid = -1;
        return info.si_code == CLD_EXITED ? info.si_status : 128 + info.si_status;
    }

    std::string takeOutput() { return collected.text(); }

private:
    void readOutput() {
        char block[16384];
        const ssize_t count = ::read(output.get(), block, sizeof(block));
        if (count > 0) {
            collected.append({block, static_cast<std::size_t>(count)});
        } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
            output.reset();  // the program has closed it, and goes on
        }
    }

    Spawned process{-1, {}};
    UniqueFd output;
    BoundedOutput collected;
};

RunResult run(const Program& program, const KxNNet::Cancellation& cancellation, Clock::time_point deadline) {
    // The children of this thread begin a namespace, in which the first of them is what init is to a system. Where that
    // is refused they are in ours.
    ::unshare(CLONE_NEWPID);
    RunResult result;
    Child child(program);
    result.end = child.readToTheEnd(cancellation.descriptor(), deadline);
    if (result.end != End::Exited) {
        child.terminate();
    }
    result.exitCode = child.collect();
    result.output = child.takeOutput();
    if (result.end == End::Exited && (result.exitCode == NOT_EXECUTABLE || result.exitCode == NOT_FOUND)) {
        // "/usr/bin/env: 'PROGRAM': " and the system's text
        const std::string_view words =
            std::string_view(result.output).substr(0, result.output.find_last_not_of('\n') + 1);
        const std::size_t colon = words.rfind(": ");
        result.end = End::NotStarted;
        result.error = "cannot run '" + program.executable +
                       "': " + std::string(colon == std::string_view::npos ? words : words.substr(colon + 2));
    }
    return result;
}

bool isExecutable(const std::string& path) {
    return ::access(path.c_str(), X_OK) == 0;
}

}  // namespace

RunResult runToEnd(const Program& program, const KxNNet::Cancellation& cancellation, Clock::time_point deadline) {
    try {
        // On a thread of its own, which cannot leave the namespace of its children again.
        const KxNCommon::BlockedSignals blocked;
        return std::async(std::launch::async, [&] { return run(program, cancellation, deadline); }).get();
    } catch (const std::system_error& error) {
        RunResult result;
        result.error = "cannot run '" + program.executable + "': " + KxNCommon::systemText(error.code().value());
        return result;
    }
}

std::string findExecutable(const std::vector<std::string>& candidates) {
    const char* const searched = std::getenv("PATH");
    for (const std::string& candidate : candidates) {
        if (candidate.find('/') != std::string::npos) {
            if (isExecutable(candidate)) {
                return candidate;
            }
            continue;
        }
        std::istringstream directories(searched != nullptr ? searched : "/usr/local/bin:/usr/bin:/bin");
        for (std::string path; std::getline(directories, path, ':');) {
            path.append("/").append(candidate);
            if (isExecutable(path)) {
                return path;
            }
        }
    }
    return {};
}

}  // namespace KxNProcess

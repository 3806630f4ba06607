#include "platform/process/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string_view>

extern "C" {
#include <sys/pidfd.h>  // glibc 2.36 forgets that
}

#include "platform/common/system_text.h"
#include "platform/common/unique_fd.h"
#include "platform/process/argument_pointers.h"
#include "platform/process/bounded_output.h"

namespace KxNContainer {

namespace {

using Clock = std::chrono::steady_clock;
using KxNCommon::UniqueFd;

// What a program gets between being told to end and being killed.
constexpr std::chrono::seconds TERMINATION_GRACE{2};
constexpr int NOT_EXECUTED = 127;

/// Everything that the new processes need. Made before they exist: they are copies of one thread of a process with
/// many, so that they may allocate nothing and take no lock.
struct Launch {
    const char* executable;
    char* const* arguments;
    char* const* environment;
    const char* workingDirectory;
    int input;
    int output;
    int failure;  ///< takes the error number of a failed start; closed by a successful one
};

// The new processes make system calls and nothing else: around those the C library, and a sanitizer even more so, may
// take a lock that some thread held when they were copied.

/// fork(2). The child begins with all signals blocked.
pid_t cloneProcess(unsigned long flags) {
    return static_cast<pid_t>(::syscall(SYS_clone, flags | SIGCHLD, nullptr, nullptr, nullptr, 0));
}

[[noreturn]] void leave(int code) {
    for (;;) {
        ::syscall(SYS_exit_group, code);
    }
}

[[noreturn]] void giveUp(const Launch& launch) {
    const int number = errno;
    ::syscall(SYS_write, launch.failure, &number, sizeof(number));
    leave(NOT_EXECUTED);
}

void endWithTheParent() {
    ::syscall(SYS_prctl, PR_SET_PDEATHSIG, SIGKILL);
}

constexpr std::size_t KERNEL_SIGNAL_SET_BYTES = 8;

void resetSignals() {
    constexpr std::array<unsigned long, 4> defaultAction{};  // the kernel's struct sigaction: SIG_DFL, nothing else
    for (int number = 1; number <= 64; ++number) {
        ::syscall(SYS_rt_sigaction, number, defaultAction.data(), nullptr, KERNEL_SIGNAL_SET_BYTES);
    }
}

void unblockSignals() {
    constexpr std::uint64_t none = 0;
    ::syscall(SYS_rt_sigprocmask, SIG_SETMASK, &none, nullptr, KERNEL_SIGNAL_SET_BYTES);
}

[[noreturn]] void becomeProgram(const Launch& launch) {
    endWithTheParent();
    unblockSignals();
    if (::syscall(SYS_chdir, launch.workingDirectory) == 0) {
        ::syscall(SYS_execve, launch.executable, launch.arguments, launch.environment);
    }
    giveUp(launch);
}

void keepOnlyTheDescriptorsNeeded(const Launch& launch) {
    ::syscall(SYS_dup2, launch.input, STDIN_FILENO);
    ::syscall(SYS_dup2, launch.output, STDOUT_FILENO);
    ::syscall(SYS_dup2, launch.output, STDERR_FILENO);
    const auto failure = static_cast<unsigned>(launch.failure);
    if (failure > STDERR_FILENO + 1) {
        ::syscall(SYS_close_range, STDERR_FILENO + 1, failure - 1, 0);
    }
    ::syscall(SYS_close_range, failure + 1, ~0U, 0);
}

/// Whether we were killed before `endWithTheParent`: then nobody holds the other end of the output any more.
bool hasLostTheParent() {
    pollfd output{STDOUT_FILENO, 0, 0};
    return ::syscall(SYS_poll, &output, 1, 0) > 0 && (output.revents & POLLERR) != 0;
}

/// The first process of the namespace: starts the program, collects what that leaves behind, and ends with it, upon
/// which the kernel ends whatever else is in the namespace. It ends with us, too. Its signals stay blocked: those that
/// ask the group to end are for the program.
[[noreturn]] void becomeInit(const Launch& launch) {
    ::syscall(SYS_setpgid, 0, 0);
    endWithTheParent();
    resetSignals();
    keepOnlyTheDescriptorsNeeded(launch);
    if (hasLostTheParent()) {
        leave(NOT_EXECUTED);
    }
    const pid_t program = cloneProcess(0);
    if (program == 0) {
        becomeProgram(launch);
    }
    if (program < 0) {
        giveUp(launch);
    }
    ::syscall(SYS_close, launch.failure);
    for (;;) {
        int status = 0;
        const auto ended = static_cast<pid_t>(::syscall(SYS_wait4, -1, &status, 0, nullptr));
        if (ended == program) {
            leave(WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status));
        }
        if (ended < 0 && errno != EINTR) {
            leave(NOT_EXECUTED);
        }
    }
}

/// No handler of ours runs in a new process before that has its own signal dispositions.
class BlockedSignals {
public:
    BlockedSignals() {
        sigset_t all;
        sigfillset(&all);
        ::pthread_sigmask(SIG_SETMASK, &all, &previous);
    }
    ~BlockedSignals() { ::pthread_sigmask(SIG_SETMASK, &previous, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t previous{};
};

struct Pipe {
    UniqueFd reading;
    UniqueFd writing;

    bool open() {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0) {
            return false;
        }
        reading = UniqueFd(ends[0]);
        writing = UniqueFd(ends[1]);
        return true;
    }
};

class Child {
public:
    Child() = default;
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child() {
        if (pid > 0) {
            ::kill(-pid, SIGKILL);
            collect();
        }
    }

    /// 0, or the system's number for why there is no child.
    int start(const ChildCommand& command) {
        Pipe outputPipe;
        Pipe failurePipe;
        const UniqueFd input(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        if (!input || !outputPipe.open() || !failurePipe.open() ||
            ::fcntl(outputPipe.reading.get(), F_SETFL, O_NONBLOCK) != 0) {
            return errno;
        }
        std::vector<std::string> words{command.executable};
        words.insert(words.end(), command.arguments.begin(), command.arguments.end());
        const std::vector<char*> arguments = pointersTo(words);
        const std::vector<char*> environment = pointersTo(command.environment);
        if (const int number = clone({command.executable.c_str(), arguments.data(), environment.data(),
                                      command.workingDirectory.c_str(), input.get(), outputPipe.writing.get(),
                                      failurePipe.writing.get()})) {
            return number;
        }
        failurePipe.writing.reset();
        output = std::move(outputPipe.reading);
        return waitForStart(failurePipe.reading.get());
    }

    /// `cancellation` is a descriptor that becomes readable, -1 for none.
    ChildResult::End readToTheEnd(int cancellation, Clock::time_point deadline) {
        for (;;) {
            pollfd events[] = {{output.get(), POLLIN, 0}, {handle.get(), POLLIN, 0}, {cancellation, POLLIN, 0}};
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
            if (left <= 0) {
                return ChildResult::End::TimedOut;
            }
            ::poll(events, std::size(events), static_cast<int>(std::min<std::int64_t>(left, 60'000)));
            if (events[2].revents != 0) {
                return ChildResult::End::Cancelled;
            }
            if (events[0].revents != 0) {
                readOutput();
            } else if (events[1].revents != 0) {
                return ChildResult::End::Exited;
            }
        }
    }

    void terminate() {
        ::kill(-pid, SIGTERM);
        if (readToTheEnd(-1, Clock::now() + TERMINATION_GRACE) != ChildResult::End::Exited) {
            ::kill(-pid, SIGKILL);
        }
    }

    /// Waits for the end; the exit status as a shell gives it.
    int collect() {
        siginfo_t info{};
        while (::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
        }
        // What is left of the group where there was no namespace; as long as we do not let go of it nobody else has its
        // number.
        ::kill(-pid, SIGKILL);
        ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED);
        pid = -1;
        return info.si_code == CLD_EXITED ? info.si_status : 128 + info.si_status;
    }

    std::string takeOutput() { return collected.text(); }

private:
    int clone(const Launch& launch) {
        const BlockedSignals blocked;
        pid = cloneProcess(CLONE_NEWPID);
        if (pid < 0) {
            pid = cloneProcess(0);
        }
        if (pid == 0) {
            becomeInit(launch);
        }
        if (pid < 0) {
            return errno;
        }
        ::setpgid(pid, pid);  // whichever of the two processes comes first
        handle = UniqueFd(::pidfd_open(pid, 0));
        return handle ? 0 : errno;
    }

    static int waitForStart(int failure) {
        int number = 0;
        ssize_t count = 0;
        do {
            count = ::read(failure, &number, sizeof(number));
        } while (count < 0 && errno == EINTR);
        return count == sizeof(number) ? number : 0;
    }

    void readOutput() {
        char block[16384];
        const ssize_t count = ::read(output.get(), block, sizeof(block));
        if (count > 0) {
            collected.append({block, static_cast<std::size_t>(count)});
        } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
            output.reset();  // the program has closed it, and goes on
        }
    }

    pid_t pid = -1;
    UniqueFd handle;  // readable once the process has ended
    UniqueFd output;
    BoundedOutput collected;
};

bool isExecutable(const std::string& path) {
    return ::access(path.c_str(), X_OK) == 0;
}

}  // namespace

ChildResult runChild(const ChildCommand& command, const KxNNet::Cancellation& cancellation,
                     Clock::time_point deadline) {
    ChildResult result;
    Child child;
    if (const int number = child.start(command)) {
        result.error = "cannot run '" + command.executable + "': " + KxNCommon::systemText(number);
        return result;
    }
    result.end = child.readToTheEnd(cancellation.descriptor(), deadline);
    if (result.end != ChildResult::End::Exited) {
        child.terminate();
    }
    result.exitCode = child.collect();
    result.output = child.takeOutput();
    return result;
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

}  // namespace KxNContainer

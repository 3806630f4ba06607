#include "platform/process/podman_process.h"

#include <poll.h>
#include <sched.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <csignal>

extern "C" {  // Debian 12's header does not say so itself
#include <sys/pidfd.h>
}

#include "platform/common/system_text.h"
#include "platform/process/argument_pointers.h"

namespace KxNContainer {

namespace {

using Clock = std::chrono::steady_clock;

/// Narrows the calling thread, and so the processes that it starts, to some of the CPUs that it has.
class CpuLimit {
public:
    explicit CpuLimit(std::int32_t cpus) {
        if (cpus <= 0 || ::sched_getaffinity(0, sizeof previous, &previous) != 0) {
            return;
        }
        cpu_set_t narrowed;
        CPU_ZERO(&narrowed);
        for (int cpu = 0; cpu < CPU_SETSIZE && CPU_COUNT(&narrowed) < cpus; ++cpu) {
            if (CPU_ISSET(cpu, &previous)) {
                CPU_SET(cpu, &narrowed);
            }
        }
        isNarrowed = ::sched_setaffinity(0, sizeof narrowed, &narrowed) == 0;
    }
    ~CpuLimit() {
        if (isNarrowed) {
            ::sched_setaffinity(0, sizeof previous, &previous);
        }
    }
    CpuLimit(const CpuLimit&) = delete;
    CpuLimit& operator=(const CpuLimit&) = delete;

private:
    cpu_set_t previous{};
    bool isNarrowed = false;
};

/// What the new process takes over from us: only what is said here.
class SpawnSetup {
public:
    explicit SpawnSetup(int output) {
        ::posix_spawnattr_init(&attributes);
        ::posix_spawn_file_actions_init(&actions);
        sigset_t signals;
        sigfillset(&signals);
        ::posix_spawnattr_setsigdefault(&attributes, &signals);
        sigemptyset(&signals);
        ::posix_spawnattr_setsigmask(&attributes, &signals);
        // A group of its own: a Ctrl-C at our terminal is ours to answer.
        ::posix_spawnattr_setpgroup(&attributes, 0);
        ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
        ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        ::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
        ::posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
        ::posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    }
    ~SpawnSetup() {
        ::posix_spawn_file_actions_destroy(&actions);
        ::posix_spawnattr_destroy(&attributes);
    }
    SpawnSetup(const SpawnSetup&) = delete;
    SpawnSetup& operator=(const SpawnSetup&) = delete;

    posix_spawnattr_t attributes;
    posix_spawn_file_actions_t actions;
};

}  // namespace

PodmanProcess::~PodmanProcess() {
    end(std::chrono::seconds(1), [] {});
}

PodmanProcess& PodmanProcess::operator=(PodmanProcess&& other) noexcept {
    if (this != &other) {
        end(std::chrono::seconds(1), [] {});
        handle = std::move(other.handle);
        ours = other.ours;
    }
    return *this;
}

PodmanProcess PodmanProcess::start(const PodmanCommand& command, int output, std::string& reason) {
    std::vector<std::string> words{command.executable};
    words.insert(words.end(), command.arguments.begin(), command.arguments.end());
    const SpawnSetup setup(output);
    const CpuLimit limit(command.cpus);
    pid_t pid = 0;
    const int error = ::posix_spawnp(&pid, command.executable.c_str(), &setup.actions, &setup.attributes,
                                     pointersTo(words).data(), pointersTo(command.environment).data());
    PodmanProcess process;
    if (error != 0) {
        reason = "Cannot run '" + command.executable + "': " + KxNCommon::systemText(error);
        return process;
    }
    process = find(pid);
    process.ours = true;
    if (!process) {
        reason = "Cannot watch '" + command.executable + "': " + KxNCommon::systemText(errno);
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
    }
    return process;
}

PodmanProcess PodmanProcess::find(pid_t pid) {
    PodmanProcess process;
    process.handle = KxNCommon::UniqueFd(::pidfd_open(pid, 0));
    return process;
}

std::string PodmanProcess::collect() {
    siginfo_t info{};
    const bool isKnown = ours && ::waitid(P_PIDFD, static_cast<id_t>(handle.get()), &info, WEXITED) == 0;
    handle.reset();
    if (!isKnown) {
        return "ended";
    }
    return (info.si_code == CLD_EXITED ? "ended with status " : "was ended by signal ") +
           std::to_string(info.si_status);
}

void PodmanProcess::end(std::chrono::milliseconds patience, const std::function<void()>& whileWaiting) {
    if (!handle || !ours) {
        handle.reset();
        return;
    }
    // Only the process itself: what its group still holds are helpers in the middle of their work.
    ::pidfd_send_signal(handle.get(), SIGTERM, nullptr, 0);
    if (!waitForEnd(patience, whileWaiting)) {
        ::pidfd_send_signal(handle.get(), SIGKILL, nullptr, 0);
    }
    collect();
}

bool PodmanProcess::waitForEnd(std::chrono::milliseconds patience, const std::function<void()>& whileWaiting) {
    constexpr std::chrono::milliseconds STEP{20};
    const auto deadline = Clock::now() + patience;
    for (;;) {
        pollfd ended{handle.get(), POLLIN, 0};
        if (::poll(&ended, 1, static_cast<int>(STEP.count())) > 0) {
            return true;
        }
        if (Clock::now() >= deadline) {
            return false;
        }
        whileWaiting();
    }
}

}  // namespace KxNContainer

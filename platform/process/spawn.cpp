#include "platform/process/spawn.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

extern "C" {  // Debian 12's header does not say so itself
#include <sys/pidfd.h>
}

#include "platform/common/system_text.h"

namespace KxNProcess {

namespace {

/// What the new process takes over from us: only what is said here.
class SpawnSetup {
public:
    SpawnSetup(const std::string& workingDirectory, int output) {
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
        if (!workingDirectory.empty()) {
            ::posix_spawn_file_actions_addchdir_np(&actions, workingDirectory.c_str());
        }
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

/// Pointers into `texts`, ended by a null pointer, as execve(2) takes them.
std::vector<char*> pointersTo(const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (const std::string& text : texts) {
        pointers.push_back(const_cast<char*>(text.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

Spawned spawn(const Program& program, int output) {
    std::vector<std::string> words{program.executable};
    words.insert(words.end(), program.arguments.begin(), program.arguments.end());
    const SpawnSetup setup(program.workingDirectory, output);
    pid_t pid = 0;
    const int error = ::posix_spawnp(&pid, program.executable.c_str(), &setup.actions, &setup.attributes,
                                     pointersTo(words).data(), pointersTo(program.environment).data());
    if (error != 0) {
        throw KxNCommon::systemError("Cannot run '" + program.executable + "'", error);
    }
    Spawned spawned{pid, KxNCommon::UniqueFd(::pidfd_open(pid, 0))};
    if (!spawned.handle) {
        const int number = errno;
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
        throw KxNCommon::systemError("Cannot watch '" + program.executable + "'", number);
    }
    return spawned;
}

}  // namespace KxNProcess

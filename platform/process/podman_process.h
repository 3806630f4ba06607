// The process of Podman's API service.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "platform/common/unique_fd.h"

namespace KxNContainer {

/// How to start Podman's API service.
struct PodmanCommand {
    std::string executable;  ///< a path, or a name that is looked for in PATH
    std::vector<std::string> arguments;
    std::vector<std::string> environment;  ///< all of it, "NAME=value" each
    std::int32_t cpus = 0;                 ///< on how many CPUs it and its containers may run; 0 or less for all
};

/// One that was started, or one that was found running. Destroying a started one ends it.
class PodmanProcess {
public:
    PodmanProcess() = default;
    PodmanProcess(PodmanProcess&&) = default;
    PodmanProcess& operator=(PodmanProcess&& other) noexcept;
    ~PodmanProcess();

    /// Starts `command`; `output` is a descriptor of the caller that becomes its standard output and error. It gets no
    /// other descriptor, no signal disposition and no CPU set of this process. On failure `reason` says why and the
    /// result holds no process. Changes the calling thread's CPU set meanwhile.
    static PodmanProcess start(const PodmanCommand& command, int output, std::string& reason);

    /// The running process `pid`, which is not ours to end. Holds no process when there is none.
    static PodmanProcess find(pid_t pid);

    explicit operator bool() const { return static_cast<bool>(handle); }
    bool isOurs() const { return ours; }

    /// Readable from the moment when the process has ended.
    int descriptor() const { return handle.get(); }

    /// Lets go of a process that has ended; says how it ended, as far as the system tells.
    std::string collect();

    /// Ends a started process: asks it to, and kills it when it has not ended after `patience`. Containers go on: their
    /// monitors are processes of their own. `whileWaiting` is called now and then.
    void end(std::chrono::milliseconds patience, const std::function<void()>& whileWaiting);

private:
    bool waitForEnd(std::chrono::milliseconds patience, const std::function<void()>& whileWaiting);

    KxNCommon::UniqueFd handle;
    bool ours = false;
};

}  // namespace KxNContainer

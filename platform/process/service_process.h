// The process of a service that runs beside this one.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "platform/common/unique_fd.h"
#include "platform/process/spawn.h"

namespace KxNProcess {

/// One that was started, or one that was found running. Destroying a started one ends it.
class ServiceProcess {
public:
    ServiceProcess() = default;
    ServiceProcess(ServiceProcess&&) = default;
    ServiceProcess& operator=(ServiceProcess&& other) noexcept;
    ~ServiceProcess();

    /// Starts `program`, with `output` as `spawn` takes it. It may run on `cpus` of the CPUs that this process has; 0
    /// or less for all. Changes the calling thread's CPU set meanwhile. Throws std::system_error.
    static ServiceProcess start(const Program& program, std::int32_t cpus, int output);

    /// The running process `pid`, which `end` leaves alone. Holds no process when there is none.
    static ServiceProcess find(pid_t pid);

    explicit operator bool() const { return static_cast<bool>(handle); }
    bool isOurs() const { return ours; }

    /// Readable from the moment when the process has ended.
    int descriptor() const { return handle.get(); }

    /// Lets go of a process that has ended; says how it ended, as far as the system tells.
    std::string collect();

    /// Ends a started process: asks it to, and kills it when it has not ended after `patience`. What it has started
    /// goes on. `whileWaiting` is called now and then.
    void end(std::chrono::milliseconds patience, const std::function<void()>& whileWaiting);

    /// Kills it at once, started or found: whoever watches it sees it end.
    void kill();

private:
    ServiceProcess(KxNCommon::UniqueFd process, bool isStarted) : handle(std::move(process)), ours(isStarted) {}
    bool waitForEnd(std::chrono::milliseconds patience, const std::function<void()>& whileWaiting);

    KxNCommon::UniqueFd handle;
    bool ours = false;
};

}  // namespace KxNProcess

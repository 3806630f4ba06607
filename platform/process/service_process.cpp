#include "platform/process/service_process.h"

#include <poll.h>
#include <sys/wait.h>

#include <csignal>
#include <utility>

#include "platform/process/cpu_limit.h"

extern "C" {  // Debian 12's header does not say so itself
#include <sys/pidfd.h>
}

namespace KxNProcess {

namespace {

using Clock = std::chrono::steady_clock;

}  // namespace

ServiceProcess::~ServiceProcess() {
    end(std::chrono::seconds(1), [] {});
}

ServiceProcess& ServiceProcess::operator=(ServiceProcess&& other) noexcept {
    if (this != &other) {
        end(std::chrono::seconds(1), [] {});
        handle = std::move(other.handle);
        ours = other.ours;
    }
    return *this;
}

ServiceProcess ServiceProcess::start(const Program& program, std::int32_t cpus, int output) {
    const CpuLimit limit(cpus);
    return {std::move(spawn(program, output).handle), true};
}

ServiceProcess ServiceProcess::find(pid_t pid) {
    return {KxNCommon::UniqueFd(::pidfd_open(pid, 0)), false};
}

std::string ServiceProcess::collect() {
    siginfo_t info{};
    const bool isKnown = ours && ::waitid(P_PIDFD, static_cast<id_t>(handle.get()), &info, WEXITED) == 0;
    handle.reset();
    if (!isKnown) {
        return "ended";
    }
    return (info.si_code == CLD_EXITED ? "ended with status " : "was ended by signal ") +
           std::to_string(info.si_status);
}

void ServiceProcess::end(std::chrono::milliseconds patience, const std::function<void()>& whileWaiting) {
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

void ServiceProcess::kill() {
    if (handle) {
        ::pidfd_send_signal(handle.get(), SIGKILL, nullptr, 0);
    }
}

bool ServiceProcess::waitForEnd(std::chrono::milliseconds patience, const std::function<void()>& whileWaiting) {
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

}  // namespace KxNProcess

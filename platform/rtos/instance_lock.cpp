#include "platform/rtos/instance_lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <mutex>
#include <thread>

#include "KxLog.h"
#include "KxRtos.h"

namespace KxNRtosAbstraction {

namespace {

constexpr const char* LOCK_FILE = "/run/KxContainerRTE.lock";
constexpr mode_t LOCK_FILE_MODE = 0600;  // whoever may open the file may also take the lock
constexpr std::chrono::milliseconds RETRY_PAUSE{10};

void logFailure(const std::string& path, const char* step) {
    KxCRTE_LOG(4, "Korvex Container Service: The instance lock %s cannot be %s: %s", path.c_str(), step,
               std::strerror(errno));
}

}  // namespace

KxNCommon::UniqueFd lockInstance(const std::string& path, int waitMilliseconds) {
    KxNCommon::UniqueFd file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, LOCK_FILE_MODE));
    if (!file) {
        logFailure(path, "opened");
        return {};
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(waitMilliseconds);
    while (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EINTR) {
            continue;
        }
        if (errno != EWOULDBLOCK) {
            logFailure(path, "taken");
            return {};
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return {};
        }
        std::this_thread::sleep_for(RETRY_PAUSE);
    }
    return file;
}

bool isSingletonProcess(int waitMilliseconds) {
    static std::mutex& mutex = *new std::mutex;
    static KxNCommon::UniqueFd& heldLock = *new KxNCommon::UniqueFd;
    const std::lock_guard guard(mutex);
    if (!heldLock) {
        heldLock = lockInstance(LOCK_FILE, waitMilliseconds);
    }
    return static_cast<bool>(heldLock);
}

}  // namespace KxNRtosAbstraction

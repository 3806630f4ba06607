#include "platform/container_runtime/stores/user_storage.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cerrno>

#include "platform/common/system_text.h"
#include "platform/common/unique_fd.h"

namespace KxNContainer {

namespace {

/// Writes a few bytes to a file that nobody sees. 0 or the system's error number.
int tryToWrite(const std::string& directory) {
    KxNCommon::UniqueFd file(::open(directory.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600));
    if (!file && (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL)) {
        // A file system without nameless files: make one with a name and take the name away.
        std::string name = directory + "/.kx-probe-XXXXXX";
        file = KxNCommon::UniqueFd(::mkostemp(name.data(), O_CLOEXEC));
        const int number = errno;
        if (file) {
            ::unlink(name.c_str());
        }
        errno = number;
    }
    if (!file) {
        return errno;
    }
    constexpr char probe[] = "probe";
    if (::write(file.get(), probe, sizeof(probe)) < 0 || ::fsync(file.get()) != 0) {
        return errno;
    }
    return 0;
}

}  // namespace

bool hasValidUserStorage(const std::string& directory, std::string& message) {
    struct stat status {};
    if (::stat(directory.c_str(), &status) != 0) {
        message = "User storage '" + directory + "' cannot be used: " + KxNCommon::systemText(errno);
        return false;
    }
    if (!S_ISDIR(status.st_mode)) {
        message = "User storage '" + directory + "' is not a directory";
        return false;
    }
    struct statvfs space {};
    if (::statvfs(directory.c_str(), &space) != 0) {
        message = "Free space of user storage '" + directory + "' is not known: " + KxNCommon::systemText(errno);
        return false;
    }
    const std::uint64_t freeBytes = static_cast<std::uint64_t>(space.f_bavail) * space.f_frsize;
    if (freeBytes < MINIMUM_USER_STORAGE_BYTES) {
        message = "User storage '" + directory + "' is full: " + std::to_string(freeBytes >> 10) +
                  " KiB free, at least " + std::to_string(MINIMUM_USER_STORAGE_BYTES >> 10) + " KiB needed";
        return false;
    }
    if (const int number = tryToWrite(directory); number != 0) {
        message = "User storage '" + directory + "' cannot be written: " + KxNCommon::systemText(number);
        return false;
    }
    return true;
}

}  // namespace KxNContainer

#include "platform/container_runtime/stores/user_storage.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <stdexcept>

#include "platform/common/system_text.h"
#include "platform/common/unique_fd.h"

namespace KxNContainer {

namespace {

/// Writes a few bytes to a file that nobody sees. False with errno.
bool tryToWrite(const std::string& directory) {
    KxNCommon::UniqueFd file(::open(directory.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600));
    if (!file && (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL)) {
        // A file system without nameless files: make one with a name and take the name away.
        std::string name = directory + "/.kx-probe-XXXXXX";
        file = KxNCommon::UniqueFd(::mkostemp(name.data(), O_CLOEXEC));
        if (file) {
            ::unlink(name.c_str());
        }
    }
    constexpr char probe[] = "probe";
    return file && ::write(file.get(), probe, sizeof(probe)) >= 0 && ::fsync(file.get()) == 0;
}

}  // namespace

void checkUserStorage(const std::string& directory) {
    const std::string subject = "User storage '" + directory + "' ";
    struct stat status {};
    if (::stat(directory.c_str(), &status) != 0) {
        throw KxNCommon::systemError(subject + "cannot be used");
    }
    if (!S_ISDIR(status.st_mode)) {
        throw std::runtime_error(subject + "is not a directory");
    }
    struct statvfs space {};
    if (::statvfs(directory.c_str(), &space) != 0) {
        throw KxNCommon::systemError("Free space of user storage '" + directory + "' is not known");
    }
    const std::uint64_t freeBytes = static_cast<std::uint64_t>(space.f_bavail) * space.f_frsize;
    if (freeBytes < MINIMUM_USER_STORAGE_BYTES) {
        throw std::runtime_error(subject + "is full: " + std::to_string(freeBytes >> 10) + " KiB free, at least " +
                                 std::to_string(MINIMUM_USER_STORAGE_BYTES >> 10) + " KiB needed");
    }
    if (!tryToWrite(directory)) {
        throw KxNCommon::systemError(subject + "cannot be written");
    }
}

}  // namespace KxNContainer

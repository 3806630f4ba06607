#include "platform/container_runtime/logs/watch/log_file.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/common/system_text.h"

namespace KxNContainer {

namespace {

using KxNCommon::UniqueFd;

/// More cuts than anybody makes; what is cut then is counted with the last of them.
constexpr std::size_t MAX_CUTS = 1000;

UniqueFd openWithoutLinks(int directory, const std::string& path) {
    open_how how{};
    how.flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    how.resolve = RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS | (directory == AT_FDCWD ? 0 : RESOLVE_BENEATH);
    return UniqueFd(static_cast<int>(::syscall(SYS_openat2, directory, path.c_str(), &how, sizeof how)));
}

/// Where the part of `path` begins that Podman makes itself, below the root of its storage, which an operator may have
/// put elsewhere: "DRIVER-containers/ID/userdata/NAME".
std::size_t findOwnPart(const std::string& path, std::string_view containerId) {
    const std::size_t id = path.find("-containers/" + std::string(containerId) + "/userdata/");
    const std::size_t slash = id == std::string::npos ? id : path.rfind('/', id);
    return slash == std::string::npos || slash == 0 ? std::string::npos : slash + 1;
}

}  // namespace

LogFile::LogFile(UniqueFd opened) : file(std::move(opened)) {
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) {
        throw KxNCommon::systemError("A container's log");
    }
    inode = status.st_ino;
    device = status.st_dev;
    lastSize = status.st_size;
}

LogFile::Look LogFile::look() {
    const std::lock_guard lock(mutex);
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) {
        throw KxNCommon::systemError("A container's log");
    }
    if (status.st_size < lastSize) {
        if (cuts.size() < MAX_CUTS) {
            cuts.push_back({lastSize, status.st_size});
        } else {
            cuts.back().to = status.st_size;
        }
    }
    lastSize = status.st_size;
    return {lastSize, cuts.size()};
}

std::vector<LogFile::Cut> LogFile::cutsSince(std::size_t known) {
    const std::lock_guard lock(mutex);
    return {cuts.begin() + static_cast<std::ptrdiff_t>(std::min(known, cuts.size())), cuts.end()};
}

std::size_t LogFile::read(off_t offset, std::span<char> room) const {
    while (true) {
        const ssize_t size = ::pread(file.get(), room.data(), room.size(), offset);
        if (size >= 0) {
            return static_cast<std::size_t>(size);
        }
        if (errno != EINTR) {
            throw KxNCommon::systemError("A container's log");
        }
    }
}

UniqueFd openLogFile(const std::string& path, std::string_view containerId) {
    if (!path.starts_with('/') || path.find('\0') != std::string::npos) {
        errno = EINVAL;
        return {};
    }
    UniqueFd file = openWithoutLinks(AT_FDCWD, path);
    if (const std::size_t own = findOwnPart(path, containerId); !file && errno == ELOOP && own != std::string::npos) {
        const UniqueFd storage(::open(path.substr(0, own).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        file = storage ? openWithoutLinks(storage.get(), path.substr(own)) : UniqueFd();
    }
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0) {
        return {};
    }
    if (!S_ISREG(status.st_mode) || status.st_uid != ::geteuid()) {
        errno = EPERM;
        return {};
    }
    return file;
}

}  // namespace KxNContainer

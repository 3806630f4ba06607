#include "platform/common/atomic_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "KxLog.h"
#include "platform/common/system_text.h"
#include "platform/common/unique_fd.h"

namespace KxNCommon {

namespace {

std::system_error failedTo(const std::string& action, const std::string& path) {
    return systemError("cannot " + action + " '" + path + "'");
}

/// Opens the file that collects the new contents and takes its lock. Whoever holds the lock of the file that bears the
/// name owns the name; a file that was renamed away while we waited for it is no longer that.
UniqueFd openLocked(int directory, const std::string& name, const std::string& path) {
    for (;;) {
        UniqueFd file(
            ::openat(directory, name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
        while (file && ::flock(file.get(), LOCK_EX) != 0) {
            if (errno != EINTR) {
                throw failedTo("create", path);
            }
        }
        struct stat held {};
        struct stat named {};
        if (!file || ::fstat(file.get(), &held) != 0) {
            throw failedTo("create", path);
        }
        if (!S_ISREG(held.st_mode)) {
            errno = EEXIST;
            throw failedTo("create", path);
        }
        const bool isNamed = ::fstatat(directory, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
                             named.st_ino == held.st_ino && named.st_dev == held.st_dev;
        if (isNamed) {
            return file;
        }
    }
}

/// False with errno.
bool fillAndSync(int file, std::string_view contents, mode_t mode) {
    if (::ftruncate(file, 0) != 0 || ::fchmod(file, mode) != 0) {
        return false;
    }
    while (!contents.empty()) {
        const ssize_t written = ::write(file, contents.data(), contents.size());
        if (written < 0 && errno != EINTR) {
            return false;
        }
        contents.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
    }
    return ::fsync(file) == 0;
}

}  // namespace

ReadResult readSmallFile(const std::string& path, std::size_t maxBytes, std::string& contents, std::string& error) {
    const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file) {
        const bool isMissing = errno == ENOENT;
        error = failedTo("open", path).what();
        return isMissing ? ReadResult::Missing : ReadResult::Failed;
    }
    struct stat status {};
    if (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        error = "cannot read '" + path + "': not a regular file";
        return ReadResult::Failed;
    }
    std::string text;
    char block[4096];
    while (const ssize_t count = ::read(file.get(), block, sizeof(block))) {
        if (count < 0 && errno != EINTR) {
            error = failedTo("read", path).what();
            return ReadResult::Failed;
        }
        text.append(block, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        if (text.size() > maxBytes) {
            error = "cannot read '" + path + "': larger than " + std::to_string(maxBytes) + " bytes";
            return ReadResult::TooLarge;
        }
    }
    contents = std::move(text);
    return ReadResult::Ok;
}

std::string temporaryName(const std::string& name) {
    return "." + name + ".tmp";
}

bool replaceFile(const std::string& path, std::string_view contents, mode_t mode, std::string& error) {
    const std::size_t slash = path.rfind('/');
    const std::string directoryPath = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    const std::string newName = temporaryName(name);

    try {
        const UniqueFd directory(::open(directoryPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (!directory) {
            throw failedTo("open directory", directoryPath);
        }
        const UniqueFd file = openLocked(directory.get(), newName, directoryPath + newName);
        if (!fillAndSync(file.get(), contents, mode) ||
            ::renameat(directory.get(), newName.c_str(), directory.get(), name.c_str()) != 0) {
            const int number = errno;
            ::unlinkat(directory.get(), newName.c_str(), 0);
            errno = number;
            throw failedTo("write", path);
        }
        // From here on every reader finds the new file, so that it counts as written. Some file systems cannot sync a
        // directory and say EINVAL; there is nothing more to be done on them.
        if (::fsync(directory.get()) != 0 && errno != EINVAL) {
            KxCRTE_LOG(3, "Korvex Container Service: '%s' was written but may be the old one after a power cut: %s",
                       path.c_str(), failedTo("sync directory", directoryPath).what());
        }
        return true;
    } catch (const std::system_error& failure) {
        error = failure.what();
        return false;
    }
}

void syncFile(const std::string& path) {
    for (const std::string& part : {path, path.substr(0, path.rfind('/') + 1)}) {
        const UniqueFd file(::open(part.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
        if (!file || (::fsync(file.get()) != 0 && errno != EINVAL)) {
            throw failedTo("sync", part);
        }
    }
}

}  // namespace KxNCommon

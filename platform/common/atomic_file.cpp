#include "platform/common/atomic_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <optional>

#include "platform/common/system_text.h"
#include "platform/common/unique_fd.h"

namespace KxNCommon {

namespace {

std::string systemError(const std::string& action, const std::string& path, int number) {
    return "cannot " + action + " '" + path + "': " + systemText(number);
}

/// Opens the file that collects the new contents and takes its lock. Whoever holds the lock of the file that bears the
/// name owns the name; a file that was renamed away while we waited for it is no longer that.
std::optional<int> openLocked(int directory, const std::string& name, UniqueFd& result) {
    for (;;) {
        UniqueFd file(
            ::openat(directory, name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
        if (!file) {
            return errno;
        }
        while (::flock(file.get(), LOCK_EX) != 0) {
            if (errno != EINTR) {
                return errno;
            }
        }
        struct stat held {};
        struct stat named {};
        if (::fstat(file.get(), &held) != 0) {
            return errno;
        }
        if (!S_ISREG(held.st_mode)) {
            return EEXIST;
        }
        const bool isNamed = ::fstatat(directory, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
                             named.st_ino == held.st_ino && named.st_dev == held.st_dev;
        if (isNamed) {
            result = std::move(file);
            return std::nullopt;
        }
    }
}

std::optional<int> writeAll(int file, std::string_view contents) {
    while (!contents.empty()) {
        const ssize_t written = ::write(file, contents.data(), contents.size());
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return errno;
        }
        contents.remove_prefix(static_cast<std::size_t>(written));
    }
    return std::nullopt;
}

std::optional<int> fillAndSync(int file, std::string_view contents, mode_t mode) {
    if (::ftruncate(file, 0) != 0 || ::fchmod(file, mode) != 0) {
        return errno;
    }
    if (const auto failure = writeAll(file, contents)) {
        return failure;
    }
    if (::fsync(file) != 0) {
        return errno;
    }
    return std::nullopt;
}

}  // namespace

ReadResult readSmallFile(const std::string& path, std::size_t maxBytes, std::string& contents, std::string& error) {
    const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file) {
        const int number = errno;
        error = systemError("open", path, number);
        return number == ENOENT ? ReadResult::Missing : ReadResult::Failed;
    }
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) {
        error = systemError("read", path, errno);
        return ReadResult::Failed;
    }
    if (!S_ISREG(status.st_mode)) {
        error = "cannot read '" + path + "': not a regular file";
        return ReadResult::Failed;
    }
    std::string text;
    for (;;) {
        char block[4096];
        const ssize_t count = ::read(file.get(), block, sizeof(block));
        if (count < 0) {
            if (errno == EINTR) {
                continue;
            }
            error = systemError("read", path, errno);
            return ReadResult::Failed;
        }
        if (count == 0) {
            break;
        }
        text.append(block, static_cast<std::size_t>(count));
        if (text.size() > maxBytes) {
            error = "cannot read '" + path + "': larger than " + std::to_string(maxBytes) + " bytes";
            return ReadResult::TooLarge;
        }
    }
    contents = std::move(text);
    return ReadResult::Ok;
}

bool replaceFile(const std::string& path, std::string_view contents, mode_t mode, std::string& error) {
    const std::size_t slash = path.rfind('/');
    const std::string directoryPath = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    const std::string temporaryName = "." + name + ".tmp";

    const UniqueFd directory(::open(directoryPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory) {
        error = systemError("open directory", directoryPath, errno);
        return false;
    }
    UniqueFd file;
    if (const auto failure = openLocked(directory.get(), temporaryName, file)) {
        error = systemError("create", directoryPath + temporaryName, *failure);
        return false;
    }
    auto failure = fillAndSync(file.get(), contents, mode);
    if (!failure && ::renameat(directory.get(), temporaryName.c_str(), directory.get(), name.c_str()) != 0) {
        failure = errno;
    }
    if (failure) {
        ::unlinkat(directory.get(), temporaryName.c_str(), 0);
        error = systemError("write", path, *failure);
        return false;
    }
    // Some file systems cannot sync a directory and say EINVAL; there is nothing more to be done on them.
    if (::fsync(directory.get()) != 0 && errno != EINVAL) {
        error = systemError("sync directory", directoryPath, errno);
        return false;
    }
    return true;
}

}  // namespace KxNCommon

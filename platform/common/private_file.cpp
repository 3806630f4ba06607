#include "platform/common/private_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "platform/common/system_text.h"

namespace KxNCommon {

namespace {

constexpr mode_t ACCESS_OF_OTHERS = S_IRWXG | S_IRWXO;

/// What is wrong with a file of this kind, owner and mode; empty when nothing is.
std::string findFault(const struct stat& file) {
    if (!S_ISREG(file.st_mode)) {
        return "is not a regular file";
    }
    if (file.st_uid != ::geteuid()) {
        return "belongs to user " + std::to_string(file.st_uid) + ", not to user " + std::to_string(::geteuid()) +
               " that the service runs as";
    }
    if ((file.st_mode & ACCESS_OF_OTHERS) != 0) {
        return "can be accessed by group or others; its mode must be 0600";
    }
    return {};
}

void makeDirectories(const std::filesystem::path& directory) {
    const auto make = [&] { return ::mkdir(directory.c_str(), 0755) == 0 || errno == EEXIST; };
    if (make()) {
        return;
    }
    if (errno == ENOENT && directory.has_parent_path()) {
        makeDirectories(directory.parent_path());
        if (make()) {
            return;
        }
    }
    throw systemError("directory '" + directory.string() + "' cannot be made");
}

}  // namespace

std::optional<PrivateFile> openPrivateFile(const std::string& path, bool& isMissing, std::string& error) {
    PrivateFile file;
    file.descriptor = UniqueFd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
    isMissing = !file.descriptor && errno == ENOENT;
    if (!file.descriptor) {
        const int number = errno;
        error = number == ELOOP ? "is a symbolic link" : "cannot be opened: " + systemText(number);
        return std::nullopt;
    }
    error = ::fstat(file.descriptor.get(), &file.status) == 0 ? findFault(file.status)
                                                              : "cannot be examined: " + systemText(errno);
    return error.empty() ? std::optional(std::move(file)) : std::nullopt;
}

std::string makeDirectoryOf(const std::string& path) {
    const std::filesystem::path parent = std::filesystem::path(path).parent_path();
    std::string directory = parent.empty() ? "." : parent.string();
    makeDirectories(directory);
    return directory;
}

UniqueFd lockDirectory(const std::string& directory) {
    UniqueFd lock(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    while (!lock || ::flock(lock.get(), LOCK_EX) != 0) {
        if (!lock || errno != EINTR) {
            throw systemError("directory '" + directory + "' cannot be locked");
        }
    }
    return lock;
}

}  // namespace KxNCommon

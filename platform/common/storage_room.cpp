#include "platform/common/storage_room.h"

#include <fcntl.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "platform/common/unique_fd.h"

namespace KxNCommon {

namespace {

constexpr std::uint64_t LARGEST_RESERVE = 16ULL << 20;
constexpr std::uint64_t RESERVED_PART = 16;

std::filesystem::path nearestExisting(std::filesystem::path directory) {
    std::error_code error;
    while (directory.has_relative_path() && !std::filesystem::exists(directory, error)) {
        directory = directory.parent_path();
    }
    return directory;
}

}  // namespace

std::optional<std::uint64_t> roomFor(const std::string& directory) {
    struct statvfs volume;
    if (::statvfs(nearestExisting(directory).c_str(), &volume) != 0) {
        return std::nullopt;
    }
    const std::uint64_t total = std::uint64_t{volume.f_blocks} * volume.f_frsize;
    const std::uint64_t free = std::uint64_t{volume.f_bavail} * volume.f_frsize;
    const std::uint64_t reserve = std::min(LARGEST_RESERVE, total / RESERVED_PART);
    return free > reserve ? free - reserve : 0;
}

int findStorageFault(const std::string& directory, std::uint64_t size) {
    const UniqueFd trial(::open(nearestExisting(directory).c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600));
    if (!trial) {
        return errno == EOPNOTSUPP || errno == EISDIR ? 0 : errno;
    }
    const int number = size > 0 ? ::posix_fallocate(trial.get(), 0, static_cast<off_t>(size)) : 0;
    return number == EINVAL || number == EOPNOTSUPP ? 0 : number;
}

bool isNoRoom(int number) {
    return number == ENOSPC || number == EDQUOT;
}

}  // namespace KxNCommon

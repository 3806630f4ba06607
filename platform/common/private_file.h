// Files that hold what nobody else may read or write: the token, the identities.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

#include "platform/common/unique_fd.h"

namespace KxNCommon {

/// The permissions of such a file.
inline constexpr mode_t PRIVATE_MODE = S_IRUSR | S_IWUSR;

/// An open file and what fstat said of it.
struct PrivateFile {
    UniqueFd descriptor;
    struct stat status {};
};

/// Opens the file at `path` for reading. Null when there is none, with `isMissing` set, and when it is no regular file
/// of this process's user, or when group or others have any access to it; `error` then says what is wrong, in words
/// that follow the name of the file. Never blocks on what lies in its place. Any thread.
std::optional<PrivateFile> openPrivateFile(const std::string& path, bool& isMissing, std::string& error);

/// Makes the directory of the file at `path`, and those above it, where they are missing: whatever the umask, nobody
/// else may write into them, for who can, replaces the file. Gives the directory's path; throws std::system_error.
std::string makeDirectoryOf(const std::string& path);

/// Holds a lock on the directory of a file: who changes the file there has it. Throws std::system_error.
UniqueFd lockDirectory(const std::string& directory);

}  // namespace KxNCommon

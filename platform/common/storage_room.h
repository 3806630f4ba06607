// Whether a file has room where it is to be stored.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace KxNCommon {

/// Bytes that a new file in `directory` may take: what is free (statvfs(3)) but for a reserve of 16 MiB, or of a
/// sixteenth of a smaller volume. Of a directory that is missing the nearest one above counts. Null when the system
/// does not tell.
std::optional<std::uint64_t> roomFor(const std::string& directory);

/// What keeps `size` bytes from being stored in `directory`, as an error number (errno(3)); 0 when they could be, or
/// when the file system gives no way to try it without leaving anything.
int findStorageFault(const std::string& directory, std::uint64_t size);

/// Whether an error number says that there is no room.
bool isNoRoom(int number);

}  // namespace KxNCommon

// The user storage: where images, compose files and plugins lie.
#pragma once

#include <cstdint>
#include <string>

namespace KxNContainer {

inline constexpr const char* USER_STORAGE = "/userstorage1";

/// Room that must be left: enough for compose files, plugins and their bookkeeping. Whether a certain image fits is
/// only known when it is uploaded.
inline constexpr std::uint64_t MINIMUM_USER_STORAGE_BYTES = 16ULL << 20;

/// Throws std::runtime_error, which says what is wrong and where, unless `directory` is a directory that can be written
/// (which is tried) and has room. Any thread.
void checkUserStorage(const std::string& directory);

}  // namespace KxNContainer

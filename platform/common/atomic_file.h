// Small files that are read whole and replaced whole.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace KxNCommon {

enum class ReadResult { Ok, Missing, TooLarge, Failed };

/// Reads the regular file at `path` whole. Missing when there is none; TooLarge when it holds more than `maxBytes`;
/// Failed when it is no regular file or cannot be read. `error` then says so with the path and the system's text. Never
/// blocks on a pipe or device that lies in the file's place. Any thread.
ReadResult readSmallFile(const std::string& path, std::size_t maxBytes, std::string& contents, std::string& error);

/// Replaces or makes the file at `path` with `contents` and the permissions `mode`. When it returns true the new file
/// is on disk; a crash or power cut at any moment leaves the old file or the new one. On false the old file stands and
/// nothing else is left behind (only when the directory itself cannot be synced is the new one in place already, and
/// may not outlive a power cut); `error` names the step, the path and the system's text.
///
/// The directory must exist. The new contents are prepared in it under the name "." + name + ".tmp"; what a killed
/// process left under that name is used up by the next replacement. Writers of one file exclude each other, across
/// threads and processes; the last one wins. Any thread.
bool replaceFile(const std::string& path, std::string_view contents, mode_t mode, std::string& error);

}  // namespace KxNCommon

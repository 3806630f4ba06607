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

/// The name under which the new contents of the file `name` are prepared, beside it.
std::string temporaryName(const std::string& name);

/// Replaces or makes the file at `path` with `contents` and the permissions `mode`. When it returns true every reader
/// finds the new file; a crash or power cut at any moment leaves the old file or the new one, and one after it returned
/// leaves the new one (only when the directory could not be synced, which is a level-3 log line, may it still leave the
/// old). On false the old file stands and nothing else is left behind; `error` names the step, the path and the
/// system's text.
///
/// The directory must exist. What a killed process left under the temporary name is used up by the next replacement.
/// Writers of one file exclude each other, across threads and processes; the last one wins. Any thread.
bool replaceFile(const std::string& path, std::string_view contents, mode_t mode, std::string& error);

/// Brings the file at `path`, and its name, to the disk: from then on a power cut leaves it. Throws std::system_error.
/// Any thread.
void syncFile(const std::string& path);

}  // namespace KxNCommon

// How one line of the log looks.
#pragma once

#include <ctime>
#include <memory_resource>
#include <string>
#include <string_view>

namespace KxNLogLine {

/// What stands before the message.
enum class Prefix {
    Journal,   ///< the priority as "<N>" (sd-daemon(3)); the journal adds time and program itself
    Timestamp  ///< UTC in ISO 8601 with milliseconds, then the level as a word
};

void appendPrefix(std::pmr::string& line, Prefix prefix, int level, const timespec& utc);

/// Appends `text` so that it stays on one line and a terminal obeys nothing in it: control characters and bytes that
/// are not UTF-8 are written as "\n", "\r", "\t" or "\xHH".
void appendEscaped(std::pmr::string& line, std::string_view text);

}  // namespace KxNLogLine

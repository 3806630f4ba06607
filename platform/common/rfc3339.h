// Points in time as text (RFC 3339), in UTC.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace KxNCommon {

using WallTime = std::chrono::sys_time<std::chrono::milliseconds>;

/// "2026-11-24T08:30:00.123Z".
std::string formatTime(WallTime time);

/// Reads any RFC 3339 text, with any offset; what is finer than a millisecond is cut off. Null for other texts.
std::optional<WallTime> parseTime(std::string_view text);

/// Now, by the system's clock.
inline WallTime wallNow() {
    return std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
}

}  // namespace KxNCommon

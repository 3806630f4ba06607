// Points in time as text (RFC 3339), in UTC.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace KxNCommon {

/// A point in time of the years 0 to 9999, which a single number of nanoseconds cannot tell.
struct Moment {
    std::chrono::sys_seconds second;
    std::chrono::nanoseconds fraction;  ///< behind it, less than a second
};

/// Reads any RFC 3339 text, with any offset; what is finer than a nanosecond is cut off. Null for other texts.
std::optional<Moment> parseMoment(std::string_view text);

/// "2026-11-24T08:30:00.123Z" for 3 `digits` behind the second, 1 to 9.
std::string formatMoment(const Moment& moment, int digits);

using WallTime = std::chrono::sys_time<std::chrono::milliseconds>;

/// The same to the millisecond.
std::optional<WallTime> parseTime(std::string_view text);
std::string formatTime(WallTime time);

/// Now, by the system's clock.
inline WallTime wallNow() {
    return std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
}

}  // namespace KxNCommon

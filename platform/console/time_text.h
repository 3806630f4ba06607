// Times as the console writes them.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>

#include "platform/common/rfc3339.h"

namespace KxNConsole {

/// RFC 3339 with milliseconds, of milliseconds since the Unix epoch.
inline std::string timeText(std::int64_t utcMilliseconds) {
    return KxNCommon::formatTime(KxNCommon::WallTime(std::chrono::milliseconds(utcMilliseconds)));
}

/// The same with nanoseconds, of nanoseconds since the Unix epoch.
inline std::string nanosecondText(std::int64_t utcNanoseconds) {
    std::array<char, 16> fraction{};
    std::snprintf(fraction.data(), fraction.size(), ".%09dZ", static_cast<int>(utcNanoseconds % 1'000'000'000));
    std::string text = timeText(utcNanoseconds / 1'000'000);
    return text.replace(text.rfind('.'), text.npos, fraction.data());
}

}  // namespace KxNConsole

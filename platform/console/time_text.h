// Times as the console writes them.
#pragma once

#include <time.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>

namespace KxNConsole {

/// RFC 3339 in UTC with milliseconds, of milliseconds since the Unix epoch.
inline std::string timeText(std::int64_t utcMilliseconds) {
    const time_t seconds = utcMilliseconds / 1000;
    tm parts{};
    ::gmtime_r(&seconds, &parts);
    std::array<char, 40> text{};
    const std::size_t size = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text.data() + size, text.size() - size, ".%03dZ", static_cast<int>(utcMilliseconds % 1000));
    return text.data();
}

/// The same with nanoseconds, of nanoseconds since the Unix epoch.
inline std::string nanosecondText(std::int64_t utcNanoseconds) {
    std::array<char, 16> fraction{};
    std::snprintf(fraction.data(), fraction.size(), ".%09dZ", static_cast<int>(utcNanoseconds % 1'000'000'000));
    std::string text = timeText(utcNanoseconds / 1'000'000);
    return text.replace(text.rfind('.'), text.npos, fraction.data());
}

}  // namespace KxNConsole

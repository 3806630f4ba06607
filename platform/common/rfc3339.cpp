#include "platform/common/rfc3339.h"

#include <cstdio>

namespace KxNCommon {

using namespace std::chrono;

namespace {

/// Takes exactly `count` digits off the front of `text`.
std::optional<int> takeDigits(std::string_view& text, std::size_t count) {
    int number = 0;
    if (text.size() < count) {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < count; ++i) {
        if (text[i] < '0' || text[i] > '9') {
            return std::nullopt;
        }
        number = number * 10 + (text[i] - '0');
    }
    text.remove_prefix(count);
    return number;
}

bool take(std::string_view& text, std::string_view allowed) {
    if (text.empty() || allowed.find(text.front()) == std::string_view::npos) {
        return false;
    }
    text.remove_prefix(1);
    return true;
}

/// The milliseconds of a fraction that may stand there.
std::optional<milliseconds> takeFraction(std::string_view& text) {
    if (!take(text, ".")) {
        return 0ms;
    }
    const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
    int value = 0;
    for (std::size_t i = 0; i < 3; ++i) {
        value = value * 10 + (i < digits ? text[i] - '0' : 0);
    }
    text.remove_prefix(digits);
    return digits > 0 ? std::optional(milliseconds(value)) : std::nullopt;
}

/// What is to be taken away to come to UTC.
std::optional<minutes> takeOffset(std::string_view& text) {
    if (take(text, "Zz")) {
        return 0min;
    }
    const bool isBehind = text.starts_with('-');
    if (!take(text, "+-")) {
        return std::nullopt;
    }
    const auto hour = takeDigits(text, 2);
    const bool hasColon = take(text, ":");
    const auto minute = takeDigits(text, 2);
    if (!hour || !hasColon || !minute || *hour > 23 || *minute > 59) {
        return std::nullopt;
    }
    const minutes offset = hours(*hour) + minutes(*minute);
    return isBehind ? -offset : offset;
}

}  // namespace

std::string formatTime(WallTime time) {
    const sys_days day = floor<days>(time);
    const year_month_day date(day);
    const hh_mm_ss clock(time - day);
    char text[48];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()), static_cast<int>(clock.subseconds().count()));
    return text;
}

std::optional<WallTime> parseTime(std::string_view text) {
    const auto yearNumber = takeDigits(text, 4);
    const bool hasDash = take(text, "-");
    const auto monthNumber = takeDigits(text, 2);
    const bool hasSecondDash = take(text, "-");
    const auto dayNumber = takeDigits(text, 2);
    const bool hasT = take(text, "Tt ");
    const auto hour = takeDigits(text, 2);
    const bool hasColon = take(text, ":");
    const auto minute = takeDigits(text, 2);
    const bool hasSecondColon = take(text, ":");
    const auto second = takeDigits(text, 2);
    if (!yearNumber || !hasDash || !monthNumber || !hasSecondDash || !dayNumber || !hasT || !hour || !hasColon ||
        !minute || !hasSecondColon || !second) {
        return std::nullopt;
    }
    const auto fraction = takeFraction(text);
    const auto offset = takeOffset(text);
    const year_month_day date(year(*yearNumber), month(static_cast<unsigned>(*monthNumber)),
                              day(static_cast<unsigned>(*dayNumber)));
    if (!fraction || !offset || !text.empty() || !date.ok() || *hour > 23 || *minute > 59 || *second > 60) {
        return std::nullopt;
    }
    return WallTime(sys_days(date)) + hours(*hour) + minutes(*minute) + seconds(*second) + *fraction - *offset;
}

}  // namespace KxNCommon

#include "platform/common/rfc3339.h"

#include <array>
#include <cstdio>

namespace KxNCommon {

using namespace std::chrono;

namespace {

/// Takes exactly `count` digits off the front of `text`; -1 when they are not there.
int takeNumber(std::string_view& text, std::size_t count) {
    if (text.size() < count) {
        return -1;
    }
    int number = 0;
    for (const char c : text.substr(0, count)) {
        if (c < '0' || c > '9') {
            return -1;
        }
        number = number * 10 + (c - '0');
    }
    text.remove_prefix(count);
    return number;
}

bool takeOneOf(std::string_view& text, std::string_view allowed) {
    if (text.empty() || allowed.find(text.front()) == std::string_view::npos) {
        return false;
    }
    text.remove_prefix(1);
    return true;
}

/// The fraction of a second that may stand there.
std::optional<nanoseconds> takeFraction(std::string_view& text) {
    if (!takeOneOf(text, ".")) {
        return 0ns;
    }
    const std::size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
    nanoseconds::rep value = 0;
    nanoseconds::rep unit = 100'000'000;
    for (const char digit : text.substr(0, digits)) {
        value += unit * (digit - '0');
        unit /= 10;
    }
    text.remove_prefix(digits);
    return digits > 0 ? std::optional(nanoseconds(value)) : std::nullopt;
}

/// What is to be taken away to come to UTC. It ends the text.
std::optional<minutes> takeOffset(std::string_view text) {
    if (takeOneOf(text, "Zz")) {
        return text.empty() ? std::optional(0min) : std::nullopt;
    }
    const bool isBehind = text.starts_with('-');
    if (!takeOneOf(text, "+-")) {
        return std::nullopt;
    }
    const int hour = takeNumber(text, 2);
    const bool hasColon = takeOneOf(text, ":");
    const int minute = takeNumber(text, 2);
    if (hour < 0 || hour > 23 || !hasColon || minute < 0 || minute > 59 || !text.empty()) {
        return std::nullopt;
    }
    const minutes offset = hours(hour) + minutes(minute);
    return isBehind ? -offset : offset;
}

}  // namespace

std::optional<Moment> parseMoment(std::string_view text) {
    constexpr std::array<std::string_view, 6> BEHIND = {"-", "-", "Tt ", ":", ":", ""};
    std::array<int, BEHIND.size()> fields{};
    for (std::size_t i = 0; i < fields.size(); ++i) {
        fields[i] = takeNumber(text, i == 0 ? 4 : 2);
        if (fields[i] < 0 || (!BEHIND[i].empty() && !takeOneOf(text, BEHIND[i]))) {
            return std::nullopt;
        }
    }
    const auto [yearNumber, monthNumber, dayNumber, hour, minute, second] = fields;
    const year_month_day date(year(yearNumber), month(static_cast<unsigned>(monthNumber)),
                              day(static_cast<unsigned>(dayNumber)));
    const auto fraction = takeFraction(text);
    const auto offset = takeOffset(text);
    if (!date.ok() || hour > 23 || minute > 59 || second > 60 || !fraction || !offset) {  // 60 is a leap second
        return std::nullopt;
    }
    return Moment{sys_days(date) + hours(hour) + minutes(minute) + seconds(second) - *offset, *fraction};
}

std::string formatMoment(const Moment& moment, int digits) {
    const sys_days day = floor<days>(moment.second);
    const year_month_day date(day);
    const hh_mm_ss clock(moment.second - day);
    nanoseconds::rep fraction = moment.fraction.count();
    for (int i = digits; i < 9; ++i) {
        fraction /= 10;
    }
    std::array<char, 80> text;
    const int size =
        std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d.%0*lldZ", static_cast<int>(date.year()),
                      static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                      static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                      static_cast<int>(clock.seconds().count()), digits, static_cast<long long>(fraction));
    return {text.data(), static_cast<std::size_t>(size)};
}

std::optional<WallTime> parseTime(std::string_view text) {
    const auto moment = parseMoment(text);
    return moment ? std::optional(moment->second + floor<milliseconds>(moment->fraction)) : std::nullopt;
}

std::string formatTime(WallTime time) {
    const sys_seconds second = floor<seconds>(time);
    return formatMoment({second, time - second}, 3);
}

}  // namespace KxNCommon

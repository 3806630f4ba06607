#include "platform/container_runtime/logs/entry/log_entry.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>

namespace KxNContainer {

namespace {

using std::chrono::nanoseconds;

/// Takes `digits` digits off the front of `text`; -1 when they are not there.
int takeNumber(std::string_view& text, std::size_t digits) {
    if (text.size() < digits) {
        return -1;
    }
    int number = 0;
    for (const char c : text.substr(0, digits)) {
        if (c < '0' || c > '9') {
            return -1;
        }
        number = number * 10 + (c - '0');
    }
    text.remove_prefix(digits);
    return number;
}

bool takePrefix(std::string_view& text, std::string_view prefix) {
    const bool isThere = text.starts_with(prefix);
    text.remove_prefix(isThere ? prefix.size() : 0);
    return isThere;
}

/// Takes "Z" or an offset, which has to be all that is left. None when it is something else.
std::optional<std::chrono::minutes> takeOffset(std::string_view text) {
    if (text == "Z") {
        return std::chrono::minutes(0);
    }
    if (text.size() != 6 || (text[0] != '+' && text[0] != '-') || text[3] != ':') {
        return std::nullopt;
    }
    const int sign = text[0] == '+' ? 1 : -1;
    text.remove_prefix(1);
    const int hours = takeNumber(text, 2);
    text.remove_prefix(1);
    const int minutes = takeNumber(text, 2);
    if (hours < 0 || hours > 23 || minutes < 0 || minutes > 59) {
        return std::nullopt;
    }
    return std::chrono::minutes(sign * (hours * 60 + minutes));
}

/// Takes ".DIGITS", which need not be there.
nanoseconds takeFraction(std::string_view& text) {
    if (!text.starts_with('.')) {
        return nanoseconds(0);
    }
    text.remove_prefix(1);
    nanoseconds::rep fraction = 0;
    for (nanoseconds::rep unit = 100'000'000; !text.empty() && text.front() >= '0' && text.front() <= '9'; unit /= 10) {
        fraction += unit * (text.front() - '0');
        text.remove_prefix(1);
    }
    return nanoseconds(fraction);
}

}  // namespace

std::optional<LogTime> parseLogTime(std::string_view text) {
    std::array<int, 6> fields{};
    constexpr std::array<std::string_view, 6> BEHIND = {"-", "-", "T", ":", ":", ""};
    for (std::size_t index = 0; index < fields.size(); ++index) {
        fields[index] = takeNumber(text, index == 0 ? 4 : 2);
        if (fields[index] < 0 || !takePrefix(text, BEHIND[index])) {
            return std::nullopt;
        }
    }
    const auto [year, month, day, hour, minute, second] = fields;
    const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                                           std::chrono::day(static_cast<unsigned>(day))};
    // Years that nanoseconds in 64 bits can tell, and a leap second.
    if (!date.ok() || year < 1970 || year > 2261 || hour > 23 || minute > 59 || second > 60) {
        return std::nullopt;
    }
    const nanoseconds fraction = takeFraction(text);
    const auto offset = takeOffset(text);
    if (!offset) {
        return std::nullopt;
    }
    return (std::chrono::sys_days(date).time_since_epoch() + std::chrono::hours(hour) + std::chrono::minutes(minute) +
            std::chrono::seconds(second) + fraction - *offset)
        .count();
}

std::string formatLogTime(LogTime time) {
    const std::chrono::sys_time<nanoseconds> point{nanoseconds(time)};
    const auto day = std::chrono::floor<std::chrono::days>(point);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss clock(point - day);
    std::array<char, 40> text{};
    const int size =
        std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d.%09dZ", static_cast<int>(date.year()),
                      static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                      static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                      static_cast<int>(clock.seconds().count()), static_cast<int>(clock.subseconds().count()));
    return {text.data(), static_cast<std::size_t>(size)};
}

LogTime toLogTime(std::int64_t seconds) {
    constexpr std::int64_t NANOSECONDS = 1'000'000'000;
    constexpr std::int64_t LIMIT = std::numeric_limits<LogTime>::max() / NANOSECONDS;
    return std::clamp(seconds, -LIMIT, LIMIT) * NANOSECONDS;
}

/// What has no time that can be read is wanted: output in doubt is better than output lost.
bool LogRange::wantsTime(std::string_view timeText) const {
    if (!hasTimes()) {
        return true;
    }
    const auto time = parseLogTime(timeText);
    return !time || ((!since || *time >= *since) && (!until || *time < *until));
}

bool LogFilter::take(LogEntry& entry) {
    Line& line = lines[indexOf(entry.output)];
    entry.beginsLine = !line.isOpen;
    if (entry.beginsLine) {
        line.isWanted = range.wants(entry.output) && range.wantsTime(entry.timeText);
    }
    line.isOpen = !entry.endsLine();
    return line.isWanted;
}

}  // namespace KxNContainer

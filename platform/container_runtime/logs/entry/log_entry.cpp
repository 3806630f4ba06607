#include "platform/container_runtime/logs/entry/log_entry.h"

#include <algorithm>
#include <chrono>

#include "platform/common/rfc3339.h"

namespace KxNContainer {

namespace {

constexpr std::int64_t NANOSECONDS = 1'000'000'000;
constexpr std::int64_t LAST_SECOND = std::numeric_limits<LogTime>::max() / NANOSECONDS;

}  // namespace

std::optional<LogTime> parseLogTime(std::string_view text) {
    const auto moment = KxNCommon::parseMoment(text);
    const std::int64_t second = moment ? moment->second.time_since_epoch().count() : -1;
    if (second < 0 || second >= LAST_SECOND) {
        return std::nullopt;
    }
    return second * NANOSECONDS + moment->fraction.count();
}

std::string formatLogTime(LogTime time) {
    const std::chrono::sys_time<std::chrono::nanoseconds> point{std::chrono::nanoseconds(time)};
    const auto second = std::chrono::floor<std::chrono::seconds>(point);
    return KxNCommon::formatMoment({second, point - second}, 9);
}

LogTime toLogTime(std::int64_t seconds) {
    return std::clamp(seconds, -LAST_SECOND, LAST_SECOND) * NANOSECONDS;
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

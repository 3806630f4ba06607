// What a container wrote, as its log keeps it: entries with a time and the output that they came from.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

namespace KxNContainer {

/// Nanoseconds since the Unix epoch.
using LogTime = std::int64_t;

enum class LogOutput : std::uint8_t { standard = 0, errors = 1 };
constexpr std::size_t LOG_OUTPUTS = 2;

constexpr std::size_t indexOf(LogOutput output) {
    return static_cast<std::size_t>(output);
}

/// A line, or a piece of one: what writes the log cuts long lines where its buffer ends.
struct LogEntry {
    LogOutput output = LogOutput::standard;
    std::string_view timeText;  ///< RFC 3339 with nanoseconds
    std::string_view text;      ///< as it was written; ends with a newline exactly when the line ends here
    bool beginsLine = true;     ///< of its output

    bool endsLine() const { return !text.empty() && text.back() == '\n'; }
};

/// A time as RFC 3339 writes it, with any number of digits behind the second. None for anything else, for times before
/// 1970, and for those that the number cannot tell (from 2262 on).
std::optional<LogTime> parseLogTime(std::string_view text);
std::string formatLogTime(LogTime time);

/// The first and the last time for those beyond.
LogTime toLogTime(std::int64_t seconds);

/// What of a log is wanted.
struct LogRange {
    static constexpr std::uint64_t ALL = std::numeric_limits<std::uint64_t>::max();

    std::array<bool, LOG_OUTPUTS> wantsOutput{true, true};
    std::uint64_t tail = ALL;      ///< so many lines that are there already, and all that follow
    std::optional<LogTime> since;  ///< lines that begin then or later
    std::optional<LogTime> until;  ///< lines that begin before
    bool hasTimestamps = false;    ///< each line is to begin with its time

    bool hasTimes() const { return since || until; }
    bool wants(LogOutput output) const { return wantsOutput[indexOf(output)]; }
    bool wantsTime(std::string_view timeText) const;
};

/// Tells where lines begin, and chooses those of a range: all pieces of a line, or none.
class LogFilter {
public:
    explicit LogFilter(const LogRange& wanted) : range(wanted) {}

    /// Whether `entry`, the next one of the log, is wanted. Sets its `beginsLine`.
    bool take(LogEntry& entry);

private:
    struct Line {
        bool isOpen = false;  ///< the last piece was not its end
        bool isWanted = true;
    };

    LogRange range;
    std::array<Line, LOG_OUTPUTS> lines{};
};

}  // namespace KxNContainer

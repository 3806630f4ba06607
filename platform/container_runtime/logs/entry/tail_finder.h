// Where the last lines of a log begin.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/container_runtime/logs/entry/log_entry.h"

namespace KxNContainer {

/// Told of the entries of a log from the last one backwards, each with its place, it finds where the last lines of a
/// range begin, for each output by itself, as the pieces of one's lines may lie between those of the other's. `Place`
/// is ordered.
template <class Place>
class TailFinder {
public:
    /// `isEnded`: a line without an end that stands at the end of the log is its last line. Otherwise it belongs to
    /// what follows.
    TailFinder(const LogRange& wanted, const Place& end, bool isEnded)
        : range(wanted), hasEnded(isEnded), begins{end, end} {}

    void take(LogOutput output, bool isPartial, std::string_view timeText, const Place& place) {
        Tail& tail = tails[indexOf(output)];
        if (!range.wants(output) || tail.isComplete) {
            return;
        }
        const bool endsLine = !isPartial || (!tail.isSeen && hasEnded);
        const bool isOfOpenLine = isPartial && (tail.isOpen || !tail.isSeen);
        tail.isSeen = true;
        if (endsLine && count == range.tail) {
            tail.isComplete = true;
        } else if (endsLine ? range.wantsTime(timeText) : isOfOpenLine) {
            count += endsLine ? 1 : 0;
            tail.isOpen = true;
            begins[indexOf(output)] = place;
        }
    }

    /// Nothing before can belong to the last lines.
    bool isDone() const {
        return count == range.tail && (!tails[0].isOpen || tails[0].isComplete) &&
               (!tails[1].isOpen || tails[1].isComplete);
    }
    /// All lines are there, but maybe not the beginning of one that was written in pieces.
    bool hasAllLines() const { return count == range.tail; }

    const std::array<Place, LOG_OUTPUTS>& lineBegins() const { return begins; }

private:
    struct Tail {
        bool isSeen = false;
        bool isOpen = false;      ///< a wanted line ends here or behind, whose beginning may be before
        bool isComplete = false;  ///< nothing before is wanted
    };

    const LogRange& range;
    const bool hasEnded;
    std::uint64_t count = 0;
    std::array<Place, LOG_OUTPUTS> begins;
    std::array<Tail, LOG_OUTPUTS> tails{};
};

}  // namespace KxNContainer

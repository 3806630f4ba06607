// What happened lately, for those who follow it.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace KxNConsole {

struct Event {
    const char* kind;  ///< a constant
    std::string action;
    std::string name;
    std::int64_t utcMilliseconds;
};

/// Keeps the last events and numbers them; the numbers go on over restarts of the process, as long as the clock does.
/// Any thread.
class EventRing {
public:
    static constexpr std::size_t CAPACITY = 4096;

    /// The events of this process have numbers above `start`.
    explicit EventRing(std::uint64_t start) : last(start) {}

    void add(Event event);
    /// Tells everybody who follows now to ask for everything anew.
    void relist();

    /// How far somebody has got.
    struct Position {
        std::uint64_t seq;
        std::uint64_t relists;
        bool hasMissed;  ///< not all that followed is kept
    };
    /// Where somebody begins who has got everything up to the number `after`: none for from now on, 0 for all that is
    /// kept.
    Position begin(std::optional<std::int64_t> after) const;

    /// Waits for what lies behind `position` and moves on behind it. Gives it as messages, which are JSON texts; none
    /// when `isOver` became true, which is looked at again after each `wake`.
    std::vector<std::string> next(Position& position, const std::function<bool()>& isOver);

    /// Has everybody who waits look whether that is over.
    void wake();

private:
    std::string write(std::uint64_t seq) const;
    std::uint64_t first() const { return last - kept.size() + 1; }

    mutable std::mutex mutex;
    std::condition_variable changed;
    std::deque<Event> kept;  // the last of them has the number `last`
    std::uint64_t last;
    std::uint64_t relists = 0;
};

}  // namespace KxNConsole

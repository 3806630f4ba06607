// A container's log in the journal of this machine.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/container_runtime/logs/entry/log_reader.h"
#include "platform/container_runtime/logs/journal/journal_library.h"
#include "platform/container_runtime/logs/watch/log_follower.h"

namespace KxNContainer {

class JournalReader final : public LogReader {
public:
    /// As FileReader's. The cursor is one of the journal's own.
    JournalReader(const std::string& containerId, std::shared_ptr<FollowedLog> followed, bool endsWithRun,
                  const LogRange& range, const std::string& cursor);

    LogStep next() override;
    bool wait(const KxNNet::Cancellation& cancellation, std::chrono::milliseconds longest) override;
    std::string cursor() override { return lastCursor; }

private:
    void beginBehind(const std::string& cursor);
    void beginWithTail(const LogRange& range);
    std::optional<LogEntry> takeEntry();
    void readHead(LogEntry& entry, bool& isPartial);
    std::string_view field(const char* name);
    bool advance();
    bool lookAtFiles();
    void takeCursor();

    const JournalLibrary& library;
    LogFollower follower;
    Journal journal;

    bool isOnEntry = false;  ///< the journal stands on an entry that has not been given
    std::string lastCursor;  ///< of the last entry that was given or passed over
    std::int64_t place = 0;  ///< of the entry, counted from the end that the journal had at first
    std::array<std::int64_t, LOG_OUTPUTS> begins{};
    std::uint64_t readUpTo;  ///< microseconds since the Unix epoch: all entries up to then have been read
    bool isSynchronised = false;
    std::deque<LogGap> gaps;
    std::string time;
    std::string text;
};

}  // namespace KxNContainer

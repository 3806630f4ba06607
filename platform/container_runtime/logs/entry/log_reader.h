// A container's log, read from where it is kept.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/container_runtime/logs/entry/log_entry.h"
#include "platform/net/cancellation.h"

namespace KxNContainer {

/// A part of a log that cannot be read any more.
struct LogGap {
    std::optional<std::uint64_t> bytes;  ///< none where that is not known
    const char* reason = "";
};

struct LogStep {
    enum class Kind {
        entry,  ///< `LogReader::entry` holds the next one
        gap,    ///< something is missing here
        waits,  ///< this is all that there is by now
        ended,  ///< and there will be no more, unless the container is started again
    } kind;
    LogEntry entry{};
    LogGap gap{};
};

/// Gives the entries of a log one by one, of all outputs and times. Errors of the system are exceptions
/// (std::system_error). One thread.
class LogReader {
public:
    /// For a wait that no time ends.
    static constexpr std::chrono::milliseconds LONGEST_WAIT = std::chrono::hours(1);

    LogReader() = default;
    LogReader(const LogReader&) = delete;
    LogReader& operator=(const LogReader&) = delete;
    virtual ~LogReader() = default;

    /// Never waits. What an entry refers to is valid until the next call.
    virtual LogStep next() = 0;

    /// Waits until the log may have grown or ended, which it may also say without need, until `cancellation` or until
    /// `longest` has passed. False when it was that.
    virtual bool wait(const KxNNet::Cancellation& cancellation, std::chrono::milliseconds longest) = 0;

    /// The place behind the last entry that `next` gave, as a text.
    virtual std::string cursor() = 0;
};

}  // namespace KxNContainer

// A container's log in files of the kind that conmon(8) writes.
#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "platform/container_runtime/logs/entry/log_reader.h"
#include "platform/container_runtime/logs/file/entry_parser.h"
#include "platform/container_runtime/logs/watch/log_follower.h"

namespace KxNContainer {

class FileReader final : public LogReader {
public:
    /// Reads the log of the container with that id at `path`, or the files of `followed`, if there is such a log, as it
    /// grows: to the end of the container's run or, without `endsWithRun`, over all runs. Begins with the last lines of
    /// `range`, or behind `cursor` if that is not empty. Throws std::system_error when there is no such log,
    /// std::invalid_argument for a cursor that is none.
    FileReader(const std::string& containerId, const std::string& path, std::shared_ptr<FollowedLog> followed,
               bool endsWithRun, const LogRange& range, const std::string& cursor);

    LogStep next() override;
    bool wait(const KxNNet::Cancellation& cancellation, std::chrono::milliseconds longest) override;
    std::string cursor() override;

private:
    struct Place {
        std::uint64_t number = 0;  ///< of the file
        off_t offset = 0;
        bool operator<(const Place& other) const {
            return std::tie(number, offset) < std::tie(other.number, other.offset);
        }
    };

    void beginBehind(const std::string& cursor, const std::vector<FollowedLog::File>& files);
    void beginWithTail(const LogRange& range, const std::vector<FollowedLog::File>& files);
    void enter(const FollowedLog::File& file, off_t at);
    std::optional<LogEntry> takeEntry(bool isAll);
    bool fill();
    void takeCuts(const LogFile::Look& look);
    void addGap(const std::optional<std::uint64_t>& bytes, const char* reason);
    bool goOn();

    LogFollower follower;

    FollowedLog::File current;
    off_t offset = 0;  ///< of `rest` in the file
    std::size_t knownCuts = 0;
    std::vector<char> block;
    std::string_view rest;    ///< of the block
    bool hasAll = false;      ///< no more comes into this file by now
    bool hasNext = false;     ///< nor ever: there is another one, and this one has been read to its end
    bool isRunOver = false;   ///< it was when the file was looked at last
    bool isSkipping = false;  ///< the rest of an entry that is not wanted
    EntryParser parser;
    std::array<Place, LOG_OUTPUTS> begins{};
    std::deque<LogGap> gaps;
};

}  // namespace KxNContainer

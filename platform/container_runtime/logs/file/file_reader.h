// A container's log in files of the kind that conmon(8) writes.
#pragma once

#include <compare>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/container_runtime/logs/file/entry_parser.h"
#include "platform/container_runtime/logs/file/followed_log.h"
#include "platform/container_runtime/logs/log_reader.h"

namespace KxNContainer {

/// What a reader is to read.
struct FileReading {
    std::string containerId;
    std::string path;
    std::shared_ptr<FollowedLog> log;  ///< to follow it; none to read what is there
    bool endsWithRun = false;          ///< with the run of the container that is under way, if one is
};

class FileReader final : public LogReader {
public:
    /// Begins with the last lines of `range`, or behind `cursor` if that is not empty. Throws std::system_error when
    /// there is no such log, std::invalid_argument for a cursor that is none.
    FileReader(FileReading what, const LogRange& range, const std::string& cursor);
    ~FileReader() override;

    LogStep next() override;
    bool wait(const KxNNet::Cancellation& cancellation, std::chrono::milliseconds longest) override;
    std::string cursor() override;

    static bool isCursor(std::string_view text);

private:
    struct Place {
        std::uint64_t number = 0;  ///< of the file
        off_t offset = 0;
        auto operator<=>(const Place&) const = default;
    };

    std::vector<FollowedLog::File> openFiles();
    void beginBehind(const std::string& cursor, const std::vector<FollowedLog::File>& files);
    void beginWithTail(const LogRange& range, const std::vector<FollowedLog::File>& files);
    void enter(const FollowedLog::File& file, off_t at);
    std::optional<LogEntry> takeEntry(bool isAll);
    bool fill();
    void takeCuts(const LogFile::Look& look);
    void addGap(const std::optional<std::uint64_t>& bytes, const char* reason);
    bool isRunOver() const;
    bool goOn();

    const FileReading reading;
    std::uint64_t run = 0;  ///< the last one to be read, 0 for no end
    LogBell bell;

    FollowedLog::File current;
    off_t offset = 0;  ///< of `rest` in the file
    std::size_t knownCuts = 0;
    std::vector<char> block;
    std::string_view rest;    ///< of the block
    bool hasAll = false;      ///< no more comes into this file by now
    bool hasNext = false;     ///< nor ever: there is another one, and this one has been read to its end
    bool isSkipping = false;  ///< the rest of an entry that is not wanted
    EntryParser parser;
    std::array<Place, LOG_OUTPUTS> begins{};
    std::deque<LogGap> gaps;
};

}  // namespace KxNContainer

// The entries of a log file from its end backwards.
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/container_runtime/logs/file/entry_parser.h"
#include "platform/container_runtime/logs/watch/log_file.h"

namespace KxNContainer {

/// Reads in blocks, so that it costs what is taken, not what the file holds.
class BackwardEntries {
public:
    struct Entry {
        off_t offset;
        std::optional<EntryHead> head;  ///< none when the line begins with none
    };

    /// The entries before `end`, where one ends. The last one may be cut short there.
    BackwardEntries(const LogFile& readFile, off_t end);

    /// The one before the last one that was given; none at the beginning of the file. It is valid until the next call.
    std::optional<Entry> next();

private:
    std::optional<off_t> findLineBegin();
    std::string_view headAt(off_t offset);

    const LogFile& file;
    off_t lineEnd;
    off_t blockBegin;
    std::vector<char> block;
    std::vector<char> head;
};

}  // namespace KxNContainer

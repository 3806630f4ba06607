// A place in a log file, as a text.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/container_runtime/logs/watch/log_file.h"

namespace KxNContainer {

/// Inode numbers are used again as soon as a file is gone, so the place is known by what stands before it: the
/// beginning of the file and the last bytes, times with nanoseconds among them.
struct FileCursor {
    ino_t inode = 0;
    off_t offset = 0;
    std::uint64_t hash = 0;  ///< of what stands before

    static FileCursor at(const LogFile& file, off_t offset);
    static std::optional<FileCursor> parse(std::string_view text);
    std::string format() const;

    bool isIn(LogFile& file) const;
};

}  // namespace KxNContainer

// The log files that conmon(8) writes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/container_runtime/logs/entry/log_entry.h"

namespace KxNContainer {

/// The head of an entry in a file of the kind k8s-file: "TIME stdout|stderr F|P ", then the text, then a newline that
/// is the text's own after "F" (full) and none of it after "P" (partial). The format that the container runtime
/// interface of Kubernetes gives logs.
struct EntryHead {
    /// The longest one: a time with nine digits and an offset, and the words behind it.
    static constexpr std::size_t MAX_SIZE = 64;

    LogOutput output;
    bool isPartial;
    std::string_view timeText;  ///< has the form of a time
    std::size_t size;           ///< bytes of the line before its text
};

/// None when `line` does not begin with a head.
std::optional<EntryHead> parseEntryHead(std::string_view line);

/// Takes the bytes of a file apart, however they are cut.
class EntryParser {
public:
    /// Takes the next entry off the front of `bytes`. None when there is no whole one: what is left is to be offered
    /// again with more behind it. With `isAll` nothing comes behind it, or there is no room for more: then what is
    /// there of an entry becomes a piece. `beginsLine` is not set. What the entry refers to is valid as long as `bytes`
    /// and this object.
    ///
    /// A line that does not begin with a head is passed on as standard output: output in doubt is better than output
    /// lost. But what a full disk has left of a head is no output.
    std::optional<LogEntry> next(std::string_view& bytes, bool isAll);

    /// Takes a hole off the front of `bytes`, as there is one where somebody has cut the file short and what still
    /// writes to it goes on at the old place. Its size, or that of what is there of it.
    std::size_t skipHole(std::string_view& bytes) const;

    /// False inside an entry of which a piece has been given already.
    bool isBetweenEntries() const { return !isInside; }

private:
    LogEntry begin(std::string_view line);
    LogEntry finish(LogEntry entry, bool isWhole);

    bool isInside = false;   ///< of an entry of which a piece has been given
    bool isPartial = false;  ///< the entry ends without the end of its line
    LogOutput output = LogOutput::standard;
    std::string time;  ///< of the entry that a piece was given of, and of lines without one
};

}  // namespace KxNContainer

#include "platform/container_runtime/logs/file/entry_parser.h"

#include <algorithm>
#include <utility>

namespace KxNContainer {

namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

/// Every entry is looked at, so the time itself is only worked out where it is needed.
constexpr std::string_view FORM_OF_TIME = "0000-00-00T00:00:00";

bool beginsLikeTime(std::string_view text) {
    for (std::size_t index = 0; index < std::min(text.size(), FORM_OF_TIME.size()); ++index) {
        if (FORM_OF_TIME[index] == '0' ? !isDigit(text[index]) : text[index] != FORM_OF_TIME[index]) {
            return false;
        }
    }
    return true;
}

/// What is left of a head by a process that died while it wrote it.
bool isRestOfHead(std::string_view line) {
    return line.size() < EntryHead::MAX_SIZE && beginsLikeTime(line) && !parseEntryHead(line);
}

/// Where a head begins in `line` behind the rest of another one, which is what a write to a full disk leaves.
std::size_t findHeadBehindRest(std::string_view line) {
    for (std::size_t index = 1; index < std::min(line.size(), EntryHead::MAX_SIZE); ++index) {
        if (parseEntryHead(line.substr(index))) {
            return index;
        }
    }
    return 0;
}

}  // namespace

std::optional<EntryHead> parseEntryHead(std::string_view line) {
    constexpr std::string_view WORDS = " stdout F ";
    const std::size_t timeEnd = line.substr(0, EntryHead::MAX_SIZE - WORDS.size()).find(' ');
    if (timeEnd == std::string_view::npos || line.size() - timeEnd < WORDS.size()) {
        return std::nullopt;
    }
    const std::string_view words = line.substr(timeEnd, WORDS.size());
    const bool isStandard = words.starts_with(" stdout ");
    const char tag = words[8];
    if ((!isStandard && !words.starts_with(" stderr ")) || (tag != 'F' && tag != 'P') || words[9] != ' ' ||
        timeEnd <= FORM_OF_TIME.size() || !beginsLikeTime(line)) {
        return std::nullopt;
    }
    return EntryHead{isStandard ? LogOutput::standard : LogOutput::errors, tag == 'P', line.substr(0, timeEnd),
                     timeEnd + WORDS.size()};
}

std::size_t EntryParser::skipHole(std::string_view& bytes) const {
    const std::size_t size = isInside ? 0 : std::min(bytes.find_first_not_of('\0'), bytes.size());
    bytes.remove_prefix(size);
    return size;
}

/// The beginning of an entry, or all of it.
LogEntry EntryParser::begin(std::string_view line) {
    auto head = parseEntryHead(line);
    if (!head) {
        line.remove_prefix(findHeadBehindRest(line));
        head = parseEntryHead(line);
    }
    isPartial = head && head->isPartial;
    output = head ? head->output : LogOutput::standard;
    return {output, head ? head->timeText : std::string_view(time), line.substr(head ? head->size : 0), true};
}

LogEntry EntryParser::finish(LogEntry entry, bool isWhole) {
    if (isWhole && isPartial) {
        entry.text.remove_suffix(1);  // the newline is the file's own
    }
    if (!isWhole && entry.timeText.data() != time.data()) {
        time = entry.timeText;
        entry.timeText = time;
    }
    isInside = !isWhole;
    return entry;
}

std::optional<LogEntry> EntryParser::next(std::string_view& bytes, bool isAll) {
    const std::size_t lineEnd = bytes.find('\n');
    const bool isWhole = lineEnd != std::string_view::npos;
    if (bytes.empty() || (!isWhole && !isAll)) {
        return std::nullopt;
    }
    const std::string_view line = bytes.substr(0, isWhole ? lineEnd + 1 : bytes.size());
    bytes.remove_prefix(line.size());
    if (!isInside && !isWhole && isRestOfHead(line)) {
        return std::nullopt;
    }
    return finish(isInside ? LogEntry{output, time, line, false} : begin(line), isWhole);
}

}  // namespace KxNContainer

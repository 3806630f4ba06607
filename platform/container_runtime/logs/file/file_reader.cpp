#include "platform/container_runtime/logs/file/file_reader.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "platform/common/system_text.h"
#include "platform/container_runtime/logs/entry/tail_finder.h"
#include "platform/container_runtime/logs/file/file_cursor.h"
#include "platform/container_runtime/logs/file/file_tail.h"

namespace KxNContainer {

namespace {

constexpr std::size_t READ_BLOCK_SIZE = 10UL << 10;  // more than an entry of conmon(8), which cuts at 8 KiB

/// The pieces of a line lie together, but for the lines of the other output. This far the beginning of one is looked
/// for.
constexpr off_t LONGEST_SEARCH = 1L << 20;

std::vector<FollowedLog::File> openOne(const std::string& containerId, const std::string& path) {
    KxNCommon::UniqueFd file = openLogFile(path, containerId);
    if (!file) {
        throw KxNCommon::systemError("Cannot open '" + path + "'");
    }
    return {{1, std::make_shared<LogFile>(std::move(file))}};
}

}  // namespace

FileReader::FileReader(const std::string& containerId, const std::string& path, std::shared_ptr<FollowedLog> followed,
                       bool endsWithRun, const LogRange& range, const std::string& cursor)
    : follower(std::move(followed), endsWithRun) {
    const auto files = follower.log() != nullptr ? follower.log()->files() : openOne(containerId, path);
    if (!cursor.empty()) {
        beginBehind(cursor, files);
    } else {
        beginWithTail(range, files);
    }
}

void FileReader::enter(const FollowedLog::File& file, off_t at) {
    current = file;
    offset = at;
    knownCuts = file.file->look().cuts;
    rest = {};
    hasAll = false;
    hasNext = false;
    parser = {};
}

void FileReader::beginBehind(const std::string& cursor, const std::vector<FollowedLog::File>& files) {
    const auto place = FileCursor::parse(cursor);
    if (!place) {
        throw std::invalid_argument("The cursor is none of this log");
    }
    for (auto file = files.rbegin(); file != files.rend(); ++file) {
        if (place->isIn(*file->file)) {
            enter(*file, place->offset);
            return;
        }
    }
    enter(files.front(), 0);
    addGap(std::nullopt, "The log was rotated, cut short or replaced meanwhile");
}

void FileReader::beginWithTail(const LogRange& range, const std::vector<FollowedLog::File>& files) {
    if (range.tail == LogRange::ALL) {
        enter(files.back(), 0);
        return;
    }
    const bool hasEnded = follower.isRunOver();
    Place end{files.back().number, files.back().file->look().size};
    std::array<char, 1> last{'\n'};
    if (!hasEnded && end.offset > 0 && files.back().file->read(end.offset - 1, last) == 1 && last[0] != '\n') {
        const auto unfinished = BackwardEntries(*files.back().file, end.offset).next();  // is being written just now
        end.offset = unfinished ? unfinished->offset : end.offset;
    }
    TailFinder<Place> finder(range, end, hasEnded);
    std::optional<Place> allSince;
    for (auto file = files.rbegin(); file != files.rend() && !finder.isDone(); ++file) {
        BackwardEntries entries(*file->file, file == files.rbegin() ? end.offset : file->file->look().size);
        while (!finder.isDone()) {
            const auto entry = entries.next();
            if (!entry) {
                break;
            }
            const Place place{file->number, entry->offset};
            finder.take(entry->head ? entry->head->output : LogOutput::standard, entry->head && entry->head->isPartial,
                        entry->head ? entry->head->timeText : std::string_view(), place);
            if (finder.hasAllLines() && !allSince) {
                allSince = place;
            }
            if (allSince && (place.number < allSince->number || place.offset + LONGEST_SEARCH < allSince->offset)) {
                break;
            }
        }
    }
    begins = finder.lineBegins();
    const Place first = std::min(begins[0], begins[1]);
    const auto file =
        std::find_if(files.begin(), files.end(), [&](const auto& held) { return held.number == first.number; });
    enter(*file, first.offset);
}

LogStep FileReader::next() {
    while (true) {
        if (!gaps.empty()) {
            const LogGap gap = gaps.front();
            gaps.pop_front();
            return {LogStep::Kind::gap, {}, gap};
        }
        const Place place{current.number, offset};
        const bool isBeginning = parser.isBetweenEntries();
        if (const auto entry = takeEntry(hasAll || rest.size() == READ_BLOCK_SIZE)) {
            isSkipping = isBeginning ? place < begins[indexOf(entry->output)] : isSkipping;
            if (isSkipping) {
                continue;
            }
            return {LogStep::Kind::entry, *entry, {}};
        }
        if (!gaps.empty() || fill() || goOn()) {
            continue;
        }
        return {isRunOver ? LogStep::Kind::ended : LogStep::Kind::waits, {}, {}};
    }
}

std::optional<LogEntry> FileReader::takeEntry(bool isAll) {
    const std::size_t before = rest.size();
    const std::size_t hole = parser.skipHole(rest);
    const auto entry = hole > 0 ? std::nullopt : parser.next(rest, isAll);
    offset += static_cast<off_t>(before - rest.size());
    if (hole > 0) {
        addGap(hole, "The log was cut short");
    }
    return entry;
}

/// Reads what has come since. False when that is nothing.
bool FileReader::fill() {
    const bool isReplaced = follower.log() != nullptr && follower.log()->fileBehind(current.number);
    isRunOver = follower.isRunOver();  // both asked before the file is looked at for the last time
    const bool isComplete = isReplaced || isRunOver;
    const LogFile::Look look = current.file->look();
    takeCuts(look);
    const std::size_t place = rest.empty() ? 0 : static_cast<std::size_t>(rest.data() - block.data());
    block.resize(READ_BLOCK_SIZE);
    std::memmove(block.data(), block.data() + place, rest.size());
    const off_t begin = offset + static_cast<off_t>(rest.size());
    const std::size_t room =
        std::min(READ_BLOCK_SIZE - rest.size(), static_cast<std::size_t>(std::max<off_t>(look.size - begin, 0)));
    const std::size_t size = current.file->read(begin, {block.data() + rest.size(), room});
    rest = {block.data(), rest.size() + size};
    hasNext = size == 0 && isReplaced;
    if (size == 0 && isComplete && !hasAll) {
        hasAll = true;
        return true;  // what is left is an entry
    }
    return size > 0 || !gaps.empty();
}

void FileReader::takeCuts(const LogFile::Look& look) {
    if (look.cuts == knownCuts) {
        return;
    }
    for (const LogFile::Cut& cut : current.file->cutsSince(knownCuts)) {
        std::optional<std::uint64_t> bytes;
        if (offset <= cut.to) {
            bytes = static_cast<std::uint64_t>(cut.from - cut.to);
        } else if (offset < cut.from) {
            bytes = static_cast<std::uint64_t>(cut.from - offset);
        }
        addGap(bytes, "The log was cut short");
        if (offset + static_cast<off_t>(rest.size()) > cut.to) {
            offset = std::min(offset, cut.to);
            rest = {};
            parser = {};
        }
    }
    knownCuts = look.cuts;
}

void FileReader::addGap(const std::optional<std::uint64_t>& bytes, const char* reason) {
    gaps.push_back({bytes, reason});
}

/// Goes on with the next file, when this one has been read to its end.
bool FileReader::goOn() {
    const auto following = hasNext ? follower.log()->fileBehind(current.number) : std::nullopt;
    if (!following) {
        hasAll = false;
        return false;
    }
    const std::uint64_t missing = following->number - current.number - (following->file == current.file ? 0 : 1);
    if (following->file == current.file) {
        current.number = following->number;
    } else {
        enter(*following, 0);
    }
    if (missing > 0) {
        addGap(std::nullopt, "The log was rotated faster than it could be read");
    }
    return true;
}

bool FileReader::wait(const KxNNet::Cancellation& cancellation, std::chrono::milliseconds longest) {
    std::vector<char>(rest.begin(), rest.end()).swap(block);  // a stream that waits costs no memory
    rest = {block.data(), block.size()};
    return follower.wait(cancellation, longest, -1);
}

std::string FileReader::cursor() {
    return FileCursor::at(*current.file, offset).format();
}

}  // namespace KxNContainer

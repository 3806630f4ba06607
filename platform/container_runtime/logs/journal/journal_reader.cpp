#include "platform/container_runtime/logs/journal/journal_reader.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <limits>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "platform/common/system_text.h"
#include "platform/container_runtime/logs/entry/tail_finder.h"
#include "platform/container_runtime/logs/journal/mapped_files.h"

namespace KxNContainer {

namespace {

/// sd-journal tells errors as negative numbers.
int check(int result, const char* what) {
    if (result < 0) {
        throw KxNCommon::systemError(what, -result);
    }
    return result;
}

Journal openJournal(const JournalLibrary& library, const std::string& containerId) {
    constexpr const char* WHAT = "The journal cannot be read";
    const VanishingPages guard;
    sd_journal* opened = nullptr;
    check(library.open(&opened, SD_JOURNAL_LOCAL_ONLY | SD_JOURNAL_SYSTEM), WHAT);
    Journal journal(opened);
    check(library.setDataThreshold(opened, 0), WHAT);
    check(library.addMatch(opened, ("CONTAINER_ID_FULL=" + containerId).c_str(), 0), WHAT);
    check(library.getFd(opened), WHAT);  // what comes from now on is noticed
    return journal;
}

constexpr const char* VACUUMED = "The journal was vacuumed faster than it could be read";

std::uint64_t now() {
    const auto time = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(time).count());
}

}  // namespace

JournalReader::JournalReader(const std::string& containerId, std::shared_ptr<FollowedLog> followed, bool endsWithRun,
                             const LogRange& range, const std::string& cursor)
    : library(JournalLibrary::get()),
      follower(std::move(followed), endsWithRun),
      journal(openJournal(library, containerId)),
      readUpTo(now()) {
    const VanishingPages guard;
    begins.fill(std::numeric_limits<std::int64_t>::min());
    if (!cursor.empty()) {
        beginBehind(cursor);
    } else if (range.tail == LogRange::ALL) {
        check(library.seekHead(journal.get()), "The journal");
    } else {
        beginWithTail(range);
    }
}

void JournalReader::beginBehind(const std::string& cursor) {
    if (library.seekCursor(journal.get(), cursor.c_str()) < 0) {
        throw std::invalid_argument("The cursor is none of the journal's");
    }
    lastCursor = cursor;
    const bool hasPlace = advance();
    isOnEntry = hasPlace && check(library.testCursor(journal.get(), cursor.c_str()), "The journal") == 0;
    if (!hasPlace || isOnEntry) {
        gaps.push_back({std::nullopt, "The journal has been vacuumed or replaced meanwhile"});
    }
}

void JournalReader::beginWithTail(const LogRange& range) {
    check(library.seekTail(journal.get()), "The journal");
    TailFinder<std::int64_t> finder(range, 0, follower.isRunOver());
    bool hasPlace = false;
    do {
        if (check(library.previous(journal.get()), "The journal") == 0) {
            break;
        }
        hasPlace = true;
        --place;
        LogEntry entry;
        bool isPartial = false;
        readHead(entry, isPartial);
        finder.take(entry.output, isPartial, entry.timeText, place);
    } while (!finder.isDone());
    begins = finder.lineBegins();
    isOnEntry = hasPlace;
    if (!hasPlace) {
        check(library.seekHead(journal.get()), "The journal");
    }
}

bool JournalReader::advance() {
    return check(library.next(journal.get()), "The journal") > 0;
}

LogStep JournalReader::next() {
    const VanishingPages guard;
    const bool isOver = follower.isRunOver();  // asked before the journal is looked at for the last time
    while (true) {
        if (!gaps.empty()) {
            const LogGap gap = gaps.front();
            gaps.pop_front();
            return {LogStep::Kind::gap, {}, gap};
        }
        const std::uint64_t lookedAt = now();
        try {
            if (const auto entry = takeEntry()) {
                return {LogStep::Kind::entry, *entry, {}};
            }
        } catch (const std::system_error&) {
            // Who vacuums the journal takes the blocks of a file from those who read it as well.
            isOnEntry = false;
            if (!lookAtFiles()) {
                throw;
            }
            if (gaps.empty()) {
                gaps.push_back({std::nullopt, VACUUMED});
            }
            continue;
        }
        if (lookAtFiles()) {
            continue;
        }
        readUpTo = lookedAt;  // no file has gone that may have seemed to hold nothing more
        if (!isOver) {
            isSynchronised = false;
            return {LogStep::Kind::waits, {}, {}};
        }
        if (std::exchange(isSynchronised, true)) {
            return {LogStep::Kind::ended, {}, {}};
        }
        synchroniseJournal();
        lookAtFiles();
    }
}

/// The next entry that is wanted.
std::optional<LogEntry> JournalReader::takeEntry() {
    while (isOnEntry || advance()) {
        LogEntry entry;
        bool isPartial = false;
        readHead(entry, isPartial);
        const bool isWanted = place >= begins[indexOf(entry.output)];
        if (isWanted) {
            text = field("MESSAGE");
        }
        ++place;
        isOnEntry = false;
        takeCursor();
        if (!isWanted) {
            continue;
        }
        if (!isPartial && !text.ends_with('\n')) {
            text.push_back('\n');
        }
        entry.text = text;
        return entry;
    }
    return std::nullopt;
}

/// All of the entry that the journal stands on but its text.
void JournalReader::readHead(LogEntry& entry, bool& isPartial) {
    entry.output = field("PRIORITY") == "3" ? LogOutput::errors : LogOutput::standard;
    isPartial = field("CONTAINER_PARTIAL_MESSAGE") == "true";
    std::uint64_t microseconds = 0;
    check(library.getRealtime(journal.get(), &microseconds), "The journal");
    readUpTo = microseconds;
    time = formatLogTime(static_cast<LogTime>(microseconds) * 1000);
    entry.timeText = time;
}

std::string_view JournalReader::field(const char* name) {
    const void* data = nullptr;
    std::size_t size = 0;
    if (const int result = library.getData(journal.get(), name, &data, &size); result != -ENOENT) {
        check(result, "The journal");
    } else {
        return {};
    }
    const std::string_view whole(static_cast<const char*>(data), size);
    return whole.substr(std::min(whole.find('=') + 1, whole.size()));
}

bool JournalReader::wait(const KxNNet::Cancellation& cancellation, std::chrono::milliseconds longest) {
    return follower.wait(cancellation, longest, library.getFd(journal.get()));
}

/// Takes what has happened to the files of the journal; false when nothing has. It lets go of those that are gone, so
/// what is in the others has been read before.
bool JournalReader::lookAtFiles() {
    const int change = library.process(journal.get());
    std::uint64_t oldest = 0;
    if (change == SD_JOURNAL_INVALIDATE && library.getCutoff(journal.get(), &oldest, nullptr) > 0 &&
        oldest > readUpTo) {
        gaps.push_back({std::nullopt, VACUUMED});
        readUpTo = oldest;
    }
    return change > SD_JOURNAL_NOP;
}

void JournalReader::takeCursor() {
    char* cursor = nullptr;
    check(library.getCursor(journal.get(), &cursor), "The journal");
    const std::unique_ptr<char, void (*)(void*)> owned(cursor, std::free);
    lastCursor = cursor;
}

}  // namespace KxNContainer

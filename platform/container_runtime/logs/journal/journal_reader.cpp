#include "platform/container_runtime/logs/journal/journal_reader.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <limits>
#include <utility>

#include "platform/common/system_text.h"
#include "platform/container_runtime/logs/entry/tail_finder.h"

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
    sd_journal* opened = nullptr;
    check(library.open(&opened, SD_JOURNAL_LOCAL_ONLY | SD_JOURNAL_SYSTEM), WHAT);
    Journal journal(opened);
    check(library.setDataThreshold(opened, 0), WHAT);
    check(library.addMatch(opened, ("CONTAINER_ID_FULL=" + containerId).c_str(), 0), WHAT);
    check(library.getFd(opened), WHAT);  // what comes from now on is noticed
    return journal;
}

std::uint64_t now() {
    const auto time = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(time).count());
}

}  // namespace

JournalReader::JournalReader(const std::string& containerId, std::shared_ptr<FollowedLog> followed, bool endsWithRun,
                             const LogRange& range, const std::string& cursor)
    : library(JournalLibrary::get()),
      follower(std::move(followed), endsWithRun),
      journal(openJournal(library, containerId)) {
    begins.fill(std::numeric_limits<std::int64_t>::min());
    readUpTo = std::numeric_limits<std::uint64_t>::max();  // nothing was promised yet
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
    hasPlace = advance();
    isOnEntry = hasPlace && check(library.testCursor(journal.get(), cursor.c_str()), "The journal") == 0;
    if (!hasPlace || isOnEntry) {
        gaps.push_back({std::nullopt, "The journal has been vacuumed or replaced meanwhile"});
    }
}

void JournalReader::beginWithTail(const LogRange& range) {
    check(library.seekTail(journal.get()), "The journal");
    TailFinder<std::int64_t> finder(range, 0, follower.isRunOver());
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
    const bool isOver = follower.isRunOver();  // asked before the journal is looked at for the last time
    while (true) {
        if (!gaps.empty()) {
            const LogGap gap = gaps.front();
            gaps.pop_front();
            return {LogStep::Kind::gap, {}, gap};
        }
        const std::uint64_t lookedAt = now();
        if (const auto entry = takeEntry()) {
            return {LogStep::Kind::entry, *entry, {}};
        }
        readUpTo = lookedAt;
        if (!isOver) {
            isSynchronised = false;
            return {LogStep::Kind::waits, {}, {}};
        }
        if (std::exchange(isSynchronised, true)) {
            return {LogStep::Kind::ended, {}, {}};
        }
        synchroniseJournal();
        library.process(journal.get());
    }
}

/// The next entry that is wanted.
std::optional<LogEntry> JournalReader::takeEntry() {
    while (isOnEntry || advance()) {
        hasPlace = true;
        LogEntry entry;
        bool isPartial = false;
        readHead(entry, isPartial);
        const bool isWanted = place >= begins[indexOf(entry.output)];
        ++place;
        isOnEntry = false;
        if (!isWanted) {
            continue;
        }
        text = field("MESSAGE");
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
    time = formatLogTime(static_cast<LogTime>(microseconds) * 1000);
    entry.timeText = time;
}

std::string_view JournalReader::field(const char* name) {
    const void* data = nullptr;
    std::size_t size = 0;
    if (library.getData(journal.get(), name, &data, &size) < 0) {
        return {};
    }
    const std::string_view whole(static_cast<const char*>(data), size);
    return whole.substr(std::min(whole.find('=') + 1, whole.size()));
}

bool JournalReader::wait(const KxNNet::Cancellation& cancellation, std::chrono::milliseconds longest) {
    const bool hasHappened = follower.wait(cancellation, longest, library.getFd(journal.get()));
    if (library.process(journal.get()) == SD_JOURNAL_INVALIDATE) {
        noteVacuuming();
    }
    return hasHappened;
}

/// Files have come or gone.
void JournalReader::noteVacuuming() {
    std::uint64_t oldest = 0;
    if (library.getCutoff(journal.get(), &oldest, nullptr) > 0 && oldest > readUpTo) {
        gaps.push_back({std::nullopt, "The journal was vacuumed faster than it could be read"});
        readUpTo = oldest;
    }
}

std::string JournalReader::cursor() {
    char* cursor = nullptr;
    if (!hasPlace || library.getCursor(journal.get(), &cursor) < 0) {
        return {};
    }
    const std::unique_ptr<char, void (*)(void*)> owned(cursor, std::free);
    return cursor;
}

}  // namespace KxNContainer

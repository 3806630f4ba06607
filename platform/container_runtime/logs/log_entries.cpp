#include "platform/container_runtime/logs/log_entries.h"

#include <poll.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "platform/common/utf8_text.h"
#include "platform/container_runtime/logs/container_log.h"
#include "platform/container_runtime/logs/entry/log_entry.h"
#include "platform/container_runtime/logs/log_cursor.h"
#include "platform/container_runtime/podman/podman_api.h"
#include "platform/container_runtime/podman/podman_failure.h"

namespace KxNContainer {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// Entries are gathered up to this size. One more may be three times as large as a reader's block.
constexpr std::size_t BATCH_SIZE = 16UL << 10;

/// How often Podman is asked about a container that is being followed: when something has happened to the log of one
/// that does not run, without that, and where nothing tells.
constexpr milliseconds PAUSE_AFTER_EVENT{100};
constexpr milliseconds PAUSE_WITH_EVENTS{5000};
constexpr milliseconds PAUSE_WITHOUT_EVENTS{1000};

/// Entries on their way to the sink.
class Batch {
public:
    explicit Batch(KxCLogEntrySink& receiver) : sink(receiver) {}

    std::array<KxNCommon::Utf8Text, LOG_OUTPUTS> characters;

    void add(const LogEntry& entry) {
        const std::size_t begin = text.size();
        characters[indexOf(entry.output)].append(entry.text, text);
        keep(entry.output, parseLogTime(entry.timeText).value_or(lastTime), begin);
    }

    /// No more comes for now that could complete a character.
    void finishCharacters() {
        for (const LogOutput output : {LogOutput::standard, LogOutput::errors}) {
            const std::size_t begin = text.size();
            characters[indexOf(output)].finish(text);
            keep(output, lastTime, begin);
        }
    }

    bool isEmpty() const { return pieces.empty(); }
    bool isFull() const { return text.size() >= BATCH_SIZE; }

    bool give(const std::string& cursor) {
        std::vector<KxSLogEntry> entries;
        entries.reserve(pieces.size());
        for (const Piece& piece : pieces) {
            entries.push_back({piece.time, piece.output == LogOutput::errors,
                               std::string_view(text).substr(piece.begin, piece.size)});
        }
        const bool goesOn = sink.takeEntries(entries, cursor);
        std::vector<Piece>().swap(pieces);
        std::string().swap(text);
        return goesOn;
    }

private:
    struct Piece {
        LogOutput output;
        LogTime time;
        std::size_t begin;
        std::size_t size;
    };

    void keep(LogOutput output, LogTime time, std::size_t begin) {
        lastTime = time;
        if (text.size() > begin) {
            pieces.push_back({output, time, begin, text.size() - begin});
        }
    }

    KxCLogEntrySink& sink;
    std::string text;
    std::vector<Piece> pieces;
    LogTime lastTime = 0;
};

class EntryFollower {
public:
    EntryFollower(const LogTools& usedTools, KxCLogEntrySink& receiver, const KxNNet::Cancellation& cancellation)
        : tools(usedTools), sink(receiver), ending(cancellation), batch(receiver) {}

    PodmanReply run(const std::string& name, const KxSLogBegin& wanted);

private:
    void start(const ContainerLog& inspected, const KxSLogBegin& wanted);
    void open(const ContainerLog& inspected);
    void step();
    void rest(bool hasEnded);
    void wait();
    void inspect();
    void take(const ContainerLog& inspected);
    void give();
    void tellGap(const LogGap& gap);
    void tellState(KxCLogEntrySink::State now, std::int32_t code);
    std::string cursor();

    const LogTools tools;
    KxCLogEntrySink& sink;
    const KxNNet::Cancellation& ending;
    Batch batch;

    std::string containerName;
    std::string containerId;
    LogRange range;
    LogCursor begin;
    LogFilter filter{range};
    std::unique_ptr<LogSource> source;  ///< none where no log can be read, or not yet
    bool hasToldOfMissingLog = false;
    std::optional<std::pair<KxCLogEntrySink::State, std::int32_t>> state;
    std::uint64_t knownActivity = 0;
    Clock::time_point nextInspection{};
    bool isOver = false;
};

LogCursor::Kind kindOf(ContainerLog::Driver driver) {
    return driver == ContainerLog::Driver::file      ? LogCursor::Kind::file
           : driver == ContainerLog::Driver::journal ? LogCursor::Kind::journal
                                                     : LogCursor::Kind::none;
}

PodmanReply EntryFollower::run(const std::string& name, const KxSLogBegin& wanted) {
    containerName = name;
    const std::string path = "/containers/" + name + "/json";
    const Inspection inspection =
        inspectPatiently(tools.podman, path, ending, timeLimit(path, KxCCurlHandler::MethodType::GET));
    if (!inspection.container) {
        return inspection.reply.status / 100 == 2 ? PodmanReply{"Podman's answer says nothing of a container", 503}
                                                  : inspection.reply;
    }
    const auto place = wanted.cursor.empty() ? LogCursor{} : LogCursor::parse(wanted.cursor);
    if (!place) {
        return {"The cursor is not one of a log's", 400};
    }
    begin = *place;
    start(*inspection.container, wanted);
    while (!isOver && !ending.isCancelled()) {
        step();
    }
    return {"", 200};
}

void EntryFollower::start(const ContainerLog& inspected, const KxSLogBegin& wanted) {
    containerId = inspected.id;
    if (wanted.cursor.empty()) {
        range.tail = wanted.tail.value_or(LogRange::ALL);
        range.since = wanted.since ? std::optional(toLogTime(*wanted.since)) : std::nullopt;
    }
    filter = LogFilter(range);
    tellState(inspected.isRunning ? KxCLogEntrySink::RUNNING : KxCLogEntrySink::EXITED, inspected.exitCode);
    open(inspected);
    nextInspection = Clock::now() + PAUSE_WITHOUT_EVENTS;
}

void EntryFollower::open(const ContainerLog& inspected) {
    const LogCursor::Kind kind = kindOf(inspected.driver);
    if (!inspected.hasStarted && kind != LogCursor::Kind::none) {
        return;  // there will be one
    }
    const bool isOther = begin.kind != LogCursor::Kind::none && begin.kind != kind;
    try {
        source = std::make_unique<LogSource>(tools, containerName, inspected, range, isOther ? "" : begin.place,
                                             LogSource::Until::cancelled);
    } catch (const std::exception& error) {
        if (!std::exchange(hasToldOfMissingLog, true)) {
            tellGap({std::nullopt, error.what()});
        }
        return;
    }
    if (isOther) {
        tellGap({std::nullopt, "The container's log is kept elsewhere now"});
    } else {
        for (std::size_t output = 0; output < LOG_OUTPUTS; ++output) {
            std::string nothing;
            batch.characters[output].append(begin.incomplete[output], nothing);
        }
    }
    begin.kind = kind;
    knownActivity = source->activity();
}

void EntryFollower::step() {
    LogStep next = source ? source->next() : LogStep{LogStep::Kind::waits, {}, {}};
    switch (next.kind) {
        case LogStep::Kind::entry:
            if (filter.take(next.entry)) {
                batch.add(next.entry);
            }
            if (batch.isFull()) {
                give();
            }
            break;
        case LogStep::Kind::gap:
            give();
            tellGap(next.gap);
            break;
        case LogStep::Kind::waits:
        case LogStep::Kind::ended:
            rest(next.kind == LogStep::Kind::ended);
            break;
    }
}

/// All that is there by now has been read.
void EntryFollower::rest(bool hasEnded) {
    const bool isRunning = state->first == KxCLogEntrySink::RUNNING;
    if (hasEnded && isRunning) {
        batch.finishCharacters();
    }
    give();
    if (hasEnded && isRunning && source->run().exitCode) {
        tellState(KxCLogEntrySink::EXITED, *source->run().exitCode);
        nextInspection = Clock::now() + PAUSE_AFTER_EVENT;
        return;
    }
    if (isOver) {
        return;
    }
    wait();
    const bool isQuiet = source && state->first == KxCLogEntrySink::RUNNING && !source->run().hasEnded;
    if (source && source->activity() != knownActivity) {
        knownActivity = source->activity();
        nextInspection = std::min(nextInspection, Clock::now() + PAUSE_AFTER_EVENT);
    }
    if (!isQuiet && Clock::now() >= nextInspection && !ending.isCancelled()) {
        inspect();
    }
}

void EntryFollower::wait() {
    const bool isQuiet = source && state->first == KxCLogEntrySink::RUNNING && !source->run().hasEnded;
    const auto left = std::chrono::ceil<milliseconds>(nextInspection - Clock::now());
    const milliseconds longest = isQuiet ? LogReader::LONGEST_WAIT : std::max(left, milliseconds(0));
    if (source) {
        source->wait(ending, longest);
    } else {
        pollfd poll{ending.descriptor(), POLLIN, 0};
        ::poll(&poll, 1, static_cast<int>(longest.count()));
    }
}

void EntryFollower::inspect() {
    nextInspection = Clock::now() + (source ? PAUSE_WITH_EVENTS : PAUSE_WITHOUT_EVENTS);
    try {
        const Inspection inspection =
            inspectContainer(tools.podman, "/containers/" + containerId + "/json", ending, INSPECTION_TIME);
        if (inspection.container) {
            take(*inspection.container);
        } else if (inspection.reply.status == 404) {
            tellState(KxCLogEntrySink::REMOVED, 0);
            isOver = true;
        }
    } catch (const PodmanFailure&) {
        nextInspection = Clock::now() + PAUSE_WITHOUT_EVENTS;  // the log goes on without Podman
    }
}

void EntryFollower::take(const ContainerLog& inspected) {
    if (!source) {
        open(inspected);
    } else {
        source->update(inspected);
    }
    if (!inspected.isRunning) {
        tellState(KxCLogEntrySink::EXITED, inspected.exitCode);
    } else if (!source || !source->run().hasEnded) {
        tellState(KxCLogEntrySink::RUNNING, 0);
    } else {
        nextInspection = Clock::now() + PAUSE_AFTER_EVENT;  // Podman does not know yet of an end that is known here
    }
}

void EntryFollower::give() {
    if (!batch.isEmpty() && !isOver) {
        isOver = !batch.give(cursor());
    }
}

void EntryFollower::tellGap(const LogGap& gap) {
    isOver = isOver || !sink.takeGap(gap.bytes, gap.reason, cursor());
}

void EntryFollower::tellState(KxCLogEntrySink::State now, std::int32_t code) {
    const std::pair told{now, now == KxCLogEntrySink::EXITED ? code : 0};
    if (state != told && !isOver) {
        state = told;
        isOver = !sink.takeState(told.first, told.second);
    }
}

std::string EntryFollower::cursor() {
    LogCursor here;
    if (source) {
        here.kind = begin.kind;
        here.place = source->cursor();
        for (std::size_t output = 0; output < LOG_OUTPUTS; ++output) {
            here.incomplete[output] = batch.characters[output].incomplete();
        }
    }
    return here.format();
}

}  // namespace

PodmanReply followEntries(const LogTools& tools, const std::string& containerName, const KxSLogBegin& begin,
                          KxCLogEntrySink& sink, const KxNNet::Cancellation& ending) {
    return EntryFollower(tools, sink, ending).run(containerName, begin);
}

}  // namespace KxNContainer

#include "platform/container_runtime/logs/log_stream.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <utility>

#include "KxLog.h"
#include "KxTamberWebApi/KxWebSocket.h"
#include "platform/container_runtime/logs/entry_text.h"
#include "platform/container_runtime/logs/log_frames.h"
#include "platform/container_runtime/podman/podman_api.h"
#include "platform/container_runtime/podman/podman_failure.h"

namespace KxNContainer {

namespace {

/// More than this is not gathered into one text; of one more block of a log at most three times its size is added.
constexpr std::size_t TEXT_SIZE = 16UL << 10;
constexpr std::size_t USUAL_EXCESS = 2UL << 10;

/// Sends text to a client.
class TextSender {
public:
    TextSender(KxCErrorListPool& errors, LogStreams::Socket& client) : pool(errors), socket(client) {}

    /// Where more is to be appended. It has room for all from the beginning: what a growing text leaves behind are
    /// holes between the texts of other streams.
    std::string& room() {
        if (text.capacity() < TEXT_SIZE) {
            text.reserve(TEXT_SIZE + USUAL_EXCESS);
        }
        return text;
    }

    bool isFull() const { return text.size() >= TEXT_SIZE; }

    /// Waits while the client does not read; meanwhile nothing is read from the log either. False when the client has
    /// gone.
    bool flush() {
        if (!text.empty() && isOpen) {
            isOpen = socket.sendText(pool, text.data(), text.size(), -1, true);
        }
        text.clear();
        return isOpen;
    }

    /// Gives its memory back.
    void rest() { std::string().swap(text); }

private:
    KxCErrorListPool& pool;
    LogStreams::Socket& socket;
    std::string text;
    bool isOpen = true;
};

/// Sends a container's output as Podman gives it.
class RelayedLog final : public AnswerSink {
public:
    RelayedLog(bool isFramed, TextSender& client) : log(isFramed), sender(client) {}

    void take(std::string_view bytes) override {
        log.append(bytes, sender.room());
        if (sender.isFull()) {
            flush();
        }
    }

    bool flush() override { return sender.flush(); }

    void finish() {
        log.finish(sender.room());
        flush();
    }

    bool isBroken() const { return log.isBroken(); }

private:
    LogText log;
    TextSender& sender;
};

}  // namespace

std::shared_ptr<LogStreams::Session> LogStreams::add(Socket* socket, const std::string& containerName) {
    auto session = std::make_shared<Session>(containerName);
    bool isEnding = false;
    {
        const std::lock_guard lock(mutex);
        sessions.insert_or_assign(socket, session);
        isEnding = closed;
    }
    // A close before this was marked on the socket before its handler looked for the session; a later one finds it.
    if (isEnding || !socket->isOpen()) {
        session->ending.cancel();
    }
    return session;
}

void LogStreams::remove(Socket* socket) {
    std::shared_ptr<Session> session;  // outlives the lock
    const std::lock_guard lock(mutex);
    if (const auto found = sessions.find(socket); found != sessions.end()) {
        session = std::move(found->second);
        sessions.erase(found);
    }
}

void LogStreams::end(Socket* socket) {
    const std::lock_guard lock(mutex);
    if (const auto found = sessions.find(socket); found != sessions.end()) {
        found->second->ending.cancel();
    }
}

void LogStreams::close() {
    const std::lock_guard lock(mutex);
    closed = true;
    for (const auto& [socket, session] : sessions) {
        session->ending.cancel();
    }
}

void LogStreams::open() {
    const std::lock_guard lock(mutex);
    closed = false;
}

namespace {

using std::chrono::milliseconds;

/// How long the end of a line is waited for before its beginning is shown, as that of a question on a terminal.
constexpr milliseconds LINE_TIME{250};

// The next two are kept out of `passOn`, or what they need would lie on the stack below its inspection of the
// container, by far the deepest call of the thread: a page more for each stream.

[[gnu::noinline]] PodmanReply relay(PodmanClient& podman, const PodmanRequest& request, bool isFramed,
                                    const LogStreams::Session& session, TextSender& sender) {
    RelayedLog log(isFramed, sender);
    // Podman sends nothing, not even its status, before the container has written something.
    PodmanReply reply = podman.stream(request, {session.ending, std::nullopt}, log);
    log.finish();
    if (log.isBroken()) {
        KxCRTE_LOG(
            3, "Korvex Container Service: The log of container '%s' does not come in frames; it is passed on as it is",
            session.containerName.c_str());
    }
    return reply;
}

/// What is left until `time`, if there is one.
milliseconds timeUntil(const std::optional<LogTime>& time) {
    if (!time) {
        return LogReader::LONGEST_WAIT;
    }
    const auto left = std::chrono::nanoseconds(*time) - std::chrono::system_clock::now().time_since_epoch();
    return std::min(LogReader::LONGEST_WAIT, std::chrono::ceil<milliseconds>(left));
}

[[gnu::noinline]] void sendLog(LogSource& log, const LogRange& range, const LogStreams::Session& session,
                               TextSender& sender) {
    EntryText text(range.hasTimestamps);
    LogFilter filter(range);
    while (true) {
        LogStep step = log.next();
        if (step.kind == LogStep::Kind::entry) {
            if (filter.take(step.entry)) {
                text.append(step.entry, sender.room());
            }
            if (sender.isFull() && !sender.flush()) {
                return;
            }
        } else if (step.kind != LogStep::Kind::gap) {
            const milliseconds left = timeUntil(range.until);
            if (step.kind == LogStep::Kind::ended || left <= milliseconds(0) || !sender.flush()) {
                break;
            }
            sender.rest();
            if (!log.wait(session.ending, text.isHolding() ? std::min(left, LINE_TIME) : left)) {
                text.release(sender.room());
            }
            if (session.ending.isCancelled()) {
                break;
            }
        }
    }
    text.finish(sender.room());
    sender.flush();
}

/// None when the log is not read here.
std::unique_ptr<LogSource> openLog(const LogTools& tools, const ContainerLog& container, const LogRange& range,
                                   const LogStreams::Session& session) {
    if (container.driver == ContainerLog::Driver::other || !container.hasStarted) {
        return nullptr;
    }
    try {
        return std::make_unique<LogSource>(tools, session.containerName, container, range, "",
                                           LogSource::Until::endOfRun);
    } catch (const std::exception& error) {
        KxCRTE_LOG(3, "Korvex Container Service: The log of container '%s' is left to Podman: %s",
                   session.containerName.c_str(), error.what());
        return nullptr;
    }
}

PodmanReply passOn(const LogTools& tools, const PodmanRequest& request, const LogStreams::Session& session,
                   TextSender& sender) {
    bool isFramed = false;
    if (const auto path = inspectPath(request.path)) {
        const Inspection inspection =
            inspectPatiently(tools.podman, *path, session.ending, timeLimit(*path, request.method));
        const auto& container = inspection.container;
        const std::string query = request.path.substr(std::min(request.path.find('?') + 1, request.path.size()));
        const auto range = container ? parseLogQuery(query) : std::nullopt;
        if (const auto log = range ? openLog(tools, *container, *range, session) : nullptr) {
            sendLog(*log, *range, session, sender);
            return {"", 200};
        }
        isFramed = !container || !container->hasTerminal;
    }
    return relay(tools.podman, request, isFramed, session, sender);
}

}  // namespace

PodmanReply streamLog(const LogTools& tools, const PodmanRequest& request, const LogStreams::Session& session,
                      KxCErrorListPool& pool, LogStreams::Socket& socket) {
    TextSender sender(pool, socket);
    try {
        return passOn(tools, request, session, sender);
    } catch (const PodmanFailure& failure) {
        // A client that goes before Podman has answered is no failure.
        return session.ending.isCancelled() ? PodmanReply{"", 200} : PodmanReply{failure.what(), failure.status};
    }
}

}  // namespace KxNContainer

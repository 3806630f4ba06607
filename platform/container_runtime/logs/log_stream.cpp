#include "platform/container_runtime/logs/log_stream.h"

#include <chrono>
#include <utility>

#include "KxLog.h"
#include "KxTamberWebApi/KxWebSocket.h"
#include "platform/container_runtime/logs/log_frames.h"
#include "platform/container_runtime/podman/podman_api.h"

namespace KxNContainer {

namespace {

/// More than this is not gathered into one text.
constexpr std::size_t TEXT_SIZE = 64UL << 10;

/// Sends a container's output as text.
class LogSink final : public AnswerSink {
public:
    LogSink(bool isFramed, KxCErrorListPool& errors, LogStreams::Socket& client)
        : log(isFramed), pool(errors), socket(client) {}

    void take(std::string_view bytes) override {
        log.append(bytes, text);
        if (text.size() >= TEXT_SIZE) {
            flush();
        }
    }

    /// Waits while the client does not read; meanwhile nothing is read from Podman either.
    bool flush() override {
        if (!text.empty() && isOpen) {
            isOpen = socket.sendText(pool, text.data(), text.size(), -1, true);
        }
        text.clear();
        return isOpen;
    }

    void finish() {
        log.finish(text);
        flush();
    }

    bool isBroken() const { return log.isBroken(); }

private:
    LogText log;
    std::string text;
    KxCErrorListPool& pool;
    LogStreams::Socket& socket;
    bool isOpen = true;
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

/// As `streamLog`, but a session that was ended before Podman gave a status has one of its own, 503.
PodmanReply passOn(PodmanClient& client, const PodmanRequest& request, const LogStreams::Session& session,
                   KxCErrorListPool& pool, LogStreams::Socket& socket) {
    bool isFramed = false;
    if (const auto inspect = inspectPath(request.path)) {
        const auto deadline = std::chrono::steady_clock::now() + timeLimit(*inspect, request.method);
        PodmanReply inspection =
            client.execute({*inspect, KxCCurlHandler::MethodType::GET, {}, {}}, {session.ending, deadline});
        if (inspection.status != 200) {
            return inspection;
        }
        isFramed = !hasTerminal(inspection.body);
    }
    LogSink sink(isFramed, pool, socket);
    // Podman sends nothing, not even its status, before the container has written something.
    PodmanReply reply = client.stream(request, {session.ending, std::nullopt}, sink);
    sink.finish();
    if (sink.isBroken()) {
        KxCRTE_LOG(
            3, "Korvex Container Service: The log of container '%s' does not come in frames; it is passed on as it is",
            session.containerName.c_str());
    }
    return reply;
}

}  // namespace

PodmanReply streamLog(PodmanClient& client, const PodmanRequest& request, const LogStreams::Session& session,
                      KxCErrorListPool& pool, LogStreams::Socket& socket) {
    PodmanReply reply = passOn(client, request, session, pool, socket);
    // A client that goes before its container has written anything is no failure.
    return reply.status == 503 && session.ending.isCancelled() ? PodmanReply{"", 200} : reply;
}

}  // namespace KxNContainer

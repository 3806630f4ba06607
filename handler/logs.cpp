// Following a container's log: the check before the upgrade, and the work on the established WebSocket.
// Neither asks for the state of the container service.
#include <algorithm>
#include <memory>
#include <utility>

#include "KxLog.h"
#include "api/operation_scope.h"
#include "api/responses.h"
#include "handler/KxCContainerHandler.h"
#include "handler/parameters.h"
#include "runtime/podman_requests.h"

using namespace KxNCre;
using KxNContainer::KxCContainer;
using KxNContainer::PodmanReply;

namespace {

/// A socket's session at the container runtime, for as long as the runtime may use the socket.
class RegisteredLogStream {
public:
    RegisteredLogStream(KxCContainer& runtime, KxNTamberWebApi::KxCWebSocket* usedSocket, const char* containerName)
        : session(runtime.RegisterLogStreamSession(usedSocket, containerName)),
          container(runtime),
          socket(usedSocket) {}

    ~RegisteredLogStream() { unregister(); }

    RegisteredLogStream(const RegisteredLogStream&) = delete;
    RegisteredLogStream& operator=(const RegisteredLogStream&) = delete;

    /// After this the runtime does not touch the socket any more.
    void unregister() {
        if (socket != nullptr) {
            container.UnregisterLogStreamSession(std::exchange(socket, nullptr));
        }
    }

    const std::shared_ptr<KxCContainer::KxSLogStreamSession> session;

private:
    KxCContainer& container;
    KxNTamberWebApi::KxCWebSocket* socket;
};

/// Podman takes "all" or a number of lines without a sign.
bool isValidTail(std::string_view tail) {
    return tail == "all" || std::all_of(tail.begin(), tail.end(), [](char c) { return c >= '0' && c <= '9'; });
}

std::string logQuery(const bool* stdoutWanted, const bool* stderrWanted, const std::int64_t* since,
                     const std::int64_t* until, const bool* timestamps, const char* tail) {
    std::string query = "?follow=true";
    query += isSetTo(stdoutWanted, false) ? "&stdout=false" : "&stdout=true";
    query += isSetTo(stderrWanted, false) ? "&stderr=false" : "&stderr=true";
    if (isSetTo(timestamps, true)) {
        query += "&timestamps=true";
    }
    if (since != nullptr) {
        query += "&since=" + std::to_string(*since);
    }
    if (until != nullptr) {
        query += "&until=" + std::to_string(*until);
    }
    if (isMissing(tail)) {
        return query;
    }
    if (isValidTail(tail)) {
        query += std::string("&tail=") + tail;
    } else {
        // The log without its limit is worth more to the client than no log.
        KxCRTE_LOG_Impl(3, "Korvex Container Service: Ignoring invalid tail value '%s' (expected an integer or 'all')",
                        tail);
    }
    return query;
}

}  // namespace

void KxCContainerHandler::GetContainerLogs(KxCErrorListPool& pool, const KxCRequest&, const char* name, const bool*,
                                           const bool*, const std::int64_t*, const std::int64_t*, const bool*,
                                           const char*, KxCResponse& response) {
    const OperationScope scope(KxEOperation::GET_CONTAINER_LOGS);
    scope.trace();
    if (isMissing(name)) {
        answerBadRequest(pool, response, "Container name must be provided");
        return;
    }

    const PodmanReply reply = KxNPodman::execute(*container, KxNPodman::INSPECT_CONTAINER, name);
    const std::string quotedName = "'" + std::string(name) + "'";
    if (reply.status == HTTP_NOT_FOUND) {
        answerNotFound(pool, response, "Container " + quotedName + " does not exist");
    } else if (KxNPodman::isSuccess(reply)) {
        KxCRTE_LOG(0, "Korvex Container Service: Opening log stream websocket for container '%s'", name);
        response.switchWebSocket(pool, name, nullptr, nullptr, 0, &KxCContainer::LogStreamCloseHandler, nullptr, 0);
    } else {
        KxCRTE_LOG_Impl(4, "Korvex Container Service: Podman GET /containers/%s/json failed with HTTP %d: %s", name,
                        reply.status, KxNPodman::loggableBody(reply).c_str());
        answerInternalError(pool, response,
                            "Error occurred while checking container " + quotedName + ": " + reply.body);
    }
}

void KxCContainerHandler::GetContainerLogsSetWebSocket(KxCErrorListPool& pool, const char* name,
                                                       const bool* stdoutWanted, const bool* stderrWanted,
                                                       const std::int64_t* since, const std::int64_t* until,
                                                       const bool* timestamps, const char* tail, KxCWebSocket* socket) {
    const OperationScope scope(KxEOperation::GET_CONTAINER_LOGS_SET_WEB_SOCKET);
    if (socket == nullptr || isMissing(name)) {
        return;
    }
    std::unique_ptr<KxCWebSocket> ownedSocket(socket);
    scope.trace();
    KxCRTE_LOG(0, "Korvex Container Service: Log stream websocket connected for container '%s'", name);

    RegisteredLogStream registered(*container, socket, name);
    const PodmanReply reply = KxNPodman::stream(*container, KxNPodman::FOLLOW_LOGS, name,
                                                logQuery(stdoutWanted, stderrWanted, since, until, timestamps, tail),
                                                pool, registered.session, socket);
    if (!KxNPodman::isSuccess(reply)) {
        KxCRTE_LOG_Impl(4, "Korvex Container Service: Podman GET /containers/%s/logs failed with HTTP %d", name,
                        reply.status);
    }
    KxCRTE_LOG(0, "Korvex Container Service: Log stream ended for container '%s'", name);
    registered.unregister();

    const std::string closingText = "Container id: " + std::string(name) + " log stream finished.";
    KxCRTE_LOG(0, "Korvex Container Service: %s", closingText.c_str());
    ownedSocket->sendText(pool, closingText.c_str(), closingText.size(), -1, false);
    ownedSocket.reset();
}

#include "runtime/podman_requests.h"

using KxNContainer::KxCContainer;
using KxNContainer::PodmanReply;

namespace KxNPodman {

namespace {

std::string pathOf(const Request& request, std::string_view name, std::string_view query) {
    return std::string(request.pathBegin).append(name).append(request.pathEnd).append(query);
}

}  // namespace

PodmanReply execute(KxCContainer& container, const Request& request, std::string_view name, std::string_view query,
                    const std::string& body) {
    return container.ExecutePodmanRequest(pathOf(request, name, query), request.method, {request.header}, body,
                                          request.isLongRunning);
}

PodmanReply stream(KxCContainer& container, const Request& request, std::string_view name, std::string_view query,
                   KxCErrorListPool& pool, std::shared_ptr<KxCContainer::KxSLogStreamSession> session,
                   KxNTamberWebApi::KxCWebSocket* socket) {
    return container.StreamPodmanRequest(pathOf(request, name, query), request.method, {request.header}, pool,
                                         std::move(session), socket);
}

std::string loggableBody(const PodmanReply& reply) {
    std::string text;
    for (const char character : reply.body) {
        character == '\0' ? text.append("\\x00") : text.append(1, character);
    }
    return text;
}

}  // namespace KxNPodman

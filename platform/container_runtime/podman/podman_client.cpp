#include "platform/container_runtime/podman/podman_client.h"

#include <chrono>
#include <optional>
#include <utility>

#include "platform/container_runtime/podman/podman_api.h"

namespace KxNContainer {

namespace {

using Method = KxCCurlHandler::MethodType;

constexpr std::chrono::seconds PING_TIME{5};

/// Sends the request and reads the answer; keeps the connection if it can be used again.
PodmanReply exchangeOn(KxNNet::Stream connection, const PodmanRequest& request, const KxNNet::WaitLimits& limits,
                       ConnectionPool& pool, AnswerSink* sink, pid_t* server) {
    PodmanAnswer answer = exchange(connection, request, limits, sink);
    if (server != nullptr) {
        *server = peerProcess(connection);
    }
    if (answer.isReusable && !request.bodyIsFile) {  // of a file some may not have been sent
        pool.put(std::move(connection));
    }
    return std::move(answer.reply);
}

}  // namespace

void PodmanClient::setAddress(const PodmanAddress& newAddress) {
    const std::lock_guard lock(addressMutex);
    address = newAddress;
    pool.closeAll();
}

PodmanAddress PodmanClient::getAddress() const {
    const std::lock_guard lock(addressMutex);
    return address;
}

PodmanReply PodmanClient::call(const PodmanRequest& request, const KxNNet::WaitLimits& limits, AnswerSink* sink,
                               pid_t* server) {
    // Only a GET may be sent again when a kept connection turns out to have been closed meanwhile, so that only a
    // GET goes on a kept one.
    std::optional<KxNNet::Stream> kept = request.method == Method::GET ? pool.take() : std::nullopt;
    if (kept) {
        try {
            return exchangeOn(std::move(*kept), request, limits, pool, sink, server);
        } catch (const PodmanFailure& failure) {
            if (!failure.died) {
                throw;
            }
        }
    }
    return exchangeOn(connectTo(getAddress(), limits), request, limits, pool, sink, server);
}

PodmanReply PodmanClient::callSafely(const PodmanRequest& request, const KxNNet::WaitLimits& limits, pid_t* server) {
    try {
        return call(request, limits, nullptr, server);
    } catch (const PodmanFailure& failure) {
        return {failure.what(), failure.status};
    } catch (const std::exception& error) {
        return {std::string("The request to Podman failed: ") + error.what(), PodmanFailure::UNREACHABLE};
    }
}

PodmanReply PodmanClient::execute(const PodmanRequest& request, const KxNNet::WaitLimits& limits) {
    PodmanReply reply = callSafely(request, limits, nullptr);
    correctStatus(request.path, request.method, reply);
    return reply;
}

PodmanReply PodmanClient::ask(const PodmanRequest& request, const KxNNet::WaitLimits& limits) {
    return call(request, limits, nullptr, nullptr);
}

PodmanReply PodmanClient::stream(const PodmanRequest& request, const KxNNet::WaitLimits& limits, AnswerSink& sink) {
    return call(request, limits, &sink, nullptr);
}

PodmanPing PodmanClient::ping(const KxNNet::Cancellation& cancellation) {
    const PodmanRequest request{"/_ping", Method::GET, {}, {}};
    pid_t server = 0;
    PodmanReply reply = callSafely(request, {cancellation, std::chrono::steady_clock::now() + PING_TIME}, &server);
    if (reply.status == 200) {
        return {true, {}, server};
    }
    if (reply.status != PodmanFailure::UNREACHABLE) {
        reply.body = "Podman answers with status " + std::to_string(reply.status);
    }
    return {false, std::move(reply.body), 0};
}

}  // namespace KxNContainer

// Requests to Podman's HTTP API.
#pragma once

#include <mutex>
#include <string>

#include "KxContainer.h"
#include "platform/container_runtime/podman/connection_pool.h"
#include "platform/container_runtime/podman/podman_address.h"
#include "platform/container_runtime/podman/podman_answer.h"
#include "platform/container_runtime/podman/podman_request.h"

namespace KxNContainer {

struct PodmanPing {
    bool isAnswered;
    std::string reason;  ///< why it is not
    pid_t server;        ///< the process that answers, 0 when the system does not tell

    explicit operator bool() const { return isAnswered; }
};

/// Every call blocks its caller until Podman has answered or the limits end it. Any thread.
class PodmanClient {
public:
    explicit PodmanClient(const PodmanAddress& podman) : address(podman) {}

    /// Reaches Podman at `newAddress` from the next call on.
    void setAddress(const PodmanAddress& newAddress);
    PodmanAddress getAddress() const;

    /// Always gives a reply: one that is Podman's own or, when there is none, status 503 with the reason as its body
    /// (400 for a request that cannot be sent as HTTP). No exceptions.
    PodmanReply execute(const PodmanRequest& request, const KxNNet::WaitLimits& limits);

    /// Gives a reply that is Podman's own. Throws PodmanFailure when there is none.
    PodmanReply ask(const PodmanRequest& request, const KxNNet::WaitLimits& limits);

    /// As `ask`, but gives the body of an answer of status 2xx to `sink` while it arrives; that of any other status
    /// becomes the reply's. An end before the answer was complete leaves the status as it is.
    PodmanReply stream(const PodmanRequest& request, const KxNNet::WaitLimits& limits, AnswerSink& sink);

    /// Asks Podman whether it answers, which it has to within a few seconds. No exceptions.
    PodmanPing ping(const KxNNet::Cancellation& cancellation);

    void closeStaleConnections() { pool.closeStale(); }

private:
    PodmanReply call(const PodmanRequest& request, const KxNNet::WaitLimits& limits, AnswerSink* sink, pid_t* server);
    PodmanReply callSafely(const PodmanRequest& request, const KxNNet::WaitLimits& limits, pid_t* server);

    mutable std::mutex addressMutex;
    PodmanAddress address;
    ConnectionPool pool;
};

}  // namespace KxNContainer

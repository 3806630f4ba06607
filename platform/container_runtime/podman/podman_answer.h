// A request to Podman and its answer.
#pragma once

#include <string_view>

#include "KxContainer.h"
#include "platform/container_runtime/podman/podman_request.h"
#include "platform/net/stream.h"

namespace KxNContainer {

/// Takes the body of a successful answer as it arrives.
class AnswerSink {
public:
    virtual ~AnswerSink() = default;

    /// Takes the next bytes.
    virtual void take(std::string_view bytes) = 0;

    /// Everything that is at hand was taken, and the caller is about to wait for more. False to end the request.
    virtual bool flush() = 0;
};

struct PodmanAnswer {
    PodmanReply reply;
    bool isReusable;  ///< the connection can take another request
};

/// Sends `request` and reads the answer. With a `sink` that gets the body of a successful one, and an end before the
/// body was complete leaves the status as it is. Throws PodmanFailure when there is no answer.
PodmanAnswer exchange(KxNNet::Stream& connection, const PodmanRequest& request, const KxNNet::WaitLimits& limits,
                      AnswerSink* sink);

}  // namespace KxNContainer

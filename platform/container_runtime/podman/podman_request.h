// A request to Podman, and how it is sent.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "KxContainer.h"
#include "platform/container_runtime/podman/podman_failure.h"
#include "platform/net/stream.h"

namespace KxNContainer {

struct PodmanRequest {
    std::string path;  ///< relative to the API root, with its query
    KxCCurlHandler::MethodType method;
    std::vector<std::string> headers;  ///< complete header lines
    std::string body;
    bool bodyIsFile = false;  ///< `body` is the path of the file whose bytes are the body
};

/// Method and path, for a message.
std::string describe(const PodmanRequest& request);

/// Why `request` came to no answer when a step on its connection ended with `outcome`.
PodmanFailure failureOf(const PodmanRequest& request, KxNNet::Outcome outcome, int systemError);

/// Sends the whole request, or as much of it as Podman takes: an answer that comes while a file is sent ends it, for
/// Podman has made up its mind. So does a connection that Podman closes, after which an answer may still be waiting.
/// `isAnswered` is asked whenever something has come meanwhile, and takes it off the connection. Throws PodmanFailure.
void sendRequest(KxNNet::Stream& connection, const PodmanRequest& request, const KxNNet::WaitLimits& limits,
                 const std::function<bool()>& isAnswered);

}  // namespace KxNContainer

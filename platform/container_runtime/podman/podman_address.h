// Where Podman listens, and the connections to it.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "platform/net/stream.h"

namespace KxNContainer {

struct PodmanAddress {
    std::string socketPath;  ///< of its unix socket; empty for TCP
    std::uint16_t port = 0;  ///< on 127.0.0.1

    /// As Podman's command line takes it, "unix:///run/podman/podman.sock" or "tcp:127.0.0.1:2376".
    std::string text() const;
};

/// Connects to Podman. Throws PodmanFailure.
KxNNet::Stream connectTo(const PodmanAddress& address, const KxNNet::WaitLimits& limits);

/// True when nothing has arrived and the connection still stands, as must be between two requests.
bool isQuiet(const KxNNet::Stream& connection);

/// The process at the other end of a unix socket, 0 when the system does not tell.
pid_t peerProcess(const KxNNet::Stream& connection);

}  // namespace KxNContainer

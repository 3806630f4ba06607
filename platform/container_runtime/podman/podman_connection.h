// One connection to Podman whose every wait ends: with data, at a deadline, or when it is cancelled.
#pragma once

#include <sys/types.h>
#include <sys/uio.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/common/unique_fd.h"
#include "platform/net/cancellation.h"

namespace KxNContainer {

/// Where Podman listens.
struct PodmanAddress {
    std::string socketPath;  ///< of its unix socket; empty for TCP
    std::uint16_t port = 0;  ///< on 127.0.0.1

    /// As Podman's command line takes it, "unix:///run/podman/podman.sock" or "tcp:127.0.0.1:2376".
    std::string text() const;
};

/// What ends a call early. Referred to, not kept: it lives as long as the call.
struct CallLimits {
    const KxNNet::Cancellation& cancellation;
    std::optional<std::chrono::steady_clock::time_point> deadline;
};

/// One thread at a time.
class PodmanConnection {
public:
    enum class Result {
        Ok,
        Closed,     ///< Podman ended the connection
        TimedOut,   ///< the deadline passed
        Cancelled,  ///< the cancellation was given
        Failed,     ///< the system refused; see `error()`
    };

    /// Connects to `address`.
    Result open(const PodmanAddress& address, const CallLimits& limits);

    /// Receives what is there, at least one byte when the result is Ok.
    Result receive(void* data, std::size_t size, const CallLimits& limits, std::size_t& received);

    /// Sends some of the bytes, at least one when the result is Ok.
    Result send(const iovec* pieces, std::size_t count, const CallLimits& limits, std::size_t& sent);

    /// Sends some of the bytes, or none, with Ok too, when Podman has sent something or hung up meanwhile: an answer
    /// before the end of the request is a refusal.
    Result sendUnlessAnswered(std::string_view bytes, const CallLimits& limits, std::size_t& sent);

    /// True when nothing has arrived and the connection still stands, as must be between two requests.
    bool isQuiet() const;

    /// The system's number of the last failure.
    int error() const { return lastError; }

    /// The process at the other end of a unix socket, 0 when the system does not tell.
    pid_t peer() const;

private:
    Result check(const CallLimits& limits) const;
    Result wait(short events, const CallLimits& limits, short& happened);
    Result waitForRoom(const CallLimits& limits);
    Result finishConnect(const CallLimits& limits);
    Result fail(int error);

    KxNCommon::UniqueFd socket;
    int lastError = 0;
};

}  // namespace KxNContainer

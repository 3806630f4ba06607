#include "platform/container_runtime/podman/podman_address.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <utility>

#include "platform/common/system_text.h"
#include "platform/container_runtime/podman/podman_failure.h"

namespace KxNContainer {

namespace {

using KxNNet::Outcome;

/// How long to wait before trying again to connect to a listener whose queue is full; a unix socket gives no event for
/// it.
constexpr std::chrono::milliseconds FULL_QUEUE_PAUSE{10};

PodmanFailure unreachable(const PodmanAddress& address, const std::string& reason) {
    return PodmanFailure("Podman cannot be reached at " + address.text() + ": " + reason);
}

PodmanFailure unreachable(const PodmanAddress& address, int number) {
    return unreachable(address, KxNCommon::systemText(number));
}

/// A wait for the connection has ended without it, unless `outcome` is `done`.
void check(Outcome outcome, const PodmanAddress& address) {
    if (outcome == Outcome::cancelled) {
        throw PodmanFailure("The container service is stopping");
    }
    if (outcome == Outcome::timedOut) {
        throw unreachable(address, "it accepts no connection");
    }
    if (outcome != Outcome::done) {
        throw unreachable(address, errno);
    }
}

void waitForRoom(const PodmanAddress& address, const KxNNet::WaitLimits& limits) {
    pollfd cancelled{limits.cancellation.descriptor(), POLLIN, 0};
    if (::poll(&cancelled, 1, static_cast<int>(FULL_QUEUE_PAUSE.count())) > 0) {
        check(Outcome::cancelled, address);
    }
    const bool isLate = limits.deadline && std::chrono::steady_clock::now() >= *limits.deadline;
    check(isLate ? Outcome::timedOut : Outcome::done, address);
}

void finishConnect(const KxNNet::Stream& connection, const PodmanAddress& address, const KxNNet::WaitLimits& limits) {
    short happened = 0;
    check(connection.wait(POLLOUT, limits, happened), address);
    int number = 0;
    socklen_t size = sizeof number;
    ::getsockopt(connection.descriptor(), SOL_SOCKET, SO_ERROR, &number, &size);
    if (number != 0) {
        throw unreachable(address, number);
    }
    const int on = 1;
    ::setsockopt(connection.descriptor(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

}  // namespace

std::string PodmanAddress::text() const {
    return socketPath.empty() ? "tcp:127.0.0.1:" + std::to_string(port) : "unix://" + socketPath;
}

KxNNet::Stream connectTo(const PodmanAddress& address, const KxNNet::WaitLimits& limits) {
    const bool isLocal = !address.socketPath.empty();
    sockaddr_un local{};
    sockaddr_in loopback{};
    if (address.socketPath.size() >= sizeof local.sun_path) {
        throw unreachable(address, ENAMETOOLONG);
    }
    local.sun_family = AF_UNIX;
    std::copy(address.socketPath.begin(), address.socketPath.end(), local.sun_path);
    loopback.sin_family = AF_INET;
    loopback.sin_port = htons(address.port);
    loopback.sin_addr.s_addr = htonl(INADDR_LOOPBACK);

    KxNCommon::UniqueFd socket(::socket(isLocal ? AF_UNIX : AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket) {
        throw unreachable(address, errno);
    }
    KxNNet::Stream connection(std::move(socket));
    const auto* target = isLocal ? reinterpret_cast<const sockaddr*>(&local) : reinterpret_cast<sockaddr*>(&loopback);
    const socklen_t size = isLocal ? sizeof local : sizeof loopback;
    while (::connect(connection.descriptor(), target, size) != 0) {
        if (errno == EINPROGRESS) {
            finishConnect(connection, address, limits);
            break;
        }
        if (errno == EAGAIN) {
            waitForRoom(address, limits);
        } else if (errno != EINTR) {
            throw unreachable(address, errno);
        }
    }
    return connection;
}

bool isQuiet(const KxNNet::Stream& connection) {
    char byte;
    return ::recv(connection.descriptor(), &byte, 1, MSG_PEEK) < 0 && errno == EAGAIN;
}

pid_t peerProcess(const KxNNet::Stream& connection) {
    ucred credentials{};
    socklen_t size = sizeof credentials;
    ::getsockopt(connection.descriptor(), SOL_SOCKET, SO_PEERCRED, &credentials, &size);
    return credentials.pid;
}

}  // namespace KxNContainer

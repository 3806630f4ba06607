#include "platform/container_runtime/podman/podman_connection.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace KxNContainer {

namespace {

using Clock = std::chrono::steady_clock;

/// How long to wait before trying again to connect to a listener whose queue is full; a unix socket gives no event for
/// it.
constexpr std::chrono::milliseconds FULL_QUEUE_PAUSE{10};

/// Rounded up, so that a wait never ends just before its deadline and spins.
int pollTimeout(const std::optional<Clock::time_point>& deadline) {
    if (!deadline) {
        return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, 24LL * 3600 * 1000));
}

}  // namespace

std::string PodmanAddress::text() const {
    return socketPath.empty() ? "tcp:127.0.0.1:" + std::to_string(port) : "unix://" + socketPath;
}

PodmanConnection::Result PodmanConnection::fail(int error) {
    lastError = error;
    return error == EPIPE || error == ECONNRESET ? Result::Closed : Result::Failed;
}

PodmanConnection::Result PodmanConnection::check(const CallLimits& limits) const {
    if (limits.cancellation.isCancelled()) {
        return Result::Cancelled;
    }
    return limits.deadline && Clock::now() >= *limits.deadline ? Result::TimedOut : Result::Ok;
}

/// Waits for one of `events` on the socket; one of them has come when the result is Ok. With `events` 0 the result is
/// never Ok.
PodmanConnection::Result PodmanConnection::wait(short events, const CallLimits& limits, short& happened) {
    pollfd descriptors[] = {{limits.cancellation.descriptor(), POLLIN, 0}, {socket.get(), events, 0}};
    for (;;) {
        const int ready = ::poll(descriptors, 2, pollTimeout(limits.deadline));
        if (ready < 0 && errno != EINTR) {
            return fail(errno);
        }
        if (const Result result = check(limits); result != Result::Ok) {
            return result;
        }
        if (ready > 0 && descriptors[1].revents != 0) {
            happened = descriptors[1].revents;
            return Result::Ok;
        }
    }
}

PodmanConnection::Result PodmanConnection::open(const PodmanAddress& address, const CallLimits& limits) {
    const bool isLocal = !address.socketPath.empty();
    sockaddr_un local{};
    sockaddr_in loopback{};
    if (address.socketPath.size() >= sizeof local.sun_path) {
        return fail(ENAMETOOLONG);
    }
    local.sun_family = AF_UNIX;
    std::copy(address.socketPath.begin(), address.socketPath.end(), local.sun_path);
    loopback.sin_family = AF_INET;
    loopback.sin_port = htons(address.port);
    loopback.sin_addr.s_addr = htonl(INADDR_LOOPBACK);

    socket = KxNCommon::UniqueFd(::socket(isLocal ? AF_UNIX : AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket) {
        return fail(errno);
    }
    const auto* target = isLocal ? reinterpret_cast<const sockaddr*>(&local) : reinterpret_cast<sockaddr*>(&loopback);
    const socklen_t size = isLocal ? sizeof local : sizeof loopback;
    while (::connect(socket.get(), target, size) != 0) {
        if (errno == EINPROGRESS) {
            return finishConnect(limits);
        }
        if (errno == EAGAIN) {
            if (const Result result = waitForRoom(limits); result != Result::Ok) {
                return result;
            }
        } else if (errno != EINTR) {
            return fail(errno);
        }
    }
    return Result::Ok;
}

PodmanConnection::Result PodmanConnection::waitForRoom(const CallLimits& limits) {
    pollfd cancelled{limits.cancellation.descriptor(), POLLIN, 0};
    ::poll(&cancelled, 1, static_cast<int>(FULL_QUEUE_PAUSE.count()));
    return check(limits);
}

PodmanConnection::Result PodmanConnection::finishConnect(const CallLimits& limits) {
    short happened = 0;
    if (const Result result = wait(POLLOUT, limits, happened); result != Result::Ok) {
        return result;
    }
    int error = 0;
    socklen_t size = sizeof error;
    ::getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &error, &size);
    if (error != 0) {
        return fail(error);
    }
    const int on = 1;
    ::setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return Result::Ok;
}

PodmanConnection::Result PodmanConnection::receive(void* data, std::size_t size, const CallLimits& limits,
                                                   std::size_t& received) {
    for (;;) {
        // Asked every time: a stream that always has data must end too.
        if (const Result result = check(limits); result != Result::Ok) {
            return result;
        }
        const ssize_t count = ::recv(socket.get(), data, size, 0);
        if (count >= 0) {
            received = static_cast<std::size_t>(count);
            return count == 0 ? Result::Closed : Result::Ok;
        }
        if (errno != EAGAIN && errno != EINTR) {
            return fail(errno);
        }
        short happened = 0;
        if (const Result result = wait(POLLIN, limits, happened); result != Result::Ok) {
            return result;
        }
    }
}

PodmanConnection::Result PodmanConnection::send(const iovec* pieces, std::size_t count, const CallLimits& limits,
                                                std::size_t& sent) {
    msghdr message{};
    message.msg_iov = const_cast<iovec*>(pieces);
    message.msg_iovlen = count;
    for (;;) {
        if (const Result result = check(limits); result != Result::Ok) {
            return result;
        }
        const ssize_t written = ::sendmsg(socket.get(), &message, MSG_NOSIGNAL);
        if (written >= 0) {
            sent = static_cast<std::size_t>(written);
            return Result::Ok;
        }
        if (errno != EAGAIN && errno != EINTR) {
            return fail(errno);
        }
        short happened = 0;
        if (const Result result = wait(POLLOUT, limits, happened); result != Result::Ok) {
            return result;
        }
    }
}

PodmanConnection::Result PodmanConnection::sendUnlessAnswered(std::string_view bytes, const CallLimits& limits,
                                                              std::size_t& sent) {
    short happened = 0;
    if (const Result result = wait(POLLOUT | POLLIN, limits, happened); result != Result::Ok) {
        return result;
    }
    if ((happened & POLLOUT) == 0 || (happened & POLLIN) != 0) {
        sent = 0;
        return Result::Ok;
    }
    const iovec piece{const_cast<char*>(bytes.data()), bytes.size()};
    return send(&piece, 1, limits, sent);
}

bool PodmanConnection::isQuiet() const {
    char byte;
    return ::recv(socket.get(), &byte, 1, MSG_PEEK) < 0 && errno == EAGAIN;
}

pid_t PodmanConnection::peer() const {
    ucred credentials{};
    socklen_t size = sizeof credentials;
    ::getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &credentials, &size);
    return credentials.pid;
}

}  // namespace KxNContainer

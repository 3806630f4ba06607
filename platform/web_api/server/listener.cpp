#include "platform/web_api/server/listener.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/ip/address.hpp>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "KxLog.h"
#include "platform/web_api/server/http_connection.h"
#include "platform/web_api/threads/heap.h"

namespace KxNTamberWebApi {

namespace asio = boost::asio;
using asio::ip::tcp;

namespace {

/// Connections taken in one go, before other work gets its turn.
constexpr int ACCEPTED_AT_ONCE = 32;

constexpr std::chrono::milliseconds FAILURE_LINE_EVERY{10'000};

tcp::endpoint parseEndpoint(const ServerSettings& settings) {
    boost::system::error_code error;
    const auto address = asio::ip::make_address(settings.address, error);
    if (error) {
        throw std::runtime_error("Web API address '" + settings.address + "' is not an IP address");
    }
    return {address, settings.port};
}

std::string describe(const asio::ip::address& address, std::uint16_t port) {
    return (address.is_v6() ? "[" + address.to_string() + "]" : address.to_string()) + ":" + std::to_string(port);
}

/// Throws when `result` tells of a failure.
int check(int result, const char* what, const tcp::endpoint& endpoint) {
    if (result < 0) {
        throw std::runtime_error("Web API cannot " + std::string(what) + " " +
                                 describe(endpoint.address(), endpoint.port()) + ": " + std::strerror(errno));
    }
    return result;
}

}  // namespace

Listener::Listener(ServerCore& serverCore) : core(serverCore), endpoint(parseEndpoint(core.settings)) {
    socket =
        KxNCommon::UniqueFd(check(::socket(endpoint.protocol().family(), SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0),
                                  "open a socket for", endpoint));
    const int on = 1;
    ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    ::setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);  // which accepted sockets inherit
    check(::bind(socket.get(), endpoint.data(), static_cast<socklen_t>(endpoint.size())), "listen on", endpoint);
    check(::listen(socket.get(), SOMAXCONN), "listen on", endpoint);
    tcp::endpoint bound;
    auto size = static_cast<socklen_t>(bound.capacity());
    check(::getsockname(socket.get(), bound.data(), &size), "listen on", endpoint);
    boundPort = bound.port();
    watch.emplace(core.context.get_executor(), socket.get());
}

std::string Listener::url() const {
    return (core.tls->isOn() ? "https://" : "http://") + describe(endpoint.address(), boundPort);
}

void Listener::begin() {
    asio::co_spawn(core.context.get_executor(), acceptAll(), asio::detached);
    asio::co_spawn(core.context.get_executor(), sweepForever(), asio::detached);
}

void Listener::close() {
    // The descriptor itself stays until this object goes: the accepting coroutine may be at work with it.
    ::shutdown(socket.get(), SHUT_RDWR);
}

KxNNet::Task<void> Listener::pause(std::chrono::milliseconds duration) {
    using Clock = std::chrono::steady_clock;
    boost::asio::basic_waitable_timer<Clock, boost::asio::wait_traits<Clock>, KxNNet::Executor> timer(
        core.context.get_executor(), duration);
    co_await timer.async_wait(boost::asio::use_awaitable_t<KxNNet::Executor>());
}

/// These two loops must not end before the server does, and what they need may be gone for a moment: memory, say, which
/// a wait by the event loop would need too.
void Listener::reportAndWait(const std::exception& failure) {
    KxCRTE_LOG(4, "Korvex Container Service: Web API is held up: %s", failure.what());
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

KxNNet::Task<void> Listener::sweepForever() {
    HeapWatch heap;
    for (;;) {
        try {
            co_await pause(core.limits.sweep);
            followIdentities();
            core.audit->tellSums();
            core.connections.sweep();
            core.uploads.expire(KxNNet::coarseMilliseconds());
            core.uploadMemory.expire(KxNNet::coarseMilliseconds());
            core.streams.joinFinished();
            heap.note(core.connections.count());
        } catch (const std::exception& failure) {
            reportAndWait(failure);
        }
    }
}

/// Who has lost access ends now.
void Listener::followIdentities() {
    if (core.access->mustFollow()) {
        const RequestThreads::Operation reading(core.requests);  // the file may be long, the disk slow
        core.access->follow();
    }
    core.connections.endWithoutGrant([this](Grant grant) { return core.access->holds(grant); });
}

KxNNet::Task<void> Listener::acceptAll() {
    while (!core.isStopping) {
        try {
            co_await acceptSome();
        } catch (const std::exception& failure) {
            reportAndWait(failure);
        }
    }
}

/// Waits until connections may come in, and takes them.
KxNNet::Task<void> Listener::acceptSome() {
    if (core.connections.count() >= core.settings.maxConnections) {
        co_await pause(std::chrono::milliseconds(10));
        co_return;
    }
    co_await watch->readable();
    int failure = 0;
    if (!core.isStopping && !acceptWaiting(failure)) {
        if (KxNNet::coarseMilliseconds() >= nextFailureLine) {
            KxCRTE_LOG(4, "Korvex Container Service: Web API cannot take a connection in: %s", std::strerror(failure));
            nextFailureLine = KxNNet::coarseMilliseconds() + FAILURE_LINE_EVERY.count();
        }
        co_await pause(core.limits.acceptPause);
    }
}

/// Takes in what waits. False when the system refuses for now.
bool Listener::acceptWaiting(int& failure) {
    for (int i = 0; i < ACCEPTED_AT_ONCE && core.connections.count() < core.settings.maxConnections; ++i) {
        tcp::endpoint peer;
        auto size = static_cast<socklen_t>(peer.capacity());
        const int descriptor = ::accept4(socket.get(), peer.data(), &size, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (descriptor < 0) {
            failure = errno;
            return failure != EMFILE && failure != ENFILE && failure != ENOBUFS && failure != ENOMEM;
        }
        peer.resize(size);
        try {
            std::make_shared<HttpConnection>(core, KxNCommon::UniqueFd(descriptor), peer.address().to_string())
                ->begin();
        } catch (const std::exception& problem) {
            KxCRTE_LOG(4, "Korvex Container Service: Web API drops a new connection: %s", problem.what());
        }
    }
    return true;
}

}  // namespace KxNTamberWebApi

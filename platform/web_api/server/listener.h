// Takes connections in.
#pragma once

#include <boost/asio/basic_socket_acceptor.hpp>
#include <boost/asio/basic_waitable_timer.hpp>
#include <cstdint>
#include <string>

#include "platform/web_api/server/server_core.h"

namespace KxNTamberWebApi {

class Listener {
public:
    /// Listens on the address and port of the settings. Throws std::runtime_error, which names both, when that cannot
    /// be.
    explicit Listener(ServerCore& core);

    void begin();
    /// Stops taking connections in. Waiting ones are refused by the system. Any thread.
    void close();

    std::uint16_t port() const { return boundPort; }
    /// As it stands in a URL.
    std::string url() const;

private:
    using Acceptor = asio::basic_socket_acceptor<asio::ip::tcp, Executor>;
    using Clock = std::chrono::steady_clock;
    using Timer = asio::basic_waitable_timer<Clock, asio::wait_traits<Clock>, Executor>;

    Task<void> acceptAll();
    Task<void> acceptSome();
    static void reportAndWait(const std::exception& failure);
    Task<void> sweepForever();
    Task<void> pause(std::chrono::milliseconds duration);
    bool acceptWaiting(int& failure);

    ServerCore& core;
    const asio::ip::tcp::endpoint endpoint;
    Acceptor acceptor;
    std::uint16_t boundPort = 0;
    std::int64_t nextFailureLine = 0;  // milliseconds of the coarse clock
};

}  // namespace KxNTamberWebApi

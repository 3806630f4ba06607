// Takes connections in.
#pragma once

#include <boost/asio/basic_waitable_timer.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/common/unique_fd.h"
#include "platform/net/loop_stream.h"
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
    KxNNet::Task<void> acceptAll();
    KxNNet::Task<void> acceptSome();
    static void reportAndWait(const std::exception& failure);
    KxNNet::Task<void> sweepForever();
    void followIdentities();
    KxNNet::Task<void> pause(std::chrono::milliseconds duration);
    bool acceptWaiting(int& failure);

    ServerCore& core;
    const boost::asio::ip::tcp::endpoint endpoint;
    KxNCommon::UniqueFd socket;
    std::optional<KxNNet::LoopWatch> watch;
    std::uint16_t boundPort = 0;
    std::int64_t nextFailureLine = 0;  // milliseconds of the coarse clock
};

}  // namespace KxNTamberWebApi

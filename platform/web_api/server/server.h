// The server behind KxCServer, apart from the configuration that it takes its settings from.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/web_api/connection/limits.h"
#include "platform/web_api/server/server_core.h"

namespace KxNTamberWebApi {

class Listener;

/// The calls come from one thread, in the order of their declaration. Failures are std::exceptions whose text is meant
/// for the operator.
class Server {
public:
    Server(ServerSettings settings, const Limits& limits);
    ~Server();

    /// Reads the token and the TLS files, and refuses settings that would let anyone in from outside.
    void prepare();
    /// The first handler gives the API its texts; those that follow lie below the same base path.
    void registerHandler(KxCHandler* handler);
    /// Serves files beside the API, to everybody. They outlive the server.
    void serveFiles(std::span<const StaticFile> files);
    /// Has `observer`, which outlives the server, told of every answer.
    void setObserver(ServerObserver* observer) { core->observer = observer; }
    void start(std::chrono::milliseconds stopGrace);
    /// Returns when no operation runs any more.
    void stop();

    std::uint16_t port() const;
    const ServerCore& internals() const { return *core; }

private:
    void endStreams();

    std::unique_ptr<ServerCore> core;
    std::vector<KxCHandler*> handlers;
    std::unique_ptr<Listener> listener;
    std::chrono::milliseconds grace{0};
    bool isRunning = false;
};

}  // namespace KxNTamberWebApi

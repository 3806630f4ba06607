// The web API server.
#pragma once

#include <cstdint>
#include <memory>

class KxCErrorListPool;

namespace KxNTamberWebApi {

class KxCHandler;

/// An HTTP/1.1 (RFC 9112) and WebSocket (RFC 6455) server for one handler. A failed call adds an error to the pool that
/// says what failed, on what, and the system's own text; the server is then good for nothing but destruction.
/// The calls below come from one thread, in the order create, init, registerHandler, start, stop.
class KxCServer {
public:
    /// Makes a server that keeps `requestThreads` threads for requests; more are added, up to a fixed cap, while
    /// requests block. Null on failure.
    static std::unique_ptr<KxCServer> create(KxCErrorListPool& pool, std::uint32_t requestThreads);

    /// Reads the [WebApi] section of the custom configuration, the token file (made on the first start) and the TLS
    /// files.
    void init(KxCErrorListPool& pool);

    /// Registers the one handler, which must outlive the server or call KxCHandler::detach before it ends.
    void registerHandler(KxCErrorListPool& pool, KxCHandler* handler);

    /// Begins to listen and to serve. `stopGraceSeconds` is how long `stop` lets running requests go on.
    void start(KxCErrorListPool& pool, std::uint32_t stopGraceSeconds);

    /// Accepts nothing new, lets running requests end within the grace, then closes every connection and returns when
    /// no operation of the handler is running any more. Log streams are ended at once. Harmless on a server that never
    /// started.
    void stop(KxCErrorListPool& pool);

    /// Stops the server if it is running.
    ~KxCServer();
    KxCServer(const KxCServer&) = delete;
    KxCServer& operator=(const KxCServer&) = delete;

private:
    struct State;
    explicit KxCServer(std::unique_ptr<State> state);
    std::unique_ptr<State> state;
};

}  // namespace KxNTamberWebApi

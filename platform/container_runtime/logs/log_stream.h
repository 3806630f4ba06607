// Container logs on their way to WebSockets.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "KxContainer.h"
#include "platform/container_runtime/logs/log_source.h"
#include "platform/net/cancellation.h"

namespace KxNContainer {

struct KxCContainer::KxSLogStreamSession {
    explicit KxSLogStreamSession(std::string container) : containerName(std::move(container)) {}

    const std::string containerName;
    KxNNet::Cancellation ending;  ///< given when the client has closed its socket, or when the runtime stops
};

/// The running log streams, found by their sockets. Never calls a socket while the lock is held. Any thread.
class LogStreams {
public:
    using Session = KxCContainer::KxSLogStreamSession;
    using Socket = KxNTamberWebApi::KxCWebSocket;

    /// Throws std::system_error when the process is out of descriptors. The session is ended from the start when
    /// the socket is closed already, or while streams are closed.
    std::shared_ptr<Session> add(Socket* socket, const std::string& containerName);

    /// Forgets the session of `socket`.
    void remove(Socket* socket);

    /// Ends the session of `socket`, if there is one.
    void end(Socket* socket);

    /// Ends all sessions, and those that are added later, until `open`.
    void close();
    void open();

private:
    std::mutex mutex;
    bool closed = false;
    std::unordered_map<Socket*, std::shared_ptr<Session>> sessions;
};

/// Follows the log that `request` asks Podman for and passes it on to `socket`, as `KxCContainer::StreamPodmanRequest`
/// describes: read where it is kept or, where that cannot be done, by the request as it is.
PodmanReply streamLog(const LogTools& tools, const PodmanRequest& request, const LogStreams::Session& session,
                      KxCErrorListPool& pool, LogStreams::Socket& socket);

}  // namespace KxNContainer

// Client of the target's message manager. On Linux messages end in the log.
#pragma once

#include <string_view>

class KxCErrorListPool;

class KxCMessageManagerClient {
public:
    /// The process's client. Lives as long as the process. Any thread.
    static KxCMessageManagerClient* getInstance();

    /// Opens the client. Messages sent before were kept and go out now. Errors go to `pool`.
    void init(KxCErrorListPool& pool);

    /// Hands over one message at a log level (2 info, 3 warning, 4 error, 6 notice). Any thread; never blocks
    /// for longer than a log line does. Messages of a client that is not open are kept, up to 256, the oldest
    /// dropped first.
    void sendMessage(int level, std::string_view text);

    /// Waits until everything handed over has left the process, at most `timeoutMilliseconds`; adds an error
    /// to `pool` when it has not by then.
    void flushMessageBuffer(KxCErrorListPool& pool, int timeoutMilliseconds);

    /// Closes the client. Later messages are kept as before `init`.
    void closeClient();

private:
    KxCMessageManagerClient() = default;
};

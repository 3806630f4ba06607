// A WebSocket connection (RFC 6455) as a handler sees it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

class KxCErrorListPool;

namespace KxNTamberWebApi {

/// The server's end of an established WebSocket.
///
/// The library makes one and hands it to KxCHandler::handleWebSocket, whose operation owns it from then on and
/// destroys it with `delete`. One the operation has not destroyed when it returns is destroyed by the library,
/// which then tells the client that the server failed (close code 1011).
///
/// How lifetimes hold: what is under way on the connection belongs to a record of the library's own, shared with this
/// object, so that neither input nor output ever touches the object itself. Only callbacks do. One is entered under the
/// record's mutex and only while the destructor has not begun; the destructor marks its beginning under the same mutex
/// and then waits for the callback that is running, so none runs after it.
class KxCWebSocket {
public:
    /// Called once when the connection is lost or the client closes it, on a thread of the library, with the context
    /// and length given to KxCResponse::switchWebSocket. It may run while `sendText` is in progress on another thread.
    /// It must not destroy the socket. It is not called once the destructor has begun, and the destructor waits
    /// for a call that is running; so whoever destroys the socket must hold no lock that the callback takes.
    using CloseCallback = void (*)(const void* context, std::uint32_t length, KxCWebSocket* socket);

    /// Called for each text message of the client, on a thread of the library; the rules of CloseCallback hold.
    using DataCallback = void (*)(const void* context, std::uint32_t length, KxCWebSocket* socket, const char* data,
                                  std::size_t size);

    struct State;  ///< the library's own side of the connection
    explicit KxCWebSocket(std::shared_ptr<State> state);

    /// What was handed to `sendText` is still delivered, then the connection is closed with code 1000. Does not wait
    /// for that; it waits only for a callback that is running. After it no callback runs.
    ~KxCWebSocket();
    KxCWebSocket(const KxCWebSocket&) = delete;
    KxCWebSocket& operator=(const KxCWebSocket&) = delete;

    /// Sends `length` bytes of valid UTF-8.
    ///
    /// With `joinable` the library may put neighbouring joinable texts into one message; without it the text is a
    /// message of its own. Writes or copies the text and returns once the connection has room, that is, it waits while
    /// more than a fixed amount waits to be sent: at most `timeoutMilliseconds`, or with -1 as long as the client makes
    /// progress by the server's own limit. True when the text was taken; false when the connection is gone or the wait
    /// ended. A connection that is gone is no error of the pool. One thread at a time.
    bool sendText(KxCErrorListPool& pool, const char* text, std::size_t length, int timeoutMilliseconds, bool joinable);

    /// False from the moment the connection is closed or lost, which is before the close callback is called: who
    /// registers something for that callback checks `isOpen` afterwards and so misses no close. Any thread.
    bool isOpen() const;

private:
    std::shared_ptr<State> state;
};

}  // namespace KxNTamberWebApi

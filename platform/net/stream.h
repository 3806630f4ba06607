// One byte stream: a socket, with TLS on it where the connection has that.
#pragma once

#include <sys/uio.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>

#include "platform/common/unique_fd.h"
#include "platform/net/cancellation.h"

struct ssl_ctx_st;  // OpenSSL's SSL_CTX and SSL: its headers are for the sources that use them
struct ssl_st;

namespace KxNNet {

/// What ends a wait early. Referred to, not kept: it lives as long as the wait.
struct WaitLimits {
    const Cancellation& cancellation;
    std::optional<std::chrono::steady_clock::time_point> deadline;
};

/// How a step on a stream ended.
enum class Outcome {
    done,        ///< something was transferred
    wantsRead,   ///< nothing can go on before the descriptor is readable
    wantsWrite,  ///< nothing can go on before the descriptor is writable
    closed,      ///< the peer has ended the connection
    timedOut,    ///< the deadline passed
    cancelled,   ///< the cancellation was given
    failed,      ///< the system or TLS refused
};

struct Step {
    Outcome outcome = Outcome::done;
    std::size_t size = 0;  ///< bytes transferred; more than 0 exactly when the outcome is `done`
    int error = 0;         ///< the system's number (errno(3)) of a failure; 0 when it was TLS that refused
};

/// The one way in which bytes move between this process and a client, or Podman.
///
/// `tryRead`, `tryWrite` and `tryHandshake` never wait; who gets `wantsRead` or `wantsWrite` waits for the descriptor,
/// on an event loop (loop_stream.h) or on its own thread (`wait`, `read`, `write`), and tries again. One thread reads
/// and one writes at a time; they may be two. `shutdown`, `cut` and `descriptor` may be called by any thread while the
/// object lives. Nothing here throws but the constructor.
class Stream {
public:
    Stream() = default;
    /// Takes a connected, non-blocking socket. With `context` the connection is the server's side of TLS, and
    /// `tryHandshake` comes first. Throws std::bad_alloc.
    explicit Stream(KxNCommon::UniqueFd socket, ssl_ctx_st* context = nullptr);
    Stream(Stream&& other) noexcept;
    Stream& operator=(Stream&& other) noexcept;
    ~Stream();

    explicit operator bool() const { return static_cast<bool>(socket); }
    int descriptor() const { return socket.get(); }
    bool isTls() const { return tls != nullptr; }

    /// Goes on with the TLS handshake: `done` once it is complete, with size 0.
    Step tryHandshake();
    /// The subject of the client's verified certificate as RFC 2253 writes it, empty when it showed none.
    std::string clientSubject() const;

    /// Reads what is there, at most `room.size()` bytes, which must not be 0.
    Step tryRead(std::span<char> room);
    /// True when TLS holds decrypted bytes, of which the descriptor does not tell.
    bool hasBuffered() const;
    /// Writes some of the bytes, in few packets and TLS records. What was not written must be offered again: the next
    /// write begins with the same bytes.
    Step tryWrite(std::span<const iovec> pieces);

    /// Waits on the calling thread until one of `events` (poll(2)) has happened, which `happened` then tells, or the
    /// limits end the wait. Never `done` when `events` is 0.
    Outcome wait(short events, const WaitLimits& limits, short& happened) const;

    /// As the `try` forms, but wait on the calling thread. Asked every time, so that a stream that always has data ends
    /// too when it is cancelled.
    Step read(std::span<char> room, const WaitLimits& limits);
    Step write(std::span<const iovec> pieces, const WaitLimits& limits);

    /// Ends reading: what is under way and all that follows sees the end of the stream.
    void shutdownReading();
    /// Tells the peer that no more comes: TLS's close_notify, sent when the socket takes it (RFC 8446, 6.1), and the
    /// end of the TCP stream. Not while another thread writes.
    void shutdownWriting();
    /// Ends both directions at once.
    void shutdown();
    /// Ends both directions and forgets what the peer has not taken: it gets a reset.
    void cut();

private:
    struct Tls;

    Step tryWriteTls(std::span<const iovec> pieces);
    Step tlsOutcome(int result);

    KxNCommon::UniqueFd socket;
    std::unique_ptr<Tls> tls;
};

}  // namespace KxNNet

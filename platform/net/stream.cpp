#include "platform/net/stream.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <new>
#include <utility>

namespace KxNNet {

namespace {

using Clock = std::chrono::steady_clock;

/// How much a small piece and what follows it put into one TLS record.
constexpr std::size_t SHARED_RECORD_SIZE = 4 * 1024;

/// Rounded up, so that a wait never ends just before its deadline and spins.
int pollTimeout(const std::optional<Clock::time_point>& deadline) {
    if (!deadline) {
        return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, INT_MAX));
}

Outcome check(const WaitLimits& limits) {
    if (limits.cancellation.isCancelled()) {
        return Outcome::cancelled;
    }
    return limits.deadline && Clock::now() >= *limits.deadline ? Outcome::timedOut : Outcome::done;
}

Step failWith(int number) {
    return {number == EPIPE || number == ECONNRESET ? Outcome::closed : Outcome::failed, 0, number};
}

}  // namespace

/// A TLS connection may be used by one thread at a time; each step on it is short, for its socket never blocks.
struct Stream::Tls {
    Tls(ssl_ctx_st* context, int socket) : connection(SSL_new(context)) {
        if (connection == nullptr || SSL_set_fd(connection, socket) != 1) {
            SSL_free(connection);
            throw std::bad_alloc();
        }
        SSL_set_accept_state(connection);
    }
    ~Tls() { SSL_free(connection); }
    Tls(const Tls&) = delete;
    Tls& operator=(const Tls&) = delete;

    SSL* const connection;
    mutable std::mutex mutex;
};

Stream::Stream(KxNCommon::UniqueFd connected, ssl_ctx_st* context) : socket(std::move(connected)) {
    if (context != nullptr) {
        tls = std::make_unique<Tls>(context, socket.get());
    }
}

Stream::Stream(Stream&& other) noexcept = default;
Stream& Stream::operator=(Stream&& other) noexcept = default;
Stream::~Stream() = default;

/// What the last call on the TLS connection, which gave `result`, means. Called under its mutex.
Step Stream::tlsOutcome(int result) {
    const int number = errno;
    switch (SSL_get_error(tls->connection, result)) {
        case SSL_ERROR_WANT_READ:
            return {Outcome::wantsRead};
        case SSL_ERROR_WANT_WRITE:
            return {Outcome::wantsWrite};
        case SSL_ERROR_ZERO_RETURN:
            return {Outcome::closed};
        case SSL_ERROR_SYSCALL:
            return number == 0 ? Step{Outcome::closed} : failWith(number);
        default:
            return failWith(0);
    }
}

Step Stream::tryHandshake() {
    const std::lock_guard lock(tls->mutex);
    ERR_clear_error();
    const int result = SSL_do_handshake(tls->connection);
    return result == 1 ? Step{} : tlsOutcome(result);
}

std::string Stream::clientSubject() const {
    if (!tls || SSL_get_verify_result(tls->connection) != X509_V_OK) {
        return {};
    }
    X509* const certificate = SSL_get0_peer_certificate(tls->connection);
    if (certificate == nullptr) {
        return {};
    }
    const std::unique_ptr<BIO, decltype(&BIO_free)> text(BIO_new(BIO_s_mem()), &BIO_free);
    if (!text || X509_NAME_print_ex(text.get(), X509_get_subject_name(certificate), 0,
                                    XN_FLAG_RFC2253 & ~ASN1_STRFLGS_ESC_MSB) < 0) {
        return "unreadable subject";
    }
    char* data = nullptr;
    const long size = BIO_get_mem_data(text.get(), &data);
    return size > 0 ? std::string(data, static_cast<std::size_t>(size)) : "empty subject";
}

bool Stream::hasBuffered() const {
    if (!tls) {
        return false;
    }
    const std::lock_guard lock(tls->mutex);
    return SSL_has_pending(tls->connection) == 1;
}

Step Stream::tryRead(std::span<char> room) {
    if (tls) {
        const std::lock_guard lock(tls->mutex);
        std::size_t total = 0;
        // A call gives one record at most; what lies decrypted behind it is taken along.
        do {
            ERR_clear_error();
            errno = 0;
            std::size_t size = 0;
            const int result = SSL_read_ex(tls->connection, room.data() + total, room.size() - total, &size);
            if (result != 1) {
                return total > 0 ? Step{Outcome::done, total} : tlsOutcome(result);
            }
            total += size;
        } while (total < room.size() && SSL_has_pending(tls->connection) == 1);
        return {Outcome::done, total};
    }
    for (;;) {
        const ssize_t count = ::recv(socket.get(), room.data(), room.size(), 0);
        if (count > 0) {
            return {Outcome::done, static_cast<std::size_t>(count)};
        }
        if (count == 0) {
            return {Outcome::closed};
        }
        if (errno != EINTR) {
            return errno == EAGAIN ? Step{Outcome::wantsRead} : failWith(errno);
        }
    }
}

Step Stream::tryWrite(std::span<const iovec> pieces) {
    if (!tls) {
        msghdr message{};
        message.msg_iov = const_cast<iovec*>(pieces.data());
        message.msg_iovlen = pieces.size();
        for (;;) {
            const ssize_t count = ::sendmsg(socket.get(), &message, MSG_NOSIGNAL);
            if (count >= 0) {
                return {Outcome::done, static_cast<std::size_t>(count)};
            }
            if (errno != EINTR) {
                return errno == EAGAIN ? Step{Outcome::wantsWrite} : failWith(errno);
            }
        }
    }
    return tryWriteTls(pieces);
}

Step Stream::tryWriteTls(std::span<const iovec> pieces) {
    while (!pieces.empty() && pieces.front().iov_len == 0) {
        pieces = pieces.subspan(1);
    }
    if (pieces.empty()) {
        return {};
    }
    // A small piece before others (the head of an answer or of a frame) shares its record with what follows. On the
    // stack the record would cost each stream a page for good.
    std::unique_ptr<char[]> record;
    const char* data = static_cast<const char*>(pieces.front().iov_base);
    std::size_t size = pieces.front().iov_len;
    if (pieces.size() > 1 && size < SHARED_RECORD_SIZE) {
        record.reset(new (std::nothrow) char[SHARED_RECORD_SIZE]);
        if (!record) {
            return failWith(ENOMEM);
        }
        size = 0;
        for (const iovec& piece : pieces) {
            const std::size_t taken = std::min(piece.iov_len, SHARED_RECORD_SIZE - size);
            std::copy_n(static_cast<const char*>(piece.iov_base), taken, record.get() + size);
            size += taken;
        }
        data = record.get();
    }
    const std::lock_guard lock(tls->mutex);
    ERR_clear_error();
    errno = 0;
    std::size_t written = 0;
    const int result = SSL_write_ex(tls->connection, data, size, &written);
    return result == 1 ? Step{Outcome::done, written} : tlsOutcome(result);
}

Outcome Stream::wait(short events, const WaitLimits& limits, short& happened) const {
    std::array<pollfd, 2> watched{{{limits.cancellation.descriptor(), POLLIN, 0}, {socket.get(), events, 0}}};
    for (;;) {
        const int ready = ::poll(watched.data(), watched.size(), pollTimeout(limits.deadline));
        if (ready < 0 && errno != EINTR) {
            return Outcome::failed;
        }
        if (const Outcome outcome = check(limits); outcome != Outcome::done) {
            return outcome;
        }
        if (ready > 0 && watched[1].revents != 0) {
            happened = watched[1].revents;
            return Outcome::done;
        }
    }
}

namespace {

/// Repeats `attempt` until something has moved, waiting between.
template <typename Attempt>
Step repeat(const Stream& stream, const WaitLimits& limits, Attempt attempt) {
    for (;;) {
        if (const Outcome outcome = check(limits); outcome != Outcome::done) {
            return {outcome};
        }
        const Step step = attempt();
        if (step.outcome != Outcome::wantsRead && step.outcome != Outcome::wantsWrite) {
            return step;
        }
        short happened = 0;
        const short wanted = step.outcome == Outcome::wantsRead ? POLLIN : POLLOUT;
        if (const Outcome outcome = stream.wait(wanted, limits, happened); outcome != Outcome::done) {
            return {outcome};
        }
    }
}

}  // namespace

Step Stream::read(std::span<char> room, const WaitLimits& limits) {
    return repeat(*this, limits, [&] { return tryRead(room); });
}

Step Stream::write(std::span<const iovec> pieces, const WaitLimits& limits) {
    return repeat(*this, limits, [&] { return tryWrite(pieces); });
}

void Stream::shutdownReading() {
    ::shutdown(socket.get(), SHUT_RD);
}

void Stream::shutdownWriting() {
    if (tls) {
        const std::lock_guard lock(tls->mutex);
        ERR_clear_error();
        SSL_shutdown(tls->connection);
    }
    ::shutdown(socket.get(), SHUT_WR);
}

void Stream::shutdown() {
    ::shutdown(socket.get(), SHUT_RDWR);
}

void Stream::cut() {
    const linger atOnce{1, 0};
    ::setsockopt(socket.get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    ::shutdown(socket.get(), SHUT_RDWR);
}

}  // namespace KxNNet

#include "platform/web_api/server/transport.h"

#include <openssl/x509.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <boost/asio/bind_executor.hpp>
#include <boost/asio/error.hpp>
#include <cerrno>

namespace KxNTamberWebApi {

Transport::Transport(Socket accepted, std::shared_ptr<asio::ssl::context> tlsContext)
    : context(std::move(tlsContext)), socket(std::move(accepted)) {
    if (context) {
        tls = std::make_unique<Tls>(socket, *context);
    }
}

Task<error_code> Transport::handshake() {
    error_code error;
    if (tls) {
        co_await tls->async_handshake(Tls::server, resumeWith(error));
    }
    co_return error;
}

std::string Transport::clientSubject() const {
    if (!tls || SSL_get_verify_result(tls->native_handle()) != X509_V_OK) {
        return {};
    }
    const std::unique_ptr<X509, decltype(&X509_free)> certificate(SSL_get1_peer_certificate(tls->native_handle()),
                                                                  &X509_free);
    if (!certificate) {
        return {};
    }
    const std::unique_ptr<BIO, decltype(&BIO_free)> text(BIO_new(BIO_s_mem()), &BIO_free);
    if (!text || X509_NAME_print_ex(text.get(), X509_get_subject_name(certificate.get()), 0,
                                    XN_FLAG_RFC2253 & ~ASN1_STRFLGS_ESC_MSB) < 0) {
        return "unreadable subject";
    }
    char* data = nullptr;
    const long size = BIO_get_mem_data(text.get(), &data);
    return size > 0 ? std::string(data, static_cast<std::size_t>(size)) : "empty subject";
}

std::size_t Transport::writeNow(const std::array<asio::const_buffer, 2>& buffers, error_code& error) {
    if (tls) {
        return 0;
    }
    const std::size_t written = socket.write_some(buffers, error);
    if (error == asio::error::would_block || error == asio::error::try_again) {
        error.clear();
        return 0;
    }
    return written;
}

void Transport::readSome(const Pieces<asio::mutable_buffer>& buffers, const Strand& strand,
                         std::unique_ptr<Completion> completion) {
    auto handler = asio::bind_executor(
        strand, [wrapped = std::move(completion)](error_code error, std::size_t size) { wrapped->call(error, size); });
    tls ? tls->async_read_some(buffers, std::move(handler)) : socket.async_read_some(buffers, std::move(handler));
}

void Transport::writeSome(const Pieces<asio::const_buffer>& buffers, const Strand& strand,
                          std::unique_ptr<Completion> completion) {
    auto handler = asio::bind_executor(
        strand, [wrapped = std::move(completion)](error_code error, std::size_t size) { wrapped->call(error, size); });
    tls ? tls->async_write_some(buffers, std::move(handler)) : socket.async_write_some(buffers, std::move(handler));
}

bool Transport::waitFor(short events, error_code& error) {
    pollfd watched{socket.native_handle(), events, 0};
    int ready;
    do {
        ready = ::poll(&watched, 1, -1);
    } while (ready < 0 && errno == EINTR);
    if (ready < 0) {
        error.assign(errno, boost::system::system_category());
    }
    return ready > 0;
}

std::size_t Transport::readBlocking(const asio::mutable_buffer& buffer, error_code& error) {
    for (;;) {
        error.clear();
        const std::size_t got = tls ? tls->read_some(buffer, error) : socket.read_some(buffer, error);
        if (got > 0) {
            error.clear();
            return got;
        }
        if (error != asio::error::would_block && error != asio::error::try_again) {
            return 0;
        }
        error.clear();
        if (!waitFor(POLLIN, error)) {
            return 0;
        }
    }
}

void Transport::writeBlocking(std::string_view first, std::string_view second, error_code& error) {
    // Only the descriptor: the socket object belongs to the event loop, which may be reading.
    std::array<iovec, 2> rest{
        {{const_cast<char*>(first.data()), first.size()}, {const_cast<char*>(second.data()), second.size()}}};
    msghdr message{};
    message.msg_iov = rest.data();
    message.msg_iovlen = rest.size();
    while (rest[0].iov_len + rest[1].iov_len > 0) {
        const ssize_t written = ::sendmsg(socket.native_handle(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (written < 0 && errno == EAGAIN) {
            if (!waitFor(POLLOUT, error)) {
                return;
            }
        } else if (written < 0 && errno != EINTR) {
            error.assign(errno, boost::system::system_category());
            return;
        }
        auto left = static_cast<std::size_t>(std::max<ssize_t>(written, 0));
        for (iovec& piece : rest) {
            const std::size_t taken = std::min(left, piece.iov_len);
            piece.iov_base = static_cast<char*>(piece.iov_base) + taken;
            piece.iov_len -= taken;
            left -= taken;
        }
    }
}

Task<std::size_t> Transport::drop(error_code& error) {
    std::array<char, 16 * 1024> scratch;
    co_return co_await socket.async_read_some(asio::buffer(scratch), resumeWith(error));
}

void Transport::shutdownReading() {
    ::shutdown(socket.native_handle(), SHUT_RD);
}

void Transport::shutdownWriting() {
    ::shutdown(socket.native_handle(), SHUT_WR);
}

void Transport::shutdownBoth() {
    ::shutdown(socket.native_handle(), SHUT_RDWR);
}

void Transport::cut() {
    const linger atOnce{1, 0};
    ::setsockopt(socket.native_handle(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    ::shutdown(socket.native_handle(), SHUT_RDWR);
}

Task<void> Transport::sayGoodbye() {
    if (tls) {
        error_code ignored;
        co_await tls->async_shutdown(resumeWith(ignored));
    }
}

}  // namespace KxNTamberWebApi

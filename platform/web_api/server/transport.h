// The byte stream of one connection: plain TCP, or TLS on it. One type, so that what is built on it is compiled once.
#pragma once

#include <array>
#include <boost/asio/associated_executor.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/strand.hpp>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "platform/net/asio_types.h"

namespace KxNTamberWebApi {

/// Meets the requirements of an asynchronous stream. One read and one write at a time. `shutdown…` may be called from
/// any thread while the object lives; what is under way then ends with an error.
class Transport {
public:
    using executor_type = Executor;
    using Tls = asio::ssl::stream<Socket&>;

    /// `context` null for plain TCP. The context is kept as long as the stream.
    Transport(Socket socket, std::shared_ptr<asio::ssl::context> context);
    Transport(Transport&&) = delete;

    executor_type get_executor() noexcept { return socket.get_executor(); }
    bool isTls() const { return tls != nullptr; }
    int descriptor() { return socket.native_handle(); }

    Task<error_code> handshake();
    /// The subject of the client's verified certificate, empty when it showed none.
    std::string clientSubject() const;

    /// Writes what the connection takes without waiting: 0 under TLS, which cannot write a part of a record.
    std::size_t writeNow(const std::array<asio::const_buffer, 2>& buffers, error_code& error);

    /// Reads at least one byte, waiting for it on the calling thread. 0 at the end and on an error.
    std::size_t readBlocking(const asio::mutable_buffer& buffer, error_code& error);

    /// Writes `first` and then `second`, waiting on the calling thread; nobody else writes meanwhile. Not under TLS.
    void writeBlocking(std::string_view first, std::string_view second, error_code& error);

    /// Reads and drops at least one byte; under TLS past the records, which may come in the middle of one.
    Task<std::size_t> drop(error_code& error);

    /// Ends reading: what is under way and all that follows sees the end of the stream.
    void shutdownReading();
    /// Tells the client that no more comes.
    void shutdownWriting();
    /// Ends both directions.
    void shutdownBoth();
    /// Ends both directions and forgets what the client has not taken.
    void cut();

    template <typename Buffers, typename Token>
    auto async_read_some(const Buffers& buffers, Token&& token) {
        return asio::async_initiate<Token, void(error_code, std::size_t)>(
            [this](auto&& handler, const Buffers& into) {
                if constexpr (isOnStrand<decltype(handler)>) {
                    readSome(into, asio::get_associated_executor(handler),
                             wrap(std::forward<decltype(handler)>(handler)));
                } else if (tls) {
                    tls->async_read_some(into, std::forward<decltype(handler)>(handler));
                } else {
                    socket.async_read_some(into, std::forward<decltype(handler)>(handler));
                }
            },
            token, buffers);
    }

    template <typename Buffers, typename Token>
    auto async_write_some(const Buffers& buffers, Token&& token) {
        return asio::async_initiate<Token, void(error_code, std::size_t)>(
            [this](auto&& handler, const Buffers& from) {
                if constexpr (isOnStrand<decltype(handler)>) {
                    writeSome(from, asio::get_associated_executor(handler),
                              wrap(std::forward<decltype(handler)>(handler)));
                } else if (tls) {
                    tls->async_write_some(from, std::forward<decltype(handler)>(handler));
                } else {
                    socket.async_write_some(from, std::forward<decltype(handler)>(handler));
                }
            },
            token, buffers);
    }

    /// Says good-bye as TLS wants it; nothing under plain TCP.
    Task<void> sayGoodbye();

private:
    using Strand = asio::strand<Executor>;

    /// What runs on a strand is a WebSocket's: dozens of composed operations, each a type of its own. They reach the
    /// socket through one type; without it their code takes minutes to compile and is a quarter of the program.
    template <typename Handler>
    static constexpr bool isOnStrand =
        std::is_same_v<typename asio::associated_executor<std::decay_t<Handler>>::type, Strand>;

    struct Completion {
        Completion() = default;
        Completion(const Completion&) = delete;
        virtual ~Completion() = default;
        virtual void call(error_code error, std::size_t size) = 0;
    };

    template <typename Handler>
    static std::unique_ptr<Completion> wrap(Handler&& handler) {
        struct Wrapped final : Completion {
            explicit Wrapped(Handler&& wrapped) : handler(std::forward<Handler>(wrapped)) {}
            void call(error_code error, std::size_t size) override { std::move(handler)(error, size); }
            std::decay_t<Handler> handler;
        };
        return std::make_unique<Wrapped>(std::forward<Handler>(handler));
    }

    /// The first buffers of a sequence: a part is all that one operation has to transfer.
    template <typename Buffer>
    struct Pieces {
        template <typename Buffers>
        explicit(false) Pieces(const Buffers& buffers) {
            for (auto at = asio::buffer_sequence_begin(buffers);
                 at != asio::buffer_sequence_end(buffers) && count < pieces.size(); ++at) {
                pieces[count++] = *at;
            }
        }
        const Buffer* begin() const { return pieces.data(); }
        const Buffer* end() const { return pieces.data() + count; }

        std::array<Buffer, 8> pieces;
        std::size_t count = 0;
    };

    void readSome(const Pieces<asio::mutable_buffer>& buffers, const Strand& strand,
                  std::unique_ptr<Completion> completion);
    void writeSome(const Pieces<asio::const_buffer>& buffers, const Strand& strand,
                   std::unique_ptr<Completion> completion);

    bool waitFor(short events, error_code& error);

    std::shared_ptr<asio::ssl::context> context;
    Socket socket;
    std::unique_ptr<Tls> tls;
};

}  // namespace KxNTamberWebApi

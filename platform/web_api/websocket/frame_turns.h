// The way out of a WebSocket, taken in turns: by the WebSocket library on its strand, and by the thread of the stream,
// whose messages else would each cost a change of threads.
//
// A turn lasts a whole frame. The library's data messages are kept apart from the thread's by their owner; what the
// library sends by itself (answers to pings and to a close) waits here until the thread's frame is out, and the thread
// gets no turn while the library is in the middle of a frame or waits for its own.
#pragma once

#include <boost/asio/basic_waitable_timer.hpp>
#include <boost/asio/compose.hpp>
#include <boost/asio/post.hpp>
#include <boost/beast/core/bind_handler.hpp>
#include <boost/beast/core/role.hpp>
#include <chrono>
#include <mutex>
#include <string_view>
#include <utility>

#include "platform/web_api/server/transport.h"

namespace KxNTamberWebApi {

/// Meets the requirements of an asynchronous stream.
class FrameTurns {
public:
    using executor_type = Executor;

    /// `connection` outlives this object.
    explicit FrameTurns(Transport& connection);
    FrameTurns(const FrameTurns&) = delete;
    FrameTurns& operator=(const FrameTurns&) = delete;

    executor_type get_executor() noexcept { return transport.get_executor(); }

    /// Takes a turn for `writeText`, which must follow. False when there is none now; under TLS there never is, since
    /// its layer belongs to the strand. Any thread.
    bool tryTake();

    /// Sends `text` as one message, waiting on the calling thread until the connection has taken it all; ends the turn.
    /// False when the connection failed, which is shut down then: nothing may follow half a frame.
    bool writeText(std::string_view text);

    /// Gives the thread no further turn: the client has sent its close.
    void close();

    template <typename Buffers, typename Token>
    auto async_read_some(const Buffers& buffers, Token&& token) {
        return transport.async_read_some(buffers, std::forward<Token>(token));
    }

    template <typename Buffers, typename Token>
    auto async_write_some(const Buffers& buffers, Token&& token) {
        return asio::async_compose<Token, void(error_code, std::size_t)>(Write<Buffers>{*this, buffers}, token,
                                                                         get_executor());
    }

    void shutdownBoth() { transport.shutdownBoth(); }
    void shutdownWriting() { transport.shutdownWriting(); }

private:
    using Clock = std::chrono::steady_clock;
    using Timer = asio::basic_waitable_timer<Clock, asio::wait_traits<Clock>, Executor>;
    enum class Holder { nobody, library, thread };

    /// One write of the library, of which there is one at a time.
    template <typename Buffers>
    struct Write {
        FrameTurns& turns;
        Buffers buffers;
        bool hasBegun = false;

        template <typename Self>
        void operator()(Self& self, error_code error = {}, std::size_t written = 0) {
            if (hasBegun) {
                // The rest of a frame is written next, with nothing in between.
                turns.endLibrary(error || written == asio::buffer_size(buffers));
                self.complete(error, written);
                return;
            }
            FrameTurns& all = turns;
            std::unique_lock lock(all.mutex);
            if (all.holder == Holder::thread) {
                all.libraryWaits = true;
                all.turn.async_wait(std::move(self));
                return;
            }
            all.holder = Holder::library;
            all.libraryWaits = false;
            lock.unlock();
            hasBegun = true;
            const Buffers from = buffers;
            all.transport.async_write_some(from, std::move(self));
        }
    };

    void endLibrary(bool isFrameOut);

    Transport& transport;
    std::mutex mutex;
    Timer turn;  // never passes; what waits for it is woken when the thread's turn ends
    Holder holder = Holder::nobody;
    bool libraryWaits = false;
    bool isClosed = false;
};

// How the WebSocket library ends a connection. The descriptor stays open until the owner goes.
inline void beast_close_socket(FrameTurns& turns) {
    turns.shutdownBoth();
}

inline void teardown(boost::beast::role_type, FrameTurns& turns, error_code& error) {
    turns.shutdownWriting();
    error.clear();
}

template <typename Handler>
void async_teardown(boost::beast::role_type role, FrameTurns& turns, Handler&& handler) {
    error_code error;
    teardown(role, turns, error);
    asio::post(turns.get_executor(), boost::beast::bind_front_handler(std::forward<Handler>(handler), error));
}

}  // namespace KxNTamberWebApi

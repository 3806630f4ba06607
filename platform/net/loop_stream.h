// Waiting on the event loop: for a descriptor, for a stream, and for a call of another thread.
#pragma once

#include <boost/asio/async_result.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/basic_stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <memory>
#include <type_traits>
#include <utility>

#include "platform/net/stream.h"

namespace KxNNet {

// The concrete executor spares the type-erased one's virtual calls and allocations on every wait.
using Executor = boost::asio::io_context::executor_type;

/// What a coroutine on the event loop gives.
template <typename Result>
using Task = boost::asio::awaitable<Result, Executor>;

/// Registers a descriptor, which stays its owner's, with an event loop. One coroutine at a time waits for each of the
/// two events. Destroyed before the descriptor is closed, and while nobody waits.
class LoopWatch {
public:
    /// Throws boost::system::system_error when the system refuses.
    LoopWatch(const Executor& loop, int descriptor) : watched(loop, descriptor) {}
    ~LoopWatch() {
        if (watched.is_open()) {
            watched.release();
        }
    }
    LoopWatch(const LoopWatch&) = delete;
    LoopWatch& operator=(const LoopWatch&) = delete;

    /// Resume the coroutine once the descriptor can be read from or written to, which its end and its failure count as:
    /// the next step on it tells.
    Task<void> readable() { return wait(Descriptor::wait_read, readFailure); }
    Task<void> writable() { return wait(Descriptor::wait_write, writeFailure); }

    Executor executor() { return watched.get_executor(); }

    /// Takes the descriptor from the loop, which then is not woken by what happens to it, and gives it back, while
    /// nobody waits. `attach` throws as the constructor does.
    void detach() { watched.release(); }
    void attach(int descriptor) { watched.assign(descriptor); }

private:
    using Descriptor = boost::asio::posix::basic_stream_descriptor<Executor>;

    Task<void> wait(Descriptor::wait_type event, boost::system::error_code& ignored) {
        return watched.async_wait(event,
                                  boost::asio::redirect_error(boost::asio::use_awaitable_t<Executor>(), ignored));
    }

    Descriptor watched;
    boost::system::error_code readFailure;
    boost::system::error_code writeFailure;
};

/// A stream for which coroutines wait, too.
class LoopStream : public Stream {
public:
    /// As Stream. Throws boost::system::system_error when the system refuses to watch it.
    LoopStream(const Executor& loop, KxNCommon::UniqueFd connected, ssl_ctx_st* context)
        : Stream(std::move(connected), context), watch(loop, descriptor()) {}

    Executor executor() { return watch.executor(); }

    /// Waits for what a step wanted.
    Task<void> until(Outcome wanted) { return wanted == Outcome::wantsWrite ? watch.writable() : watch.readable(); }

    /// Other threads wait for the stream until it is given back: what comes need not wake the loop. As LoopWatch.
    void lend() { watch.detach(); }
    void takeBack() { watch.attach(descriptor()); }

private:
    LoopWatch watch;
};

/// Whether a step moved nothing because it has to wait for the descriptor.
inline bool mustWait(Outcome outcome) {
    return outcome == Outcome::wantsRead || outcome == Outcome::wantsWrite;
}

/// Suspends the coroutine, which runs on `loop`, until the function that `begin` is given was called: once, with a bool
/// and by any thread. Gives what it was called with. The function can be copied.
template <typename Begin>
Task<bool> untilCalled(Executor loop, Begin begin) {
    using Awaitable = boost::asio::use_awaitable_t<Executor>;
    bool result = false;
    Awaitable resumed;
    co_await boost::asio::async_initiate<Awaitable, void()>(
        [&](auto&& handler) {
            auto resume = std::make_shared<std::decay_t<decltype(handler)>>(std::forward<decltype(handler)>(handler));
            begin([&result, loop, resume = std::move(resume)](bool calledWith) {
                result = calledWith;
                boost::asio::post(loop, [resume] { std::move (*resume)(); });
            });
        },
        resumed);
    co_return result;
}

}  // namespace KxNNet

// Waiting for a descriptor on the event loop.
#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/basic_stream_descriptor.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace KxNNet {

// The concrete executor spares the type-erased one's virtual calls and allocations on every wait.
using Executor = boost::asio::io_context::executor_type;

/// What a coroutine on the event loop gives.
template <typename Result>
using Task = boost::asio::awaitable<Result, Executor>;

/// Registers a descriptor, which stays its owner's, with an event loop. One wait for each event at a time. The watch is
/// destroyed before the descriptor is closed, and while nobody waits.
class LoopWatch {
public:
    /// Throws boost::system::system_error when the system refuses.
    LoopWatch(const Executor& loop, int descriptor) : watched(loop, descriptor) {}
    ~LoopWatch() { watched.release(); }
    LoopWatch(const LoopWatch&) = delete;
    LoopWatch& operator=(const LoopWatch&) = delete;

    /// Resume the coroutine once the descriptor can be read from or written to, which includes its end and its failure:
    /// the next step on the stream tells.
    Task<void> readable() { return wait(Descriptor::wait_read); }
    Task<void> writable() { return wait(Descriptor::wait_write); }

private:
    using Descriptor = boost::asio::posix::basic_stream_descriptor<Executor>;

    Task<void> wait(Descriptor::wait_type event) {
        return watched.async_wait(event,
                                  boost::asio::redirect_error(boost::asio::use_awaitable_t<Executor>(), ignored));
    }

    Descriptor watched;
    boost::system::error_code ignored;
};

}  // namespace KxNNet

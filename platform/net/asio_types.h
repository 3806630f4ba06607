// Short names for the Asio types that the server is built on. For .cpp files and private headers only.
#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/asio/basic_stream_socket.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/system/error_code.hpp>

namespace KxNNet {

namespace asio = boost::asio;
using boost::system::error_code;

// The concrete executor spares the type-erased one's virtual calls and allocations on every operation.
using Executor = asio::io_context::executor_type;
using Socket = asio::basic_stream_socket<asio::ip::tcp, Executor>;

template <typename Result>
using Task = asio::awaitable<Result, Executor>;

/// Completion token for `co_await` that puts a failure into `error` instead of throwing it.
inline auto resumeWith(error_code& error) {
    return asio::redirect_error(asio::use_awaitable_t<Executor>(), error);
}

}  // namespace KxNNet

namespace KxNTamberWebApi {
using namespace KxNNet;
}  // namespace KxNTamberWebApi

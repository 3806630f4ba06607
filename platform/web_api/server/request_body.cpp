#include "platform/web_api/server/request_body.h"

#include <algorithm>
#include <boost/asio/buffer.hpp>
#include <boost/beast/http/error.hpp>

namespace KxNTamberWebApi {

using KxNNet::Outcome;
namespace http = boost::beast::http;

RequestBody::Piece RequestBody::nextReadAhead(std::span<char> room) {
    const std::string_view pending = buffered.pending();
    if (pending.empty()) {
        return {Outcome::wantsRead, {}, {}};
    }
    if (!chunked) {
        const auto size = static_cast<std::size_t>(std::min<std::uint64_t>({pending.size(), room.size(), left}));
        std::copy_n(pending.data(), size, room.data());
        left -= size;
        buffered.consume(size);
        return {size > 0 ? Outcome::done : Outcome::wantsRead, {room.data(), size}, {}};
    }
    auto& target = parser.get().body();
    target.data = room.data();
    target.size = room.size();
    target.more = true;
    boost::system::error_code error;
    const std::size_t consumed = parser.put(boost::asio::buffer(pending.data(), pending.size()), error);
    if (error && error != http::error::need_more && error != http::error::need_buffer) {
        return {Outcome::done, {}, "The body is not well-formed: " + error.message()};
    }
    buffered.consume(consumed);
    const std::size_t size = room.size() - target.size;
    return {consumed > 0 || size > 0 ? Outcome::done : Outcome::wantsRead, {room.data(), size}, {}};
}

RequestBody::Piece RequestBody::next(std::span<char> room) {
    Piece piece = nextReadAhead(room);
    if (piece.outcome == Outcome::done || isComplete()) {
        return piece;
    }
    if (!chunked) {
        // All that is there: a file is written faster in few large pieces, and TLS gives a record at a time.
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(room.size(), left));
        std::size_t size = 0;
        KxNNet::Step step;
        do {
            step = stream.tryRead(room.subspan(size, wanted - size));
            size += step.size;
        } while (step.outcome == Outcome::done && size < wanted);
        left -= size;
        return {size > 0 ? Outcome::done : step.outcome, {room.data(), size}, {}};
    }
    const std::span<char> more = buffered.prepare();
    if (more.empty()) {
        return {Outcome::done, {}, "The body is not well-formed: a chunk's head is too long"};
    }
    const KxNNet::Step step = stream.tryRead(more);
    buffered.commit(step.size);
    return {step.outcome, {}, {}};
}

}  // namespace KxNTamberWebApi

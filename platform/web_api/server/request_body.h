// The body of a request as it comes off the connection.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/net/stream.h"
#include "platform/web_api/http/request_buffer.h"
#include "platform/web_api/http/request_head.h"

namespace KxNTamberWebApi {

/// First what was read ahead of it, then what the stream gives; chunked coding is taken away. Never waits. One thread
/// at a time.
class RequestBody {
public:
    /// All three outlive the body.
    RequestBody(RequestParser& head, RequestBuffer& readAhead, KxNNet::Stream& connection)
        : parser(head),
          buffered(readAhead),
          stream(connection),
          chunked(head.chunked()),
          left(head.content_length().value_or(0)) {}

    bool isComplete() const { return chunked ? parser.is_done() : left == 0; }
    bool hasBegunToArrive() const { return !buffered.pending().empty(); }
    /// Bytes that are still to come, where the head told their number.
    std::uint64_t remaining() const { return left; }

    struct Piece {
        KxNNet::Outcome outcome;  ///< `done`: go on, with or without bytes
        std::string_view bytes;   ///< lie in the room that was given
        std::string problem;      ///< why the body is not well-formed; empty when it is
    };

    /// The next bytes, put into `room`. `wantsRead` and `wantsWrite` as of a step on the stream.
    Piece next(std::span<char> room);

    /// The same of what was read ahead only: `wantsRead` when that is used up.
    Piece nextReadAhead(std::span<char> room);

private:
    RequestParser& parser;
    RequestBuffer& buffered;
    KxNNet::Stream& stream;
    const bool chunked;
    std::uint64_t left;  // bytes of a body that is not chunked
};

}  // namespace KxNTamberWebApi

// The body of a request as it comes off the connection.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/net/stream.h"
#include "platform/web_api/http/body_decoder.h"
#include "platform/web_api/http/request_buffer.h"

namespace KxNTamberWebApi {

/// First what was read ahead of it, then what the stream gives; chunked coding is taken away. Never waits. One thread
/// at a time.
class RequestBody {
public:
    /// All three outlive the body.
    RequestBody(RequestParser& head, RequestBuffer& readAhead, KxNNet::Stream& connection)
        : decoder(head), buffered(readAhead), stream(connection) {}

    bool isComplete() const { return decoder.isComplete(); }
    bool hasBegunToArrive() const { return !buffered.pending().empty(); }
    /// Bytes that are still to come, where the head told their number.
    std::uint64_t remaining() const { return decoder.remaining(); }

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
    BodyDecoder decoder;
    RequestBuffer& buffered;
    KxNNet::Stream& stream;
};

}  // namespace KxNTamberWebApi

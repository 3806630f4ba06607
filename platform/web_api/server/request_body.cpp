#include "platform/web_api/server/request_body.h"

#include <algorithm>

namespace KxNTamberWebApi {

using KxNNet::Outcome;

RequestBody::Piece RequestBody::nextReadAhead(std::span<char> room) {
    const std::string_view pending = buffered.pending();
    if (pending.empty()) {
        return {Outcome::wantsRead, {}, {}};
    }
    boost::system::error_code error;
    const BodyDecoder::Step step = decoder.decode(pending, room, error);
    if (error) {
        return {Outcome::done, {}, "The body is not well-formed: " + error.message()};
    }
    buffered.consume(step.consumed);
    const bool hasMoved = step.consumed > 0 || step.produced > 0;
    return {hasMoved ? Outcome::done : Outcome::wantsRead, {room.data(), step.produced}, {}};
}

RequestBody::Piece RequestBody::next(std::span<char> room) {
    Piece piece = nextReadAhead(room);
    if (piece.outcome == Outcome::done || isComplete()) {
        return piece;
    }
    if (!decoder.isChunked()) {
        // All that is there: a file is written faster in few large pieces, and TLS gives a record at a time.
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(room.size(), remaining()));
        std::size_t size = 0;
        KxNNet::Step step;
        do {
            step = stream.tryRead(room.subspan(size, wanted - size));
            size += step.size;
        } while (step.outcome == Outcome::done && size < wanted);
        decoder.tookDirectly(size);
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

// Takes the body out of the bytes that follow a request's head.
#pragma once

#include <boost/system/error_code.hpp>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "platform/web_api/http/request_head.h"

namespace KxNTamberWebApi {

class BodyDecoder {
public:
    /// `headParser` has read a head, and outlives the decoder.
    explicit BodyDecoder(RequestParser& headParser);

    bool isComplete() const;
    bool isChunked() const { return chunked; }
    /// Bytes that are still to come; only for a body that is not chunked, whose bytes may be read straight to where
    /// they are wanted.
    std::uint64_t remaining() const { return left; }
    void tookDirectly(std::size_t size) { left -= size; }

    struct Step {
        std::size_t consumed;
        std::size_t produced;
    };
    /// Decodes from `raw` into `room`. A step that consumes nothing needs more raw bytes.
    Step decode(std::string_view raw, std::span<char> room, boost::system::error_code& error);

private:
    RequestParser& parser;
    bool chunked;
    std::uint64_t left;
};

}  // namespace KxNTamberWebApi

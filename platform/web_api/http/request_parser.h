// The HTTP parser, and what is said about the body that follows a head.
#pragma once

#include <boost/beast/http/buffer_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <cstdint>

#include "platform/net/asio_types.h"

namespace KxNTamberWebApi {

using RequestParser = boost::beast::http::request_parser<boost::beast::http::buffer_body>;

/// Takes the body out of the bytes that follow a head that `parser` has read.
class BodyDecoder {
public:
    explicit BodyDecoder(RequestParser& parser);

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
    /// Decodes from `raw` into `into`. A step that consumes nothing needs more raw bytes.
    Step decode(const char* raw, std::size_t size, char* into, std::size_t room, error_code& error);

private:
    RequestParser& parser;
    bool chunked;
    std::uint64_t left;
};

}  // namespace KxNTamberWebApi

#include "platform/web_api/http/request_parser.h"

#include <algorithm>
#include <boost/beast/http/error.hpp>
#include <cstring>

namespace KxNTamberWebApi {

BodyDecoder::BodyDecoder(RequestParser& headParser)
    : parser(headParser), chunked(headParser.chunked()), left(headParser.content_length().value_or(0)) {}

bool BodyDecoder::isComplete() const {
    return chunked ? parser.is_done() : left == 0;
}

BodyDecoder::Step BodyDecoder::decode(const char* raw, std::size_t size, char* into, std::size_t room,
                                      error_code& error) {
    if (!chunked) {
        const std::size_t taken = static_cast<std::size_t>(std::min<std::uint64_t>({size, room, left}));
        std::memcpy(into, raw, taken);
        left -= taken;
        return {taken, taken};
    }
    namespace http = boost::beast::http;
    auto& target = parser.get().body();
    target.data = into;
    target.size = room;
    target.more = true;
    const std::size_t consumed = parser.put(asio::buffer(raw, size), error);
    if (error == http::error::need_more || error == http::error::need_buffer) {
        error.clear();
    }
    return {consumed, room - target.size};
}

}  // namespace KxNTamberWebApi

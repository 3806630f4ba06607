#include "platform/web_api/http/body_decoder.h"

#include <algorithm>
#include <boost/asio/buffer.hpp>
#include <boost/beast/http/error.hpp>

namespace KxNTamberWebApi {

BodyDecoder::BodyDecoder(RequestParser& headParser)
    : parser(headParser), chunked(headParser.chunked()), left(headParser.content_length().value_or(0)) {}

bool BodyDecoder::isComplete() const {
    return chunked ? parser.is_done() : left == 0;
}

BodyDecoder::Step BodyDecoder::decode(std::string_view raw, std::span<char> room, boost::system::error_code& error) {
    if (!chunked) {
        const auto taken = static_cast<std::size_t>(std::min<std::uint64_t>({raw.size(), room.size(), left}));
        std::copy_n(raw.data(), taken, room.data());
        left -= taken;
        return {taken, taken};
    }
    namespace http = boost::beast::http;
    auto& target = parser.get().body();
    target.data = room.data();
    target.size = room.size();
    target.more = true;
    const std::size_t consumed = parser.put(boost::asio::buffer(raw.data(), raw.size()), error);
    if (error == http::error::need_more || error == http::error::need_buffer) {
        error.clear();
    }
    return {consumed, room.size() - target.size};
}

}  // namespace KxNTamberWebApi

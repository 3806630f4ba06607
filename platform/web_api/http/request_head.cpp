#include "platform/web_api/http/request_head.h"

#include <boost/asio/buffer.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/rfc7230.hpp>
#include <cstdint>

#include "platform/common/text.h"
#include "platform/web_api/http/header_parameters.h"
#include "platform/web_api/http/request_target.h"

namespace KxNTamberWebApi {

namespace http = boost::beast::http;
using http::field;

namespace {

/// The parser's own limit never acts: the head is measured before it is parsed.
constexpr std::uint32_t PARSER_HEADER_LIMIT = 64 * 1024;

/// What RFC 9112 asks of a server before it trusts the length of a body.
std::optional<Refusal> checkFraming(const RequestHead& request) {
    const auto hosts = request.count(field::host);
    if (hosts > 1 || (hosts == 0 && request.version() == 11)) {
        return Refusal{400, "The request needs exactly one Host"};
    }
    const bool isOriginForm = request.target().starts_with('/');
    if (!isHostAndPort(request[field::host]) || (!isOriginForm && !splitRequestTarget(request.target()))) {
        return Refusal{400, "The host of the request is not a name or address with a port or none"};
    }
    const bool hasCoding = request.count(field::transfer_encoding) > 0;
    if (hasCoding && (request.version() < 11 || request.count(field::content_length) > 0)) {
        return Refusal{400, "The length of the body is ambiguous"};
    }
    if (hasCoding && !equalsIgnoringCase(KxNCommon::trim(request[field::transfer_encoding]), "chunked")) {
        return Refusal{501, "The only transfer coding is chunked"};
    }
    if (request.count(field::expect) > 0 && !equalsIgnoringCase(request[field::expect], "100-continue")) {
        return Refusal{417, "The only expectation is 100-continue"};
    }
    return std::nullopt;
}

}  // namespace

std::optional<Refusal> parseRequestHead(RequestParser& parser, std::string_view head) {
    parser.header_limit(PARSER_HEADER_LIMIT);
    parser.body_limit(boost::none);
    // The library unfolds lines, which RFC 9112 section 5.2 lets a server refuse and others read another way.
    if (head.find("\r\n ") != head.npos || head.find("\r\n\t") != head.npos) {
        return Refusal{400, "The request is not well-formed: a field goes on on the next line"};
    }
    boost::system::error_code error;
    parser.put(boost::asio::buffer(head.data(), head.size()), error);
    if (error == http::error::bad_version) {
        return Refusal{505, "Only HTTP/1.1 and HTTP/1.0 are spoken here"};
    }
    if (error || !parser.is_header_done()) {
        return Refusal{400, "The request is not well-formed: " + error.message()};
    }
    return checkFraming(parser.get());
}

bool expectsContinue(const RequestHead& request) {
    return request.version() == 11 && request.count(field::expect) > 0;
}

bool asksForWebSocket(const RequestHead& request) {
    return request.method() == http::verb::get && request.version() == 11 &&
           http::token_list(request[field::connection]).exists("upgrade") &&
           http::token_list(request[field::upgrade]).exists("websocket") &&
           request[field::sec_websocket_version] == "13";
}

std::string joinFields(const RequestHead& request, field name) {
    std::string joined;
    const auto range = request.equal_range(name);
    for (auto one = range.first; one != range.second; ++one) {
        joined += joined.empty() ? "" : ",";
        joined.append(one->value().data(), one->value().size());
    }
    return joined;
}

}  // namespace KxNTamberWebApi

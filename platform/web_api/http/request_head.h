// The head of a request: parsed, and checked for what a server must not overlook (RFC 9112).
#pragma once

#include <boost/beast/http/buffer_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace KxNTamberWebApi {

using RequestParser = boost::beast::http::request_parser<boost::beast::http::buffer_body>;
using RequestHead = RequestParser::value_type;

/// Why something is refused: the status and the detail of the answer.
struct Refusal {
    int status;
    std::string detail;
};

/// Reads `head`, a whole one with its empty line, into `parser`, which must be fresh. Null when all is well; after a
/// refusal the connection cannot go on, for nobody knows where its body ends.
std::optional<Refusal> parseRequestHead(RequestParser& parser, std::string_view head);

/// Whether the client waits for "100 Continue" before it sends the body.
bool expectsContinue(const RequestHead& request);

/// Whether the request asks for the upgrade to a WebSocket (RFC 6455, section 4.2.1) in all but its key.
bool asksForWebSocket(const RequestHead& request);

/// All values of a repeatable field, joined by commas.
std::string joinFields(const RequestHead& request, boost::beast::http::field name);

}  // namespace KxNTamberWebApi

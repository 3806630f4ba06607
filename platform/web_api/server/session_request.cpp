// What a head asks for: the checks of a request in their order, up to the operation.
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/rfc7230.hpp>

#include "KxLog.h"
#include "platform/web_api/access/audit.h"
#include "platform/web_api/description/openapi.h"
#include "platform/web_api/http/content_disposition.h"
#include "platform/web_api/http/header_parameters.h"
#include "platform/web_api/server/operation.h"
#include "platform/web_api/server/session.h"

namespace KxNTamberWebApi {

namespace http = boost::beast::http;
using http::field;

namespace {

/// The parser's own limit never acts: the head is measured before it is parsed.
constexpr std::uint32_t PARSER_HEADER_LIMIT = 64 * 1024;

bool isChange(std::string_view method) {
    return method == "POST" || method == "PUT" || method == "PATCH" || method == "DELETE";
}

/// An endpoint record does not say that its answer is a WebSocket; the last segment of its route does.
bool isStreamRoute(std::string_view route) {
    return route.ends_with("/ws");
}

bool asksForWebSocket(const RequestParser::value_type& request) {
    return request.method() == http::verb::get && request.version() == 11 &&
           http::token_list(request[field::connection]).exists("upgrade") &&
           http::token_list(request[field::upgrade]).exists("websocket") &&
           request[field::sec_websocket_version] == "13";
}

}  // namespace

Session::Next Session::examine(Exchange& exchange, std::string_view head) {
    if (!parseHead(exchange, head) || !checkHead(exchange)) {
        exchange.keepsConnection = false;
        return Next::answer;
    }
    exchange.keepsConnection = exchange.parser->keep_alive();
    exchange.body.emplace(*exchange.parser);
    if (auto refusal = core.access->check(exchange.request(), certificateSubject, exchange.identity)) {
        exchange.response.answer = std::move(*refusal);
        findRoute(exchange);  // for the audit line
        return Next::answer;
    }
    exchange.mayComeIn = true;
    return route(exchange) ? examineBody(exchange) : Next::answer;
}

bool Session::parseHead(Exchange& exchange, std::string_view head) {
    exchange.parser.emplace();
    exchange.parser->header_limit(PARSER_HEADER_LIMIT);
    exchange.parser->body_limit(boost::none);
    error_code error;
    exchange.parser->put(asio::buffer(head.data(), head.size()), error);
    if (error == http::error::bad_version) {
        exchange.refuse(505, "Only HTTP/1.1 and HTTP/1.0 are spoken here");
        return false;
    }
    if (error || !exchange.parser->is_header_done()) {
        exchange.refuse(400, "The request is not well-formed: " + error.message());
        return false;
    }
    return true;
}

/// What RFC 9112 asks of a server before it trusts the length of a body.
bool Session::checkHead(Exchange& exchange) {
    const RequestParser::value_type& request = exchange.request();
    const auto hosts = request.count(field::host);
    if (hosts > 1 || (hosts == 0 && request.version() == 11)) {
        exchange.refuse(400, "The request needs exactly one Host");
        return false;
    }
    const bool hasCoding = request.count(field::transfer_encoding) > 0;
    if (hasCoding && (request.version() < 11 || request.count(field::content_length) > 0)) {
        exchange.refuse(400, "The length of the body is ambiguous");
        return false;
    }
    if (hasCoding && !equalsIgnoringCase(trimBlanks(request[field::transfer_encoding]), "chunked")) {
        exchange.refuse(501, "The only transfer coding is chunked");
        return false;
    }
    if (request.count(field::expect) > 0) {
        if (!equalsIgnoringCase(request[field::expect], "100-continue")) {
            exchange.refuse(417, "The only expectation is 100-continue");
            return false;
        }
        exchange.expectsContinue = request.version() == 11;
    }
    return true;
}

void Session::findRoute(Exchange& exchange) const {
    const RequestParser::value_type& request = exchange.request();
    core.router->route(request.method_string(), request.target(), exchange.match);
}

/// Finds the endpoint. False when the answer stands.
bool Session::route(Exchange& exchange) {
    findRoute(exchange);
    const RouteMatch& match = exchange.match;
    switch (match.outcome) {
        case RouteMatch::Outcome::matched:
            return true;
        case RouteMatch::Outcome::options:
            exchange.response.answer = {204, {}, {}, {}};
            break;
        case RouteMatch::Outcome::badRequest:
            exchange.refuse(400, match.detail);
            break;
        case RouteMatch::Outcome::notFound:
            exchange.refuse(404, match.detail);
            break;
        case RouteMatch::Outcome::methodNotAllowed:
            exchange.refuse(405, match.detail);
            break;
    }
    exchange.response.answer.allow = match.allow;
    return false;
}

Session::Next Session::examineBody(Exchange& exchange) {
    const KxSTamberWebApiEndpoint* const endpoint = exchange.match.endpoint;
    if (endpoint == &openApiEndpoint) {
        exchange.response.answer = {200, core.openApiDocument, "application/json", {}};
        return Next::answer;
    }
    if (endpoint->isUpload != 0) {
        return Next::takeUpload;
    }
    if (endpoint->bodyKinds != nullptr && endpoint->bodyKinds[0] == BODY_JSON && !exchange.body->isComplete()) {
        return examineJson(exchange);
    }
    if (isStreamRoute(endpoint->route) && !asksForWebSocket(exchange.request())) {
        exchange.refuse(426, "This is a WebSocket: the request must ask for the upgrade");
        return Next::answer;
    }
    runOperation(exchange, nullptr);
    return exchange.response.switchesToStream ? examineStream(exchange) : Next::answer;
}

Session::Next Session::examineJson(Exchange& exchange) {
    const RequestParser::value_type& request = exchange.request();
    const auto type = parseContentType(request[field::content_type]);
    if (!type || type->mediaType != "application/json") {
        exchange.refuse(415, "The body must be application/json");
        return Next::answer;
    }
    if (exchange.body->remaining() > core.limits.jsonBody) {
        exchange.refuse(413, "The body is larger than " + std::to_string(core.limits.jsonBody) + " bytes");
        return Next::answer;
    }
    return Next::readJson;
}

Session::Next Session::examineStream(Exchange& exchange) {
    const RequestParser::value_type& request = exchange.request();
    if (!asksForWebSocket(request)) {
        exchange.refuse(426, "This is a WebSocket: the request must ask for the upgrade");
    } else if (request.count(field::sec_websocket_key) != 1 || !exchange.body->isComplete()) {
        exchange.refuse(400, "The WebSocket handshake is not well-formed");
    } else {
        return Next::openStream;
    }
    exchange.response.switchesToStream = false;
    return Next::answer;
}

void Session::runOperation(Exchange& exchange, const KxNJson::json* content) {
    if (!core.requests.mayBegin()) {
        exchange.refuse(503, "Too many requests are waiting");
        return;
    }
    const KxSTamberWebApiEndpoint* const endpoint = exchange.match.endpoint;
    const RequestThreads::Operation operation(core.requests, &core.tendsToBlock.at(endpoint));
    callOperation(core.registration, endpoint, content, exchange.match.values(), exchange.response);
}

void Session::writeAuditLine(const Exchange& exchange) const {
    const int status = exchange.response.answer.status;
    const std::string_view method = exchange.request().method_string();
    if ((!isChange(method) && status != 401 && status != 403) || !KxCRTE_LOG_IsLevelEnabled(2)) {
        return;
    }
    AuditRecord record;
    record.peer = peer;
    record.identity = exchange.identity;
    record.method = method;
    record.route = exchange.match.endpoint != nullptr ? exchange.match.endpoint->route : "";
    record.name = exchange.uploadedName.empty() ? exchange.match.name() : std::string_view(exchange.uploadedName);
    record.status = status;
    record.milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - exchange.begunAt)
            .count();
    KxCRTE_LOG_Impl(2, "%s", makeAuditLine(record).c_str());
}

}  // namespace KxNTamberWebApi

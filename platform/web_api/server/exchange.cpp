#include "platform/web_api/server/exchange.h"

#include "platform/web_api/http/content_disposition.h"

namespace KxNTamberWebApi {

using boost::beast::http::field;

namespace {

bool isChange(std::string_view method) {
    return method == "POST" || method == "PUT" || method == "PATCH" || method == "DELETE";
}

/// An endpoint record does not say that its answer is a WebSocket; the last segment of its route does.
bool isStreamRoute(std::string_view route) {
    return route.ends_with("/ws");
}

Next examineJson(Exchange& exchange, const Limits& limits) {
    const bool mayBeNone = exchange.parser.chunked() && exchange.request()[field::content_type].empty();
    if (!mayBeNone && refusesType(exchange)) {
        return Next::answer;
    }
    if (exchange.body->remaining() > limits.jsonBody) {
        exchange.refuse(413, "The body is larger than " + std::to_string(limits.jsonBody) + " bytes");
        return Next::answer;
    }
    return Next::readJson;
}

Next examineBody(Exchange& exchange, const ServerCore& core) {
    const KxSTamberWebApiEndpoint* const endpoint = exchange.match.endpoint;
    if (endpoint->isUpload != 0) {
        return Next::takeUpload;
    }
    if (endpoint->bodyKinds != nullptr && endpoint->bodyKinds[0] == BODY_JSON && !exchange.body->isComplete()) {
        return examineJson(exchange, core.limits);
    }
    if (isStreamRoute(endpoint->route) && !asksForWebSocket(exchange.request())) {
        exchange.refuse(426, "This is a WebSocket: the request must ask for the upgrade");
        return Next::answer;
    }
    return Next::runOperation;
}

/// Finds the endpoint. False when the answer stands.
bool route(Exchange& exchange) {
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

/// Answers a request for one of the files beside the API. False when it is for none.
bool findFile(Exchange& exchange, const ServerCore& core) {
    if (!core.files || exchange.match.outcome != RouteMatch::Outcome::notFound) {
        return false;
    }
    auto answer = core.files->answer(exchange.request());
    if (answer) {
        exchange.response.answer = std::move(*answer);
    }
    return answer.has_value();
}

}  // namespace

bool refusesType(Exchange& exchange) {
    const auto type = parseContentType(exchange.request()[field::content_type]);
    if (type && type->mediaType == "application/json") {
        return false;
    }
    exchange.refuse(415, "The body must be application/json");
    return true;
}

Next examine(Exchange& exchange, std::string_view head, RequestBuffer& readAhead, KxNNet::Stream& stream,
             const AccessRules::Sender& sender, ServerCore& core) {
    if (const auto refusal = parseRequestHead(exchange.parser, head)) {
        exchange.refuse(refusal->status, refusal->detail);
        exchange.keepsConnection = false;
        return Next::answer;
    }
    const RequestHead& request = exchange.request();
    exchange.keepsConnection = exchange.parser.keep_alive();
    exchange.body.emplace(exchange.parser, readAhead, stream);
    core.router->route(request.method_string(), request.target(), exchange.match);  // for the audit line, too
    const bool isFile = findFile(exchange, core);
    const KxSTamberWebApiEndpoint* const endpoint = exchange.match.endpoint;
    const KxERole required = isFile                ? ROLE_NONE
                             : endpoint != nullptr ? requiredRole(endpoint->operationId)
                                                   : ROLE_VIEWER;
    if (auto refusal = core.access->check(request, sender, required, exchange.caller)) {
        exchange.response.answer = std::move(*refusal);
        return Next::answer;
    }
    exchange.mayComeIn = exchange.caller.role != ROLE_NONE;
    return !isFile && route(exchange) ? examineBody(exchange, core) : Next::answer;
}

void tellObserver(const Exchange& exchange, int status, const ServerCore& core) {
    if (core.observer == nullptr) {
        return;
    }
    const std::string_view name =
        exchange.uploadedName.empty() ? exchange.match.name() : std::string_view(exchange.uploadedName);
    core.observer->onAnswered({exchange.match.endpoint, name, status,
                               std::chrono::steady_clock::now() - exchange.begunAt, exchange.uploadedBytes});
}

AuditKind findAuditKind(const Exchange& exchange) {
    const int status = exchange.response.answer.status;
    const bool isChangeRequest = isChange(exchange.request().method_string());
    if (status == 401 || status == 403 || status == 429 || (isChangeRequest && !exchange.mayComeIn)) {
        return AuditKind::refusal;
    }
    return isChangeRequest ? AuditKind::change : AuditKind::nothing;
}

AuditRecord makeAuditRecord(const Exchange& exchange, const std::string& peer) {
    AuditRecord record;
    record.peer = peer;
    record.identity = exchange.caller.identity;
    record.role = roleName(exchange.caller.role);
    record.method = exchange.request().method_string();
    record.route = exchange.match.endpoint != nullptr ? exchange.match.endpoint->route : "";
    record.name = exchange.uploadedName.empty() ? exchange.match.name() : std::string_view(exchange.uploadedName);
    record.status = exchange.response.answer.status;
    record.milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - exchange.begunAt)
            .count();
    return record;
}

}  // namespace KxNTamberWebApi

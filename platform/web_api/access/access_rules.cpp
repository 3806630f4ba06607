#include "platform/web_api/access/access_rules.h"

#include "platform/web_api/access/authorization.h"
#include "platform/web_api/access/loopback.h"
#include "platform/web_api/http/request_target.h"

namespace KxNTamberWebApi {

using boost::beast::http::field;

namespace {

constexpr const char* FOREIGN_ORIGIN = "The origin of the request is foreign";

std::string_view hostOf(const RequestHead& request) {
    const auto target = splitRequestTarget(request.target());
    return target && !target->authority.empty() ? target->authority : std::string_view(request[field::host]);
}

/// True for what no web page sent, too.
bool comesFromOwnPage(const RequestHead& request) {
    const auto origin = request.find(field::origin);
    return origin == request.end() || isSameOrigin(origin->value(), hostOf(request));
}

/// What keeps pages out where nobody has to show anything.
std::optional<Answer> checkPage(const RequestHead& request) {
    if (!isLoopbackHost(hostOf(request))) {
        return makeRefusal(403, "The host of the request is not a name of this machine");
    }
    if (!comesFromOwnPage(request)) {
        return makeRefusal(403, FOREIGN_ORIGIN);
    }
    return std::nullopt;
}

}  // namespace

bool AccessRules::hasToken(const RequestHead& request) const {
    if (const auto authorization = request.find(field::authorization); authorization != request.end()) {
        const auto token = parseBearer(authorization->value());
        return token && verifier->matches(*token);
    }
    if (request.find(field::sec_websocket_protocol) != request.end()) {
        const std::string offered = joinFields(request, field::sec_websocket_protocol);
        const auto token = parseSubprotocols(offered).token;
        return token && verifier->matches(*token);
    }
    return false;
}

std::optional<Answer> AccessRules::check(const RequestHead& request, const std::string& certificateSubject,
                                         KxERole required, Caller& caller) const {
    auto refusal = identify(request, certificateSubject, caller);
    if (refusal && required == ROLE_NONE && refusal->status == 401) {
        return std::nullopt;
    }
    if (!refusal && caller.role < required) {
        return makeRefusal(403, "The role '" + std::string(roleName(caller.role)) + "' may not do this");
    }
    return refusal;
}

/// Finds out who sends a request; gives why that one does not get in, or null.
std::optional<Answer> AccessRules::identify(const RequestHead& request, const std::string& certificateSubject,
                                            Caller& caller) const {
    const bool hasCertificate = !certificateSubject.empty();
    if (hasCertificate) {
        caller.identity = certificateSubject;
    }
    if (!verifier) {
        auto refusal = checkPage(request);
        caller.role = refusal ? ROLE_NONE : ROLE_ADMINISTRATOR;
        return refusal;
    }
    // A browser shows its user's certificate by itself, whatever page asks.
    if (hasCertificate && comesFromOwnPage(request)) {
        caller.role = ROLE_ADMINISTRATOR;
        return std::nullopt;
    }
    if (hasToken(request)) {
        caller = {ROLE_ADMINISTRATOR, hasCertificate ? certificateSubject : "token"};
        return std::nullopt;
    }
    return hasCertificate ? makeRefusal(403, FOREIGN_ORIGIN)
                          : makeRefusal(401, "A valid token or client certificate is required");
}

}  // namespace KxNTamberWebApi

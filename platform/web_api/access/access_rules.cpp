#include "platform/web_api/access/access_rules.h"

#include "platform/net/deadline.h"
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

/// Calls `use` with the token that a request offers, or with null.
template <typename Use>
auto withOfferedToken(const RequestHead& request, Use use) {
    if (const auto authorization = request.find(field::authorization); authorization != request.end()) {
        return use(parseBearer(authorization->value()));
    }
    if (request.find(field::sec_websocket_protocol) != request.end()) {
        const std::string offered = joinFields(request, field::sec_websocket_protocol);
        return use(parseSubprotocols(offered).token);
    }
    return use(std::optional<std::string_view>());
}

/// Who has that identity; an expired one gives a name and nothing else.
Caller callerOf(const GrantedIdentity& found) {
    return found.identity.hasExpired(KxNCommon::wallNow())
               ? Caller{ROLE_NONE, found.identity.name, 0}
               : Caller{found.identity.role, found.identity.name, found.grant};
}

}  // namespace

std::optional<Answer> AccessRules::check(const RequestHead& request, const Sender& sender, KxERole required,
                                         Caller& caller) {
    auto refusal = identify(request, sender, required, caller);
    if (!refusal && caller.role < required) {
        return makeRefusal(403, "The role '" + std::string(roleName(caller.role)) + "' may not do this");
    }
    return refusal;
}

/// Finds out who sends a request; gives why that one does not get in, or null.
std::optional<Answer> AccessRules::identify(const RequestHead& request, const Sender& sender, KxERole required,
                                            Caller& caller) {
    if (!verifier) {
        auto refusal = checkPage(request);
        caller.identity = sender.certificateSubject.empty() ? "none" : sender.certificateSubject;
        caller.role = refusal ? ROLE_NONE : ROLE_ADMINISTRATOR;
        return refusal;
    }
    const Token token = lookAtToken(request, caller);
    if (token == Token::right) {
        return std::nullopt;
    }
    const std::int64_t now = KxNNet::coarseMilliseconds();
    const int secondsToWait = wrongTokens.secondsToWait(sender.address, now);
    if (token == Token::wrong) {
        wrongTokens.note(sender.address, now);
    }
    // A browser shows its user's certificate by itself, whatever page asks.
    const bool isForeign = !sender.certificateSubject.empty() && !comesFromOwnPage(request);
    if (isForeign && token == Token::none) {
        caller.identity = sender.certificateSubject;
    }
    if (!isForeign && letsCertificateIn(sender.certificateSubject, caller)) {
        return std::nullopt;
    }
    if (secondsToWait > 0) {
        Answer refusal = makeRefusal(429, "Too many wrong tokens came from this address");
        refusal.retryAfter = secondsToWait;
        return refusal;
    }
    if (required == ROLE_NONE && token == Token::none) {
        return std::nullopt;
    }
    return isForeign ? makeRefusal(403, FOREIGN_ORIGIN)
                     : makeRefusal(401, "A valid token or client certificate is required");
}

/// Fills in `caller` where the token is right, and its name where it was.
AccessRules::Token AccessRules::lookAtToken(const RequestHead& request, Caller& caller) const {
    return withOfferedToken(request, [&](std::optional<std::string_view> token) {
        if (!token) {
            return Token::none;
        }
        if (verifier->matches(*token)) {
            caller = {ROLE_ADMINISTRATOR, "token", 0};
            return Token::right;
        }
        const auto list = identities->current();
        const GrantedIdentity* const found = list->findByToken(*token);
        if (found == nullptr) {
            return Token::wrong;
        }
        caller = callerOf(*found);
        return caller.role != ROLE_NONE ? Token::right : Token::wrong;
    });
}

bool AccessRules::letsCertificateIn(const std::string& subject, Caller& caller) const {
    if (subject.empty()) {
        return false;
    }
    const auto list = identities->current();
    const GrantedIdentity* const found = list->findByCertificate(subject);
    caller = found != nullptr ? callerOf(*found) : Caller{ROLE_ADMINISTRATOR, subject, 0};
    if (!identities->areKnown()) {
        caller.role = ROLE_NONE;
    }
    return caller.role != ROLE_NONE;
}

bool AccessRules::holds(Grant grant) const {
    return grant == 0 || !identities || identities->current()->holds(grant, KxNCommon::wallNow());
}

}  // namespace KxNTamberWebApi

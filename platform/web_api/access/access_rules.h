// Who may come in.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/web_api/access/token_file.h"
#include "platform/web_api/http/answer.h"
#include "platform/web_api/http/request_parser.h"

namespace KxNTamberWebApi {

class AccessRules {
public:
    /// Without a verifier everyone may come in who does so through a loopback name.
    explicit AccessRules(std::optional<TokenVerifier> tokenVerifier) : verifier(std::move(tokenVerifier)) {}

    bool needsToken() const { return verifier.has_value(); }

    /// The refusal of a request, or null when it may come in; `identity` then says as whom. `certificateSubject` is
    /// that of the client's verified certificate, empty when it has none. Any thread.
    std::optional<Answer> check(const RequestParser::value_type& request, const std::string& certificateSubject,
                                std::string& identity) const;

private:
    bool hasToken(const RequestParser::value_type& request) const;

    std::optional<TokenVerifier> verifier;
};

/// All values of a repeatable field, joined by commas.
std::string joinFields(const RequestParser::value_type& request, boost::beast::http::field name);

}  // namespace KxNTamberWebApi

// Who may come in.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/web_api/access/roles.h"
#include "platform/web_api/access/token_file.h"
#include "platform/web_api/http/answer.h"
#include "platform/web_api/http/request_head.h"

namespace KxNTamberWebApi {

class AccessRules {
public:
    /// Without a verifier everyone may come in who does so through a loopback name.
    explicit AccessRules(std::optional<TokenVerifier> tokenVerifier) : verifier(std::move(tokenVerifier)) {}

    bool needsToken() const { return verifier.has_value(); }

    /// The refusal of a request, or null when it may come in and do what asks for the role `required`. `caller` says as
    /// far as it is known who sends it, in both cases. `certificateSubject` is that of the client's verified
    /// certificate, empty when it has none. Any thread.
    std::optional<Answer> check(const RequestHead& request, const std::string& certificateSubject, KxERole required,
                                Caller& caller) const;

private:
    std::optional<Answer> identify(const RequestHead& request, const std::string& certificateSubject,
                                   Caller& caller) const;
    bool hasToken(const RequestHead& request) const;

    std::optional<TokenVerifier> verifier;
};

}  // namespace KxNTamberWebApi

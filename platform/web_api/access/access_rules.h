// Who may come in, and do what.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/web_api/access/roles.h"
#include "platform/web_api/access/token_file.h"
#include "platform/web_api/access/wrong_tokens.h"
#include "platform/web_api/http/answer.h"
#include "platform/web_api/http/request_head.h"
#include "platform/web_api/identities/identities.h"

namespace KxNTamberWebApi {

class AccessRules {
public:
    /// Without a verifier everyone who comes through a loopback name may do everything. `knownIdentities` are not null
    /// where there is a verifier.
    explicit AccessRules(std::optional<TokenVerifier> tokenVerifier, std::unique_ptr<Identities> knownIdentities = {})
        : verifier(std::move(tokenVerifier)), identities(std::move(knownIdentities)) {}

    bool needsToken() const { return verifier.has_value(); }

    /// Where a request comes from.
    struct Sender {
        const std::string& address;             ///< of the peer
        const std::string& certificateSubject;  ///< of its verified certificate, empty when it has none
    };

    /// The refusal of a request, or null when it may come in and do what asks for the role `required`. `caller` says as
    /// far as it is known who sends it, in both cases. Any thread.
    std::optional<Answer> check(const RequestHead& request, const Sender& sender, KxERole required, Caller& caller);

    /// Whether the identities file has changed.
    bool mustFollow() const { return identities && identities->hasChanged(); }
    /// Takes in what has changed there; may wait for the disk. These two by one thread at a time.
    void follow() {
        if (identities) {
            identities->follow();
        }
    }

    /// Whether what gave `grant` still does. Any thread.
    bool holds(Grant grant) const;

private:
    enum class Token { none, right, wrong };

    Token lookAtToken(const RequestHead& request, Caller& caller) const;
    bool letsCertificateIn(const std::string& subject, Caller& caller) const;
    std::optional<Answer> identify(const RequestHead& request, const Sender& sender, KxERole required, Caller& caller);

    std::optional<TokenVerifier> verifier;
    std::unique_ptr<Identities> identities;
    WrongTokens wrongTokens;
};

}  // namespace KxNTamberWebApi

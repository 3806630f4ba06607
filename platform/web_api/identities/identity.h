// The identities file: who else may come in, and as what.
//
//     {"identities": [{"name", "role", "tokenSha256" or "certificateSubject", "created", "expires"}]}
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KxJson.h"
#include "platform/common/rfc3339.h"
#include "platform/common/sha256.h"
#include "platform/web_api/identities/role_names.h"

namespace KxNTamberWebApi {

struct Identity {
    std::string name;
    KxERole role = ROLE_NONE;
    std::optional<KxNCommon::Sha256> tokenSha256;  ///< of its token; null for one that shows a certificate
    std::string certificateSubject;                ///< as RFC 2253 writes it; empty for one that shows a token
    std::string created;                           ///< RFC 3339
    std::optional<KxNCommon::WallTime> expires;    ///< null: never

    bool hasExpired(KxNCommon::WallTime now) const { return expires && *expires <= now; }
    bool operator==(const Identity&) const = default;
};

/// Whether a name is one of 1 to 64 letters, digits, '.', '_', '-' and '@', and not one that the audit record has for
/// who is no identity ("token", "none").
bool isIdentityName(std::string_view name);
/// The same rule in words that end a sentence.
inline constexpr std::string_view IDENTITY_NAME_RULE =
    "1 to 64 letters, digits, '.', '_', '-' or '@', and neither 'token' nor 'none'";

/// The most that an identities file may hold, in bytes.
inline constexpr std::size_t MAXIMUM_IDENTITIES_FILE = 4 * 1024 * 1024;

/// Reads the text of an identities file. Throws std::invalid_argument, whose text says what is wrong with which entry,
/// in words that follow the name of the file. No two entries have the same name, token or certificate.
std::vector<Identity> parseIdentities(const KxNJson::json& document);

/// What such a file holds: the document, for who changes it and keeps what he does not know, and what it says.
struct IdentitiesFile {
    KxNJson::json document;
    std::vector<Identity> identities;
};

/// Reads the file at `path`, which only its owner may access; null when there is none. Throws std::runtime_error, whose
/// text names the file and says what is wrong. May wait for the disk. Any thread.
std::optional<IdentitiesFile> readIdentitiesFile(const std::string& path);

}  // namespace KxNTamberWebApi

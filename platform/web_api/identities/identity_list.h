// The identities of one state of the file, found by what a client shows.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "platform/web_api/identities/identity.h"

namespace KxNTamberWebApi {

/// Stands for one identity in one form: it changes when the identity is renewed, or anything of it changes. 0 stands
/// for who got in without an identity.
using Grant = std::uint32_t;

struct GrantedIdentity {
    Identity identity;
    Grant grant;
};

/// Immutable; any thread.
class IdentityList {
public:
    IdentityList() = default;
    /// Entries that stand in `before` unchanged keep their grants.
    IdentityList(std::vector<Identity> identities, const IdentityList& before);
    IdentityList(const IdentityList&) = delete;
    IdentityList& operator=(const IdentityList&) = delete;

    /// Null when nobody has that token or certificate. The time of the first tells nothing of any token: what is
    /// compared are digests, and nobody can make a token from what he learns of its digest.
    const GrantedIdentity* findByToken(std::string_view token) const;
    const GrantedIdentity* findByCertificate(const std::string& subject) const;

    /// Whether what was granted is still so at `now`.
    bool holds(Grant grant, KxNCommon::WallTime now) const;

    std::size_t size() const { return entries.size(); }

private:
    /// A digest needs no further hashing.
    struct DigestHash {
        std::size_t operator()(const KxNCommon::Sha256& digest) const;
    };

    std::vector<GrantedIdentity> entries;
    std::unordered_map<KxNCommon::Sha256, const GrantedIdentity*, DigestHash> byToken;
    std::unordered_map<std::string_view, const GrantedIdentity*> byCertificate;
    std::unordered_map<std::string_view, const GrantedIdentity*> byName;
    std::unordered_map<Grant, const GrantedIdentity*> byGrant;
    Grant lastGrant = 0;
};

}  // namespace KxNTamberWebApi

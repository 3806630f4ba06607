#include "platform/web_api/identities/identity_list.h"

#include <cstring>

namespace KxNTamberWebApi {

IdentityList::IdentityList(std::vector<Identity> identities, const IdentityList& before) : lastGrant(before.lastGrant) {
    entries.reserve(identities.size());  // the maps point into it
    for (Identity& identity : identities) {
        const auto known = before.byName.find(identity.name);
        const bool isUnchanged = known != before.byName.end() && known->second->identity == identity;
        const Grant grant = isUnchanged ? known->second->grant : ++lastGrant;
        const GrantedIdentity& entry = entries.emplace_back(GrantedIdentity{std::move(identity), grant});
        if (entry.identity.tokenSha256) {
            byToken.emplace(*entry.identity.tokenSha256, &entry);
        } else {
            byCertificate.emplace(entry.identity.certificateSubject, &entry);
        }
        byName.emplace(entry.identity.name, &entry);
        byGrant.emplace(grant, &entry);
    }
}

const GrantedIdentity* IdentityList::findByToken(std::string_view token) const {
    if (byToken.empty()) {
        return nullptr;
    }
    const auto found = byToken.find(KxNCommon::sha256(token));
    return found != byToken.end() ? found->second : nullptr;
}

const GrantedIdentity* IdentityList::findByCertificate(const std::string& subject) const {
    const auto found = byCertificate.find(subject);
    return found != byCertificate.end() ? found->second : nullptr;
}

bool IdentityList::holds(Grant grant, KxNCommon::WallTime now) const {
    const auto found = byGrant.find(grant);
    return found != byGrant.end() && !found->second->identity.hasExpired(now);
}

std::size_t IdentityList::DigestHash::operator()(const KxNCommon::Sha256& digest) const {
    std::size_t hash;
    std::memcpy(&hash, digest.data(), sizeof hash);
    return hash;
}

}  // namespace KxNTamberWebApi

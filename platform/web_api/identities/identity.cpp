#include "platform/web_api/identities/identity.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <set>
#include <stdexcept>

#include "KxJson.h"
#include "platform/common/private_file.h"
#include "platform/common/system_text.h"
#include "platform/common/text.h"
#include "platform/json/json_text.h"

namespace KxNTamberWebApi {

using KxNJson::json;

namespace {

constexpr std::size_t MAXIMUM_NAME = 64;
constexpr std::size_t MAXIMUM_SUBJECT = 1024;
constexpr int DEPTH = 16;

[[noreturn]] void refuse(const std::string& entry, const std::string& why) {
    throw std::invalid_argument("cannot be used: " + entry + " " + why);
}

/// The text of a member; empty when there is none or when it is null.
std::string textOf(const json& entry, const char* key, const std::string& label) {
    const auto found = entry.find(key);
    if (found == entry.end() || found->is_null()) {
        return {};
    }
    if (!found->is_string()) {
        refuse(label, std::string("has a \"") + key + "\" that is no text");
    }
    return found->get<std::string>();
}

std::optional<KxNCommon::Sha256> parseDigest(std::string_view text) {
    KxNCommon::Sha256 digest;
    if (text.size() != 2 * digest.size()) {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < digest.size(); ++i) {
        const int high = KxNCommon::hexDigit(text[2 * i]);
        const int low = KxNCommon::hexDigit(text[2 * i + 1]);
        if (high < 0 || low < 0) {
            return std::nullopt;
        }
        digest[i] = static_cast<unsigned char>(high << 4 | low);
    }
    return digest;
}

void readCredential(Identity& identity, const json& entry, const std::string& label) {
    const std::string digest = textOf(entry, "tokenSha256", label);
    identity.certificateSubject = textOf(entry, "certificateSubject", label);
    if (digest.empty() == identity.certificateSubject.empty()) {
        refuse(label, "needs either \"tokenSha256\" or \"certificateSubject\"");
    }
    identity.tokenSha256 = parseDigest(digest);
    if (!digest.empty() && !identity.tokenSha256) {
        refuse(label, "has a \"tokenSha256\" that is not 64 hexadecimal digits");
    }
    if (identity.certificateSubject.size() > MAXIMUM_SUBJECT) {
        refuse(label, "has a \"certificateSubject\" of more than " + std::to_string(MAXIMUM_SUBJECT) + " bytes");
    }
}

Identity parseIdentity(const json& entry, const std::string& place) {
    if (!entry.is_object()) {
        refuse(place, "is no object");
    }
    Identity identity;
    identity.name = textOf(entry, "name", place);
    if (!isIdentityName(identity.name)) {
        refuse(place, "has a \"name\" that is not of " + std::string(IDENTITY_NAME_RULE));
    }
    const std::string label = "identity '" + identity.name + "'";
    const auto role = parseRole(textOf(entry, "role", label));
    if (!role) {
        refuse(label, "has a \"role\" that is none of viewer, operator and administrator");
    }
    identity.role = *role;
    readCredential(identity, entry, label);
    identity.created = textOf(entry, "created", label);
    const std::string expires = textOf(entry, "expires", label);
    identity.expires = KxNCommon::parseTime(expires);
    if (!expires.empty() && !identity.expires) {
        refuse(label, "has an \"expires\" that is no RFC 3339 time like 2027-01-31T12:00:00Z");
    }
    return identity;
}

json parseText(std::string_view text) {
    try {
        return KxNJson::parseJsonText(text, DEPTH);
    } catch (const std::exception& failure) {
        throw std::invalid_argument("is not valid JSON: " + std::string(failure.what()));
    }
}

}  // namespace

bool isIdentityName(std::string_view name) {
    const auto isAllowed = [](char c) {
        return KxNCommon::isAlphanumeric(c) || std::string_view("._-@").find(c) != std::string_view::npos;
    };
    return !name.empty() && name.size() <= MAXIMUM_NAME && std::ranges::all_of(name, isAllowed) && name != "token" &&
           name != "none";
}

std::vector<Identity> parseIdentities(const json& document) {
    const auto list = document.is_object() ? document.find("identities") : document.end();
    if (!document.is_object() || list == document.end() || !list->is_array()) {
        throw std::invalid_argument("cannot be used: it holds no {\"identities\": [...]}");
    }
    std::vector<Identity> identities;
    std::set<std::string> names;
    std::set<std::string> subjects;
    std::set<KxNCommon::Sha256> tokens;
    for (const json& entry : *list) {
        Identity identity = parseIdentity(entry, "entry " + std::to_string(identities.size() + 1));
        const bool isNew = names.insert(identity.name).second;
        const bool hasOwn = identity.tokenSha256 ? tokens.insert(*identity.tokenSha256).second
                                                 : subjects.insert(identity.certificateSubject).second;
        if (!isNew || !hasOwn) {
            refuse("identity '" + identity.name + "'",
                   isNew ? "has the token or certificate of another one" : "is there twice");
        }
        identities.push_back(std::move(identity));
    }
    return identities;
}

std::optional<IdentitiesFile> readIdentitiesFile(const std::string& path) {
    const std::string label = "identities file '" + path + "' ";
    bool isMissing = false;
    std::string fault;
    const auto file = KxNCommon::openPrivateFile(path, isMissing, fault);
    if (isMissing) {
        return std::nullopt;
    }
    if (!file) {
        throw std::runtime_error(label + fault);
    }
    std::string text(std::min<std::size_t>(static_cast<std::size_t>(file->status.st_size), MAXIMUM_IDENTITIES_FILE) + 1,
                     '\0');
    std::size_t size = 0;
    while (size < text.size()) {  // what grows meanwhile is read again
        const ssize_t got = ::read(file->descriptor.get(), text.data() + size, text.size() - size);
        if (got < 0 && errno != EINTR) {
            throw std::runtime_error(label + "cannot be read: " + KxNCommon::systemText(errno));
        }
        if (got == 0) {
            break;
        }
        size += static_cast<std::size_t>(std::max<ssize_t>(got, 0));
    }
    if (size > MAXIMUM_IDENTITIES_FILE) {
        throw std::runtime_error(label + "is larger than " + std::to_string(MAXIMUM_IDENTITIES_FILE) + " bytes");
    }
    text.resize(size);
    try {
        IdentitiesFile read{parseText(text), {}};
        read.identities = parseIdentities(read.document);
        return read;
    } catch (const std::invalid_argument& failure) {
        throw std::runtime_error(label + failure.what());
    }
}

}  // namespace KxNTamberWebApi

#include "platform/admin/identity_commands.h"

#include <openssl/evp.h>
#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <iomanip>
#include <optional>
#include <ostream>

#include "platform/admin/identity_store.h"
#include "platform/common/system_text.h"
#include "platform/common/text.h"

namespace KxNAdmin {

using KxNCommon::WallTime;
using KxNJson::json;
using namespace KxNTamberWebApi;

namespace {

constexpr int LONGEST_VALIDITY = 36'500;  // days

/// To the second, as people read it.
std::string formatSeconds(WallTime time) {
    return KxNCommon::formatTime(time).substr(0, std::string_view("2026-11-24T08:30:00").size()) + "Z";
}

/// 256 random bits in 43 characters that need no quotes in a shell, a header or a subprotocol.
std::string makeToken() {
    std::array<unsigned char, 32> random;
    if (::getrandom(random.data(), random.size(), 0) != static_cast<ssize_t>(random.size())) {
        throw KxNCommon::systemError("there are no random bits for a token");
    }
    std::array<unsigned char, 45> text;
    EVP_EncodeBlock(text.data(), random.data(), random.size());
    std::string token(reinterpret_cast<const char*>(text.data()), 43);
    std::ranges::replace(token, '+', '-');
    std::ranges::replace(token, '/', '_');
    return token;
}

/// The days of "--expires", null where it is not given.
std::optional<int> takeDays(Words& words) {
    const std::string text = takeOption(words, "--expires");
    if (text.empty()) {
        return std::nullopt;
    }
    int days = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), days);
    if (error != std::errc() || end != text.data() + text.size() || days < 0 || days > LONGEST_VALIDITY) {
        throw UsageError("--expires takes a number of days from 0 to " + std::to_string(LONGEST_VALIDITY) + ", not '" +
                         text + "'");
    }
    return days;
}

json expiryIn(const std::optional<int>& days) {
    return days ? json(formatSeconds(KxNCommon::wallNow() + std::chrono::days(*days))) : json();
}

std::string describeExpiry(const json& entry) {
    const json expires = entry.value("expires", json());
    return expires.is_null() ? "without an end" : "until " + expires.get<std::string>();
}

json& requireEntry(json& entries, const std::string& name) {
    json* const entry = findEntry(entries, name);
    if (entry == nullptr) {
        throw std::runtime_error("there is no identity '" + name +
                                 "'; 'kx-container-admin identity list' shows who there is");
    }
    return *entry;
}

void printToken(const Output& output, const std::string& token) {
    if (!token.empty()) {
        output.told << "The token is shown only now:" << std::endl;
        output.out << token << std::endl;
    }
}

/// How long an identity was to be valid, by what its entry says; null where it had no end.
std::optional<WallTime::duration> validityOf(const json& entry) {
    const auto text = [&](const char* key) {
        const json value = entry.value(key, json());
        return value.is_string() ? KxNCommon::parseTime(value.get<std::string>()) : std::nullopt;
    };
    const auto created = text("created");
    const auto expires = text("expires");
    return created && expires && *expires > *created ? std::optional(*expires - *created) : std::nullopt;
}

}  // namespace

void addIdentity(const std::string& path, Words words, const Output& output) {
    const std::string role = takeOption(words, "--role");
    const std::string subject = takeOption(words, "--certificate");
    const auto days = takeDays(words);
    const std::string name = takeOnlyName(words);
    if (!isIdentityName(name)) {
        throw UsageError("'" + name + "' is no name: it takes " + std::string(IDENTITY_NAME_RULE));
    }
    if (!parseRole(role)) {
        throw UsageError(role.empty() ? "--role is missing: viewer, operator or administrator"
                                      : "there is no role '" + role + "': viewer, operator or administrator");
    }
    if (days == 0 && subject.empty()) {
        throw UsageError(
            "a token that expires at once lets nobody in; --expires 0 is for a certificate to be shut out");
    }
    const std::string token = subject.empty() ? makeToken() : "";
    json entry = {{"name", name}, {"role", role}};
    entry[subject.empty() ? "tokenSha256" : "certificateSubject"] =
        subject.empty() ? KxNCommon::sha256Hex(token) : subject;
    entry["created"] = formatSeconds(KxNCommon::wallNow());
    entry["expires"] = expiryIn(days);
    IdentityStore(path).change([&](json& entries) {
        if (findEntry(entries, name) != nullptr) {
            throw std::runtime_error(
                "there is an identity '" + name +
                "' already; 'identity renew' gives it a new token, 'identity remove' takes it away");
        }
        entries.push_back(entry);
    });
    output.told << "Added '" << name << "' as " << role << ", " << describeExpiry(entry)
                << (subject.empty() ? "" : ", for who shows the certificate '" + subject + "'") << "." << std::endl;
    printToken(output, token);
}

void removeIdentity(const std::string& path, const Words& words, const Output& output) {
    const std::string name = takeOnlyName(words);
    std::string subject;
    IdentityStore(path).change([&](json& entries) {
        subject = requireEntry(entries, name).value("certificateSubject", "");
        entries.erase(std::ranges::find_if(entries, [&](const json& entry) { return entry["name"] == name; }));
    });
    output.told << "Removed '" << name << "'." << std::endl;
    if (!subject.empty()) {
        output.told << "Beware: a certificate with the subject '" << subject
                    << "' is an administrator's again, as no identity names it. To shut it out: kx-container-admin "
                       "identity add "
                    << name << " --role viewer --expires 0 --certificate '" << subject << "'" << std::endl;
    }
}

void renewIdentity(const std::string& path, Words words, const Output& output) {
    const auto days = takeDays(words);
    const std::string name = takeOnlyName(words);
    std::string token;
    std::string validity;
    IdentityStore(path).change([&](json& entries) {
        json& entry = requireEntry(entries, name);
        const auto now = KxNCommon::wallNow();
        const auto before = validityOf(entry);
        if (entry.value("tokenSha256", "").empty()) {
            if (!days && !before) {
                throw std::runtime_error("'" + name +
                                         "' shows a certificate and has no end: there is nothing to renew; "
                                         "--expires DAYS gives it an end");
            }
        } else {
            token = makeToken();
            entry["tokenSha256"] = KxNCommon::sha256Hex(token);
        }
        entry["created"] = formatSeconds(now);
        entry["expires"] = days ? expiryIn(days) : before ? json(formatSeconds(now + *before)) : json();
        validity = describeExpiry(entry);
    });
    output.told << "Renewed '" << name << "', " << validity << (token.empty() ? "." : "; the old token is void.")
                << std::endl;
    printToken(output, token);
}

void listIdentities(const std::string& path, Words words, const Output& output) {
    const bool asJson = takeFlag(words, "--json");
    if (!words.empty()) {
        throw UsageError("'" + words.front() + "' is too much");
    }
    const auto identities = IdentityStore(path).list();
    const auto now = KxNCommon::wallNow();
    if (asJson) {
        json list = json::array();
        for (const Identity& one : identities) {
            list.push_back({{"name", one.name},
                            {"role", roleName(one.role)},
                            {"shows", one.tokenSha256 ? "token" : "certificate"},
                            {"certificateSubject", one.tokenSha256 ? json() : json(one.certificateSubject)},
                            {"created", one.created},
                            {"expires", one.expires ? json(formatSeconds(*one.expires)) : json()},
                            {"hasExpired", one.hasExpired(now)}});
        }
        output.out << json{{"identities", list}}.dump(2) << std::endl;
        return;
    }
    std::vector<std::array<std::string, 5>> rows = {{"NAME", "ROLE", "CREATED", "EXPIRES", "SHOWS"}};
    for (const Identity& one : identities) {
        const std::string expiry = one.expires ? formatSeconds(*one.expires) : "never";
        rows.push_back({one.name, std::string(roleName(one.role)), one.created,
                        one.hasExpired(now) ? "expired " + expiry : expiry,
                        one.tokenSha256 ? "token" : "certificate " + one.certificateSubject});
    }
    std::array<std::size_t, 5> widths{};
    for (const auto& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], row[i].size());
        }
    }
    for (const auto& row : rows) {
        for (std::size_t i = 0; i + 1 < row.size(); ++i) {
            output.out << std::left << std::setw(static_cast<int>(widths[i]) + 2) << row[i];
        }
        output.out << row.back() << '\n';
    }
    output.out.flush();
}

}  // namespace KxNAdmin

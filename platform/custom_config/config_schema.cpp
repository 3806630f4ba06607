#include "platform/custom_config/config_schema.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <limits>

#include "KxCustomConfig.h"
#include "platform/common/text.h"

namespace KxNConfigSchema {

namespace {

using namespace KxNCustomConfig;

constexpr std::array<Key, 12> KEYS = {{
    {KxNLog::pSection, KxNLog::pOptionLevel, "2", Kind::Number, 0, 6},
    {KxNWebApi::pSection, KxNWebApi::pOptionAddress, "127.0.0.1", Kind::Address},
    {KxNWebApi::pSection, KxNWebApi::pOptionPort, "8460", Kind::Number, 0, 65535},
    {KxNWebApi::pSection, KxNWebApi::pOptionAuth, "required", Kind::Choice, 0, 0, "required or none"},
    {KxNWebApi::pSection, KxNWebApi::pOptionTokenFile, "/mnt/cfdrive/containers/api-token", Kind::Path},
    {KxNWebApi::pSection, KxNWebApi::pOptionIdentitiesFile, "/mnt/cfdrive/containers/identities.json", Kind::Path},
    {KxNWebApi::pSection, KxNWebApi::pOptionAuditFile, "/mnt/cfdrive/containers/audit.log", Kind::PathOrNothing},
    {KxNWebApi::pSection, KxNWebApi::pOptionMaxConnections, "1024", Kind::Number, 1, 1'000'000},
    {KxNWebApi::pSection, KxNWebApi::pOptionMaxUploadBytes, "0", Kind::Number, 0,
     std::numeric_limits<std::int64_t>::max()},
    {KxNWebApi::pSection, KxNWebApi::pOptionPage, "1", Kind::Choice, 0, 0, "0 or 1"},
    {KxNContainerRuntime::pSection, KxNContainerRuntime::pOptionProfiling, "0", Kind::Choice, 0, 0, "0 or 1", true},
    {KxNContainerRuntime::pSection, KxNContainerRuntime::pOptionPodmanTransport, "unix", Kind::Choice, 0, 0,
     "unix or tcp"},
}};

bool isOneOf(std::string_view text, std::string_view choices) {
    const std::size_t separator = choices.find(" or ");
    return text == choices.substr(0, separator) || text == choices.substr(separator + 4);
}

bool isIpAddress(const std::string& text) {
    in6_addr address{};
    return ::inet_pton(AF_INET, text.c_str(), &address) == 1 || ::inet_pton(AF_INET6, text.c_str(), &address) == 1;
}

}  // namespace

std::span<const Key> getKeys() {
    return KEYS;
}

const Key* findKey(std::string_view section, std::string_view name) {
    const auto found = std::find_if(KEYS.begin(), KEYS.end(),
                                    [&](const Key& key) { return key.section == section && key.name == name; });
    return found == KEYS.end() ? nullptr : &*found;
}

bool isKnownSection(std::string_view section) {
    return std::any_of(KEYS.begin(), KEYS.end(), [&](const Key& key) { return key.section == section; });
}

std::string describeValues(const Key& key) {
    switch (key.kind) {
        case Kind::Number:
            return key.highest == std::numeric_limits<std::int64_t>::max()
                       ? "a number from " + std::to_string(key.lowest) + " on"
                       : "a number from " + std::to_string(key.lowest) + " to " + std::to_string(key.highest);
        case Kind::Choice:
            return key.choices;
        case Kind::Address:
            return "an IPv4 or IPv6 address";
        case Kind::Path:
            return "an absolute path";
        case Kind::PathOrNothing:
            return "an absolute path or nothing";
    }
    return {};
}

bool isValid(const Key& key, std::string_view value) {
    switch (key.kind) {
        case Kind::Number: {
            const auto number = KxNCommon::parseNumber<std::int64_t>(value);
            return number && *number >= key.lowest && *number <= key.highest;
        }
        case Kind::Choice:
            return isOneOf(value, key.choices);
        case Kind::Address:
            return isIpAddress(std::string(value));
        case Kind::PathOrNothing:
            if (value.empty()) {
                return true;
            }
            [[fallthrough]];
        case Kind::Path:
            return !value.empty() && value.front() == '/' && value.back() != '/';
    }
    return false;
}

}  // namespace KxNConfigSchema

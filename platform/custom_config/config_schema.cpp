#include "platform/custom_config/config_schema.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

#include "KxCustomConfig.h"

namespace KxNConfigSchema {

namespace {

using namespace KxNCustomConfig;

constexpr std::array<Key, 10> KEYS = {{
    {KxNLog::pSection, KxNLog::pOptionLevel, "2",
     "Lowest level written to the log: 0 traces every operation, 1 details, 2 life events,\n"
     "3 warnings, 4 errors, 6 notices that need the operator.",
     Kind::Number, 0, 6},
    {KxNWebApi::pSection, KxNWebApi::pOptionAddress, "127.0.0.1",
     "IPv4 or IPv6 address to listen on. Any but a loopback address needs TLS.", Kind::Address},
    {KxNWebApi::pSection, KxNWebApi::pOptionPort, "8460", "TCP port; 0 lets the system choose, and the log names it.",
     Kind::Number, 0, 65535},
    {KxNWebApi::pSection, KxNWebApi::pOptionAuth, "required",
     "Who gets in: \"required\" asks every request for the token or a client certificate,\n"
     "\"none\" nobody, and is accepted with a loopback address only.",
     Kind::Choice, 0, 0, "required|none"},
    {KxNWebApi::pSection, KxNWebApi::pOptionTokenFile, "/mnt/cfdrive/containers/api-token",
     "File that holds the bearer token. Made on the first start.", Kind::Path},
    {KxNWebApi::pSection, KxNWebApi::pOptionMaxConnections, "1024",
     "Most connections served at once; further ones wait.", Kind::Number, 1, 1'000'000},
    {KxNWebApi::pSection, KxNWebApi::pOptionMaxUploadBytes, "0", "Largest upload in bytes; 0 for no limit.",
     Kind::Number, 0, std::numeric_limits<std::int64_t>::max()},
    {KxNWebApi::pSection, KxNWebApi::pOptionPage, "1", "0: no page for browsers at \"/\".", Kind::Choice, 0, 0, "0|1"},
    {KxNContainerRuntime::pSection, KxNContainerRuntime::pOptionProfiling, "0",
     "1 records the enter and exit of every operation in /run/KxContainerRTE.trace.json.", Kind::Choice, 0, 0, "0|1",
     true},
    {KxNContainerRuntime::pSection, KxNContainerRuntime::pOptionPodmanTransport, "unix",
     "How Podman is reached: \"unix\" by its socket, \"tcp\" on 127.0.0.1 and the TCP port of the\n"
     "service's settings.",
     Kind::Choice, 0, 0, "unix|tcp"},
}};

bool isNumberInRange(std::string_view text, std::int64_t lowest, std::int64_t highest) {
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc{} && stop == end && number >= lowest && number <= highest;
}

bool isOneOf(std::string_view text, std::string_view choices) {
    while (!choices.empty()) {
        const std::string_view choice = choices.substr(0, choices.find('|'));
        if (text == choice) {
            return true;
        }
        choices.remove_prefix(std::min(choice.size() + 1, choices.size()));
    }
    return false;
}

bool isIpAddress(const std::string& text) {
    in6_addr address{};
    return ::inet_pton(AF_INET, text.c_str(), &address) == 1 || ::inet_pton(AF_INET6, text.c_str(), &address) == 1;
}

std::string asComment(std::string_view text) {
    std::string comment = "# ";
    for (const char c : text) {
        comment += c;
        if (c == '\n') {
            comment += "# ";
        }
    }
    return comment + "\n";
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
        case Kind::Choice: {
            std::string words = key.choices;
            for (std::size_t bar; (bar = words.find('|')) != std::string::npos;) {
                words.replace(bar, 1, " or ");
            }
            return words;
        }
        case Kind::Address:
            return "an IPv4 or IPv6 address";
        case Kind::Path:
            return "an absolute path";
    }
    return {};
}

bool isValid(const Key& key, std::string_view value) {
    switch (key.kind) {
        case Kind::Number:
            return isNumberInRange(value, key.lowest, key.highest);
        case Kind::Choice:
            return isOneOf(value, key.choices);
        case Kind::Address:
            return isIpAddress(std::string(value));
        case Kind::Path:
            return !value.empty() && value.front() == '/' && value.back() != '/';
    }
    return false;
}

std::string renderDefaultFile() {
    std::string text =
        "# Configuration of the Korvex Container Service. Read once, when the service starts.\n"
        "#\n"
        "# Each key is shown with its default; remove the '#' before a key to change it. A comment takes a\n"
        "# line of its own. A key that is not known, or a value that is not possible, is an error in the log,\n"
        "# and the part of the service that needs it does not start.\n";
    std::string_view section;
    for (const Key& key : KEYS) {
        if (section != key.section) {
            section = key.section;
            text += "\n[" + std::string(section) + "]\n";
        }
        text += "\n" + asComment(key.meaning) + "#" + key.name + " = " + key.defaultText + "\n";
    }
    return text;
}

}  // namespace KxNConfigSchema

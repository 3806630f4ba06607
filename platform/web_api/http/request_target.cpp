#include "platform/web_api/http/request_target.h"

#include <arpa/inet.h>

#include <algorithm>
#include <string>

#include "platform/common/text.h"
#include "platform/web_api/http/header_parameters.h"

namespace KxNTamberWebApi {

using KxNCommon::hexDigit;
using KxNCommon::isControl;

namespace {

/// Takes one decoded character off the front.
char takeDecoded(std::string_view& text) {
    char c = text.front();
    std::size_t used = 1;
    if (c == '%') {
        c = static_cast<char>(hexDigit(text[1]) << 4 | hexDigit(text[2]));
        used = 3;
    }
    text.remove_prefix(used);
    return c;
}

/// The length of "http://" or "https://" at the beginning of `target`, 0 without one.
std::size_t schemeLength(std::string_view target) {
    for (const std::string_view scheme : {"http://", "https://"}) {
        if (equalsIgnoringCase(target.substr(0, scheme.size()), scheme)) {
            return scheme.size();
        }
    }
    return 0;
}

bool isIpv6Address(const std::string& text) {
    in6_addr address;
    return ::inet_pton(AF_INET6, text.c_str(), &address) == 1;
}

bool isName(std::string_view text) {
    return hasValidEscapes(text) && std::all_of(text.begin(), text.end(), [](char c) {
               return KxNCommon::isAlphanumeric(c) ||
                      std::string_view("-._~!$&'()*+,;=%").find(c) != std::string_view::npos;
           });
}

}  // namespace

bool isHostAndPort(std::string_view text) {
    const bool isBracketed = text.starts_with('[');
    const std::size_t hostEnd = isBracketed ? text.find(']') : text.find(':');
    if (isBracketed && hostEnd == text.npos) {
        return false;
    }
    const std::string_view host = text.substr(isBracketed ? 1 : 0, isBracketed ? hostEnd - 1 : hostEnd);
    const std::string_view behind = hostEnd == text.npos ? std::string_view() : text.substr(hostEnd + isBracketed);
    const std::string_view port = behind.substr(0, behind.empty() ? 0 : 1) == ":" ? behind.substr(1) : behind;
    const bool isPort = port.empty() || (port.size() < behind.size() && KxNCommon::parseNumber<std::uint16_t>(port));
    return isPort && (isBracketed ? isIpv6Address(std::string(host)) : isName(host));
}

std::optional<RequestTarget> splitRequestTarget(std::string_view target) {
    for (const char c : target) {
        if (isControl(c) || c == ' ' || c == '#') {
            return std::nullopt;
        }
    }
    RequestTarget split;
    const std::size_t scheme = schemeLength(target);
    if (scheme != 0) {
        target.remove_prefix(scheme);
        split.authority = target.substr(0, target.find_first_of("/?"));
        target.remove_prefix(split.authority.size());
    }
    const std::size_t question = target.find('?');
    split.path = target.substr(0, question);
    split.query = question == std::string_view::npos ? std::string_view() : target.substr(question + 1);
    if (scheme != 0 && split.path.empty()) {
        split.path = "/";
    }
    const bool hasPath = !split.path.empty() && (split.path.front() == '/' || target == "*");
    return hasPath && (scheme == 0 || (!split.authority.empty() && isHostAndPort(split.authority)))
               ? std::optional(split)
               : std::nullopt;
}

bool hasValidEscapes(std::string_view text) {
    for (std::size_t i = text.find('%'); i != std::string_view::npos; i = text.find('%', i + 3)) {
        if (i + 2 >= text.size() || hexDigit(text[i + 1]) < 0 || hexDigit(text[i + 2]) < 0) {
            return false;
        }
    }
    return true;
}

void appendDecoded(std::string_view text, std::vector<char>& decoded) {
    while (!text.empty()) {
        decoded.push_back(takeDecoded(text));
    }
}

bool decodedEquals(std::string_view text, std::string_view plain) {
    if (text.size() == plain.size()) {
        return text == plain && text.find('%') == std::string_view::npos;
    }
    while (!text.empty() && !plain.empty()) {
        if (takeDecoded(text) != plain.front()) {
            return false;
        }
        plain.remove_prefix(1);
    }
    return text.empty() && plain.empty();
}

const char* findPathParameterFault(std::string_view decoded) {
    for (const char c : decoded) {
        if (isControl(c)) {
            return "holds a control character";
        }
        if (c == '?' || c == '#') {
            return "holds '?' or '#'";
        }
    }
    while (true) {
        const std::size_t slash = decoded.find('/');
        const std::string_view piece = decoded.substr(0, slash);
        if (piece == "." || piece == "..") {
            return "has '.' or '..' as one of its pieces";
        }
        if (slash == std::string_view::npos) {
            return nullptr;
        }
        decoded.remove_prefix(slash + 1);
    }
}

std::optional<bool> parseBoolean(std::string_view text) {
    if (text == "true" || text == "1") {
        return true;
    }
    if (text == "false" || text == "0") {
        return false;
    }
    return std::nullopt;
}

}  // namespace KxNTamberWebApi

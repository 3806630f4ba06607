#include "platform/web_api/access/loopback.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstdint>
#include <string>

#include "platform/web_api/http/header_parameters.h"

namespace KxNTamberWebApi {

namespace {

bool isPort(std::string_view text) {
    return !text.empty() && text.size() <= 5 && text.find_first_not_of("0123456789") == std::string_view::npos;
}

struct HostAndPort {
    std::string_view host;  // an IPv6 address without its brackets
    std::string_view port;  // empty when there is none
    bool isBracketed = false;
    bool isValid = false;
};

HostAndPort splitHost(std::string_view text) {
    HostAndPort split;
    std::string_view afterHost;
    if (!text.empty() && text.front() == '[') {
        const std::size_t end = text.find(']');
        if (end == std::string_view::npos) {
            return split;
        }
        split.isBracketed = true;
        split.host = text.substr(1, end - 1);
        afterHost = text.substr(end + 1);
    } else {
        const std::size_t colon = text.find(':');
        split.host = text.substr(0, colon);
        afterHost = colon == std::string_view::npos ? std::string_view() : text.substr(colon);
    }
    split.port = afterHost.empty() ? std::string_view() : afterHost.substr(1);
    split.isValid = !split.host.empty() && (afterHost.empty() || (afterHost.front() == ':' && isPort(split.port)));
    return split;
}

bool isLoopbackHost(const HostAndPort& split) {
    if (!split.isValid) {
        return false;
    }
    const bool isIpv6 = split.host.find(':') != std::string_view::npos;
    if (isIpv6 || split.isBracketed) {
        return isIpv6 && split.isBracketed && isLoopbackAddress(split.host);
    }
    constexpr std::string_view below = ".localhost";
    return equalsIgnoringCase(split.host, below.substr(1)) ||
           (split.host.size() > below.size() &&
            equalsIgnoringCase(split.host.substr(split.host.size() - below.size()), below)) ||
           isLoopbackAddress(split.host);
}

}  // namespace

bool isLoopbackAddress(std::string_view literal) {
    const std::string text(literal);  // inet_pton wants its end
    in_addr v4{};
    if (inet_pton(AF_INET, text.c_str(), &v4) == 1) {
        return ntohl(v4.s_addr) >> 24 == 127;
    }
    in6_addr v6{};
    if (inet_pton(AF_INET6, text.c_str(), &v6) != 1) {
        return false;
    }
    return IN6_IS_ADDR_LOOPBACK(&v6) || (IN6_IS_ADDR_V4MAPPED(&v6) && v6.s6_addr[12] == 127);
}

bool isLoopbackHost(std::string_view host) {
    return isLoopbackHost(splitHost(host));
}

bool isSameOrigin(std::string_view origin, std::string_view host) {
    const std::size_t schemeEnd = origin.find("://");
    if (schemeEnd == std::string_view::npos) {
        return false;
    }
    const bool isTls = equalsIgnoringCase(origin.substr(0, schemeEnd), "https");
    if (!isTls && !equalsIgnoringCase(origin.substr(0, schemeEnd), "http")) {
        return false;
    }
    const HostAndPort from = splitHost(origin.substr(schemeEnd + 3));
    const HostAndPort own = splitHost(host);
    const std::string_view defaultPort = isTls ? "443" : "80";
    const auto portOf = [&](const HostAndPort& split) { return split.port.empty() ? defaultPort : split.port; };
    return from.isValid && own.isValid && from.isBracketed == own.isBracketed &&
           equalsIgnoringCase(from.host, own.host) && portOf(from) == portOf(own);
}

}  // namespace KxNTamberWebApi

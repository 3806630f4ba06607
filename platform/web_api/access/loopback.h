// What counts as this machine itself: addresses to listen on, the Host and the Origin of a request.
#pragma once

#include <string_view>

namespace KxNTamberWebApi {

/// True for an IPv4 or IPv6 literal (without brackets) of the loopback network: 127.0.0.0/8, ::1, and the first mapped
/// into IPv6. False for names.
bool isLoopbackAddress(std::string_view literal);

/// True when a Host value, with or without a port, names this machine in a way that no name server can redirect:
/// "localhost", a name below it, or a loopback address.
bool isLoopbackHost(std::string_view host);

/// True when an Origin value is that of a page from this server: http or https, with the host and port of the request's
/// Host value. "null" is foreign.
bool isSameOrigin(std::string_view origin, std::string_view host);

}  // namespace KxNTamberWebApi

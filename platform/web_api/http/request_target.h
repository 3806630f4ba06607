// The request target of RFC 9112 section 3.2: its halves, its escapes, and the rules for what a parameter may hold.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

namespace KxNTamberWebApi {

/// The raw pieces of a request target. Views into the text that was split.
struct RequestTarget {
    std::string_view
        authority;           ///< host and port of an absolute-form target, which counts in place of Host; else empty
    std::string_view path;   ///< begins with '/', or is "*"; still escaped
    std::string_view query;  ///< without its '?'; still escaped
};

/// Splits a target in origin, absolute or asterisk form. Null when it has another form, or holds '#', a control
/// character or a space, which may not stand there.
std::optional<RequestTarget> splitRequestTarget(std::string_view target);

/// Whether `text` may stand in Host, or as the authority of a target: a name, or an address, in brackets where it is
/// one of IPv6, and a port or none (RFC 9110 section 7.2, RFC 3986 section 3.2.2).
bool isHostAndPort(std::string_view text);

/// True when each '%' is followed by two hexadecimal digits.
bool hasValidEscapes(std::string_view text);

/// Appends the percent-decoded `text`, whose escapes are valid. Only "%XX" is decoded: '+' stays '+', in queries too,
/// because versions hold one ("1.2+build5") and none of the API's queries holds a space, which "%20" still gives.
/// The result is a sequence of bytes; whether it is UTF-8 is not looked at, since names of files need not be.
void appendDecoded(std::string_view text, std::vector<char>& decoded);

/// True when the percent-decoded `text`, whose escapes are valid, is `plain`.
bool decodedEquals(std::string_view text, std::string_view plain);

/// What forbids a decoded path parameter ("holds a control character", …), or null when nothing does.
const char* findPathParameterFault(std::string_view decoded);

/// "true", "1", "false" or "0"; null for any other text.
std::optional<bool> parseBoolean(std::string_view text);

}  // namespace KxNTamberWebApi

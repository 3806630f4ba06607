// The parameters of header fields such as Content-Type and Content-Disposition (RFC 9110 section 5.6.6).
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace KxNTamberWebApi {

/// Reads `; name=value` after the first element of a field, one at a time. Values that should have been quoted but hold
/// no ';' are taken as they stand, because clients send file names that way.
class HeaderParameters {
public:
    struct Parameter {
        std::string name;   ///< in lower case
        std::string value;  ///< without quotes and escapes
    };

    explicit HeaderParameters(std::string_view field);

    /// The element before the first ';', without surrounding blanks.
    std::string_view element() const { return first; }

    /// The next parameter; null at the end, and when the rest does not parse, which `failed` tells.
    std::optional<Parameter> next();
    bool failed() const { return isMalformed; }

private:
    std::string_view first;
    std::string_view rest;
    bool isMalformed = false;
};

/// ASCII only, as header fields compare.
std::string toLowerCase(std::string_view text);
bool equalsIgnoringCase(std::string_view left, std::string_view right);

}  // namespace KxNTamberWebApi

#include "platform/web_api/http/header_parameters.h"

#include <algorithm>

#include "platform/common/text.h"

namespace KxNTamberWebApi {

using KxNCommon::trim;

namespace {

constexpr char lowerCase(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
}

}  // namespace

std::string toLowerCase(std::string_view text) {
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(), lowerCase);
    return lower;
}

// Not boost::beast::iequals: up to 1.81 it reads one character behind the end of both.
bool equalsIgnoringCase(std::string_view left, std::string_view right) {
    return std::ranges::equal(left, right, {}, lowerCase, lowerCase);
}

HeaderParameters::HeaderParameters(std::string_view field) {
    const std::size_t semicolon = field.find(';');
    first = trim(field.substr(0, semicolon));
    rest = semicolon == std::string_view::npos ? std::string_view() : field.substr(semicolon);
}

namespace {

/// Takes a quoted string that `text` begins with, its end included. Only '"' and '\' count as escaped: clients on other
/// systems send "C:\dir\file" with its backslashes bare. False when the closing quote is missing.
bool takeQuoted(std::string_view& text, std::string& value) {
    for (std::size_t i = 1; i < text.size(); ++i) {
        if (text[i] == '"') {
            text.remove_prefix(i + 1);
            return true;
        }
        const bool isEscape = text[i] == '\\' && i + 1 < text.size() && (text[i + 1] == '"' || text[i + 1] == '\\');
        value += text[isEscape ? ++i : i];
    }
    return false;
}

}  // namespace

std::optional<HeaderParameters::Parameter> HeaderParameters::next() {
    rest = trim(rest);
    while (!rest.empty() && rest.front() == ';') {
        rest = trim(rest.substr(1));
    }
    if (rest.empty()) {
        return std::nullopt;
    }

    const std::size_t nameEnd = rest.find_first_of("=;\"");
    if (nameEnd == 0 || nameEnd == std::string_view::npos || rest[nameEnd] != '=') {
        isMalformed = true;
        return std::nullopt;
    }
    Parameter parameter{toLowerCase(trim(rest.substr(0, nameEnd))), {}};
    rest = trim(rest.substr(nameEnd + 1));

    const bool isQuoted = !rest.empty() && rest.front() == '"';
    if (!isQuoted) {
        const std::size_t end = std::min(rest.find(';'), rest.size());
        parameter.value = trim(rest.substr(0, end));
        rest.remove_prefix(end);
        return parameter;
    }
    isMalformed = !takeQuoted(rest, parameter.value);
    rest = trim(rest);
    isMalformed = isMalformed || (!rest.empty() && rest.front() != ';');
    if (isMalformed) {
        return std::nullopt;
    }
    return parameter;
}

}  // namespace KxNTamberWebApi

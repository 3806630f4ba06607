#include "platform/web_api/http/content_disposition.h"

#include <algorithm>
#include <vector>

#include "platform/common/text.h"
#include "platform/web_api/http/header_parameters.h"
#include "platform/web_api/http/request_target.h"

namespace KxNTamberWebApi {

namespace {

void replaceAll(std::string& text, std::string_view from, std::string_view to) {
    for (std::size_t i = text.find(from); i != std::string::npos; i = text.find(from, i + to.size())) {
        text.replace(i, from.size(), to);
    }
}

/// Browsers write these three characters, and no others, as escapes in the names of form fields and files.
std::string decodeFormEscapes(std::string text) {
    replaceAll(text, "%22", "\"");
    replaceAll(text, "%0D", "\r");
    replaceAll(text, "%0A", "\n");
    return text;
}

std::string latin1ToUtf8(std::string_view latin1) {
    std::string utf8;
    for (const char c : latin1) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80) {
            utf8 += c;
        } else {
            utf8 += static_cast<char>(0xc0 | byte >> 6);
            utf8 += static_cast<char>(0x80 | (byte & 0x3f));
        }
    }
    return utf8;
}

/// The text of an extended value, CHARSET'LANGUAGE'ESCAPED (RFC 8187); null when it is not one that can be read.
std::optional<std::string> decodeExtended(std::string_view value) {
    const std::size_t charsetEnd = value.find('\'');
    const std::size_t languageEnd =
        charsetEnd == std::string_view::npos ? charsetEnd : value.find('\'', charsetEnd + 1);
    if (languageEnd == std::string_view::npos || !hasValidEscapes(value)) {
        return std::nullopt;
    }
    const std::string_view charset = value.substr(0, charsetEnd);
    std::vector<char> decoded;
    appendDecoded(value.substr(languageEnd + 1), decoded);
    const std::string_view bytes(decoded.data(), decoded.size());
    if (equalsIgnoringCase(charset, "utf-8")) {
        return std::string(bytes);
    }
    if (equalsIgnoringCase(charset, "iso-8859-1")) {
        return latin1ToUtf8(bytes);
    }
    return std::nullopt;
}

}  // namespace

std::string_view lastPathComponent(std::string_view clientPath) {
    const std::size_t separator = clientPath.find_last_of("/\\");
    const std::string_view last = separator == std::string_view::npos ? clientPath : clientPath.substr(separator + 1);
    return last == "." || last == ".." ? std::string_view() : last;
}

std::optional<ContentDisposition> parseContentDisposition(std::string_view value, std::string& error) {
    HeaderParameters parameters(value);
    ContentDisposition disposition;
    disposition.type = toLowerCase(parameters.element());
    const bool isForm = disposition.type == "form-data";

    std::optional<std::string> field;
    std::optional<std::string> plain;
    std::optional<std::string> extended;
    while (auto parameter = parameters.next()) {
        std::string text = isForm ? decodeFormEscapes(parameter->value) : parameter->value;
        if (parameter->name == "name" && !field) {
            field = std::move(text);
        } else if (parameter->name == "filename" && !plain) {
            plain = std::move(text);
        } else if (parameter->name == "filename*" && !extended) {
            extended = decodeExtended(parameter->value);
        }
    }
    if (parameters.failed() || disposition.type.empty()) {
        error = "The Content-Disposition field cannot be parsed";
        return std::nullopt;
    }
    const std::string clientName = extended ? *extended : plain.value_or("");
    if (KxNCommon::holdsControl(clientName) || KxNCommon::holdsControl(field.value_or(""))) {
        error = "A name in the Content-Disposition field holds a control character";
        return std::nullopt;
    }
    disposition.fieldName = field.value_or("");
    disposition.fileName = lastPathComponent(clientName);
    return disposition;
}

std::optional<ContentType> parseContentType(std::string_view value) {
    HeaderParameters parameters(value);
    ContentType type{toLowerCase(parameters.element()), {}};
    const std::size_t slash = type.mediaType.find('/');
    if (slash == 0 || slash == std::string::npos || slash + 1 == type.mediaType.size() ||
        type.mediaType.find_first_of(" \t,") != std::string::npos || KxNCommon::holdsControl(type.mediaType)) {
        return std::nullopt;
    }
    while (auto parameter = parameters.next()) {
        constexpr std::size_t maximumBoundary = 70;
        const std::string& boundary = parameter->value;
        if (parameter->name == "boundary" && type.boundary.empty() && boundary.size() <= maximumBoundary &&
            !boundary.empty() && !KxNCommon::holdsControl(boundary) && boundary.back() != ' ') {
            type.boundary = boundary;
        }
    }
    return type;
}

}  // namespace KxNTamberWebApi

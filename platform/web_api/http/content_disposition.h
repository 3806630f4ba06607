// The header fields that describe an uploaded body: Content-Disposition (RFC 6266, RFC 7578, RFC 8187) and
// Content-Type.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace KxNTamberWebApi {

struct ContentDisposition {
    std::string type;       ///< "form-data", "attachment", …, in lower case
    std::string fieldName;  ///< the form field
    /// The last component of the client's name for the file, empty when it gave none that counts.
    std::string fileName;
};

/// Parses the value of a Content-Disposition field. `filename*` counts before `filename`, the first of repeated
/// parameters counts. Null, with what is wrong in `error`, when the text does not parse or the file name holds a
/// control character.
std::optional<ContentDisposition> parseContentDisposition(std::string_view value, std::string& error);

/// What follows the last '/' or '\': a browser on another system may send its own whole path, and no part of that must
/// reach a file system here. Empty for "." and "..".
std::string_view lastPathComponent(std::string_view clientPath);

struct ContentType {
    std::string mediaType;  ///< "type/subtype" in lower case
    std::string boundary;   ///< of a multipart type; empty when there is none that may be used
};

/// Parses the value of a Content-Type field; null when it holds no media type.
std::optional<ContentType> parseContentType(std::string_view value);

}  // namespace KxNTamberWebApi

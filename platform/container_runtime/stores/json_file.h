// JSON files of the library: text from a disk that anybody may have written to.
#pragma once

#include <string>

#include "KxJsonFwd.h"

namespace KxNContainer {

/// Files larger than this are not ours.
inline constexpr std::size_t MAX_JSON_FILE_BYTES = 1 << 20;

/// Parses the text of a JSON object. Throws std::invalid_argument, which says what is wrong and where, when it is
/// anything else, is nested deeper than anything we write (later steps recurse), or is not valid UTF-8.
KxNJson::json parseJsonObject(const std::string& text);

/// Replaces the file, indented for the person who looks into it, and makes its directory where it is missing. Throws
/// std::runtime_error, whose text begins with `failure`; also when a text in `object` is not valid UTF-8, which would
/// come back as another text.
void writeJsonFile(const std::string& path, const KxNJson::json& object, const std::string& failure);

}  // namespace KxNContainer

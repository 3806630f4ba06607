// JSON files of the library: text from a disk that anybody may have written to.
#pragma once

#include <string>

#include "KxJsonFwd.h"

namespace KxNContainer {

/// Files larger than this are not ours.
inline constexpr std::size_t MAX_JSON_FILE_BYTES = 1 << 20;

/// Parses the text of a JSON object. False when it is anything else, is nested deeper than anything we write (later
/// steps recurse), or is not valid UTF-8; `error` then says what is wrong and where.
bool parseJsonObject(const std::string& text, KxNJson::json& object, std::string& error);

/// The text of a JSON file: indented, for the person who looks into it, and with a final newline. Throws
/// KxNJson::json::exception when a text in it is not valid UTF-8, which would come back as another text.
std::string formatJsonFile(const KxNJson::json& object);

}  // namespace KxNContainer

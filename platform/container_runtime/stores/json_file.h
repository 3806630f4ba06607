// JSON files of the library: text from a disk that anybody may have written to.
#pragma once

#include <optional>
#include <string>

#include "KxJson.h"

namespace KxNContainer {

/// The JSON object that the file holds; none where there is no file. Throws std::invalid_argument, which says what is
/// wrong and where, when the file holds anything else, more than 1 MiB, what nests deeper than anything we write (later
/// steps recurse), or invalid UTF-8; and std::runtime_error when it cannot be read.
std::optional<KxNJson::json> readJsonFile(const std::string& path);

/// Replaces the file, indented for the person who looks into it, and makes its directory where it is missing. Throws
/// std::runtime_error, whose text begins with `failure`; also when a text in `object` is not valid UTF-8, which would
/// come back as another text.
void writeJsonFile(const std::string& path, const KxNJson::json& object, const std::string& failure);

}  // namespace KxNContainer

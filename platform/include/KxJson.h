// JSON values of the target platform. Objects keep the order in which keys were inserted.
#pragma once

#include <nlohmann/json.hpp>

namespace KxNJson {

using json = nlohmann::ordered_json;

/// How text that is not valid UTF-8 is written: 0 throws, 1 replaces it by U+FFFD, 2 leaves it out.
using Utf8ErrorMode = nlohmann::ordered_json::error_handler_t;

}  // namespace KxNJson

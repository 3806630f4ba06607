// Declares KxNJson::json for headers that only pass it by reference.
#pragma once

#include <nlohmann/json_fwd.hpp>

namespace KxNJson {

using json = nlohmann::ordered_json;

}  // namespace KxNJson

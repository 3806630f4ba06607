// The roles as people write them.
#pragma once

#include <optional>
#include <string_view>

#include "KxTamberWebApi/KxRequest.h"

namespace KxNTamberWebApi {

/// "none", "viewer", "operator" or "administrator".
std::string_view roleName(KxERole role);

/// The role of that name; null for "none" and for what is no role.
std::optional<KxERole> parseRole(std::string_view name);

}  // namespace KxNTamberWebApi

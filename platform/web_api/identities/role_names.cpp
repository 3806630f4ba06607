#include "platform/web_api/identities/role_names.h"

#include <array>

namespace KxNTamberWebApi {

namespace {

constexpr std::array<std::string_view, ROLE_ADMINISTRATOR + 1> NAMES = {"none", "viewer", "operator", "administrator"};

}  // namespace

std::string_view roleName(KxERole role) {
    return NAMES[role];
}

std::optional<KxERole> parseRole(std::string_view name) {
    for (const KxERole role : {ROLE_VIEWER, ROLE_OPERATOR, ROLE_ADMINISTRATOR}) {
        if (NAMES[role] == name) {
            return role;
        }
    }
    return std::nullopt;
}

}  // namespace KxNTamberWebApi

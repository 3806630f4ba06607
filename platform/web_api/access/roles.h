// The roles, and which one each operation asks for.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "KxTamberWebApi/KxRequest.h"
#include "platform/web_api/identities/role_names.h"

namespace KxNTamberWebApi {

/// Who sends a request.
struct Caller {
    KxERole role = ROLE_NONE;
    std::string identity = "none";  ///< as KxCRequest::getIdentity
    std::uint32_t grant = 0;        ///< what lets an identity in, so that it can be taken away; 0 for who is none
};

struct OperationRole {
    std::string_view operationId;
    KxERole role;
};

/// What is asked for by the operations of the service, of the console and of this library, in the order of their ids.
std::span<const OperationRole> operationRoles();

/// The role that an operation asks for, or null when the table has no row for it.
std::optional<KxERole> findRequiredRole(std::string_view operationId);

/// The same, where an operation without a row is the administrator's.
inline KxERole requiredRole(std::string_view operationId) {
    return findRequiredRole(operationId).value_or(ROLE_ADMINISTRATOR);
}

}  // namespace KxNTamberWebApi

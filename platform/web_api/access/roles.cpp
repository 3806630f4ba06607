#include "platform/web_api/access/roles.h"

#include <algorithm>
#include <array>

namespace KxNTamberWebApi {

namespace {

constexpr std::array OPERATION_ROLES = {
    OperationRole{"activatePlugin", ROLE_ADMINISTRATOR},
    OperationRole{"composeCreate", ROLE_ADMINISTRATOR},
    OperationRole{"composeRemove", ROLE_ADMINISTRATOR},
    OperationRole{"composeStart", ROLE_OPERATOR},
    OperationRole{"composeStop", ROLE_OPERATOR},
    OperationRole{"containerStats", ROLE_VIEWER},
    OperationRole{"deleteCaCertificate", ROLE_ADMINISTRATOR},
    OperationRole{"deleteCertificate", ROLE_ADMINISTRATOR},
    OperationRole{"deleteComposeFile", ROLE_ADMINISTRATOR},
    OperationRole{"deleteContainer", ROLE_ADMINISTRATOR},
    OperationRole{"deletePlugin", ROLE_ADMINISTRATOR},
    OperationRole{"deletePrivateKey", ROLE_ADMINISTRATOR},
    OperationRole{"followEvents", ROLE_VIEWER},
    OperationRole{"followLogEntries", ROLE_VIEWER},
    OperationRole{"getAudit", ROLE_ADMINISTRATOR},
    OperationRole{"getContainerLogs", ROLE_VIEWER},
    OperationRole{"getEnable", ROLE_VIEWER},
    OperationRole{"getHealth", ROLE_NONE},
    OperationRole{"getMetrics", ROLE_VIEWER},
    OperationRole{"getOpenApiDocument", ROLE_VIEWER},
    OperationRole{"getSettings", ROLE_VIEWER},
    OperationRole{"getStorage", ROLE_VIEWER},
    OperationRole{"inspectContainer", ROLE_VIEWER},
    OperationRole{"listCerts", ROLE_VIEWER},
    OperationRole{"listComposeFiles", ROLE_VIEWER},
    OperationRole{"listContainers", ROLE_VIEWER},
    OperationRole{"listImages", ROLE_VIEWER},
    OperationRole{"listPlugins", ROLE_VIEWER},
    OperationRole{"patchEnable", ROLE_ADMINISTRATOR},
    OperationRole{"patchSettings", ROLE_ADMINISTRATOR},
    OperationRole{"removeImage", ROLE_ADMINISTRATOR},
    OperationRole{"restartContainer", ROLE_OPERATOR},
    OperationRole{"startContainer", ROLE_OPERATOR},
    OperationRole{"stopContainer", ROLE_OPERATOR},
    OperationRole{"uploadCaCertificate", ROLE_ADMINISTRATOR},
    OperationRole{"uploadCertificate", ROLE_ADMINISTRATOR},
    OperationRole{"uploadComposeFile", ROLE_ADMINISTRATOR},
    OperationRole{"uploadImage", ROLE_ADMINISTRATOR},
    OperationRole{"uploadPlugin", ROLE_ADMINISTRATOR},
    OperationRole{"uploadPrivateKey", ROLE_ADMINISTRATOR},
};

static_assert(std::ranges::is_sorted(OPERATION_ROLES, {}, &OperationRole::operationId));

}  // namespace

std::span<const OperationRole> operationRoles() {
    return OPERATION_ROLES;
}

std::optional<KxERole> findRequiredRole(std::string_view operationId) {
    const auto row = std::ranges::lower_bound(OPERATION_ROLES, operationId, {}, &OperationRole::operationId);
    return row != OPERATION_ROLES.end() && row->operationId == operationId ? std::optional(row->role) : std::nullopt;
}

}  // namespace KxNTamberWebApi

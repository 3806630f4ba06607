#include "api/endpoints.h"

#include <iterator>

namespace KxNCre {

namespace {

using Parameter = KxSTamberWebApiParameter;
using Endpoint = KxSTamberWebApiEndpoint;
using namespace KxNTamberWebApi;

constexpr std::uint32_t REQUIRED = 1U << 16;

constexpr std::uint32_t flags(KxEParameterType type, KxEParameterLocation location) {
    return static_cast<std::uint32_t>(type) | static_cast<std::uint32_t>(location) << 8;
}

constexpr Parameter VERSION{"version", flags(TYPE_TEXT, LOCATION_PATH)};
constexpr Parameter NAME{"name", flags(TYPE_TEXT, LOCATION_PATH) | REQUIRED};
constexpr Parameter ALL{"all", flags(TYPE_BOOLEAN, LOCATION_QUERY)};
constexpr Parameter FORCE{"force", flags(TYPE_BOOLEAN, LOCATION_QUERY)};
constexpr Parameter TIMEOUT{"timeout", flags(TYPE_INT64, LOCATION_QUERY)};
constexpr Parameter STDOUT{"stdout", flags(TYPE_BOOLEAN, LOCATION_QUERY)};
constexpr Parameter STDERR{"stderr", flags(TYPE_BOOLEAN, LOCATION_QUERY)};
constexpr Parameter SINCE{"since", flags(TYPE_INT64, LOCATION_QUERY)};
constexpr Parameter UNTIL{"until", flags(TYPE_INT64, LOCATION_QUERY)};
constexpr Parameter TIMESTAMPS{"timestamps", flags(TYPE_BOOLEAN, LOCATION_QUERY)};
constexpr Parameter TAIL{"tail", flags(TYPE_TEXT, LOCATION_QUERY)};
constexpr Parameter PLUGIN_VERSION{"pluginVersion", flags(TYPE_TEXT, LOCATION_QUERY)};

constexpr const Parameter* NO_PARAMETERS[] = {&VERSION, nullptr};
constexpr const Parameter* NAME_ONLY[] = {&VERSION, &NAME, nullptr};
constexpr const Parameter* LIST_CONTAINERS[] = {&VERSION, &ALL, nullptr};
constexpr const Parameter* DELETE_CONTAINER[] = {&VERSION, &NAME, &FORCE, nullptr};
constexpr const Parameter* STOP_CONTAINER[] = {&VERSION, &NAME, &TIMEOUT, nullptr};
constexpr const Parameter* CONTAINER_LOGS[] = {&VERSION, &NAME,       &STDOUT, &STDERR, &SINCE,
                                               &UNTIL,   &TIMESTAMPS, &TAIL,   nullptr};
constexpr const Parameter* ACTIVATE_PLUGIN[] = {&VERSION, &NAME, &PLUGIN_VERSION, nullptr};

constexpr std::uint8_t JSON_BODY[2] = {BODY_JSON, 1};
constexpr std::uint8_t UPLOAD_BODY[2] = {BODY_UPLOAD, 1};

constexpr Endpoint endpoint(KxEEndpoint id, const char* operationId, KxEMethod method, const char* route,
                            const Parameter* const* parameters, const std::uint8_t* bodyKinds = nullptr) {
    return {id, operationId, method, route, bodyKinds, parameters, 0, bodyKinds == UPLOAD_BODY ? 1U : 0U};
}

constexpr Endpoint RECORDS[] = {
    endpoint(ENDPOINT_LIST_CONTAINERS, "listContainers", METHOD_GET, "/containers", LIST_CONTAINERS),
    endpoint(ENDPOINT_DELETE_CONTAINER, "deleteContainer", METHOD_DELETE, "/containers/{name}", DELETE_CONTAINER),
    endpoint(ENDPOINT_START_CONTAINER, "startContainer", METHOD_POST, "/containers/{name}/start", NAME_ONLY),
    endpoint(ENDPOINT_STOP_CONTAINER, "stopContainer", METHOD_POST, "/containers/{name}/stop", STOP_CONTAINER),
    endpoint(ENDPOINT_GET_CONTAINER_LOGS, "getContainerLogs", METHOD_GET, "/containers/{name}/logs/ws", CONTAINER_LOGS),
    endpoint(ENDPOINT_LIST_IMAGES, "listImages", METHOD_GET, "/images", NO_PARAMETERS),
    endpoint(ENDPOINT_UPLOAD_IMAGE, "uploadImage", METHOD_POST, "/images", NO_PARAMETERS, UPLOAD_BODY),
    endpoint(ENDPOINT_REMOVE_IMAGE, "removeImage", METHOD_DELETE, "/images/{name}", NAME_ONLY),
    endpoint(ENDPOINT_GET_SETTINGS, "getSettings", METHOD_GET, "/settings", NO_PARAMETERS),
    endpoint(ENDPOINT_PATCH_SETTINGS, "patchSettings", METHOD_PATCH, "/settings", NO_PARAMETERS, JSON_BODY),
    endpoint(ENDPOINT_GET_ENABLE, "getEnable", METHOD_GET, "/settings/enable", NO_PARAMETERS),
    endpoint(ENDPOINT_PATCH_ENABLE, "patchEnable", METHOD_PATCH, "/settings/enable", NO_PARAMETERS, JSON_BODY),
    endpoint(ENDPOINT_LIST_PLUGINS, "listPlugins", METHOD_GET, "/plugins", NO_PARAMETERS),
    endpoint(ENDPOINT_UPLOAD_PLUGIN, "uploadPlugin", METHOD_POST, "/plugins", NO_PARAMETERS, UPLOAD_BODY),
    endpoint(ENDPOINT_DELETE_PLUGIN, "deletePlugin", METHOD_DELETE, "/plugins/{name}", NAME_ONLY),
    endpoint(ENDPOINT_ACTIVATE_PLUGIN, "activatePlugin", METHOD_PUT, "/plugins/{name}/activate", ACTIVATE_PLUGIN,
             JSON_BODY),
    endpoint(ENDPOINT_COMPOSE_START, "composeStart", METHOD_POST, "/compose-files/{name}/containers/start", NAME_ONLY),
    endpoint(ENDPOINT_COMPOSE_STOP, "composeStop", METHOD_POST, "/compose-files/{name}/containers/stop", NAME_ONLY),
    endpoint(ENDPOINT_COMPOSE_CREATE, "composeCreate", METHOD_POST, "/compose-files/{name}/containers/create",
             NAME_ONLY),
    endpoint(ENDPOINT_COMPOSE_REMOVE, "composeRemove", METHOD_DELETE, "/compose-files/{name}/containers", NAME_ONLY),
    endpoint(ENDPOINT_LIST_COMPOSE_FILES, "listComposeFiles", METHOD_GET, "/compose-files", NO_PARAMETERS),
    endpoint(ENDPOINT_UPLOAD_COMPOSE_FILE, "uploadComposeFile", METHOD_POST, "/compose-files", NO_PARAMETERS,
             UPLOAD_BODY),
    endpoint(ENDPOINT_DELETE_COMPOSE_FILE, "deleteComposeFile", METHOD_DELETE, "/compose-files/{name}", NAME_ONLY),
    endpoint(ENDPOINT_LIST_CERTS, "listCerts", METHOD_GET, "/certs", NO_PARAMETERS),
    endpoint(ENDPOINT_UPLOAD_CERTIFICATE, "uploadCertificate", METHOD_POST, "/certs/certificate", NO_PARAMETERS,
             UPLOAD_BODY),
    endpoint(ENDPOINT_DELETE_CERTIFICATE, "deleteCertificate", METHOD_DELETE, "/certs/certificate", NO_PARAMETERS),
    endpoint(ENDPOINT_UPLOAD_PRIVATE_KEY, "uploadPrivateKey", METHOD_POST, "/certs/private-key", NO_PARAMETERS,
             UPLOAD_BODY),
    endpoint(ENDPOINT_DELETE_PRIVATE_KEY, "deletePrivateKey", METHOD_DELETE, "/certs/private-key", NO_PARAMETERS),
    endpoint(ENDPOINT_UPLOAD_CA_CERTIFICATE, "uploadCaCertificate", METHOD_POST, "/certs/ca-certificate", NO_PARAMETERS,
             UPLOAD_BODY),
    endpoint(ENDPOINT_DELETE_CA_CERTIFICATE, "deleteCaCertificate", METHOD_DELETE, "/certs/ca-certificate",
             NO_PARAMETERS),
};

static_assert(std::size(RECORDS) == ENDPOINT_DELETE_CA_CERTIFICATE);

}  // namespace

const Endpoint* const ENDPOINTS[] = {
    &RECORDS[0],  &RECORDS[1],  &RECORDS[2],  &RECORDS[3],  &RECORDS[4],  &RECORDS[5],  &RECORDS[6],  &RECORDS[7],
    &RECORDS[8],  &RECORDS[9],  &RECORDS[10], &RECORDS[11], &RECORDS[12], &RECORDS[13], &RECORDS[14], &RECORDS[15],
    &RECORDS[16], &RECORDS[17], &RECORDS[18], &RECORDS[19], &RECORDS[20], &RECORDS[21], &RECORDS[22], &RECORDS[23],
    &RECORDS[24], &RECORDS[25], &RECORDS[26], &RECORDS[27], &RECORDS[28], &RECORDS[29], nullptr,
};

}  // namespace KxNCre

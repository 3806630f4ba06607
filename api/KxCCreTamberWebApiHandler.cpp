#include "api/KxCCreTamberWebApiHandler.h"

#include "api/endpoints.h"
#include "api/schemas.h"

using namespace KxNCre;

namespace {

constexpr std::uint32_t CHUNK_REFUSED = 0xFFFFFFFF;

/// The parameters of one request by their kind, as the operations take them.
struct Parameters {
    using Handler = KxNTamberWebApi::KxCHandler;

    const KxSTamberWebApiParameterValue* const* values;

    const char* name() const { return Handler::getStringParam(values, "name", KxNTamberWebApi::LOCATION_PATH); }
    const char* text(const char* key) const {
        return Handler::getStringParam(values, key, KxNTamberWebApi::LOCATION_QUERY);
    }
    const bool* flag(const char* key) const {
        return Handler::getBooleanParamPtr(values, key, KxNTamberWebApi::LOCATION_QUERY);
    }
    const std::int64_t* number(const char* key) const {
        return Handler::getInt64ParamPtr(values, key, KxNTamberWebApi::LOCATION_QUERY);
    }
};

}  // namespace

KxCCreTamberWebApiHandler::KxCCreTamberWebApiHandler() {
    setSchemas(&SCHEMAS);
}

KxCCreTamberWebApiHandler::~KxCCreTamberWebApiHandler() = default;

const char* KxCCreTamberWebApiHandler::getServiceTitle() {
    return "Korvex Container Service";
}

const char* KxCCreTamberWebApiHandler::getDescription() {
    return "REST API for managing container images on the Korvex container runtime. Endpoints relay image management "
           "requests to the embedded Podman service via its REST API (Unix socket or TCP, depending on configuration).";
}

const char* KxCCreTamberWebApiHandler::getVersion() {
    return "1.0";
}

const char* KxCCreTamberWebApiHandler::getApiName() {
    return "cre";
}

const char* KxCCreTamberWebApiHandler::getBasePath(bool resolved) {
    return resolved ? "/api/cre/v1.0" : "/api/cre/{version}";
}

const char* KxCCreTamberWebApiHandler::getServiceName() {
    return "CreService";
}

const KxSTamberWebApiEndpoint* const* KxCCreTamberWebApiHandler::getEndpoints() {
    return ENDPOINTS;
}

bool KxCCreTamberWebApiHandler::handleRequest(KxCErrorListPool& pool, KxCRequest* request,
                                              const KxNTamberWebApi::KxSBody* body,
                                              const KxSTamberWebApiParameterValue* const* values,
                                              KxCResponse* response) {
    if (request == nullptr || request->getEndpoint() == nullptr || response == nullptr) {
        return false;
    }
    const std::uint32_t errorsBefore = pool.getErrorCount();
    const KxNJson::json* content = body != nullptr ? body->content : nullptr;
    const Parameters parameters{values};

    switch (request->getEndpoint()->id) {
        case ENDPOINT_LIST_CONTAINERS:
            ListContainers(pool, *request, parameters.flag("all"), *response);
            break;
        case ENDPOINT_DELETE_CONTAINER:
            DeleteContainer(pool, *request, parameters.name(), parameters.flag("force"), *response);
            break;
        case ENDPOINT_START_CONTAINER:
            StartContainer(pool, *request, parameters.name(), *response);
            break;
        case ENDPOINT_STOP_CONTAINER:
            StopContainer(pool, *request, parameters.name(), parameters.number("timeout"), *response);
            break;
        case ENDPOINT_GET_CONTAINER_LOGS:
            GetContainerLogs(pool, *request, parameters.name(), parameters.flag("stdout"), parameters.flag("stderr"),
                             parameters.number("since"), parameters.number("until"), parameters.flag("timestamps"),
                             parameters.text("tail"), *response);
            break;
        case ENDPOINT_LIST_IMAGES:
            ListImages(pool, *request, *response);
            break;
        case ENDPOINT_UPLOAD_IMAGE:
            UploadImage(pool, *request, content, *response);
            break;
        case ENDPOINT_REMOVE_IMAGE:
            RemoveImage(pool, *request, parameters.name(), *response);
            break;
        case ENDPOINT_GET_SETTINGS:
            GetSettings(pool, *request, *response);
            break;
        case ENDPOINT_PATCH_SETTINGS:
            PatchSettings(pool, *request, content, *response);
            break;
        case ENDPOINT_GET_ENABLE:
            GetEnable(pool, *request, *response);
            break;
        case ENDPOINT_PATCH_ENABLE:
            PatchEnable(pool, *request, content, *response);
            break;
        case ENDPOINT_LIST_PLUGINS:
            ListPlugins(pool, *request, *response);
            break;
        case ENDPOINT_UPLOAD_PLUGIN:
            UploadPlugin(pool, *request, content, *response);
            break;
        case ENDPOINT_DELETE_PLUGIN:
            DeletePlugin(pool, *request, parameters.name(), *response);
            break;
        case ENDPOINT_ACTIVATE_PLUGIN:
            ActivatePlugin(pool, *request, content, parameters.name(), parameters.text("pluginVersion"), *response);
            break;
        case ENDPOINT_COMPOSE_START:
            ComposeStart(pool, *request, parameters.name(), *response);
            break;
        case ENDPOINT_COMPOSE_STOP:
            ComposeStop(pool, *request, parameters.name(), *response);
            break;
        case ENDPOINT_COMPOSE_CREATE:
            ComposeCreate(pool, *request, parameters.name(), *response);
            break;
        case ENDPOINT_COMPOSE_REMOVE:
            ComposeRemove(pool, *request, parameters.name(), *response);
            break;
        case ENDPOINT_LIST_COMPOSE_FILES:
            ListComposeFiles(pool, *request, *response);
            break;
        case ENDPOINT_UPLOAD_COMPOSE_FILE:
            UploadComposeFile(pool, *request, content, *response);
            break;
        case ENDPOINT_DELETE_COMPOSE_FILE:
            DeleteComposeFile(pool, *request, parameters.name(), *response);
            break;
        case ENDPOINT_LIST_CERTS:
            ListCerts(pool, *request, *response);
            break;
        case ENDPOINT_UPLOAD_CERTIFICATE:
            UploadCertificate(pool, *request, content, *response);
            break;
        case ENDPOINT_DELETE_CERTIFICATE:
            DeleteCertificate(pool, *request, *response);
            break;
        case ENDPOINT_UPLOAD_PRIVATE_KEY:
            UploadPrivateKey(pool, *request, content, *response);
            break;
        case ENDPOINT_DELETE_PRIVATE_KEY:
            DeletePrivateKey(pool, *request, *response);
            break;
        case ENDPOINT_UPLOAD_CA_CERTIFICATE:
            UploadCaCertificate(pool, *request, content, *response);
            break;
        case ENDPOINT_DELETE_CA_CERTIFICATE:
            DeleteCaCertificate(pool, *request, *response);
            break;
        default:
            return false;
    }
    return pool.getErrorCount() == errorsBefore;
}

bool KxCCreTamberWebApiHandler::handleWebSocket(KxCErrorListPool& pool, const KxSTamberWebApiEndpoint* endpoint,
                                                const KxSTamberWebApiParameterValue* const* values,
                                                KxCWebSocket* socket) {
    if (endpoint == nullptr || socket == nullptr || endpoint->id != ENDPOINT_GET_CONTAINER_LOGS) {
        return false;
    }
    const std::uint32_t errorsBefore = pool.getErrorCount();
    const Parameters parameters{values};
    GetContainerLogsSetWebSocket(pool, parameters.name(), parameters.flag("stdout"), parameters.flag("stderr"),
                                 parameters.number("since"), parameters.number("until"), parameters.flag("timestamps"),
                                 parameters.text("tail"), socket);
    return pool.getErrorCount() == errorsBefore;
}

std::uint32_t KxCCreTamberWebApiHandler::handleUploadChunk(const KxSTamberWebApiEndpoint* endpoint,
                                                           const char* requestTarget, const char* contentType,
                                                           const char* fileName, const char* fieldName,
                                                           const void* data, std::uint64_t offset, std::uint32_t size) {
    if (endpoint == nullptr || requestTarget == nullptr || contentType == nullptr) {
        return CHUNK_REFUSED;
    }
    switch (endpoint->id) {
        case ENDPOINT_UPLOAD_IMAGE:
            return static_cast<std::uint32_t>(UploadImageStart(fileName, fieldName, data, offset, size));
        case ENDPOINT_UPLOAD_PLUGIN:
            return static_cast<std::uint32_t>(UploadPluginStart(fileName, fieldName, data, offset, size));
        case ENDPOINT_UPLOAD_COMPOSE_FILE:
            return static_cast<std::uint32_t>(UploadComposeFileStart(fileName, fieldName, data, offset, size));
        case ENDPOINT_UPLOAD_CERTIFICATE:
            return static_cast<std::uint32_t>(UploadCertificateStart(fileName, fieldName, data, offset, size));
        case ENDPOINT_UPLOAD_PRIVATE_KEY:
            return static_cast<std::uint32_t>(UploadPrivateKeyStart(fileName, fieldName, data, offset, size));
        case ENDPOINT_UPLOAD_CA_CERTIFICATE:
            return static_cast<std::uint32_t>(UploadCaCertificateStart(fileName, fieldName, data, offset, size));
        default:
            return CHUNK_REFUSED;
    }
}

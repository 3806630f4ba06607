// The plugins of the container runtime. Every change takes effect at the next boot of the target.
#include <filesystem>
#include <string_view>

#include "KxJson.h"
#include "KxLog.h"
#include "api/operation_scope.h"
#include "api/responses.h"
#include "handler/KxCContainerHandler.h"
#include "handler/parameters.h"
#include "service/paths.h"

using namespace KxNCre;
using KxNContainer::KxNContainerPaths::PLUGINS_DIR;
using KxNJson::json;

namespace {

// Result codes of the runtime's plugin configuration that have an answer of their own. All others are successes.
constexpr int ALREADY_SO = 1;
constexpr int EMPTY_ARGUMENT = 2;
constexpr int NO_SUCH_PLUGIN = 3;
constexpr int NOT_WRITTEN = 4;

bool isPluginFileName(std::string_view name) {
    return name.ends_with(".crp");
}

json describeChange(const char* name, const char* version, bool activate, const std::string& message) {
    json answer;
    answer["name"] = name;
    answer["version"] = version;
    answer["isDeactivated"] = !activate;
    answer["message"] = message;
    return answer;
}

}  // namespace

void KxCContainerHandler::ListPlugins(KxCErrorListPool& pool, const KxCRequest&, KxCResponse& response) {
    const OperationScope scope(KxEOperation::LIST_PLUGINS);
    scope.trace();
    KxCRTE_LOG(0, "Korvex Container Service: Listing CRP plugins");
    if (!checkServiceStarted(pool, response)) {
        return;
    }
    const json plugins = container->listPlugins();
    response.setJsonBody(pool, HTTP_OK, &plugins);
    KxCRTE_LOG(0, "Korvex Container Service: Finished listing CRP plugins (%d)",
               static_cast<int>(plugins.contains("plugins") ? plugins.at("plugins").size() : 0));
}

std::int32_t KxCContainerHandler::UploadPluginStart(const char* fileName, const char*, const void* data,
                                                    std::uint64_t offset, std::uint32_t size) {
    if (offset == 0) {
        if (isMissing(fileName)) {
            KxCRTE_LOG_Impl(4, "Korvex Container Service: Rejected plugin upload with empty file name");
            return -1;
        }
        if (!isPluginFileName(fileName)) {
            KxCRTE_LOG_Impl(4, "Korvex Container Service: Invalid file type uploaded, only .crp files are accepted");
            return -1;
        }
        KxCRTE_LOG(0, "Korvex Container Service: Starting CRP plugin upload '%s'", fileName);
    }
    return writeUploadChunk(PLUGINS_DIR + "/", fileName, data, offset, size);
}

void KxCContainerHandler::UploadPlugin(KxCErrorListPool& pool, const KxCRequest&, const json*, KxCResponse& response) {
    const OperationScope scope(KxEOperation::UPLOAD_PLUGIN);
    scope.trace();
    KxCRTE_LOG(0, "Korvex Container Service: Finalising CRP plugin upload");
    if (!checkServiceStarted(pool, response)) {
        return;
    }
    const std::string path = finishUploadSession();
    // Where the system cannot tell whether the file is there, the exception of `exists` leaves the operation.
    if (path.empty() || !std::filesystem::exists(path)) {
        answerBadRequest(pool, response,
                         "No CRP plugin file was uploaded. Make sure the name of the file is not empty and has a .crp "
                         "extension");
        return;
    }
    container->scanContainerPluginsDir();
    answerUploadedFile(pool, path, response);
    KxCRTE_LOG(0, "Korvex Container Service: Finished uploading CRP plugin %s", path.c_str());
    KxCRTE_LOG_Impl(6,
                    "Korvex Container Service: CRP plugin '%s' uploaded. "
                    "A system reboot is required for it to be loaded.",
                    path.c_str());
}

void KxCContainerHandler::DeletePlugin(KxCErrorListPool& pool, const KxCRequest&, const char* name,
                                       KxCResponse& response) {
    const OperationScope scope(KxEOperation::DELETE_PLUGIN);
    scope.trace();
    if (isMissing(name)) {
        KxCRTE_LOG_Impl(4, "Korvex Container Service: Rejected plugin delete with empty file name");
        answerBadRequest(pool, response, "Plugin file name must be provided");
        return;
    }
    if (!isPluginFileName(name)) {
        KxCRTE_LOG_Impl(4, "Korvex Container Service: file '%s' is not a valid .crp plugin file.", name);
        answerBadRequest(pool, response, "File '" + std::string(name) + "' is not a valid .crp plugin file.");
        return;
    }
    const std::string path = PLUGINS_DIR + "/" + name;
    KxCRTE_LOG(0, "Korvex Container Service: Deleting CRP plugin '%s'", name);
    if (!checkServiceStarted(pool, response)) {
        return;
    }

    deleteFile(pool, path.c_str(), response);
    // The configuration may name a file that was not there: its entry goes unless the file is there still.
    std::error_code error;
    if (std::filesystem::exists(path, error)) {
        KxCRTE_LOG_Impl(3, "Korvex Container Service: Plugin file '%s' still exists after deleteFile", path.c_str());
    } else if (container->removePluginFromConfigByFileName(name) == NOT_WRITTEN) {
        KxCRTE_LOG_Impl(3, "Korvex Container Service: Failed to update plugin deactivation config for '%s'", name);
    }
    container->scanContainerPluginsDir();
    KxCRTE_LOG_Impl(6, "Korvex Container Service: CRP plugin '%s' deleted. A system reboot is required.", path.c_str());
}

void KxCContainerHandler::ActivatePlugin(KxCErrorListPool& pool, const KxCRequest&, const json* body, const char* name,
                                         const char* pluginVersion, KxCResponse& response) {
    const OperationScope scope(KxEOperation::ACTIVATE_PLUGIN);
    scope.trace();
    if (isMissing(name) || isMissing(pluginVersion)) {
        KxCRTE_LOG_Impl(4, "Korvex Container Service: Rejected plugin activation request with empty name or version");
        answerBadRequest(pool, response, "Plugin name and version must be provided");
        return;
    }
    if (body == nullptr || !body->contains("activate")) {
        answerBadRequest(pool, response, "Request body must contain 'activate' (boolean)");
        return;
    }
    if (!body->at("activate").is_boolean()) {
        answerBadRequest(pool, response, "'activate' must be a boolean");
        return;
    }
    const bool activate = body->at("activate").get<bool>();
    KxCRTE_LOG(0, "Korvex Container Service: %s plugin name='%s' version='%s'",
               activate ? "Activating" : "Deactivating", name, pluginVersion);
    if (!checkServiceStarted(pool, response)) {
        return;
    }

    const int code = activate ? container->removePluginFromConfig(name, pluginVersion)
                              : container->addPluginToConfig(name, pluginVersion);
    KxCRTE_LOG(1, "Korvex Container Service: Plugin config update result code: %d", code);
    const std::string done = activate ? "activated" : "deactivated";
    switch (code) {
        case ALREADY_SO: {
            const json answer = describeChange(name, pluginVersion, activate, "Plugin was already " + done);
            response.setJsonBody(pool, HTTP_OK, &answer);
            break;
        }
        case EMPTY_ARGUMENT:
            answerBadRequest(pool, response, "Plugin name and version must be provided");
            break;
        case NO_SUCH_PLUGIN:
            answerNotFound(pool, response, "Plugin does not exist");
            break;
        case NOT_WRITTEN:
            answerInternalError(pool, response, "Failed to update plugin deactivation config");
            break;
        default: {
            const json answer = describeChange(name, pluginVersion, activate, "Plugin " + done + " successfully");
            response.setJsonBody(pool, HTTP_OK, &answer);
            KxCRTE_LOG(0, "Korvex Container Service: %s plugin name='%s' version='%s'",
                       activate ? "Activated" : "Deactivated", name, pluginVersion);
            KxCRTE_LOG_Impl(6, "Korvex Container Service: Reboot the system to %s plugin: name='%s' version='%s'",
                            activate ? "activate" : "deactivate", name, pluginVersion);
            break;
        }
    }
}

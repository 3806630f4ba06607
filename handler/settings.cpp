// The settings and enable operations. They work whatever the state of the container service.
#include "KxJson.h"
#include "KxLog.h"
#include "api/operation_scope.h"
#include "api/responses.h"
#include "handler/KxCContainerHandler.h"

using namespace KxNCre;
using KxNContainer::KxCContainer;
using KxNJson::json;

namespace {

const char* stateText(int status) {
    switch (status) {
        case KxCContainer::UNINITIALIZED:
            return "uninitialized";
        case KxCContainer::INITIALIZED:
            return "initialized";
        case KxCContainer::STARTED:
            return "started";
        case KxCContainer::STOPPED:
            return "stopped";
        case KxCContainer::FAILED:
            return "failed";
        default:
            return "unknown";
    }
}

}  // namespace

void KxCContainerHandler::GetSettings(KxCErrorListPool& pool, const KxCRequest&, KxCResponse& response) {
    const OperationScope scope(KxEOperation::GET_SETTINGS);
    scope.trace();
    const KxCCTESettings::KxSUserSettings settings = container->GetContainerServiceUserSettings();
    json answer;
    answer["tcp_port"] = settings.tcpPort;
    answer["cores_num"] = settings.coresNum;
    answer["max_allowed_cores_num"] = container->GetMaxAllowedCpuCoreCount();
    answer["service_state"] = stateText(container->GetContainerServiceStatus(false));
    response.setJsonBody(pool, HTTP_OK, &answer);
}

void KxCContainerHandler::PatchSettings(KxCErrorListPool& pool, const KxCRequest&, const json* body,
                                        KxCResponse& response) {
    const OperationScope scope(KxEOperation::PATCH_SETTINGS);
    scope.trace();
    if (body == nullptr) {
        answerBadRequest(pool, response, "Missing request body");
        return;
    }

    KxCCTESettings::KxSUserSettings settings = container->GetContainerServiceUserSettings();
    const auto port = body->find("tcp_port");
    const auto cores = body->find("cores_num");
    if (port == body->end() && cores == body->end()) {
        answerBadRequest(pool, response,
                         "Empty request body: at least one of 'tcp_port' or 'cores_num' must be specified");
        return;
    }
    if (port != body->end()) {
        if (!port->is_number_integer()) {
            answerBadRequest(pool, response, "'tcp_port' must be an integer");
            return;
        }
        settings.tcpPort = port->get<std::int32_t>();
    }
    if (cores != body->end()) {
        if (!cores->is_number_integer()) {
            answerBadRequest(pool, response, "'cores_num' must be an integer");
            return;
        }
        settings.coresNum = cores->get<std::int32_t>();
        const auto maximum = static_cast<std::int32_t>(container->GetMaxAllowedCpuCoreCount());
        if (maximum < settings.coresNum) {
            const std::string message = "'cores_num' (" + std::to_string(settings.coresNum) +
                                        ") exceeds the maximum allowed CPU core count (" + std::to_string(maximum) +
                                        ")";
            answerBadRequest(pool, response, message);
            KxCRTE_LOG_Impl(4, "Korvex Container Service: %s", message.c_str());
            return;
        }
    }

    if (!container->SetContainerServiceUserSettings(settings)) {
        answerInternalError(pool, response, "Failed to write settings file");
        return;
    }
    json answer;
    answer["tcp_port"] = settings.tcpPort;
    answer["cores_num"] = settings.coresNum;
    KxCRTE_LOG(1, "Korvex Container Service: Settings updated: %s", answer.dump().c_str());
    response.setJsonBody(pool, HTTP_OK, &answer);
}

void KxCContainerHandler::GetEnable(KxCErrorListPool& pool, const KxCRequest&, KxCResponse& response) {
    const OperationScope scope(KxEOperation::GET_ENABLE);
    scope.trace();
    const json answer = {{"enabled", container->IsContainerServiceEnabled(false)}};
    response.setJsonBody(pool, HTTP_OK, &answer);
}

void KxCContainerHandler::PatchEnable(KxCErrorListPool& pool, const KxCRequest&, const json* body,
                                      KxCResponse& response) {
    const OperationScope scope(KxEOperation::PATCH_ENABLE);
    scope.trace();
    if (body == nullptr || !body->contains("enabled")) {
        answerBadRequest(pool, response, "Request body must contain 'enabled' (boolean)");
        return;
    }
    const json& enabled = body->at("enabled");
    if (!enabled.is_boolean()) {
        answerBadRequest(pool, response, "'enabled' must be a boolean");
        return;
    }
    if (std::string message; !container->HasValidUserStorage(&message)) {
        KxCRTE_LOG_Impl(4, "Korvex Container Service: %s", message.c_str());
        answerInternalError(pool, response, message);
        return;
    }
    if (!(enabled.get<bool>() ? container->EnableContainerService() : container->DisableContainerService())) {
        answerInternalError(pool, response, "Failed to write settings file");
        return;
    }
    KxCRTE_LOG(0, "Korvex Container Service: Container service %s",
               container->IsContainerServiceEnabled(false) ? "enabled" : "disabled");
    if (container->IsContainerServiceEnabled(false) && !container->TriggerInventoryTreeScan()) {
        answerInternalError(pool, response, "Failed to trigger inventory tree scan");
        return;
    }
    const json answer = {{"enabled", container->IsContainerServiceEnabled(false)}};
    response.setJsonBody(pool, HTTP_OK, answer.dump(-1, ' ', false, json::error_handler_t::replace).c_str());
}

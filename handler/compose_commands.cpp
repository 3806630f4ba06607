// The compose commands: the container runtime does the work, here its result becomes the answer.
#include "KxJson.h"
#include "KxLog.h"
#include "api/operation_scope.h"
#include "api/responses.h"
#include "handler/KxCContainerHandler.h"

using namespace KxNCre;
using KxNContainer::KxCContainer;
using KxNJson::json;

struct KxCContainerHandler::KxSComposeCommand {
    KxEOperation operation;
    int (KxCContainer::*run)(const char* fileName, json& result);
};

namespace {

/// The result's text for a person; empty when there is none.
std::string messageOf(const json& result) {
    const auto message = result.find("Message");
    return message != result.end() && message->is_string() ? message->get<std::string>() : std::string();
}

void answerComposeResult(int code, const json& result, KxCErrorListPool& pool, KxNTamberWebApi::KxCResponse& response) {
    const std::string message = messageOf(result);
    switch (code) {
        case 0:
        case 7:
            response.setJsonBody(pool, HTTP_OK, &result);
            break;
        case 1:
            response.setJsonBody(pool, HTTP_CREATED, &result);
            break;
        case 2:
            answerInternalError(pool, response, message);
            break;
        case 3:
            answerBadRequest(pool, response, message);
            break;
        case 4:
            answerNotFound(pool, response, message);
            break;
        case 5:
        case 6:
        case 8:
            answerInternalError(pool, response, message);
            KxCRTE_LOG_Impl(4, "Korvex Container Service: %s", message.c_str());
            KxCRTE_LOG(1, "Korvex Container Service: Compose command failed with return code %d", code);
            break;
        default:
            answerInternalError(pool, response, "Unknown error occurred: " + std::to_string(code));
            break;
    }
}

}  // namespace

/// The runtime alone checks the name: even an empty one is handed over as it came.
void KxCContainerHandler::runCompose(const KxSComposeCommand& command, KxCErrorListPool& pool, const char* name,
                                     KxCResponse& response) {
    const OperationScope scope(command.operation);
    scope.trace();
    json result = json::object();
    if (!checkServiceStarted(pool, response)) {
        return;
    }
    const int code = (container->*command.run)(name, result);
    answerComposeResult(code, result, pool, response);
}

void KxCContainerHandler::ComposeStart(KxCErrorListPool& pool, const KxCRequest&, const char* name,
                                       KxCResponse& response) {
    runCompose({KxEOperation::COMPOSE_START, &KxCContainer::StartCompose}, pool, name, response);
}

void KxCContainerHandler::ComposeStop(KxCErrorListPool& pool, const KxCRequest&, const char* name,
                                      KxCResponse& response) {
    runCompose({KxEOperation::COMPOSE_STOP, &KxCContainer::StopCompose}, pool, name, response);
}

void KxCContainerHandler::ComposeCreate(KxCErrorListPool& pool, const KxCRequest&, const char* name,
                                        KxCResponse& response) {
    runCompose({KxEOperation::COMPOSE_CREATE, &KxCContainer::CreateCompose}, pool, name, response);
}

void KxCContainerHandler::ComposeRemove(KxCErrorListPool& pool, const KxCRequest&, const char* name,
                                        KxCResponse& response) {
    runCompose({KxEOperation::COMPOSE_REMOVE, &KxCContainer::RemoveCompose}, pool, name, response);
}

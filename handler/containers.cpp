// The container operations: each relays one request to Podman and maps Podman's status to its own answer.
#include "KxJson.h"
#include "KxJsonText.h"
#include "KxLog.h"
#include "api/operation_scope.h"
#include "api/responses.h"
#include "handler/KxCContainerHandler.h"
#include "handler/parameters.h"
#include "runtime/podman_requests.h"

using namespace KxNCre;
using KxNContainer::PodmanReply;
using KxNJson::json;

namespace {

constexpr const char* CONTAINER_KEYS[] = {"Id", "Names", "Image", "Created", "State"};

}  // namespace

/// One of the three changes to a container, in the words of its messages.
struct KxCContainerHandler::KxSContainerAction {
    KxEOperation operation;
    const KxNPodman::Request& request;
    const char* beginning;     ///< "Starting", of the log line before the request
    const char* doing;         ///< "starting", of the message of a failure
    const char* done;          ///< "started", of the log line of a success
    const char* alreadyState;  ///< what a 304 says the container already was; null where 304 is a failure
    bool needsForce;           ///< whether a 409 says that the container runs and was not to be forced
    const char* requestBegin;  ///< Podman's request in the log line of a failure, up to the name
    const char* requestEnd;    ///< and from the name on
};

void KxCContainerHandler::changeContainer(const KxSContainerAction& action, KxCErrorListPool& pool, const char* name,
                                          const std::string& query, KxCResponse& response) {
    const OperationScope scope(action.operation);
    if (isMissing(name)) {
        answerBadRequest(pool, response, "Container name must be provided");
        return;
    }
    scope.trace();
    KxCRTE_LOG(0, "Korvex Container Service: %s container '%s'", action.beginning, name);
    if (!checkServiceStarted(pool, response)) {
        return;
    }

    const PodmanReply reply = KxNPodman::execute(*container, action.request, name, query);
    const std::string quotedName = "'" + std::string(name) + "'";
    // Of the statuses 200 to 299 only 204 is a success.
    if (reply.status == HTTP_NOT_MODIFIED && action.alreadyState != nullptr) {
        response.setEmptyBody(pool, HTTP_NOT_MODIFIED);
        KxCRTE_LOG(1, "Korvex Container Service: Container '%s' was already %s", name, action.alreadyState);
    } else if (reply.status == HTTP_NOT_FOUND) {
        answerNotFound(pool, response, "Container " + quotedName + " does not exist");
    } else if (reply.status == HTTP_CONFLICT && action.needsForce) {
        answerConflict(pool, response,
                       "Container " + quotedName + " is running and cannot be deleted without force=true");
    } else if (reply.status == HTTP_NO_CONTENT) {
        response.setEmptyBody(pool, HTTP_DEFAULT_EMPTY);
        KxCRTE_LOG(0, "Korvex Container Service: Container '%s' %s successfully", name, action.done);
    } else {
        KxCRTE_LOG(4, "Korvex Container Service: Podman %s%s%s failed with HTTP %d: %s", action.requestBegin, name,
                   action.requestEnd, reply.status, KxNPodman::loggableBody(reply).c_str());
        answerInternalError(
            pool, response,
            "Error occurred while " + std::string(action.doing) + " container " + quotedName + ": " + reply.body);
    }
}

void KxCContainerHandler::StartContainer(KxCErrorListPool& pool, const KxCRequest&, const char* name,
                                         KxCResponse& response) {
    static constexpr KxSContainerAction START{
        .operation = KxEOperation::START_CONTAINER,
        .request = KxNPodman::START_CONTAINER,
        .beginning = "Starting",
        .doing = "starting",
        .done = "started",
        .alreadyState = "running",
        .needsForce = false,
        .requestBegin = "/containers/",
        .requestEnd = "/start",
    };
    changeContainer(START, pool, name, {}, response);
}

void KxCContainerHandler::StopContainer(KxCErrorListPool& pool, const KxCRequest&, const char* name,
                                        const std::int64_t* timeout, KxCResponse& response) {
    static constexpr KxSContainerAction STOP{
        .operation = KxEOperation::STOP_CONTAINER,
        .request = KxNPodman::STOP_CONTAINER,
        .beginning = "Stopping",
        .doing = "stopping",
        .done = "stopped",
        .alreadyState = "stopped",
        .needsForce = false,
        .requestBegin = "/containers/",
        .requestEnd = "/stop",
    };
    changeContainer(STOP, pool, name, timeout != nullptr ? "?t=" + std::to_string(*timeout) : std::string(), response);
}

void KxCContainerHandler::DeleteContainer(KxCErrorListPool& pool, const KxCRequest&, const char* name,
                                          const bool* force, KxCResponse& response) {
    static constexpr KxSContainerAction DELETE{
        .operation = KxEOperation::DELETE_CONTAINER,
        .request = KxNPodman::DELETE_CONTAINER,
        .beginning = "Deleting",
        .doing = "deleting",
        .done = "deleted",
        .alreadyState = nullptr,
        .needsForce = true,
        .requestBegin = "DELETE /containers/",
        .requestEnd = "",
    };
    changeContainer(DELETE, pool, name, isSetTo(force, true) ? "?force=true" : "", response);
}

void KxCContainerHandler::ListContainers(KxCErrorListPool& pool, const KxCRequest&, const bool* all,
                                         KxCResponse& response) {
    const OperationScope scope(KxEOperation::LIST_CONTAINERS);
    scope.trace();
    KxCRTE_LOG(0, "Korvex Container Service: Listing containers");
    if (!checkServiceStarted(pool, response)) {
        return;
    }

    const PodmanReply reply =
        KxNPodman::execute(*container, KxNPodman::LIST_CONTAINERS, {}, isSetTo(all, true) ? "?all=true" : "");
    if (!KxNPodman::isSuccess(reply)) {
        answerInternalError(pool, response, "Error occurred while listing containers: " + reply.body);
        return;
    }
    json containers;
    if (std::string reason; !KxNJson::selectKeys(reply.body, CONTAINER_KEYS, containers, reason)) {
        KxCRTE_LOG_Impl(4, "Korvex Container Service: Podman's container list cannot be read: %s", reason.c_str());
        answerInternalError(pool, response, "Error occurred while listing containers: " + reply.body);
        return;
    }
    json answer;
    answer["containers"] = std::move(containers);
    KxCRTE_LOG(1, "Korvex Container Service: Container list response: %s",
               answer.dump(-1, ' ', false, json::error_handler_t::replace).c_str());
    response.setJsonBody(pool, HTTP_OK, &answer);
    KxCRTE_LOG(0, "Korvex Container Service: Finished listing containers");
}

// The requests that the console makes of Podman for one container.
#include "KxJson.h"
#include "KxJsonText.h"
#include "KxLog.h"
#include "platform/common/text.h"
#include "platform/console/containers/containers.h"

namespace KxNConsole {

using KxNContainer::PodmanReply;
using Method = KxCCurlHandler::MethodType;

namespace {

/// False when the answer stands.
bool hasName(const Call& call) {
    if (*call.name() == '\0') {
        call.badRequest("Container name must be provided");
        return false;
    }
    return true;
}

/// Answers a request that Podman has refused.
void refuse(const Call& call, const PodmanReply& reply, const char* doing) {
    const std::string quotedName = "'" + std::string(call.name()) + "'";
    if (reply.status == 404) {
        call.notFound("Container " + quotedName + " does not exist");
        return;
    }
    KxCRTE_LOG(4, "Korvex Container Service: Podman failed while %s container %s with HTTP %d: %s", doing,
               quotedName.c_str(), reply.status, reply.body.c_str());
    call.internalError("Error occurred while " + std::string(doing) + " container " + quotedName + ": " + reply.body);
}

}  // namespace

std::string podmanPath(std::string_view name, std::string_view end) {
    std::string path = "/containers/";
    for (const char c : name) {
        if (KxNCommon::isAlphanumeric(c) || c == '-' || c == '.' || c == '_' || c == '~') {
            path += c;
        } else {
            path += '%';
            KxNCommon::appendHex(path, c, KxNCommon::UPPER_CASE_DIGITS);
        }
    }
    return path.append(end);
}

bool inspect(const Call& call, KxNJson::json& inspection) {
    if (!hasName(call)) {
        return false;
    }
    const PodmanReply reply = call.container.ExecutePodmanRequest(podmanPath(call.name(), "/json"), Method::GET,
                                                                  {"Accept: application/json"}, {}, false);
    std::string reason;
    if (reply.status != 200) {
        refuse(call, reply, "inspecting");
        return false;
    }
    if (!KxNJson::parse(reply.body, inspection, reason) || !inspection.is_object()) {
        call.internalError("Error occurred while inspecting container '" + std::string(call.name()) +
                           "': Podman's answer cannot be read: " + reason);
        return false;
    }
    return true;
}

void inspectContainer(const Call& call) {
    if (KxNJson::json inspection; call.isStarted() && inspect(call, inspection)) {
        call.answer(200, describeContainer(inspection));
    }
}

void restartContainer(const Call& call) {
    if (!hasName(call) || !call.isStarted()) {
        return;
    }
    KxCRTE_LOG(0, "Korvex Container Service: Restarting container '%s'", call.name());
    const std::int64_t* const timeout = call.number("timeout");
    const std::string query = timeout != nullptr ? "?t=" + std::to_string(*timeout) : std::string();
    const PodmanReply reply =
        call.container.ExecutePodmanRequest(podmanPath(call.name(), "/restart" + query), Method::POST, {}, {}, false);
    if (reply.status == 204) {
        call.response.setEmptyBody(call.pool, 0);
        KxCRTE_LOG(0, "Korvex Container Service: Container '%s' restarted successfully", call.name());
    } else {
        refuse(call, reply, "restarting");
    }
}

}  // namespace KxNConsole

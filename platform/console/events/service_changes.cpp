#include "platform/console/events/service_changes.h"

#include <algorithm>
#include <array>

#include "KxClock.h"

namespace KxNConsole {

namespace {

struct ServiceChange {
    std::string_view operationId;
    const char* kind;
    const char* action;
    const char* name;  ///< null: what the request named
};

constexpr std::array CHANGES = {
    ServiceChange{"activatePlugin", "plugin", "change", nullptr},
    ServiceChange{"composeCreate", "compose", "create", nullptr},
    ServiceChange{"composeRemove", "compose", "remove", nullptr},
    ServiceChange{"composeStart", "compose", "start", nullptr},
    ServiceChange{"composeStop", "compose", "stop", nullptr},
    ServiceChange{"deleteCaCertificate", "certificate", "delete", "ca-certificate"},
    ServiceChange{"deleteCertificate", "certificate", "delete", "certificate"},
    ServiceChange{"deleteComposeFile", "compose", "delete", nullptr},
    ServiceChange{"deletePlugin", "plugin", "delete", nullptr},
    ServiceChange{"deletePrivateKey", "certificate", "delete", "private-key"},
    ServiceChange{"patchEnable", "settings", "enable", "service"},
    ServiceChange{"patchSettings", "settings", "change", "settings"},
    ServiceChange{"uploadCaCertificate", "certificate", "upload", "ca-certificate"},
    ServiceChange{"uploadCertificate", "certificate", "upload", "certificate"},
    ServiceChange{"uploadComposeFile", "compose", "upload", nullptr},
    ServiceChange{"uploadPlugin", "plugin", "upload", nullptr},
    ServiceChange{"uploadPrivateKey", "certificate", "upload", "private-key"},
};

static_assert(std::ranges::is_sorted(CHANGES, {}, &ServiceChange::operationId));

}  // namespace

std::optional<Event> describeServiceChange(std::string_view operationId, int status, std::string_view name,
                                           KxNContainer::KxCContainer& container) {
    const auto change = std::ranges::lower_bound(CHANGES, operationId, {}, &ServiceChange::operationId);
    if (change == CHANGES.end() || change->operationId != operationId || status < 200 || status > 299) {
        return std::nullopt;
    }
    Event event{change->kind, change->action, std::string(change->name != nullptr ? change->name : name),
                KxCVorrelClock::utcMilliseconds()};
    if (operationId == "patchEnable" && !container.IsContainerServiceEnabled(false)) {
        event.action = "disable";
    }
    return event;
}

}  // namespace KxNConsole

#include "platform/console/device/health.h"

#include <unistd.h>

#include <algorithm>

#include "KxClock.h"
#include "KxJson.h"
#include "KxTamberWebApi/KxAudit.h"
#include "platform/console/device/certificate.h"
#include "platform/console/device/storage.h"
#include "platform/console/parts.h"
#include "platform/console/time_text.h"

namespace KxNConsole {

using KxNContainer::KxCContainer;
using KxNJson::json;

namespace {

constexpr std::int64_t LOOK_EVERY_MILLISECONDS = 3'000;
constexpr std::int64_t DAY_MILLISECONDS = 24 * 3600 * 1000;
constexpr std::int64_t CERTIFICATE_WARNING_DAYS = 30;
constexpr std::uint64_t LEAST_FREE_PERCENT = 10;

constexpr std::array ROLE_NAMES = {"none", "viewer", "operator", "administrator"};

HealthPart lookAtPodman(KxCContainer& container) {
    if (!container.IsContainerServiceEnabled(false)) {
        return {HealthPart::DEGRADED, "Container service is disabled"};
    }
    if (container.GetContainerServiceStatus(false) != KxCContainer::STARTED) {
        return {HealthPart::FAILED, "Container service is not started"};
    }
    const KxNContainer::KxSPodmanState podman = container.GetPodmanState();
    return podman.isAnswering ? HealthPart{HealthPart::OK, {}, podman.since}
                              : HealthPart{HealthPart::FAILED, "Podman does not answer", podman.since};
}

HealthPart lookAtStorage(KxCContainer& container) {
    if (std::string message; !container.HasValidUserStorage(&message)) {
        return {HealthPart::FAILED, message};
    }
    for (const Volume& volume : readVolumes()) {
        if (volume.freeBytes < volume.totalBytes / 100 * LEAST_FREE_PERCENT) {
            return {HealthPart::DEGRADED, "Less than " + std::to_string(LEAST_FREE_PERCENT) + " % of the storage for " +
                                              volume.what + " (" + volume.path + ") is free"};
        }
    }
    return {};
}

HealthPart lookAtCertificate(std::optional<std::int64_t> end) {
    const std::int64_t left = end ? *end - KxCVorrelClock::utcMilliseconds() : 0;
    if (!end || left > CERTIFICATE_WARNING_DAYS * DAY_MILLISECONDS) {
        return {};
    }
    if (left > 0) {
        return {HealthPart::DEGRADED, "The server's certificate ends soon",
                *end - CERTIFICATE_WARNING_DAYS * DAY_MILLISECONDS};
    }
    return {HealthPart::FAILED, "The server's certificate has ended", *end};
}

HealthPart lookAtAudit() {
    const std::string problem = KxNTamberWebApi::getAuditState().problem;
    return problem.empty() ? HealthPart() : HealthPart{HealthPart::FAILED, problem};
}

/// Takes a new look at a part. Where the look does not know since when, the part keeps its time while its state stays.
void update(HealthPart& part, HealthPart look) {
    if (look.since == 0) {
        const bool hasChanged = part.since == 0 || part.state != look.state;
        look.since = hasChanged ? KxCVorrelClock::utcMilliseconds() : part.since;
    }
    part = std::move(look);
}

json describe(const HealthPart& part) {
    static constexpr std::array NAMES = {"ok", "degraded", "failed"};
    return {{"state", NAMES.at(part.state)},
            {"reason", part.reason.empty() ? json() : json(part.reason)},
            {"since", timeText(part.since)}};
}

std::string hostName() {
    std::array<char, 256> name{};
    return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

}  // namespace

bool HealthReport::isWell() const {
    const auto hasFailed = [](const HealthPart* part) { return part->state == HealthPart::FAILED; };
    const std::array parts = {&podman, &storage, &certificate, &audit};
    return std::none_of(parts.begin(), parts.end(), hasFailed);
}

HealthReport Health::look(KxCContainer& container) {
    const std::lock_guard lock(mutex);
    const std::int64_t now = KxCVorrelClock::monotonicMilliseconds();
    if (!lookedAt || now - *lookedAt >= LOOK_EVERY_MILLISECONDS) {
        update(last.podman, lookAtPodman(container));
        update(last.storage, lookAtStorage(container));
        last.certificateEnd = findCertificateEnd();
        update(last.certificate, lookAtCertificate(last.certificateEnd));
        update(last.audit, lookAtAudit());
        lookedAt = now;
    }
    return last;
}

void getHealth(const Call& call) {
    const HealthReport report = call.parts.health.look(call.container);
    json answer = {{"status", report.isWell() ? "ok" : "degraded"}};
    const KxNTamberWebApi::KxERole role = call.request.getRole();
    if (role != KxNTamberWebApi::ROLE_NONE) {
        answer["podman"] = describe(report.podman);
        answer["storage"] = describe(report.storage);
        json& certificate = answer["certificate"] = describe(report.certificate);
        const auto end = report.certificateEnd;
        certificate["NotAfter"] = end ? json(timeText(*end)) : json();
        certificate["days"] = end ? json((*end - KxCVorrelClock::utcMilliseconds()) / DAY_MILLISECONDS) : json();
        answer["audit"] = describe(report.audit);
        answer["uptime"] = (KxCVorrelClock::monotonicMilliseconds() - call.parts.begunAt) / 1000;
        answer["host"] = hostName();
        answer["identity"] = {{"name", call.request.getIdentity()}, {"role", ROLE_NAMES.at(role)}};
    }
    call.answer(report.isWell() ? 200 : 503, answer);
}

}  // namespace KxNConsole

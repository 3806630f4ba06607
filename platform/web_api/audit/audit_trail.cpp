#include "platform/web_api/audit/audit_trail.h"

#include <utility>

#include "KxLog.h"
#include "platform/net/deadline.h"

namespace KxNTamberWebApi {

AuditTrail::AuditTrail(const std::string& path)
    : keeper(path.empty() ? nullptr : std::make_unique<AuditKeeper>(path)) {}

void AuditTrail::tellChange(AuditRecord record, std::function<void()> isKept) {
    tell(std::move(record), std::move(isKept));
}

void AuditTrail::tellRefusal(AuditRecord record) {
    if (refusals.isToldAlone(record.peer, record.status, KxNNet::coarseMilliseconds())) {
        tell(std::move(record), {});
    }
}

void AuditTrail::tellSums() {
    for (const RefusalSummary::Sum& sum : refusals.takeDue(KxNNet::coarseMilliseconds())) {
        AuditRecord record;
        record.peer = sum.address;
        record.identity = "none";
        record.role = "none";
        record.status = sum.status;
        record.refusals = sum.refusals;
        tell(std::move(record), {});
    }
}

void AuditTrail::tell(AuditRecord record, std::function<void()> isKept) {
    record.time = KxNCommon::wallNow();
    if (KxCRTE_LOG_IsLevelEnabled(2)) {
        KxCRTE_LOG_Impl(2, "%s", makeAuditLine(record).c_str());
    }
    if (keeper) {
        keeper->keep(std::move(record), std::move(isKept));
    }
}

}  // namespace KxNTamberWebApi

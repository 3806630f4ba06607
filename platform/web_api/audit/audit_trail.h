// Everything that is told of changes and refusals, in the log and in the kept record.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/web_api/audit/audit_keeper.h"
#include "platform/web_api/audit/audit_record.h"
#include "platform/web_api/audit/refusal_summary.h"

namespace KxNTamberWebApi {

/// Any thread.
class AuditTrail {
public:
    /// Keeps the record in the file at `path`; empty for the log alone.
    explicit AuditTrail(const std::string& path);

    /// Whether changes are kept: `tellChange` then calls `isKept` once it is done with the disk, else it never does.
    bool isKept() const { return keeper != nullptr; }

    void tellChange(AuditRecord record, std::function<void()> isKept);
    void tellRefusal(AuditRecord record);
    /// Tells together what was not told alone. To be called every now and then.
    void tellSums();

private:
    void tell(AuditRecord record, std::function<void()> isKept);

    RefusalSummary refusals;
    std::unique_ptr<AuditKeeper> keeper;
};

}  // namespace KxNTamberWebApi

#include "platform/console/device/audit.h"

#include <algorithm>
#include <exception>
#include <string>

#include "KxTamberWebApi/KxAudit.h"

namespace KxNConsole {

namespace {

constexpr std::int64_t USUAL_ENTRIES = 100;
constexpr std::int64_t MOST_ENTRIES = 1000;

}  // namespace

void getAudit(const Call& call) {
    const std::int64_t* const after = call.number("after");
    const std::int64_t* const limit = call.number("limit");
    if ((after != nullptr && *after < 0) || (limit != nullptr && *limit < 1)) {
        call.badRequest("Query parameter 'after' must not be negative, and 'limit' at least 1");
        return;
    }
    try {
        const std::string entries = KxNTamberWebApi::readAuditEntries(
            static_cast<std::uint64_t>(after != nullptr ? *after : 0),
            static_cast<std::size_t>(std::min(limit != nullptr ? *limit : USUAL_ENTRIES, MOST_ENTRIES)));
        call.response.setJsonBody(call.pool, 200, entries.c_str());
    } catch (const std::exception& failure) {
        call.internalError("Error occurred while reading the audit record: " + std::string(failure.what()));
    }
}

}  // namespace KxNConsole

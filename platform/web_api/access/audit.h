// The audit line: who did what, when it changed something or was refused.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace KxNTamberWebApi {

/// What one line tells. Only what stands here gets into it: no header, query or body.
struct AuditRecord {
    std::string_view peer;      ///< address of the client
    std::string_view identity;  ///< "token", the subject of the client's certificate, or "none"
    std::string_view role;      ///< of that identity
    std::string_view method;
    std::string_view route;  ///< of the endpoint, with its placeholders; empty when no endpoint was found
    std::string_view name;   ///< decoded path parameter "name", or that of an uploaded file; empty when there is none
    int status = 0;
    std::int64_t milliseconds = 0;
};

/// One line of key=value fields, without a newline, to be logged at level 2. A value is quoted and escaped as far as it
/// needs to be so that none can look like another field or line, and long ones are cut.
std::string makeAuditLine(const AuditRecord& record);

}  // namespace KxNTamberWebApi

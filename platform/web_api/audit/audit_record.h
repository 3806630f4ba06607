// What is told of a request that changed something or was refused: as a line of the log, and as one of the kept record.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/common/rfc3339.h"

namespace KxNTamberWebApi {

/// What one line tells. Only what stands here gets into it: no header, query or body.
struct AuditRecord {
    std::string peer;      ///< address of the client
    std::string identity;  ///< "token", the name of an identity, the subject of a client certificate, or "none"
    std::string role;      ///< of that identity
    std::string method;
    std::string route;  ///< of the endpoint, with its placeholders; empty when no endpoint was found
    std::string name;   ///< decoded path parameter "name", or that of an uploaded file; empty when there is none
    int status = 0;
    std::int64_t milliseconds = 0;
    std::uint64_t refusals = 0;  ///< where the record stands for so many refusals of the peer together, else 0
    KxNCommon::WallTime time{};
};

/// One line of key=value fields, without a newline, to be logged at level 2. A value is quoted and escaped as far as it
/// needs to be so that none can look like another field or line, and long ones are cut.
std::string makeAuditLine(const AuditRecord& record);

/// One line of the kept record, a JSON object (RFC 8259) without a newline: the members of the record between `seq` and
/// `previous`. Invalid UTF-8 is replaced, long values are cut.
std::string makeAuditEntry(const AuditRecord& record, std::uint64_t seq, std::string_view previous);

}  // namespace KxNTamberWebApi

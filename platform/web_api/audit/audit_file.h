// The file that the audit record is kept in, with the one before it.
#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "platform/common/unique_fd.h"
#include "platform/web_api/audit/audit_chain.h"
#include "platform/web_api/audit/audit_record.h"

namespace KxNTamberWebApi {

/// Where the file before the one at `path` lies.
inline std::string olderAuditFile(const std::string& path) {
    return path + ".1";
}

/// One thread at a time.
class AuditFile {
public:
    /// A file that would grow beyond `maximumSize` bytes takes the place of the older one, and a new one is begun.
    explicit AuditFile(std::string path, std::size_t maximumSize = 4 * 1024 * 1024);

    /// Opens the file, and makes it where it is missing. What a power cut or a kill left of a line at its end is set
    /// aside in "PATH.torn", with a line in the log. Throws std::system_error. Other calls open it by themselves.
    void open();

    /// Appends the records. When it returns they are on the disk; when it throws std::system_error none of them is in
    /// the record, and the next call tries again.
    void append(std::span<const AuditRecord> records);

    /// The last entry.
    const AuditLink& last() const { return end; }

private:
    bool isInPlace() const;
    void setEndAside(std::size_t wholeSize);
    void beginNext();
    void write(std::string_view text);

    const std::string path;
    const std::size_t maximumSize;
    KxNCommon::UniqueFd file;
    std::size_t size = 0;
    AuditLink end;
};

}  // namespace KxNTamberWebApi

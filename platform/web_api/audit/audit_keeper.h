// The thread that keeps the audit record, so that nobody else waits for the disk.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "KxTamberWebApi/KxAudit.h"
#include "platform/web_api/audit/audit_record.h"

namespace KxNTamberWebApi {

/// Any thread.
class AuditKeeper {
public:
    /// Keeps the record in the file at `path` and the one before it. Throws std::system_error when there is no thread.
    explicit AuditKeeper(std::string path);
    /// What was handed over is still written.
    ~AuditKeeper();
    AuditKeeper(const AuditKeeper&) = delete;
    AuditKeeper& operator=(const AuditKeeper&) = delete;

    /// Hands a record over. `isKept`, where given, is called on the keeper's thread once the record is on the disk, or
    /// once that has failed, which the log then tells. Records that come while the disk is busy share its next turn.
    void keep(AuditRecord record, std::function<void()> isKept = {});

    KxSAuditState state() const;

    /// As KxNTamberWebApi::readAuditEntries.
    std::string read(std::uint64_t after, std::size_t limit) const;

private:
    struct Waiting {
        AuditRecord record;
        std::function<void()> isKept;
    };

    void run();
    void write(class AuditFile& file, std::vector<Waiting>& batch);
    void note(std::uint64_t last, std::uint64_t lost, const std::string& problem);

    const std::string path;

    mutable std::mutex mutex;
    std::condition_variable changed;
    std::vector<Waiting> waiting;
    bool isEnding = false;
    KxSAuditState known;
    std::thread thread;
};

}  // namespace KxNTamberWebApi

#include "platform/web_api/audit/audit_keeper.h"

#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <system_error>
#include <utility>

#include "KxLog.h"
#include "platform/common/blocked_signals.h"
#include "platform/common/system_text.h"
#include "platform/web_api/audit/audit_file.h"

namespace KxNTamberWebApi {

namespace {

/// Written in one go: few enough for a file of the record to hold them.
constexpr std::size_t LARGEST_BATCH = 256;
/// Records that nobody waits for, while the disk does not take them.
constexpr std::size_t MOST_WAITING = 10'000;

std::mutex currentMutex;
AuditKeeper* current = nullptr;  // the one of the server that was made last

/// Appends the entries of one file behind `after` to `text`.
class EntryReader {
public:
    EntryReader(std::uint64_t after, std::uint64_t lastOnDisk, std::size_t most)
        : taken(after), last(lastOnDisk), left(most) {}

    void read(std::ifstream& file) {
        std::string line;
        while (left > 0 && std::getline(file, line) && !file.eof()) {
            const auto seq = findSeq(line);
            if (seq && *seq > taken && *seq <= last) {
                entries.append(entries.empty() ? "" : ",").append(line);
                taken = *seq;
                --left;
            }
        }
    }

    std::string entries;

private:
    std::uint64_t taken;
    const std::uint64_t last;
    std::size_t left;
};

}  // namespace

AuditKeeper::AuditKeeper(std::string filePath) : path(std::move(filePath)) {
    known.isKept = true;
    {
        const KxNCommon::BlockedSignals blocked;
        thread = std::thread([this] { run(); });
    }
    pthread_setname_np(thread.native_handle(), "kx-web-audit");
    const std::lock_guard lock(currentMutex);
    current = this;
}

AuditKeeper::~AuditKeeper() {
    {
        const std::lock_guard lock(currentMutex);
        current = current == this ? nullptr : current;
    }
    {
        const std::lock_guard lock(mutex);
        isEnding = true;
    }
    changed.notify_all();
    thread.join();
}

void AuditKeeper::keep(AuditRecord record, std::function<void()> isKept) {
    {
        const std::lock_guard lock(mutex);
        if (!isKept && waiting.size() >= MOST_WAITING) {
            ++known.lost;
            return;
        }
        waiting.push_back({std::move(record), std::move(isKept)});
    }
    changed.notify_all();
}

void AuditKeeper::run() {
    AuditFile file(path);
    try {
        file.open();
        note(file.last().seq, 0, {});
    } catch (const std::system_error& failure) {
        KxCRTE_LOG(4, "Korvex Container Service: %s", failure.what());
        note(0, 0, failure.what());
    }
    std::vector<Waiting> batch;
    std::unique_lock lock(mutex);
    for (;;) {
        changed.wait(lock, [this] { return isEnding || !waiting.empty(); });
        if (waiting.empty()) {
            return;
        }
        const auto end = waiting.begin() + static_cast<std::ptrdiff_t>(std::min(waiting.size(), LARGEST_BATCH));
        batch.assign(std::move_iterator(waiting.begin()), std::move_iterator(end));
        waiting.erase(waiting.begin(), end);
        lock.unlock();
        write(file, batch);
        lock.lock();
    }
}

void AuditKeeper::write(AuditFile& file, std::vector<Waiting>& batch) {
    try {
        std::vector<AuditRecord> records;
        records.reserve(batch.size());
        for (Waiting& one : batch) {
            records.push_back(std::move(one.record));
        }
        file.append(records);
        note(file.last().seq, 0, {});
    } catch (const std::exception& failure) {
        KxCRTE_LOG(4, "Korvex Container Service: %s; entries lost: %zu", failure.what(), batch.size());
        note(file.last().seq, batch.size(), failure.what());
    }
    for (const Waiting& one : batch) {
        if (one.isKept) {
            one.isKept();
        }
    }
    batch.clear();
}

void AuditKeeper::note(std::uint64_t last, std::uint64_t lost, const std::string& problem) {
    const std::lock_guard lock(mutex);
    known.last = last;
    known.lost += lost;
    known.problem = problem;
}

KxSAuditState AuditKeeper::state() const {
    const std::lock_guard lock(mutex);
    return known;
}

std::string AuditKeeper::read(std::uint64_t after, std::size_t limit) const {
    const std::uint64_t last = state().last;
    // The newer one first: where it becomes the older one meanwhile, its entries come twice and are taken once.
    std::ifstream newer(path, std::ios::binary);
    if (!newer && errno != ENOENT) {
        throw KxNCommon::systemError("audit record '" + path + "' cannot be read");
    }
    std::ifstream older(olderAuditFile(path), std::ios::binary);
    EntryReader reader(after, last, limit);
    reader.read(older);
    reader.read(newer);
    return "{\"entries\":[" + reader.entries + "],\"last\":" + std::to_string(last) + "}";
}

KxSAuditState getAuditState() {
    const std::lock_guard lock(currentMutex);
    return current != nullptr ? current->state() : KxSAuditState();
}

std::string readAuditEntries(std::uint64_t after, std::size_t limit) {
    const std::lock_guard lock(currentMutex);  // the keeper stays as long as it reads
    return current != nullptr ? current->read(after, limit) : R"({"entries":[],"last":0})";
}

}  // namespace KxNTamberWebApi

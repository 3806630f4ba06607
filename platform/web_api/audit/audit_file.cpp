#include "platform/web_api/audit/audit_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <optional>
#include <utility>

#include "KxLog.h"
#include "platform/common/atomic_file.h"
#include "platform/common/private_file.h"
#include "platform/common/system_text.h"

namespace KxNTamberWebApi {

namespace {

/// Longer than any line.
constexpr std::size_t LOOKED_AT = 64 * 1024;

std::system_error failedTo(const std::string& action, const std::string& path) {
    return KxNCommon::systemError("audit record '" + path + "' cannot be " + action);
}

/// The end of an open file, up to LOOKED_AT bytes.
std::string readEnd(int file, std::size_t size, const std::string& path) {
    std::string text(std::min(size, LOOKED_AT), '\0');
    std::size_t got = 0;
    while (got < text.size()) {
        const ssize_t count =
            ::pread(file, text.data() + got, text.size() - got, static_cast<off_t>(size - text.size() + got));
        if (count <= 0 && !(count < 0 && errno == EINTR)) {
            throw failedTo("read", path);
        }
        got += static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    }
    return text;
}

struct LastLine {
    AuditLink link;
    std::size_t behind = 0;  // bytes of the text behind the line
};

/// The last whole line of a record in `text`; null when there is none.
std::optional<LastLine> findLastLine(std::string_view text) {
    std::size_t lineEnd = text.rfind('\n');
    while (lineEnd != text.npos) {
        const std::size_t before = lineEnd > 0 ? text.rfind('\n', lineEnd - 1) : text.npos;
        const std::size_t begin = before == text.npos ? 0 : before + 1;
        const std::string_view line = text.substr(begin, lineEnd - begin);
        if (const auto place = findPlace(line)) {
            return LastLine{linkOf(line, place->seq), text.size() - lineEnd - 1};
        }
        lineEnd = before;
    }
    return std::nullopt;
}

/// The last line of the older file: where the chain goes on when the newer one has none yet.
AuditLink endOfOlder(const std::string& path) {
    const KxNCommon::UniqueFd older(::open(olderAuditFile(path).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    struct stat status {};
    if (!older || ::fstat(older.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return {};
    }
    const auto line = findLastLine(readEnd(older.get(), static_cast<std::size_t>(status.st_size), path));
    return line ? line->link : AuditLink();
}

void syncDirectoryOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    const std::string directory = slash == path.npos ? "." : path.substr(0, slash + 1);
    const KxNCommon::UniqueFd opened(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!opened || (::fsync(opened.get()) != 0 && errno != EINVAL)) {
        throw failedTo("begun", path);
    }
}

}  // namespace

AuditFile::AuditFile(std::string filePath, std::size_t sizeLimit) : path(std::move(filePath)), maximumSize(sizeLimit) {}

void AuditFile::open() {
    KxNCommon::makeDirectoryOf(path);
    file = KxNCommon::UniqueFd(::open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK,
                                      KxNCommon::PRIVATE_MODE));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0) {
        throw failedTo("opened", path);
    }
    if (!S_ISREG(status.st_mode)) {
        file.reset();
        errno = EEXIST;
        throw failedTo("opened", path);
    }
    syncDirectoryOf(path);
    size = static_cast<std::size_t>(status.st_size);
    const auto line = findLastLine(readEnd(file.get(), size, path));
    const std::size_t wholeSize = line ? size - line->behind : 0;
    AuditLink onDisk = line ? line->link : endOfOlder(path);
    if (onDisk.seq > end.seq) {  // not so when somebody took the file away while the service ran
        end = std::move(onDisk);
    }
    if (wholeSize < size) {
        setEndAside(wholeSize);
    }
}

/// Takes away what stands behind the last whole line.
void AuditFile::setEndAside(std::size_t wholeSize) {
    const std::string aside = path + ".torn";
    const std::size_t torn = size - wholeSize;
    if (torn > LOOKED_AT) {  // nothing of this is a record
        if (::rename(path.c_str(), aside.c_str()) != 0) {
            throw failedTo("set aside", path);
        }
        file.reset();
        open();
    } else {
        std::string error;
        const std::string text = readEnd(file.get(), size, path);
        if (!KxNCommon::replaceFile(aside, text.substr(text.size() - torn), KxNCommon::PRIVATE_MODE, error)) {
            KxCRTE_LOG(3, "Korvex Container Service: audit record: %s", error.c_str());
        }
        if (::ftruncate(file.get(), static_cast<off_t>(wholeSize)) != 0 || ::fdatasync(file.get()) != 0) {
            file.reset();
            throw failedTo("mended", path);
        }
        size = wholeSize;
    }
    KxCRTE_LOG(
        3,
        "Korvex Container Service: audit record: the last %zu bytes of '%s' are no whole line and were set aside "
        "in '%s'; the record goes on behind entry %llu",
        torn, path.c_str(), aside.c_str(), static_cast<unsigned long long>(end.seq));
}

/// Whether the open file is the one that bears the name.
bool AuditFile::isInPlace() const {
    struct stat held {};
    struct stat named {};
    return file && ::fstat(file.get(), &held) == 0 && ::lstat(path.c_str(), &named) == 0 &&
           held.st_ino == named.st_ino && held.st_dev == named.st_dev;
}

void AuditFile::append(std::span<const AuditRecord> records) {
    if (!isInPlace()) {
        file.reset();
        open();
    }
    std::string text;
    AuditLink next = end;
    for (const AuditRecord& record : records) {
        const std::string line = makeAuditEntry(record, next.seq + 1, next.hash);
        next = linkOf(line, next.seq + 1);
        text.append(line).push_back('\n');
    }
    if (size > 0 && size + text.size() > maximumSize) {
        beginNext();
    }
    try {
        write(text);
    } catch (...) {
        // What came to the disk is taken back; where that fails too, the next opening finds it.
        [[maybe_unused]] const int ignored = ::ftruncate(file.get(), static_cast<off_t>(size));
        file.reset();
        throw;
    }
    size += text.size();
    end = std::move(next);
}

void AuditFile::beginNext() {
    if (::rename(path.c_str(), olderAuditFile(path).c_str()) != 0) {
        throw failedTo("put behind a new one", path);
    }
    file.reset();
    open();
}

void AuditFile::write(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(file.get(), text.data(), text.size());
        if (written < 0 && errno != EINTR) {
            throw failedTo("written", path);
        }
        text.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
    }
    if (::fdatasync(file.get()) != 0) {
        throw failedTo("written", path);
    }
}

}  // namespace KxNTamberWebApi

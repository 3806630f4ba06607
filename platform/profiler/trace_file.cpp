#include "platform/profiler/trace_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

namespace KxNProfiler {

namespace {

constexpr mode_t FILE_MODE = 0600;

KxNCommon::UniqueFd openLocked(const std::string& path, std::string& error) {
    KxNCommon::UniqueFd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, FILE_MODE));
    if (!file) {
        error = "cannot open " + path + ": " + std::strerror(errno);
    } else if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        error = errno == EWOULDBLOCK ? path + " is being written by another process"
                                     : "cannot lock " + path + ": " + std::strerror(errno);
        file.reset();
    }
    return file;
}

bool holdsSomething(const KxNCommon::UniqueFd& file) {
    struct stat status {};
    return ::fstat(file.get(), &status) == 0 && status.st_size > 0;
}

}  // namespace

std::unique_ptr<TraceFile> TraceFile::create(const std::string& path, const std::string& previousPath,
                                             std::string& error) {
    KxNCommon::UniqueFd file = openLocked(path, error);
    if (file && holdsSomething(file)) {
        if (std::rename(path.c_str(), previousPath.c_str()) != 0) {
            error = "cannot rename " + path + " to " + previousPath + ": " + std::strerror(errno);
            return nullptr;
        }
        file = openLocked(path, error);
    }
    return file ? std::unique_ptr<TraceFile>(new TraceFile(std::move(file), path)) : nullptr;
}

void TraceFile::append(std::string_view event) {
    buffer.append(std::exchange(isEmpty, false) ? "\n" : ",\n").append(event);
}

bool TraceFile::flush(std::string& error) {
    std::string_view rest = buffer;
    while (!rest.empty()) {
        const ssize_t written = ::write(file.get(), rest.data(), rest.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written < 0) {
            error = "cannot write " + path + ": " + std::strerror(errno);
            static_cast<void>(!::ftruncate(file.get(), static_cast<off_t>(writtenBytes)));
            return false;
        }
        rest.remove_prefix(static_cast<std::size_t>(written));
    }
    writtenBytes += buffer.size();
    buffer.clear();
    return true;
}

bool TraceFile::finish(std::string& error) {
    buffer.append("\n]\n");
    return flush(error);
}

}  // namespace KxNProfiler

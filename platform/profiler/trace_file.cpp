#include "platform/profiler/trace_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "platform/common/system_text.h"

namespace KxNProfiler {

namespace {

constexpr mode_t FILE_MODE = 0600;

KxNCommon::UniqueFd openLocked(const std::string& path) {
    KxNCommon::UniqueFd file(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, FILE_MODE));
    if (!file) {
        throw KxNCommon::systemError("cannot open " + path);
    }
    if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        throw KxNCommon::systemError("cannot lock " + path + ", which another process may be writing");
    }
    return file;
}

bool holdsSomething(const KxNCommon::UniqueFd& file) {
    struct stat status {};
    return ::fstat(file.get(), &status) == 0 && status.st_size > 0;
}

}  // namespace

TraceFile::TraceFile(const std::string& filePath, const std::string& previousPath)
    : file(openLocked(filePath)), path(filePath) {
    if (holdsSomething(file)) {
        if (std::rename(path.c_str(), previousPath.c_str()) != 0) {
            throw KxNCommon::systemError("cannot rename " + path + " to " + previousPath);
        }
        file = openLocked(path);
    }
}

void TraceFile::append(std::string_view event) {
    buffer.append(std::exchange(isEmpty, false) ? "\n" : ",\n").append(event);
}

void TraceFile::flush() {
    std::string_view rest = buffer;
    while (!rest.empty()) {
        const ssize_t written = ::write(file.get(), rest.data(), rest.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written < 0) {
            const int number = errno;
            static_cast<void>(!::ftruncate(file.get(), static_cast<off_t>(writtenBytes)));
            throw KxNCommon::systemError("cannot write " + path, number);
        }
        rest.remove_prefix(static_cast<std::size_t>(written));
    }
    writtenBytes += buffer.size();
    buffer.clear();
}

void TraceFile::finish() {
    buffer.append("\n]\n");
    flush();
}

}  // namespace KxNProfiler

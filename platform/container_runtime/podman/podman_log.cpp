#include "platform/container_runtime/podman/podman_log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <utility>

#include "KxLog.h"
#include "platform/common/system_text.h"

namespace KxNContainer {

namespace {

constexpr std::size_t MAX_LINE = 1024;

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

bool isWarning(std::string_view line) {
    // What is written for every log stream and every other request that we end early.
    if (contains(line, "hangup by client") || contains(line, "IdleTracker")) {
        return false;
    }
    return contains(line, "level=warn") || contains(line, "level=error") || contains(line, "level=fatal") ||
           contains(line, "level=panic") || line.starts_with("Error");
}

}  // namespace

void PodmanLog::open() {
    if (::mkfifo(path.c_str(), 0600) != 0 && errno != EEXIST) {
        throw KxNCommon::systemError("Cannot make '" + path + "'");
    }
    // Opened for writing too, so that it never reports the end.
    fifo = KxNCommon::UniqueFd(::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC | O_NOFOLLOW));
    struct stat status {};
    if (!fifo || ::fstat(fifo.get(), &status) != 0) {
        throw KxNCommon::systemError("Cannot open '" + path + "'");
    }
    if (!S_ISFIFO(status.st_mode)) {
        fifo.reset();
        throw std::runtime_error("Cannot open '" + path + "': not a FIFO");
    }
}

KxNCommon::UniqueFd PodmanLog::openForPodman() const {
    return KxNCommon::UniqueFd(::open(path.c_str(), O_RDWR | O_CLOEXEC));
}

void PodmanLog::drain() {
    std::array<char, 4096> bytes;
    // Bounded, so that a Podman that writes without end does not keep its supervisor from anything else.
    for (int round = 0; round < 16; ++round) {
        const ssize_t size = ::read(fifo.get(), bytes.data(), bytes.size());
        if (size <= 0) {
            return;
        }
        take({bytes.data(), static_cast<std::size_t>(size)});
    }
}

void PodmanLog::take(std::string_view bytes) {
    for (const char c : bytes) {
        if (c == '\n') {
            endLine();
        } else if (line.size() < MAX_LINE) {
            line += c;
        }
    }
}

void PodmanLog::endLine() {
    if (!line.empty()) {
        KxCRTE_LOG(isWarning(line) ? 3 : 1, "Korvex Container Service: Podman: %s", line.c_str());
        last = std::exchange(line, {});
    }
}

}  // namespace KxNContainer

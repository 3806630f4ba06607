#include "platform/console/containers/counters.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>

#include "platform/common/text.h"
#include "platform/common/unique_fd.h"

namespace KxNConsole {

namespace {

using Number = std::optional<std::uint64_t>;

constexpr std::size_t LARGEST_FILE = 64UL << 10;

/// The content of one of the kernel's small files; empty when it cannot be read.
std::string readFile(const std::string& path) {
    const KxNCommon::UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::string content;
    std::array<char, 4096> room;
    ssize_t size = 0;
    while (file && content.size() < LARGEST_FILE && (size = ::read(file.get(), room.data(), room.size())) > 0) {
        content.append(room.data(), static_cast<std::size_t>(size));
    }
    return content;
}

/// Takes the next piece off the front of `text`, up to the first of `separators`.
std::string_view takePiece(std::string_view& text, std::string_view separators) {
    const std::string_view piece = text.substr(0, text.find_first_of(separators));
    text.remove_prefix(std::min(piece.size() + 1, text.size()));
    return piece;
}

Number parse(std::string_view text) {
    text = KxNCommon::trim(text, " \t\n");
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? Number(number) : std::nullopt;
}

/// The value of the line "KEY VALUE".
Number findValue(std::string_view content, std::string_view key) {
    while (!content.empty()) {
        std::string_view line = takePiece(content, "\n");
        if (takePiece(line, " ") == key) {
            return parse(line);
        }
    }
    return std::nullopt;
}

Number scaled(Number number, std::uint64_t by) {
    return number ? Number(*number * by) : number;
}

/// `used` without `cached`, which was read a moment later.
Number without(Number used, Number cached) {
    return used && cached ? Number(*used - std::min(*used, *cached)) : used;
}

/// What the kernel writes for no limit is more than any machine has.
Number limitOf(Number limit) {
    constexpr std::uint64_t NO_LIMIT = 1ULL << 60;
    return limit && *limit < NO_LIMIT ? limit : std::nullopt;
}

void readUnified(const std::string& group, Counters& counters) {
    counters.cpuNanoseconds = scaled(findValue(readFile(group + "/cpu.stat"), "usage_usec"), 1000);
    counters.memoryBytes = without(parse(readFile(group + "/memory.current")),
                                   findValue(readFile(group + "/memory.stat"), "inactive_file"));
    counters.memoryLimitBytes = limitOf(parse(readFile(group + "/memory.max")));
    counters.processes = parse(readFile(group + "/pids.current"));
    std::string_view left;
    const std::string devices = readFile(group + "/io.stat");
    for (left = devices; !left.empty();) {  // "8:0 rbytes=1 wbytes=2 …"
        std::string_view line = takePiece(left, "\n");
        while (!line.empty()) {
            std::string_view value = takePiece(line, " ");
            const std::string_view key = takePiece(value, "=");
            if (key == "rbytes") {
                counters.readBytes = counters.readBytes.value_or(0) + parse(value).value_or(0);
            } else if (key == "wbytes") {
                counters.writtenBytes = counters.writtenBytes.value_or(0) + parse(value).value_or(0);
            }
        }
    }
}

void readBlockDevices(const std::string& content, Counters& counters) {
    for (std::string_view left = content; !left.empty();) {  // "8:0 Read 1"
        std::string_view line = takePiece(left, "\n");
        takePiece(line, " ");
        const std::string_view kind = takePiece(line, " ");
        if (kind == "Read") {
            counters.readBytes = counters.readBytes.value_or(0) + parse(line).value_or(0);
        } else if (kind == "Write") {
            counters.writtenBytes = counters.writtenBytes.value_or(0) + parse(line).value_or(0);
        }
    }
}

/// The counters of the process's network, unless that is this process's own.
void readNetwork(const std::string& process, Counters& counters) {
    std::array<char, 64> theirs{};
    std::array<char, 64> ours{};
    if (::readlink((process + "/ns/net").c_str(), theirs.data(), theirs.size() - 1) <= 0 ||
        ::readlink("/proc/self/ns/net", ours.data(), ours.size() - 1) <= 0 || theirs == ours) {
        return;
    }
    const std::string devices = readFile(process + "/net/dev");
    counters.receivedBytes = 0;
    counters.sentBytes = 0;
    for (std::string_view left = devices; !left.empty();) {  // "  eth0: RECEIVED 7 more SENT …"
        std::string_view line = takePiece(left, "\n");
        const std::size_t colon = line.find(':');
        if (colon == line.npos || KxNCommon::trim(line.substr(0, colon)) == "lo") {
            continue;
        }
        line.remove_prefix(colon + 1);
        std::array<Number, 9> fields;
        for (Number& field : fields) {
            line = KxNCommon::trim(line);
            field = parse(takePiece(line, " "));
        }
        counters.receivedBytes = *counters.receivedBytes + fields[0].value_or(0);
        counters.sentBytes = *counters.sentBytes + fields[8].value_or(0);
    }
}

}  // namespace

std::string findGroup(std::string_view membership, std::string_view controller, std::string_view id,
                      const std::string& root) {
    while (!membership.empty()) {  // "NUMBER:CONTROLLER,…:PATH"
        std::string_view path = takePiece(membership, "\n");
        takePiece(path, ":");
        std::string_view controllers = takePiece(path, ":");
        bool isWanted = controllers.empty() && controller.empty();
        while (!controllers.empty()) {
            isWanted |= takePiece(controllers, ",") == controller && !controller.empty();
        }
        const std::size_t name = path.find(id);
        if (isWanted && name != path.npos) {
            // What the container has made below its own group belongs to it.
            const std::string_view group = path.substr(0, path.find('/', name));
            return root + (controller.empty() ? "" : "/" + std::string(controller)) + std::string(group);
        }
    }
    return {};
}

std::optional<Counters> readCounters(const std::string& process, std::string_view id, const std::string& root) {
    const std::string membership = readFile(process + "/cgroup");
    if (membership.empty()) {
        return std::nullopt;
    }
    Counters counters;
    if (::access((root + "/cgroup.controllers").c_str(), F_OK) == 0) {
        if (const std::string group = findGroup(membership, {}, id, root); !group.empty()) {
            readUnified(group, counters);
        }
    } else {
        const auto group = [&](const char* controller) { return findGroup(membership, controller, id, root); };
        counters.cpuNanoseconds = parse(readFile(group("cpuacct") + "/cpuacct.usage"));
        const std::string memory = group("memory");
        const std::string memoryUse = readFile(memory + "/memory.stat");
        counters.memoryBytes =
            without(parse(readFile(memory + "/memory.usage_in_bytes")), findValue(memoryUse, "total_inactive_file"));
        counters.memoryLimitBytes = limitOf(findValue(memoryUse, "hierarchical_memory_limit"));
        counters.processes = parse(readFile(group("pids") + "/pids.current"));
        readBlockDevices(readFile(group("blkio") + "/blkio.throttle.io_service_bytes_recursive"), counters);
    }
    readNetwork(process, counters);
    return counters;
}

}  // namespace KxNConsole

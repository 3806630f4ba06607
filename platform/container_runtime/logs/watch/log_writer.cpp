#include "platform/container_runtime/logs/watch/log_writer.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cstring>
#include <memory>
#include <optional>

namespace KxNContainer {

namespace {

using KxNCommon::UniqueFd;

/// What a file of /proc says, or its beginning.
std::string readSmall(int proc, const std::string& path) {
    std::string text(16384, '\0');
    const UniqueFd file(::openat(proc, path.c_str(), O_RDONLY | O_CLOEXEC));
    const ssize_t size = file ? ::read(file.get(), text.data(), text.size()) : -1;
    text.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
    return text;
}

/// A container's own processes choose their words, but they cannot leave their PID namespace: they have a number in
/// each of two. Asked of proc(5)'s "status", which needs no rights over the process.
bool isInOurNamespace(int proc, const std::string& process) {
    constexpr std::string_view NUMBERS = "\nNSpid:\t";
    const std::string status = readSmall(proc, process + "/status");
    const std::size_t place = status.find(NUMBERS);
    const std::size_t begin = place + NUMBERS.size();
    return place != std::string::npos && status.substr(begin, status.find('\n', begin) - begin) == process;
}

/// The words of the process if it is the container's writer. A conmon of an exec session has the container's id too,
/// but another one behind "-u".
std::optional<std::string> wordsOfWriter(int proc, const std::string& process, const std::string& id) {
    using namespace std::string_literals;
    if (readSmall(proc, process + "/comm") != "conmon\n") {
        return std::nullopt;
    }
    std::string words = readSmall(proc, process + "/cmdline");
    const bool isWriter = words.find("\0-c\0"s + id + "\0-u\0"s + id + "\0"s) != std::string::npos;
    return isWriter && isInOurNamespace(proc, process) ? std::optional(std::move(words)) : std::nullopt;
}

std::string valueBehind(const std::string& words, const std::string& option) {
    using namespace std::string_literals;
    const std::string word = "\0"s + option + "\0"s;
    const std::size_t place = words.find(word);
    return place == std::string::npos ? std::string() : words.substr(place + word.size()).c_str();
}

LogWriter openWriter(int proc, const std::string& process, const std::string& id) {
    pid_t pid = 0;
    std::from_chars(process.data(), process.data() + process.size(), pid);
    if (pid <= 0 || !wordsOfWriter(proc, process, id)) {
        return {};
    }
    LogWriter writer{UniqueFd(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0))), pid, {}};
    const auto words = wordsOfWriter(proc, process, id);  // again: the number is still its own
    if (!writer || !words) {
        return {};
    }
    writer.exitDirectory = valueBehind(*words, "--exit-dir");
    return writer;
}

/// proc(5): the fourth field of "stat", the second one behind the name in parentheses.
std::string parentOf(int proc, pid_t process) {
    const std::string status = readSmall(proc, std::to_string(process) + "/stat");
    const std::size_t name = status.rfind(") ");
    if (name == std::string::npos || name + 4 >= status.size()) {
        return {};
    }
    const std::string parent = status.substr(name + 4);
    return parent.substr(0, parent.find(' '));
}

}  // namespace

LogWriter findLogWriter(std::string_view containerId, pid_t containerProcess) {
    const std::string id(containerId);
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir("/proc"), ::closedir);
    if (!directory || id.empty()) {
        return {};
    }
    const int proc = ::dirfd(directory.get());
    if (containerProcess > 0) {
        if (LogWriter writer = openWriter(proc, parentOf(proc, containerProcess), id)) {
            return writer;
        }
    }
    while (const dirent* const entry = ::readdir(directory.get())) {
        if (entry->d_name[0] < '1' || entry->d_name[0] > '9') {
            continue;
        }
        if (LogWriter writer = openWriter(proc, entry->d_name, id)) {
            return writer;
        }
    }
    return {};
}

}  // namespace KxNContainer

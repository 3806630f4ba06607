#include "platform/container_runtime/logs/watch/inotify.h"

#include <unistd.h>

#include "platform/common/system_text.h"

namespace KxNContainer {

using KxNCommon::systemError;

Inotify Inotify::make() {
    Inotify made;
    made.instance = KxNCommon::UniqueFd(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (!made.instance) {
        throw systemError("Cannot watch files");
    }
    return made;
}

int Inotify::watch(const std::string& path, std::uint32_t events) const {
    const int watch = ::inotify_add_watch(instance.get(), path.c_str(), events | IN_MASK_ADD);
    if (watch < 0) {
        throw systemError("Cannot watch '" + path + "'");
    }
    return watch;
}

void Inotify::remove(int watch) const {
    if (watch >= 0) {
        ::inotify_rm_watch(instance.get(), watch);
    }
}

std::size_t Inotify::fill(char* events, std::size_t size) const {
    const ssize_t got = ::read(instance.get(), events, size);
    return got > 0 ? static_cast<std::size_t>(got) : 0;
}

}  // namespace KxNContainer

// Events of files and directories: inotify(7).
#pragma once

#include <sys/inotify.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/common/unique_fd.h"

namespace KxNContainer {

/// One instance. One thread at a time reads, any thread may watch.
class Inotify {
public:
    /// Without an instance: nothing can be watched.
    Inotify() = default;

    /// Throws std::system_error when the system has no more of them.
    static Inotify make();

    /// Can be read when there are events.
    int descriptor() const { return instance.get(); }

    /// Gives the watch's number. The events are added to those that are watched there for already: somebody else may
    /// watch the same directory. Throws std::system_error.
    int watch(const std::string& path, std::uint32_t events) const;

    /// Nothing for a negative number.
    void remove(int watch) const;

    /// Calls `take(const inotify_event&)` for each event that is there.
    template <class Take>
    void read(Take take) const {
        alignas(inotify_event) char events[2048];  // on the stack of a stream, too
        for (std::size_t size = fill(events, sizeof events); size > 0; size = fill(events, sizeof events)) {
            for (const char* at = events; at < events + size;) {
                const auto& event = *reinterpret_cast<const inotify_event*>(at);
                take(event);
                at += sizeof event + event.len;
            }
        }
    }

    /// Of the file in the directory that is watched; empty for the directory itself.
    static std::string_view nameOf(const inotify_event& event) {
        return event.len == 0 ? std::string_view() : std::string_view(event.name);
    }

private:
    std::size_t fill(char* events, std::size_t size) const;

    KxNCommon::UniqueFd instance;
};

}  // namespace KxNContainer

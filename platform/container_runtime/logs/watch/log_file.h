// A file that a container's log is in, and how it is opened.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/common/unique_fd.h"
#include "platform/container_runtime/logs/watch/inheriting_mutex.h"

namespace KxNContainer {

/// One file of a log, however it is called by now: the log goes on in a new one when its driver rotates it. Any thread.
class LogFile {
public:
    /// Somebody has made the file shorter.
    struct Cut {
        off_t from;
        off_t to;
    };

    struct Look {
        off_t size;
        std::size_t cuts;  ///< so many times was it made shorter
    };

    /// Throws std::system_error.
    explicit LogFile(KxNCommon::UniqueFd opened);

    ino_t getInode() const { return inode; }
    dev_t getDevice() const { return device; }
    int descriptor() const { return file.get(); }

    /// How large it is now. Who reads looks first and reads no further, so that no cut is missed.
    Look look();
    /// The cuts behind the first `known` ones.
    std::vector<Cut> cutsSince(std::size_t known);

    /// Reads at most `room.size()` bytes; 0 at the end. Throws std::system_error.
    std::size_t read(off_t offset, std::span<char> room) const;

private:
    const KxNCommon::UniqueFd file;
    ino_t inode = 0;
    dev_t device = 0;

    InheritingMutex mutex;
    off_t lastSize = 0;
    std::vector<Cut> cuts;
};

/// Opens the file at `path`, which Podman says holds the log of the container `containerId`. It has to be a regular
/// file of this process's user, and no link leads to it, save such as lead to Podman's own storage: a container may
/// make links where its volumes are. Holds nothing, with errno(3) set, when it is not there or is something else.
KxNCommon::UniqueFd openLogFile(const std::string& path, std::string_view containerId);

}  // namespace KxNContainer

// What Podman's service writes to its standard error, on its way to our log.
#pragma once

#include <string>
#include <string_view>

#include "platform/common/unique_fd.h"

namespace KxNContainer {

/// A FIFO with a name. Podman has it as standard output and error, opened for reading too, so that it can go on writing
/// when this process is killed: with a pipe the first line, which it writes for every stream that was cut, would end
/// it. The next process opens the FIFO again and reads on. One thread at a time.
class PodmanLog {
public:
    explicit PodmanLog(std::string fifoPath) : path(std::move(fifoPath)) {}

    /// Opens the FIFO and makes it where it is missing. Its directory must exist. Throws std::runtime_error.
    void open();

    /// The FIFO as Podman is to have it; holds nothing when it cannot be opened.
    KxNCommon::UniqueFd openForPodman() const;

    /// Readable while there is something to write to our log.
    int descriptor() const { return fifo.get(); }

    /// Writes every complete line that is there to our log: at level 3 what Podman calls a warning or worse, except
    /// what it says about each request that we end early, and at level 1 all else. Of a long line only the beginning is
    /// written.
    void drain();

    /// The last line; what is known about why Podman ended.
    const std::string& lastLine() const { return last; }

private:
    void take(std::string_view bytes);
    void endLine();

    const std::string path;
    KxNCommon::UniqueFd fifo;
    std::string line;
    std::string last;
};

}  // namespace KxNContainer

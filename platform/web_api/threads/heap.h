// What the process keeps of the memory that its liveliest moments needed: as little as the C library lets it.
#pragma once

#include <cstddef>

#include "platform/common/unique_fd.h"

namespace KxNTamberWebApi {

/// Threads come and go with streams and with requests that block. With a heap for each few of them (mallopt(3)) the
/// memory that the process keeps would grow with the liveliest moment of its life. What a large answer needed stays
/// until HeapWatch gives it back, because a list that is asked again at once would spend a third of its time on getting
/// the same pages from the system again. Before the first thread.
void boundHeaps();

/// Gives free memory back to the system: by itself the C library gives back only what is free at the end of a heap, and
/// not here. One thread.
class HeapWatch {
public:
    HeapWatch();

    /// To be told with every sweep how many connections there are. Takes microseconds, or a millisecond or two for each
    /// ten MiB that it gives back.
    void note(std::size_t connections);

private:
    bool isBurstOver(std::size_t connections);
    std::size_t ownBytes() const;

    const KxNCommon::UniqueFd memoryFile;  // proc_pid_statm(5)
    std::size_t keptBytes = 0;             // own when memory was last given back, or less
    std::size_t most = 0;                  // connections since a burst was last over
    int sweepsToWatch = 0;
};

}  // namespace KxNTamberWebApi

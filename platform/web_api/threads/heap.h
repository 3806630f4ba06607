// What the process keeps of the memory that its liveliest moments needed: as little as the C library lets it.
#pragma once

#include <cstddef>

namespace KxNTamberWebApi {

/// Threads come and go with streams and with requests that block. With a heap for each few of them (mallopt(3)) the
/// memory that the process keeps would grow with the liveliest moment of its life. Before the first thread.
void boundHeaps();

/// Gives free memory back to the system when a burst of connections is over; by itself the C library gives back only
/// what is free at the end of a heap. One thread.
class BurstWatch {
public:
    /// To be told with every sweep how many connections there are. Takes less than a millisecond.
    void note(std::size_t connections);

private:
    std::size_t most = 0;  // since a burst was last over
    int sweepsToWatch = 0;
};

}  // namespace KxNTamberWebApi

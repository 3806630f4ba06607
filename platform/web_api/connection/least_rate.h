// How slow a client may be.
#pragma once

#include <chrono>
#include <cstdint>

namespace KxNTamberWebApi {

/// Bytes that must have come for each so much time in which the client was waited for. What else takes time, such as a
/// slow disk, is not the client's and is not counted. One thread at a time.
class LeastRate {
public:
    LeastRate(std::uint64_t bytesInWindow, std::chrono::milliseconds windowOfWaiting)
        : least(bytesInWindow), window(windowOfWaiting) {}

    void received(std::uint64_t size) { bytes += size; }
    void waited(std::chrono::milliseconds duration) { waiting += duration; }

    /// How long the client may be waited for until this is looked at again; 0 when it was too slow.
    std::chrono::milliseconds patience() {
        if (waiting >= window) {
            if (bytes < least) {
                return std::chrono::milliseconds(0);
            }
            waiting = std::chrono::milliseconds(0);
            bytes = 0;
        }
        return window - waiting;
    }

private:
    const std::uint64_t least;
    const std::chrono::milliseconds window;
    std::uint64_t bytes = 0;
    std::chrono::milliseconds waiting{0};
};

}  // namespace KxNTamberWebApi

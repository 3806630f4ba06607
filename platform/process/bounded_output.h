// The beginning and the end of a text of any length.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace KxNProcess {

class BoundedOutput {
public:
    void append(std::string_view bytes) {
        const std::size_t room = HALF_BYTES - head.size();
        head += bytes.substr(0, room);
        if (bytes.size() > room) {
            tail += bytes.substr(room);
        }
        if (tail.size() > 2 * HALF_BYTES) {
            const std::size_t excess = tail.size() - HALF_BYTES;
            leftOut += excess;
            tail.erase(0, excess);
        }
    }

    std::string text() const {
        const std::size_t excess = tail.size() > HALF_BYTES ? tail.size() - HALF_BYTES : 0;
        if (leftOut + excess == 0) {
            return head + tail;
        }
        return head + "\n[" + std::to_string(leftOut + excess) + " bytes left out]\n" + tail.substr(excess);
    }

private:
    static constexpr std::size_t HALF_BYTES = 32 << 10;

    std::string head;
    std::string tail;
    std::uint64_t leftOut = 0;
};

}  // namespace KxNProcess

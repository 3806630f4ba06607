// A file descriptor that is closed with its owner.
#pragma once

#include <unistd.h>

#include <utility>

namespace KxNCommon {

class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : descriptor(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : descriptor(std::exchange(other.descriptor, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) {
            reset();
            descriptor = std::exchange(other.descriptor, -1);
        }
        return *this;
    }
    ~UniqueFd() { reset(); }

    int get() const { return descriptor; }
    explicit operator bool() const { return descriptor >= 0; }

    void reset() {
        if (descriptor >= 0) {
            ::close(descriptor);
            descriptor = -1;
        }
    }

private:
    int descriptor = -1;
};

}  // namespace KxNCommon

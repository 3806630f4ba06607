// A request that came to no answer of Podman's.
#pragma once

#include <stdexcept>
#include <string>

namespace KxNContainer {

/// Its text and status become the reply.
class PodmanFailure : public std::runtime_error {
public:
    static constexpr int UNREACHABLE = 503;
    static constexpr int UNSENDABLE = 400;

    explicit PodmanFailure(const std::string& reason, int replyStatus = UNREACHABLE, bool hasDied = false)
        : std::runtime_error(reason), status(replyStatus), died(hasDied) {}

    const int status;
    const bool died;  ///< the connection ended before the first byte of an answer
};

}  // namespace KxNContainer

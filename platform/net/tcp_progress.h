// What the kernel knows of a TCP connection's progress.
#pragma once

#include <cstdint>

namespace KxNNet {

struct TcpProgress {
    std::uint64_t bytesAcknowledged = 0;  ///< sent, and confirmed by the peer
    std::uint64_t bytesReceived = 0;
    std::uint64_t bytesWaiting = 0;  ///< written, and not confirmed yet
};

/// Zeros for a descriptor that is no TCP connection any more.
TcpProgress readTcpProgress(int descriptor);

}  // namespace KxNNet

// Whether the client of a WebSocket lives and takes what it is sent, from what TCP tells of it at each sweep.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/net/tcp_progress.h"
#include "platform/web_api/connection/limits.h"

namespace KxNTamberWebApi {

class Liveness {
public:
    enum class Verdict {
        lives,
        mustBePinged,  ///< RFC 6455 5.5.2; the pong, or anything else that comes, counts as an answer
        isLost
    };

    /// What the stream knows at a sweep.
    struct Facts {
        bool serverEnds = false;      ///< nobody waits for the client any more
        bool closeIsLate = false;     ///< of the handshake that begins or ends the stream
        bool dataWaits = false;       ///< to be taken by the client
        bool closeIsDue = false;      ///< or sent
        bool clientHasEnded = false;  ///< by a close, or by a breach of the protocol
    };

    explicit Liveness(const Limits& serverLimits) : limits(serverLimits) {}

    /// `now` in milliseconds (KxNNet::coarseMilliseconds). One thread at a time.
    Verdict judge(std::int64_t now, const KxNNet::TcpProgress& progress, const Facts& facts);

    /// No pong will come. Any thread.
    void pingWasNotSent() { pingedAt = 0; }

private:
    const Limits& limits;
    std::atomic<std::int64_t> pingedAt{0};  // 0 while no pong is awaited
    KxNNet::TcpProgress last;
    std::int64_t lastMoved = 0;
    std::int64_t lastAcknowledged = 0;
    std::int64_t waitingSince = 0;  // 0 while nothing waits to be sent
};

}  // namespace KxNTamberWebApi

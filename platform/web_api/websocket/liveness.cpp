#include "platform/web_api/websocket/liveness.h"

#include <utility>

namespace KxNTamberWebApi {

Liveness::Verdict Liveness::judge(std::int64_t now, const KxNNet::TcpProgress& progress, const Facts& facts) {
    const KxNNet::TcpProgress before = std::exchange(last, progress);
    const bool hasReceived = progress.bytesReceived != before.bytesReceived;
    const bool isAcknowledging = progress.bytesAcknowledged != before.bytesAcknowledged;
    if (isAcknowledging || lastAcknowledged == 0) {
        lastAcknowledged = now;
    }
    const auto isStill = [&](std::chrono::milliseconds patience) {
        return now - lastAcknowledged >= patience.count() ? Verdict::isLost : Verdict::lives;
    };
    if (facts.serverEnds && (facts.dataWaits || facts.closeIsDue)) {
        return isStill(limits.farewell);
    }
    if (facts.closeIsLate) {
        // Megabytes of the stream's end may still wait in the kernel for a client that is slow, but wants them.
        const bool isWanted = progress.bytesWaiting > 0 && !facts.clientHasEnded;
        return isStill(isWanted ? limits.streamProgress : limits.closeHandshake);
    }
    if (hasReceived || isAcknowledging || lastMoved == 0) {
        lastMoved = now;
    }
    if (hasReceived) {
        pingedAt = 0;
    }
    if (facts.dataWaits) {
        // A client that takes nothing is given up whatever it sends.
        waitingSince = waitingSince == 0 || isAcknowledging ? now : waitingSince;
        if (std::int64_t awaitedSince = pingedAt; awaitedSince != 0) {
            pingedAt.compare_exchange_strong(awaitedSince, now);  // a pong may have to wait behind the data
        }
        return now - waitingSince >= limits.streamProgress.count() ? Verdict::isLost : Verdict::lives;
    }
    waitingSince = 0;
    if (const std::int64_t awaitedSince = pingedAt; awaitedSince != 0) {
        return now - awaitedSince >= limits.pongWithin.count() ? Verdict::isLost : Verdict::lives;
    }
    if (now - lastMoved < limits.pingAfter.count()) {
        return Verdict::lives;
    }
    pingedAt = now;
    return Verdict::mustBePinged;
}

}  // namespace KxNTamberWebApi

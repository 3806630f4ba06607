// One who follows a log.
#pragma once

#include <chrono>
#include <memory>

#include "platform/container_runtime/logs/watch/followed_log.h"
#include "platform/net/cancellation.h"

namespace KxNContainer {

/// Hears what happens to a log while it lives. One thread.
class LogFollower {
public:
    /// Without a `followed` log nothing is followed: no run is under way. With `endsWithRun` only the run of the
    /// container that is under way counts, if one is, and no later one. Throws std::system_error.
    LogFollower(std::shared_ptr<FollowedLog> followed, bool endsWithRun);
    ~LogFollower();
    LogFollower(const LogFollower&) = delete;
    LogFollower& operator=(const LogFollower&) = delete;

    const FollowedLog* log() const { return followedLog.get(); }

    /// Whether no more comes: at all, or until the container is started again.
    bool isRunOver() const;

    /// Waits until something has happened to the log, `otherDescriptor` (none: -1) is readable, `cancellation`, or for
    /// so long. False when it was one of the last two. Throws std::system_error.
    bool wait(const KxNNet::Cancellation& cancellation, std::chrono::milliseconds longest, int otherDescriptor);

private:
    const std::shared_ptr<FollowedLog> followedLog;
    const std::uint64_t run;  ///< the last one that counts, 0 for all
    LogBell bell;
};

}  // namespace KxNContainer

#include "platform/container_runtime/logs/watch/log_follower.h"

#include <poll.h>

#include <array>
#include <cerrno>
#include <utility>

#include "platform/common/system_text.h"

namespace KxNContainer {

LogFollower::LogFollower(std::shared_ptr<FollowedLog> followed, bool endsWithRun)
    : followedLog(std::move(followed)), run(followedLog && endsWithRun ? followedLog->run().number : 0) {
    if (followedLog) {
        followedLog->add(bell);
    }
}

LogFollower::~LogFollower() {
    if (followedLog) {
        followedLog->remove(bell);
    }
}

bool LogFollower::isRunOver() const {
    if (!followedLog) {
        return true;
    }
    const FollowedLog::Run known = followedLog->run();
    return known.hasEnded || (run != 0 && known.number != run);
}

bool LogFollower::wait(const KxNNet::Cancellation& cancellation, std::chrono::milliseconds longest,
                       int otherDescriptor) {
    std::array<pollfd, 3> polls{{{bell.descriptor(), POLLIN, 0},
                                 {cancellation.descriptor(), POLLIN, 0},
                                 {otherDescriptor, POLLIN, 0}}};  // poll(2) passes over -1
    const int count = ::poll(polls.data(), polls.size(), static_cast<int>(longest.count()));
    if (count < 0 && errno != EINTR) {
        throw KxNCommon::systemError("A container's log");
    }
    if (polls[0].revents != 0) {
        bell.silence();
    }
    return count > 0 && polls[1].revents == 0;
}

}  // namespace KxNContainer

// The thread that sees what happens to the logs that are followed.
#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/common/unique_fd.h"
#include "platform/container_runtime/logs/watch/followed_log.h"
#include "platform/container_runtime/logs/watch/inotify.h"
#include "platform/container_runtime/logs/watch/log_writer.h"

namespace KxNContainer {

/// One thread for all logs, which lives while there are any. It opens the next file of a log that is rotated, at once,
/// since the one after that may take its place in a moment, and wakes who follows the log. It has to be quick and does
/// little, so it goes before other threads of the process. Any thread.
class LogWatch {
public:
    LogWatch();
    ~LogWatch();
    LogWatch(const LogWatch&) = delete;
    LogWatch& operator=(const LogWatch&) = delete;

    /// The log of the container with this id, watched as long as somebody has it and for a while after that, for those
    /// who come back. `path` is where the file is; empty for a log that is not in a file. Throws std::system_error when
    /// the file cannot be opened or watched.
    std::shared_ptr<FollowedLog> follow(const std::string& containerId, const std::string& path);

    /// Looks for the process that writes the log and waits for its end. False when there is none. `containerProcess` as
    /// for `findLogWriter`.
    bool watchWriter(const std::shared_ptr<FollowedLog>& log, pid_t containerProcess);

    /// Somebody who had a log has given it back.
    void noteLeaving();

private:
    struct Watched;
    using Clock = std::chrono::steady_clock;

    void startThread();
    void run();
    int waitTime();
    void readPlaces();
    void readChanges();
    void takePlaceEvent(const inotify_event& event);
    void openTouched();
    void takeExitFile(Watched& watched);
    void takeWriterEnd(int process);
    void openFirst(Watched& watched);
    void openAgain(Watched& watched);
    void forgetUnused();
    void forget(Watched& watched);
    void removeWatch(int watch);

    InheritingMutex mutex;
    std::vector<std::unique_ptr<Watched>> logs;
    bool isRunning = false;

    KxNCommon::UniqueFd poller;  ///< epoll(7)
    Inotify places;              ///< directories of logs and of exit files; at once
    Inotify changes;             ///< the files; what a busy log does is gathered for a moment
    LogBell commands;
    bool isGathering = false;
    Clock::time_point lastChange{};
    bool isEnding = false;
    std::thread thread;
};

}  // namespace KxNContainer

// What those who follow one container's log have in common.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/common/unique_fd.h"
#include "platform/container_runtime/logs/watch/log_file.h"

namespace KxNContainer {

/// Becomes readable when something has happened to a log. eventfd(2).
class LogBell {
public:
    /// Throws std::system_error when the process is out of descriptors.
    LogBell();

    int descriptor() const { return event.get(); }
    void ring();
    void silence();

private:
    KxNCommon::UniqueFd event;
};

/// The files of a log that is being followed, and the runs of its container. LogWatch keeps it up to date; who follows
/// the log reads it. Any thread.
///
/// Rotation: the driver begins a new file and nobody has the old one but who holds it open. Some of the last files are
/// held here, so that a slow follower, or one that comes back, loses nothing. Files are numbered in the order of the
/// log; a number that is missing is a file that nobody has got hold of.
class FollowedLog {
public:
    struct File {
        std::uint64_t number;
        std::shared_ptr<LogFile> file;
    };

    /// A run of the container, from its start to its end.
    struct Run {
        std::uint64_t number = 0;  ///< 0 when none is known
        bool hasEnded = true;      ///< and the log holds all that was written in it
        bool isWatched = false;    ///< by LogWatch; otherwise whoever began it finds out when it has ended
        std::optional<int> exitCode;
    };

    /// `path` is empty when the log is not in a file.
    FollowedLog(std::string id, std::string path) : containerId(std::move(id)), logPath(std::move(path)) {}

    const std::string containerId;
    const std::string logPath;

    std::vector<File> files() const;  ///< the oldest first
    /// The first file that is held behind that number.
    std::optional<File> fileBehind(std::uint64_t number) const;
    Run run() const;
    /// Counts what has happened to the log's file and directory.
    std::uint64_t activity() const;

    void add(LogBell& bell);
    void remove(LogBell& bell);

    void beginRun(bool isWatched);
    void endRun(std::optional<int> exitCode);
    void ringAll();

    // For LogWatch.
    /// Takes what became of the log's path: it has been given a file `replacements` times, and is now `file`, which may
    /// be the last one that is known.
    /// Gives the files that are not held any more.
    std::vector<File> takeFile(const std::shared_ptr<LogFile>& file, std::uint64_t replacements);
    void countActivity();

private:
    std::vector<File> dropOld();

    mutable InheritingMutex mutex;
    std::deque<File> held;
    bool hasRotated = false;
    Run current;
    std::uint64_t activities = 0;
    std::set<LogBell*> bells;
};

}  // namespace KxNContainer

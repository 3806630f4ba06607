#include "platform/container_runtime/logs/watch/log_watch.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <exception>
#include <system_error>
#include <utility>

#include "KxLog.h"
#include "platform/common/blocked_signals.h"
#include "platform/common/system_text.h"

namespace KxNContainer {

using KxNCommon::systemError;
using KxNCommon::UniqueFd;

struct LogWatch::Watched {
    std::shared_ptr<FollowedLog> log;
    std::string directory;
    std::string fileName;
    int directoryWatch = -1;
    int fileWatch = -1;
    int exitWatch = -1;
    LogWriter writer;
    std::uint64_t replacements = 0;  ///< of the file, that the events that are being read tell of
    bool isReplaced = false;         ///< they tell of another file
    bool isTouched = false;          ///< they tell of the file's place
    bool isOpened = false;           ///< they tell that somebody opened it
    std::optional<Clock::time_point> unusedSince;
};

namespace {

using std::chrono::milliseconds;

/// A client that comes back within this time finds what was rotated away meanwhile.
constexpr std::chrono::seconds KEEPING_TIME{30};

/// Room for so many is made at once.
constexpr rlim_t DESCRIPTORS = 4096;

/// Events of a log that is written without a pause are gathered for this time.
constexpr milliseconds GATHERING_TIME{1};
constexpr milliseconds BUSY_TIME{5};

/// A driver may rotate again within a few milliseconds, and whoever is not scheduled by then has lost a file. So the
/// thread goes before all that has no real-time priority, and behind all that has. Where that is not allowed it is
/// preferred as far as may be: sched(7).
void goFirst() {
    const sched_param lowest{::sched_get_priority_min(SCHED_RR)};
    if (::sched_setscheduler(0, SCHED_RR | SCHED_RESET_ON_FORK, &lowest) != 0) {
        ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), -20);
    }
}

/// Makes room for descriptors: where a process has threads, the kernel lets the one that opens the first beyond its
/// table wait for all processors, some 10 ms, and a file is gone.
void growDescriptorTable(int descriptor) {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    const rlim_t highest = std::min<rlim_t>(limit.rlim_cur, DESCRIPTORS) - 1;
    const UniqueFd high(::fcntl(descriptor, F_DUPFD_CLOEXEC, static_cast<int>(highest)));
}

/// Destroys `owner` on a thread of its own: with the last descriptor of a deleted file the file system frees it, and
/// that may take longer than the next rotation.
template <class Owner>
void letGo(Owner owner) {
    try {
        std::thread([owned = std::move(owner)] {}).detach();
    } catch (const std::system_error&) {
        // No thread to be had: here, then.
    }
}

constexpr std::uint32_t DIRECTORY_EVENTS = IN_CREATE | IN_MOVED_TO | IN_DELETE | IN_DELETE_SELF | IN_OPEN;
constexpr std::uint32_t EXIT_EVENTS = IN_CREATE | IN_MOVED_TO;

std::string procPath(int descriptor) {
    return "/proc/self/fd/" + std::to_string(descriptor);
}

bool isReadable(int descriptor) {
    pollfd poll{descriptor, POLLIN, 0};
    return ::poll(&poll, 1, 0) == 1;
}

}  // namespace

LogWatch::LogWatch() = default;

LogWatch::~LogWatch() {
    {
        const std::lock_guard lock(mutex);
        isEnding = true;
    }
    commands.ring();
    if (thread.joinable()) {
        thread.join();
    }
}

/// With the mutex held.
void LogWatch::startThread() {
    if (isRunning) {
        return;
    }
    if (thread.joinable()) {
        thread.join();  // it has left already
    }
    places = Inotify::make();
    changes = Inotify::make();
    poller = UniqueFd(::epoll_create1(EPOLL_CLOEXEC));
    for (const int descriptor : {places.descriptor(), changes.descriptor(), commands.descriptor()}) {
        epoll_event event{EPOLLIN, {.fd = descriptor}};
        if (::epoll_ctl(poller.get(), EPOLL_CTL_ADD, descriptor, &event) != 0) {
            throw systemError("Cannot watch a container's log");
        }
    }
    growDescriptorTable(poller.get());
    isGathering = false;
    const KxNCommon::BlockedSignals blocked;
    thread = std::thread(&LogWatch::run, this);
    pthread_setname_np(thread.native_handle(), "kx-log-watch");
    isRunning = true;
}

std::shared_ptr<FollowedLog> LogWatch::follow(const std::string& containerId, const std::string& path) {
    const std::lock_guard lock(mutex);
    for (const auto& watched : logs) {
        if (watched->log->containerId == containerId && watched->log->logPath == path) {
            watched->unusedSince.reset();
            return watched->log;
        }
    }
    startThread();
    auto watched = std::make_unique<Watched>();
    watched->log = std::make_shared<FollowedLog>(containerId, path);
    logs.push_back(std::move(watched));
    Watched& added = *logs.back();
    try {
        if (!path.empty()) {
            const std::size_t slash = path.rfind('/');
            added.directory = path.substr(0, std::max<std::size_t>(slash, 1));
            added.fileName = path.substr(slash + 1);
            added.directoryWatch = places.watch(added.directory, DIRECTORY_EVENTS);
            openFirst(added);
            openTouched();
        }
    } catch (...) {
        forget(added);
        throw;
    }
    return added.log;
}

/// Until no event is left that may be older than what was opened.
void LogWatch::openFirst(Watched& watched) {
    for (int round = 0; round < 100; ++round) {
        watched.replacements = 0;
        openAgain(watched);
        if (watched.log->files().empty()) {
            throw systemError("Cannot open '" + watched.log->logPath + "'");
        }
        readPlaces();
        if (watched.replacements == 0) {
            return;
        }
    }
}

bool LogWatch::watchWriter(const std::shared_ptr<FollowedLog>& log, pid_t containerProcess) {
    if (log->run().isWatched && !log->run().hasEnded) {
        return true;
    }
    LogWriter writer = findLogWriter(log->containerId, containerProcess);
    if (!writer) {
        return false;
    }
    const std::lock_guard lock(mutex);
    const auto found = std::find_if(logs.begin(), logs.end(), [&](const auto& watched) { return watched->log == log; });
    if (found == logs.end() || (log->run().isWatched && !log->run().hasEnded)) {
        return found != logs.end();
    }
    Watched& watched = **found;
    if (watched.writer && watched.writer.pid == writer.pid && !isReadable(watched.writer.process.get())) {
        return true;  // the one of the run that has ended: it still tidies up
    }
    startThread();
    epoll_event event{EPOLLIN, {.fd = writer.process.get()}};
    if (::epoll_ctl(poller.get(), EPOLL_CTL_ADD, writer.process.get(), &event) != 0) {
        throw systemError("Cannot watch a container's end");
    }
    watched.writer = std::move(writer);
    log->beginRun(true);
    if (!watched.writer.exitDirectory.empty()) {
        watched.exitWatch = places.watch(watched.writer.exitDirectory, EXIT_EVENTS);
        takeExitFile(watched);
    }
    return true;
}

void LogWatch::noteLeaving() {
    commands.ring();
}

void LogWatch::run() {
    goFirst();
    while (true) {
        std::array<epoll_event, 16> events;
        const int count = ::epoll_wait(poller.get(), events.data(), events.size(), waitTime());
        const std::lock_guard lock(mutex);
        for (int index = 0; index < count; ++index) {
            const int descriptor = events[static_cast<std::size_t>(index)].data.fd;
            if (descriptor == places.descriptor()) {
                readPlaces();
            } else if (descriptor == commands.descriptor()) {
                commands.silence();
            } else if (descriptor != changes.descriptor()) {
                takeWriterEnd(descriptor);
            }
        }
        openTouched();
        readChanges();
        forgetUnused();
        if (logs.empty() || isEnding) {
            isRunning = false;
            return;
        }
    }
}

/// In milliseconds, as epoll_wait(2) has it.
int LogWatch::waitTime() {
    const std::lock_guard lock(mutex);
    if (isGathering) {
        return static_cast<int>(GATHERING_TIME.count());
    }
    const bool isUnused =
        std::any_of(logs.begin(), logs.end(), [](const auto& watched) { return watched->log.use_count() == 1; });
    return isUnused ? 1000 : -1;
}

void LogWatch::readPlaces() {
    places.read([&](const inotify_event& event) { takePlaceEvent(event); });
}

void LogWatch::takePlaceEvent(const inotify_event& event) {
    const bool isOverflow = (event.mask & IN_Q_OVERFLOW) != 0;
    for (const auto& watched : logs) {
        if (!isOverflow && event.wd == watched->exitWatch && Inotify::nameOf(event) == watched->log->containerId) {
            takeExitFile(*watched);
        }
        const bool isOwn = event.wd == watched->directoryWatch &&
                           ((event.mask & IN_DELETE_SELF) != 0 || Inotify::nameOf(event) == watched->fileName);
        if (isOwn && (event.mask & IN_OPEN) != 0) {
            watched->isOpened = true;
        } else if (isOwn || isOverflow) {
            watched->replacements += (event.mask & (IN_CREATE | IN_MOVED_TO)) != 0 ? 1 : 0;
            watched->isReplaced |= isOverflow || watched->replacements > 0;
            watched->isTouched = true;
        }
    }
}

void LogWatch::openTouched() {
    for (const auto& watched : logs) {
        const bool isOpened = std::exchange(watched->isOpened, false);
        const bool isTouched = std::exchange(watched->isTouched, false);
        if (std::exchange(watched->isReplaced, false)) {
            try {
                openAgain(*watched);
            } catch (const std::exception& error) {
                KxCRTE_LOG(3, "Korvex Container Service: The log of container '%s' cannot be followed: %s",
                           watched->log->containerId.c_str(), error.what());
            }
            watched->log->ringAll();
        } else if (isTouched || (isOpened && watched->log->run().hasEnded)) {
            watched->log->countActivity();  // deleted, or a new run
            watched->log->ringAll();
        }
    }
}

/// Opens what is at the log's path now, if it is another file.
void LogWatch::openAgain(Watched& watched) {
    FollowedLog& log = *watched.log;
    UniqueFd opened = openLogFile(log.logPath, log.containerId);  // before anything that might wait
    const std::uint64_t replacements = std::exchange(watched.replacements, 0);
    const auto known = log.files();
    auto file = opened ? std::make_shared<LogFile>(std::move(opened)) : nullptr;
    if (file && !known.empty() && known.back().file->getInode() == file->getInode() &&
        known.back().file->getDevice() == file->getDevice()) {
        file = known.back().file;
    }
    if (file && (known.empty() || known.back().file != file)) {
        changes.remove(watched.fileWatch);
        watched.fileWatch = changes.watch(procPath(file->descriptor()), IN_MODIFY);
    }
    if (auto dropped = log.takeFile(file, replacements); !dropped.empty()) {
        letGo(std::move(dropped));
    }
}

void LogWatch::takeExitFile(Watched& watched) {
    const std::string path = watched.writer.exitDirectory + "/" + watched.log->containerId;
    const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (!file) {
        return;
    }
    std::array<char, 16> text{};
    const ssize_t size = ::read(file.get(), text.data(), text.size());
    int code = 0;
    const bool isCode = size > 0 && std::from_chars(text.data(), text.data() + size, code).ec == std::errc();
    watched.log->endRun(isCode ? std::optional(code) : std::nullopt);
    watched.log->ringAll();
}

void LogWatch::takeWriterEnd(int process) {
    ::epoll_ctl(poller.get(), EPOLL_CTL_DEL, process, nullptr);
    for (const auto& watched : logs) {
        if (watched->writer.process.get() == process) {
            watched->log->endRun(std::nullopt);
            watched->log->ringAll();
        }
    }
}

/// A busy log makes thousands of events a second, which wake all that follow it. So those that come shortly behind
/// others wait a little: nobody sees that, and what has come meanwhile is one event.
void LogWatch::readChanges() {
    const Clock::time_point now = Clock::now();
    if (isGathering && now - lastChange < GATHERING_TIME) {
        return;
    }
    std::vector<Watched*> changed;
    changes.read([&](const inotify_event& event) {
        for (const auto& watched : logs) {
            if (event.wd == watched->fileWatch &&
                std::find(changed.begin(), changed.end(), watched.get()) == changed.end()) {
                changed.push_back(watched.get());
            }
        }
    });
    for (Watched* const watched : changed) {
        watched->log->files().back().file->look();
        watched->log->ringAll();
    }
    const bool isBusy = !changed.empty() && now - lastChange < BUSY_TIME;
    if (isBusy != isGathering) {
        epoll_event event{isBusy ? 0U : std::uint32_t{EPOLLIN}, {.fd = changes.descriptor()}};
        ::epoll_ctl(poller.get(), EPOLL_CTL_MOD, changes.descriptor(), &event);
        isGathering = isBusy;
    }
    if (!changed.empty()) {
        lastChange = now;
    }
}

void LogWatch::forgetUnused() {
    const Clock::time_point now = Clock::now();
    for (std::size_t index = logs.size(); index-- > 0;) {
        Watched& watched = *logs[index];
        if (watched.log.use_count() > 1) {
            watched.unusedSince.reset();
        } else if (!watched.unusedSince) {
            watched.unusedSince = now;
        } else if (now - *watched.unusedSince > KEEPING_TIME) {
            forget(watched);
        }
    }
}

void LogWatch::forget(Watched& watched) {
    changes.remove(watched.fileWatch);
    const std::array<int, 2> watches{watched.directoryWatch, watched.exitWatch};
    const auto place =
        std::find_if(logs.begin(), logs.end(), [&](const auto& other) { return other.get() == &watched; });
    letGo(std::move(*place));
    logs.erase(place);
    for (const int watch : watches) {
        removeWatch(watch);
    }
}

/// Unless another log needs it.
void LogWatch::removeWatch(int watch) {
    const bool isNeeded = std::any_of(logs.begin(), logs.end(), [&](const auto& other) {
        return other->directoryWatch == watch || other->exitWatch == watch;
    });
    if (!isNeeded) {
        places.remove(watch);
    }
}

}  // namespace KxNContainer

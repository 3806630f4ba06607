#include "platform/log/log_sink.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <system_error>
#include <thread>

#include "platform/common/blocked_signals.h"

namespace {

constexpr std::chrono::seconds EXIT_PATIENCE{2};

// A descriptor 0, 1 or 2 that the parent closed would be given to the next file or socket that is opened, and the log
// would be written into that.
void occupyStandardDescriptors() {
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
        if (::fcntl(descriptor, F_GETFD) < 0 && errno == EBADF) {
            static_cast<void>(::open("/dev/null", O_RDWR));  // takes the lowest free number, which is this one
        }
    }
}

// A reader of the log, or of anything else, that goes away is an error of that write and not the end of the process.
// A handler is used because children would inherit SIG_IGN.
void outliveBrokenPipes() {
    struct sigaction current {};
    if (::sigaction(SIGPIPE, nullptr, &current) == 0 && current.sa_handler == SIG_DFL) {
        current.sa_handler = [](int) {};
        current.sa_flags = SA_RESTART;
        ::sigaction(SIGPIPE, &current, nullptr);
    }
}

// True when standard error is the stream that systemd connected to the journal (systemd.exec(5)).
bool isStandardErrorTheJournal() {
    const char* const stream = std::getenv("JOURNAL_STREAM");
    struct stat status;
    if (stream == nullptr || ::fstat(STDERR_FILENO, &status) != 0) {
        return false;
    }
    const std::string own = std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
    return own == stream;
}

ssize_t sendWithoutWaiting(std::string_view bytes) {
    return ::send(STDERR_FILENO, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

// The descriptor is shared with other processes, so it cannot be made non-blocking; this write alone does not block.
// Where the kernel cannot promise that (older ones for pipes, most for terminals), poll tells that there is room.
ssize_t writeFileWithoutWaiting(std::string_view bytes) {
    const iovec piece{const_cast<char*>(bytes.data()), bytes.size()};
    const ssize_t written = ::pwritev2(STDERR_FILENO, &piece, 1, -1, RWF_NOWAIT);
    if (written >= 0 || errno == EPIPE || errno == EBADF) {
        return written;
    }
    pollfd room{STDERR_FILENO, POLLOUT, 0};
    if (::poll(&room, 1, 0) <= 0) {
        errno = EAGAIN;
        return -1;
    }
    return ::write(STDERR_FILENO, bytes.data(), std::min<std::size_t>(bytes.size(), PIPE_BUF));
}

struct WriteResult {
    std::size_t written;
    bool isBroken;  // nobody can ever read what is written
};

WriteResult writeWithoutWaiting(std::string_view bytes) {
    std::size_t written = 0;
    while (written < bytes.size()) {
        const std::string_view rest = bytes.substr(written);
        ssize_t result = sendWithoutWaiting(rest);
        if (result < 0 && errno == ENOTSOCK) {
            result = writeFileWithoutWaiting(rest);
        }
        if (result < 0 && errno == EINTR) {
            continue;
        }
        if (result < 0) {
            return {written, errno != EAGAIN && errno != EWOULDBLOCK};
        }
        written += static_cast<std::size_t>(result);
    }
    return {written, false};
}

// Waits as long as it takes. The number of bytes written, or 0 when nobody can ever read them.
std::size_t writeSome(std::string_view bytes) {
    for (;;) {
        const ssize_t written = ::write(STDERR_FILENO, bytes.data(), bytes.size());
        if (written > 0) {
            return static_cast<std::size_t>(written);
        }
        if (written < 0 && errno != EINTR && errno != EAGAIN) {
            return 0;
        }
        pollfd room{STDERR_FILENO, POLLOUT, 0};
        ::poll(&room, 1, 1000);
    }
}

}  // namespace

LogSink& LogSink::getInstance() {
    static LogSink& sink = *new LogSink;
    return sink;
}

LogSink::LogSink() : prefix(isStandardErrorTheJournal() ? KxNLogLine::Prefix::Journal : KxNLogLine::Prefix::Timestamp) {
    occupyStandardDescriptors();
    outliveBrokenPipes();
    std::atexit([] { getInstance().flush(EXIT_PATIENCE); });
}

void LogSink::write(int level, std::string_view line) {
    std::unique_lock lock(mutex);
    if (queue.empty()) {
        const WriteResult result = writeWithoutWaiting(line);
        if (result.isBroken || result.written == line.size()) {
            return;
        }
        line.remove_prefix(result.written);  // what has begun is ended, whatever its level
    } else if (!isTaken(level, line.size(), lock)) {
        ++lostLines;
        return;
    }
    enqueue(line);
    startWriter();
}

bool LogSink::isTaken(int level, std::size_t size, std::unique_lock<std::mutex>& lock) {
    if (level < KEPT_LEVEL) {
        return queuedBytes + size <= LOW_LEVEL_QUEUE_BYTES;
    }
    progress.wait_for(lock, queuedBytes > PATIENCE_QUEUE_BYTES ? PATIENCE : std::chrono::milliseconds(0),
                      [this] { return queuedBytes <= PATIENCE_QUEUE_BYTES; });
    return true;
}

void LogSink::countLostLine() {
    const std::lock_guard lock(mutex);
    ++lostLines;
}

void LogSink::enqueue(std::string_view line) {
    queue.push_back({std::string(line), 0});
    queuedBytes += line.size();
}

void LogSink::startWriter() {
    if (isWriterRunning) {
        return;
    }
    try {
        const KxNCommon::BlockedSignals blocked;
        std::thread([this] { writeQueue(); }).detach();
        isWriterRunning = true;
    } catch (const std::system_error&) {
        // Out of threads: the queue stays, and the next line or the flush tries again.
    }
}

void LogSink::writeQueue() {
    std::unique_lock lock(mutex);
    while (!queue.empty()) {
        QueuedLine& line = queue.front();  // stays in place while others append
        lock.unlock();
        const std::size_t written = writeSome(std::string_view(line.text).substr(line.written));
        lock.lock();
        line.written += written;
        if (written == 0 || line.written == line.text.size()) {
            queuedBytes -= line.text.size();
            queue.pop_front();
        }
        if (queue.empty() && lostLines > 0) {
            queueLossReport();
        }
        progress.notify_all();
    }
    isWriterRunning = false;
}

void LogSink::queueLossReport() {
    std::array<char, 160> text;
    std::snprintf(text.data(), text.size(),
                  "Korvex Container Service: %llu log lines were dropped because standard error was not read in time",
                  static_cast<unsigned long long>(lostLines));
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    std::pmr::string line;
    KxNLogLine::appendPrefix(line, prefix, KEPT_LEVEL, now);
    line.append(text.data());
    line.push_back('\n');
    enqueue(line);
    lostLines = 0;
}

bool LogSink::flush(std::chrono::milliseconds timeout) {
    std::unique_lock lock(mutex);
    if (!queue.empty()) {
        startWriter();
    }
    return progress.wait_for(lock, timeout, [this] { return queue.empty(); });
}

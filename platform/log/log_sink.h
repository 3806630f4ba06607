// Where the lines of the log go: standard error, without waiting for a slow reader.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/log/log_line.h"

/// Writes lines to standard error in the order in which they were handed over.
///
/// While the reader keeps up a line is one write(2) of the caller's thread, so that a crash loses nothing. A line that
/// standard error has no room for is queued, and a thread that exists only as long as there is a queue writes it. A
/// queue of more than LOW_LEVEL_QUEUE_BYTES drops lines below KEPT_LEVEL and later reports how many. Lines from
/// KEPT_LEVEL on are never dropped: beyond PATIENCE_QUEUE_BYTES each of them waits up to PATIENCE for the reader and is
/// queued in any case, so the queue of a reader that is stuck for good grows slowly, by what the program has to report.
///
/// All operations may be called from any thread.
class LogSink {
public:
    static constexpr int KEPT_LEVEL = 3;
    static constexpr std::size_t LOW_LEVEL_QUEUE_BYTES = 256 * 1024;
    static constexpr std::size_t PATIENCE_QUEUE_BYTES = 1024 * 1024;
    static constexpr std::chrono::milliseconds PATIENCE{100};

    /// The process's sink. Never destroyed; what is queued when the process exits gets a bounded time to go out.
    static LogSink& getInstance();

    KxNLogLine::Prefix getPrefix() const { return prefix; }

    /// Takes one line, with its newline.
    void write(int level, std::string_view line);

    /// Counts a line that could not be taken at all, for want of memory.
    void countLostLine();

    /// Waits until everything taken has been written, at most `timeout`. False when it has not by then.
    bool flush(std::chrono::milliseconds timeout);

private:
    struct QueuedLine {
        std::string text;
        std::size_t written;
    };

    LogSink();
    bool isTaken(int level, std::size_t size, std::unique_lock<std::mutex>& lock);
    void enqueue(std::string_view line);
    void startWriter();
    void writeQueue();
    void queueLossReport();

    const KxNLogLine::Prefix prefix;
    std::mutex mutex;
    std::condition_variable progress;  // the queue has become shorter
    std::deque<QueuedLine> queue;      // its first line may be in the hands of the writer
    std::size_t queuedBytes = 0;
    std::uint64_t lostLines = 0;
    bool isWriterRunning = false;
};

// The bounded set of threads that carry uploads.
//
// A handler may keep what it knows of an upload by the thread that carries it. So each upload stays on one thread, the
// threads live as long as the server, and a thread on which an upload may have been abandoned is remembered as such.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace KxNTamberWebApi {

class UploadThreads {
public:
    struct Job {
        /// Carries the upload and lets no exception out. `mayHoldSession` tells whether an upload may have been
        /// abandoned on this thread before; the result tells the same for the next one.
        std::function<bool(bool mayHoldSession)> carry;
        /// Called instead when no thread became free in time.
        std::function<void()> giveUp;
    };

    UploadThreads(std::size_t mostThreads, std::chrono::milliseconds longestToWait)
        : most(mostThreads), longestWait(longestToWait) {
        threads.reserve(most);
    }
    ~UploadThreads() { stop(); }
    UploadThreads(const UploadThreads&) = delete;
    UploadThreads& operator=(const UploadThreads&) = delete;

    /// Gives the job to a free thread, one that holds no session where there is a choice, or lets it wait for one.
    /// Any thread.
    void submit(Job job);

    /// Gives up on jobs that have waited for too long. Any thread.
    void expire(std::int64_t now);

    /// Waits for the jobs that run, gives up on those that wait, and ends the threads.
    void stop();

private:
    struct Thread {
        std::thread thread;
        std::condition_variable wake;
        bool mayHoldSession = false;
        std::function<bool(bool)> work;  // empty while the thread is free
    };
    struct Waiting {
        Job job;
        std::int64_t until;
    };

    Thread* chooseThread();
    void run(Thread& self);

    const std::size_t most;
    const std::chrono::milliseconds longestWait;
    std::mutex mutex;
    std::vector<std::unique_ptr<Thread>> threads;
    std::deque<Waiting> queue;
    bool stopping = false;
};

}  // namespace KxNTamberWebApi

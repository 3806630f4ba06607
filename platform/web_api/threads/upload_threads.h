// The bounded set of threads that carry uploads.
//
// A handler may keep what it knows of an upload by the thread that carries it. So each upload stays on one thread, the
// threads live as long as the server, and a thread on which an upload may have been abandoned is remembered as such.
// Uploads that bring a file take the place of what was abandoned. Once half of the threads may hold something abandoned
// they therefore go there first: the others stay for those that need a thread without.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/web_api/threads/fair_shares.h"

namespace KxNTamberWebApi {

class UploadThreads {
public:
    struct Job {
        std::string identity;     ///< whose upload it is
        bool lasts = false;       ///< its end may take minutes: it is never one of the last free threads that it gets
        bool needsClean = false;  ///< wants a thread on which nothing was abandoned
        /// Carries the upload and lets no exception out. `mayHoldSession` tells whether an upload may have been
        /// abandoned on this thread before; the result tells the same for the next one.
        std::function<bool(bool mayHoldSession)> carry;
        /// Called afterwards, when the thread is free again; or with false instead, when none became free in time.
        std::function<void(bool wasCarried)> done;
    };

    UploadThreads(std::size_t mostThreads, std::chrono::milliseconds longestToWait)
        : most(mostThreads), shares(mostThreads, longestToWait) {
        threads.reserve(most);
    }
    ~UploadThreads() { stop(); }
    UploadThreads(const UploadThreads&) = delete;
    UploadThreads& operator=(const UploadThreads&) = delete;

    /// Gives the job to a thread, or lets it wait for one. Any thread.
    void submit(Job job);

    /// Gives up on jobs that have waited for too long. Any thread.
    void expire(std::int64_t now) { shares.expire(now); }

    /// Gives up on jobs that wait and on those that come. Any thread.
    void refuseAll() { shares.refuseAll(); }

    /// Waits for the jobs that run, gives up on those that wait, and ends the threads.
    void stop();

private:
    struct Thread {
        std::thread thread;
        std::condition_variable wake;
        bool mayHoldSession = false;
        std::unique_ptr<Job> job;  // null while the thread is free
    };

    void start(Job job);
    Thread* chooseThread(bool needsClean);
    Thread* findFree(bool mayHoldSession) const;
    Thread* make();
    void run(Thread& self);
    void finish(std::unique_ptr<Job> job, bool wasCarried);

    const std::size_t most;
    FairShares shares;  // who has one has a thread
    std::mutex mutex;
    std::vector<std::unique_ptr<Thread>> threads;
    bool stopping = false;
};

}  // namespace KxNTamberWebApi

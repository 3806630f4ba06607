#include "platform/web_api/threads/upload_threads.h"

#include <pthread.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "KxLog.h"

namespace KxNTamberWebApi {

namespace {

/// This part of the threads is never taken by uploads that last.
constexpr std::size_t LAST_THREADS_PART = 4;

}  // namespace

void UploadThreads::submit(Job job) {
    auto shared = std::make_shared<Job>(std::move(job));
    const std::size_t leaves = shared->lasts ? (most + LAST_THREADS_PART - 1) / LAST_THREADS_PART : 0;
    shares.ask({shared->identity, 1, leaves, [this, shared](bool isGiven) {
                    if (isGiven) {
                        start(std::move(*shared));
                    } else {
                        shared->done(false);
                    }
                }});
}

/// Gives the job, which has its share, to a thread.
void UploadThreads::start(Job job) {
    auto owned = std::make_unique<Job>(std::move(job));
    {
        std::lock_guard lock(mutex);
        if (Thread* const chosen = stopping ? nullptr : chooseThread(owned->needsClean)) {
            chosen->job = std::move(owned);
            chosen->wake.notify_one();
        }
    }
    if (owned) {
        finish(std::move(owned), false);
    }
}

/// Null when there is none and none can be made.
UploadThreads::Thread* UploadThreads::chooseThread(bool needsClean) {
    const auto mayHold = std::count_if(threads.begin(), threads.end(), [](auto& one) { return one->mayHoldSession; });
    const bool prefersClean = needsClean || 2 * static_cast<std::size_t>(mayHold) < most;
    Thread* choice = findFree(!prefersClean);
    if (choice == nullptr && !prefersClean) {
        choice = findFree(false);
    }
    if (choice == nullptr && threads.size() < most) {
        choice = make();
    }
    return choice != nullptr ? choice : findFree(true);
}

UploadThreads::Thread* UploadThreads::findFree(bool mayHoldSession) const {
    const auto found = std::find_if(threads.begin(), threads.end(),
                                    [&](auto& one) { return !one->job && one->mayHoldSession == mayHoldSession; });
    return found != threads.end() ? found->get() : nullptr;
}

UploadThreads::Thread* UploadThreads::make() {
    try {
        auto made = std::make_unique<Thread>();
        made->thread = std::thread([this, self = made.get()] { run(*self); });
        pthread_setname_np(made->thread.native_handle(), "kx-web-upload");
        threads.push_back(std::move(made));
        return threads.back().get();
    } catch (const std::exception& failure) {
        KxCRTE_LOG(4, "Korvex Container Service: Web API cannot make an upload thread: %s", failure.what());
        return nullptr;
    }
}

void UploadThreads::run(Thread& self) {
    std::unique_lock lock(mutex);
    for (;;) {
        self.wake.wait(lock, [&] { return self.job || stopping; });
        if (!self.job) {
            return;
        }
        lock.unlock();
        const bool mayHoldSession = self.job->carry(self.mayHoldSession);
        lock.lock();
        self.mayHoldSession = mayHoldSession;
        std::unique_ptr<Job> job = std::move(self.job);
        lock.unlock();
        finish(std::move(job), true);
        lock.lock();
    }
}

/// The share is given back first: a client that has its answer finds the thread free.
void UploadThreads::finish(std::unique_ptr<Job> job, bool wasCarried) {
    shares.giveBack(job->identity, 1);
    job->done(wasCarried);
}

void UploadThreads::stop() {
    shares.refuseAll();
    {
        std::lock_guard lock(mutex);
        stopping = true;
        for (const auto& one : threads) {
            one->wake.notify_one();
        }
    }
    for (const auto& one : threads) {
        if (one->thread.joinable()) {
            one->thread.join();
        }
    }
}

}  // namespace KxNTamberWebApi

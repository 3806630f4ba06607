#include "platform/web_api/threads/upload_threads.h"

#include <pthread.h>

#include <exception>
#include <utility>

#include "KxLog.h"
#include "platform/net/deadline.h"

namespace KxNTamberWebApi {

void UploadThreads::submit(Job job) {
    std::unique_lock lock(mutex);
    if (stopping) {
        lock.unlock();
        job.giveUp();
        return;
    }
    Thread* const free = chooseThread();
    if (free == nullptr) {
        queue.push_back({std::move(job), KxNNet::coarseMilliseconds() + longestWait.count()});
        return;
    }
    free->work = std::move(job.carry);
    free->wake.notify_one();
}

UploadThreads::Thread* UploadThreads::chooseThread() {
    Thread* choice = nullptr;
    for (const auto& one : threads) {
        if (!one->work && !one->mayHoldSession) {
            return one.get();
        }
        if (!one->work) {
            choice = one.get();
        }
    }
    if (threads.size() == most) {
        return choice;
    }
    std::unique_ptr<Thread> made;
    try {
        made = std::make_unique<Thread>();
        made->thread = std::thread([this, self = made.get()] { run(*self); });
    } catch (const std::exception& failure) {
        KxCRTE_LOG(4, "Korvex Container Service: Web API cannot make an upload thread: %s", failure.what());
        return choice;
    }
    pthread_setname_np(made->thread.native_handle(), "kx-web-upload");
    threads.push_back(std::move(made));
    return threads.back().get();
}

void UploadThreads::run(Thread& self) {
    std::unique_lock lock(mutex);
    for (;;) {
        self.wake.wait(lock, [&] { return self.work || stopping; });
        if (!self.work) {
            return;
        }
        lock.unlock();
        const bool mayHoldSession = self.work(self.mayHoldSession);
        lock.lock();
        self.mayHoldSession = mayHoldSession;
        self.work = nullptr;
        if (!queue.empty()) {
            self.work = std::move(queue.front().job.carry);
            queue.pop_front();
        }
    }
}

void UploadThreads::expire(std::int64_t now) {
    std::vector<Job> late;
    {
        std::lock_guard lock(mutex);
        while (!queue.empty() && queue.front().until <= now) {
            late.push_back(std::move(queue.front().job));
            queue.pop_front();
        }
    }
    for (Job& job : late) {
        job.giveUp();
    }
}

void UploadThreads::stop() {
    std::deque<Waiting> waiting;
    {
        std::lock_guard lock(mutex);
        stopping = true;
        waiting.swap(queue);
        for (const auto& one : threads) {
            one->wake.notify_one();
        }
    }
    for (Waiting& one : waiting) {
        one.job.giveUp();
    }
    for (const auto& one : threads) {
        if (one->thread.joinable()) {
            one->thread.join();
        }
    }
}

}  // namespace KxNTamberWebApi

#include "platform/web_api/threads/stream_threads.h"

#include <pthread.h>

#include <utility>

namespace KxNTamberWebApi {

void StreamThreads::start(std::function<void()> work) {
    joinFinished();
    std::lock_guard lock(mutex);
    const auto own = running.emplace(running.end());
    try {
        // The new thread takes the mutex before it moves its own record, so it finds the record complete.
        *own = std::thread([this, own, task = std::move(work)]() mutable {
            task();
            task = nullptr;
            std::lock_guard recordLock(mutex);
            finished.splice(finished.end(), running, own);
            ended.notify_all();
        });
    } catch (...) {
        running.erase(own);
        throw;
    }
    pthread_setname_np(own->native_handle(), "kx-web-stream");
}

void StreamThreads::joinFinished() {
    std::list<std::thread> joinable;
    {
        std::lock_guard lock(mutex);
        joinable.swap(finished);
    }
    for (std::thread& thread : joinable) {
        thread.join();
    }
}

void StreamThreads::joinAll() {
    {
        std::unique_lock lock(mutex);
        ended.wait(lock, [this] { return running.empty(); });
    }
    joinFinished();
}

}  // namespace KxNTamberWebApi

// A thread for each log stream.
#pragma once

#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>
#include <thread>

namespace KxNTamberWebApi {

/// Any thread may call `start` and `joinFinished`.
class StreamThreads {
public:
    ~StreamThreads() { joinAll(); }

    /// Runs `work`, which lets no exception out, on a thread of its own. Throws std::system_error when there is none.
    void start(std::function<void()> work);

    /// Gives back what threads that have ended still hold.
    void joinFinished();
    /// Waits for all.
    void joinAll();

private:
    std::mutex mutex;
    std::condition_variable ended;
    std::list<std::thread> running;
    std::list<std::thread> finished;
};

}  // namespace KxNTamberWebApi

#include "platform/web_api/threads/request_threads.h"

#include <pthread.h>

#include <algorithm>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/post.hpp>
#include <chrono>
#include <exception>

#include "KxLog.h"

namespace KxNTamberWebApi {

namespace {

constexpr std::chrono::milliseconds MONITOR_TICK{1};
constexpr int MONITOR_IDLE_TICKS = 200;
constexpr std::chrono::seconds SURPLUS_IDLE{10};
constexpr std::int64_t BLOCKING_MICROSECONDS = 1000;

using KxNRtosAbstraction::KxCLifeSign;

std::int64_t nowMicroseconds() {
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

}  // namespace

thread_local RequestThreads::Thread* RequestThreads::current = nullptr;

RequestThreads::RequestThreads(boost::asio::io_context& eventLoop, std::size_t keptThreads, std::size_t mostThreads)
    : context(eventLoop),
      work(boost::asio::make_work_guard(eventLoop)),
      kept(std::max<std::size_t>(keptThreads, 2)),
      cap(std::max(mostThreads, kept)) {
    followers.reserve(cap);  // a thread must be able to wait for the lead when memory has run out
}

RequestThreads::~RequestThreads() {
    stop();
}

void RequestThreads::start() {
    {
        std::lock_guard lock(mutex);
        for (std::size_t i = 0; i < kept; ++i) {
            spawn(i == 0);
        }
        monitorThread = std::thread([this] { monitor(); });
    }
    loopSign.emplace("event loop",
                     [this](KxCLifeSign::Answer answer) { boost::asio::post(context, std::move(answer)); });
    followersSign.emplace("waiting request thread",
                          [this](KxCLifeSign::Answer answer) { askFollowers(std::move(answer)); });
}

void RequestThreads::stop() {
    loopSign.reset();
    followersSign.reset();
    std::list<std::unique_ptr<Thread>> running;
    std::vector<std::unique_ptr<Thread>> ended;
    {
        std::lock_guard lock(mutex);
        stopping = true;
        for (Thread* follower : followers) {
            follower->wake.notify_one();
        }
        monitorWake.notify_one();
        // A thread that finishes from here on leaves its record where it is.
        running.swap(threads);
        ended.swap(finished);
    }
    context.stop();
    if (monitorThread.joinable()) {
        monitorThread.join();
    }
    for (auto& thread : running) {
        thread->thread.join();
    }
    for (auto& thread : ended) {
        thread->thread.join();
    }
}

std::size_t RequestThreads::count() const {
    std::lock_guard lock(mutex);
    return threads.size();
}

void RequestThreads::spawn(bool leads) {
    auto record = std::make_unique<Thread>();
    Thread& self = *record;
    self.leads = leads;
    threads.push_back(std::move(record));
    try {
        self.thread = std::thread([this, &self] { run(self); });
    } catch (...) {
        threads.pop_back();
        throw;
    }
    pthread_setname_np(self.thread.native_handle(), "kx-web-request");
}

void RequestThreads::run(Thread& self) {
    current = &self;
    while (waitForLead(self)) {
        while (self.leads && runEvent()) {
        }
        if (self.leads) {
            return;  // the event loop was stopped
        }
    }
}

/// False when the event loop was stopped. What an event throws, for want of memory say, ends what it belonged to and
/// nothing else.
bool RequestThreads::runEvent() {
    try {
        return context.run_one() != 0;
    } catch (const std::exception& failure) {
        KxCRTE_LOG(4, "Korvex Container Service: Web API gives up an event: %s", failure.what());
        return true;
    }
}

bool RequestThreads::waitForLead(Thread& self) {
    std::unique_lock lock(mutex);
    if (leadIsVacant && !stopping) {
        leadIsVacant = false;
        self.leads = true;
    }
    if (self.leads) {
        return true;
    }
    followers.push_back(&self);
    const auto isDone = [&] { return self.leads || stopping; };
    while (!isDone()) {
        const bool isSurplus = threads.size() > kept;
        if (!isSurplus) {
            self.wake.wait(lock);
        } else if (self.wake.wait_for(lock, SURPLUS_IDLE) == std::cv_status::timeout && !isDone() &&
                   threads.size() > kept && !self.isAsked) {
            break;
        }
        answerRollCall(self);
    }
    if (self.leads) {
        return true;
    }
    std::erase(followers, &self);
    if (!stopping) {
        const auto own = std::find_if(threads.begin(), threads.end(), [&](auto& one) { return one.get() == &self; });
        finished.push_back(std::move(*own));
        threads.erase(own);
    }
    return false;
}

/// Asks every thread that waits for the lead; they answer together once the last one has woken up. Those in an
/// operation are not asked, for that may take its time.
void RequestThreads::askFollowers(KxCLifeSign::Answer answer) {
    const std::lock_guard lock(mutex);
    if (unanswered > 0) {
        return;  // they were asked before
    }
    for (Thread* follower : followers) {
        follower->isAsked = true;
        follower->wake.notify_one();
    }
    followersGoOn = std::move(answer);
    unanswered = followers.size();
    if (unanswered == 0) {
        followersGoOn();
    }
}

void RequestThreads::answerRollCall(Thread& self) {
    if (self.isAsked) {
        self.isAsked = false;
        if (--unanswered == 0) {
            followersGoOn();
        }
    }
}

bool RequestThreads::giveLead() {
    if (stopping) {
        return false;
    }
    if (!followers.empty()) {
        Thread* next = followers.back();
        followers.pop_back();
        next->leads = true;
        next->wake.notify_one();
        return true;
    }
    if (threads.size() >= cap) {
        return false;
    }
    try {
        spawn(true);
        return true;
    } catch (const std::exception& failure) {
        KxCRTE_LOG(4, "Korvex Container Service: Web API cannot make a request thread: %s", failure.what());
        return false;
    }
}

void RequestThreads::passLeadOn() {
    heldUp.fetch_add(1, std::memory_order_relaxed);
    std::lock_guard lock(mutex);
    leadIsVacant = !giveLead();
}

void RequestThreads::monitor() {
    pthread_setname_np(pthread_self(), "kx-web-monitor");
    std::unique_lock lock(mutex);
    std::uint64_t seen = 0;
    int idleTicks = 0;
    while (!stopping) {
        monitorWake.wait_for(lock, MONITOR_TICK);
        std::uint64_t now = leader.load();
        idleTicks = now == seen ? idleTicks + 1 : 0;
        const bool isHeldUp = now == seen && (now & 1) != 0;
        if (isHeldUp && leader.compare_exchange_strong(now, now + 1)) {
            heldUp.fetch_add(1, std::memory_order_relaxed);
            leadIsVacant = true;
        }
        seen = now;
        if (leadIsVacant && !stopping) {
            leadIsVacant = !giveLead();
        }
        joinFinished(lock);
        if (idleTicks > MONITOR_IDLE_TICKS && !leadIsVacant) {
            // An operation that begins from here on sees the flag; one that began before shows in `leader`.
            monitorSleeps.store(true);
            monitorWake.wait(lock, [&] { return stopping || leader.load() != seen || (leader.load() & 1) != 0; });
            monitorSleeps.store(false);
            idleTicks = 0;
        }
    }
}

void RequestThreads::joinFinished(std::unique_lock<std::mutex>& lock) {
    if (finished.empty()) {
        return;
    }
    std::vector<std::unique_ptr<Thread>> ended;
    ended.swap(finished);
    lock.unlock();
    for (auto& thread : ended) {
        thread->thread.join();
    }
    lock.lock();
}

void RequestThreads::wakeMonitor() {
    std::lock_guard lock(mutex);
    monitorWake.notify_one();
}

RequestThreads::Operation::Operation(RequestThreads& owner, std::atomic<bool>* blockedLately)
    : threads(owner), tendsToBlock(blockedLately) {
    if (current == nullptr) {
        return;
    }
    if (!current->leads) {  // the lead was taken away during an operation before this one
        isOnlyCounted = true;
        threads.heldUp.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    if (tendsToBlock != nullptr && tendsToBlock->load(std::memory_order_relaxed)) {
        begunAt = nowMicroseconds();
        current->leads = false;
        threads.passLeadOn();
        return;
    }
    running = threads.leader.load(std::memory_order_relaxed) + 1;
    threads.leader.store(running);
    if (threads.monitorSleeps.load()) {
        threads.wakeMonitor();
    }
}

RequestThreads::Operation::~Operation() {
    if (isOnlyCounted) {
        threads.heldUp.fetch_sub(1, std::memory_order_relaxed);
        return;
    }
    if (begunAt != 0) {
        threads.heldUp.fetch_sub(1, std::memory_order_relaxed);
        if (nowMicroseconds() - begunAt < BLOCKING_MICROSECONDS) {
            tendsToBlock->store(false, std::memory_order_relaxed);
        }
        return;
    }
    if (running == 0) {
        return;
    }
    std::uint64_t expected = running;
    if (threads.leader.compare_exchange_strong(expected, running + 1)) {
        return;
    }
    threads.heldUp.fetch_sub(1, std::memory_order_relaxed);
    current->leads = false;
    if (tendsToBlock != nullptr) {
        tendsToBlock->store(true, std::memory_order_relaxed);
    }
}

}  // namespace KxNTamberWebApi

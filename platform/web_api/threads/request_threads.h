// The threads that serve connections: one leads, the others wait to follow it.
//
// The leader alone runs the event loop and calls operations inline, so that a fast request costs no hand-over. A
// monitor looks at it every millisecond while there is work; when the same operation still runs, the lead goes to
// another thread, and the one that is held up becomes a follower once its operation has ended.
#pragma once

#include <atomic>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "KxRtos.h"
#include "platform/net/loop_stream.h"

namespace KxNTamberWebApi {

class RequestThreads {
public:
    /// `kept` threads stay, up to `cap` are added while operations block. `context` outlives this object.
    RequestThreads(boost::asio::io_context& context, std::size_t kept, std::size_t cap);
    /// `stop` has been called, or `start` never was.
    ~RequestThreads();
    RequestThreads(const RequestThreads&) = delete;
    RequestThreads& operator=(const RequestThreads&) = delete;

    /// From here on the service manager's watchdog asks the event loop and all waiting threads whether they go on.
    /// Throws std::system_error when not even the first threads can be made.
    void start();

    /// Ends the event loop and joins all threads. Operations that run are waited for. Not from one of the threads.
    void stop();

    /// Whether an operation may begin: false while so many are held up that the calling thread is the last one that can
    /// still serve connections.
    bool mayBegin() const { return heldUp.load(std::memory_order_relaxed) + 1 < cap; }

    /// Stands around everything that may block or compute for long. A thread that does not lead is only counted; one of
    /// another kind (a stream's, say) is not even that.
    class Operation {
    public:
        /// `tendsToBlock`, where given, remembers that this kind of operation blocked lately; the next one then passes
        /// the lead on before it begins, and nobody waits for the monitor to notice.
        explicit Operation(RequestThreads& threads, std::atomic<bool>* tendsToBlock = nullptr);
        ~Operation();
        Operation(const Operation&) = delete;
        Operation& operator=(const Operation&) = delete;

    private:
        RequestThreads& threads;
        std::atomic<bool>* tendsToBlock;
        std::uint64_t running = 0;  // value of `leader` that stands for this operation, 0 when it has none
        std::int64_t begunAt = 0;   // microseconds, when the lead was passed on beforehand
        bool isOnlyCounted = false;
    };

    /// Number of threads, for tests.
    std::size_t count() const;

private:
    struct Thread {
        std::thread thread;
        std::condition_variable wake;
        bool leads = false;  // written by the thread itself, and by others under the mutex while it waits
        bool isAsked = false;
    };

    void run(Thread& self);
    bool runEvent();
    bool waitForLead(Thread& self);
    void askFollowers(KxNRtosAbstraction::KxCLifeSign::Answer answer);
    void answerRollCall(Thread& self);
    void passLeadOn();
    bool giveLead();
    void spawn(bool leads);
    void monitor();
    void wakeMonitor();
    void joinFinished(std::unique_lock<std::mutex>& lock);

    boost::asio::io_context& context;
    boost::asio::executor_work_guard<KxNNet::Executor> work;
    const std::size_t kept;
    const std::size_t cap;

    // What the leader does: odd while an operation runs, and another number for each. Who changes an odd value first,
    // the leader that has finished or the monitor that takes the lead away, wins.
    std::atomic<std::uint64_t> leader{0};
    std::atomic<bool> monitorSleeps{false};
    std::atomic<std::size_t> heldUp{0};  // threads whose operation runs without the lead

    mutable std::mutex mutex;
    std::condition_variable monitorWake;
    std::list<std::unique_ptr<Thread>> threads;
    std::vector<Thread*> followers;  // the last one waited shortest
    std::vector<std::unique_ptr<Thread>> finished;
    bool leadIsVacant = false;   // nobody could be made leader; the next thread that can takes it
    std::size_t unanswered = 0;  // of the followers that were asked whether they go on
    KxNRtosAbstraction::KxCLifeSign::Answer followersGoOn;  // called once all have answered
    bool stopping = false;
    std::thread monitorThread;
    std::optional<KxNRtosAbstraction::KxCLifeSign> loopSign;
    std::optional<KxNRtosAbstraction::KxCLifeSign> followersSign;

    static thread_local Thread* current;
};

}  // namespace KxNTamberWebApi

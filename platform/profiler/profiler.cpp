#include <pthread.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "KxJson.h"
#include "KxLog.h"
#include "KxProfiler.h"
#include "platform/common/blocked_signals.h"
#include "platform/profiler/process_counters.h"
#include "platform/profiler/trace_file.h"

namespace {

constexpr const char* TRACE_FILE = "/run/KxContainerRTE.trace.json";
constexpr const char* PREVIOUS_TRACE_FILE = "/run/KxContainerRTE.trace.previous.json";
constexpr std::chrono::milliseconds SAMPLE_INTERVAL{100};  // also how much a killed process loses
constexpr std::size_t FLUSH_BYTES = 64 * 1024;
constexpr std::size_t MAX_NAME_LENGTH = 100;

// The threads, and so the recorder, may outlive main.
struct Recorder {
    std::mutex mutex;
    std::optional<KxNProfiler::TraceFile> trace;  // none while the profiler is closed
    std::vector<std::string> eventNames;          // as JSON; the id is the position
    std::condition_variable stopped;
    bool isStopping = false;
    std::thread sampler;
};

Recorder& recorder() {
    static Recorder& theRecorder = *new Recorder;
    return theRecorder;
}

std::string toText(const KxNJson::json& event) {
    return event.dump(-1, ' ', true, KxNJson::Utf8ErrorMode::replace);
}

/// Microseconds of the clock that trace viewers expect.
double now() {
    timespec time{};
    ::clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

std::string metadata(const char* name, pid_t thread, const char* argument, const std::string& value) {
    return toText({{"name", name}, {"ph", "M"}, {"pid", ::getpid()}, {"tid", thread}, {"args", {{argument, value}}}});
}

std::string counterEvent(const KxNProfiler::Counter& counter) {
    return toText({{"name", counter.name},
                   {"cat", counter.source},
                   {"ph", "C"},
                   {"ts", now()},
                   {"pid", ::getpid()},
                   {"args", counter.values}});
}

std::string currentThreadName() {
    std::array<char, 16> name{};
    ::pthread_getname_np(::pthread_self(), name.data(), name.size());
    return name.data();
}

// Ends the recording because of `reason`. The caller holds the recorder's mutex.
void giveUp(std::atomic<bool>& active, const std::string& reason) {
    active.store(false, std::memory_order_relaxed);
    recorder().trace.reset();
    KxCRTE_LOG(3, "Korvex Container Service: Profiling ends: %s", reason.c_str());
}

// The caller holds the recorder's mutex and the profiler is open.
void flushTrace(std::atomic<bool>& active) {
    KxNProfiler::TraceFile& trace = *recorder().trace;
    try {
        if (trace.isFull()) {
            trace.finish();
            giveUp(active, "the trace has reached its " + std::to_string(KxNProfiler::TraceFile::MAX_BYTES) + " bytes");
        } else {
            trace.flush();
        }
    } catch (const std::system_error& failure) {
        giveUp(active, failure.what());
    }
}

void sampleUntilStopped(std::atomic<bool>& active) {
    KxNProfiler::ProcessCounters counters;
    Recorder& to = recorder();
    std::unique_lock lock(to.mutex);
    while (to.trace && !to.stopped.wait_for(lock, SAMPLE_INTERVAL, [&] { return to.isStopping; })) {
        if (to.trace) {
            for (const KxNProfiler::Counter& counter : counters.sample()) {
                to.trace->append(counterEvent(counter));
            }
            flushTrace(active);
        }
    }
}

}  // namespace

KxCProfiler& KxCProfiler::getInstance() {
    static KxCProfiler& instance = *new KxCProfiler;
    return instance;
}

bool KxCProfiler::open(const char* sourceName, std::uint32_t sourceNumber) {
    Recorder& to = recorder();
    const std::lock_guard lock(to.mutex);
    try {
        to.trace.emplace(TRACE_FILE, PREVIOUS_TRACE_FILE);
        to.trace->append(metadata("process_name", ::getpid(), "name", sourceName));
        to.trace->append(metadata("process_labels", ::getpid(), "labels",
                                  "source " + std::to_string(sourceNumber) + ": application, kernel, memory"));
        const KxNCommon::BlockedSignals blocked;
        to.isStopping = false;
        to.sampler = std::thread([this] { sampleUntilStopped(active); });
    } catch (const std::system_error& failure) {
        KxCRTE_LOG(4, "Korvex Container Service: Profiling is not possible: %s", failure.what());
        to.trace.reset();
        return false;
    }
    static const int atExit = std::atexit([] { getInstance().close(); });
    static_cast<void>(atExit);
    active.store(true, std::memory_order_relaxed);
    return true;
}

std::uint32_t KxCProfiler::registerEvent(const char* name) {
    Recorder& to = recorder();
    const std::lock_guard lock(to.mutex);
    to.eventNames.push_back(toText(std::string(name).substr(0, MAX_NAME_LENGTH)));
    return static_cast<std::uint32_t>(to.eventNames.size() - 1);
}

void KxCProfiler::emit(std::uint32_t eventId, std::uint32_t code, std::uint32_t index) {
    if (!isActive()) {
        return;
    }
    const double time = now();
    thread_local const pid_t thread = ::gettid();
    thread_local bool isNamed = false;
    Recorder& to = recorder();
    const std::lock_guard lock(to.mutex);
    if (!to.trace || eventId >= to.eventNames.size()) {
        return;
    }
    if (!isNamed) {
        to.trace->append(metadata("thread_name", thread, "name", currentThreadName()));
        isNamed = true;
    }
    std::array<char, 1024> event;  // a name's escapes fit as well
    const int length =
        std::snprintf(event.data(), event.size(),
                      R"({"name":%s,"cat":"application","ph":"%c","ts":%.3f,"pid":%d,"tid":%d,"args":{"index":%u}})",
                      to.eventNames[eventId].c_str(), code == ENTER ? 'B' : 'E', time, ::getpid(), thread, index);
    to.trace->append({event.data(), static_cast<std::size_t>(length)});
    if (to.trace->getBufferedBytes() >= FLUSH_BYTES) {
        flushTrace(active);
    }
}

void KxCProfiler::close() {
    active.store(false, std::memory_order_relaxed);
    Recorder& to = recorder();
    std::unique_lock lock(to.mutex);
    to.isStopping = true;
    to.stopped.notify_all();
    std::thread sampler = std::move(to.sampler);
    lock.unlock();
    if (sampler.joinable()) {
        sampler.join();
    }
    lock.lock();
    try {
        if (to.trace) {
            to.trace->finish();
        }
    } catch (const std::system_error& failure) {
        KxCRTE_LOG(3, "Korvex Container Service: The profiler's trace is incomplete: %s", failure.what());
    }
    to.trace.reset();
}

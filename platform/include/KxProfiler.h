// The target's profiler. Off unless the program opens it.
#pragma once

#include <atomic>
#include <cstdint>

class KxCProfiler {
public:
    static constexpr std::uint32_t ENTER = 101;
    static constexpr std::uint32_t EXIT = 102;

    /// The process's profiler. Lives as long as the process. Any thread.
    static KxCProfiler& getInstance();

    /// Opens the profiler as source `sourceName` with the source number `sourceNumber`, and registers the
    /// application, kernel and memory event sources. False, and a level-4 log line, when the trace cannot be
    /// written. To be called once, before any event.
    bool open(const char* sourceName, std::uint32_t sourceNumber);

    /// Registers an event by its name and returns its id. To be called before other threads emit.
    std::uint32_t registerEvent(const char* name);

    /// True while events are recorded. One relaxed atomic read. Any thread.
    bool isActive() const { return active.load(std::memory_order_relaxed); }

    /// Records that the calling thread entered or left something. `code` is ENTER or EXIT, `index` the caller's own
    /// number for it, `eventId` what `registerEvent` returned. Any thread; a few hundred nanoseconds.
    void emit(std::uint32_t eventId, std::uint32_t code, std::uint32_t index);

    /// Writes what is still buffered and ends the trace file so that a viewer accepts it.
    void close();

private:
    KxCProfiler() = default;
    std::atomic<bool> active{false};
};

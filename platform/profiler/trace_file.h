// A file in the Trace Event Format, as Perfetto (https://ui.perfetto.dev) and chrome://tracing open it.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/common/unique_fd.h"

namespace KxNProfiler {

/// Writes a JSON array of events. The array may lack its end, so that the trace of a killed process loads as well.
/// Not locked: one thread at a time.
class TraceFile {
public:
    static constexpr std::size_t MAX_BYTES = 64 * 1024 * 1024;

    /// Makes the file at `path`; one that an earlier process left is kept under `previousPath`. Throws
    /// std::system_error, which names the file, when that fails or another process is writing it.
    TraceFile(const std::string& path, const std::string& previousPath);

    /// Buffers one event, a JSON object.
    void append(std::string_view event);

    std::size_t getBufferedBytes() const { return buffer.size(); }
    bool isFull() const { return writtenBytes + buffer.size() >= MAX_BYTES; }

    /// Writes what is buffered. Throws std::system_error when that fails; the file then ends with the last event that
    /// was written whole.
    void flush();

    /// Ends the array and writes all of it. No event may follow. Throws as `flush`.
    void finish();

private:
    KxNCommon::UniqueFd file;  // holds the lock that keeps other processes off
    const std::string path;
    std::string buffer = "[";
    bool isEmpty = true;
    std::size_t writtenBytes = 0;
};

}  // namespace KxNProfiler

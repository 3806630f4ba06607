// What every operation begins with.
#pragma once

#include <cctype>

#include "KxLog.h"
#include "api/profiling.h"

namespace KxNCre {

/// Frames one run of an operation: the profiler learns of its beginning and, on every way out, of its end.
class OperationScope {
public:
    explicit OperationScope(KxEOperation framed) : operation(framed), isRecorded(isProfiling && recordEnter(framed)) {}

    ~OperationScope() {
        if (isRecorded) {
            recordExit(operation);
        }
    }

    OperationScope(const OperationScope&) = delete;
    OperationScope& operator=(const OperationScope&) = delete;

    /// Writes the trace line, the operation id. Apart from the constructor because some operations refuse
    /// a request before anything is logged.
    void trace() const {
        const char* name = OPERATION_NAMES[static_cast<std::uint32_t>(operation)].data();
        KxCRTE_LOG(0, "Korvex Container Service: %c%s", std::tolower(name[0]), name + 1);
    }

private:
    KxEOperation operation;
    bool isRecorded;
};

}  // namespace KxNCre

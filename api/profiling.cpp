#include "api/profiling.h"

#include "KxProfiler.h"

namespace KxNCre {

bool isProfiling = false;

namespace {

constexpr const char* SOURCE_NAME = "KxContainerSP";
constexpr std::uint32_t SOURCE_NUMBER = 90;

std::array<std::uint32_t, OPERATION_NAMES.size()> eventIds{};

void record(KxEOperation operation, std::uint32_t code) {
    const auto index = static_cast<std::uint32_t>(operation);
    KxCProfiler::getInstance().emit(eventIds[index], code, index);
}

}  // namespace

void startProfiling() {
    KxCProfiler& profiler = KxCProfiler::getInstance();
    profiler.open(SOURCE_NAME, SOURCE_NUMBER);
    for (std::size_t i = 0; i < OPERATION_NAMES.size(); ++i) {
        eventIds[i] = profiler.registerEvent(OPERATION_NAMES[i].data());
    }
    isProfiling = true;
}

void stopProfiling() {
    isProfiling = false;
    KxCProfiler::getInstance().close();
}

bool recordEnter(KxEOperation operation) {
    if (!KxCProfiler::getInstance().isActive()) {
        return false;
    }
    record(operation, KxCProfiler::ENTER);
    return true;
}

void recordExit(KxEOperation operation) {
    record(operation, KxCProfiler::EXIT);
}

}  // namespace KxNCre

#include "log_recorder.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "KxLog.h"

namespace {

std::mutex mutex;
std::vector<std::pair<int, std::string>> lines;

}  // namespace

std::vector<std::pair<int, std::string>> KxNTests::takeLogLines() {
    const std::lock_guard lock(mutex);
    return std::exchange(lines, {});
}

bool KxCRTE_LOG_IsLevelEnabled(int) {
    return true;
}

void KxCRTE_LOG_Impl(int level, const char* format, ...) {
    char text[2048];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    const std::lock_guard lock(mutex);
    lines.emplace_back(level, text);
}

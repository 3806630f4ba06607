#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory_resource>
#include <new>
#include <string>

#include "KxCustomConfig.h"
#include "KxLog.h"
#include "platform/common/text.h"
#include "platform/log/log_line.h"
#include "platform/log/log_sink.h"

namespace {

constexpr int DEFAULT_THRESHOLD = 2;
constexpr int HIGHEST_THRESHOLD = 6;
constexpr int UNREAD = -1;

std::atomic<int> threshold{UNREAD};

// A process that never logs is protected from broken pipes as well.
[[maybe_unused]] const LogSink& preparedBeforeMain = LogSink::getInstance();

// The configuration logs what is wrong with it while it is read: lines that it writes meanwhile go by the default.
int readThreshold() {
    thread_local bool isReading = false;
    if (isReading) {
        return DEFAULT_THRESHOLD;
    }
    isReading = true;
    const std::string text = KxCCustomConfig::getInstance()->getOption(
        KxNCustomConfig::KxNLog::pSection, KxNCustomConfig::KxNLog::pOptionLevel, "", false);
    isReading = false;
    const auto configured = KxNCommon::parseNumber<int>(text);
    const bool isLevel = configured && *configured >= 0 && *configured <= HIGHEST_THRESHOLD;
    const int level = isLevel ? *configured : DEFAULT_THRESHOLD;
    threshold.store(level, std::memory_order_relaxed);
    return level;
}

// Appends the formatted text. A newline that ends `format` is left out: it ends the line, which is done elsewhere.
__attribute__((format(printf, 2, 0))) void appendMessage(std::pmr::string& line, const char* format,
                                                         va_list arguments) {
    std::array<char, 1024> shortText;
    va_list again;
    va_copy(again, arguments);
    const int result = std::vsnprintf(shortText.data(), shortText.size(), format, arguments);
    if (result < 0) {
        KxNLogLine::appendEscaped(line, format);  // a wide character that has no form in this locale
        va_end(again);
        return;
    }
    const auto length = static_cast<std::size_t>(result);
    std::pmr::string longText(line.get_allocator());
    const char* text = shortText.data();
    if (length >= shortText.size()) {
        longText.resize(length + 1);
        std::vsnprintf(longText.data(), longText.size(), format, again);
        text = longText.data();
    }
    va_end(again);
    const std::size_t formatLength = std::strlen(format);
    const bool formatEndsLine = formatLength > 0 && format[formatLength - 1] == '\n';
    line.reserve(line.size() + length + 1);
    KxNLogLine::appendEscaped(line, {text, length - (formatEndsLine ? 1 : 0)});
}

}  // namespace

bool KxCRTE_LOG_IsLevelEnabled(int level) {
    const int lowest = threshold.load(std::memory_order_relaxed);
    return level >= (lowest == UNREAD ? readThreshold() : lowest);
}

void KxCRTE_LOG_Impl(int level, const char* format, ...) {
    if (!KxCRTE_LOG_IsLevelEnabled(level)) {
        return;
    }
    const int callersErrno = errno;
    LogSink& sink = LogSink::getInstance();
    try {
        std::array<std::byte, 2048> room;  // an ordinary line takes no heap
        std::pmr::monotonic_buffer_resource memory(room.data(), room.size());
        std::pmr::string line(&memory);
        line.reserve(512);
        timespec now{};
        ::clock_gettime(CLOCK_REALTIME, &now);
        KxNLogLine::appendPrefix(line, sink.getPrefix(), level, now);
        va_list arguments;
        va_start(arguments, format);
        appendMessage(line, format, arguments);
        va_end(arguments);
        line.push_back('\n');
        sink.write(level, line);
    } catch (const std::bad_alloc&) {
        sink.countLostLine();
    }
    errno = callersErrno;
}

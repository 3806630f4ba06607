// A program that logs in the way its first argument names. Used by the tests, which give it a standard error of theirs.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "KxLog.h"

namespace {

struct LogsOutsideMain {
    LogsOutsideMain() { KxCRTE_LOG(2, "before main"); }
    ~LogsOutsideMain() { KxCRTE_LOG(2, "after main"); }
} logsOutsideMain;

void writeEveryLevel() {
    for (const int level : {0, 1, 2, 3, 4, 6}) {
        KxCRTE_LOG(level, "level %d\n", level);
    }
}

void writeAwkwardText() {
    KxCRTE_LOG(2, "value %s ends", "a\nb\x1b[31m\r");
    KxCRTE_LOG(2, "both end %s\n", "in a newline\n");
    KxCRTE_LOG(2, "two in the format\n\n");
    KxCRTE_LOG(2, "%s!", std::string(100'000, 'x').c_str());
}

// Prints the slowest line's microseconds, and stays until its input ends.
void writeMany(int lines, int everyHowManyIsAnError, std::size_t padding) {
    using namespace std::chrono;
    microseconds slowest{0};
    for (int i = 0; i < lines; ++i) {
        const auto started = steady_clock::now();
        KxCRTE_LOG(i % everyHowManyIsAnError == 0 ? 4 : 2, "line %d %s", i, std::string(padding, '.').c_str());
        slowest = std::max(slowest, duration_cast<microseconds>(steady_clock::now() - started));
    }
    std::printf("%lld\n", static_cast<long long>(slowest.count()));
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
}

void logFromThreadsDuringExit() {
    static std::atomic<bool> hasBegun{false};
    for (int i = 0; i < 3; ++i) {
        std::thread([] {
            for (;;) {
                KxCRTE_LOG(2, "still here");
                hasBegun = true;
            }
        }).detach();
    }
    while (!hasBegun) {
        std::this_thread::yield();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
}

// What the log must not be written into.
void writeWithAFileOpen(const char* path) {
    const int file = ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    KxCRTE_LOG(4, "a line");
    ::close(file);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "levels") {
        writeEveryLevel();
    } else if (mode == "awkward") {
        writeAwkwardText();
    } else if (mode == "many" && argc > 4) {
        writeMany(std::atoi(argv[2]), std::atoi(argv[3]), std::strtoul(argv[4], nullptr, 10));
    } else if (mode == "threads") {
        logFromThreadsDuringExit();
    } else if (mode == "file" && argc > 2) {
        writeWithAFileOpen(argv[2]);
    } else {
        return 2;
    }
    return 0;
}

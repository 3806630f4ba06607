// A line of the service's own log, and one that is not written.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include "KxLog.h"

namespace {

/// Lines go to /dev/null meanwhile, so that writing one costs the system call and nothing else.
class StandardErrorAside {
public:
    StandardErrorAside() : kept(dup(STDERR_FILENO)) {
        const int sink = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(sink, STDERR_FILENO);
        close(sink);
    }
    ~StandardErrorAside() {
        dup2(kept, STDERR_FILENO);
        close(kept);
    }
    StandardErrorAside(const StandardErrorAside&) = delete;
    StandardErrorAside& operator=(const StandardErrorAside&) = delete;

private:
    int kept;
};

void writeLine(benchmark::State& state) {
    const StandardErrorAside aside;
    for (auto _ : state) {
        KxCRTE_LOG(3, "Korvex Container Service: Container '%s' answered %d", "web", 200);
    }
}
BENCHMARK(writeLine);

void skipLine(benchmark::State& state) {
    for (auto _ : state) {
        KxCRTE_LOG(0, "Korvex Container Service: Container '%s' answered %d", "web", 200);
    }
}
BENCHMARK(skipLine);

}  // namespace

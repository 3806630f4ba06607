// A container's log: taking Podman's frames apart and making text of them.
#include <benchmark/benchmark.h>

#include <string>

#include "platform/container_runtime/logs/log_frames.h"

namespace {

std::string frames(std::size_t lineLength, const std::string& character) {
    std::string line;
    while (line.size() < lineLength) {
        line += character;
    }
    const auto size = static_cast<unsigned>(line.size());
    const std::string header{'\1',
                             '\0',
                             '\0',
                             '\0',
                             static_cast<char>(size >> 24U),
                             static_cast<char>(size >> 16U),
                             static_cast<char>(size >> 8U),
                             static_cast<char>(size)};
    std::string all;
    while (all.size() < 64 * 1024) {
        all += header + line;
    }
    return all;
}

void splitFrames(benchmark::State& state, const std::string& character) {
    const std::string bytes = frames(static_cast<std::size_t>(state.range(0)), character);
    std::string text;
    for (auto _ : state) {
        KxNContainer::LogText log(true);
        text.clear();
        log.append(bytes, text);
        benchmark::DoNotOptimize(text.data());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes.size()));
}

BENCHMARK_CAPTURE(splitFrames, ascii, "x")->Arg(10)->Arg(100)->Arg(1000)->Arg(10000);
BENCHMARK_CAPTURE(splitFrames, threeByteCharacters, "\u20AC")->Arg(100)->Arg(10000);
BENCHMARK_CAPTURE(splitFrames, invalid, "\xFF")->Arg(100)->Arg(10000);

}  // namespace

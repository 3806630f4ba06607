// Runs a fuzzer's function once for each file in the directories given as arguments, without libFuzzer.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        if (!std::filesystem::is_directory(argv[i])) {
            continue;
        }
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
            const auto exact = std::make_unique<std::uint8_t[]>(text.size());  // so that overreads show
            std::copy(text.begin(), text.end(), exact.get());
            std::fprintf(stderr, "%s\n", entry.path().c_str());
            LLVMFuzzerTestOneInput(exact.get(), text.size());
            ++count;
        }
    }
    std::printf("%d inputs\n", count);
    return count == 0 ? 1 : 0;
}

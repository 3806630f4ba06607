// What most tests need: matchers, a directory of their own, small files, threads and waiting.
#pragma once

#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace KxNTests {

using namespace std::chrono_literals;
using namespace std::string_literals;
using Clock = std::chrono::steady_clock;
using testing::AllOf, testing::Contains, testing::Each, testing::ElementsAre, testing::EndsWith, testing::HasSubstr,
    testing::IsEmpty, testing::Not, testing::Pair, testing::StartsWith, testing::UnorderedElementsAre;

/// A directory that goes with its owner.
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        char name[] = "/tmp/kx-test-XXXXXX";
        if (::mkdtemp(name) == nullptr) {
            throw std::runtime_error("mkdtemp failed");
        }
        root = name;
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(root, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    std::string path(const std::string& name) const { return root + "/" + name; }

    std::vector<std::string> fileNames() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(root)) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

private:
    std::string root;
};

/// Empty when there is no such file.
inline std::string readFile(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

/// Makes the directories that are missing too.
inline void writeFile(const std::string& path, const std::string& text) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

/// True when it becomes so in time.
inline bool waitFor(const std::function<bool()>& condition, std::chrono::milliseconds timeout = 10s) {
    const auto until = Clock::now() + timeout;
    while (!condition()) {
        if (Clock::now() > until) {
            return false;
        }
        std::this_thread::sleep_for(2ms);
    }
    return true;
}

/// The processor time that the calling thread has had: unlike the clock's, none of it is the rest of the machine's.
inline std::chrono::nanoseconds threadTime() {
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// Does the work on `count` threads at once, each with its number.
inline void onThreads(
    int count, const std::function<void(int)>& work, const std::function<void()>& meanwhile = [] {}) {
    std::vector<std::thread> threads;
    for (int number = 0; number < count; ++number) {
        threads.emplace_back([&work, number] { work(number); });
    }
    meanwhile();
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace KxNTests

#include <sys/mount.h>
#include <sys/resource.h>

#include <csignal>
#include <map>
#include <set>

#include "KxJson.h"
#include "KxProfiler.h"
#include "platform/profiler/trace_file.h"
#include "tests/support.h"

using namespace KxNTests;

namespace {

using KxNJson::json;
using KxNProfiler::TraceFile;

TEST(TraceFile, WhatAKilledProcessLeftLacksOnlyTheEndOfTheArrayAndAFullDiskCutsAtAWholeEvent) {
    const TemporaryDirectory directory;
    const std::string path = directory.path("trace.json");
    const std::string previous = directory.path("previous.json");
    std::optional<TraceFile> trace(std::in_place, path, previous);
    trace->append(R"({"name":"a"})");
    trace->append(R"({"name":"b"})");
    trace->flush();
    EXPECT_THROW(TraceFile(path, previous), std::system_error) << "another one is writing it";
    EXPECT_FALSE(std::filesystem::exists(previous));
    trace.reset();  // without finish, as after a kill
    trace.emplace(path, previous);
    EXPECT_EQ(json::parse(readFile(previous) + "]").size(), 2u);
    trace->append(R"({"name":"whole"})");
    trace->flush();
    trace->append(R"({"name":"does not fit any more, since the file may not grow to this size"})");
    rlimit unlimited{};
    ::getrlimit(RLIMIT_FSIZE, &unlimited);
    const rlimit full{readFile(path).size() + 20, unlimited.rlim_max};
    ::signal(SIGXFSZ, SIG_IGN);
    ::setrlimit(RLIMIT_FSIZE, &full);
    EXPECT_THAT([&] { trace->flush(); },
                testing::ThrowsMessage<std::system_error>(HasSubstr(path + ": File too large")));
    ::setrlimit(RLIMIT_FSIZE, &unlimited);
    EXPECT_EQ(json::parse(readFile(path) + "]").size(), 1u);
}

// The whole profiler, as a viewer gets to see it. It has a fixed path, so this needs a /run of its own.
TEST(Profiler, RecordsBalancedEventsOfEveryThreadAndAllSources) {
    if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("tmpfs", "/run", "tmpfs", 0, nullptr) != 0) {
        GTEST_SKIP() << "no private /run without the right to mount";
    }
    constexpr int THREADS = 3;
    constexpr int ROUNDS = 2000;
    KxCProfiler& profiler = KxCProfiler::getInstance();
    profiler.emit(0, KxCProfiler::ENTER, 0);  // closed: nothing happens
    ASSERT_TRUE(profiler.open("KxTestSource", 90));
    EXPECT_TRUE(profiler.isActive());
    const std::uint32_t outer = profiler.registerEvent("Outer \"quoted\"");
    const std::uint32_t inner = profiler.registerEvent("Inner");
    onThreads(THREADS, [&](int) {
        ::pthread_setname_np(::pthread_self(), "kx-named");
        for (int i = 0; i < ROUNDS; ++i) {
            profiler.emit(outer, KxCProfiler::ENTER, 7);
            profiler.emit(inner, KxCProfiler::ENTER, 8);
            profiler.emit(inner, KxCProfiler::EXIT, 8);
            profiler.emit(outer, KxCProfiler::EXIT, 7);
        }
    });
    EXPECT_TRUE(
        waitFor([] { return readFile("/run/KxContainerRTE.trace.json").find("\"memory\"") != std::string::npos; }));
    profiler.close();
    EXPECT_FALSE(profiler.isActive());

    std::map<int, std::vector<std::string>> open;
    std::set<std::string> categories;
    int entered = 0;
    int named = 0;
    const json events = json::parse(readFile("/run/KxContainerRTE.trace.json"));
    EXPECT_EQ(events[0]["args"]["name"], "KxTestSource");
    for (const json& event : events) {
        const std::string phase = event["ph"];
        categories.insert(event.value("cat", ""));
        named += event["name"] == "thread_name" && event["args"]["name"] == "kx-named" ? 1 : 0;
        if (phase == "B") {
            open[event["tid"]].push_back(event["name"]);
            ++entered;
        } else if (phase == "E") {
            ASSERT_FALSE(open[event["tid"]].empty());
            EXPECT_EQ(open[event["tid"]].back(), event["name"]);
            open[event["tid"]].pop_back();
        }
    }
    EXPECT_EQ(entered, THREADS * ROUNDS * 2);
    EXPECT_EQ(named, THREADS);
    EXPECT_EQ(open.size(), static_cast<std::size_t>(THREADS));
    EXPECT_THAT(categories, testing::IsSupersetOf({"application", "kernel", "memory"}));
}

}  // namespace

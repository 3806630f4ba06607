// A log for who comes back to it: what Podman says of it, places in it, and following it over runs of the container.
#include "platform/container_runtime/logs/log_entries.h"

#include <atomic>
#include <cstdio>

#include "KxJson.h"
#include "platform/container_runtime/logs/log_cursor.h"
#include "platform/container_runtime/logs/watch/log_watch.h"
#include "podman_double.h"
#include "tests/support.h"

using namespace KxNTests;
using namespace KxNContainer;
using KxNJson::json;

namespace {

const std::string CONTAINER(64, 'e');

TEST(LogCursor, OnlyWhatWasGivenIsTaken) {
    for (const std::string good : {"f...", "j.c3.e29d.s=1;i=2:3_4~5-6", "n...", "f..f09f98.9"}) {
        const auto cursor = LogCursor::parse(good);
        ASSERT_TRUE(cursor) << good;
        EXPECT_EQ(cursor->format(), good);
    }
    EXPECT_EQ(LogCursor::parse("f.c3..9")->incomplete[0], "\xC3");
    EXPECT_EQ(LogCursor::parse("f.." + std::string("c3.") + std::string(494, '9'))->place.size(), 494u);
    for (const std::string& bad :
         {""s, "f"s, "f.."s, "f...."s, "x..."s, "ff..."s, "f.c..9"s, "f.cg..9"s, "f.gc..9"s, "f.41..9"s, "f.c3a9..9"s,
          "f.ff..9"s, "f...a/b"s, "f...a b"s, "f.." + std::string("c3.") + std::string(495, '9')}) {
        EXPECT_FALSE(LogCursor::parse(bad)) << bad;
    }
}

TEST(LogTime, IsReadToTheNanosecondWhereANumberOfThemTellsIt) {
    const std::pair<const char*, const char*> rows[] = {
        {"2026-11-24T08:14:01.775685414+00:00", "2026-11-24T08:14:01.775685414Z"},
        {"1970-01-01T00:00:00.0000000019Z", "1970-01-01T00:00:00.000000001Z"},
        {"2262-04-11T23:47:15.9Z", "2262-04-11T23:47:15.900000000Z"},
    };
    for (const auto& [text, moment] : rows) {
        ASSERT_TRUE(parseLogTime(text)) << text;
        EXPECT_EQ(formatLogTime(*parseLogTime(text)), moment);
    }
    for (const char* bad : {"1969-12-31T23:59:59Z", "2262-04-11T23:47:16Z", "9999-12-31T00:00:00Z", "yesterday"}) {
        EXPECT_FALSE(parseLogTime(bad)) << bad;
    }
    EXPECT_EQ(toLogTime(-5), -5'000'000'000);
    EXPECT_EQ(toLogTime(INT64_MAX), 9'223'372'036'000'000'000);
    EXPECT_EQ(toLogTime(INT64_MIN), -9'223'372'036'000'000'000);
}

json inspectionOf(const char* status, const std::string& path, int exitCode = 0) {
    return {{"Id", CONTAINER},
            {"State", {{"Status", status}, {"ExitCode", exitCode}, {"Pid", 1}}},
            {"HostConfig", {{"LogConfig", {{"Type", "k8s-file"}, {"Path", path}}}}}};
}

TEST(ContainerLog, IsWhatPodmanSaysOfIt) {
    using Driver = ContainerLog::Driver;
    json whole = inspectionOf("exited", "/a", 7);
    auto log = ContainerLog::parse(whole.dump());
    ASSERT_TRUE(log);
    EXPECT_EQ(log->id + log->path + log->driverName, CONTAINER + "/a" + "k8s-file");
    EXPECT_TRUE(log->driver == Driver::file && log->hasStarted && !log->isRunning && !log->hasTerminal);
    EXPECT_EQ(log->exitCode * 10 + log->process, 71);
    whole["LogPath"] = "/b";
    whole["State"] = {{"Running", true}, {"Pid", "x"}};
    whole["Config"] = {{"Tty", true}};
    whole["HostConfig"]["LogConfig"]["Type"] = "journald";
    log = ContainerLog::parse(whole.dump());
    EXPECT_TRUE(log->path == "/b" && log->isRunning && log->hasTerminal && log->driver == Driver::journal);
    EXPECT_EQ(log->process, 0);
    for (const std::string status : {"running", "paused", "stopping", "created", "configured", "initialized"}) {
        whole = inspectionOf(status.c_str(), "");
        whole["HostConfig"]["LogConfig"]["Type"] = status == "running" ? "json-file" : "none";
        log = ContainerLog::parse(whole.dump());
        EXPECT_EQ(log->isRunning, status == "running" || status == "paused" || status == "stopping") << status;
        EXPECT_EQ(log->hasStarted, log->isRunning) << status;
        EXPECT_EQ(log->driver, status == "running" ? Driver::file : Driver::other);
    }
    for (const std::string& nothing : {""s, "[]"s, "{}"s, R"({"Id":7})"s, R"({"Id":")" + CONTAINER + "e\"}",
                                       R"({"Id":")" + std::string(64, 'E') + "\"}"}) {
        EXPECT_FALSE(ContainerLog::parse(nothing)) << nothing;
    }
}

TEST(ContainerLog, AQueryThatIsNotUnderstoodIsLeftToPodman) {
    const auto range = parseLogQuery("follow=true&stdout=true&stderr=false&timestamps=true&tail=7&since=5&until=0");
    ASSERT_TRUE(range);
    EXPECT_TRUE(range->wantsOutput[0] && !range->wantsOutput[1] && range->hasTimestamps && !range->until);
    EXPECT_EQ(range->tail, 7u);
    EXPECT_EQ(range->since, 5'000'000'000);
    EXPECT_EQ(parseLogQuery("follow=true&until=6")->until, 6'000'000'000);
    EXPECT_TRUE(parseLogQuery("follow=true&stderr=true")->wantsOutput[1]);
    for (const char* all : {"", "&tail=all", "&tail=", "&tail=99999999999999999999"}) {
        EXPECT_EQ(parseLogQuery("follow=true"s + all)->tail, LogRange::ALL) << all;
    }
    for (const char* other : {"", "follow=false", "stdout=true", "follow=true&tail=-1", "follow=true&tail=x",
                              "follow=true&since=x", "follow=true&names=true", "follow=true&&", "follow"}) {
        EXPECT_FALSE(parseLogQuery(other)) << other;
    }
}

/// Writes down what it is given.
class NotingSink final : public KxCLogEntrySink {
public:
    bool takeEntries(const std::vector<KxSLogEntry>& entries, const std::string& cursor) override {
        std::string joined;
        for (const KxSLogEntry& entry : entries) {
            joined += (entry.isError ? "err " : "out ") + std::string(entry.text);
        }
        return note(joined, cursor);
    }
    bool takeGap(const std::optional<std::uint64_t>& bytes, const std::string& reason,
                 const std::string& cursor) override {
        return note("[" + (bytes ? std::to_string(*bytes) + " " : "") + reason + "]", cursor);
    }
    bool takeState(State state, std::int32_t code) override {
        constexpr const char* names[] = {"running", "exited", "removed"};
        return note("["s + names[state] + " " + std::to_string(code) + "]", cursorSoFar());
    }
    bool becomes(const std::string& expected) {
        return waitFor([&] { return noted() == expected; });
    }
    std::string noted() const {
        const std::lock_guard lock(mutex);
        return text;
    }
    std::string cursorSoFar() const {
        const std::lock_guard lock(mutex);
        return last;
    }
    std::atomic<bool> goesOn{true};

private:
    bool note(const std::string& more, const std::string& cursor) {
        const std::lock_guard lock(mutex);
        text += more;
        last = cursor;
        return goesOn;
    }

    mutable std::mutex mutex;
    std::string text;
    std::string last;
};

class LogEntriesTest : public testing::Test {
protected:
    void podmanSays(int status, const json& answer) {
        const std::lock_guard lock(mutex);
        podmanStatus = status;
        podmanAnswer = answer.dump();
    }

    void append(const std::string& words, const std::string& text) {
        std::ofstream(path, std::ios::app | std::ios::binary)
            << "2026-11-24T08:14:01.775685414+00:00 " + words + " " + text + "\n";
    }

    /// What conmon(8) looks like while it runs; it ends with its input.
    std::FILE* startWriter(const std::string& session) {
        const std::string command =
            "exec " + directory.path("conmon") + " -c " + CONTAINER + " -u " + session + " --exit-dir " + exits;
        return ::popen(command.c_str(), "we");
    }

    PodmanReply follow(KxCLogEntrySink& sink, const KxSLogBegin& begin = {}) {
        return followEntries({client, watch}, "web", begin, sink, ending);
    }

    const TemporaryDirectory directory;
    const std::string path = directory.path("ctr.log");
    const std::string exits = directory.path("exits");
    std::mutex mutex;
    int podmanStatus = 200;
    std::string podmanAnswer;
    PodmanDouble podman{"", [this](PodmanDouble::Peer& peer) {
                            while (!peer.readHeader().empty()) {
                                const std::lock_guard lock(mutex);
                                peer.answer(podmanStatus, podmanAnswer);
                            }
                        }};
    PodmanClient client{podman.address()};
    LogWatch watch;
    KxNNet::Cancellation ending;
};

TEST_F(LogEntriesTest, GoOnOverRunsUntilTheContainerIsRemoved) {
    writeFile(directory.path("conmon"), "#!/bin/sh\nread line\n");
    std::filesystem::permissions(directory.path("conmon"), std::filesystem::perms::owner_all);
    std::filesystem::create_directories(exits);
    std::FILE* const session = startWriter("another");
    std::FILE* writer = startWriter(CONTAINER);
    writeFile(path, "");
    append("stdout F", "old");
    append("stdout F", "a");
    append("stderr P", "e\xC3");
    podmanSays(200, inspectionOf("running", path));
    NotingSink sink;
    PodmanReply reply;
    std::thread follower([&] { reply = follow(sink, {1, {}, {}}); });
    std::string expected = "[running 0]out a\nerr e";
    EXPECT_TRUE(sink.becomes(expected)) << sink.noted();
    const std::string cursor = sink.cursorSoFar();
    append("stderr F", "\xA9");
    EXPECT_TRUE(sink.becomes(expected += "err é\n")) << sink.noted();

    append("stdout F", "end");
    podmanSays(200, inspectionOf("exited", path, 3));
    writeFile(exits + "/new", "3");
    std::filesystem::rename(exits + "/new", exits + "/" + CONTAINER);
    EXPECT_TRUE(sink.becomes(expected += "out end\n[exited 3]")) << sink.noted();
    ::pclose(writer);
    std::filesystem::remove(exits + "/" + CONTAINER);  // as Podman does
    writer = startWriter(CONTAINER);
    podmanSays(200, inspectionOf("running", path));
    append("stdout F", "again");
    EXPECT_TRUE(waitFor([&] { return sink.noted().ends_with("again\n") || sink.noted().ends_with("[running 0]"); }));
    EXPECT_TRUE(waitFor([&] { return sink.noted().size() == expected.size() + 21; })) << sink.noted();
    expected = sink.noted();
    podmanSays(200, inspectionOf("exited", path, 137));
    ::pclose(writer);  // killed: nobody wrote how the container ended
    EXPECT_TRUE(sink.becomes(expected += "[exited 137]")) << sink.noted();
    podmanSays(404, {});
    append("stdout P", "last");
    EXPECT_TRUE(sink.becomes(expected += "out last[removed 0]")) << sink.noted();
    follower.join();
    EXPECT_EQ(reply.status, 200);
    ::pclose(session);

    podmanSays(200, inspectionOf("exited", path, 3));
    NotingSink later;
    std::thread again([&] { follow(later, {0, {}, cursor}); });
    EXPECT_TRUE(later.becomes("[exited 3]err é\nout end\nout again\nout last")) << later.noted();
    ending.cancel();
    again.join();
}

TEST_F(LogEntriesTest, WhatStandsInTheWayIsTold) {
    NotingSink sink;
    podmanSays(404, {{"message", "none"}});
    EXPECT_EQ(follow(sink).status, 404);
    podmanSays(200, json::object());
    EXPECT_EQ(follow(sink).body, "Podman's answer says nothing of a container");
    podmanSays(200, inspectionOf("exited", path));
    EXPECT_EQ(follow(sink, {{}, {}, "x"}).status, 400);
    EXPECT_EQ(sink.noted(), "");

    const std::tuple<const char*, std::string, std::string> rows[] = {
        {"none", "", "[The log driver 'none': Operation not supported]"},
        {"k8s-file", "", "[Cannot open '" + path + "': No such file or directory]"},
        {"k8s-file", "j...s=1", "[The container's log is kept elsewhere now]out a\n"}};
    for (const auto& [driver, cursor, text] : rows) {
        json inspection = inspectionOf("exited", path);
        inspection["HostConfig"]["LogConfig"]["Type"] = driver;
        podmanSays(200, inspection);
        if (!cursor.empty()) {
            append("stdout F", "a");
        }
        NotingSink told;
        std::thread follower([&] { follow(told, {{}, {}, cursor}); });
        EXPECT_TRUE(told.becomes("[exited 0]" + text)) << told.noted();
        told.goesOn = false;
        podmanSays(200, inspectionOf("exited", path, 9));
        follower.join();
        EXPECT_EQ(told.noted(), "[exited 0]" + text + "[exited 9]") << "told once";
    }
    podmanSays(200, inspectionOf("created", path));
    std::ofstream(path, std::ios::app | std::ios::binary) << std::string(5000, '\0');  // as a power cut leaves it
    append("stdout F", "b");
    NotingSink early;
    std::thread follower([&] { follow(early); });
    EXPECT_TRUE(early.becomes("[exited 0]")) << early.noted();
    podmanSays(200, inspectionOf("exited", path, 1));
    EXPECT_TRUE(early.becomes("[exited 0][exited 1]out a\n[5000 The log was cut short]out b\n")) << early.noted();
    ending.cancel();
    follower.join();
}

}  // namespace

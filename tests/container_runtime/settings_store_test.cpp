#include "platform/container_runtime/stores/settings_store.h"

#include "log_recorder.h"
#include "tests/support.h"

using namespace KxNContainer;
using namespace KxNTests;

namespace {

constexpr int ALL_CORES = 7;

std::string describe(const SettingsStore& store) {
    return std::to_string(store.userSettings().tcpPort) + " " + std::to_string(store.userSettings().coresNum) + " " +
           (store.isEnabled() ? "enabled" : "disabled");
}

/// An object of so many levels.
std::string nested(std::size_t levels) {
    return R"({"tcp_port": 1, "a": )" + std::string(levels - 1, '[') + std::string(levels - 1, ']') + "}";
}

TEST(SettingsStore, FileIsReadAsFarAsItGoesAndNeverLost) {
    const std::tuple<std::string, const char*, std::size_t, bool> cases[] = {
        {R"({"tcp_port": 1, "cores_num": -2, "enabled": false})", "1 -2 disabled", 0, false},
        {"{}", "2376 7 enabled", 0, false},
        {R"({"tcp_port": "1", "cores_num": 1.0, "enabled": 0})", "2376 7 enabled", 3, false},
        {R"({"tcp_port": null, "cores_num": 2, "enabled": false})", "2376 2 disabled", 1, false},
        {R"({"tcp_port": 2147483648, "cores_num": -2147483649})", "2376 7 enabled", 2, false},
        {R"({"tcp_port": 18446744073709551615})", "2376 7 enabled", 1, false},
        {R"({"tcp_port": 2147483647, "cores_num": -2147483648})", "2147483647 -2147483648 enabled", 0, false},
        {R"({"tcp_port": 1, "enab)", "2376 7 enabled", 1, true},
        {"[1]", "2376 7 enabled", 1, true},
        {R"({"tcp_port": 1} x)", "2376 7 enabled", 1, true},
        {"{\"a\": \"\xff\"}", "2376 7 enabled", 1, true},
        {nested(32), "1 7 enabled", 0, false},
        {nested(33), "2376 7 enabled", 1, true},
        {R"({"a": ")" + std::string(1 << 20, 'x') + R"("})", "2376 7 enabled", 1, true}};
    for (const auto& [text, values, errorLines, isSetAside] : cases) {
        SCOPED_TRACE(text.substr(0, 100));
        const TemporaryDirectory directory;
        const std::string path = directory.path("settings.json");
        writeFile(path, text);
        takeLogLines();
        const SettingsStore store(path, ALL_CORES);
        EXPECT_EQ(describe(store), values);
        const auto lines = takeLogLines();
        EXPECT_EQ(lines.size(), errorLines);
        EXPECT_THAT(lines, Each(Pair(4, HasSubstr(path))));
        EXPECT_EQ(readFile(isSetAside ? path + ".broken-1" : path), text);
        EXPECT_EQ(directory.fileNames().size(), 1U);
    }
}

TEST(SettingsStore, RewriteKeepsEditsByHand) {
    const TemporaryDirectory directory;
    const std::string path = directory.path("settings.json");
    SettingsStore store(path, ALL_CORES);
    writeFile(path, R"({"hand": 1, "enabled": false})");
    ASSERT_TRUE(store.setUserSettings({80, 2}));
    EXPECT_EQ(KxNJson::json::parse(readFile(path)).dump(), R"({"hand":1,"enabled":false,"tcp_port":80,"cores_num":2})");
    EXPECT_EQ(describe(SettingsStore(path, ALL_CORES)), "80 2 disabled");
}

TEST(SettingsStore, BrokenOrLostFileDoesNotUndoWhatTheProcessKnows) {
    const TemporaryDirectory directory;
    const std::string path = directory.path("made/on/demand/settings.json");
    SettingsStore store(path, ALL_CORES);
    ASSERT_TRUE(store.setUserSettings({80, 2}));
    writeFile(path, "rubbish");
    ASSERT_TRUE(store.setEnabled(false));
    EXPECT_EQ(describe(SettingsStore(path, ALL_CORES)), "80 2 disabled");
    std::filesystem::remove(path);
    ASSERT_TRUE(store.setEnabled(true));
    EXPECT_EQ(describe(SettingsStore(path, ALL_CORES)), "80 2 enabled");
    writeFile(path, "more rubbish");
    store.reload();
    EXPECT_EQ(readFile(path + ".broken-1") + readFile(path + ".broken-2"), "rubbishmore rubbish");
}

TEST(SettingsStore, WhatCannotBeReadOrWrittenChangesNothing) {
    const TemporaryDirectory directory;
    const std::string path = directory.path("settings.json");
    SettingsStore store(path, ALL_CORES);
    ASSERT_TRUE(store.setUserSettings({80, 2}));
    std::filesystem::remove(path);
    std::filesystem::create_directories(path + "/inside");
    takeLogLines();
    store.reload();
    EXPECT_FALSE(store.setEnabled(false));
    EXPECT_EQ(describe(store), "80 2 enabled");
    EXPECT_FALSE(SettingsStore("/proc/none/settings.json", ALL_CORES).setEnabled(false));
    const auto lines = takeLogLines();
    EXPECT_THAT(lines, Contains(Pair(4, HasSubstr("Settings were not read: cannot read '" + path))));
    EXPECT_THAT(lines, Contains(Pair(4, HasSubstr("Settings were not written: cannot open directory '/proc/none/'"))));
}

TEST(SettingsStore, ConcurrentChangesOfDifferentValuesAllStay) {
    const TemporaryDirectory directory;
    const std::string path = directory.path("settings.json");
    SettingsStore store(path, ALL_CORES);
    std::thread enabling([&store] {
        for (int round = 0; round < 50; ++round) {
            EXPECT_TRUE(store.setEnabled(round % 2 == 0));
        }
    });
    for (int round = 0; round < 50; ++round) {
        EXPECT_TRUE(store.setUserSettings({round, -round}));
        store.reload();
        EXPECT_EQ(store.userSettings().tcpPort, round);
    }
    enabling.join();
    EXPECT_EQ(describe(store), "49 -49 disabled");
    EXPECT_EQ(describe(SettingsStore(path, ALL_CORES)), "49 -49 disabled");
}

}  // namespace

#include "platform/container_runtime/stores/plugin_config.h"

#include "log_recorder.h"
#include "tests/support.h"

using namespace KxNContainer;
using namespace KxNTests;

namespace {

TEST(PluginFileName, NameAndVersion) {
    const std::tuple<const char*, PluginIdentity> cases[] = {
        {"web_2.1.crp", {"web", "2.1"}}, {"my_web_2.1.crp", {"my_web", "2.1"}},
        {"web.crp", {"web", "1.0"}},     {".crp", {"", "1.0"}},
        {"_2.crp", {"", "2"}},           {"web_.crp", {"web", ""}}};
    for (const auto& [fileName, identity] : cases) {
        EXPECT_EQ(parsePluginFileName(fileName), identity) << fileName;
    }
    for (const char* fileName : {"web.CRP", "web", "crp", "", "web.crp.bak"}) {
        EXPECT_FALSE(parsePluginFileName(fileName)) << fileName;
    }
}

class PluginConfigTest : public testing::Test {
protected:
    void SetUp() override {
        for (const char* name : {"web_2.1.crp", "plain.crp", ".crp", "notes.txt", "off_1.0.crp"}) {
            writeFile(directory.path(name), "12345");
        }
        std::filesystem::create_directory(directory.path("directory_1.crp"));
        std::filesystem::create_symlink("web_2.1.crp", directory.path("link_3.crp"));
        std::filesystem::create_symlink("nowhere", directory.path("dangling_3.crp"));
        takeLogLines();
    }

    const TemporaryDirectory directory;
    const std::string configFile = directory.path("config.json");
    PluginConfig config{directory.path(""), configFile};
};

const char* const CONFIG =
    R"({"owner":"me","deactivated":[7,{"name":"off","version":"1.0","why":"x"},{"name":"gone","version":"9"}],"z":{}})";

TEST_F(PluginConfigTest, ListHoldsFilesOnlyInTheirOrderWithAllKeys) {
    writeFile(configFile, CONFIG);
    KxNJson::json list = config.list();
    for (auto& plugin : list["plugins"]) {
        EXPECT_GT(plugin["modified"], 1500000000);
        plugin["modified"] = 0;
    }
    EXPECT_EQ(
        list.dump(),
        R"({"plugins":[)"
        R"({"name":"","version":"1.0","fileName":".crp","size":5,"modified":0,"isDeactivated":false},)"
        R"({"name":"link","version":"3","fileName":"link_3.crp","size":5,"modified":0,"isDeactivated":false},)"
        R"({"name":"off","version":"1.0","fileName":"off_1.0.crp","size":5,"modified":0,"isDeactivated":true},)"
        R"({"name":"plain","version":"1.0","fileName":"plain.crp","size":5,"modified":0,"isDeactivated":false},)"
        R"({"name":"web","version":"2.1","fileName":"web_2.1.crp","size":5,"modified":0,"isDeactivated":false}]})");
}

TEST_F(PluginConfigTest, CodesOfEveryChange) {
    enum Change { ACTIVATE, DEACTIVATE, DROP };
    // plugin: for a drop the name is the file's
    const std::tuple<Change, PluginIdentity, int> cases[] = {
        {DEACTIVATE, {"web", "2.1"}, 0},     {DEACTIVATE, {"plain", "1.0"}, 0},
        {DEACTIVATE, {"off", "1.0"}, 1},     {DEACTIVATE, {"", "1.0"}, 2},
        {DEACTIVATE, {"web", ""}, 2},        {DEACTIVATE, {"web", "2.2"}, 3},
        {DEACTIVATE, {"gone", "9"}, 3},      {DEACTIVATE, {"notes.txt", "1.0"}, 3},
        {DEACTIVATE, {"directory", "1"}, 3}, {DEACTIVATE, {"dangling", "3"}, 3},
        {ACTIVATE, {"off", "1.0"}, 0},       {ACTIVATE, {"gone", "9"}, 0},
        {ACTIVATE, {"web", "2.1"}, 1},       {ACTIVATE, {"", "1"}, 2},
        {ACTIVATE, {"off", ""}, 2},          {ACTIVATE, {"never", "1"}, 3},
        {DROP, {"off_1.0.crp", ""}, 0},      {DROP, {"gone_9.crp", ""}, 0},
        {DROP, {"web_2.1.crp", ""}, 1},      {DROP, {"", ""}, 2},
        {DROP, {"never_1.crp", ""}, 3},      {DROP, {"../gone_9.crp", ""}, 3},
        {DROP, {"off_1.0", ""}, 3}};
    for (const auto& [change, plugin, expected] : cases) {
        writeFile(configFile, CONFIG);
        const int code = change == ACTIVATE     ? config.activate(plugin)
                         : change == DEACTIVATE ? config.deactivate(plugin)
                                                : config.dropEntry(plugin.name);
        EXPECT_EQ(code, expected) << change << " " << plugin.name << " " << plugin.version;
        EXPECT_EQ(readFile(configFile) == CONFIG, code != 0) << plugin.name;
    }
}

TEST_F(PluginConfigTest, NameThatJsonCannotHoldIsNotWritten) {
    writeFile(directory.path("\xff_1.crp"), "x");
    EXPECT_EQ(config.deactivate({"\xff", "1"}), 4);
    EXPECT_FALSE(std::filesystem::exists(configFile));
    EXPECT_THAT(takeLogLines(), Contains(Pair(4, HasSubstr("not written"))));
}

TEST_F(PluginConfigTest, ScanReportsFilesThatCannotBeToldApart) {
    writeFile(directory.path("plain_1.0.crp"), "x");
    config.scanDirectory();
    EXPECT_THAT(takeLogLines(), Contains(Pair(3, AllOf(HasSubstr("'plain.crp'"), HasSubstr("'plain_1.0.crp'")))));
}

TEST_F(PluginConfigTest, ChangesKeepWhatIsNotOurs) {
    writeFile(configFile, CONFIG);
    ASSERT_EQ(config.activate({"gone", "9"}), 0);
    ASSERT_EQ(config.deactivate({"web", "2.1"}), 0);
    EXPECT_EQ(
        KxNJson::json::parse(readFile(configFile)).dump(),
        R"({"owner":"me","deactivated":[7,{"name":"off","version":"1.0","why":"x"},{"name":"web","version":"2.1"}],"z":{}})");
}

}  // namespace

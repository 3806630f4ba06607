

#include "platform/custom_config/config_file.h"
#include "platform/custom_config/config_schema.h"
#include "tests/support.h"

using namespace KxNTests;

namespace {

using KxNConfigFile::Config;

std::string valueOf(const Config& config, const char* section, const char* key) {
    const auto found = config.values.find({section, key});
    return found == config.values.end() ? "(none)" : found->second;
}

TEST(ConfigFile, TakesEveryFormThatAnEditorLeaves) {
    const Config config = KxNConfigFile::parse(
        "\xEF\xBB\xBF# a comment\r\n"
        "  [ WebApi ]  \r\n"
        "\tPort\t=  0  \r\n"
        "; another\n"
        "#Address = 10.0.0.1\n"
        "Address=::1\n"
        "\n"
        "[Log]\n"
        "Level = 6\n"
        "[WebApi]\n"
        "TokenFile = /tmp/a = b # c",
        "f");
    EXPECT_THAT(config.problems, IsEmpty());
    EXPECT_EQ(valueOf(config, "WebApi", "Port"), "0");
    EXPECT_EQ(valueOf(config, "WebApi", "Address"), "::1");
    EXPECT_EQ(valueOf(config, "Log", "Level"), "6");
    EXPECT_EQ(valueOf(config, "WebApi", "TokenFile"), "/tmp/a = b # c");
    EXPECT_EQ(config.values.size(), 4u);
}

TEST(ConfigFile, EachErrorNamesFileLineAndKeyAndStopsOnlyWhoNeedsIt) {
    const struct {
        const char* text;
        const char* section;  // whose part must not start, "" for all
        int line;
        std::vector<const char*> named;
    } rows[] = {
        {"[WebApi]\nPort = 65536", "WebApi", 2, {"Port", "[WebApi]", "\"65536\"", "0 to 65535"}},
        {"[WebApi]\nPort = -1", "WebApi", 2, {"Port"}},
        {"[WebApi]\nPort = 80 # http", "WebApi", 2, {"Port", "80 # http"}},
        {"[WebApi]\nPort = 8e3", "WebApi", 2, {"Port"}},
        {"[WebApi]\nPort =", "WebApi", 2, {"Port", "\"\""}},
        {"[WebApi]\nMaxConnections = 0", "WebApi", 2, {"MaxConnections"}},
        {"[WebApi]\nMaxUploadBytes = 99999999999999999999", "WebApi", 2, {"MaxUploadBytes", "from 0 on"}},
        {"[WebApi]\nAddress = localhost", "WebApi", 2, {"Address", "\"localhost\""}},
        {"[WebApi]\nAuth = None", "WebApi", 2, {"Auth", "required or none"}},
        {"[WebApi]\nTokenFile = api-token", "WebApi", 2, {"TokenFile", "absolute path"}},
        {"[WebApi]\nTokenFile = /mnt/", "WebApi", 2, {"TokenFile"}},
        {"[WebApi]\n\n\nport = 1", "WebApi", 4, {"port", "[WebApi]"}},
        {"[WebApi]\nPort = 1\nPort = 2", "WebApi", 3, {"Port", "second time"}},
        {"[WebApi]\nPort", "WebApi", 2, {"\"Port\""}},
        {"[WebApi]\n= 5", "WebApi", 2, {"\"= 5\""}},
        {"[WebApi]\nPort = 1\x01", "WebApi", 2, {"control character"}},
        {"[Log]\nLevel = 7", "Log", 2, {"Level", "0 to 6"}},
        {"[ContainerRuntime]\nPodmanTransport = ssh", "ContainerRuntime", 2, {"PodmanTransport", "unix or tcp"}},
        {"[Log]\nPort = 1", "Log", 2, {"Port", "[Log]"}},
        {"Port = 1", "", 1, {"Port"}},
        {"[Web]", "", 1, {"[Web]"}},
        {"[WebApi", "", 1, {"[WebApi"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        const Config config = KxNConfigFile::parse(row.text, "f.conf");
        ASSERT_EQ(config.problems.size(), 1u);
        EXPECT_EQ(config.problems[0].section, row.section);
        EXPECT_TRUE(config.problems[0].isBlocking);
        EXPECT_THAT(config.problems[0].text, HasSubstr("f.conf:" + std::to_string(row.line) + ":"));
        for (const char* part : row.named) {
            EXPECT_THAT(config.problems[0].text, HasSubstr(part));
        }
    }
    EXPECT_EQ(valueOf(KxNConfigFile::parse("[Log]\nLevel = 1\nLevel = 3\n", "f"), "Log", "Level"), "1");
}

TEST(ConfigFile, KeysOfAnUnknownSectionAreNotTakenForThoseOfTheOneBefore) {
    const Config config = KxNConfigFile::parse("[WebApi]\n[Typo]\nPort = 1\n", "f");
    EXPECT_EQ(valueOf(config, "WebApi", "Port"), "(none)");
    EXPECT_EQ(config.problems.size(), 2u);
}

TEST(ConfigFile, BadProfilingValuesAreReportedAndLeaveTheSectionUsable) {
    for (const char* value : {"yes", "true", "10", "11", ""}) {
        SCOPED_TRACE(value);
        const Config config = KxNConfigFile::parse("[ContainerRuntime]\nProfiling = " + std::string(value), "f");
        ASSERT_EQ(config.problems.size(), 1u);
        EXPECT_THAT(config.problems[0].text, HasSubstr("Profiling"));
        EXPECT_FALSE(config.problems[0].isBlocking);
        EXPECT_EQ(valueOf(config, "ContainerRuntime", "Profiling"), value);
    }
}

TEST(ConfigFile, AFileThatCannotBeReadStopsEverythingAndOneThatIsMissingNothing) {
    EXPECT_THAT(KxNConfigFile::read("/nonexistent/f.conf").problems, IsEmpty());
    const TemporaryDirectory directory;
    const std::string tooLarge = directory.path("large.conf");
    writeFile(tooLarge, std::string((1 << 20) + 1, '\n'));
    for (const std::string& path : {"/tmp"s, tooLarge}) {
        const Config config = KxNConfigFile::read(path);
        ASSERT_EQ(config.problems.size(), 1u);
        EXPECT_EQ(config.problems[0].section, "");
        EXPECT_THAT(config.problems[0].text, HasSubstr(path));
    }
}

TEST(ConfigSchema, TheDefaultFileIsCleanAsItIsAndWithEveryKeySwitchedOn) {
    std::string text = KxNConfigSchema::renderDefaultFile();
    EXPECT_THAT(KxNConfigFile::parse(text, "f").values, IsEmpty());
    for (const KxNConfigSchema::Key& key : KxNConfigSchema::getKeys()) {
        const std::string line = std::string("#") + key.name + " = ";
        const std::size_t at = text.find(line);
        ASSERT_NE(at, std::string::npos) << key.name;
        text.erase(at, 1);
    }
    const Config config = KxNConfigFile::parse(text, "f");
    EXPECT_THAT(config.problems, IsEmpty());
    EXPECT_EQ(config.values.size(), KxNConfigSchema::getKeys().size());
}

}  // namespace

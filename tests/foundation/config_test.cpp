#include "KxCustomConfig.h"
#include "platform/custom_config/config_file.h"
#include "platform/custom_config/config_schema.h"
#include "tests/support.h"

using namespace KxNTests;

namespace {

using KxNConfigFile::Config;
using Values = decltype(Config::values);

TEST(ConfigFile, TakesEveryFormThatAnEditorLeaves) {
    const Config config = KxNConfigFile::parse(
        "\xEF\xBB\xBF# a comment\r\n  [ WebApi ]  \r\n\tPort\t=  0  \r\n; another\n#Address = 10.0.0.1\nAddress=::1\n\n"
        "[Log]\nLevel = 6\n[WebApi]\nTokenFile = /tmp/a\t= b # c",
        "f");
    EXPECT_THAT(config.problems, IsEmpty());
    EXPECT_EQ(config.values, (Values{{{"WebApi", "Port"}, "0"},
                                     {{"WebApi", "Address"}, "::1"},
                                     {{"Log", "Level"}, "6"},
                                     {{"WebApi", "TokenFile"}, "/tmp/a\t= b # c"}}));
}

TEST(ConfigFile, EachErrorNamesFileLineAndKeyAndStopsOnlyWhoNeedsIt) {
    const auto bad = [](const std::string& key, const std::string& section, const std::string& value,
                        const std::string& must) {
        return "2: the key " + key + " in section [" + section + "] has the bad value \"" + value + "\", it must be " +
               must;
    };
    const std::string port = "a number from 0 to 65535";
    const std::tuple<const char*, const char*, std::string> rows[] = {
        {"[WebApi]\nPort = 65536", "WebApi", bad("Port", "WebApi", "65536", port)},
        {"[WebApi]\nPort = -1", "WebApi", bad("Port", "WebApi", "-1", port)},
        {"[WebApi]\nPort = 80 # http", "WebApi", bad("Port", "WebApi", "80 # http", port)},
        {"[WebApi]\nPort =", "WebApi", bad("Port", "WebApi", "", port)},
        {"[WebApi]\nMaxConnections = 0", "WebApi", bad("MaxConnections", "WebApi", "0", "a number from 1 to 1000000")},
        {"[WebApi]\nMaxUploadBytes = 99999999999999999999", "WebApi",
         bad("MaxUploadBytes", "WebApi", "99999999999999999999", "a number from 0 on")},
        {"[WebApi]\nAddress = localhost", "WebApi", bad("Address", "WebApi", "localhost", "an IPv4 or IPv6 address")},
        {"[WebApi]\nAuth = None", "WebApi", bad("Auth", "WebApi", "None", "required or none")},
        {"[WebApi]\nTokenFile = api-token", "WebApi", bad("TokenFile", "WebApi", "api-token", "an absolute path")},
        {"[WebApi]\nTokenFile = /mnt/", "WebApi", bad("TokenFile", "WebApi", "/mnt/", "an absolute path")},
        {"[WebApi]\nTokenFile =", "WebApi", bad("TokenFile", "WebApi", "", "an absolute path")},
        {"[Log]\nLevel = 7", "Log", bad("Level", "Log", "7", "a number from 0 to 6")},
        {"[ContainerRuntime]\nPodmanTransport = ssh", "ContainerRuntime",
         bad("PodmanTransport", "ContainerRuntime", "ssh", "unix or tcp")},
        {"[WebApi]\n\n\nport = 1", "WebApi", "4: unknown key port in section [WebApi]"},
        {"[Log]\nPort = 1", "Log", "2: unknown key Port in section [Log]"},
        {"[WebApi]\nPort = 1\nPort = 2", "WebApi", "3: the key Port in section [WebApi] is given a second time"},
        {"[WebApi]\nPort", "WebApi", "2: \"Port\" is neither \"[section]\" nor \"key = value\""},
        {"[WebApi]\n= 5", "WebApi", "2: \"= 5\" is neither \"[section]\" nor \"key = value\""},
        {"[WebApi]\nPort = 1\x7f", "WebApi", "2: the line \"Port = 1\x7f\" holds a control character"},
        {"[WebApi]\nPort = \x1fz", "WebApi", "2: the line \"Port = \x1fz\" holds a control character"},
        {"Port = 1", "", "1: the key Port stands in no known section"},
        {"[WebApi]\n[Web]", "", "2: unknown section [Web]"},
        {"[WebApi", "", "1: the section \"[WebApi\" has no closing bracket"}};
    for (const auto& [text, section, problem] : rows) {
        SCOPED_TRACE(text);
        const Config config = KxNConfigFile::parse(text, "f.conf");
        ASSERT_EQ(config.problems.size(), 1u);
        EXPECT_EQ(config.problems[0].section, section);
        EXPECT_TRUE(config.problems[0].isBlocking);
        EXPECT_EQ(config.problems[0].text, "f.conf:" + problem);
    }
    EXPECT_EQ(KxNConfigFile::parse("[Log]\nLevel = 1\nLevel = 3\n", "f").values, (Values{{{"Log", "Level"}, "1"}}));
    const Config unknown = KxNConfigFile::parse("[WebApi]\n[Typo]\nPort = 1\n", "f");
    EXPECT_THAT(unknown.values, IsEmpty()) << "a key of an unknown section is not one of the section before";
    EXPECT_EQ(unknown.problems.size(), 2u);
}

TEST(ConfigFile, BadProfilingValuesAreReportedAndLeaveTheSectionUsable) {
    for (const std::string value : {"yes", "10", "11", ""}) {
        const Config config = KxNConfigFile::parse("[ContainerRuntime]\nProfiling = " + value, "f");
        ASSERT_EQ(config.problems.size(), 1u) << value;
        EXPECT_THAT(config.problems[0].text, HasSubstr("Profiling"));
        EXPECT_FALSE(config.problems[0].isBlocking);
        EXPECT_EQ(config.values, (Values{{{"ContainerRuntime", "Profiling"}, value}}));
    }
}

TEST(ConfigFile, AFileThatCannotBeReadStopsEverythingAndOneThatIsMissingNothing) {
    EXPECT_THAT(KxNConfigFile::read("/nonexistent/f.conf").problems, IsEmpty());
    const TemporaryDirectory directory;
    const std::string tooLarge = directory.path("large.conf");
    writeFile(tooLarge, std::string(1 << 20, '\n'));
    EXPECT_THAT(KxNConfigFile::read(tooLarge).problems, IsEmpty());
    writeFile(tooLarge, std::string((1 << 20) + 1, '\n'));
    for (const std::string& path : {"/tmp"s, tooLarge}) {
        const Config config = KxNConfigFile::read(path);
        ASSERT_EQ(config.problems.size(), 1u);
        EXPECT_EQ(config.problems[0].section, "");
        EXPECT_TRUE(config.problems[0].isBlocking);
        EXPECT_THAT(config.problems[0].text, HasSubstr(path));
    }
}

TEST(CustomConfig, ReadsTheNamedFileTellsItsErrorsAndKnowsWhoMayStart) {
    const TemporaryDirectory directory;
    const std::string file = directory.path("f.conf");
    writeFile(file, "[Log]\nLevel = 9\n[WebApi]\nPort = 1\n[ContainerRuntime]\nProfiling = 2\n");
    ::setenv("KX_CUSTOM_CONFIG", file.c_str(), 1);
    testing::internal::CaptureStderr();
    const KxCCustomConfig& config = *KxCCustomConfig::getInstance();
    EXPECT_EQ(config.getOption("WebApi", "Port", "8460", true), "1");
    EXPECT_EQ(config.getOption("WebApi", "Auth", "required", false), "required");
    EXPECT_EQ(config.getOption("WebApi", "Address", "::1", true), "::1");
    KxCCustomConfig::getInstance();
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_THAT(log, HasSubstr("ERROR Korvex Container Service: Configuration error: " + file + ":2: the key Level"));
    EXPECT_THAT(log, EndsWith("WARNING Korvex Container Service: " + file +
                              " does not hold the key Address in section [WebApi]; using \"::1\"\n"));
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 3) << "each is told once";
    std::string reason;
    EXPECT_TRUE(config.isUsable("WebApi", &reason) && config.isUsable("ContainerRuntime", nullptr) && reason.empty());
    EXPECT_FALSE(config.isUsable("Log", nullptr));
    EXPECT_FALSE(config.isUsable("Log", &reason));
    EXPECT_THAT(reason, StartsWith(file + ":2: "));
}

// What is shipped to operators says the same as the program does.
TEST(ShippedConfig, HasEveryKeyWithItsDefaultAndIsCleanWithEachSwitchedOn) {
    std::string text = readFile(PACKAGING_DIRECTORY "/kx-container-service.conf");
    EXPECT_THAT(KxNConfigFile::parse(text, "f").values, IsEmpty());
    std::string page = readFile(PACKAGING_DIRECTORY "/kx-container-service.8");
    std::erase(page, '\\');  // before hyphens
    for (const KxNConfigSchema::Key& key : KxNConfigSchema::getKeys()) {
        const std::size_t at = text.find("\n#" + std::string(key.name) + " = " + key.defaultText + "\n");
        ASSERT_NE(at, std::string::npos) << key.name;
        text.erase(at + 1, 1);
        EXPECT_THAT(page, HasSubstr(std::string(".SS [") + key.section + "]\n"));
        EXPECT_THAT(page, HasSubstr(std::string(".BR ") + key.name + " \" = " + key.defaultText + "\"\n"));
    }
    const Config config = KxNConfigFile::parse(text, "f");
    EXPECT_THAT(config.problems, IsEmpty());
    EXPECT_EQ(config.values.size(), KxNConfigSchema::getKeys().size());
}

}  // namespace

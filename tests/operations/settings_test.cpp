#include "tests/operations/Harness.h"

using namespace KxNCre;
using namespace KxNTests;

namespace {

class Settings : public Operations {};

TEST_F(Settings, GetNamesTheState) {
    const std::pair<int, const char*> states[] = {{0, "uninitialized"}, {1, "initialized"}, {2, "started"},
                                                  {3, "stopped"},       {4, "failed"},      {5, "unknown"},
                                                  {-1, "unknown"}};
    world().isEnabled = false;
    for (const auto& [status, state] : states) {
        world().status = status;
        EXPECT_EQ(call(ENDPOINT_GET_SETTINGS),
                  "0: getSettings\nGetContainerServiceUserSettings\nGetMaxAllowedCpuCoreCount\nstatus?\n"
                  R"(json 200 {"tcp_port":2376,"cores_num":2,"max_allowed_cores_num":4,"service_state":")" +
                      std::string(state) + "\"}\n");
    }
}

TEST_F(Settings, PatchChecksInOrderAndKeepsWhatIsNotNamed) {
    const std::string begun = "0: patchSettings\nGetContainerServiceUserSettings\n";
    const std::string bounded = begun + "GetMaxAllowedCpuCoreCount\n";
    const auto saved = [](const std::string& before, const std::string& port, const std::string& cores) {
        const std::string answer = R"({"tcp_port":)" + port + R"(,"cores_num":)" + cores + "}";
        return before + "SetContainerServiceUserSettings " + port + " " + cores + "\n1: Settings updated: " + answer +
               "\njson 200 " + answer + "\n";
    };
    const auto refused = [](const std::string& before, const std::string& detail) {
        return before + "error 400 BadRequest: " + detail + "\n";
    };
    const auto exceeding = [&](const std::string& detail) { return refused(bounded, detail) + "4: " + detail + "\n"; };
    const std::string empty =
        refused(begun, "Empty request body: at least one of 'tcp_port' or 'cores_num' must be specified");
    const auto five = json{{"cores_num", 5}, {"tcp_port", 1}};
    checkBodies(ENDPOINT_PATCH_SETTINGS, {},
                {
                    {std::nullopt, refused("0: patchSettings\n", "Missing request body")},
                    {json{{"port", 1}}, empty},
                    {json(7), empty},
                    {json::array({"tcp_port"}), empty},
                    {json{{"cores_num", "x"}, {"tcp_port", "80"}}, refused(begun, "'tcp_port' must be an integer")},
                    {json{{"tcp_port", 80.0}}, refused(begun, "'tcp_port' must be an integer")},
                    {json{{"cores_num", nullptr}}, refused(begun, "'cores_num' must be an integer")},
                    {five, exceeding("'cores_num' (5) exceeds the maximum allowed CPU core count (4)")},
                    {json{{"cores_num", 3}}, saved(bounded, "2376", "3")},
                    {json{{"cores_num", -1}}, saved(bounded, "2376", "-1")},                // no lower bound
                    {json{{"tcp_port", 70000}, {"other", 1}}, saved(begun, "70000", "2")},  // a port is not checked
                });
    world().maximumCores = 0xFFFFFFFE;
    world().areSettingsWritten = false;
    checkBodies(
        ENDPOINT_PATCH_SETTINGS, {},
        {
            {json{{"cores_num", -1}}, exceeding("'cores_num' (-1) exceeds the maximum allowed CPU core count (-2)")},
            {json{{"tcp_port", 0}}, begun + "SetContainerServiceUserSettings 0 2\n"
                                            "error 500 InternalServerError: Failed to write settings file\n"},
        });
}

TEST_F(Settings, EnableIsReadAndChanged) {
    const std::string begun = "0: patchEnable\n";
    const std::string mustContain = begun + "error 400 BadRequest: Request body must contain 'enabled' (boolean)\n";
    const std::string enabled =
        begun +
        "HasValidUserStorage\nEnableContainerService\nenabled?\n0: Container service enabled\nenabled?\n"
        "TriggerInventoryTreeScan\n";
    const std::string disabling = begun + "HasValidUserStorage\nDisableContainerService\n";
    const json on = {{"enabled", true}};
    const json off = {{"enabled", false}};
    EXPECT_EQ(call(ENDPOINT_GET_ENABLE), "0: getEnable\nenabled?\njson 200 {\"enabled\":true}\n");
    checkBodies(ENDPOINT_PATCH_ENABLE, {},
                {
                    {std::nullopt, mustContain},
                    {json::object(), mustContain},
                    {json::array(), mustContain},
                    {json{{"enabled", 1}}, begun + "error 400 BadRequest: 'enabled' must be a boolean\n"},
                    {off, disabling + "enabled?\n0: Container service disabled\nenabled?\nenabled?\n"
                                      "text 200 {\"enabled\":false}\n"},
                    {on, enabled + "enabled?\ntext 200 {\"enabled\":true}\n"},
                });
    world().isInventoryWritten = false;
    EXPECT_EQ(call(ENDPOINT_PATCH_ENABLE, {}, on),
              enabled + "error 500 InternalServerError: Failed to trigger inventory tree scan\n");
    world().areSettingsWritten = false;
    EXPECT_EQ(call(ENDPOINT_PATCH_ENABLE, {}, off),
              disabling + "error 500 InternalServerError: Failed to write settings file\n");
    world().storageProblem = "/userstorage1 is full";
    EXPECT_EQ(call(ENDPOINT_PATCH_ENABLE, {}, on), begun +
                                                       "HasValidUserStorage\n4: /userstorage1 is full\n"
                                                       "error 500 InternalServerError: /userstorage1 is full\n");
}

}  // namespace

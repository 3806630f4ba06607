#include "tests/operations/Harness.h"

using namespace KxNTests;

class Settings : public Operations {};

TEST_F(Settings, GetNamesTheState) {
    world().isEnabled = false;
    world().status = -1;
    for (const std::string state :
         {"unknown", "uninitialized", "initialized", "started", "stopped", "failed", "unknown"}) {
        check("getSettings", "0: getSettings\nsettings?\nmaximum?\nstatus?\njson 200 ",
              {{"", "",
                R"(^{"tcp_port":2376,"cores_num":2,"max_allowed_cores_num":4,"service_state":")" + state + "\"}"}});
        ++world().status;
    }
}

TEST_F(Settings, PatchChecksInOrderAndKeepsWhatIsNotNamed) {
    const std::string begun = "0: patchSettings\nsettings?\n";
    const auto saved = [](const std::string& port, const std::string& cores) {
        const std::string answer = R"({"tcp_port":)" + port + R"(,"cores_num":)" + cores + "}";
        return "SetSettings " + port + " " + cores + "\n1: Settings updated: " + answer + "\njson 200 " + answer;
    };
    const auto exceeding = [&](const std::string& numbers) {
        const std::string detail = "'cores_num' (" + numbers + ")";
        return "^maximum?\nBadRequest 400: " + detail + "\n4: " + detail;
    };
    const std::string empty =
        "^BadRequest 400: Empty request body: at least one of 'tcp_port' or 'cores_num' must be specified";
    check("patchSettings", begun, {{"", "", "0: patchSettings\nBadRequest 400: Missing request body"}});
    check("patchSettings;body=", begun,
          {
              {R"({"port":1})", "", empty},
              {"7", "", empty},
              {R"(["tcp_port"])", "", empty},
              {R"({"cores_num":"x","tcp_port":"80"})", "", "^BadRequest 400: 'tcp_port' must be an integer"},
              {R"({"tcp_port":80.0})", "", "^BadRequest 400: 'tcp_port' must be an integer"},
              {R"({"cores_num":null})", "", "^BadRequest 400: 'cores_num' must be an integer"},
              {R"({"cores_num":5,"tcp_port":1})", "", exceeding("5) exceeds the maximum allowed CPU core count (4")},
              {R"({"cores_num":4,"tcp_port":1})", "", "^maximum?\n" + saved("1", "4")},
              {R"({"cores_num":-1})", "", "^maximum?\n" + saved("2376", "-1")},    // no lower bound
              {R"({"tcp_port":70000,"other":1})", "", "^" + saved("70000", "2")},  // a port is not checked
          });
    world().maximumCores = 0xFFFFFFFE;
    world().failing = {"SetSettings"};
    check("patchSettings;body=", begun,
          {{R"({"cores_num":-1})", "", exceeding("-1) exceeds the maximum allowed CPU core count (-2")},
           {R"({"tcp_port":0})", "", "^SetSettings 0 2\nInternalServerError 500: Failed to write settings file"}});
}

TEST_F(Settings, EnableIsReadAndChanged) {
    check("getEnable", "", {{"", "", "0: getEnable\nenabled?\njson 200 {\"enabled\":true}"}});
    const std::string enabling =
        "^storage?\nEnable\nenabled?\n0: Container service enabled\nenabled?\nTriggerInventoryTreeScan\n";
    const std::string mustContain = "^BadRequest 400: Request body must contain 'enabled' (boolean)";
    check("patchEnable", "0: patchEnable\n",
          {{"", "", mustContain},
           {";body={}", "", mustContain},
           {";body=[]", "", mustContain},
           {R"(;body={"enabled":1})", "", "^BadRequest 400: 'enabled' must be a boolean"},
           {R"(;body={"enabled":false})", "",
            "^storage?\nDisable\nenabled?\n0: Container service disabled\nenabled?\nenabled?\n"
            "text 200 {\"enabled\":false}"},
           {R"(;body={"enabled":true})", "", enabling + "enabled?\ntext 200 {\"enabled\":true}"}});
    world().failing = {"Disable", "TriggerInventoryTreeScan"};
    check("patchEnable;body=", "0: patchEnable\n",
          {{R"({"enabled":true})", "", enabling + "InternalServerError 500: Failed to trigger inventory tree scan"},
           {R"({"enabled":false})", "", "^storage?\nDisable\nInternalServerError 500: Failed to write settings file"}});
    world().storageProblem = "/userstorage1 is full";
    check("patchEnable;body=", "0: patchEnable\n",
          {{R"({"enabled":true})", "",
            "^storage?\n4: /userstorage1 is full\nInternalServerError 500: /userstorage1 is full"}});
}

#include "tests/operations/Harness.h"

using namespace KxNCre;
using namespace KxNTests;

namespace {

class Containers : public Operations {};

const std::vector<Value> WEB = {name("web")};

TEST_F(Containers, StartMapsPodmanStatus) {
    const std::string asked =
        "\n0: startContainer\n0: Starting container 'web'\n<guard>\n"
        "POST /containers/web/start [Content-Type: application/json]\n";
    checkAnswers(ENDPOINT_START_CONTAINER, WEB,
                 {
                     {204, "", asked + "empty 0\n0: Container 'web' started successfully\n"},
                     {304, "", asked + "empty 304\n1: Container 'web' was already running\n"},
                     {404, "", asked + "error 404 NotFound: Container 'web' does not exist\n"},
                     {200, "{}",
                      asked + "4: Podman /containers/web/start failed with HTTP 200: {}\n"
                              "error 500 InternalServerError: Error occurred while starting container 'web': {}\n"},
                     {409, "",
                      asked + "4: Podman /containers/web/start failed with HTTP 409: \n"
                              "error 500 InternalServerError: Error occurred while starting container 'web': \n"},
                 });
}

TEST_F(Containers, StopMapsPodmanStatusAndPassesTimeout) {
    const auto asked = [](const std::string& query) {
        return "\n0: stopContainer\n0: Stopping container 'a/b'\n<guard>\nPOST /containers/a/b/stop" + query +
               " [Content-Type: application/json]\n";
    };
    checkAnswers(ENDPOINT_STOP_CONTAINER, {name("a/b")},
                 {
                     {204, "", asked("") + "empty 0\n0: Container 'a/b' stopped successfully\n"},
                     {304, "", asked("") + "empty 304\n1: Container 'a/b' was already stopped\n"},
                     {500, "li\nne",
                      asked("") + "4: Podman /containers/a/b/stop failed with HTTP 500: li\nne\n"
                                  "error 500 InternalServerError: Error occurred while stopping container "
                                  "'a/b': li\nne\n"},
                 });
    const std::string unknown = "error 404 NotFound: Container 'a/b' does not exist\n";
    for (const int timeout : {0, -5}) {
        checkAnswers(ENDPOINT_STOP_CONTAINER, {name("a/b"), number("timeout", timeout)},
                     {{404, "", asked("?t=" + std::to_string(timeout)) + unknown}});
    }
}

TEST_F(Containers, DeleteMapsPodmanStatusAndForces) {
    const std::string begun = "\n0: deleteContainer\n0: Deleting container 'web'\n<guard>\n";
    const std::string asked = begun + "DELETE /containers/web [Accept: application/json]\n";
    const std::string forced = begun + "DELETE /containers/web?force=true [Accept: application/json]\n";
    const std::string deleted = "empty 0\n0: Container 'web' deleted successfully\n";
    checkAnswers(ENDPOINT_DELETE_CONTAINER, {name("web"), flag("force", true)}, {{204, "", forced + deleted}});
    checkAnswers(ENDPOINT_DELETE_CONTAINER, {name("web"), flag("force", false)}, {{204, "", asked + deleted}});
    checkAnswers(ENDPOINT_DELETE_CONTAINER, WEB,
                 {
                     {404, "", asked + "error 404 NotFound: Container 'web' does not exist\n"},
                     {409, "",
                      asked + "error 409 Conflict: Container 'web' is running and cannot be deleted without "
                              "force=true\n"},
                     {304, "x",
                      asked + "4: Podman DELETE /containers/web failed with HTTP 304: x\n"
                              "error 500 InternalServerError: Error occurred while deleting container 'web': x\n"},
                 });
}

TEST_F(Containers, MissingNameIsRefusedBeforeGuardAndLog) {
    world().isEnabled = false;
    for (const KxEEndpoint endpoint : {ENDPOINT_START_CONTAINER, ENDPOINT_STOP_CONTAINER, ENDPOINT_DELETE_CONTAINER}) {
        EXPECT_EQ(call(endpoint), "error 400 BadRequest: Container name must be provided\n");
        EXPECT_EQ(call(endpoint, {name("")}), "error 400 BadRequest: Container name must be provided\n");
    }
}

TEST_F(Containers, ListReducesRecords) {
    const std::string begun = "\n0: listContainers\n0: Listing containers\n<guard>\n";
    const std::string asked = begun + "GET /containers/json [Accept: application/json]\n";
    const std::string failed = "error 500 InternalServerError: Error occurred while listing containers: ";
    const auto listed = [&](const std::string& answer) {
        return asked + "1: Container list response: " + answer + "\njson 200 " + answer +
               "\n0: Finished listing containers\n";
    };
    const auto unreadable = [&](const std::string& reason, const std::string& body) {
        return asked + "4: Podman's container list cannot be read: " + reason + "\n" + failed + body + "\n";
    };
    const std::string deep = "[{" + std::string("\"Id\":") + std::string(70, '[');
    checkAnswers(
        ENDPOINT_LIST_CONTAINERS, {flag("all", false)},
        {
            {200, "[]", listed(R"({"containers":[]})")},
            // Keys in the fixed order, missing ones missing, values unchanged.
            {299, R"([{"State":"up","Names":["/b","/a"],"Labels":{"x":1},"Id":"2","Created":null},{"Image":7}])",
             listed(R"({"containers":[{"Id":"2","Names":["/b","/a"],"Created":null,"State":"up"},{"Image":7}]})")},
            // Wanted names count only at the top of a record, and nested values stay whole.
            {200, R"([{"Names":[{"Id":"n","a":[{}]},[]],"Mounts":[{"Id":"m"}],"Image":{"Id":{"x":[1,{"y":2.5}]}}}])",
             listed(R"({"containers":[{"Names":[{"Id":"n","a":[{}]},[]],"Image":{"Id":{"x":[1,{"y":2.5}]}}}]})")},
            // Escapes in a key and in a text, and numbers to their last digit.
            {200,
             R"([{"\u0049d":"\"\u00e9\ud83d\ude00\n","Names":[0.30000000000000004,123456789.123456789e-5,-1],"State":18446744073709551615}])",
             listed(
                 R"({"containers":[{"Id":"\"é😀\n","Names":[0.30000000000000004,1234.567891234568,-1],"State":18446744073709551615}]})")},
            {300, "", asked + failed + "\n"},
            {200, "", unreadable("incomplete JSON at byte 0", "")},
            {200, "[{}] x", unreadable("extra data at byte 5", "[{}] x")},
            {200, "[{\"Id\":\"\xff\"}]", unreadable("syntax error at byte 8", "[{\"Id\":\"\xff\"}]")},
            {200, "[{\"Id\":1e400}]", unreadable("a number is out of range", "[{\"Id\":1e400}]")},
            {200, deep, unreadable("too deep at byte 69", deep)},
            {200, R"({"Id":{}})", unreadable("not an array", R"({"Id":{}})")},
            {200, "[{},1]", unreadable("the array holds something else than objects", "[{},1]")},
        });
    checkAnswers(
        ENDPOINT_LIST_CONTAINERS, {flag("all", true)},
        {{199, "why", begun + "GET /containers/json?all=true [Accept: application/json]\n" + failed + "why\n"}});

    world().podman = {"[{\"Id\":", 200};
    EXPECT_THAT(call(ENDPOINT_LIST_CONTAINERS),
                AllOf(HasSubstr("4: Podman's container list cannot be read: "), EndsWith(failed + "[{\"Id\":\n")));
}

}  // namespace

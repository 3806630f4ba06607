#include "tests/operations/Harness.h"

using namespace KxNCre;
using namespace KxNTests;

namespace {

class Logs : public Operations {};

TEST_F(Logs, UpgradeIsCheckedAgainstPodmanWhateverTheServiceState) {
    const std::string asked = "\n0: getContainerLogs\nGET /containers/web/json [Accept: application/json]\n";
    const std::string missing = "0: getContainerLogs\nerror 400 BadRequest: Container name must be provided\n";
    const std::string opened = asked + "0: Opening log stream websocket for container 'web'\nswitch web\n";
    world().isEnabled = false;
    EXPECT_EQ(call(ENDPOINT_GET_CONTAINER_LOGS), missing);
    EXPECT_EQ(call(ENDPOINT_GET_CONTAINER_LOGS, {name("")}), missing);
    checkAnswers(ENDPOINT_GET_CONTAINER_LOGS, {name("web"), text("tail", "x")},
                 {
                     {200, "{}", opened},
                     {299, "{}", opened},
                     {404, "no", asked + "error 404 NotFound: Container 'web' does not exist\n"},
                     {503, "gone",
                      asked + "4: Podman GET /containers/web/json failed with HTTP 503: gone\n"
                              "error 500 InternalServerError: Error occurred while checking container 'web': "
                              "gone\n"},
                 });
}

std::string streamed(const std::string& query, const std::string& before = "", const std::string& after = "") {
    return "0: getContainerLogsSetWebSocket\n0: Log stream websocket connected for container 'web'\n"
           "register log stream web\n" +
           before + "stream GET /containers/web/logs?follow=true" + query +
           " [Accept: application/octet-stream] session held by 2\n" + after +
           "0: Log stream ended for container 'web'\nunregister log stream\n"
           "0: Container id: web log stream finished.\n"
           "sendText 'Container id: web log stream finished.' -1\nsocket destroyed\nsession destroyed\n";
}

TEST_F(Logs, StreamPassesTheQueryOnInItsOrder) {
    const std::string both = "&stdout=true&stderr=true";
    EXPECT_EQ(callWebSocket({name("web")}), streamed(both));
    EXPECT_EQ(callWebSocket({name("web"), flag("stdout", true), flag("stderr", true), flag("timestamps", false)}),
              streamed(both));
    EXPECT_EQ(callWebSocket({name("web"), flag("stdout", false), flag("stderr", false)}),
              streamed("&stdout=false&stderr=false"));
    EXPECT_EQ(callWebSocket({name("web"), text("tail", "100"), number("since", 1700000000), flag("timestamps", true),
                             flag("stderr", false)}),
              streamed("&stdout=true&stderr=false&timestamps=true&since=1700000000&tail=100"));
    EXPECT_EQ(callWebSocket({name("web"), number("until", -7), number("since", 0)}),
              streamed(both + "&since=0&until=-7"));
}

TEST_F(Logs, TailThatIsNoNumberIsDropped) {
    for (const std::string tail : {"all", "0", "007", "123456789012345678901234567890"}) {
        EXPECT_EQ(callWebSocket({name("web"), text("tail", tail.c_str())}),
                  streamed("&stdout=true&stderr=true&tail=" + tail));
    }
    EXPECT_EQ(callWebSocket({name("web"), text("tail", "")}), streamed("&stdout=true&stderr=true"));
    for (const std::string tail : {"-1", "+5", " 5", "5 ", "All", "allx", "10k", "1&follow=false", "\xD9\xA1"}) {
        EXPECT_EQ(callWebSocket({name("web"), text("tail", tail.c_str())}),
                  streamed("&stdout=true&stderr=true",
                           "3: Ignoring invalid tail value '" + tail + "' (expected an integer or 'all')\n"));
    }
}

TEST_F(Logs, FailedStreamStillEndsWithTheClosingText) {
    world().isEnabled = false;
    for (const int status : {199, 300, 500}) {
        world().podman.status = status;
        EXPECT_EQ(callWebSocket({name("web")}),
                  streamed("&stdout=true&stderr=true", "",
                           "4: Podman GET /containers/web/logs failed with HTTP " + std::to_string(status) + "\n"));
    }
}

TEST_F(Logs, StreamWithoutNameOrSocketIsLeftAlone) {
    world().journal.clear();
    auto* socket = new KxNTamberWebApi::KxCWebSocket(nullptr);
    const auto set = [&](const char* container, KxNTamberWebApi::KxCWebSocket* given) {
        handler->GetContainerLogsSetWebSocket(pool, container, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                              given);
    };
    set(nullptr, socket);
    set("", socket);
    set("web", nullptr);
    EXPECT_EQ(world().journal, "");
    delete socket;
}

}  // namespace

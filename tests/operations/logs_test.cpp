#include "tests/operations/Harness.h"

using namespace KxNTests;

class Logs : public Operations {
protected:
    Logs() { world().isEnabled = false; }  // following a log does not ask for the state of the service
};

TEST_F(Logs, UpgradeIsCheckedAgainstPodman) {
    const std::string missing = "0: getContainerLogs\nBadRequest 400: Container name must be provided";
    check("getContainerLogs", missing, {{"", "", "^"}, {";name=", "", "^"}});
    check("getContainerLogs;name=web;tail=x",
          "0: getContainerLogs\nGET /containers/web/json [Accept: application/json]\n",
          {{"", "200 {}", "^0: Opening log stream websocket for container 'web'\nswitch web"},
           {"", "404 no", "^NotFound 404: Container 'web' does not exist"},
           {"", "503 gone",
            "^4: Podman GET /containers/web/json failed with HTTP 503: gone\n"
            "InternalServerError 500: Error occurred while checking container 'web': gone"}});
}

static std::string streamed(const std::string& query, const std::string& before = "", const std::string& after = "") {
    return "^register log stream web\n" + before + "stream GET /containers/web/logs?follow=true" + query +
           " [Accept: application/octet-stream] session held by 2\n" + after +
           "0: Log stream ended for container 'web'\nunregister log stream\n"
           "0: Container id: web log stream finished.\n"
           "sendText 'Container id: web log stream finished.' -1\nsocket destroyed\nsession destroyed";
}

TEST_F(Logs, StreamPassesTheQueryOnInItsOrderAndEndsWithTheClosingText) {
    const std::string both = "&stdout=true&stderr=true";
    const auto failed = [](const std::string& status) {
        return "4: Podman GET /containers/web/logs failed with HTTP " + status + "\n";
    };
    std::vector<Row> rows = {{"", "299", streamed(both)},
                             {";stdout=true;stderr=true;timestamps=false;tail=", "200", streamed(both)},
                             {";stdout=false;stderr=false", "", streamed("&stdout=false&stderr=false")},
                             {";tail=100;since=1700000000;timestamps=true;stderr=false", "",
                              streamed("&stdout=true&stderr=false&timestamps=true&since=1700000000&tail=100")},
                             {";until=-7;since=0", "", streamed(both + "&since=0&until=-7")},
                             {"", "199", streamed(both, "", failed("199"))},
                             {"", "300", streamed(both, "", failed("300"))}};
    for (const std::string tail : {"all", "0", "9", "007", "123456789012345678901234567890"}) {
        rows.push_back({";tail=" + tail, "200", streamed(both + "&tail=" + tail)});
    }
    for (const std::string tail : {"-1", " 5", "5 ", "All", "allx", "1:", "1&follow=false", "\xD9\xA1"}) {
        rows.push_back(
            {";tail=" + tail, "",
             streamed(both, "3: Ignoring invalid tail value '" + tail + "' (expected an integer or 'all')\n")});
    }
    check("getContainerLogsSetWebSocket;name=web",
          "0: getContainerLogsSetWebSocket\n0: Log stream websocket connected for container 'web'\n", rows);
}

TEST_F(Logs, StreamWithoutNameOrSocketIsLeftAlone) {
    world().journal.clear();
    KxNTamberWebApi::KxCWebSocket socket(nullptr);
    const auto follow = [&](const char* name, KxNTamberWebApi::KxCWebSocket* given) {
        handler->GetContainerLogsSetWebSocket(pool, name, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, given);
    };
    follow(nullptr, &socket);
    follow("", &socket);
    follow("web", nullptr);
    EXPECT_EQ(world().journal, "");
}

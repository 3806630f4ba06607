#include "tests/operations/Harness.h"

using namespace KxNTests;

class Containers : public Operations {};

TEST_F(Containers, StartStopAndDeleteMapPodmansStatus) {
    check("startContainer;name=web",
          "0: startContainer\n0: Starting container 'web'\n" + GUARD +
              "POST /containers/web/start [Content-Type: application/json]\n",
          {{"", "204", "^empty 0\n0: Container 'web' started successfully"},
           {"", "304", "^empty 304\n1: Container 'web' was already running"},
           {"", "404", "^NotFound 404: Container 'web' does not exist"},
           {"", "200 {}",
            "^4: Podman /containers/web/start failed with HTTP 200: {}\n"
            "InternalServerError 500: Error occurred while starting container 'web': {}"},
           {"", "409",
            "^4: Podman /containers/web/start failed with HTTP 409: \n"
            "InternalServerError 500: Error occurred while starting container 'web': "}});
    const std::string stopping =
        "0: stopContainer\n0: Stopping container 'a/b'\n" + GUARD + "POST /containers/a/b/stop";
    check("stopContainer;name=a/b", stopping + " [Content-Type: application/json]\n",
          {{"", "204", "^empty 0\n0: Container 'a/b' stopped successfully"},
           {"", "304", "^empty 304\n1: Container 'a/b' was already stopped"},
           {"", "500 li\nne",
            "^4: Podman /containers/a/b/stop failed with HTTP 500: li\nne\n"
            "InternalServerError 500: Error occurred while stopping container 'a/b': li\nne"},
           // A null character ends neither the line of the log nor the answer.
           {"", "500 b\0w"s,
            "^4: Podman /containers/a/b/stop failed with HTTP 500: b\\x00w\n"
            "InternalServerError 500: Error occurred while stopping container 'a/b': b\0w"s}});
    const std::string unknown = " [Content-Type: application/json]\nNotFound 404: Container 'a/b' does not exist";
    check("stopContainer;name=a/b;timeout=", stopping,
          {{"0", "404", "^?t=0" + unknown}, {"-5", "404", "^?t=-5" + unknown}});
    check("deleteContainer;name=web",
          "0: deleteContainer\n0: Deleting container 'web'\n" + GUARD + "DELETE /containers/web",
          {{"", "204", "^ [Accept: application/json]\nempty 0\n0: Container 'web' deleted successfully"},
           {";force=false", "404", "^ [Accept: application/json]\nNotFound 404: Container 'web' does not exist"},
           {";force=true", "409",
            "^?force=true [Accept: application/json]\n"
            "Conflict 409: Container 'web' is running and cannot be deleted without force=true"},
           {"", "304 x",
            "^ [Accept: application/json]\n4: Podman DELETE /containers/web failed with HTTP 304: x\n"
            "InternalServerError 500: Error occurred while deleting container 'web': x"}});
}

TEST_F(Containers, MissingNameIsRefusedBeforeGuardAndLog) {
    for (const std::string operation : {"startContainer", "stopContainer", "deleteContainer"}) {
        check(operation, "BadRequest 400: Container name must be provided", {{"", "", "^"}, {";name=", "", "^"}});
    }
}

TEST_F(Containers, ListReducesRecords) {
    const std::string begun = "0: listContainers\n0: Listing containers\n" + GUARD + "GET /containers/json";
    const std::string asked = begun + " [Accept: application/json]\n";
    const std::string failed = "InternalServerError 500: Error occurred while listing containers: ";
    const auto listed = [](const std::string& containers) {
        const std::string answer = R"({"containers":)" + containers + "}";
        return "^1: Container list response: " + answer + "\njson 200 " + answer + "\n0: Finished listing containers";
    };
    check(
        "listContainers;all=false", asked,
        {{"", "200 []", listed("[]")},
         // Keys in the fixed order, missing ones missing, values unchanged.
         {"", R"(299 [{"State":"up","Names":["/b","/a"],"Labels":{"x":1},"Id":"2","Created":null},{"Image":7}])",
          listed(R"([{"Id":"2","Names":["/b","/a"],"Created":null,"State":"up"},{"Image":7}])")},
         // Wanted names count only at the top of a record, and nested values stay whole.
         {"", R"(200 [{"Names":[{"Id":"n","a":[{}]},[]],"Mounts":[{"Id":"m"}],"Image":{"Id":{"x":[1,{"y":2.5}]}}}])",
          listed(R"([{"Names":[{"Id":"n","a":[{}]},[]],"Image":{"Id":{"x":[1,{"y":2.5}]}}}])")},
         // Escapes in a key and in a text, and numbers to their last digit.
         {"",
          R"(200 [{"\u0049d":"\"\u00e9\ud83d\ude00\n","Names":[0.30000000000000004,-1],"State":18446744073709551615}])",
          listed(R"([{"Id":"\"é😀\n","Names":[0.30000000000000004,-1],"State":18446744073709551615}])")},
         {"", "300", "^" + failed},
         // What is no object has none of the keys, and of an object the values are looked at.
         {"", R"(200 [1,null,"Id",["Id",{"Id":1}],{"Id":2}])", listed(R"([{},{},{},{},{"Id":2}])")},
         {"", R"(200 {"a":{"Id":1},"Id":2,"a":{"Id":3,"x":4}})", listed(R"([{"Id":3},{}])")},
         {"", "200 null", listed("[]")},
         {"", "200 7", listed("[{}]")}});
    check("listContainers;all=true", begun + "?all=true [Accept: application/json]\n",
          {{"", "199 why", "^" + failed + "why"}});
    const std::string deep = "[{" + std::string("\"Id\":") + std::string(70, '[');
    const std::pair<std::string, std::string> unreadable[] = {{"", "incomplete JSON at byte 0"},
                                                              {"[{\"Id\":", "incomplete JSON at byte 7"},
                                                              {"[{}] x", "extra data at byte 5"},
                                                              {"[{\"Id\":\"\xff\"}]", "syntax error at byte 8"},
                                                              {"[{\"Id\":1e400}]", "a number is out of range"},
                                                              {deep, "too deep at byte 69"}};
    for (const auto& [body, reason] : unreadable) {
        check("listContainers", asked,
              {{"", "200 " + body, "^4: Podman's container list cannot be read: " + reason + "\n" + failed + body}});
    }
}

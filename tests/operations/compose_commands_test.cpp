#include "tests/operations/Harness.h"

using namespace KxNTests;

class ComposeCommands : public Operations {};

TEST_F(ComposeCommands, EachCallsItsOwnCommandWithTheNameAsItCame) {
    for (const std::string command : {"Start", "Stop", "Create", "Remove"}) {
        const std::string called = static_cast<char>(std::tolower(command[0])) + command.substr(1);
        for (const std::string file : {"web.yml", "", "../a b"}) {
            check("compose" + command + ";name=" + file, "0: compose" + command + "\n" + GUARD,
                  {{"", "", "^" + called + " " + file + " {}\njson 200 {\"Message\":\"done\"}"}});
        }
    }
}

TEST_F(ComposeCommands, ResultCodesAreMapped) {
    const std::string failed = "InternalServerError 500: why";
    const std::string logged = failed + "\n4: why\n1: Compose command failed with return code ";
    const std::string unknown = "InternalServerError 500: Unknown error occurred: ";
    const std::pair<int, std::string> rows[] = {{0, R"(json 200 {"Message":"why"})"},
                                                {1, R"(json 201 {"Message":"why"})"},
                                                {2, failed},
                                                {3, "BadRequest 400: why"},
                                                {4, "NotFound 404: why"},
                                                {5, logged + "5"},
                                                {6, logged + "6"},
                                                {7, R"(json 200 {"Message":"why"})"},
                                                {8, logged + "8"},
                                                {9, unknown + "9"},
                                                {-2147483647 - 1, unknown + "-2147483648"}};
    for (const auto& [code, journal] : rows) {
        world().composeCode = code;
        world().composeResult = {{"Message", "why"}};
        check("composeCreate;name=f", "0: composeCreate\n" + GUARD + "create f {}\n", {{"", "", "^" + journal}});
    }
    world().composeCode = 2;
    for (const json& withoutText : {json::object(), json(), json{{"Message", 1}}, json::array({"Message"})}) {
        world().composeResult = withoutText;
        EXPECT_THAT(call("composeStop;name=f"), EndsWith("InternalServerError 500: "));
    }
}

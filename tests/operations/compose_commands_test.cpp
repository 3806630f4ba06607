#include "tests/operations/Harness.h"

using namespace KxNCre;
using namespace KxNTests;

namespace {

class ComposeCommands : public Operations {};

TEST_F(ComposeCommands, EachCallsItsOwnCommandWithTheNameAsItCame) {
    const std::tuple<KxEEndpoint, std::string, std::string> commands[] = {
        {ENDPOINT_COMPOSE_START, "composeStart", "start"},
        {ENDPOINT_COMPOSE_STOP, "composeStop", "stop"},
        {ENDPOINT_COMPOSE_CREATE, "composeCreate", "create"},
        {ENDPOINT_COMPOSE_REMOVE, "composeRemove", "remove"},
    };
    for (const auto& [endpoint, operation, command] : commands) {
        for (const std::string file : {"web.yml", "", "../a b"}) {
            EXPECT_EQ(call(endpoint, {name(file.c_str())}),
                      expected("\n0: " + operation + "\n<guard>\n" + command + " " + file +
                               " {}\njson 200 {\"Message\":\"done\"}\n"));
        }
    }
}

TEST_F(ComposeCommands, ResultCodesAreMapped) {
    const std::string asked = "\n0: composeCreate\n<guard>\ncreate f {}\n";
    const std::string result = R"({"Message":"why","ExitCode":3})";
    const auto logged = [](int code) {
        return "4: why\n1: Compose command failed with return code " + std::to_string(code) + "\n";
    };
    const std::string failed = "error 500 InternalServerError: why\n";
    const std::string unknown = "error 500 InternalServerError: Unknown error occurred: ";
    const std::vector<std::pair<int, std::string>> rows = {
        {0, "json 200 " + result + "\n"},
        {1, "json 201 " + result + "\n"},
        {2, failed},
        {3, "error 400 BadRequest: why\n"},
        {4, "error 404 NotFound: why\n"},
        {5, failed + logged(5)},
        {6, failed + logged(6)},
        {7, "json 200 " + result + "\n"},
        {8, failed + logged(8)},
        {9, unknown + "9\n"},
        {-1, unknown + "-1\n"},
        {-2147483647 - 1, unknown + "-2147483648\n"},
    };
    for (const auto& [code, answer] : rows) {
        world().composeCode = code;
        world().composeResult = json::parse(result);
        EXPECT_EQ(call(ENDPOINT_COMPOSE_CREATE, {name("f")}), expected(asked) + answer);
    }
}

TEST_F(ComposeCommands, ResultWithoutTextIsAnEmptyMessage) {
    world().composeCode = 2;
    for (const json& result : {json::object(), json(), json{{"Message", 1}}, json::array({"Message"})}) {
        world().composeResult = result;
        EXPECT_THAT(call(ENDPOINT_COMPOSE_STOP, {name("f")}), EndsWith("error 500 InternalServerError: \n"));
    }
}

}  // namespace

#include "platform/container_runtime/podman/podman_api.h"

#include "platform/container_runtime/podman/podman_command.h"
#include "tests/support.h"

using namespace KxNTests;
using namespace KxNContainer;
using Method = KxCCurlHandler::MethodType;
using std::chrono::seconds;

TEST(PodmanApi, EncodesOnlyWhatMayNotStandInATarget) {
    const std::pair<std::string, std::string> cases[] = {
        {"/containers/json?all=true", "/v1.41/containers/json?all=true"},
        {"/images/localhost/web:1.0@sha256:ab-c_d~e", "/v1.41/images/localhost/web:1.0@sha256:ab-c_d~e"},
        {"/containers/a b", "/v1.41/containers/a%20b"},
        {"/containers/a HTTP/1.1\r\nX: y", "/v1.41/containers/a%20HTTP/1.1%0D%0AX:%20y"},
        {std::string("/a\0b", 4), "/v1.41/a%00b"},
        {"/\xC3\xA9\x7F", "/v1.41/%C3%A9%7F"},
        {"/a#b\"<>[\\]^`{|}", "/v1.41/a%23b%22%3C%3E%5B%5C%5D%5E%60%7B%7C%7D"},
        {"/%41%2f", "/v1.41/%41%2f"},
        {"/100%", "/v1.41/100%25"},
        {"/%4", "/v1.41/%254"},
        {"/%zz", "/v1.41/%25zz"},
    };
    for (const auto& [path, target] : cases) {
        EXPECT_EQ(requestTarget(path), target);
    }
}

TEST(PodmanApi, TakesNothingForAHeaderLineThatCouldBeginAnother) {
    const auto accept = parseHeaderLine("Accept: application/json");
    ASSERT_TRUE(accept);
    EXPECT_EQ(accept->name, "Accept");
    EXPECT_EQ(accept->value, "application/json");
    for (const char* line :
         {"", ":", "Accept", "Acc ept: a", "Accept: a\r\nX: b", "Accept: a\n", "A\r\nB: c", "\x7F: a"}) {
        EXPECT_FALSE(parseHeaderLine(line)) << line;
    }
}

TEST(PodmanApi, GivesAStopItsOwnTime) {
    const std::tuple<const char*, Method, seconds> cases[] = {
        {"/containers/json", Method::GET, seconds(120)},
        {"/containers/a/stop", Method::POST, seconds(120)},
        {"/containers/a/stop?t=0", Method::POST, seconds(30)},
        {"/containers/a/stop?t=600", Method::POST, seconds(630)},
        {"/containers/a/stop?t=-5", Method::POST, seconds(30)},
        {"/containers/a/stop?x=1&t=7&t=9", Method::POST, seconds(37)},
        {"/containers/a/stop?t=soon", Method::POST, seconds(120)},
        {"/containers/a/stop?t=99999999999999999999", Method::POST, seconds(120)},
        {"/containers/stop?t=600", Method::GET, seconds(120)},
        {"/containers/a/start?t=600", Method::POST, seconds(120)}};
    for (const auto& [path, method, limit] : cases) {
        EXPECT_EQ(timeLimit(path, method), limit) << path;
    }
    EXPECT_GT(timeLimit("/containers/a/stop?t=9223372036854775807", Method::POST), seconds(1'000'000));
}

TEST(PodmanApi, CallsOnlyTheRefusedDeleteOfARunningContainerAConflict) {
    const std::string improper = R"({"cause":"container state improper","message":"cannot remove","response":500})";
    const std::tuple<const char*, Method, int, std::string, int> cases[] = {
        {"/containers/a", Method::DELETE, 500, improper, 409},
        {"/containers/a?force=false", Method::DELETE, 500, improper, 409},
        {"/containers/a?force=true", Method::DELETE, 500, improper, 500},
        {"/containers/a/stop", Method::POST, 500, improper, 500},
        {"/images/a", Method::DELETE, 500, improper, 500},
        {"/containers/a", Method::DELETE, 404, improper, 404},
        {"/containers/a", Method::DELETE, 500, R"({"cause":"disk full"})", 500},
        {"/containers/a", Method::DELETE, 500, R"({"message":"container state improper"})", 500},
        {"/containers/a", Method::DELETE, 500, "container state improper", 500},
        {"/containers/a", Method::DELETE, 500, R"(["cause"])", 500}};
    for (const auto& [path, method, status, body, expected] : cases) {
        PodmanReply reply{body, status};
        correctStatus(path, method, reply);
        EXPECT_EQ(reply.status, expected) << path << " " << body;
        EXPECT_EQ(reply.body, body);
    }
}

TEST(PodmanCommand, HasTheEnvironmentOfTheServiceWithoutItsOwnReport) {
    ::setenv("NOTIFY_SOCKET", "/run/notify", 1);
    ::setenv("KX_TEST_VARIABLE", "a=b", 1);
    const auto command = podmanServiceCommand({"", 2376});
    ::unsetenv("NOTIFY_SOCKET");
    EXPECT_EQ(command.executable, "podman");
    EXPECT_THAT(command.arguments, ElementsAre("system", "service", "--time=0", "tcp:127.0.0.1:2376"));
    EXPECT_THAT(command.environment, Contains("KX_TEST_VARIABLE=a=b"));
    EXPECT_THAT(command.environment, Each(Not(StartsWith("NOTIFY_SOCKET="))));
}

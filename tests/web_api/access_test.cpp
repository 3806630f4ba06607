// Who may come in and what is told about it: tokens in headers, loopback names, audit lines, error answers.

#include "platform/web_api/access/authorization.h"
#include "platform/web_api/access/loopback.h"
#include "platform/web_api/audit/audit_record.h"
#include "platform/web_api/http/answer.h"
#include "platform/web_api/http/problem_details.h"
#include "tests/support.h"

using namespace KxNTests;
using namespace KxNTamberWebApi;

namespace {

TEST(Authorization, FindsTheTokenAmongSubprotocols) {
    const std::tuple<const char*, bool, std::optional<std::string_view>> rows[] = {
        {"kx.logs.v1, bearer.abc", true, "abc"},        {"bearer.a.b,other ,\tkx.logs.v1", true, "a.b"},
        {"bearer.first,bearer.second", false, "first"}, {"bearer.,KX.LOGS.V1,Bearer.abc", false, std::nullopt},
        {"kx.logs.v10,,", false, std::nullopt},
    };
    for (const auto& [list, offersWanted, token] : rows) {
        const OfferedSubprotocols offered = parseSubprotocols(list, "kx.logs.v1");
        EXPECT_EQ(offered.offersWanted, offersWanted) << list;
        EXPECT_EQ(offered.token, token) << list;
    }
}

TEST(Loopback, KnowsAddressesFromNames) {
    for (const char* own : {"127.0.0.1", "127.255.0.9", "::1", "0:0:0:0:0:0:0:1", "::ffff:127.0.0.1"}) {
        EXPECT_TRUE(isLoopbackAddress(own)) << own;
    }
    for (const char* other : {"", "0.0.0.0", "::", "128.0.0.1", "127.1", "localhost", "[::1]", "::2", "::127.0.0.1",
                              "::ffff:10.0.0.1", "127.0.0.1.example", "127.0.0.1 "}) {
        EXPECT_FALSE(isLoopbackAddress(other)) << other;
    }
}

TEST(Loopback, AHostThatANameServerCouldRedirectIsForeign) {
    for (const char* own :
         {"localhost", "LocalHost:8460", "api.localhost:1", "127.0.0.1", "127.0.0.2:8460", "[::1]", "[::1]:65535"}) {
        EXPECT_TRUE(isLoopbackHost(own)) << own;
    }
    for (const char* foreign :
         {"", ":8460", "localhost:", "localhost:x", "localhost:8460:1", "localhost.evil.example", "evillocalhost",
          ".localhost", "evil.example", "127.0.0.1.evil.example:8460", "[::1", "[::1]8460", "::1", "[127.0.0.1]",
          "[localhost]", "192.168.0.1", "user@localhost", "localhost/", "localhost:123456"}) {
        EXPECT_FALSE(isLoopbackHost(foreign)) << foreign;
    }
}

TEST(Loopback, OnlyPagesFromThisServerAreItsOwn) {
    EXPECT_TRUE(isSameOrigin("http://localhost:8460", "localhost:8460"));
    EXPECT_TRUE(isSameOrigin("HTTPS://LOCALHOST", "localhost:443"));
    EXPECT_TRUE(isSameOrigin("http://127.0.0.1", "127.0.0.1:80"));
    EXPECT_TRUE(isSameOrigin("http://[::1]:8460", "[::1]:8460"));
    EXPECT_TRUE(isSameOrigin("https://target.example:8460", "Target.example:8460"));
    EXPECT_FALSE(isSameOrigin("https://", ""));
    for (const char* origin :
         {"null", "", "http://localhost:3000", "http://127.0.0.1:8460", "http://localhost:8460.evil.example",
          "http://localhost:8460/", "file://localhost:8460"}) {
        EXPECT_FALSE(isSameOrigin(origin, "localhost:8460")) << origin;
    }
}

TEST(Audit, NoValueCanForgeAFieldOrALine) {
    EXPECT_EQ(
        makeAuditLine({"127.0.0.1:50000", "token", "administrator", "DELETE", "/containers/{name}", "web", 204, 12}),
        "Korvex Container Service: audit: peer=127.0.0.1:50000 identity=token role=administrator method=DELETE "
        "route=/containers/{name} name=web status=204 ms=12");
    EXPECT_EQ(makeAuditLine({"::1", "CN=token", "viewer", "GET", "", "a status=200\n\"b\"\\\x7f\xC3\xA9", 401, 0}),
              "Korvex Container Service: audit: peer=::1 identity=\"CN=token\" role=viewer method=GET route=- "
              "name=\"a status=200\\x0a\\\"b\\\"\\\\\\x7f\\xc3\\xa9\" status=401 ms=0");
    EXPECT_THAT(makeAuditLine({"p", "none", "none", "GET", "-", std::string(300, 'n'), 401, 0}),
                HasSubstr("route=\"-\" name=\"" + std::string(256, 'n') + "\"... status=401"));
}

TEST(AnswerHead, HasTheFieldsOfItsStatusAndOfTheConnection) {
    const std::string rest = "X-Content-Type-Options: nosniff\r\n";
    const std::string fresh = "Cache-Control: no-store\r\n" + rest;
    const std::tuple<Answer, AnswerFraming, std::string, std::string> rows[] = {
        {{200, "{}", "a/b", {}}, {}, "HTTP/1.1 200 OK", "Content-Type: a/b\r\nContent-Length: 2\r\n" + fresh},
        {{204, {}, {}, {}}, {}, "HTTP/1.1 204 No Content", fresh},
        {{304, {}, {}, {}, "ETag: x\r\n"}, {}, "HTTP/1.1 304 Not Modified", "ETag: x\r\n" + rest},
        {{401, {}, {}, {}},
         {false},
         "HTTP/1.1 401 Unauthorized",
         "Content-Length: 0\r\nWWW-Authenticate: Bearer\r\n" + fresh + "Connection: close\r\n"},
        {{405, {}, {}, "GET, HEAD"},
         {true, true},
         "HTTP/1.0 405 Method Not Allowed",
         "Content-Length: 0\r\nAllow: GET, HEAD\r\n" + fresh + "Connection: keep-alive\r\n"},
        {{426, {}, {}, {}},
         {false},
         "HTTP/1.1 426 Upgrade Required",
         "Content-Length: 0\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n" + fresh +
             "Connection: upgrade, close\r\n"},
        {{429, {}, {}, {}, {}, 17},
         {},
         "HTTP/1.1 429 Too Many Requests",
         "Content-Length: 0\r\nRetry-After: 17\r\n" + fresh},
        {{503, {}, {}, {}}, {}, "HTTP/1.1 503 Service Unavailable", "Content-Length: 0\r\nRetry-After: 1\r\n" + fresh}};
    for (const auto& [answer, framing, line, fields] : rows) {
        std::string head = makeAnswerHead(answer, framing);
        const std::size_t date = head.find("Date: ");
        ASSERT_NE(date, head.npos);
        head.erase(date, head.find('\n', date) + 1 - date);
        EXPECT_EQ(head, line + "\r\n" + fields + "\r\n");
    }
}

TEST(ProblemDetails, KeepsTheOrderAndReplacesWhatIsNoUtf8) {
    EXPECT_EQ(makeProblemDetails(404, findStatusTitle(404), "No '\xFF\n'"),
              R"({"type":"about:blank","title":"NotFound","status":404,"detail":"No ')"
              "\xEF\xBF\xBD"
              R"(\n'"})");
}

}  // namespace

// Requests that no ordinary client sends, byte for byte. What ordinary ones send is tried on the whole program.

#include "server_fixture.h"

namespace KxNWebApiTest {
namespace {

using ServerRequests = ServerTest;

TEST_F(ServerRequests, EachRequestGetsItsAnswer) {
    const std::string json = "Content-Type: application/json\r\n";
    const std::string echo = "PATCH /api/v1/echo HTTP/1.1\r\n@";
    const auto sized = [&](const std::string& body) {
        return echo + json + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    };
    const auto endless = [&](const std::string& body) {
        std::ostringstream size;
        size << std::hex << body.size();
        return echo + json + "Transfer-Encoding: chunked\r\n\r\n" + size.str() + "\r\n" + body;
    };
    const struct {
        const char* fault;
        std::string request;  // "@" stands for the Host and Authorization fields
        int status;
        std::string contains;
        bool closes = false;
    } cases[] = {
        {"empty lines before a request", "\r\n\r\nGET /api/v1/fast HTTP/1.1\r\n@\r\n", 200, R"({"ok":true})"},
        {"a request that an exception ends", "GET /api/v1/throw HTTP/1.1\r\n@\r\n", 500,
         "\"detail\":\"Internal error\""},
        {"a request that nobody answers", "GET /api/v1/silent HTTP/1.1\r\n@\r\n", 500, "InternalServerError"},
        {"a parameter in the answer", "DELETE /api/v1/items/a%20b HTTP/1.1\r\n@\r\n", 409, R"("detail":"a b\u0000!")"},
        {"chunked JSON", echo + json + "Transfer-Encoding: chunked\r\n\r\n3;x=y\r\n[1,\r\n2\r\n2]\r\n0\r\nT: u\r\n\r\n",
         200, "[1,2]"},
        {"no body, in chunks", echo + "Transfer-Encoding: chunked\r\n\r\n0\r\n\r\n", 200, "null"},
        {"chunks of no type", echo + "Transfer-Encoding: chunked\r\n\r\n2\r\n{}\r\n0\r\n\r\n", 415,
         "UnsupportedMediaType"},
        {"a body of no type", echo + "Content-Length: 2\r\n\r\n{}", 415, "UnsupportedMediaType"},
        {"JSON that nests too deep", echo + json + "Content-Length: 65\r\n\r\n" + std::string(65, '['), 400,
         "not valid JSON: it nests more than 64 levels deep"},
        {"an announced body that is too large", echo + json + "Content-Length: 1048577\r\n\r\n", 413, "ContentTooLarge",
         true},
        {"a body of the largest size", sized(std::string(1 << 20, ' ').replace(0, 2, "[]")), 200, "[]"},
        {"a body that grows too large", endless(std::string((1 << 20) + 1, ' ')), 413, "", true},
        {"JSON with an error in its second line", sized("{\"a\":\n 1,,}"), 400, "line 2"},
        {"JSON that is no UTF-8", sized("{\"a\":\"\xff\"}"), 400, "not valid JSON"},
        {"a long request line", "GET /" + std::string(9000, 'x') + " HTTP/1.1\r\n@\r\n", 414, "UriTooLong", true},
        {"a long header", "GET /api/v1/fast HTTP/1.1\r\n@X: " + std::string(17'000, 'x') + "\r\n\r\n", 431, "", true},
        {"no number as length", echo + "Content-Length: x\r\n\r\n", 400, "", true},
        {"what is no HTTP", "GARBAGE\r\n\r\n", 400, "", true},
        {"chunks in HTTP/1.0", "PATCH /api/v1/echo HTTP/1.0\r\n@Transfer-Encoding: chunked\r\n\r\n0\r\n\r\n", 400, "",
         true},
        {"another coding", echo + "Transfer-Encoding: gzip\r\n\r\n", 501, "", true},
        {"another expectation", "GET /api/v1/fast HTTP/1.1\r\n@Expect: more\r\n\r\n", 417, "ExpectationFailed", true},
        {"another protocol version", "GET /api/v1/fast HTTP/2.0\r\n@\r\n", 505, "", true},
        {"another WebSocket version",
         "GET /api/v1/logs/a/ws HTTP/1.1\r\n@Connection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 12\r\n"
         "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n",
         426, "UpgradeRequired"},
        {"HTTP/1.0", "GET /api/v1/fast HTTP/1.0\r\n@\r\n", 200, "ok", true}};
    for (const auto& one : cases) {
        SCOPED_TRACE(one.fault);
        RawClient client(server.port());
        std::string request = one.request;
        if (const std::size_t at = request.find('@'); at != request.npos) {
            request.replace(at, 1, "Host: localhost\r\n" + server.authorization());
        }
        client.send(request);
        const Reply reply = client.receive();
        EXPECT_EQ(reply.status, one.status);
        EXPECT_THAT(reply.body, HasSubstr(one.contains));
        EXPECT_EQ(reply.field("X-Content-Type-Options"), "nosniff");
        EXPECT_EQ(reply.field("Cache-Control"), "no-store");
        EXPECT_EQ(reply.field("Content-Type"), one.status < 400 ? "application/json" : "application/problem+json");
        if (one.closes) {
            EXPECT_TRUE(client.isClosed());
        } else {
            client.send(makeHead(server, "GET /api/v1/fast"));
            EXPECT_EQ(client.receive().status, 200) << "the connection is to be kept";
        }
    }
}

TEST_F(ServerRequests, FilesAreForEverybodyAndOnlyForBrowsersThatTakeThemAsTheyAre) {
    static const StaticFile files[] = {{"/", "text/html", "page", "\"1\""},
                                       {"/a/b.js", "text/javascript", "b", "\"2\""}};
    TestHandler withFiles;
    TestServer served(withFiles, {}, 1s, "/nonexistent", files);
    const std::string gzip = "Accept-Encoding: br;q=1.0, gzip;q=0.8\r\n";
    const std::tuple<const char*, std::string, int, const char*> cases[] = {
        {"GET /", gzip, 200, "page"},
        {"GET /?x=1", "Accept-Encoding: *\r\n", 200, "page"},
        {"GET /a/b.js", gzip, 200, "b"},
        {"GET /", gzip + "If-None-Match: W/\"0\", \"1\"\r\n", 304, ""},
        {"GET /", gzip + "If-None-Match: \"2\"\r\n", 200, "page"},
        {"GET /", "Accept-Encoding: gzip;q=0.0, br\r\n", 406, "NotAcceptable"},
        {"GET /", "", 406, "NotAcceptable"},
        {"POST /", gzip, 405, "only GET, HEAD, OPTIONS"},
        {"OPTIONS /", gzip, 204, ""},
        {"GET /a", gzip, 401, ""},
        {"GET /api/v1/fast", gzip, 401, ""}};
    for (const auto& [target, fields, status, contains] : cases) {
        SCOPED_TRACE(target + fields);
        const Reply reply =
            ask(served, std::string(target) + " HTTP/1.1\r\nHost: any\r\nConnection: close\r\n" + fields + "\r\n");
        EXPECT_EQ(reply.status, status);
        EXPECT_THAT(reply.body, HasSubstr(contains));
        EXPECT_EQ(reply.field("ETag").empty(), status != 200 && status != 304);
        EXPECT_EQ(reply.field("Content-Encoding"), status == 200 ? "gzip" : "");
    }
}

TEST_F(ServerRequests, WhatAProxyMayReadAnotherWayIsRefusedAndNothingBehindItIsServed) {
    const std::string patch = "PATCH /api/v1/echo HTTP/1.1\r\n";
    const std::string chunks = patch + "@Content-Type: application/json\r\nTransfer-Encoding: chunked\r\n\r\n";
    std::vector<std::string> requests{
        patch + "@Content-Length: 4\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n",
        patch + "@Content-Length: 0\r\nContent-Length: 2\r\n\r\n{}",
        patch + "@Transfer-Encoding: xchunked\r\n\r\n0\r\n\r\n",
        patch + "@Transfer-Encoding: chunked;q=1\r\n\r\n0\r\n\r\n",
        patch + "@Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n",
        patch + "@Transfer-Encoding: gzip, chunked\r\n\r\n0\r\n\r\n",
        patch + "@Transfer-Encoding: chunked, identity\r\n\r\n",
        patch + "@Transfer-Encoding:\vchunked\r\n\r\n0\r\n\r\n",
        patch + "@Transfer-Encoding:\r\n chunked\r\n\r\n0\r\n\r\n",
        patch + "@Transfer-Encoding : chunked\r\n\r\n0\r\n\r\n",
        patch + "@ Content-Length: 2\r\n\r\n{}",
        patch + "@A: b\nContent-Length: 2\r\n\r\n{}",
        patch + "@A: b\rContent-Length: 2\r\n\r\n{}",
        patch + "@A: b" + std::string(1, '\0') + "c\r\n\r\n",
        patch + "@: a\r\n\r\n",
        patch + "@Host: b\r\n\r\n",
        patch + "\r\n",
        "PATCH /api/v1/echo HTTP/1.1\n@\r\n",
        "PATCH  /api/v1/echo HTTP/1.1\r\n@\r\n",
        "PATCH\t/api/v1/echo HTTP/1.1\r\n@\r\n",
        " PATCH /api/v1/echo HTTP/1.1\r\n@\r\n",
        "PATCH /api/v1/echo HTTP/1.1 \r\n@\r\n",
        "PATCH /api/v1/echo\r\n@\r\n",
        "PATCH http://user%40@b/api/v1/echo HTTP/1.1\r\n\r\n"};
    for (const char* length : {"2, 3", "+2", "-2", "0x2", "1 0", "", "18446744073709551618"}) {
        requests.push_back(patch + "@Content-Length: " + length + "\r\n\r\n{}");
    }
    for (const char* body :
         {"2\n{}\r\n", "2;a\n{}\r\n", "2;a\rb\r\n{}\r\n", "2 a\r\n{}\r\n", "0x2\r\n{}\r\n", "+2\r\n{}\r\n",
          "10000000000000002\r\n{}\r\n", "1\r\n{}\r\n", "2\r\n{}\n", "2\r\n{}\r\n0\n\r\n"}) {
        requests.push_back(chunks + body + "0\r\n\r\n");
    }
    for (const char* host : {"a b", "a/b", "a?b", "a#b", "u@a", "a\\b", "a:b", "a:99999", "a:1:2", "[::1", "::1", "[a]",
                             "[]", "[::1]x", "a%zz", "<a>", "a\tb", "\xe4"}) {
        requests.push_back("GET /api/v1/fast HTTP/1.1\r\nHost: " + std::string(host) + "\r\n" + server.authorization() +
                           "\r\n");
    }
    for (std::string request : requests) {
        SCOPED_TRACE(request);
        if (const std::size_t at = request.find("\n@"); at != request.npos) {
            request.replace(at + 1, 1, "Host: localhost\r\n" + server.authorization());
        }
        RawClient client(server.port());
        client.send(request + makeHead(server, "GET /api/v1/fast"));
        const Reply reply = client.receive();
        EXPECT_TRUE(reply.status == 400 || reply.status == 501 || reply.status == 505) << reply.status;
        EXPECT_EQ(client.receiveBytes(1), "");
    }
    for (const char* host :
         {"", "a-b.example:8460", "127.0.0.1", "[::1]:80", "[::ffff:1.2.3.4]", "a%20b", "x_~!$&'()*+,;=:"}) {
        SCOPED_TRACE(host);
        EXPECT_EQ(ask(server, "GET /api/v1/fast HTTP/1.1\r\nHost: " + std::string(host) + "\r\n" +
                                  server.authorization() + "\r\n")
                      .status,
                  200);
    }
}

}  // namespace
}  // namespace KxNWebApiTest

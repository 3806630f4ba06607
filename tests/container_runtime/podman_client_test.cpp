#include "platform/container_runtime/podman/podman_client.h"

#include <sys/socket.h>

#include <array>

#include "platform/container_runtime/podman/connection_pool.h"
#include "podman_double.h"
#include "tests/support.h"

using namespace KxNTests;
using namespace KxNContainer;
using Method = KxCCurlHandler::MethodType;
using Peer = PodmanDouble::Peer;

namespace {

class PodmanClientTest : public testing::Test {
protected:
    PodmanReply get(PodmanClient& client, const std::string& path = "/info") {
        return client.execute({path, Method::GET, {"Accept: application/json"}, {}}, {running, Clock::now() + 10s});
    }

    PodmanReply load(PodmanClient& client, const std::string& file) {
        return client.execute({"/images/load", Method::POST, {"Content-Type: application/x-tar"}, file, true},
                              {running, std::nullopt});
    }

    KxNTests::TemporaryDirectory directory;
    const std::string socket = directory.path("podman.sock");
    KxNNet::Cancellation running;
};

}  // namespace

TEST_F(PodmanClientTest, GivesTheAnswerOrTheReasonWhyThereIsNone) {
    const std::tuple<std::string, int, std::string> cases[] = {
        {"HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello", 200, "hello"},
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n1;x=y\r\n!\r\n0\r\n\r\n", 200, "hello!"},
        {"HTTP/1.0 200 OK\r\n\r\nuntil the end", 200, "until the end"},
        {"HTTP/1.1 204 No Content\r\n\r\n", 204, ""},
        {"HTTP/1.1 304 Not Modified\r\n\r\n", 304, ""},
        {"HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 404 Not Found\r\nContent-Length: 2\r\n\r\nno", 404, "no"},
        {"HTTP/1.1 200 OK\r\nContent-Length: 50\r\n\r\nhello", 503, "before its answer was complete: GET /info"},
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhel", 503, "before its answer was complete"},
        {"HTTP/1.1 200 OK\r\nContent-", 503, "before its answer was complete"},
        {"", 503, "before its answer was complete"},
        {"SSH-2.0-OpenSSH_9.2\r\n", 503, "not valid HTTP"},
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nrubbish\r\n", 503, "not valid HTTP"},
        {"HTTP/1.1 200 OK\r\nContent-Length: 999999999999\r\n\r\n", 503, "larger than 64 MiB"},
        {"HTTP/1.1 200 OK\r\nX: " + std::string(100'000, 'x') + "\r\n\r\n", 503, "not valid HTTP"},
    };
    for (const auto& [bytes, status, body] : cases) {
        SCOPED_TRACE(bytes.substr(0, 100));
        const PodmanDouble podman("", [&](Peer& peer) {
            peer.readHeader();
            peer.send(bytes);
        });
        PodmanClient client(podman.address());
        const PodmanReply reply = get(client);
        EXPECT_EQ(reply.status, status);
        EXPECT_THAT(reply.body, status == 503 ? HasSubstr(body) : testing::Matcher<std::string>(body));
    }
}

TEST_F(PodmanClientTest, SendsBodiesWhole) {
    std::string content;
    for (int number = 0; number < 60'000; ++number) {
        content += std::to_string(number);
    }
    writeFile(directory.path("file"), content);
    const std::tuple<std::string, bool, std::string> cases[] = {
        {content, false, content}, {directory.path("file"), true, content}, {"", false, ""}};
    for (const auto& [given, isFile, sent] : cases) {
        std::string header;
        std::string body;
        std::filesystem::remove(socket);
        const PodmanDouble podman(socket, [&](Peer& peer) {
            header = peer.readHeader();
            body = peer.readBody(sent.size());
            peer.answer(201, "taken");
        });
        PodmanClient client(podman.address());
        const PodmanReply reply = client.execute({"/x", Method::POST, {}, given, isFile}, {running, std::nullopt});
        EXPECT_EQ(std::to_string(reply.status) + reply.body, "201taken");
        EXPECT_EQ(header, "POST /v1.41/x HTTP/1.1\r\nHost: localhost\r\nContent-Length: " +
                              std::to_string(sent.size()) + "\r\n\r\n");
        EXPECT_TRUE(body == sent);
    }
}

TEST_F(PodmanClientTest, SaysWhatStoodInTheWay) {
    const PodmanDouble podman(socket, [](Peer& peer) { peer.waitForClose(); });
    const std::string none = directory.path("none");
    const std::string longer = "/sys/kernel/uevent_seqnum";  // says that it is a page long, and is not
    const std::tuple<PodmanAddress, std::string, std::string> cases[] = {
        {{none, 0}, "", "Podman cannot be reached at unix://" + none + ": No such file or directory"},
        {{std::string(108, 'x'), 0},
         "",
         "Podman cannot be reached at unix://" + std::string(108, 'x') + ": File name too long"},
        {{"", 1}, "", "Podman cannot be reached at tcp:127.0.0.1:1: Connection refused"},
        {podman.address(), none, "Cannot read '" + none + "': No such file or directory"},
        {podman.address(), "/", "Cannot read '/': not a regular file"},
        {podman.address(), longer, "Cannot read '" + longer + "': it became shorter"}};
    for (const auto& [address, file, reason] : cases) {
        PodmanClient client(address);
        const PodmanReply reply = load(client, file);
        EXPECT_EQ(reply.status, 503);
        EXPECT_EQ(reply.body, reason);
    }
}

TEST_F(PodmanClientTest, StreamsWhatSucceedsAndGivesBackWhatDoesNot) {
    struct Sink : AnswerSink {
        void take(std::string_view bytes) override { text += bytes; }
        bool flush() override { return text.size() < 8; }
        std::string text;
    };
    const std::string chunked = " OK\r\nTransfer-Encoding: chunked\r\n\r\n4\r\nfour\r\n";
    const std::string twice = "4\r\nfour\r\n";
    const std::tuple<std::string, int, std::string, std::string> cases[] = {
        {"HTTP/1.1 200" + chunked + "0\r\n\r\n", 200, "", "four"},
        {"HTTP/1.1 200" + chunked, 200, "", "four"},
        {"HTTP/1.1 200" + chunked + "rubbish\r\n", 200, "", "four"},
        {"HTTP/1.1 200" + chunked + twice, 200, "", "fourfour"},
        {"HTTP/1.1 100 Go\r\n\r\nHTTP/1.1 404" + chunked, 404, "four", ""},
        {"HTTP/1.0 200 OK\r\n\r\nall", 200, "", "all"}};
    for (const auto& [bytes, status, body, sunk] : cases) {
        SCOPED_TRACE(bytes);
        std::filesystem::remove(socket);
        const PodmanDouble podman(socket, [&](Peer& peer) {
            peer.readHeader();
            peer.send(bytes);
            if (sunk.size() == 8) {
                EXPECT_TRUE(peer.waitForClose()) << "the sink wanted no more";
            }
        });
        PodmanClient client(podman.address());
        Sink sink;
        const PodmanReply reply = client.stream({"/x", Method::GET, {}, {}}, {running, std::nullopt}, sink);
        EXPECT_EQ(reply.status, status);
        EXPECT_EQ(reply.body, body);
        EXPECT_EQ(sink.text, sunk);
    }
}

TEST_F(PodmanClientTest, KeepsAConnectionAndRepeatsOnlyAGetThatItDiesOn) {
    std::atomic<int> posts{0};
    const PodmanDouble podman(socket, [&](Peer& peer) {
        for (int request = 0; request < 3; ++request) {
            const std::string header = peer.readHeader();
            posts += header.starts_with("POST") ? 1 : 0;
            if (!header.starts_with("GET")) {
                return;
            }
            peer.answer(200, "ok");
        }
        peer.readHeader();  // and leaves the fourth one without an answer
    });
    auto getter = std::make_unique<PodmanClient>(podman.address());
    for (int request = 0; request < 3; ++request) {
        EXPECT_EQ(get(*getter).status, 200);
    }
    EXPECT_EQ(podman.connections(), 1);
    EXPECT_EQ(get(*getter).status, 200);
    EXPECT_EQ(podman.connections(), 2);
    getter.reset();
    PodmanClient client(podman.address());
    const PodmanReply reply = client.execute({"/containers/a/start", Method::POST, {}, {}}, {running, std::nullopt});
    EXPECT_EQ(reply.status, 503);
    EXPECT_EQ(posts, 1);
}

TEST_F(PodmanClientTest, EndsAtItsDeadlineOrAtOnceWhenCancelled) {
    std::atomic<bool> trickles{true};
    const PodmanDouble podman(socket, [&](Peer& peer) {
        peer.send(trickles ? "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" : "");
        while (trickles) {
            peer.sendChunk("x");
        }
        peer.waitForClose();
    });
    PodmanClient client(podman.address());
    for (int round = 0; round < 2; ++round) {
        const PodmanReply late = client.execute({"/info", Method::GET, {}, {}}, {running, Clock::now() + 100ms});
        EXPECT_EQ(late.status, 503);
        EXPECT_THAT(late.body, HasSubstr("did not answer in time: GET /info"));
        trickles = false;
    }

    std::thread stop([&] {
        std::this_thread::sleep_for(50ms);
        running.cancel();
    });
    const auto begin = Clock::now();
    EXPECT_THAT(get(client).body, HasSubstr("stopping"));
    EXPECT_LT(Clock::now() - begin, 5s);
    stop.join();
    EXPECT_THAT(get(client).body, HasSubstr("stopping"));
}

TEST_F(PodmanClientTest, ReadsARefusalThatComesBeforeTheFileWasSent) {
    std::ofstream(directory.path("image.tar")) << std::string(10'000'000, 'x');
    for (const bool staysOpen : {true, false}) {
        SCOPED_TRACE(staysOpen ? "stays open" : "closes at once");
        const PodmanDouble podman(directory.path(staysOpen ? "a" : "b"), [&](Peer& peer) {
            peer.readHeader();
            peer.answer(500, "no room");
            if (staysOpen) {
                peer.waitForClose();
            }
        });
        PodmanClient client(podman.address());
        const PodmanReply reply = load(client, directory.path("image.tar"));
        EXPECT_EQ(reply.status, 500);
        EXPECT_EQ(reply.body, "no room");
    }
}

TEST(ConnectionPool, KeepsEightConnectionsAndGivesThoseThatAreQuiet) {
    ConnectionPool pool;
    std::vector<KxNCommon::UniqueFd> podmans;
    for (int number = 0; number < 10; ++number) {
        std::array<int, 2> ends;
        ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()), 0);
        podmans.emplace_back(ends[0]);
        pool.put(KxNNet::Stream(KxNCommon::UniqueFd(ends[1])));
    }
    ASSERT_EQ(::write(podmans[0].get(), "x", 1), 1);
    int taken = 0;
    while (pool.take()) {
        ++taken;
    }
    EXPECT_EQ(taken, 7);
}

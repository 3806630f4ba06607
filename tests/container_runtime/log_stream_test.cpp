#include "platform/container_runtime/logs/log_stream.h"

#include "KxErrorManager.h"
#include "platform/container_runtime/logs/watch/log_watch.h"
#include "podman_double.h"
#include "tests/support.h"
#include "web_socket_double.h"

using namespace KxNTests;
using namespace KxNContainer;
using KxNTamberWebApi::KxCWebSocket;
using Peer = PodmanDouble::Peer;

namespace {

const std::string OUTPUT = "\x01\0\0\0\0\0\0\x04out\n"s;

/// Follows the log of container "web" as the service does: registered, streamed, unregistered on one thread, while the
/// client does what the test says.
class LogStreamTest : public testing::Test {
protected:
    void answerInspection(Peer& peer) {
        ASSERT_TRUE(peer.readHeader().starts_with("GET /v1.41/containers/web/json "));
        peer.answer(200, R"({"Config":{"Tty":false}})");
        ASSERT_TRUE(peer.readHeader().starts_with("GET /v1.41/containers/web/logs?follow=true "));
    }

    void follow(const PodmanDouble& podman) {
        thread = std::thread([this, address = podman.address()] {
            PodmanClient client(address);
            KxCErrorListPool pool;
            KxCWebSocket socket(web);
            registered = &socket;
            const auto session = streams.add(&socket, "web");
            reply = streamLog({client, watch},
                              {"/containers/web/logs?follow=true",
                               KxCCurlHandler::MethodType::GET,
                               {"Accept: application/octet-stream"},
                               {}},
                              *session, pool, socket);
            streams.remove(&socket);
        });
    }

    void clientCloses() {
        web->close();
        streams.end(registered);
    }

    PodmanReply end() {
        thread.join();
        return reply;
    }

    KxNTests::TemporaryDirectory directory;
    const std::string path = directory.path("podman.sock");
    std::shared_ptr<KxCWebSocket::State> web = std::make_shared<KxCWebSocket::State>();
    LogStreams streams;
    LogWatch watch;
    std::atomic<KxCWebSocket*> registered{nullptr};
    std::thread thread;
    PodmanReply reply;
};

}  // namespace

TEST_F(LogStreamTest, EndsWhenTheClientClosesWhereverTheStreamIs) {
    enum Moment { DURING_INSPECTION, BEFORE_THE_FIRST_LINE, WHILE_THE_CLIENT_DOES_NOT_READ };
    for (const Moment moment : {DURING_INSPECTION, BEFORE_THE_FIRST_LINE, WHILE_THE_CLIENT_DOES_NOT_READ}) {
        SCOPED_TRACE(moment);
        web = std::make_shared<KxCWebSocket::State>();
        web->setReading(moment != WHILE_THE_CLIENT_DOES_NOT_READ);
        std::atomic<bool> isThere{false};
        const PodmanDouble podman(directory.path(std::to_string(moment)), [&](Peer& peer) {
            if (moment == DURING_INSPECTION) {
                peer.readHeader();
            } else {
                answerInspection(peer);
            }
            if (moment == WHILE_THE_CLIENT_DOES_NOT_READ) {
                peer.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
                peer.sendChunk(OUTPUT);
            }
            isThere = true;
            EXPECT_TRUE(peer.waitForClose());
        });
        follow(podman);
        while (!isThere) {
            std::this_thread::sleep_for(1ms);
        }
        clientCloses();
        EXPECT_EQ(end().status, 200) << "the client's own wish is no failure of Podman";
    }
}

TEST_F(LogStreamTest, EndsWhenPodmanDiesOrRefuses) {
    const std::string body = "\r\nTransfer-Encoding: chunked\r\n\r\nC\r\n" + OUTPUT + "\r\n";
    const std::string begun = "HTTP/1.1 200 OK" + body;
    const std::tuple<bool, std::string, int, std::string> cases[] = {
        {false, "HTTP/1.1 404 Not Found\r\nContent-Length: 4\r\n\r\nnone", 404, ""},
        {false, "HTTP/1.1 503 Unavailable\r\nContent-Length: 4\r\n\r\nnone", 503, ""},
        {true, "", 503, ""},
        {true, "HTTP/1.1 500 Internal Error\r\nContent-Length: 6\r\n\r\nbroken", 500, ""},
        {true, "HTTP/1.1 299 Odd" + body + "0\r\n\r\n", 299, "out\n"},
        {true, begun + "C\r\n\x01\0"s, 200, "out\n"},
        {true, begun + "rubbish\r\n", 200, "out\n"}};
    for (const auto& [isInspected, answer, status, sent] : cases) {
        SCOPED_TRACE(answer);
        web = std::make_shared<KxCWebSocket::State>();
        std::filesystem::remove(path);
        const PodmanDouble podman(path, [&](Peer& peer) {
            if (peer.readHeader().find("/json ") != std::string::npos && isInspected) {
                peer.answer(200, "{}");
                peer.readHeader();
            }
            peer.send(answer);
        });
        follow(podman);
        EXPECT_EQ(end().status, status);
        EXPECT_EQ(web->sentSoFar(), sent);
    }
}

TEST_F(LogStreamTest, EndsWithAContainerOfWhichOnlyPodmanKnows) {
    const std::string file = directory.path("ctr.log");
    writeFile(file, "");
    int asked = 0;
    const PodmanDouble podman(path, [&](Peer& peer) {
        while (!peer.readHeader().empty()) {
            peer.answer(200, R"({"Id":")" + std::string(64, 'f') + R"(","State":{"Status":")" +
                                 (++asked <= 2 ? "running" : "exited") +
                                 R"("},"HostConfig":{"LogConfig":{"Type":"k8s-file","Path":")" + file + "\"}}}");
        }
    });
    follow(podman);
    EXPECT_EQ(end().status, 200);
    EXPECT_EQ(asked, 3);
}

TEST_F(LogStreamTest, EndsAllStreamsAndLaterOnesUntilTheyAreAllowedAgain) {
    KxCWebSocket socket(web);
    const auto earlier = streams.add(&socket, "web");
    streams.close();
    EXPECT_TRUE(earlier->ending.isCancelled());
    EXPECT_TRUE(streams.add(&socket, "web")->ending.isCancelled());
    streams.open();
    EXPECT_FALSE(streams.add(&socket, "web")->ending.isCancelled());
    streams.remove(&socket);
}

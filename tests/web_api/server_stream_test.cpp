// WebSockets, driven byte by byte: RFC 6455 from the client's side, and lifetimes from the handler's.

#include <sys/socket.h>

#include "platform/web_api/websocket/frames.h"
#include "server_fixture.h"

namespace KxNWebApiTest {
namespace {

enum Opcode : unsigned char { CONTINUATION = 0, TEXT = 1, BINARY = 2, CLOSE = 8, PING = 9, PONG = 10 };

struct Frame {
    int opcode = -1;  ///< -1 when the connection ended
    bool isLast = false;
    std::string payload;
    int closeCode() const {
        return opcode == CLOSE && payload.size() >= 2
                   ? static_cast<unsigned char>(payload[0]) << 8 | static_cast<unsigned char>(payload[1])
                   : 0;
    }
};

std::string makeFrame(int firstByte, const std::string& payload) {
    const std::size_t size = payload.size();
    std::string frame{static_cast<char>(firstByte), static_cast<char>(0x80 | (size < 126     ? size
                                                                              : size < 65536 ? 126
                                                                                             : 127))};
    for (int shift = size < 126 ? -8 : size < 65536 ? 8 : 56; shift >= 0; shift -= 8) {
        frame += static_cast<char>(size >> shift & 0xFF);
    }
    const std::string key = "abcd";
    frame += key;
    for (std::size_t i = 0; i < size; ++i) {
        frame += static_cast<char>(payload[i] ^ key[i % 4]);
    }
    return frame;
}

std::string last(Opcode opcode, const std::string& payload) {
    return makeFrame(0x80 | opcode, payload);
}

Frame readFrame(RawClient& client) {
    const std::string head = client.receiveBytes(2);
    if (head.size() < 2) {
        return {};
    }
    std::size_t size = static_cast<unsigned char>(head[1]) & 0x7F;
    if (size >= 126) {
        const std::string extended = client.receiveBytes(size == 126 ? 2 : 8);
        size = 0;
        for (const char byte : extended) {
            size = size << 8 | static_cast<unsigned char>(byte);
        }
    }
    return {head[0] & 0x0F, (head[0] & 0x80) != 0, client.receiveBytes(size)};
}

/// A client whose upgrade was answered.
class StreamClient : public RawClient {
public:
    explicit StreamClient(TestServer& server) : RawClient(server.port()) {
        send(makeHead(server, "GET /api/v1/logs/web/ws",
                      "Connection: keep-alive, Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
                      "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"));
        EXPECT_EQ(receive().status, 101);
    }
};

/// An operation that stays until it is told that the stream has ended, as one that follows a log does. One stream at a
/// time.
class Follower {
public:
    explicit Follower(TestHandler& handler) {
        handler.closeCallback = &Follower::onClose;
        handler.closeContext = this;
        handler.stream = [this](KxCErrorListPool& pool, KxCWebSocket* socket) { follow(pool, socket); };
    }

    std::atomic<int> closes{0};
    std::atomic<int> ended{0};

private:
    static void onClose(const void* context, std::uint32_t length, KxCWebSocket* socket) {
        auto* const self = static_cast<Follower*>(const_cast<void*>(context));
        EXPECT_EQ(length, 7U);
        EXPECT_FALSE(socket->isOpen());
        ++self->closes;
    }

    void follow(KxCErrorListPool& pool, KxCWebSocket* socket) {
        const int closesBefore = closes;
        socket->sendText(pool, "begun", 5, -1, false);
        waitFor([&] { return closes != closesBefore; }, 60s);
        socket->sendText(pool, "ended", 5, -1, false);
        delete socket;
        ++ended;
    }
};

using ServerStream = ServerTest;

TEST_F(ServerStream, ClientFramesAreTreatedAsTheProtocolAsks) {
    Follower follower(handler);
    const std::string good = last(CLOSE, "\x03\xe8");
    const std::tuple<const char*, std::string, int> cases[] = {
        {"a close", good, 1000},
        {"an empty close", last(CLOSE, ""), 1000},
        {"a message that is ignored", last(TEXT, "hello") + good, 1000},
        {"a binary message that is ignored", last(BINARY, std::string(1, '\0')) + good, 1000},
        {"fragments", makeFrame(TEXT, "a") + makeFrame(CONTINUATION, "b") + last(CONTINUATION, "c") + good, 1000},
        {"a control frame between fragments", makeFrame(TEXT, "a") + last(PONG, "x") + last(CONTINUATION, "c") + good,
         1000},
        {"a text of 64 KiB", last(TEXT, std::string(65536, 'a')) + good, 1000},
        {"a text that is too large", last(TEXT, std::string(65537, 'a')), 1009},
        {"fragments that are too large together",
         makeFrame(TEXT, std::string(40000, 'a')) + last(CONTINUATION, std::string(40000, 'a')), 1009},
        {"a frame without a mask", "\x81\x01z", 1002},
        {"a reserved opcode", makeFrame(0x83, "a"), 1002},
        {"a reserved control opcode", makeFrame(0x8B, ""), 1002},
        {"a reserved bit", makeFrame(0xC1, "a"), 1002},
        {"a continuation of nothing", last(CONTINUATION, "a"), 1002},
        {"a message inside a message", makeFrame(TEXT, "a") + last(TEXT, "b"), 1002},
        {"a fragmented ping", makeFrame(PING, "a"), 1002},
        {"a ping that is too large", last(PING, std::string(126, 'a')), 1002},
        {"a close of one byte", last(CLOSE, "a"), 1002},
        {"a close code that must not be sent", last(CLOSE, "\x03\xed"), 1002},
        {"text that is no UTF-8", last(TEXT, "\xff"), 1007}};
    for (const auto& [fault, frames, closeCode] : cases) {
        SCOPED_TRACE(fault);
        const int closesBefore = follower.closes;
        StreamClient client(server);
        EXPECT_EQ(readFrame(client).payload, "begun");
        client.send(last(PING, "are you there"));
        EXPECT_EQ(readFrame(client).payload, "are you there");
        client.send(frames);
        const Frame frame = readFrame(client);
        EXPECT_EQ(frame.opcode, CLOSE);
        EXPECT_EQ(frame.closeCode(), closeCode);
        EXPECT_TRUE(client.isClosed());
        EXPECT_TRUE(waitFor([&] { return follower.closes == closesBefore + 1 && follower.ended == follower.closes; }));
    }
}

TEST_F(ServerStream, TextsArriveInOrderAndOnlyJoinableOnesAreJoined) {
    std::string expected;
    for (int i = 0; i < 1000; ++i) {
        expected += std::to_string(i) + ";";
    }
    handler.stream = [](KxCErrorListPool& pool, KxCWebSocket* socket) {
        const auto sendText = [&](const std::string& text, bool joinable) {
            EXPECT_TRUE(socket->sendText(pool, text.data(), text.size(), -1, joinable));
        };
        for (int i = 0; i < 1000; ++i) {
            sendText(std::to_string(i) + ";", true);
        }
        sendText("alone", false);
        sendText("", true);
        sendText("after", true);
        delete socket;
    };
    StreamClient client(server);
    std::string joined;
    Frame frame = readFrame(client);
    for (; frame.opcode == TEXT && frame.payload != "alone"; frame = readFrame(client)) {
        EXPECT_TRUE(frame.isLast) << "a message is one frame";
        joined += frame.payload;
    }
    EXPECT_EQ(joined, expected);
    EXPECT_EQ(frame.payload, "alone");
    EXPECT_EQ(readFrame(client).payload, "after");
    EXPECT_EQ(readFrame(client).closeCode(), 1000);
}

TEST_F(ServerStream, AnswersToPingsStandBetweenTheMessagesOfABusyStream) {
    constexpr int count = 200;
    const auto text = [](int number) { return std::to_string(number) + std::string(100'000, 'a'); };
    handler.stream = [&](KxCErrorListPool& pool, KxCWebSocket* socket) {
        for (int i = 0; i < count; ++i) {
            const std::string message = text(i);
            EXPECT_TRUE(socket->sendText(pool, message.data(), message.size(), -1, false));
        }
        delete socket;
    };
    StreamClient client(server);
    int pings = 0;
    int texts = 0;
    int pongs = 0;
    const auto ping = [&] { client.send(last(PING, std::to_string(pings++))); };
    while (pings < count) {
        ping();  // the first ones while the server is held up in the middle of a message
    }
    Frame frame = readFrame(client);
    for (; frame.opcode == TEXT || frame.opcode == PONG; frame = readFrame(client)) {
        if (frame.opcode == PONG) {
            ASSERT_EQ(frame.payload, std::to_string(pongs++));
            continue;
        }
        ASSERT_EQ(frame.payload, text(texts++));
        ping();
    }
    EXPECT_EQ(frame.closeCode(), 1000);
    EXPECT_EQ(texts, count);
    EXPECT_GT(pongs, 0);
}

TEST_F(ServerStream, TextsOfSeveralThreadsWaitForEachOther) {
    const std::string text(5'000'000, 'a');
    handler.stream = [&](KxCErrorListPool&, KxCWebSocket* socket) {
        onThreads(4, [&](int) {
            KxCErrorListPool pool;
            EXPECT_TRUE(socket->sendText(pool, text.data(), text.size(), -1, false));
        });
        delete socket;
    };
    StreamClient client(server);
    std::this_thread::sleep_for(50ms);  // until the first one waits for us, and the others for it
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(readFrame(client).payload.size(), text.size());
    }
    EXPECT_EQ(readFrame(client).closeCode(), 1000);
}

TEST(FrameHead, TellsTheLengthInAsFewBytesAsItTakes) {
    const std::pair<std::uint64_t, std::size_t> rows[] = {{125, 2}, {126, 4}, {0xFFFF, 4}, {0x10000, 10}};
    for (const auto& [payload, size] : rows) {
        EXPECT_EQ(FrameHead(::KxNTamberWebApi::Opcode::text, payload).bytes().size(), size) << payload;
    }
}

TEST_F(ServerStream, ASocketThatIsLeftBehindTellsOfAFailure) {
    handler.stream = [](KxCErrorListPool&, KxCWebSocket*) {};
    StreamClient client(server);
    EXPECT_EQ(readFrame(client).closeCode(), 1011);
}

TEST(ServerStreams, ClientsThatShowNoLifeAreCut) {
    Limits limits{.pingAfter = 100ms, .sweep = 20ms};
    {
        SCOPED_TRACE("one that answers pings stays");
        TestHandler handler;
        Follower follower(handler);
        TestServer server(handler, limits);
        StreamClient client(server);
        readFrame(client);
        for (int i = 0; i < 4; ++i) {
            const Frame ping = readFrame(client);
            EXPECT_EQ(ping.opcode, PING);
            client.send(last(PONG, ping.payload));
        }
        EXPECT_EQ(follower.closes, 0);
    }
    {
        SCOPED_TRACE("one that does not answer goes");
        TestHandler handler;
        Follower follower(handler);
        limits.pongWithin = 100ms;
        TestServer server(handler, limits);
        StreamClient client(server);
        EXPECT_TRUE(client.isClosed());
        EXPECT_TRUE(waitFor([&] { return follower.closes == 1 && follower.ended == 1; }));
    }
    {
        SCOPED_TRACE("one that does not read goes");
        std::atomic<bool> gaveUp{false};
        TestHandler handler;
        handler.stream = [&](KxCErrorListPool& pool, KxCWebSocket* socket) {
            const std::string text(65536, 'a');
            while (socket->sendText(pool, text.data(), text.size(), -1, true)) {
            }
            EXPECT_FALSE(socket->isOpen());
            delete socket;
            gaveUp = true;
        };
        limits.streamProgress = 300ms;
        TestServer server(handler, limits);
        StreamClient client(server);
        EXPECT_TRUE(waitFor([&] { return gaveUp.load(); }));
    }
}

TEST(ServerStreams, TheEndOfAStreamWaitsForASlowClient) {
    const std::string text(2'000'000, 'a');
    TestHandler handler;
    handler.stream = [&](KxCErrorListPool& pool, KxCWebSocket* socket) {
        EXPECT_TRUE(socket->sendText(pool, text.data(), text.size(), -1, false));
        delete socket;
    };
    TestServer server(handler, {.closeHandshake = 200ms, .sweep = 20ms});
    StreamClient client(server);
    const int smallBuffer = 64 * 1024;  // so that most waits in the server's kernel
    setsockopt(client.descriptor(), SOL_SOCKET, SO_RCVBUF, &smallBuffer, sizeof smallBuffer);
    std::this_thread::sleep_for(800ms);
    EXPECT_EQ(readFrame(client).payload.size(), text.size());
    EXPECT_EQ(readFrame(client).closeCode(), 1000);
}

TEST(ServerStreams, StopAndDetachEndStreamsWhoseOperationsStillSayGoodbye) {
    for (const bool stops : {true, false}) {
        SCOPED_TRACE(stops);
        TestHandler handler;
        Follower follower(handler);
        TestServer server(handler, {}, 30s);
        StreamClient client(server);
        EXPECT_EQ(readFrame(client).payload, "begun");
        std::thread ending([&] { stops ? server->stop() : handler.detach(); });
        EXPECT_EQ(readFrame(client).payload, "ended");
        const Frame frame = readFrame(client);
        EXPECT_EQ(frame.closeCode(), 1000);
        client.send(last(CLOSE, frame.payload));
        ending.join();
        EXPECT_EQ(follower.closes, 1);
    }
}

TEST(ServerStreams, NoCallbackRunsOnceTheSocketIsGone) {
    // The operation destroys its socket at the very time at which the client goes.
    struct Witness {
        std::atomic<bool> exists{false};
        std::atomic<int> late{0};
    } witness;
    TestHandler handler;
    handler.closeContext = &witness;
    handler.closeCallback = [](const void* context, std::uint32_t, KxCWebSocket*) {
        auto* const seen = static_cast<Witness*>(const_cast<void*>(context));
        std::this_thread::sleep_for(1ms);
        seen->late += seen->exists ? 0 : 1;
    };
    std::atomic<int> done{0};
    handler.stream = [&](KxCErrorListPool& pool, KxCWebSocket* socket) {
        witness.exists = true;
        socket->sendText(pool, "x", 1, -1, false);
        std::this_thread::sleep_for(std::chrono::microseconds(done * 37 % 1500));
        delete socket;
        witness.exists = false;
        ++done;
    };
    TestServer server(handler);
    for (int i = 1; i <= 100; ++i) {
        StreamClient client(server);
        readFrame(client);
        client.reset();
        ASSERT_TRUE(waitFor([&] { return done == i; }));
    }
    EXPECT_EQ(witness.late, 0);
}

}  // namespace
}  // namespace KxNWebApiTest

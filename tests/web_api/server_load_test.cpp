// Threads, deadlines, and the ends of connections, of the handler and of the server.

#include "server_fixture.h"

namespace KxNWebApiTest {
namespace {

using ServerLoad = ServerTest;

std::vector<std::unique_ptr<RawClient>> blockClients(TestServer& server, std::size_t count) {
    std::vector<std::unique_ptr<RawClient>> clients;
    for (std::size_t i = 0; i < count; ++i) {
        clients.push_back(std::make_unique<RawClient>(server.port()));
        clients.back()->send(makeHead(server, "GET /api/v1/block"));
    }
    return clients;
}

TEST(ServerLimits, TooManyBlockedRequestsAreRefusedInsteadOfStallingEverything) {
    TestHandler handler;
    TestServer server(handler, {.requestThreads = 6});
    auto clients = blockClients(server, 5);
    ASSERT_TRUE(handler.waitForBlocked(5));
    // The last one has taken the lead away only once the monitor has looked.
    EXPECT_TRUE(waitFor([&] { return ask(server, makeHead(server, "GET /api/v1/fast")).status == 503; }));
    handler.openGate();
    for (auto& client : clients) {
        EXPECT_EQ(client->receive().status, 204);
    }
    EXPECT_TRUE(waitFor([&] { return ask(server, makeHead(server, "GET /api/v1/fast")).status == 200; }));
}

TEST(ServerLimits, WhatDoesNotArriveInTimeIsAnsweredAndClosed) {
    TestHandler handler;
    // What is late is cut when the next sweep still finds it.
    TestServer server(handler, {.header = 200ms, .keepAlive = 1s, .progress = 300ms, .sweep = 250ms});
    const std::tuple<const char*, std::string, int> cases[] = {
        {"half a head", "GET /api/v1/fast HTTP/1.1\r\nHost", 408},
        {"half a JSON body",
         makeHead(server, "PATCH /api/v1/echo", "Content-Type: application/json\r\nContent-Length: 9\r\n") + "{", 408},
        {"half an upload", makeHead(server, "POST /api/v1/files", "Content-Length: 9\r\n") + "{", 408},
        {"nothing", "", 0},
        {"nothing after a request", makeHead(server, "GET /api/v1/fast"), 200}};
    for (const auto& [fault, request, status] : cases) {
        SCOPED_TRACE(fault);
        RawClient client(server.port());
        client.send(request);
        EXPECT_EQ(client.receive().status, status);
        EXPECT_TRUE(client.isClosed());
    }
}

TEST(ServerStop, LetsRunningRequestsEndAndClosesIdleConnections) {
    TestHandler handler;
    TestServer server(handler, {}, 30s);
    RawClient idle(server.port());
    auto clients = blockClients(server, 3);
    ASSERT_TRUE(handler.waitForBlocked(3));
    std::thread stopping([&] { server->stop(); });
    EXPECT_TRUE(idle.isClosed());
    handler.openGate();
    for (auto& client : clients) {
        const Reply reply = client->receive();
        EXPECT_EQ(reply.status, 204);
        EXPECT_EQ(reply.field("Connection"), "close");
    }
    stopping.join();
    EXPECT_THROW(RawClient(server.port()), std::runtime_error);
}

TEST_F(ServerLoad, StopReturnsOnlyWhenNoOperationRuns) {
    auto clients = blockClients(server, 2);
    ASSERT_TRUE(handler.waitForBlocked(2));
    std::atomic<bool> hasStopped{false};
    std::thread stopping([&] {
        server->stop();
        hasStopped = true;
    });
    EXPECT_TRUE(clients[0]->isClosed(20s)) << "the grace of a second is over";
    EXPECT_FALSE(hasStopped);
    handler.openGate();
    stopping.join();
}

TEST_F(ServerLoad, ADetachedHandlerIsNotCalledAnyMore) {
    auto clients = blockClients(server, 1);
    ASSERT_TRUE(handler.waitForBlocked(1));
    std::atomic<bool> isDetached{false};
    std::thread detaching([&] {
        handler.detach();
        isDetached = true;
    });
    EXPECT_TRUE(waitFor([&] { return ask(server, makeHead(server, "GET /api/v1/fast")).status == 503; }));
    EXPECT_FALSE(isDetached) << "an operation still runs";
    handler.openGate();
    detaching.join();
    EXPECT_EQ(ask(server, makeHead(server, "POST /api/v1/files")).status, 503);
    EXPECT_EQ(ask(server, makeHead(server, "GET /api/v1/openapi.json")).status, 503) << "what it describes has gone";
}

}  // namespace
}  // namespace KxNWebApiTest

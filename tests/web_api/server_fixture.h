// A server on a port of its own with a handler made for tests, and a client that works on raw bytes.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <span>
#include <string_view>

#include "KxTamberWebApi/KxHandler.h"
#include "platform/web_api/server/server.h"
#include "tests/support.h"

namespace KxNWebApiTest {

using namespace KxNTests;

/// What the operations of the tests do. Each hook runs on the thread that the server calls the operation on.
class TestHandler : public KxNTamberWebApi::KxCHandler {
public:
    ~TestHandler() override { detach(); }

    const char* getServiceTitle() override { return "Test"; }
    const char* getDescription() override { return "Operations for tests"; }
    const char* getVersion() override { return "1.0"; }
    const char* getApiName() override { return "test"; }
    const char* getBasePath(bool resolved) override { return resolved ? "/api/v1" : "/api/{version}"; }
    const char* getServiceName() override { return "TestService"; }
    const KxSTamberWebApiEndpoint* const* getEndpoints() override;

    bool handleRequest(KxCErrorListPool& pool, KxNTamberWebApi::KxCRequest* request,
                       const KxNTamberWebApi::KxSBody* body, const KxSTamberWebApiParameterValue* const* values,
                       KxNTamberWebApi::KxCResponse* response) override;
    bool handleWebSocket(KxCErrorListPool& pool, const KxSTamberWebApiEndpoint* endpoint,
                         const KxSTamberWebApiParameterValue* const* values,
                         KxNTamberWebApi::KxCWebSocket* socket) override;
    std::uint32_t handleUploadChunk(const KxSTamberWebApiEndpoint* endpoint, const char* requestTarget,
                                    const char* contentType, const char* fileName, const char* fieldName,
                                    const void* data, std::uint64_t offset, std::uint32_t size) override;

    /// Holds `GET /block` until it is opened; counts who is inside.
    void openGate();
    /// True when `count` operations wait at the gate within some seconds.
    bool waitForBlocked(std::size_t count);

    std::function<bool(std::string_view data, std::uint64_t offset, const std::string& fileName)> takeChunk;
    /// Gives the status that the finish of an upload is answered with.
    std::function<int()> finishUpload;
    std::function<void(KxCErrorListPool& pool, KxNTamberWebApi::KxCWebSocket* socket)> stream;
    KxNTamberWebApi::KxCWebSocket::CloseCallback closeCallback = nullptr;
    const void* closeContext = nullptr;

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::size_t blocked = 0;
    bool gateIsOpen = false;
};

/// A server with a token in a directory that goes with it.
class TestServer {
public:
    /// `grace` is what running requests get when the server stops.
    explicit TestServer(TestHandler& handler, const KxNTamberWebApi::Limits& limits = {},
                        std::chrono::seconds grace = 1s, const std::string& certificates = "/nonexistent",
                        std::span<const KxNTamberWebApi::StaticFile> files = {});

    std::uint16_t port() const { return server->port(); }
    std::string authorization() const { return "Authorization: Bearer " + token + "\r\n"; }
    KxNTamberWebApi::Server* operator->() { return server.get(); }

private:
    const TemporaryDirectory directory;
    std::string token;
    std::unique_ptr<KxNTamberWebApi::Server> server;
};

struct Reply {
    int status = 0;
    std::string head;
    std::string body;
    std::string field(std::string_view name) const;
};

/// One TCP connection. Every wait ends after some seconds.
class RawClient {
public:
    explicit RawClient(std::uint16_t port);
    ~RawClient();
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    /// False when the server has closed the connection.
    bool send(std::string_view bytes);
    /// The next answer; status 0 when the connection ended or nothing came.
    Reply receive();
    /// The next `size` bytes, fewer at the end of the connection.
    std::string receiveBytes(std::size_t size);
    /// True when the server has closed the connection, or does so within `timeout`.
    bool isClosed(std::chrono::milliseconds timeout = 5s);
    void finishSending();
    /// Closes with a reset, as a client that dies does.
    void reset();
    int descriptor() const { return socket; }

private:
    int socket;
    std::string received;
};

/// Sends `request` on a connection of its own and gives the answer.
Reply ask(const TestServer& server, const std::string& request);
/// A request line and the fields that every request of the tests has.
std::string makeHead(const TestServer& server, const std::string& methodAndTarget, const std::string& fields = "");

std::size_t countThreads();

}  // namespace KxNWebApiTest

// A server on a port of its own with a handler made for tests, and a client that works on raw bytes.
#pragma once

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <span>
#include <string_view>

#include "KxErrorManager.h"
#include "KxJson.h"
#include "KxTamberWebApi/KxHandler.h"
#include "platform/web_api/server/server.h"
#include "tests/support.h"

namespace KxNWebApiTest {

using namespace KxNTests;
using namespace KxNTamberWebApi;

namespace routes {

constexpr std::uint8_t jsonBody[] = {BODY_JSON, 1};
constexpr std::uint8_t uploadBody[] = {BODY_UPLOAD, 1};
constexpr KxSTamberWebApiParameter version{"version", 0x104};
constexpr KxSTamberWebApiParameter name{"name", 0x10104};
constexpr const KxSTamberWebApiParameter* plain[] = {&version, nullptr};
constexpr const KxSTamberWebApiParameter* named[] = {&version, &name, nullptr};

constexpr KxSTamberWebApiEndpoint fast{1, "fast", METHOD_GET, "/fast", nullptr, plain, 0, 0};
constexpr KxSTamberWebApiEndpoint block{2, "block", METHOD_GET, "/block", nullptr, plain, 0, 0};
constexpr KxSTamberWebApiEndpoint echo{3, "echo", METHOD_PATCH, "/echo", jsonBody, plain, 0, 0};
constexpr KxSTamberWebApiEndpoint files{4, "files", METHOD_POST, "/files", uploadBody, plain, 0, 1};
constexpr KxSTamberWebApiEndpoint items{5, "items", METHOD_DELETE, "/items/{name}", nullptr, named, 0, 0};
constexpr KxSTamberWebApiEndpoint throwing{6, "throwing", METHOD_GET, "/throw", nullptr, plain, 0, 0};
constexpr KxSTamberWebApiEndpoint silent{7, "silent", METHOD_GET, "/silent", nullptr, plain, 0, 0};
constexpr KxSTamberWebApiEndpoint logs{8, "logs", METHOD_GET, "/logs/{name}/ws", nullptr, named, 0, 0};
constexpr const KxSTamberWebApiEndpoint* endpoints[] = {&fast,     &block,  &echo, &files, &items,
                                                        &throwing, &silent, &logs, nullptr};

}  // namespace routes

/// What the operations of the tests do. Each hook runs on the thread that the server calls the operation on.
class TestHandler : public KxCHandler {
public:
    ~TestHandler() override { detach(); }

    const char* getServiceTitle() override { return "Test"; }
    const char* getDescription() override { return "Operations for tests"; }
    const char* getVersion() override { return "1.0"; }
    const char* getApiName() override { return "test"; }
    const char* getBasePath(bool resolved) override { return resolved ? "/api/v1" : "/api/{version}"; }
    const char* getServiceName() override { return "TestService"; }
    const KxSTamberWebApiEndpoint* const* getEndpoints() override { return routes::endpoints; }

    bool handleRequest(KxCErrorListPool& pool, KxCRequest* request, const KxSBody* body,
                       const KxSTamberWebApiParameterValue* const* values, KxCResponse* response) override {
        switch (request->getEndpoint()->id) {
            case 1:
                response->setJsonBody(pool, 200, R"({"ok":true})");
                return true;
            case 2: {
                std::unique_lock lock(mutex);
                ++blocked;
                changed.notify_all();
                changed.wait(lock, [this] { return gateIsOpen; });
                --blocked;
                response->setEmptyBody(pool, 0);
                return true;
            }
            case 3: {
                const KxNJson::json nothing;
                response->setJsonBody(pool, 200, body->content != nullptr ? body->content : &nothing);
                return true;
            }
            case 4: {
                const int status = finishUpload ? finishUpload() : 200;
                status >= 400 ? response->setError(pool, status, "Refused", "finish", 1)
                              : response->setJsonBody(pool, status, body->content);
                return true;
            }
            case 5:
                response->setError(pool, 409, "Conflict",
                                   getStringParam(values, "name", LOCATION_PATH) + std::string("\0!", 2), 1);
                return true;
            case 6:
                throw std::runtime_error("no reason");
            case 8:
                response->switchWebSocket(pool, "log", nullptr, nullptr, 0, closeCallback, closeContext, 7);
                return true;
            default:
                return false;
        }
    }
    bool handleWebSocket(KxCErrorListPool& pool, const KxSTamberWebApiEndpoint*,
                         const KxSTamberWebApiParameterValue* const*, KxCWebSocket* socket) override {
        stream(pool, socket);
        return true;
    }
    std::uint32_t handleUploadChunk(const KxSTamberWebApiEndpoint*, const char*, const char*, const char* fileName,
                                    const char*, const void* data, std::uint64_t offset, std::uint32_t size) override {
        const std::string_view bytes(static_cast<const char*>(data), size);
        return !takeChunk || takeChunk(bytes, offset, fileName != nullptr ? fileName : "") ? 0 : 0xFFFFFFFF;
    }

    /// Holds `GET /block` until it is opened; counts who is inside.
    void openGate() {
        std::lock_guard lock(mutex);
        gateIsOpen = true;
        changed.notify_all();
    }
    /// True when `count` operations wait at the gate within some seconds.
    bool waitForBlocked(std::size_t count) {
        std::unique_lock lock(mutex);
        const bool areInside = changed.wait_for(lock, 20s, [&] { return blocked >= count; });
        gateIsOpen |= !areInside;  // the test ends then, and nobody else would open it
        changed.notify_all();
        return areInside;
    }

    std::function<bool(std::string_view data, std::uint64_t offset, const std::string& fileName)> takeChunk;
    /// Gives the status that the finish of an upload is answered with.
    std::function<int()> finishUpload;
    std::function<void(KxCErrorListPool& pool, KxCWebSocket* socket)> stream;
    KxCWebSocket::CloseCallback closeCallback = nullptr;
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
    explicit TestServer(TestHandler& handler, const Limits& limits = {}, std::chrono::seconds grace = 1s,
                        const std::string& certificates = "/nonexistent", std::span<const StaticFile> files = {}) {
        ServerSettings settings;
        settings.port = 0;
        settings.tokenFile = directory.path("token");
        settings.identitiesFile = directory.path("identities.json");
        settings.auditFile = directory.path("audit.log");
        settings.certificatesDirectory = certificates;
        settings.uploadKinds = {{"files", {false, {}, {}}}};
        settings.requestThreads = 4;
        server = std::make_unique<Server>(settings, limits);
        server->prepare();
        server->registerHandler(&handler);
        server->serveFiles(files);
        server->start(grace);
        std::ifstream(settings.tokenFile) >> token;
    }

    std::uint16_t port() const { return server->port(); }
    std::string authorization() const { return "Authorization: Bearer " + token + "\r\n"; }
    Server* operator->() { return server.get(); }

private:
    const TemporaryDirectory directory;
    std::string token;
    std::unique_ptr<Server> server;
};

struct Reply {
    int status = 0;
    std::string head;
    std::string body;
    std::string field(std::string_view fieldName) const {
        const std::string wanted = "\r\n" + std::string(fieldName) + ": ";
        const std::size_t begin = head.find(wanted);
        if (begin == head.npos) {
            return {};
        }
        const std::size_t value = begin + wanted.size();
        return head.substr(value, head.find("\r\n", value) - value);
    }
};

/// One TCP connection. Every wait ends after some seconds.
class RawClient {
public:
    explicit RawClient(std::uint16_t port) : socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            throw std::runtime_error("connect failed");
        }
    }
    ~RawClient() { ::close(socket); }
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    /// False when the server has closed the connection.
    bool send(std::string_view bytes) {
        return ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
    }
    /// The next answer; status 0 when the connection ended or nothing came.
    Reply receive() {
        Reply reply;
        while (!reply.head.ends_with("\r\n\r\n")) {
            const std::string byte = receiveBytes(1);
            if (byte.empty()) {
                return {};
            }
            reply.head += byte;
        }
        reply.status = std::atoi(reply.head.c_str() + 9);
        const std::string length = reply.field("Content-Length");
        if (!length.empty()) {
            reply.body = receiveBytes(std::stoul(length));
        }
        return reply;
    }
    /// The next `size` bytes, fewer at the end of the connection.
    std::string receiveBytes(std::size_t size) {
        while (received.size() < size) {
            pollfd watched{socket, POLLIN, 0};
            char buffer[16384];
            const ssize_t got = ::poll(&watched, 1, 10'000) > 0 ? ::recv(socket, buffer, sizeof buffer, 0) : 0;
            if (got <= 0) {
                break;
            }
            received.append(buffer, static_cast<std::size_t>(got));
        }
        const std::string result = received.substr(0, size);
        received.erase(0, size);
        return result;
    }
    /// True when the server has closed the connection, or does so within `timeout`.
    bool isClosed(std::chrono::milliseconds timeout = 5s) {
        return waitFor(
            [this] {
                char buffer[16384];
                const ssize_t got = ::recv(socket, buffer, sizeof buffer, MSG_DONTWAIT);
                return got == 0 || (got < 0 && errno != EAGAIN);
            },
            timeout);
    }
    /// Closes with a reset, as a client that dies does.
    void reset() {
        const linger atOnce{1, 0};
        ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
        ::close(socket);
        socket = -1;
    }
    int descriptor() const { return socket; }

private:
    int socket;
    std::string received;
};

/// Sends `request` on a connection of its own and gives the answer.
inline Reply ask(const TestServer& server, const std::string& request) {
    RawClient client(server.port());
    client.send(request);
    return client.receive();
}
/// A request line and the fields that every request of the tests has.
inline std::string makeHead(const TestServer& server, const std::string& methodAndTarget,
                            const std::string& fields = "") {
    return methodAndTarget + " HTTP/1.1\r\nHost: localhost\r\n" + server.authorization() + fields + "\r\n";
}

/// What most tests of the server need.
class ServerTest : public ::testing::Test {
protected:
    TestHandler handler;
    TestServer server{handler};
};

}  // namespace KxNWebApiTest

#include "server_fixture.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>

#include "KxErrorManager.h"
#include "KxJson.h"

namespace KxNWebApiTest {

using namespace KxNTamberWebApi;

namespace {

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

}  // namespace

const KxSTamberWebApiEndpoint* const* TestHandler::getEndpoints() {
    return endpoints;
}

bool TestHandler::handleRequest(KxCErrorListPool& pool, KxCRequest* request, const KxSBody* body,
                                const KxSTamberWebApiParameterValue* const* values, KxCResponse* response) {
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
            if (status >= 400) {
                response->setError(pool, status, "Refused", "finish", 1);
            } else {
                response->setJsonBody(pool, status, body->content);
            }
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

bool TestHandler::handleWebSocket(KxCErrorListPool& pool, const KxSTamberWebApiEndpoint*,
                                  const KxSTamberWebApiParameterValue* const*, KxCWebSocket* socket) {
    stream(pool, socket);
    return true;
}

std::uint32_t TestHandler::handleUploadChunk(const KxSTamberWebApiEndpoint*, const char*, const char*,
                                             const char* fileName, const char*, const void* data, std::uint64_t offset,
                                             std::uint32_t size) {
    const std::string_view bytes(static_cast<const char*>(data), size);
    return !takeChunk || takeChunk(bytes, offset, fileName != nullptr ? fileName : "") ? 0 : 0xFFFFFFFF;
}

void TestHandler::openGate() {
    std::lock_guard lock(mutex);
    gateIsOpen = true;
    changed.notify_all();
}

bool TestHandler::waitForBlocked(std::size_t count) {
    std::unique_lock lock(mutex);
    const bool areInside = changed.wait_for(lock, 20s, [&] { return blocked >= count; });
    gateIsOpen |= !areInside;  // the test ends then, and nobody else would open it
    changed.notify_all();
    return areInside;
}

TestServer::TestServer(TestHandler& handler, const Limits& limits, std::chrono::seconds grace,
                       const std::string& certificates, std::span<const StaticFile> files) {
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

std::string Reply::field(std::string_view fieldName) const {
    const std::string wanted = "\r\n" + std::string(fieldName) + ": ";
    const std::size_t begin = head.find(wanted);
    if (begin == head.npos) {
        return {};
    }
    const std::size_t value = begin + wanted.size();
    return head.substr(value, head.find("\r\n", value) - value);
}

RawClient::RawClient(std::uint16_t port) : socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        throw std::runtime_error("connect failed");
    }
}

RawClient::~RawClient() {
    ::close(socket);
}

bool RawClient::send(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

std::string RawClient::receiveBytes(std::size_t size) {
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

Reply RawClient::receive() {
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

bool RawClient::isClosed(std::chrono::milliseconds timeout) {
    return waitFor(
        [this] {
            char buffer[16384];
            const ssize_t got = ::recv(socket, buffer, sizeof buffer, MSG_DONTWAIT);
            return got == 0 || (got < 0 && errno != EAGAIN);
        },
        timeout);
}

void RawClient::finishSending() {
    ::shutdown(socket, SHUT_WR);
}

void RawClient::reset() {
    const linger atOnce{1, 0};
    ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    ::close(socket);
    socket = -1;
}

std::string makeHead(const TestServer& server, const std::string& methodAndTarget, const std::string& fields) {
    return methodAndTarget + " HTTP/1.1\r\nHost: localhost\r\n" + server.authorization() + fields + "\r\n";
}

Reply ask(const TestServer& server, const std::string& request) {
    RawClient client(server.port());
    client.send(request);
    return client.receive();
}

std::size_t countThreads() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

}  // namespace KxNWebApiTest

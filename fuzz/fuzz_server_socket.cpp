// Whatever bytes a client sends to the whole server: what comes back is HTTP, the connection ends, and others are
// served.
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <memory>

#include "KxErrorManager.h"
#include "KxJson.h"
#include "KxTamberWebApi/KxHandler.h"
#include "KxTamberWebApi/KxRequest.h"
#include "KxTamberWebApi/KxResponse.h"
#include "fuzz/require.h"
#include "fuzz/scratch_directory.h"
#include "platform/common/unique_fd.h"
#include "platform/web_api/server/server.h"

using namespace KxNTamberWebApi;

constexpr timeval PATIENCE{8, 0};

constexpr std::uint8_t jsonBody[] = {BODY_JSON, 1};
constexpr std::uint8_t uploadBody[] = {BODY_UPLOAD, 1};
constexpr KxSTamberWebApiParameter name{"name", 0x10104};
constexpr KxSTamberWebApiParameter number{"n", 0x203};
constexpr const KxSTamberWebApiParameter* plain[] = {&number, nullptr};
constexpr const KxSTamberWebApiParameter* named[] = {&name, nullptr};
constexpr KxSTamberWebApiEndpoint fast{1, "fast", METHOD_GET, "/f", nullptr, plain, 0, 0};
constexpr KxSTamberWebApiEndpoint echo{2, "echo", METHOD_PATCH, "/e", jsonBody, plain, 0, 0};
constexpr KxSTamberWebApiEndpoint files{3, "files", METHOD_POST, "/u", uploadBody, plain, 0, 1};
constexpr KxSTamberWebApiEndpoint items{4, "items", METHOD_DELETE, "/i/{name}", nullptr, named, 0, 0};
constexpr KxSTamberWebApiEndpoint logs{5, "logs", METHOD_GET, "/l/{name}/ws", nullptr, named, 0, 0};
constexpr const KxSTamberWebApiEndpoint* endpoints[] = {&fast, &echo, &files, &items, &logs, nullptr};

class Handler : public KxCHandler {
public:
    const char* getServiceTitle() override { return "Fuzzed"; }
    const char* getDescription() override { return ""; }
    const char* getVersion() override { return "1.0"; }
    const char* getApiName() override { return "fuzzed"; }
    const char* getBasePath(bool) override { return "/a"; }
    const char* getServiceName() override { return "Fuzzed"; }
    const KxSTamberWebApiEndpoint* const* getEndpoints() override { return endpoints; }

    bool handleRequest(KxCErrorListPool& pool, KxCRequest* request, const KxSBody* body,
                       const KxSTamberWebApiParameterValue* const* values, KxCResponse* response) override {
        const auto* endpoint = request->getEndpoint();
        if (endpoint == &logs) {
            response->switchWebSocket(pool, "log", nullptr, nullptr, 0, nullptr, nullptr, 0);
        } else if (endpoint == &items) {
            response->setError(pool, 404, "NotFound", getStringParam(values, "name", LOCATION_PATH), 1);
        } else if (body->content != nullptr) {
            response->setJsonBody(pool, 200, body->content);
        } else {
            response->setJsonBody(pool, 200, "[\"ok\"]");
        }
        return true;
    }

    bool handleWebSocket(KxCErrorListPool& pool, const KxSTamberWebApiEndpoint*,
                         const KxSTamberWebApiParameterValue* const*, KxCWebSocket* socket) override {
        const std::unique_ptr<KxCWebSocket> owned(socket);
        owned->sendText(pool, "text", 4, -1, false);
        return true;
    }

    std::uint32_t handleUploadChunk(const KxSTamberWebApiEndpoint*, const char*, const char*, const char* fileName,
                                    const char*, const void*, std::uint64_t offset, std::uint32_t size) override {
        static thread_local std::uint64_t expected = 0;
        KX_REQUIRE(offset == 0 || offset == expected);
        KX_REQUIRE(fileName == nullptr || std::string_view(fileName).find('/') == std::string_view::npos);
        expected = offset + size;
        return offset > 1000 ? 0xFFFFFFFF : 0;
    }
};

/// Runs until the process ends, and logs next to nothing.
static std::uint16_t startServer() {
    static const ScratchDirectory directory;
    directory.write("conf", "[Log]\nLevel = 6\n");
    ::setenv("KX_CUSTOM_CONFIG", directory.path("conf").c_str(), 1);
    ServerSettings settings;
    settings.port = 0;
    settings.needsToken = false;
    settings.certificatesDirectory = "/nonexistent";
    settings.requestThreads = 2;
    auto& server = *new Server(settings, {});
    server.prepare();
    server.registerHandler(new Handler);
    server.start(std::chrono::seconds(1));
    return server.port();
}

static KxNCommon::UniqueFd connectTo(std::uint16_t port) {
    KxNCommon::UniqueFd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &PATIENCE, sizeof PATIENCE);
    ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &PATIENCE, sizeof PATIENCE);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int result;
    do {
        result = ::connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
    } while (result != 0 && errno == EINTR);  // libFuzzer's clock interrupts: the second call waits for the first's end
    KX_REQUIRE(result == 0);
    return socket;
}

/// Sends `bytes` and ends sending; gives all that comes back.
static std::string talk(std::uint16_t port, std::string_view bytes) {
    const KxNCommon::UniqueFd socket = connectTo(port);
    ssize_t size = 0;
    while (!bytes.empty() && (size >= 0 || errno == EINTR)) {
        size = ::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        bytes.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    }
    ::shutdown(socket.get(), SHUT_WR);
    std::string received;
    do {
        char room[4096];
        size = ::recv(socket.get(), room, sizeof room, 0);
        received.append(room, static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    } while (size > 0 || (size < 0 && errno == EINTR));
    KX_REQUIRE(size == 0 || errno != EAGAIN);
    return received;
}

void fuzz(std::string_view input) {
    static const std::uint16_t port = startServer();
    const std::string answer = talk(port, input);
    KX_REQUIRE(answer.empty() || answer.starts_with("HTTP/1.1 ") || answer.starts_with("HTTP/1.0 "));
    KX_REQUIRE(talk(port, "GET /a/f HTTP/1.1\r\nHost: localhost\r\n\r\n").ends_with("[\"ok\"]"));
}

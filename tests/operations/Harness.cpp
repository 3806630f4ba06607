#include "tests/operations/Harness.h"

#include <sched.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstring>
#include <deque>

#include "api/schemas.h"
#include "platform/console/endpoints.h"
#include "platform/console/schemas.h"

namespace KxNTests {

namespace {

/// The fixed paths of the service, empty and seen by this process only.
class PrivateFileSystem : public testing::Environment {
    void SetUp() override {
        std::filesystem::create_directories("/userstorage1");
        ASSERT_EQ(unshare(CLONE_NEWNS), 0) << "needs root: " << std::strerror(errno);
        ASSERT_EQ(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0) << std::strerror(errno);
        for (const char* path : {"/mnt", "/userstorage1", "/run"}) {
            ASSERT_EQ(mount("tests", path, "tmpfs", 0, "size=64m"), 0) << path << ": " << std::strerror(errno);
        }
    }
};

[[maybe_unused]] const auto* const environment = testing::AddGlobalTestEnvironment(new PrivateFileSystem);

/// Whether the API's description names `status` as an answer of the operation.
bool isDescribed(const KxSTamberWebApiEndpoint& endpoint, int status) {
    for (const auto* operation : {KxNCre::SCHEMAS.operations, KxNConsole::SCHEMAS.operations}) {
        for (; operation->operationId != nullptr; ++operation) {
            for (const auto* answer = operation->answers; answer->status != 0; ++answer) {
                if (answer->status == status && std::strcmp(operation->operationId, endpoint.operationId) == 0) {
                    return true;
                }
            }
        }
    }
    return false;
}

}  // namespace

const KxSTamberWebApiEndpoint& endpointOf(const std::string& operation) {
    const auto* endpoint = KxNCre::ENDPOINTS;
    while (*endpoint != nullptr && (*endpoint)->operationId != operation) {
        ++endpoint;
    }
    endpoint = *endpoint != nullptr ? endpoint : KxNConsole::endpoints();
    while ((*endpoint)->operationId != operation) {
        ++endpoint;
    }
    return **endpoint;
}

Operations::Operations() {
    std::filesystem::remove_all("/mnt/cfdrive");
    std::filesystem::remove_all("/userstorage1/container_rte");
    KxNDoubles::reset();
    served = &handler.emplace();
}

std::string Operations::call(const std::string& request) {
    std::istringstream parts(request);
    std::string operation;
    std::getline(parts, operation, ';');
    const std::size_t phase = operation.find("SetWebSocket");
    const bool isSocket = phase != operation.npos;
    const KxSTamberWebApiEndpoint& endpoint = endpointOf(operation.substr(0, phase));

    std::deque<std::string> texts;
    std::deque<KxSTamberWebApiParameterValue> values;
    std::vector<const KxSTamberWebApiParameterValue*> pointers;
    json content;
    KxNTamberWebApi::KxSBody body{nullptr};
    for (std::string part; std::getline(parts, part, ';');) {
        const std::string key = part.substr(0, part.find('='));
        const std::string& text = texts.emplace_back(part.substr(key.size() + 1));
        if (key == "body") {
            EXPECT_EQ(endpoint.bodyKinds[0], KxNTamberWebApi::BODY_JSON);
            content = json::parse(text);
            body.content = &content;
            continue;
        }
        const auto* parameter = endpoint.parameters;
        while ((*parameter)->name != key) {
            ++parameter;
        }
        const std::uint32_t flags = (*parameter)->flags;
        values.push_back({(*parameter)->name, flags >> 8 & 0xFF, flags & 0xFF, text.c_str(), text == "true",
                          std::strtoll(text.c_str(), nullptr, 10)});
        pointers.push_back(&values.back());
    }
    pointers.push_back(nullptr);

    world().journal.clear();
    KxNTamberWebApi::KxCRequest received(&endpoint, role, "ann");
    if (isSocket) {
        auto* socket = new KxNTamberWebApi::KxCWebSocket(nullptr);
        EXPECT_TRUE(served->handleWebSocket(pool, &endpoint, pointers.data(), socket));
    } else {
        EXPECT_TRUE(served->handleRequest(pool, &received, &body, pointers.data(), &response));
        EXPECT_TRUE(isDescribed(endpoint, world().answeredStatus)) << operation << ' ' << world().answeredStatus;
    }
    return world().journal.substr(0, world().journal.size() - 1);
}

void Operations::check(const std::string& request, const std::string& begun, const std::vector<Row>& rows) {
    for (const Row& row : rows) {
        if (!row.podman.empty()) {
            world().podman = {row.podman.size() > 4 ? row.podman.substr(4) : "", std::stoi(row.podman)};
        }
        std::string journal = row.journal;
        if (const std::size_t mark = journal.find('^'); mark != std::string::npos) {
            journal.replace(mark, 1, begun);
        }
        EXPECT_EQ(call(request + row.request), journal) << request + row.request << " when Podman says " << row.podman;
    }
}

std::int32_t Operations::chunk(const std::string& operation, const char* fileName, std::string_view data,
                               std::uint64_t offset) {
    return static_cast<std::int32_t>(handler->handleUploadChunk(&endpointOf(operation), "/target", "text/plain",
                                                                fileName, "", data.data(), offset,
                                                                static_cast<std::uint32_t>(data.size())));
}

}  // namespace KxNTests

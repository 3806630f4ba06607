#include "tests/operations/Harness.h"

#include <sched.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstring>

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

/// The values as the library hands them over.
std::vector<const Value*> pointersTo(const std::vector<Value>& values) {
    std::vector<const Value*> pointers;
    for (const Value& value : values) {
        pointers.push_back(&value);
    }
    pointers.push_back(nullptr);
    return pointers;
}

/// The response double writes into the journal and never looks at its state.
KxNTamberWebApi::KxCResponse::State& noState() {
    static int nothing;
    return reinterpret_cast<KxNTamberWebApi::KxCResponse::State&>(nothing);
}

}  // namespace

std::string Operations::call(KxNCre::KxEEndpoint endpoint, const std::vector<Value>& values,
                             const std::optional<json>& body) {
    world().journal.clear();
    KxNTamberWebApi::KxCRequest request(KxNCre::ENDPOINTS[endpoint - 1]);
    KxNTamberWebApi::KxCResponse response(noState());
    const KxNTamberWebApi::KxSBody requestBody{body ? &*body : nullptr};
    EXPECT_TRUE(handler->handleRequest(pool, &request, &requestBody, pointersTo(values).data(), &response));
    return world().journal;
}

void Operations::finish(KxNCre::KxEEndpoint endpoint) {
    KxCErrorListPool errors;
    KxNTamberWebApi::KxCRequest request(KxNCre::ENDPOINTS[endpoint - 1]);
    KxNTamberWebApi::KxCResponse response(noState());
    EXPECT_TRUE(handler->handleRequest(errors, &request, nullptr, pointersTo({}).data(), &response));
}

std::string Operations::callWebSocket(const std::vector<Value>& values) {
    world().journal.clear();
    auto* socket = new KxNTamberWebApi::KxCWebSocket(nullptr);
    EXPECT_TRUE(handler->handleWebSocket(pool, KxNCre::ENDPOINTS[KxNCre::ENDPOINT_GET_CONTAINER_LOGS - 1],
                                         pointersTo(values).data(), socket));
    return world().journal;
}

std::int32_t Operations::chunk(KxNCre::KxEEndpoint endpoint, const char* fileName, std::string_view data,
                               std::uint64_t offset) {
    return static_cast<std::int32_t>(handler->handleUploadChunk(KxNCre::ENDPOINTS[endpoint - 1], "/target",
                                                                "text/plain", fileName, "", data.data(), offset,
                                                                static_cast<std::uint32_t>(data.size())));
}

void Operations::checkAnswers(KxNCre::KxEEndpoint endpoint, const std::vector<Value>& values,
                              const std::vector<PodmanCase>& cases) {
    for (const auto& [status, answer, journal] : cases) {
        world().podman = {answer, status};
        EXPECT_EQ(call(endpoint, values), expected(journal));
    }
}

void Operations::checkBodies(KxNCre::KxEEndpoint endpoint, const std::vector<Value>& values,
                             const std::vector<BodyCase>& cases) {
    for (const auto& [body, journal] : cases) {
        EXPECT_EQ(call(endpoint, values, body), expected(journal));
    }
}

std::string expected(std::string journal) {
    const std::string mark = "<guard>\n";
    if (const auto at = journal.find(mark); at != std::string::npos) {
        journal.replace(at, mark.size(), "enabled?\nstatus?\n");
    }
    return journal.starts_with('\n') ? journal.substr(1) : journal;
}

}  // namespace KxNTests

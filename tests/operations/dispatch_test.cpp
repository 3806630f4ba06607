#include <cstring>

#include "api/operations.h"
#include "api/profiling.h"
#include "tests/operations/Harness.h"

using namespace KxNCre;
using namespace KxNTests;

/// Implements nothing.
class Bare : public KxCCreTamberWebApiHandler {};

static bool takesName(const KxSTamberWebApiEndpoint& endpoint) {
    return std::strstr(endpoint.route, "{name}") != nullptr;
}

/// The positions of virtual operations, counted from 1 (Itanium C++ ABI: one more than the offset in the table).
template <typename... Members>
std::vector<std::size_t> positions(Members... members) {
    const auto position = [](auto member) {
        std::ptrdiff_t offset = 0;
        std::memcpy(&offset, &member, sizeof(offset));
        return static_cast<std::size_t>(offset - 1) / sizeof(void*) + 1;
    };
    return {position(members)...};
}

TEST(VirtualOperations, StandAtTheirPositions) {
    using H = KxCCreTamberWebApiHandler;
    const auto operations =
        positions(&H::getServiceTitle, &H::getDescription, &H::getVersion, &H::getApiName, &H::getBasePath,
                  &H::getServiceName, &H::getEndpoints, &H::handleRequest, &H::handleWebSocket, &H::handleUploadChunk,
                  &H::ListContainers, &H::DeleteContainer, &H::StartContainer, &H::StopContainer, &H::GetContainerLogs,
                  &H::GetContainerLogsSetWebSocket, &H::ListImages, &H::UploadImage, &H::UploadImageStart,
                  &H::RemoveImage, &H::GetSettings, &H::PatchSettings, &H::GetEnable, &H::PatchEnable, &H::ListPlugins,
                  &H::UploadPlugin, &H::UploadPluginStart, &H::DeletePlugin, &H::ActivatePlugin, &H::ComposeStart,
                  &H::ComposeStop, &H::ComposeCreate, &H::ComposeRemove, &H::ListComposeFiles, &H::UploadComposeFile,
                  &H::UploadComposeFileStart, &H::DeleteComposeFile, &H::ListCerts, &H::UploadCertificate,
                  &H::UploadCertificateStart, &H::DeleteCertificate, &H::UploadPrivateKey, &H::UploadPrivateKeyStart,
                  &H::DeletePrivateKey, &H::UploadCaCertificate, &H::UploadCaCertificateStart, &H::DeleteCaCertificate);
    for (std::size_t i = 0; i < operations.size(); ++i) {
        EXPECT_EQ(operations[i], 3 + i);
    }
}

TEST(BareHandler, DescribesTheApi) {
    Bare bare;
    EXPECT_STREQ(bare.getServiceTitle(), "Korvex Container Service");
    EXPECT_STREQ(bare.getDescription(),
                 "REST API for managing container images on the Korvex container runtime. Endpoints relay image "
                 "management requests to the embedded Podman service via its REST API (Unix socket or TCP, depending "
                 "on configuration).");
    EXPECT_STREQ(bare.getVersion(), "1.0");
    EXPECT_STREQ(bare.getApiName(), "cre");
    EXPECT_STREQ(bare.getBasePath(true), "/api/cre/v1.0");
    EXPECT_STREQ(bare.getBasePath(false), "/api/cre/{version}");
    EXPECT_STREQ(bare.getServiceName(), "CreService");
}

class Dispatch : public Operations {};

TEST_F(Dispatch, RefusesWhatItDoesNotKnowOrOffer) {
    Bare bare;
    const std::string data = "data";
    const auto upload = [&](const KxSTamberWebApiEndpoint* endpoint, const char* target, const char* type) {
        return bare.handleUploadChunk(endpoint, target, type, "file", "", data.data(), 0, 4);
    };
    const auto request = [&](const KxSTamberWebApiEndpoint* endpoint, KxNTamberWebApi::KxCResponse* answer) {
        KxNTamberWebApi::KxCRequest received(endpoint);
        return bare.handleRequest(pool, &received, nullptr, nullptr, answer);
    };
    for (const auto* const* endpoint = ENDPOINTS; *endpoint != nullptr; ++endpoint) {
        world().journal.clear();
        EXPECT_TRUE(request(*endpoint, &response));
        EXPECT_EQ(world().journal, "NotImplemented 501: Service does not support functionality.\n");
        EXPECT_EQ(upload(*endpoint, "/", ""), 0xFFFFFFFF);
    }

    world().journal.clear();
    KxSTamberWebApiEndpoint unknown = *ENDPOINTS[0];
    for (const std::uint64_t id : {std::uint64_t{0}, std::uint64_t{31}, ~std::uint64_t{0}}) {
        unknown.id = id;
        EXPECT_FALSE(request(&unknown, &response));
    }
    EXPECT_FALSE(bare.handleRequest(pool, nullptr, nullptr, nullptr, &response));
    EXPECT_FALSE(request(nullptr, &response));
    EXPECT_FALSE(request(ENDPOINTS[0], nullptr));
    // The real handler would take these chunks.
    EXPECT_EQ(handler->handleUploadChunk(nullptr, "/", "", "f", "", "", 0, 0), 0xFFFFFFFF);
    EXPECT_EQ(handler->handleUploadChunk(ENDPOINTS[6], nullptr, "", "f", "", "", 0, 0), 0xFFFFFFFF);
    EXPECT_EQ(handler->handleUploadChunk(ENDPOINTS[6], "/", nullptr, "f", "", "", 0, 0), 0xFFFFFFFF);

    KxNTamberWebApi::KxCWebSocket socket(nullptr);
    EXPECT_FALSE(bare.handleWebSocket(pool, nullptr, nullptr, &socket));
    EXPECT_FALSE(bare.handleWebSocket(pool, ENDPOINTS[4], nullptr, nullptr));
    EXPECT_FALSE(bare.handleWebSocket(pool, ENDPOINTS[3], nullptr, &socket));
    EXPECT_EQ(world().journal, "");
    EXPECT_FALSE(bare.handleWebSocket(pool, ENDPOINTS[4], nullptr, &socket));
    EXPECT_EQ(world().journal,
              "error added: Attempt to set WebSocket failed. Service does not support functionality. Affected "
              "operation: 'openWebSocketSetWebSocket'.\n");
}

TEST_F(Dispatch, ErrorsOfThePoolAreTheResult) {
    world().duringPodman = [this] { pool.addError(0, "x"); };
    KxNTamberWebApi::KxCRequest request(ENDPOINTS[0]);
    EXPECT_FALSE(handler->handleRequest(pool, &request, nullptr, nullptr, &response));
}

TEST_F(Dispatch, OperationsAreRefusedWhileTheServiceIsNotUp) {
    const std::string disabled =
        "enabled?\n0: Skipping endpoint, container service is disabled\n"
        "InternalServerError 500: Container service is disabled";
    const std::string notStarted = GUARD +
                                   "0: Skipping endpoint, container service is not started\n"
                                   "InternalServerError 500: Container service is not started";
    for (const auto* const* endpoint = ENDPOINTS; *endpoint != nullptr; ++endpoint) {
        const std::string operation = (*endpoint)->operationId;
        if (operation == "getContainerLogs" || operation.ends_with("Settings") || operation.ends_with("Enable")) {
            continue;
        }
        for (const int status : {0, 1, 3, 4, 2}) {
            world().isEnabled = status != 2;
            world().status = status;
            const std::string journal =
                call(operation + (takesName(**endpoint) ? ";name=x.crp" : "") +
                     (operation == "activatePlugin" ? ";pluginVersion=1;body={\"activate\":true}" : ""));
            EXPECT_THAT(journal, StartsWith("0: " + operation + "\n"));
            EXPECT_THAT(journal, EndsWith(status == 2 ? disabled : notStarted));
        }
    }
}

TEST_F(Dispatch, ProfilerFramesEveryOperationOnEveryWayOut) {
    startProfiling();
    const std::string registered = world().journal;
    world().lowestLogLevel = 7;
    const auto checkFrame = [&](std::string operation, const std::string& request) {
        operation[0] = static_cast<char>(std::toupper(operation[0]));
        const auto index =
            std::find(OPERATION_NAMES.begin(), OPERATION_NAMES.end(), operation) - OPERATION_NAMES.begin();
        const std::string event = "profiler event " + operation + " is ";
        ASSERT_THAT(registered, HasSubstr(event));
        const std::string id = registered.substr(registered.find(event) + event.size(), 4);
        // Without parameters most operations end at their first check.
        const std::string journal = call(request);
        EXPECT_THAT(journal, StartsWith("profiler " + id + " 101 " + std::to_string(index) + "\n"));
        EXPECT_THAT(journal, EndsWith("\nprofiler " + id + " 102 " + std::to_string(index)));
    };
    for (const auto* const* endpoint = ENDPOINTS; *endpoint != nullptr; ++endpoint) {
        checkFrame((*endpoint)->operationId, (*endpoint)->operationId);
    }
    checkFrame("getContainerLogsSetWebSocket", "getContainerLogsSetWebSocket;name=web");
    stopProfiling();
    EXPECT_THAT(call("getEnable"), Not(HasSubstr("profiler")));
    world().failing = {"profiler open"};
    startProfiling();
    EXPECT_THAT(call("getEnable"), Not(HasSubstr("profiler 1")));
    stopProfiling();
}

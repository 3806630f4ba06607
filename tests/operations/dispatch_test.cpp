#include <cstring>
#include <set>

#include "api/operations.h"
#include "api/profiling.h"
#include "tests/operations/Harness.h"

using namespace KxNCre;
using namespace KxNTests;

namespace {

/// Implements nothing.
class Bare : public KxCCreTamberWebApiHandler {};

/// The position of a virtual operation, counted from 1 (Itanium C++ ABI: one more than its offset in the table).
template <typename Member>
std::size_t position(Member member) {
    std::ptrdiff_t offset = 0;
    std::memcpy(&offset, &member, sizeof(offset));
    return static_cast<std::size_t>(offset - 1) / sizeof(void*) + 1;
}

template <typename... Members>
std::vector<std::size_t> positions(Members... members) {
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

TEST(Endpoints, RecordsHoldTheirValues) {
    const char* const expectedTable[] = {
        "1 listContainers 1 /containers - version:104 all:201 0 0",
        "2 deleteContainer 4 /containers/{name} - version:104 name:10104 force:201 0 0",
        "3 startContainer 2 /containers/{name}/start - version:104 name:10104 0 0",
        "4 stopContainer 2 /containers/{name}/stop - version:104 name:10104 timeout:203 0 0",
        "5 getContainerLogs 1 /containers/{name}/logs/ws - version:104 name:10104 stdout:201 stderr:201 since:203 "
        "until:203 timestamps:201 tail:204 0 0",
        "6 listImages 1 /images - version:104 0 0",
        "7 uploadImage 2 /images 61 version:104 0 1",
        "8 removeImage 4 /images/{name} - version:104 name:10104 0 0",
        "9 getSettings 1 /settings - version:104 0 0",
        "10 patchSettings 5 /settings 51 version:104 0 0",
        "11 getEnable 1 /settings/enable - version:104 0 0",
        "12 patchEnable 5 /settings/enable 51 version:104 0 0",
        "13 listPlugins 1 /plugins - version:104 0 0",
        "14 uploadPlugin 2 /plugins 61 version:104 0 1",
        "15 deletePlugin 4 /plugins/{name} - version:104 name:10104 0 0",
        "16 activatePlugin 3 /plugins/{name}/activate 51 version:104 name:10104 pluginVersion:204 0 0",
        "17 composeStart 2 /compose-files/{name}/containers/start - version:104 name:10104 0 0",
        "18 composeStop 2 /compose-files/{name}/containers/stop - version:104 name:10104 0 0",
        "19 composeCreate 2 /compose-files/{name}/containers/create - version:104 name:10104 0 0",
        "20 composeRemove 4 /compose-files/{name}/containers - version:104 name:10104 0 0",
        "21 listComposeFiles 1 /compose-files - version:104 0 0",
        "22 uploadComposeFile 2 /compose-files 61 version:104 0 1",
        "23 deleteComposeFile 4 /compose-files/{name} - version:104 name:10104 0 0",
        "24 listCerts 1 /certs - version:104 0 0",
        "25 uploadCertificate 2 /certs/certificate 61 version:104 0 1",
        "26 deleteCertificate 4 /certs/certificate - version:104 0 0",
        "27 uploadPrivateKey 2 /certs/private-key 61 version:104 0 1",
        "28 deletePrivateKey 4 /certs/private-key - version:104 0 0",
        "29 uploadCaCertificate 2 /certs/ca-certificate 61 version:104 0 1",
        "30 deleteCaCertificate 4 /certs/ca-certificate - version:104 0 0",
    };
    KxNDoubles::reset();
    Bare bare;
    const auto* const* endpoint = bare.getEndpoints();
    for (const char* row : expectedTable) {
        ASSERT_NE(*endpoint, nullptr);
        const KxSTamberWebApiEndpoint& record = **endpoint++;
        std::ostringstream text;
        text << record.id << ' ' << record.operationId << ' ' << record.method << ' ' << record.route << ' ';
        if (record.bodyKinds != nullptr) {
            text << int{record.bodyKinds[0]} << int{record.bodyKinds[1]};
        } else {
            text << '-';
        }
        for (const auto* const* parameter = record.parameters; *parameter != nullptr; ++parameter) {
            text << ' ' << (*parameter)->name << ':' << std::hex << (*parameter)->flags << std::dec;
        }
        text << ' ' << record.reserved << ' ' << record.isUpload;
        EXPECT_EQ(text.str(), row);
    }
    EXPECT_EQ(*endpoint, nullptr);
}

TEST(BareHandler, DescribesTheApi) {
    KxNDoubles::reset();
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

TEST(BareHandler, RefusesWhatItDoesNotKnowOrOffer) {
    KxNDoubles::reset();
    Bare bare;
    KxCErrorListPool pool;
    int nothing = 0;
    KxNTamberWebApi::KxCResponse response(reinterpret_cast<KxNTamberWebApi::KxCResponse::State&>(nothing));
    const KxSTamberWebApiParameterValue* const noValues[] = {nullptr};
    const std::string data = "data";
    const auto upload = [&](const KxSTamberWebApiEndpoint* endpoint, const char* target, const char* type) {
        return bare.handleUploadChunk(endpoint, target, type, "file", "", data.data(), 0, 4);
    };

    for (const auto* const* endpoint = ENDPOINTS; *endpoint != nullptr; ++endpoint) {
        SCOPED_TRACE((*endpoint)->operationId);
        world().journal.clear();
        KxNTamberWebApi::KxCRequest request(*endpoint);
        EXPECT_TRUE(bare.handleRequest(pool, &request, nullptr, noValues, &response));
        EXPECT_EQ(world().journal, "error 501 NotImplemented: Service does not support functionality.\n");
        EXPECT_EQ(upload(*endpoint, "/", ""), 0xFFFFFFFF);
    }

    world().journal.clear();
    KxSTamberWebApiEndpoint unknown = *ENDPOINTS[0];
    for (const std::uint64_t id : {std::uint64_t{0}, std::uint64_t{31}, ~std::uint64_t{0}}) {
        unknown.id = id;
        KxNTamberWebApi::KxCRequest request(&unknown);
        EXPECT_FALSE(bare.handleRequest(pool, &request, nullptr, noValues, &response));
    }
    KxNTamberWebApi::KxCRequest withoutEndpoint(nullptr);
    KxNTamberWebApi::KxCRequest request(ENDPOINTS[0]);
    EXPECT_FALSE(bare.handleRequest(pool, nullptr, nullptr, noValues, &response));
    EXPECT_FALSE(bare.handleRequest(pool, &withoutEndpoint, nullptr, noValues, &response));
    EXPECT_FALSE(bare.handleRequest(pool, &request, nullptr, noValues, nullptr));
    EXPECT_EQ(upload(nullptr, "/", ""), 0xFFFFFFFF);
    EXPECT_EQ(upload(ENDPOINTS[6], nullptr, ""), 0xFFFFFFFF);
    EXPECT_EQ(upload(ENDPOINTS[6], "/", nullptr), 0xFFFFFFFF);

    KxNTamberWebApi::KxCWebSocket socket(nullptr);
    EXPECT_FALSE(bare.handleWebSocket(pool, nullptr, noValues, &socket));
    EXPECT_FALSE(bare.handleWebSocket(pool, ENDPOINTS[4], noValues, nullptr));
    EXPECT_FALSE(bare.handleWebSocket(pool, ENDPOINTS[3], noValues, &socket));
    EXPECT_EQ(world().journal, "");
    EXPECT_FALSE(bare.handleWebSocket(pool, ENDPOINTS[4], noValues, &socket));
    EXPECT_EQ(world().journal,
              "error added: Attempt to set WebSocket failed. Service does not support functionality. Affected "
              "operation: 'openWebSocketSetWebSocket'.\n");
}

class Guarded : public Operations {};

TEST_F(Guarded, OperationsAreRefusedWhileTheServiceIsNotUp) {
    const std::set<std::uint64_t> unguarded = {ENDPOINT_GET_CONTAINER_LOGS, ENDPOINT_GET_SETTINGS,
                                               ENDPOINT_PATCH_SETTINGS, ENDPOINT_GET_ENABLE, ENDPOINT_PATCH_ENABLE};
    const std::string disabled =
        "enabled?\n0: Skipping endpoint, container service is disabled\n"
        "error 500 InternalServerError: Container service is disabled\n";
    const std::string notStarted =
        "enabled?\nstatus?\n0: Skipping endpoint, container service is not started\n"
        "error 500 InternalServerError: Container service is not started\n";
    for (const auto* const* endpoint = ENDPOINTS; *endpoint != nullptr; ++endpoint) {
        if (unguarded.contains((*endpoint)->id)) {
            continue;
        }
        for (const int status : {0, 1, 3, 4, 2}) {
            world().isEnabled = status != 2;
            world().status = status;
            const std::string journal = call(static_cast<KxEEndpoint>((*endpoint)->id),
                                             {name("x.crp"), text("pluginVersion", "1")}, json{{"activate", true}});
            EXPECT_THAT(journal, StartsWith(std::string("0: ") + (*endpoint)->operationId + "\n"));
            EXPECT_THAT(journal, EndsWith(status == 2 ? disabled : notStarted));
        }
    }
}

TEST_F(Guarded, ErrorsOfThePoolAreTheDispatchResult) {
    world().duringPodman = [this] { pool.addError(0, "x"); };
    KxNTamberWebApi::KxCRequest request(ENDPOINTS[0]);
    int nothing = 0;
    KxNTamberWebApi::KxCResponse response(reinterpret_cast<KxNTamberWebApi::KxCResponse::State&>(nothing));
    EXPECT_FALSE(handler->handleRequest(pool, &request, nullptr, nullptr, &response));
}

TEST_F(Guarded, ProfilerFramesEveryOperationOnEveryWayOut) {
    struct Frame {
        Frame() { startProfiling(); }
        ~Frame() { stopProfiling(); }
    } const profiling;
    world().lowestLogLevel = 7;
    for (const auto* const* endpoint = ENDPOINTS; *endpoint != nullptr; ++endpoint) {
        std::string operation = (*endpoint)->operationId;
        operation[0] = static_cast<char>(std::toupper(operation[0]));
        const auto found = std::find(OPERATION_NAMES.begin(), OPERATION_NAMES.end(), operation);
        ASSERT_NE(found, OPERATION_NAMES.end());
        const std::string index = std::to_string(found - OPERATION_NAMES.begin());
        // Without parameters most operations end at their first check.
        const std::string journal = call(static_cast<KxEEndpoint>((*endpoint)->id), {name("")});
        EXPECT_TRUE(journal.starts_with("profiler 101 " + index + "\n")) << operation << journal;
        EXPECT_TRUE(journal.ends_with("profiler 102 " + index + "\n")) << operation << journal;
    }
    const std::string journal = callWebSocket({name("web")});
    EXPECT_TRUE(journal.starts_with("profiler 101 5\n"));
    EXPECT_TRUE(journal.ends_with("profiler 102 5\n"));
}

}  // namespace

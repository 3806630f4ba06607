#include <chrono>
#include <exception>
#include <string>
#include <string_view>

#include "KxCustomConfig.h"
#include "KxErrorManager.h"
#include "KxTamberWebApi/KxServer.h"
#include "platform/common/text.h"
#include "platform/console/console.h"
#include "platform/console/page_files.h"
#include "platform/web_api/server/server.h"
#include "platform/web_api/threads/heap.h"
#include "service/paths.h"

namespace KxNTamberWebApi {

namespace {

constexpr std::uint32_t SERVER_FAILED = 0x57410001;

const KxResText messages[] = {{SERVER_FAILED, "The web API server cannot serve"}, {0, nullptr}};

namespace config = KxNCustomConfig::KxNWebApi;

std::string readOption(const char* option, const char* defaultValue) {
    return KxCCustomConfig::getInstance()->getOption(config::pSection, option, defaultValue, false);
}

/// The configuration has refused what is no number in its range.
template <typename Number>
Number readNumber(const char* option, const char* defaultValue) {
    const std::string text = readOption(option, defaultValue);
    if (const auto number = KxNCommon::parseNumber<Number>(text)) {
        return *number;
    }
    throw std::runtime_error("Web API: option " + std::string(option) + " has the bad value '" + text + "'");
}

ServerSettings readSettings(std::uint32_t requestThreads) {
    std::string reason;
    if (!KxCCustomConfig::getInstance()->isUsable(config::pSection, &reason)) {
        throw std::runtime_error(reason);
    }
    ServerSettings settings;
    settings.address = readOption(config::pOptionAddress, "127.0.0.1");
    settings.port = readNumber<std::uint16_t>(config::pOptionPort, "8460");
    settings.needsToken = readOption(config::pOptionAuth, "required") != "none";
    settings.tokenFile = readOption(config::pOptionTokenFile, "/mnt/cfdrive/containers/api-token");
    settings.identitiesFile = readOption(config::pOptionIdentitiesFile, "/mnt/cfdrive/containers/identities.json");
    settings.auditFile = readOption(config::pOptionAuditFile, "/mnt/cfdrive/containers/audit.log");
    settings.maxConnections = readNumber<std::uint32_t>(config::pOptionMaxConnections, "1024");
    settings.maxUploadBytes = readNumber<std::uint64_t>(config::pOptionMaxUploadBytes, "0");
    settings.certificatesDirectory = KxNContainer::KxNContainerPaths::CONTAINER_CERTS_DIR;
    using namespace KxNContainer::KxNContainerPaths;
    settings.uploadKinds = {{"uploadImage", {true, IMAGES_STORAGE_DIR, {}}},
                            {"uploadPlugin", {false, PLUGINS_DIR, {}}},
                            {"uploadComposeFile", {false, COMPOSE_FILES_PATH, {}}},
                            {"uploadCertificate", {false, CONTAINER_CERTS_DIR, "server.crt"}},
                            {"uploadPrivateKey", {false, CONTAINER_CERTS_DIR, "server.key"}},
                            {"uploadCaCertificate", {false, CONTAINER_CERTS_DIR, "ca.crt"}}};
    settings.requestThreads = requestThreads;
    return settings;
}

}  // namespace

struct KxCServer::State {
    std::uint32_t requestThreads;
    KxNConsole::Console console{*KxNContainer::KxCContainer::GetInstance()};
    std::unique_ptr<Server> server;  // once it is initialised

    /// Calls `action` and reports its failure to `pool`.
    template <typename Action>
    static void report(KxCErrorListPool& pool, Action action) {
        try {
            action();
        } catch (const std::exception& failure) {
            pool.addError(SERVER_FAILED, failure.what());
        }
    }

    Server& get() const {
        if (!server) {
            throw std::logic_error("Web API: the server was not initialised");
        }
        return *server;
    }
};

KxCServer::KxCServer(std::unique_ptr<State> initial) : state(std::move(initial)) {}

KxCServer::~KxCServer() = default;

std::unique_ptr<KxCServer> KxCServer::create(KxCErrorListPool& pool, std::uint32_t requestThreads) {
    boundHeaps();
    if (requestThreads == 0) {
        pool.addError(SERVER_FAILED, "Web API: a server needs at least one request thread");
        return nullptr;
    }
    KxCErrorManager::_registerMessages(messages);
    auto initial = std::make_unique<State>();
    initial->requestThreads = requestThreads;
    return std::unique_ptr<KxCServer>(new KxCServer(std::move(initial)));
}

void KxCServer::init(KxCErrorListPool& pool) {
    State::report(pool, [this] {
        auto server = std::make_unique<Server>(readSettings(state->requestThreads), Limits());
        server->prepare();
        if (readOption(config::pOptionPage, "1") != "0") {
            server->serveFiles(KxNConsole::pageFiles());
        }
        state->server = std::move(server);
    });
}

void KxCServer::registerHandler(KxCErrorListPool& pool, KxCHandler* handler) {
    State::report(pool, [&] {
        state->get().registerHandler(handler);
        state->get().registerHandler(&state->console);
        state->console.observeTable(handler->getEndpoints());
        state->get().setObserver(&state->console);
    });
}

void KxCServer::start(KxCErrorListPool& pool, std::uint32_t stopGraceSeconds) {
    State::report(pool, [&] { state->get().start(std::chrono::seconds(stopGraceSeconds)); });
}

void KxCServer::stop(KxCErrorListPool& pool) {
    State::report(pool, [this] {
        if (state->server) {
            state->server->stop();
        }
    });
}

}  // namespace KxNTamberWebApi

#include "platform/web_api/server/server.h"

#include <stdexcept>
#include <utility>

#include "KxLog.h"
#include "platform/web_api/access/loopback.h"
#include "platform/web_api/description/openapi.h"
#include "platform/web_api/server/listener.h"
#include "platform/web_api/websocket/web_socket.h"

namespace KxNTamberWebApi {

namespace {

const KxSTamberWebApiEndpoint* const ownEndpoints[] = {&openApiEndpoint, nullptr};

/// How long connections get to end after they were cut, before this is looked at again.
constexpr std::chrono::milliseconds CUT_AGAIN_AFTER{50};

}  // namespace

Server::Server(ServerSettings settings, const Limits& limits)
    : core(std::make_unique<ServerCore>(std::move(settings), limits)) {}

Server::~Server() {
    stop();
}

void Server::prepare() {
    const ServerSettings& settings = core->settings;
    const bool isLocal = isLoopbackAddress(settings.address);
    core->tls = std::make_unique<KxNNet::TlsFiles>(settings.certificatesDirectory);
    if (!isLocal && !core->tls->isOn()) {
        throw std::runtime_error("Web API refuses to serve plain HTTP on " + settings.address +
                                 ": without TLS files in '" + settings.certificatesDirectory +
                                 "' only loopback addresses are served");
    }
    core->audit.emplace(settings.auditFile);
    if (!settings.needsToken) {
        if (!isLocal) {
            throw std::runtime_error("Web API refuses to serve " + settings.address +
                                     " without authentication: Auth = none goes with a loopback address only");
        }
        core->access.emplace(std::nullopt);
        return;
    }
    std::string error;
    const auto token = loadOrCreateToken(settings.tokenFile, error);
    if (!token) {
        throw std::runtime_error("Web API: " + error);
    }
    core->access.emplace(TokenVerifier(*token), std::make_unique<Identities>(settings.identitiesFile));
}

void Server::registerHandler(KxCHandler* handler) {
    const std::string_view basePath = handler->getBasePath(true);
    if (handlers.empty()) {
        core->router.emplace(handler->getEndpoints(), basePath, handler->getBasePath(false));
        core->router->add(ownEndpoints);
    } else if (basePath == handlers.front()->getBasePath(true)) {
        core->router->add(handler->getEndpoints());
    } else {
        throw std::invalid_argument("Web API: all handlers lie below one base path, not below '" +
                                    std::string(basePath) + "'");
    }
    auto registration = std::make_shared<KxCHandler::Registration>(handler, [this] { endStreams(); });
    for (auto endpoint = handler->getEndpoints(); *endpoint != nullptr; ++endpoint) {
        core->served[*endpoint].registration = registration;
    }
    handler->registration = registration;
    core->registrations.push_back(std::move(registration));
    handlers.push_back(handler);
}

void Server::serveFiles(std::span<const StaticFile> files) {
    core->files.emplace(files);
}

void Server::start(std::chrono::milliseconds stopGrace) {
    grace = stopGrace;
    listener = std::make_unique<Listener>(*core);
    isRunning = true;
    try {
        listener->begin();
        core->tls->follow();
        core->requests.start();
    } catch (...) {
        stop();  // of the threads some may be there and serve already
        throw;
    }
    KxCRTE_LOG(2, "Korvex Container Service: Web API listens on %s", listener->url().c_str());
}

std::uint16_t Server::port() const {
    return listener->port();
}

void Server::endStreams() {
    for (const auto& stream : core->connections.streams()) {
        stream->end();
    }
}

void Server::stop() {
    for (const auto& registration : core->registrations) {
        registration->forgetServer();
    }
    if (!isRunning) {
        return;
    }
    isRunning = false;
    core->isStopping = true;
    listener->close();
    core->connections.announceStop();
    core->uploadMemory.refuseAll();
    core->uploads.refuseAll();
    endStreams();
    if (!core->connections.waitUntilEmpty(grace)) {
        core->graceIsOver.cancel();
        do {
            core->connections.abortAll();
        } while (!core->connections.waitUntilEmpty(CUT_AGAIN_AFTER));
    }
    core->uploads.stop();
    core->streams.joinAll();
    core->requests.stop();
}

}  // namespace KxNTamberWebApi

#include "service/run_service.h"

#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "KxClock.h"
#include "KxCustomConfig.h"
#include "KxErrorManager.h"
#include "KxLog.h"
#include "KxMessageManager.h"
#include "KxRtos.h"
#include "KxTamberWebApi/KxServer.h"
#include "api/profiling.h"
#include "handler/KxCContainerHandler.h"
#include "service/KxCServiceController.h"
#include "service/paths.h"

using KxNContainer::KxNContainerPaths::ENABLE_MARKER;
using KxNTamberWebApi::KxCServer;

namespace {

constexpr std::uint32_t REQUEST_THREADS = 16;
constexpr std::uint32_t STOP_GRACE_SECONDS = 5;
constexpr int MESSAGE_LOG = 0;
constexpr int FLUSH_MILLISECONDS = 100;

KxCErrorManager* errorManager() {
    KxCErrorManager* manager = KxCErrorManager::instance;
    return manager != nullptr ? manager : KxCErrorManager::getSingleton();
}

/// Profiling for as long as the object lives, where the configuration asks for it.
class Profiling {
public:
    Profiling() {
        namespace Options = KxNCustomConfig::KxNContainerRuntime;
        const std::string option = KxCCustomConfig::getInstance()->getOption(
            Options::pSection, Options::pOptionProfiling, "0", /*mandatory=*/false);
        if (option == "1") {
            KxNCre::startProfiling();
        }
    }

    ~Profiling() {
        if (KxNCre::isProfiling) {
            KxNCre::stopProfiling();
        }
    }

    Profiling(const Profiling&) = delete;
    Profiling& operator=(const Profiling&) = delete;
};

/// Creates the server and goes on as long as nothing fails. What fails adds its error to the pool; the service then
/// runs without a web API.
std::unique_ptr<KxCServer> startServer(KxCErrorListPool& pool, KxCContainerHandler& handler) {
    const std::uint32_t errorsBefore = pool.getErrorCount();
    const auto failed = [&] { return pool.getErrorCount() != errorsBefore; };

    std::unique_ptr<KxCServer> server = KxCServer::create(pool, REQUEST_THREADS);
    if (server == nullptr || failed()) {
        return server;
    }
    server->init(pool);
    if (failed()) {
        return server;
    }
    server->registerHandler(pool, &handler);
    if (failed()) {
        return server;
    }
    server->start(pool, STOP_GRACE_SECONDS);
    if (!failed()) {
        KxCRTE_LOG_Impl(2, "Korvex Container Service: TAMBER WebApi server started");
    }
    return server;
}

/// Tells other processes on the target that the container service is enabled: all of them, whatever the umask.
void writeEnableMarker() {
    if (std::FILE* marker = std::fopen(ENABLE_MARKER, "w"); marker != nullptr) {
        fchmod(fileno(marker), S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH);
        std::fputs("1\n", marker);
        std::fclose(marker);
    }
}

/// Starts the container runtime if the configuration enables it. False when it was to start and did not.
bool startRuntime(KxCServiceController& controller) {
    if (!controller.isEnabled()) {
        std::remove(ENABLE_MARKER);
        KxCRTE_LOG_Impl(2, "Korvex Container Service: Container service is disabled by configuration.");
        return true;
    }
    writeEnableMarker();
    if (!controller.init()) {
        KxCRTE_LOG_Impl(4, "Korvex Container Service: Failed to initialize the service");
        return false;
    }
    if (!controller.start()) {
        KxCRTE_LOG_Impl(4, "Korvex Container Service: Failed to start the service");
        controller.stop();
        return false;
    }
    return true;
}

}  // namespace

int runService() {
    KxCErrorListPool& pool = errorManager()->getMasterErrorList();
    KxCMessageManagerClient* const messages = KxCMessageManagerClient::getInstance();
    messages->init(pool);
    KxCVorrelClock::init(pool);
    const Profiling profiling;

    KxCContainerHandler handler;
    std::unique_ptr<KxCServer> server = startServer(pool, handler);
    if (!KxNRtosAbstraction::isSingletonProcess(0)) {
        KxCRTE_LOG_Impl(2, "Korvex Container Service: Another instance of the container service is already running");
        // The server is neither stopped nor destroyed: the process ends with it, without waiting for its requests.
        // The pointer shows leak checkers that this is meant.
        [[gnu::used]] static KxCServer* left = nullptr;
        left = server.release();
        return 1;
    }

    KxCServiceController controller;
    controller.install(pool);
    const bool hasRuntimeFailed = !startRuntime(controller);
    KxNRtosAbstraction::setServiceInitialized();
    controller.waitForShutdown();

    if (!hasRuntimeFailed) {
        controller.stop();
    }
    const std::uint32_t errorCount = pool.getErrorCount();
    if (server != nullptr) {
        server->stop(pool);
        server.reset();
    }
    std::remove(ENABLE_MARKER);
    errorManager()->sendErrorList(pool, MESSAGE_LOG);
    messages->flushMessageBuffer(pool, FLUSH_MILLISECONDS);
    messages->closeClient();

    const int result = errorCount != 0 || hasRuntimeFailed ? 1 : 0;
    if (result != 0) {
        KxCRTE_LOG_Impl(4, "Korvex Container Service: Something went wrong!");
    }
    controller.remove();
    return result;
}

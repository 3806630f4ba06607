#include <csignal>
#include <exception>
#include <stdexcept>

#include "KxContainer.h"
#include "KxJson.h"
#include "KxLog.h"
#include "KxRtos.h"
#include "platform/container_runtime/container_impl.h"
#include "platform/container_runtime/logs/log_cursor.h"
#include "platform/container_runtime/logs/log_entries.h"
#include "platform/container_runtime/podman/podman_api.h"
#include "platform/container_runtime/podman/podman_command.h"
#include "platform/container_runtime/podman/podman_failure.h"
#include "platform/container_runtime/stores/runtime_directories.h"
#include "platform/container_runtime/stores/user_storage.h"

namespace KxNContainer {

namespace {

int runCompose(ComposeCommands& commands, ComposeCommand command, const char* fileName, KxNJson::json& result) {
    return commands.run(command, fileName != nullptr ? fileName : "", result);
}

}  // namespace

KxCContainer* KxCContainer::GetInstance() {
    // Never destroyed: threads of the web API server may still run during exit.
    static KxCContainer& instance = *new KxCContainer;
    return &instance;
}

KxCContainer::KxCContainer() : impl(std::make_unique<Impl>()) {
    KxNRtosAbstraction::observeTermination([] { GetInstance()->impl->endUnattendedRequests(); });
}
KxCContainer::~KxCContainer() = default;

KxCContainer::Impl::Impl() {
    // A parent that ignores it hands that down, and the kernel then keeps no child's status, nor its number, for us.
    ::signal(SIGCHLD, SIG_DFL);
    // Logs can be followed without init and Start.
    try {
        podman.setAddress(configuredPodman(settings.userSettings()));
    } catch (const std::runtime_error&) {
        // init and Start say what is wrong.
    }
}

std::shared_ptr<KxNNet::Cancellation> KxCContainer::Impl::runningRequests() {
    const std::lock_guard lock(requestsMutex);
    return requests;
}

void KxCContainer::Impl::endRequests() {
    logStreams.close();
    runningRequests()->cancel();
    compose.stop();
}

void KxCContainer::Impl::endUnattendedRequests() {
    if (status == FAILED) {
        runningRequests()->cancel();
    }
}

void KxCContainer::Impl::allowRequests() {
    if (runningRequests()->isCancelled()) {
        auto fresh = std::make_shared<KxNNet::Cancellation>();
        const std::lock_guard lock(requestsMutex);
        requests = std::move(fresh);
    }
    logStreams.open();
    compose.resume();
}

ComposeSetup KxCContainer::Impl::composeSetup() {
    const auto askPodman = [this](const std::string& path) {
        const auto cancellation = runningRequests();
        const auto method = KxCCurlHandler::MethodType::GET;
        const auto deadline = std::chrono::steady_clock::now() + timeLimit(path, method);
        return podman.execute({path, method, {"Accept: application/json"}, ""}, {*cancellation, deadline});
    };
    return {KxNContainerPaths::COMPOSE_FILES_PATH,
            {KxNContainerPaths::DOCKER_COMPOSE, KxNComposeFileHandler::ComposeTool::Exe},
            [this] { return composeEnvironment(podman.getAddress()); },
            askPodman};
}

bool KxCContainer::Impl::fail(const std::string& reason) {
    KxCRTE_LOG(4, "Korvex Container Service: %s", reason.c_str());
    status = FAILED;
    return false;
}

bool KxCContainer::init() {
    impl->settings.reload();
    makeRuntimeDirectories();
    try {
        const PodmanAddress address = configuredPodman(impl->settings.userSettings());
        if (!isPodmanExternal()) {
            impl->tools.mount();
        }
        impl->podman.setAddress(address);
    } catch (const std::exception& error) {
        return impl->fail(error.what());
    }
    impl->status = INITIALIZED;
    return true;
}

bool KxCContainer::Start() {
    if (impl->status == STARTED) {
        return true;
    }
    try {
        impl->allowRequests();
        const PodmanAddress address = configuredPodman(impl->settings.userSettings());
        impl->podman.setAddress(address);
        if (isPodmanExternal()) {
            impl->podmanService.watchExternal();
        } else {
            impl->podmanService.start(podmanServiceCommand(address), impl->settings.userSettings().coresNum);
        }
        impl->changes.start();
    } catch (const std::exception& error) {
        return impl->fail(error.what());
    }
    impl->status = STARTED;
    return true;
}

bool KxCContainer::Stop() {
    try {
        const bool hadFailed = impl->status == FAILED;
        impl->endRequests();
        impl->changes.stop();
        impl->podmanService.stop();
        impl->tools.unmount();
        if (hadFailed) {
            // Logs can be followed whatever the status, and no other Stop follows.
            impl->allowRequests();
        } else if (impl->status != UNINITIALIZED) {
            impl->status = STOPPED;
        }
        return true;
    } catch (const std::exception& error) {
        return impl->fail(std::string("Cannot stop the container runtime: ") + error.what());
    }
}

int KxCContainer::GetContainerServiceStatus(bool readAnew) {
    const int status = impl->status;
    if (readAnew && status == STARTED && !impl->podman.ping(*impl->runningRequests())) {
        return FAILED;
    }
    return status;
}

PodmanReply KxCContainer::ExecutePodmanRequest(const std::string& path, KxCCurlHandler::MethodType method,
                                               const std::vector<std::string>& headers, const std::string& body,
                                               bool isLongRunning) {
    const auto requests = impl->runningRequests();
    KxNNet::WaitLimits limits{*requests, std::nullopt};
    if (!isLongRunning) {
        limits.deadline = std::chrono::steady_clock::now() + timeLimit(path, method);
    }
    const bool bodyIsFile = isLongRunning && method == KxCCurlHandler::MethodType::POST;
    return impl->podman.execute({path, method, headers, body, bodyIsFile}, limits);
}

void KxCContainer::SetChangeSink(KxCChangeSink* sink) {
    impl->changes.setSink(sink);
}

std::vector<KxSKnownContainer> KxCContainer::GetKnownContainers() {
    return impl->changes.knownContainers();
}

KxSPodmanState KxCContainer::GetPodmanState() {
    return {impl->podmanService.isAnswering(), impl->podmanService.answersSince(), impl->podmanService.restarts()};
}

std::shared_ptr<KxCContainer::KxSLogStreamSession> KxCContainer::RegisterLogStreamSession(
    KxNTamberWebApi::KxCWebSocket* socket, const std::string& containerName) {
    try {
        return impl->logStreams.add(socket, containerName);
    } catch (const std::exception& error) {
        KxCRTE_LOG(4, "Korvex Container Service: Cannot follow the log of container '%s': %s", containerName.c_str(),
                   error.what());
        return nullptr;
    }
}

PodmanReply KxCContainer::StreamPodmanRequest(
    const std::string& path, KxCCurlHandler::MethodType method, const std::vector<std::string>& headers,
    KxCErrorListPool& pool,
    // NOLINTNEXTLINE(performance-unnecessary-value-param): a share, for its run
    std::shared_ptr<KxSLogStreamSession> session, KxNTamberWebApi::KxCWebSocket* socket) {
    if (session == nullptr || socket == nullptr) {
        return {"The log stream has no session", 503};
    }
    try {
        return streamLog({impl->podman, impl->logWatch}, {path, method, headers, {}}, *session, pool, *socket);
    } catch (const std::exception& error) {
        return {std::string("The log stream failed: ") + error.what(), 503};
    }
}

PodmanReply KxCContainer::FollowLogEntries(const std::string& containerName, const KxSLogBegin& begin,
                                           KxCLogEntrySink& sink,
                                           // NOLINTNEXTLINE(performance-unnecessary-value-param): a share, for its run
                                           std::shared_ptr<KxSLogStreamSession> session) {
    if (session == nullptr) {
        return {"The log stream has no session", 503};
    }
    try {
        return followEntries({impl->podman, impl->logWatch}, containerName, begin, sink, session->ending);
    } catch (const PodmanFailure& failure) {
        // A client that goes before Podman has answered is no failure.
        return session->ending.isCancelled() ? PodmanReply{"", 200} : PodmanReply{failure.what(), failure.status};
    } catch (const std::exception& error) {
        return {std::string("The log cannot be followed: ") + error.what(), 503};
    }
}

bool KxCContainer::IsLogCursor(const std::string& text) {
    return LogCursor::parse(text).has_value();
}

void KxCContainer::UnregisterLogStreamSession(KxNTamberWebApi::KxCWebSocket* socket) {
    impl->logStreams.remove(socket);
}

void KxCContainer::LogStreamCloseHandler(const void*, std::uint32_t, KxNTamberWebApi::KxCWebSocket* socket) {
    GetInstance()->impl->logStreams.end(socket);
}

// Compose commands.

int KxCContainer::CreateCompose(const char* fileName, KxNJson::json& result) {
    return runCompose(impl->compose, ComposeCommand::Create, fileName, result);
}

int KxCContainer::StartCompose(const char* fileName, KxNJson::json& result) {
    return runCompose(impl->compose, ComposeCommand::Start, fileName, result);
}

int KxCContainer::StopCompose(const char* fileName, KxNJson::json& result) {
    return runCompose(impl->compose, ComposeCommand::Stop, fileName, result);
}

int KxCContainer::RemoveCompose(const char* fileName, KxNJson::json& result) {
    return runCompose(impl->compose, ComposeCommand::Remove, fileName, result);
}

// Settings, storage and plugins.

bool KxCContainer::IsContainerServiceEnabled(bool readAnew) {
    if (readAnew) {
        impl->settings.reload();
    }
    return impl->settings.isEnabled();
}

bool KxCContainer::EnableContainerService() {
    return impl->settings.setEnabled(true);
}

bool KxCContainer::DisableContainerService() {
    return impl->settings.setEnabled(false);
}

KxCCTESettings::KxSUserSettings KxCContainer::GetContainerServiceUserSettings() {
    return impl->settings.userSettings();
}

bool KxCContainer::SetContainerServiceUserSettings(const KxCCTESettings::KxSUserSettings& settings) {
    return impl->settings.setUserSettings(settings);
}

std::uint32_t KxCContainer::GetMaxAllowedCpuCoreCount() {
    return countAllowedCpus();
}

bool KxCContainer::HasValidUserStorage(std::string* message) {
    try {
        checkUserStorage(USER_STORAGE);
        return true;
    } catch (const std::exception& problem) {
        if (message != nullptr) {
            *message = problem.what();
        }
        return false;
    }
}

bool KxCContainer::TriggerInventoryTreeScan() {
    return impl->inventory.scan();
}

KxNJson::json KxCContainer::listPlugins() {
    return impl->plugins.list();
}

int KxCContainer::addPluginToConfig(const std::string& name, const std::string& version) {
    return impl->plugins.deactivate({name, version});
}

int KxCContainer::removePluginFromConfig(const std::string& name, const std::string& version) {
    return impl->plugins.activate({name, version});
}

int KxCContainer::removePluginFromConfigByFileName(const std::string& fileName) {
    return impl->plugins.dropEntry(fileName);
}

void KxCContainer::scanContainerPluginsDir() {
    impl->plugins.scanDirectory();
}

}  // namespace KxNContainer

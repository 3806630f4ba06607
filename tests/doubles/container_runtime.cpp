// Double of the container runtime library.
#include "tests/doubles/World.h"

using KxNDoubles::world;
using KxNJson::json;

namespace KxNContainer {

namespace {

const char* methodName(KxCCurlHandler::MethodType method) {
    constexpr const char* names[] = {"GET", "POST", "DELETE"};
    return names[static_cast<int>(method)];
}

std::string describe(const std::string& path, KxCCurlHandler::MethodType method,
                     const std::vector<std::string>& headers) {
    std::string text = std::string(methodName(method)) + " " + path;
    for (const std::string& header : headers) {
        text += " [" + header + "]";
    }
    return text;
}

bool noted(const std::string& call, bool result) {
    world().note(call);
    return result;
}

int compose(const char* command, const char* fileName, json& result) {
    world().note(std::string(command) + " " + fileName + " " + result.dump());
    result = world().composeResult;
    return world().composeCode;
}

int plugin(const std::string& call) {
    world().note(call);
    return world().pluginCode;
}

}  // namespace

struct KxCContainer::Impl {};
struct KxCContainer::KxSLogStreamSession {
    ~KxSLogStreamSession() { world().note("session destroyed"); }
};

KxCContainer::KxCContainer() = default;
KxCContainer::~KxCContainer() = default;
KxCContainer* KxCContainer::GetInstance() {
    static auto& instance = *new KxCContainer;
    return &instance;
}

bool KxCContainer::init() {
    return noted("init", world().initResult);
}
bool KxCContainer::Start() {
    return noted("Start", world().startResult);
}
bool KxCContainer::Stop() {
    return noted("Stop", true);
}
bool KxCContainer::IsContainerServiceEnabled(bool readAnew) {
    return noted(readAnew ? "enabled, read anew?" : "enabled?", world().isEnabled);
}
int KxCContainer::GetContainerServiceStatus(bool readAnew) {
    world().note(readAnew ? "status, read anew?" : "status?");
    return world().status;
}
bool KxCContainer::EnableContainerService() {
    world().isEnabled = world().isEnabled || world().areSettingsWritten;
    return noted("EnableContainerService", world().areSettingsWritten);
}
bool KxCContainer::DisableContainerService() {
    world().isEnabled = world().isEnabled && !world().areSettingsWritten;
    return noted("DisableContainerService", world().areSettingsWritten);
}
KxCCTESettings::KxSUserSettings KxCContainer::GetContainerServiceUserSettings() {
    world().note("GetContainerServiceUserSettings");
    return world().settings;
}
bool KxCContainer::SetContainerServiceUserSettings(const KxCCTESettings::KxSUserSettings& settings) {
    return noted(
        "SetContainerServiceUserSettings " + std::to_string(settings.tcpPort) + " " + std::to_string(settings.coresNum),
        world().areSettingsWritten);
}
std::uint32_t KxCContainer::GetMaxAllowedCpuCoreCount() {
    world().note("GetMaxAllowedCpuCoreCount");
    return world().maximumCores;
}
bool KxCContainer::HasValidUserStorage(std::string* message) {
    *message = world().storageProblem;
    return noted("HasValidUserStorage", world().storageProblem.empty());
}
bool KxCContainer::TriggerInventoryTreeScan() {
    return noted("TriggerInventoryTreeScan", world().isInventoryWritten);
}

PodmanReply KxCContainer::ExecutePodmanRequest(const std::string& path, KxCCurlHandler::MethodType method,
                                               const std::vector<std::string>& headers, const std::string& body,
                                               bool isLongRunning) {
    world().note(describe(path, method, headers) + (body.empty() ? "" : " body " + body) +
                 (isLongRunning ? " long-running" : ""));
    if (world().duringPodman) {
        world().duringPodman();
    }
    return world().podman;
}
PodmanReply KxCContainer::StreamPodmanRequest(const std::string& path, KxCCurlHandler::MethodType method,
                                              const std::vector<std::string>& headers, KxCErrorListPool&,
                                              std::shared_ptr<KxSLogStreamSession> session,
                                              KxNTamberWebApi::KxCWebSocket*) {
    world().note("stream " + describe(path, method, headers) + " session held by " +
                 std::to_string(session.use_count()));
    return world().podman;
}
std::shared_ptr<KxCContainer::KxSLogStreamSession> KxCContainer::RegisterLogStreamSession(
    KxNTamberWebApi::KxCWebSocket*, const std::string& containerName) {
    world().note("register log stream " + containerName);
    return std::make_shared<KxSLogStreamSession>();
}
void KxCContainer::UnregisterLogStreamSession(KxNTamberWebApi::KxCWebSocket*) {
    world().note("unregister log stream");
}
void KxCContainer::LogStreamCloseHandler(const void*, std::uint32_t, KxNTamberWebApi::KxCWebSocket*) {}

int KxCContainer::CreateCompose(const char* fileName, json& result) {
    return compose("create", fileName, result);
}
int KxCContainer::StartCompose(const char* fileName, json& result) {
    return compose("start", fileName, result);
}
int KxCContainer::StopCompose(const char* fileName, json& result) {
    return compose("stop", fileName, result);
}
int KxCContainer::RemoveCompose(const char* fileName, json& result) {
    return compose("remove", fileName, result);
}

json KxCContainer::listPlugins() {
    world().note("listPlugins");
    return world().plugins;
}
int KxCContainer::addPluginToConfig(const std::string& name, const std::string& version) {
    return plugin("addPluginToConfig " + name + " " + version);
}
int KxCContainer::removePluginFromConfig(const std::string& name, const std::string& version) {
    return plugin("removePluginFromConfig " + name + " " + version);
}
int KxCContainer::removePluginFromConfigByFileName(const std::string& fileName) {
    return plugin("removePluginFromConfigByFileName " + fileName);
}
void KxCContainer::scanContainerPluginsDir() {
    world().note("scanContainerPluginsDir");
}

}  // namespace KxNContainer

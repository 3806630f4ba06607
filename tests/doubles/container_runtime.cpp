// Double of the container runtime library.
#include "tests/doubles/World.h"

using KxNDoubles::note;
using KxNDoubles::succeeds;
using KxNDoubles::world;
using KxNJson::json;

namespace KxNContainer {

namespace {

std::string describe(const std::string& path, KxCCurlHandler::MethodType method,
                     const std::vector<std::string>& headers) {
    constexpr const char* methods[] = {"GET ", "POST ", "DELETE "};
    std::string text = methods[static_cast<int>(method)] + path;
    for (const std::string& header : headers) {
        text += " [" + header + "]";
    }
    return text;
}

int compose(const char* command, const char* fileName, json& result) {
    const KxNDoubles::World& answers = note(command, " ", fileName, " ", result.dump());
    result = answers.composeResult;
    return answers.composeCode;
}

}  // namespace

struct KxCContainer::Impl {};
struct KxCContainer::KxSLogStreamSession {
    ~KxSLogStreamSession() { note("session destroyed"); }
};

KxCContainer::KxCContainer() = default;
KxCContainer::~KxCContainer() = default;
KxCContainer* KxCContainer::GetInstance() {
    static auto& instance = *new KxCContainer;
    return &instance;
}

bool KxCContainer::init() { return succeeds("init"); }
bool KxCContainer::Start() { return succeeds("Start"); }
bool KxCContainer::Stop() { return succeeds("Stop"); }
bool KxCContainer::IsContainerServiceEnabled(bool readAnew) {
    return note(readAnew ? "enabled, read anew?" : "enabled?").isEnabled;
}
int KxCContainer::GetContainerServiceStatus(bool readAnew) {
    return note(readAnew ? "status, read anew?" : "status?").status;
}
bool KxCContainer::EnableContainerService() { return succeeds("Enable") && (world().isEnabled = true); }
bool KxCContainer::DisableContainerService() { return succeeds("Disable") && !(world().isEnabled = false); }
KxCCTESettings::KxSUserSettings KxCContainer::GetContainerServiceUserSettings() { return note("settings?").settings; }
bool KxCContainer::SetContainerServiceUserSettings(const KxCCTESettings::KxSUserSettings& settings) {
    return succeeds("SetSettings", " ", settings.tcpPort, " ", settings.coresNum);
}
std::uint32_t KxCContainer::GetMaxAllowedCpuCoreCount() { return note("maximum?").maximumCores; }
bool KxCContainer::HasValidUserStorage(std::string* message) {
    return (*message = note("storage?").storageProblem).empty();
}
bool KxCContainer::TriggerInventoryTreeScan() { return succeeds("TriggerInventoryTreeScan"); }

PodmanReply KxCContainer::ExecutePodmanRequest(const std::string& path, KxCCurlHandler::MethodType method,
                                               const std::vector<std::string>& headers, const std::string& body,
                                               bool isLongRunning) {
    note(describe(path, method, headers), body.empty() ? "" : " body ", body, isLongRunning ? " long-running" : "");
    if (world().duringPodman) {
        world().duringPodman();
    }
    return world().podman;
}
PodmanReply KxCContainer::StreamPodmanRequest(const std::string& path, KxCCurlHandler::MethodType method,
                                              const std::vector<std::string>& headers, KxCErrorListPool&,
                                              std::shared_ptr<KxSLogStreamSession> session,
                                              KxNTamberWebApi::KxCWebSocket*) {
    return note("stream ", describe(path, method, headers), " session held by ", session.use_count()).podman;
}
std::shared_ptr<KxCContainer::KxSLogStreamSession> KxCContainer::RegisterLogStreamSession(
    KxNTamberWebApi::KxCWebSocket*, const std::string& containerName) {
    note("register log stream ", containerName);
    return std::make_shared<KxSLogStreamSession>();
}
void KxCContainer::UnregisterLogStreamSession(KxNTamberWebApi::KxCWebSocket*) { note("unregister log stream"); }
PodmanReply KxCContainer::FollowLogEntries(const std::string& containerName, const KxSLogBegin& begin,
                                           KxCLogEntrySink& sink, std::shared_ptr<KxSLogStreamSession>) {
    note("follow ", containerName, " tail ", json(begin.tail ? json(*begin.tail) : json()), " since ",
         json(begin.since ? json(*begin.since) : json()), " cursor '", begin.cursor, "'");
    world().duringFollow(sink);
    return world().podman;
}
bool KxCContainer::IsLogCursor(const std::string& text) { return text.starts_with('c'); }

void KxCContainer::SetChangeSink(KxCChangeSink* sink) { world().changes = sink; }
std::vector<KxSKnownContainer> KxCContainer::GetKnownContainers() { return world().containers; }
KxSPodmanState KxCContainer::GetPodmanState() { return world().podmanState; }
void KxCContainer::LogStreamCloseHandler(const void*, std::uint32_t, KxNTamberWebApi::KxCWebSocket*) {}

int KxCContainer::CreateCompose(const char* fileName, json& result) { return compose("create", fileName, result); }
int KxCContainer::StartCompose(const char* fileName, json& result) { return compose("start", fileName, result); }
int KxCContainer::StopCompose(const char* fileName, json& result) { return compose("stop", fileName, result); }
int KxCContainer::RemoveCompose(const char* fileName, json& result) { return compose("remove", fileName, result); }

json KxCContainer::listPlugins() { return note("listPlugins").plugins; }
int KxCContainer::addPluginToConfig(const std::string& name, const std::string& version) {
    return note("deactivate ", name, " ", version).pluginCode;
}
int KxCContainer::removePluginFromConfig(const std::string& name, const std::string& version) {
    return note("activate ", name, " ", version).pluginCode;
}
int KxCContainer::removePluginFromConfigByFileName(const std::string& fileName) {
    return note("forget ", fileName).pluginCode;
}
void KxCContainer::scanContainerPluginsDir() { note("scanContainerPluginsDir"); }

}  // namespace KxNContainer

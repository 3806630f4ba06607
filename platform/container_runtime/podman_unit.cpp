// The program of the unit that keeps Podman beside the service: mounts the container tools, takes the CPUs that the
// settings give to containers, and becomes Podman's service. The service manager starts it again when that ends.
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

#include "KxLog.h"
#include "KxRtos.h"
#include "platform/common/system_text.h"
#include "platform/container_runtime/podman/cpu_cores.h"
#include "platform/container_runtime/podman/podman_client.h"
#include "platform/container_runtime/podman/podman_command.h"
#include "platform/container_runtime/stores/runtime_directories.h"
#include "platform/container_runtime/stores/settings_store.h"
#include "platform/container_runtime/stores/tools_mount.h"
#include "platform/net/cancellation.h"
#include "platform/process/cpu_limit.h"
#include "service/paths.h"

using namespace KxNContainer;

namespace {

/// No Podman is wanted of this unit. Which is no failure, and no reason to start it again.
constexpr int NOT_NEEDED = 3;

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

[[noreturn]] void become(KxNProcess::Program program) {
    program.arguments.insert(program.arguments.begin(), program.executable);
    ::execvpe(program.executable.c_str(), pointersTo(program.arguments).data(), pointersTo(program.environment).data());
    throw KxNCommon::systemError("Cannot run '" + program.executable + "'");
}

int keepPodman() {
    makeRuntimeDirectories();  // which the service, shut in, could not
    const SettingsStore settings(KxNContainerPaths::SETTINGS_FILE, static_cast<std::int32_t>(countAllowedCpus()));
    if (!settings.isEnabled()) {
        KxCRTE_LOG(2, "Korvex Container Service: Podman is not started: the settings disable the container service");
        KxNRtosAbstraction::setServiceInitialized();
        return NOT_NEEDED;
    }
    // Never destroyed: containers need the tools after this process has become another.
    auto& tools = *new ToolsMount(KxNContainerPaths::CONTAINER_TOOLS, KxNContainerPaths::CONTAINER_TOOLS_MOUNTPOINT);
    tools.mount();
    const PodmanAddress address = configuredPodman(settings.userSettings());
    if (PodmanClient(address).ping(KxNNet::Cancellation())) {
        KxCRTE_LOG(2, "Korvex Container Service: Podman is not started: another one answers at %s",
                   address.text().c_str());
        KxNRtosAbstraction::setServiceInitialized();
        return NOT_NEEDED;
    }
    KxNProcess::Program program = podmanServiceCommand(address);
    const KxNProcess::CpuLimit limit(settings.userSettings().coresNum);
    KxNRtosAbstraction::setServiceInitialized();
    become(std::move(program));
}

}  // namespace

int main() {
    try {
        return keepPodman();
    } catch (const std::exception& error) {
        KxCRTE_LOG(4, "Korvex Container Service: %s", error.what());
        return EXIT_FAILURE;
    }
}

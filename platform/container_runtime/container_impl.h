// What the one container runtime object is made of. Each part lives in a file of its own.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "KxContainer.h"
#include "platform/container_runtime/changes/change_watch.h"
#include "platform/container_runtime/compose/compose_commands.h"
#include "platform/container_runtime/logs/log_stream.h"
#include "platform/container_runtime/logs/watch/log_watch.h"
#include "platform/container_runtime/podman/cpu_cores.h"
#include "platform/container_runtime/podman/podman_client.h"
#include "platform/container_runtime/podman/podman_service.h"
#include "platform/container_runtime/stores/inventory.h"
#include "platform/container_runtime/stores/plugin_config.h"
#include "platform/container_runtime/stores/settings_store.h"
#include "platform/container_runtime/stores/tools_mount.h"
#include "platform/net/cancellation.h"
#include "service/paths.h"

namespace KxNContainer {

struct KxCContainer::Impl {
    Impl();

    /// What ends the requests that run now.
    std::shared_ptr<KxNNet::Cancellation> runningRequests();
    /// Ends them and all later ones, until `allowRequests`.
    void endRequests();
    void allowRequests();
    /// Ends them when the process is asked to end after the runtime has failed: no Stop follows then that would, and
    /// the process does not end before they do.
    void endUnattendedRequests();

    bool fail(const std::string& reason);

    std::atomic<int> status{UNINITIALIZED};
    SettingsStore settings{KxNContainerPaths::SETTINGS_FILE, static_cast<std::int32_t>(countAllowedCpus())};
    PluginConfig plugins{KxNContainerPaths::PLUGINS_DIR, KxNContainerPaths::PLUGIN_CONFIG_FILE};
    Inventory inventory{managedDirectories(), INVENTORY_FILE};

    ToolsMount tools{KxNContainerPaths::CONTAINER_TOOLS, KxNContainerPaths::CONTAINER_TOOLS_MOUNTPOINT};
    PodmanClient podman{PodmanAddress{KxNContainerPaths::PODMAN_SOCKET, 0}};
    PodmanService podmanService{podman, KxNContainerPaths::PODMAN_SOCKET + ".output"};
    LogWatch logWatch;
    ChangeWatch changes{podman};
    LogStreams logStreams;
    ComposeCommands compose{composeSetup()};

private:
    ComposeSetup composeSetup();

    std::mutex requestsMutex;
    std::shared_ptr<KxNNet::Cancellation> requests = std::make_shared<KxNNet::Cancellation>();
};

}  // namespace KxNContainer

// With what Podman and docker-compose are run on this target.
#pragma once

#include <string>
#include <vector>

#include "KxContainer.h"
#include "platform/container_runtime/podman/podman_address.h"
#include "platform/process/spawn.h"

namespace KxNContainer {

/// How to start the API service at `address`: the Podman of the container tools with the configuration files that they
/// hold, else that of PATH with this process's environment. Makes the directory of Podman's own files that this takes.
KxNProcess::Program podmanServiceCommand(const PodmanAddress& address);

/// The environment of docker-compose: this process's own, that of the container tools, and that Podman is at `address`.
std::vector<std::string> composeEnvironment(const PodmanAddress& address);

/// Where the configuration and these settings say that Podman is. Throws std::runtime_error when they cannot be used.
PodmanAddress configuredPodman(const KxCCTESettings::KxSUserSettings& settings);

/// Whether the service manager keeps Podman running in a unit of its own, together with the tools mounted, and the
/// environment says so (KX_PODMAN=external). This process then neither starts nor mounts anything.
bool isPodmanExternal();

}  // namespace KxNContainer

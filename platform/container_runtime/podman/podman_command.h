// With what Podman is run on this target.
#pragma once

#include <cstdint>

#include "platform/container_runtime/podman/podman_address.h"
#include "platform/process/podman_process.h"

namespace KxNContainer {

/// The Podman of the container tools where they hold one, else that of PATH.
std::string podmanExecutable();

/// How to start the API service at `address`: the Podman of the container tools with the configuration files that they
/// hold, else that of PATH with this process's environment. Makes the directory of Podman's own files that this takes.
PodmanCommand podmanServiceCommand(const PodmanAddress& address, std::int32_t cpus);

/// The environment for the container tools: this process's own, and where the tools hold them, their libraries,
/// programs and configuration files.
std::vector<std::string> containerToolsEnvironment();

}  // namespace KxNContainer

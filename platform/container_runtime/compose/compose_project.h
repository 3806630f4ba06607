// What of a compose project exists in Podman.
#pragma once

#include <functional>
#include <set>
#include <string>

#include "KxContainer.h"

namespace KxNContainer {

/// Answers a GET request to Podman, as KxCContainer::ExecutePodmanRequest does.
using AskPodman = std::function<PodmanReply(const std::string& path)>;

struct ComposeProject {
    std::set<std::string> objects;  ///< ids or names of its containers, networks and volumes
    std::size_t containers = 0;
    std::size_t runningContainers = 0;
    std::size_t networks = 0;
    std::string problem;  ///< why Podman does not say what there is; empty when it does
};

/// Asks Podman for the objects that docker-compose labelled with the project `name`.
ComposeProject findComposeProject(const AskPodman& askPodman, const std::string& name);

}  // namespace KxNContainer

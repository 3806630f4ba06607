// The fixed file-system locations of the container service. Shared with the container runtime library.
#pragma once

#include <string>

namespace KxNContainer::KxNContainerPaths {

// Built during static initialisation in this order: the locations below the mount point are composed from it by plain
// concatenation.
extern const std::string CONTAINER_TOOLS;             ///< image that holds the container tools
extern const std::string CONTAINER_TOOLS_MOUNTPOINT;  ///< where that image is mounted
extern const std::string PODMAN;
extern const std::string PODMAN_LIBS;  ///< with a trailing slash
extern const std::string CRUN;
extern const std::string CONMON;
extern const std::string DOCKER_COMPOSE;
extern const std::string CNI_PLUGINS;
extern const std::string POLICY;
extern const std::string CONTAINERS_CONFIG;
extern const std::string STORAGE_CONFIG;
extern const std::string CONTAINER_BASE_PATH;
extern const std::string PODMAN_SOCKET;
extern const std::string CONTAINER_CERTS_DIR;
extern const std::string IMAGES_STORAGE_DIR;
extern const std::string SETTINGS_FILE;
extern const std::string COMPOSE_FILES_PATH;  ///< with a trailing slash: file names are appended directly
extern const std::string PLUGINS_DIR;         ///< without a trailing slash
extern const std::string PLUGIN_CONFIG_FILE;

/// Its presence tells other processes on the target that the container service is enabled.
inline constexpr const char* ENABLE_MARKER = "/run/KxContainerRTE.enabled";

}  // namespace KxNContainer::KxNContainerPaths

namespace KxNComposeFileHandler::ComposeTool {

inline constexpr const char* Exe = "docker-compose";
inline constexpr const char* Path = "/bin/docker-compose";  ///< below the mount point of the container tools

}  // namespace KxNComposeFileHandler::ComposeTool

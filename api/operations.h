// The operations as the profiler knows them.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace KxNCre {

/// An operation; the value is its index at the profiler and in OPERATION_NAMES.
enum class KxEOperation : std::uint32_t {
    LIST_CONTAINERS,
    DELETE_CONTAINER,
    START_CONTAINER,
    STOP_CONTAINER,
    GET_CONTAINER_LOGS,
    GET_CONTAINER_LOGS_SET_WEB_SOCKET,
    LIST_IMAGES,
    UPLOAD_IMAGE,
    REMOVE_IMAGE,
    LIST_PLUGINS,
    UPLOAD_PLUGIN,
    DELETE_PLUGIN,
    ACTIVATE_PLUGIN,
    GET_SETTINGS,
    PATCH_SETTINGS,
    GET_ENABLE,
    PATCH_ENABLE,
    COMPOSE_CREATE,
    COMPOSE_START,
    COMPOSE_STOP,
    COMPOSE_REMOVE,
    LIST_COMPOSE_FILES,
    UPLOAD_COMPOSE_FILE,
    DELETE_COMPOSE_FILE,
    LIST_CERTS,
    UPLOAD_CERTIFICATE,
    DELETE_CERTIFICATE,
    UPLOAD_PRIVATE_KEY,
    DELETE_PRIVATE_KEY,
    UPLOAD_CA_CERTIFICATE,
    DELETE_CA_CERTIFICATE,
};

/// The operations' display names: the upper camel case form of their operation ids. All are NUL-terminated.
inline constexpr std::array<std::string_view, 31> OPERATION_NAMES = {
    "ListContainers",      "DeleteContainer",   "StartContainer",
    "StopContainer",       "GetContainerLogs",  "GetContainerLogsSetWebSocket",
    "ListImages",          "UploadImage",       "RemoveImage",
    "ListPlugins",         "UploadPlugin",      "DeletePlugin",
    "ActivatePlugin",      "GetSettings",       "PatchSettings",
    "GetEnable",           "PatchEnable",       "ComposeCreate",
    "ComposeStart",        "ComposeStop",       "ComposeRemove",
    "ListComposeFiles",    "UploadComposeFile", "DeleteComposeFile",
    "ListCerts",           "UploadCertificate", "DeleteCertificate",
    "UploadPrivateKey",    "DeletePrivateKey",  "UploadCaCertificate",
    "DeleteCaCertificate",
};

}  // namespace KxNCre

#include "platform/console/device/storage.h"

#include <sys/statvfs.h>

#include <array>
#include <set>
#include <string>

#include "KxJson.h"
#include "KxJsonText.h"
#include "platform/console/parts.h"
#include "service/paths.h"

namespace KxNConsole {

namespace Paths = KxNContainer::KxNContainerPaths;
using KxNContainer::PodmanReply;
using KxNJson::json;

namespace {

constexpr std::array<const char*, 2> IMAGE_KEYS{"Id", "Size"};
constexpr std::array<const char*, 1> CONTAINER_KEYS{"ImageID"};

/// Podman's list at `path`, reduced to `keys`. False when the answer stands.
bool ask(const Call& call, const char* path, std::span<const char* const> keys, json& list) {
    const PodmanReply reply = call.container.ExecutePodmanRequest(path, KxCCurlHandler::MethodType::GET,
                                                                  {"Accept: application/json"}, {}, false);
    std::string reason = reply.body;
    if (reply.status == 200 && KxNJson::selectKeys(reply.body, keys, list, reason)) {
        return true;
    }
    call.internalError("Error occurred while looking at the storage: " + reason);
    return false;
}

/// How much the images take, and how much of it would be free without those that no container was made from.
json countImages(const json& images, const json& containers) {
    std::set<std::string> used;
    for (const json& container : containers) {
        used.insert(container.value("ImageID", ""));
    }
    std::uint64_t bytes = 0;
    std::uint64_t unusedBytes = 0;
    for (const json& image : images) {
        const auto size = image.value("Size", std::uint64_t{0});
        bytes += size;
        unusedBytes += used.count(image.value("Id", "")) == 0 ? size : 0;
    }
    return {{"Count", images.size()}, {"Bytes", bytes}, {"UnusedBytes", unusedBytes}};
}

}  // namespace

std::vector<Volume> readVolumes() {
    static const std::array<std::pair<const char*, const char*>, 3> places = {{
        {"containers and images", Paths::CONTAINER_BASE_PATH.c_str()},
        {"uploads", "/userstorage1"},
        {"configuration", "/mnt/cfdrive"},
    }};
    std::vector<Volume> volumes;
    for (const auto& [what, path] : places) {
        struct statvfs status {};
        if (::statvfs(path, &status) == 0) {
            volumes.push_back({what, path, std::uint64_t{status.f_bavail} * status.f_frsize,
                               std::uint64_t{status.f_blocks} * status.f_frsize});
        }
    }
    return volumes;
}

void getStorage(const Call& call) {
    json images;
    json containers;
    if (!call.isStarted() || !ask(call, "/images/json", IMAGE_KEYS, images) ||
        !ask(call, "/containers/json?all=true", CONTAINER_KEYS, containers)) {
        return;
    }
    json volumes = json::array();
    for (const Volume& volume : readVolumes()) {
        volumes.push_back({{"What", volume.what},
                           {"Path", volume.path},
                           {"FreeBytes", volume.freeBytes},
                           {"TotalBytes", volume.totalBytes}});
    }
    call.answer(200, {{"volumes", std::move(volumes)}, {"images", countImages(images, containers)}});
}

}  // namespace KxNConsole

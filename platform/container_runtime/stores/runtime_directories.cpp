#include "platform/container_runtime/stores/runtime_directories.h"

#include <filesystem>
#include <string>

#include "KxLog.h"
#include "platform/container_runtime/stores/inventory.h"
#include "service/paths.h"

namespace KxNContainer {

namespace {

namespace fs = std::filesystem;
namespace Paths = KxNContainerPaths;

void make(const fs::path& directory, fs::perms permissions) {
    std::error_code error;
    // A path that ends with a slash is made all the same, but then counts as not made.
    const fs::path path = directory.has_filename() ? directory : directory.parent_path();
    if (fs::create_directories(path, error)) {
        fs::permissions(path, permissions, error);
    }
    if (error) {
        KxCRTE_LOG(4, "Korvex Container Service: Cannot make the directory '%s': %s", path.c_str(),
                   error.message().c_str());
    }
}

}  // namespace

void makeRuntimeDirectories() {
    constexpr fs::perms OWNER = fs::perms::owner_all;
    constexpr fs::perms ALL_READ =
        OWNER | fs::perms::group_read | fs::perms::group_exec | fs::perms::others_read | fs::perms::others_exec;
    make(fs::path(Paths::SETTINGS_FILE).parent_path(), ALL_READ);
    make(Paths::CONTAINER_CERTS_DIR, OWNER);  // private keys
    make(Paths::CONTAINER_BASE_PATH, ALL_READ);
    make(fs::path(Paths::PODMAN_SOCKET).parent_path(), OWNER);
    for (const ManagedDirectory& directory : managedDirectories()) {
        make(directory.path, ALL_READ);
    }
}

}  // namespace KxNContainer

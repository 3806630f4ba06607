#include "platform/container_runtime/stores/inventory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <system_error>
#include <utility>

#include "KxJson.h"
#include "KxLog.h"
#include "platform/common/atomic_file.h"
#include "platform/common/system_text.h"
#include "service/paths.h"

namespace KxNContainer {

namespace {

constexpr int MAX_DEPTH = 8;
constexpr std::size_t MAX_FILES = 10000;

struct FoundFile {
    std::string name;
    std::uint64_t size;
    std::int64_t time;
};

class Walk {
public:
    explicit Walk(const ManagedDirectory& managedDirectory, std::size_t mostFiles)
        : directory(managedDirectory), maxFiles(mostFiles) {}

    void run() {
        if (::access(directory.path.c_str(), F_OK) != 0 && errno == ENOENT) {
            return;
        }
        reportUnreadable(directory.path);
        // Links to files count as files, as they do for the service itself; links to directories are not followed.
        std::error_code failure;
        std::filesystem::recursive_directory_iterator entry(
            directory.path, std::filesystem::directory_options::skip_permission_denied, failure);
        const std::filesystem::recursive_directory_iterator end;
        while (!failure && entry != end) {
            if (files.size() == maxFiles) {
                report("it holds more files than the inventory takes");
                return;
            }
            visit(entry);
            entry.increment(failure);
        }
        if (failure) {
            report(failure.message());
        }
    }

    std::vector<FoundFile> takeSorted() {
        std::sort(files.begin(), files.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
        return std::move(files);
    }

    bool isComplete() const { return complete; }

private:
    void visit(std::filesystem::recursive_directory_iterator& entry) {
        const std::string path = entry->path().string();
        struct stat status {};
        std::error_code ignored;
        if (entry->is_directory(ignored) && !entry->is_symlink(ignored)) {
            reportUnreadable(path);
            if (entry.depth() == MAX_DEPTH) {
                entry.disable_recursion_pending();
                report("'" + path + "' lies too deep");
            }
        } else if (::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
            std::string name = path.substr(directory.path.size() + 1);
            if (name == directory.ownFile || name == KxNCommon::temporaryName(directory.ownFile)) {
                return;
            }
            files.push_back({std::move(name), static_cast<std::uint64_t>(status.st_size),
                             static_cast<std::int64_t>(status.st_mtim.tv_sec)});
        }
    }

    void reportUnreadable(const std::string& path) {
        if (::access(path.c_str(), R_OK | X_OK) != 0) {
            report("cannot read '" + path + "': " + KxNCommon::systemText(errno));
        }
    }

    void report(const std::string& what) {
        complete = false;
        KxCRTE_LOG(3, "Korvex Container Service: Inventory of '%s' is not complete: %s", directory.path.c_str(),
                   what.c_str());
    }

    const ManagedDirectory& directory;
    const std::size_t maxFiles;
    std::vector<FoundFile> files;
    bool complete = true;
};

}  // namespace

std::vector<ManagedDirectory> managedDirectories() {
    using namespace KxNContainerPaths;
    return {{"image", IMAGES_STORAGE_DIR},
            {"composeFile", COMPOSE_FILES_PATH.substr(0, COMPOSE_FILES_PATH.size() - 1)},
            {"plugin", PLUGINS_DIR, std::filesystem::path(PLUGIN_CONFIG_FILE).filename()},
            {"certificate", CONTAINER_CERTS_DIR}};
}

Inventory::Inventory(std::vector<ManagedDirectory> managed, std::string inventoryFile)
    : directories(std::move(managed)), file(std::move(inventoryFile)) {}

bool Inventory::scan() {
    const std::lock_guard lock(mutex);
    KxNJson::json files = KxNJson::json::array();
    bool isComplete = true;
    for (const ManagedDirectory& directory : directories) {
        Walk walk(directory, MAX_FILES - files.size());
        walk.run();
        isComplete = isComplete && walk.isComplete();
        for (FoundFile& found : walk.takeSorted()) {
            files.push_back({{"name", std::move(found.name)},
                             {"kind", directory.kind},
                             {"size", found.size},
                             {"time", found.time}});
        }
    }
    const KxNJson::json document = {{"files", std::move(files)}, {"isComplete", isComplete}};
    std::string error;
    if (!KxNCommon::replaceFile(file, document.dump(-1, ' ', false, KxNJson::Utf8ErrorMode::replace) + "\n", 0644,
                                error)) {
        KxCRTE_LOG(4, "Korvex Container Service: The inventory was not written: %s", error.c_str());
        return false;
    }
    return true;
}

}  // namespace KxNContainer

// The inventory: what lies in the managed directories, for other processes on the target.
#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace KxNContainer {

inline constexpr const char* INVENTORY_FILE = "/run/KxInventoryTree.json";

struct ManagedDirectory {
    std::string kind;  ///< of the files in it: "image", "composeFile", "plugin", "certificate"
    std::string path;
    std::string ownFile = {};  ///< name of one in it that the platform keeps for itself; not part of the inventory
};

/// The managed directories of the container service.
std::vector<ManagedDirectory> managedDirectories();

/// {"files": [{"name", "kind", "size", "time"}], "isComplete"}: `name` is the path below the file's directory, `size`
/// in bytes, `time` the last change in seconds since the Unix epoch; ordered by directory, then by name. A directory
/// that is not there holds nothing. What cannot be read, or exceeds the bounds of the walk, is a level-3 log line and
/// makes `isComplete` false.
class Inventory {
public:
    Inventory(std::vector<ManagedDirectory> directories, std::string file);

    /// Walks the directories and replaces the file. False, with a level-4 log line, when it was not written. Any
    /// thread.
    bool scan();

private:
    const std::vector<ManagedDirectory> directories;
    const std::string file;
    std::mutex mutex;  // one scan at a time, so that an older one never replaces a newer one
};

}  // namespace KxNContainer

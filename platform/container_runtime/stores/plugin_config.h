// Plugins of the container runtime: the files of a directory, and the list of those that are deactivated.
#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "KxJson.h"

namespace KxNContainer {

/// What a plugin's file name says: NAME_VERSION.crp, split at the last '_'; without one the version is "1.0".
struct PluginIdentity {
    std::string name;
    std::string version;

    bool operator==(const PluginIdentity& other) const = default;
};

/// None for a name that does not end in ".crp".
std::optional<PluginIdentity> parsePluginFileName(std::string_view fileName);

/// The configuration file is {"deactivated": [{"name", "version"}]}; what else it holds survives every rewrite. One
/// that is not of that form is reported and never overwritten. All operations may be called from any thread.
class PluginConfig {
public:
    enum Code : int { CHANGED = 0, ALREADY_SO = 1, EMPTY_ARGUMENT = 2, NO_SUCH_PLUGIN = 3, NOT_WRITTEN = 4 };

    PluginConfig(std::string pluginsDirectory, std::string configFile);

    /// {"plugins": [{"name", "version", "fileName", "size", "modified", "isDeactivated"}]}, ordered by file name. With
    /// a configuration file that cannot be read no plugin counts as deactivated.
    KxNJson::json list() const;

    Code deactivate(const PluginIdentity& plugin);
    Code activate(const PluginIdentity& plugin);
    /// Drops the entry of the plugin with that file name, whether the file is still there or not.
    Code dropEntry(const std::string& fileName);

    /// Reads the directory anew and reports what is wrong in it: files that stand for the same plugin cannot be told
    /// apart by the configuration.
    void scanDirectory() const;

private:
    struct PluginFile;

    std::vector<PluginFile> readDirectory() const;
    Code forget(const PluginIdentity& plugin);
    bool hasFile(const PluginIdentity& plugin) const;
    Code change(const std::function<Code(KxNJson::json&)>& apply) const;
    KxNJson::json load() const;

    const std::string directory;
    const std::string configFile;
    std::mutex mutex;  // held from the reading of the configuration file to its replacement
};

}  // namespace KxNContainer

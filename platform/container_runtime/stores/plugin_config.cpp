#include "platform/container_runtime/stores/plugin_config.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <tuple>
#include <utility>

#include "KxLog.h"
#include "platform/container_runtime/stores/json_file.h"

namespace KxNContainer {

namespace {

constexpr const char* DEACTIVATED = "deactivated";
constexpr const char* NAME = "name";
constexpr const char* VERSION = "version";

bool isEntryOf(const KxNJson::json& entry, const PluginIdentity& plugin) {
    const auto holds = [&entry](const char* key, const std::string& text) {
        const auto found = entry.find(key);
        return found != entry.end() && found->is_string() && found->get_ref<const std::string&>() == text;
    };
    return entry.is_object() && holds(NAME, plugin.name) && holds(VERSION, plugin.version);
}

bool isDeactivated(const KxNJson::json& document, const PluginIdentity& plugin) {
    const KxNJson::json& entries = document.at(DEACTIVATED);
    return std::any_of(entries.begin(), entries.end(), [&](const auto& entry) { return isEntryOf(entry, plugin); });
}

void removeEntries(KxNJson::json& document, const PluginIdentity& plugin) {
    KxNJson::json kept = KxNJson::json::array();
    for (KxNJson::json& entry : document.at(DEACTIVATED)) {
        if (!isEntryOf(entry, plugin)) {
            kept.push_back(std::move(entry));
        }
    }
    document.at(DEACTIVATED) = std::move(kept);
}

}  // namespace

struct PluginConfig::PluginFile {
    std::string fileName;
    PluginIdentity identity;
    std::uint64_t size;
    std::int64_t modified;
};

std::optional<PluginIdentity> parsePluginFileName(std::string_view fileName) {
    constexpr std::string_view extension = ".crp";
    if (!fileName.ends_with(extension)) {
        return std::nullopt;
    }
    const std::string stem(fileName.substr(0, fileName.size() - extension.size()));
    const std::size_t separator = stem.rfind('_');
    if (separator == std::string::npos) {
        return PluginIdentity{stem, "1.0"};
    }
    return PluginIdentity{stem.substr(0, separator), stem.substr(separator + 1)};
}

PluginConfig::PluginConfig(std::string pluginsDirectory, std::string configurationFile)
    : directory(std::move(pluginsDirectory)), configFile(std::move(configurationFile)) {}

KxNJson::json PluginConfig::list() const {
    KxNJson::json document = {{DEACTIVATED, KxNJson::json::array()}};
    try {
        document = load();
    } catch (const std::runtime_error& error) {
        KxCRTE_LOG(4, "Korvex Container Service: %s", error.what());
    }
    KxNJson::json plugins = KxNJson::json::array();
    for (const PluginFile& file : readDirectory()) {
        plugins.push_back({{NAME, file.identity.name},
                           {VERSION, file.identity.version},
                           {"fileName", file.fileName},
                           {"size", file.size},
                           {"modified", file.modified},
                           {"isDeactivated", isDeactivated(document, file.identity)}});
    }
    return {{"plugins", std::move(plugins)}};
}

PluginConfig::Code PluginConfig::deactivate(const PluginIdentity& plugin) {
    if (plugin.name.empty() || plugin.version.empty()) {
        return EMPTY_ARGUMENT;
    }
    const std::lock_guard lock(mutex);  // else the file may go, and its entry with it, before this one is made
    if (!hasFile(plugin)) {
        return NO_SUCH_PLUGIN;
    }
    return change([&](KxNJson::json& document) {
        if (isDeactivated(document, plugin)) {
            return ALREADY_SO;
        }
        document.at(DEACTIVATED).push_back({{NAME, plugin.name}, {VERSION, plugin.version}});
        return CHANGED;
    });
}

PluginConfig::Code PluginConfig::activate(const PluginIdentity& plugin) {
    if (plugin.name.empty() || plugin.version.empty()) {
        return EMPTY_ARGUMENT;
    }
    return forget(plugin);
}

PluginConfig::Code PluginConfig::dropEntry(const std::string& fileName) {
    if (fileName.empty()) {
        return EMPTY_ARGUMENT;
    }
    const auto plugin = parsePluginFileName(fileName);
    return plugin ? forget(*plugin) : NO_SUCH_PLUGIN;
}

/// Takes the plugin's entry away, so that it counts as activated.
PluginConfig::Code PluginConfig::forget(const PluginIdentity& plugin) {
    const std::lock_guard lock(mutex);
    return change([&](KxNJson::json& document) {
        if (!isDeactivated(document, plugin)) {
            return hasFile(plugin) ? ALREADY_SO : NO_SUCH_PLUGIN;
        }
        removeEntries(document, plugin);
        return CHANGED;
    });
}

/// Writes what `apply` makes of the configuration, where it says that it has changed it.
PluginConfig::Code PluginConfig::change(const std::function<Code(KxNJson::json&)>& apply) const {
    try {
        KxNJson::json document = load();
        const Code code = apply(document);
        if (code == CHANGED) {
            writeJsonFile(configFile, document, "The plugin configuration was not written");
        }
        return code;
    } catch (const std::runtime_error& error) {
        KxCRTE_LOG(4, "Korvex Container Service: %s", error.what());
        return NOT_WRITTEN;
    }
}

void PluginConfig::scanDirectory() const {
    std::vector<PluginFile> files = readDirectory();
    KxCRTE_LOG(1, "Korvex Container Service: %zu plugins in '%s'", files.size(), directory.c_str());
    // Only a name with and one without a version can stand for the same plugin, and then the two sort side by side
    // once ordered by what they stand for.
    std::sort(files.begin(), files.end(), [](const PluginFile& a, const PluginFile& b) {
        return std::tie(a.identity.name, a.identity.version) < std::tie(b.identity.name, b.identity.version);
    });
    const auto isSame = [](const PluginFile& a, const PluginFile& b) { return a.identity == b.identity; };
    for (auto same = std::adjacent_find(files.begin(), files.end(), isSame); same != files.end();
         same = std::adjacent_find(same + 1, files.end(), isSame)) {
        KxCRTE_LOG(3, "Korvex Container Service: '%s' and '%s' in '%s' are both plugin '%s' version '%s'",
                   same->fileName.c_str(), (same + 1)->fileName.c_str(), directory.c_str(), same->identity.name.c_str(),
                   same->identity.version.c_str());
    }
}

std::vector<PluginConfig::PluginFile> PluginConfig::readDirectory() const {
    std::vector<PluginFile> files;
    std::error_code failure;
    std::filesystem::directory_iterator entry(directory, failure);
    for (const std::filesystem::directory_iterator end; !failure && entry != end; entry.increment(failure)) {
        PluginFile file{};
        file.fileName = entry->path().filename().string();
        const auto identity = parsePluginFileName(file.fileName);
        struct stat status {};
        if (!identity || ::stat(entry->path().c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
            continue;
        }
        file.identity = *identity;
        file.size = static_cast<std::uint64_t>(status.st_size);
        file.modified = static_cast<std::int64_t>(status.st_mtim.tv_sec);
        files.push_back(std::move(file));
    }
    if (failure && failure != std::errc::no_such_file_or_directory) {
        KxCRTE_LOG(3, "Korvex Container Service: Cannot read the plugins directory '%s': %s", directory.c_str(),
                   failure.message().c_str());
    }
    std::sort(files.begin(), files.end(), [](const auto& a, const auto& b) { return a.fileName < b.fileName; });
    return files;
}

bool PluginConfig::hasFile(const PluginIdentity& plugin) const {
    const std::vector<PluginFile> files = readDirectory();
    return std::any_of(files.begin(), files.end(), [&](const PluginFile& file) { return file.identity == plugin; });
}

/// Holds an array of entries always. Throws std::runtime_error when the file cannot be used.
KxNJson::json PluginConfig::load() const {
    const std::string cannot = "The plugin configuration cannot be used: ";
    try {
        KxNJson::json document = readJsonFile(configFile).value_or(KxNJson::json::object());
        if (!document.emplace(DEACTIVATED, KxNJson::json::array()).first.value().is_array()) {
            throw std::invalid_argument("\"deactivated\" is not an array");
        }
        return document;
    } catch (const std::invalid_argument& broken) {
        throw std::runtime_error(cannot + "'" + configFile + "' is broken: " + broken.what());
    } catch (const std::runtime_error& failure) {
        throw std::runtime_error(cannot + failure.what());
    }
}

}  // namespace KxNContainer

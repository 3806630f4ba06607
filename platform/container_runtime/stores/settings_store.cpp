#include "platform/container_runtime/stores/settings_store.h"

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "KxLog.h"
#include "platform/container_runtime/stores/json_file.h"

namespace KxNContainer {

namespace {

constexpr const char* TCP_PORT = "tcp_port";
constexpr const char* CORES_NUM = "cores_num";
constexpr const char* ENABLED = "enabled";
constexpr std::int32_t DEFAULT_TCP_PORT = 2376;

bool isInt32(const KxNJson::json& value) {
    return value.is_number_unsigned()
               ? std::in_range<std::int32_t>(value.get<std::uint64_t>())
               : value.is_number_integer() && std::in_range<std::int32_t>(value.get<std::int64_t>());
}

}  // namespace

SettingsStore::SettingsStore(std::string settingsPath, std::int32_t allCores)
    : path(std::move(settingsPath)), maximumCores(allCores), current(KxNJson::json::object()) {
    values = interpret(current);
    reload();
}

void SettingsStore::reload() {
    const std::lock_guard fileLock(fileMutex);
    try {
        publish(load().value_or(KxNJson::json::object()));
    } catch (const std::runtime_error& error) {
        KxCRTE_LOG(4, "Korvex Container Service: %s", error.what());
    }
}

bool SettingsStore::isEnabled() const {
    const std::lock_guard lock(mutex);
    return values.isEnabled;
}

KxCCTESettings::KxSUserSettings SettingsStore::userSettings() const {
    const std::lock_guard lock(mutex);
    return values.user;
}

bool SettingsStore::setEnabled(bool isEnabled) {
    return change(KxNJson::json::object({{ENABLED, isEnabled}}));
}

bool SettingsStore::setUserSettings(const KxCCTESettings::KxSUserSettings& settings) {
    return change(KxNJson::json::object({{TCP_PORT, settings.tcpPort}, {CORES_NUM, settings.coresNum}}));
}

bool SettingsStore::change(const KxNJson::json& changes) {
    const std::lock_guard fileLock(fileMutex);
    try {
        // Start from what the file holds now, so that an edit by hand is kept. Where it is gone or was broken, what
        // this process knows is better than the defaults.
        KxNJson::json document = load().value_or(current);
        for (const auto& [key, value] : changes.items()) {
            document[key] = value;
        }
        writeJsonFile(path, document, "Settings were not written");
        publish(document);
        return true;
    } catch (const std::runtime_error& error) {
        KxCRTE_LOG(4, "Korvex Container Service: %s", error.what());
        return false;
    }
}

void SettingsStore::publish(const KxNJson::json& document) {
    const Values interpreted = interpret(document);
    current = document;
    const std::lock_guard lock(mutex);
    values = interpreted;
}

/// None when there is no file, or when a broken one was set aside. Throws std::runtime_error when it cannot be used.
std::optional<KxNJson::json> SettingsStore::load() const {
    try {
        return readJsonFile(path);
    } catch (const std::invalid_argument& broken) {
        setAside(broken.what());
        return std::nullopt;
    } catch (const std::runtime_error& failure) {
        throw std::runtime_error(std::string("Settings were not read: ") + failure.what());
    }
}

void SettingsStore::setAside(const std::string& reason) const {
    namespace fs = std::filesystem;
    // Nobody else makes files of these names.
    std::string newName;
    std::error_code failure;
    for (int number = 1; newName.empty() || fs::exists(fs::symlink_status(newName, failure)); ++number) {
        newName = path + ".broken-" + std::to_string(number);
    }
    fs::rename(path, newName, failure);
    if (failure) {
        throw std::runtime_error("The settings file '" + path + "' is broken (" + reason +
                                 ") and cannot be set aside: " + failure.message());
    }
    KxCRTE_LOG(4, "Korvex Container Service: The settings file '%s' is broken and was set aside as '%s': %s",
               path.c_str(), newName.c_str(), reason.c_str());
}

SettingsStore::Values SettingsStore::interpret(const KxNJson::json& document) const {
    const auto isExpected = [&](const char* key, auto isOfType, const char* expectation) {
        const auto found = document.find(key);
        if (found == document.end() || isOfType(*found)) {
            return found != document.end();
        }
        KxCRTE_LOG(4, "Korvex Container Service: '%s' in the settings file '%s' is not %s, its default applies", key,
                   path.c_str(), expectation);
        return false;
    };
    const auto integerOf = [&](const char* key, std::int32_t defaultValue) {
        return isExpected(key, isInt32, "a 32-bit integer") ? document[key].get<std::int32_t>() : defaultValue;
    };
    const auto isBool = [](const KxNJson::json& value) { return value.is_boolean(); };
    Values result{};
    result.user.tcpPort = integerOf(TCP_PORT, DEFAULT_TCP_PORT);
    result.user.coresNum = integerOf(CORES_NUM, maximumCores);
    result.isEnabled = !isExpected(ENABLED, isBool, "true or false") || document[ENABLED].get<bool>();
    return result;
}

}  // namespace KxNContainer

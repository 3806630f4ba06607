#include "platform/container_runtime/stores/settings_store.h"

#include <fcntl.h>
#include <stdio.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "KxLog.h"
#include "platform/common/atomic_file.h"
#include "platform/common/system_text.h"
#include "platform/container_runtime/stores/json_file.h"

namespace KxNContainer {

namespace {

constexpr const char* TCP_PORT = "tcp_port";
constexpr const char* CORES_NUM = "cores_num";
constexpr const char* ENABLED = "enabled";
constexpr std::int32_t DEFAULT_TCP_PORT = 2376;

bool isInt32(const KxNJson::json& value) {
    constexpr std::uint64_t LARGEST = std::numeric_limits<std::int32_t>::max();
    return value.is_number_unsigned()
               ? value.get<std::uint64_t>() <= LARGEST
               : value.is_number_integer() && std::in_range<std::int32_t>(value.get<std::int64_t>());
}

bool isBool(const KxNJson::json& value) {
    return value.is_boolean();
}

template <typename Value>
Value valueOf(const std::string& path, const KxNJson::json& document, const char* key, Value defaultValue,
              const char* expectation, bool (*isExpected)(const KxNJson::json&)) {
    const auto found = document.find(key);
    if (found != document.end() && !isExpected(*found)) {
        KxCRTE_LOG(4, "Korvex Container Service: '%s' in the settings file '%s' is not %s, its default applies", key,
                   path.c_str(), expectation);
        return defaultValue;
    }
    return found == document.end() ? defaultValue : found->get<Value>();
}

/// Renames without ever replacing what bears the new name.
int renameToNewName(const std::string& from, const std::string& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
        return 0;
    }
    if (errno != EINVAL) {
        return errno;
    }
    // A file system without that flag. Nobody else makes files of this name.
    std::error_code failure;
    if (std::filesystem::exists(std::filesystem::symlink_status(to, failure))) {
        return EEXIST;
    }
    return ::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
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
    std::string text;
    std::string error;
    switch (KxNCommon::readSmallFile(path, MAX_JSON_FILE_BYTES, text, error)) {
        case KxNCommon::ReadResult::Missing:
            return std::nullopt;
        case KxNCommon::ReadResult::Failed:
            throw std::runtime_error("Settings were not read: " + error);
        case KxNCommon::ReadResult::TooLarge:
            break;
        case KxNCommon::ReadResult::Ok:
            try {
                return parseJsonObject(text);
            } catch (const std::invalid_argument& broken) {
                error = broken.what();
            }
    }
    setAside(error);
    return std::nullopt;
}

void SettingsStore::setAside(const std::string& reason) const {
    constexpr int maxSetAside = 1000;
    int failure = EEXIST;
    for (int number = 1; number <= maxSetAside && failure == EEXIST; ++number) {
        const std::string newName = path + ".broken-" + std::to_string(number);
        failure = renameToNewName(path, newName);
        if (failure == 0) {
            KxCRTE_LOG(4, "Korvex Container Service: The settings file '%s' is broken and was set aside as '%s': %s",
                       path.c_str(), newName.c_str(), reason.c_str());
            return;
        }
    }
    throw std::runtime_error("The settings file '" + path + "' is broken (" + reason +
                             ") and cannot be set aside: " + KxNCommon::systemText(failure));
}

SettingsStore::Values SettingsStore::interpret(const KxNJson::json& document) const {
    constexpr const char* INTEGER = "a 32-bit integer";
    Values result{};
    result.user.tcpPort = valueOf(path, document, TCP_PORT, DEFAULT_TCP_PORT, INTEGER, isInt32);
    result.user.coresNum = valueOf(path, document, CORES_NUM, maximumCores, INTEGER, isInt32);
    result.isEnabled = valueOf(path, document, ENABLED, true, "true or false", isBool);
    return result;
}

}  // namespace KxNContainer

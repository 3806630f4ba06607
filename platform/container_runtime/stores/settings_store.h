// The settings file: what the user set, and whether the container service is enabled.
#pragma once

#include <mutex>
#include <optional>
#include <string>

#include "KxContainer.h"
#include "KxJson.h"

namespace KxNContainer {

/// Values of the settings file, a JSON object. A key that is missing, or whose value has the wrong type, counts as its
/// default (and the latter is reported); keys that are not ours survive every rewrite, in their order. A file that
/// is not a JSON object is set aside beside the settings file and reported.
///
/// All operations may be called from any thread; readers never wait for a disk.
class SettingsStore {
public:
    /// Reads the file. `maximumCores` is the default of the number of cores.
    SettingsStore(std::string path, std::int32_t maximumCores);

    /// Reads the file anew. One that cannot be read leaves the values as they are.
    void reload();

    bool isEnabled() const;
    KxCCTESettings::KxSUserSettings userSettings() const;

    // True when the file on disk holds the new value. On false, which is logged at level 4, nothing changed.
    bool setEnabled(bool isEnabled);
    bool setUserSettings(const KxCCTESettings::KxSUserSettings& settings);

private:
    struct Values {
        KxCCTESettings::KxSUserSettings user;
        bool isEnabled;
    };

    std::optional<KxNJson::json> load() const;
    void setAside(const std::string& reason) const;
    Values interpret(const KxNJson::json& document) const;
    bool change(const KxNJson::json& changes);
    void publish(const KxNJson::json& document);

    const std::string path;
    const std::int32_t maximumCores;
    std::mutex fileMutex;      // held over the file's reading and writing; taken before the other
    KxNJson::json current;     // the document that `values` came from; under fileMutex
    mutable std::mutex mutex;  // guards what follows
    Values values;
};

}  // namespace KxNContainer

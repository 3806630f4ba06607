// The operations of the container runtime that read and write its files: settings, storage and plugins.
#include <exception>

#include "platform/container_runtime/container_impl.h"
#include "platform/container_runtime/stores/user_storage.h"

namespace KxNContainer {

bool KxCContainer::IsContainerServiceEnabled(bool readAnew) {
    if (readAnew) {
        impl->settings.reload();
    }
    return impl->settings.isEnabled();
}

bool KxCContainer::EnableContainerService() {
    return impl->settings.setEnabled(true);
}

bool KxCContainer::DisableContainerService() {
    return impl->settings.setEnabled(false);
}

KxCCTESettings::KxSUserSettings KxCContainer::GetContainerServiceUserSettings() {
    return impl->settings.userSettings();
}

bool KxCContainer::SetContainerServiceUserSettings(const KxCCTESettings::KxSUserSettings& settings) {
    return impl->settings.setUserSettings(settings);
}

std::uint32_t KxCContainer::GetMaxAllowedCpuCoreCount() {
    return countAllowedCpus();
}

bool KxCContainer::HasValidUserStorage(std::string* message) {
    try {
        checkUserStorage(USER_STORAGE);
        return true;
    } catch (const std::exception& problem) {
        if (message != nullptr) {
            *message = problem.what();
        }
        return false;
    }
}

bool KxCContainer::TriggerInventoryTreeScan() {
    return impl->inventory.scan();
}

KxNJson::json KxCContainer::listPlugins() {
    return impl->plugins.list();
}

int KxCContainer::addPluginToConfig(const std::string& name, const std::string& version) {
    return impl->plugins.deactivate({name, version});
}

int KxCContainer::removePluginFromConfig(const std::string& name, const std::string& version) {
    return impl->plugins.activate({name, version});
}

int KxCContainer::removePluginFromConfigByFileName(const std::string& fileName) {
    return impl->plugins.dropEntry(fileName);
}

void KxCContainer::scanContainerPluginsDir() {
    impl->plugins.scanDirectory();
}

}  // namespace KxNContainer

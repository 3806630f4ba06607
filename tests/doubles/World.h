// What stands in for the platform libraries in the tests of the service's own code. Linked in their place, the doubles
// write every call into one journal and answer as the test told them to.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "KxContainer.h"
#include "KxErrorManager.h"
#include "KxJson.h"

namespace KxNDoubles {

struct World {
    World();

    /// Every call and every log line in the order in which they happened, each ended by a newline. A log line is its
    /// level, ": ", and the text behind the service's prefix.
    std::string journal;
    void note(const std::string& line);  ///< any thread

    int lowestLogLevel = 0;
    bool isNoted = true;  ///< false while calls are too many to be of interest

    // Container runtime
    bool isEnabled = true;
    int status = KxNContainer::KxCContainer::STARTED;
    bool initResult = true;
    bool startResult = true;
    KxCCTESettings::KxSUserSettings settings{2376, 2};
    std::uint32_t maximumCores = 4;
    bool areSettingsWritten = true;
    std::string storageProblem;  ///< empty: the user storage is valid
    bool isInventoryWritten = true;
    KxNContainer::PodmanReply podman{"", 200};
    std::function<void()> duringPodman;  ///< called while Podman works
    int composeCode = 0;
    KxNJson::json composeResult = {{"Message", "done"}};
    int pluginCode = 0;
    KxNJson::json plugins = {{"plugins", KxNJson::json::array()}};

    // Process
    std::map<std::string, std::string> options;
    std::string failingServerCall;  ///< adds an error to the pool; "create" also makes no server
    bool isSingleton = true;
    std::function<void()> onInitialized;
    bool isProfilerActive = true;
    std::unique_ptr<KxCErrorListPool> masterErrors;
};

/// The one world. `reset` makes a new one before each test.
World& world();
void reset();

/// Message tables registered at the moment; outlives every world.
std::vector<const KxResText*>& messageTables();

}  // namespace KxNDoubles

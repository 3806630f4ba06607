// What stands in for the platform libraries in the tests of the service's own code. Linked in their place, the doubles
// write every call into one journal and answer as the test told them to.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "KxContainer.h"
#include "KxErrorManager.h"
#include "KxJson.h"
#include "KxTamberWebApi/KxAudit.h"

namespace KxNDoubles {

struct World {
    /// Every call and every log line in the order in which they happened, each ended by a newline. A log line is its
    /// level, ": ", and the text behind the service's prefix.
    std::string journal;

    int lowestLogLevel = 0;
    std::set<std::string> failing;  ///< the calls that fail, by the first words of their notes

    // Container runtime
    bool isEnabled = true;
    int status = KxNContainer::KxCContainer::STARTED;
    KxCCTESettings::KxSUserSettings settings{2376, 2};
    std::uint32_t maximumCores = 4;
    std::string storageProblem;  ///< empty: the user storage is valid
    KxNContainer::PodmanReply podman{"", 200};
    std::function<void()> duringPodman;  ///< called while Podman works
    KxNContainer::KxSPodmanState podmanState{true, 1'000, 0};
    std::vector<KxNContainer::KxSKnownContainer> containers;
    KxNContainer::KxCChangeSink* changes = nullptr;
    std::function<void(KxNContainer::KxCLogEntrySink&)> duringFollow = [](auto&) {};
    int composeCode = 0;
    KxNJson::json composeResult = {{"Message", "done"}};
    int pluginCode = 0;
    KxNJson::json plugins = {{"plugins", KxNJson::json::array()}};

    // Web API
    KxNTamberWebApi::KxSAuditState audit;
    int sendsLeft = 1000;  ///< until the client of a WebSocket has gone

    // Process
    std::int64_t utcMilliseconds = 1'800'000'000'000;  ///< 2027-01-15T08:00:00Z
    std::int64_t monotonicMilliseconds = 50'000;
    std::map<std::string, std::string> options;
    std::function<void()> onInitialized;
    std::unique_ptr<KxCErrorListPool> masterErrors = std::make_unique<KxCErrorListPool>();
    std::atomic<int> answeredStatus = 0;  ///< of the last response

    World& addLine(const std::string& line);  ///< any thread
};

/// The one world. `reset` makes a new one before each test.
World& world();
void reset();

/// Writes the parts into the journal, one behind the other. Any thread.
template <typename... Parts>
World& note(const Parts&... parts) {
    std::ostringstream line;
    (line << ... << parts);
    return world().addLine(line.str());
}

/// Notes a call with its arguments; false when it is to fail.
template <typename... Parts>
bool succeeds(const std::string& call, const Parts&... arguments) {
    return !note(call, arguments...).failing.contains(call);
}

/// Message tables registered at the moment; outlives every world.
std::vector<const KxResText*>& messageTables();

}  // namespace KxNDoubles

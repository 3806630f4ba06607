// Follows what happens to containers and images, whoever does it.
#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/container_runtime/changes/known_containers.h"
#include "platform/container_runtime/changes/known_images.h"
#include "platform/container_runtime/podman/podman_client.h"
#include "platform/net/cancellation.h"

namespace KxNContainer {

/// Reads Podman's stream of events on a thread of its own and opens it again when it ends, with Podman or without.
/// Whenever it is open, and every minute, the lists of Podman make up for what no event has told: Podman may have been
/// gone, and its record of events is turned over. `start` and `stop` come from one thread, the rest from any.
class ChangeWatch {
public:
    explicit ChangeWatch(PodmanClient& podman) : client(podman) {}
    ~ChangeWatch() { stop(); }

    /// Tells `newSink`, null for nobody, from now on. When it returns, the one before is not called any more.
    void setSink(KxCChangeSink* newSink);

    /// Throws std::system_error when there is no thread.
    void start();
    /// Harmless when nothing runs.
    void stop();

    std::vector<KxSKnownContainer> knownContainers() const;

private:
    class EventSink;

    void run();
    /// One stream, for as long as it lasts, at most `longest`. False when Podman could not be reached.
    bool follow(std::chrono::milliseconds longest);
    void takeEvents(std::string_view lines);
    void takeEvent(std::string_view line);
    /// False when Podman does not give its lists.
    bool takeLists();
    bool takeImages();
    bool ask(const std::string& path, std::span<const char* const> keys, KxNJson::json& list);
    void tell(const std::vector<KxSChange>& changes);

    PodmanClient& client;
    std::unique_ptr<KxNNet::Cancellation> stopping;
    std::thread thread;

    std::mutex sinkMutex;
    KxCChangeSink* sink = nullptr;

    mutable std::mutex knownMutex;
    KnownContainers containers;
    KnownImages images;

    // The thread's own.
    std::set<std::int64_t>
        told;  // the times, in nanoseconds, of the events that came lately: a new stream repeats them
    bool imagesHaveChanged = false;
    bool wasLost = true;
    std::chrono::milliseconds listTime{0};  // what the lists took lately
};

}  // namespace KxNContainer

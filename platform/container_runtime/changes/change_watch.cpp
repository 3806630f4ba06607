#include "platform/container_runtime/changes/change_watch.h"

#include <poll.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <exception>

#include "KxClock.h"
#include "KxJson.h"
#include "KxJsonText.h"
#include "KxLog.h"
#include "platform/common/blocked_signals.h"

namespace KxNContainer {

namespace {

using std::chrono::milliseconds;

/// How long a stream is followed before the lists are looked at again. The first one after Podman was gone is a short
/// one: what it repeats may be older than the lists that it begins with.
constexpr milliseconds STREAM_TIME{60'000};
constexpr milliseconds FIRST_STREAM_TIME{2'000};
/// How far back a new stream begins, so that nothing falls between two.
constexpr std::int64_t OVERLAP_MILLISECONDS = 2'000;
/// Lists take long where there is much to list: between two of them passes so many times the time that one takes.
constexpr int LIST_TIME_SHARE = 50;
constexpr milliseconds RETRY_PAUSE{200};
constexpr milliseconds SHORTEST_LONG_PAUSE{800};
constexpr milliseconds LONGEST_RETRY_PAUSE{30'000};
/// Events about images come in bursts; one look at the list serves for one.
constexpr milliseconds IMAGE_PAUSE{200};
constexpr std::chrono::seconds LIST_TIME{120};
constexpr std::size_t LONGEST_EVENT = 1UL << 20;
constexpr std::size_t MOST_TOLD = 4096;

constexpr std::array<const char*, 3> CONTAINER_KEYS{"Id", "Names", "State"};
constexpr std::array<const char*, 2> IMAGE_KEYS{"Id", "RepoTags"};

/// Podman's path for the events of containers and images since `utcMilliseconds`.
std::string eventsPath(std::int64_t utcMilliseconds) {
    std::array<char, 160> path;
    std::snprintf(
        path.data(), path.size(),
        "/events?filters=%%7B%%22type%%22%%3A%%5B%%22container%%22%%2C%%22image%%22%%5D%%7D&since=%lld.%03lld",
        static_cast<long long>(utcMilliseconds / 1000), static_cast<long long>(utcMilliseconds % 1000));
    return path.data();
}

}  // namespace

/// Gives the watch the events line by line, and time to look at the lists in between.
class ChangeWatch::EventSink final : public AnswerSink {
public:
    explicit EventSink(ChangeWatch& owner) : watch(owner) {}

    void take(std::string_view bytes) override {
        rest.append(bytes);
        const std::size_t end = rest.rfind('\n');
        if (end != rest.npos) {
            watch.takeEvents(std::string_view(rest).substr(0, end));
            rest.erase(0, end + 1);
        } else if (rest.size() > LONGEST_EVENT) {
            rest.clear();
        }
    }

    /// First of all when the stream is open and nothing has come yet.
    bool flush() override {
        if (!isOpen) {
            isOpen = true;
            return watch.takeLists();
        }
        return !watch.imagesHaveChanged || watch.takeImages();
    }

    bool isOpen = false;

private:
    ChangeWatch& watch;
    std::string rest;
};

void ChangeWatch::setSink(KxCChangeSink* newSink) {
    const std::lock_guard lock(sinkMutex);
    sink = newSink;
}

void ChangeWatch::start() {
    stop();
    stopping = std::make_unique<KxNNet::Cancellation>();
    const KxNCommon::BlockedSignals blocked;
    thread = std::thread(&ChangeWatch::run, this);
    ::pthread_setname_np(thread.native_handle(), "kx-podman-event");
}

void ChangeWatch::stop() {
    if (thread.joinable()) {
        stopping->cancel();
        thread.join();
    }
}

std::vector<KxSKnownContainer> ChangeWatch::knownContainers() const {
    const std::lock_guard lock(knownMutex);
    return containers.all();
}

void ChangeWatch::run() {
    for (milliseconds pause = RETRY_PAUSE; !stopping->isCancelled();) {
        const auto begin = std::chrono::steady_clock::now();
        bool wasOpen = false;
        try {
            wasOpen = follow(wasLost ? FIRST_STREAM_TIME : std::max(STREAM_TIME, LIST_TIME_SHARE * listTime));
        } catch (const std::exception& failure) {
            // Once for each time that they are lost: the next tries say the same, five times a second.
            KxCRTE_LOG(wasLost ? 0 : 3, "Korvex Container Service: Podman's events cannot be followed: %s",
                       failure.what());
        }
        const bool lasted = std::chrono::steady_clock::now() - begin >= FIRST_STREAM_TIME;
        wasLost = !wasOpen || !lasted;
        // Where Podman ends a stream at once time after time, nobody is to be kept busy with its lists.
        const milliseconds longest = std::clamp(LIST_TIME_SHARE * listTime, SHORTEST_LONG_PAUSE, LONGEST_RETRY_PAUSE);
        pause = wasOpen && !lasted ? std::min(2 * pause, longest) : RETRY_PAUSE;
        pollfd ended{stopping->descriptor(), POLLIN, 0};
        ::poll(&ended, 1, wasLost ? static_cast<int>(pause.count()) : 0);
    }
}

bool ChangeWatch::follow(milliseconds longest) {
    const std::int64_t since = KxCVorrelClock::utcMilliseconds() - OVERLAP_MILLISECONDS;
    told.erase(told.begin(), told.lower_bound(since * 1'000'000));
    EventSink events(*this);
    const KxNNet::WaitLimits limits{*stopping, std::chrono::steady_clock::now() + longest};
    client.stream({eventsPath(since), KxCCurlHandler::MethodType::GET, {}, {}}, limits, events);
    return events.isOpen;
}

void ChangeWatch::takeEvents(std::string_view lines) {
    while (!lines.empty()) {
        const std::string_view line = lines.substr(0, lines.find('\n'));
        lines.remove_prefix(std::min(line.size() + 1, lines.size()));
        takeEvent(line);
    }
}

void ChangeWatch::takeEvent(std::string_view line) {
    KxNJson::json event;
    if (std::string reason; !KxNJson::parse(line, event, reason) || !event.is_object()) {
        return;
    }
    const auto time = event.find("timeNano");
    if (time == event.end() || !time->is_number_integer() || !told.insert(time->get<std::int64_t>()).second) {
        return;
    }
    if (told.size() > MOST_TOLD) {
        told.erase(told.begin());
    }
    if (event.value("Type", "") == std::string_view("image")) {
        imagesHaveChanged = true;
        return;
    }
    std::vector<KxSChange> changes;
    {
        const std::lock_guard lock(knownMutex);
        containers.takeEvent(event, time->get<std::int64_t>() / 1'000'000, changes);
    }
    tell(changes);
}

bool ChangeWatch::takeLists() {
    const auto begin = std::chrono::steady_clock::now();
    const std::int64_t utcMilliseconds = KxCVorrelClock::utcMilliseconds();
    KxNJson::json list;
    if (!ask("/containers/json?all=true", CONTAINER_KEYS, list)) {
        return false;
    }
    listTime = std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - begin);
    std::vector<KxSChange> changes;
    bool isFirst = false;
    {
        const std::lock_guard lock(knownMutex);
        isFirst = !containers.hasList();
        containers.takeList(list, utcMilliseconds, changes);
    }
    tell(changes);
    const bool isDone = takeImages();
    if (const std::lock_guard lock(sinkMutex); isFirst && sink != nullptr) {
        sink->takeRelist();
    }
    return isDone;
}

bool ChangeWatch::takeImages() {
    if (imagesHaveChanged) {
        pollfd ended{stopping->descriptor(), POLLIN, 0};
        ::poll(&ended, 1, static_cast<int>(IMAGE_PAUSE.count()));
    }
    imagesHaveChanged = false;
    KxNJson::json list;
    if (!ask("/images/json", IMAGE_KEYS, list)) {
        return false;
    }
    std::vector<KxSChange> changes;
    images.takeList(list, KxCVorrelClock::utcMilliseconds(), changes);
    tell(changes);
    return true;
}

bool ChangeWatch::ask(const std::string& path, std::span<const char* const> keys, KxNJson::json& list) {
    const KxNNet::WaitLimits limits{*stopping, std::chrono::steady_clock::now() + LIST_TIME};
    const PodmanReply reply = client.execute({path, KxCCurlHandler::MethodType::GET, {}, {}}, limits);
    std::string reason = reply.body;
    if (reply.status == 200 && KxNJson::selectKeys(reply.body, keys, list, reason)) {
        return true;
    }
    if (!stopping->isCancelled()) {
        KxCRTE_LOG(1, "Korvex Container Service: Podman does not list what there is (GET %s): %s", path.c_str(),
                   reason.c_str());
    }
    return false;
}

void ChangeWatch::tell(const std::vector<KxSChange>& changes) {
    const std::lock_guard lock(sinkMutex);
    if (sink == nullptr) {
        return;
    }
    for (const KxSChange& change : changes) {
        sink->takeChange(change);
    }
}

}  // namespace KxNContainer

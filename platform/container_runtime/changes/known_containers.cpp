#include "platform/container_runtime/changes/known_containers.h"

#include <algorithm>
#include <array>
#include <functional>
#include <utility>

#include "KxJson.h"

namespace KxNContainer {

namespace {

using KxNJson::json;

constexpr const char* RUNNING = "running";
constexpr const char* PAUSED = "paused";

bool hasProcess(std::string_view state) {
    return state == RUNNING || state == PAUSED;
}

/// Which events are passed on, and the state of the container after each; none for those that leave it.
constexpr std::array<std::pair<std::string_view, const char*>, 10> ACTIONS = {{
    {"create", "created"},
    {"start", RUNNING},
    {"die", "exited"},
    {"pause", PAUSED},
    {"unpause", RUNNING},
    {"remove", nullptr},
    {"rename", nullptr},
    {"restart", nullptr},
    {"kill", nullptr},
    {"oom", nullptr},
}};

/// What leads from one state to another; null when nothing has to be told.
const char* actionBetween(std::string_view before, std::string_view after) {
    if (before == after) {
        return nullptr;
    }
    if (!hasProcess(after)) {
        return hasProcess(before) ? "die" : nullptr;
    }
    if (!hasProcess(before)) {
        return "start";
    }
    return after == PAUSED ? "pause" : "unpause";
}

std::string textOf(const json& object, const char* key) {
    const auto member = object.find(key);
    return member != object.end() && member->is_string() ? member->get<std::string>() : std::string();
}

std::string nameOf(const json& listed) {
    const auto names = listed.find("Names");
    if (names == listed.end() || !names->is_array() || names->empty() || !names->front().is_string()) {
        return {};
    }
    std::string name = names->front().get<std::string>();
    name.erase(0, name.starts_with('/') ? 1 : 0);
    return name;
}

/// An id of Podman's as the key of a container.
template <class Id>
Id shorten(std::string_view id) {
    Id key{};
    std::copy_n(id.begin(), std::min(id.size(), key.size()), key.begin());
    return key;
}

}  // namespace

std::size_t KnownContainers::IdHash::operator()(const Id& id) const {
    return std::hash<std::string_view>()({id.data(), id.size()});
}

const char* KnownContainers::keep(std::string_view state) {
    const auto found = states.find(state);
    return (found != states.end() ? found : states.emplace(state).first)->c_str();
}

void KnownContainers::takeEvent(const json& event, std::int64_t utcMilliseconds, std::vector<KxSChange>& changes) {
    const auto actor = event.find("Actor");
    if (actor == event.end() || !actor->is_object() || !actor->contains("Attributes")) {
        return;
    }
    const std::string id = textOf(*actor, "ID");
    const std::string name = textOf((*actor)["Attributes"], "name");
    const std::string verb = textOf(event, "Action");
    const auto action =
        std::find_if(ACTIONS.begin(), ACTIONS.end(), [&](const auto& known) { return known.first == verb; });
    if (action == ACTIONS.end() || id.empty()) {
        return;
    }
    const Id key = shorten<Id>(id);
    auto found = containers.find(key);
    if (verb == "remove") {
        if (found != containers.end()) {
            containers.erase(found);
            if (!isNamed(name)) {  // a new one may have the name before the removal of the old one is told
                changes.push_back({"container", verb, name, utcMilliseconds});
            }
        }
        return;
    }
    const bool isNew = found == containers.end();
    if (isNew && ((verb != "create" && verb != "start") || utcMilliseconds < listTime)) {
        return;  // a list has told that it is gone; another one may have its name by now
    }
    if (isNew) {
        found = containers.emplace(key, Known{}).first;
    }
    Known& container = found->second;
    const bool isNews = verb == "create"            ? isNew
                        : verb == "rename"          ? container.name != name
                        : action->second == nullptr ? true
                                                    : std::string_view(container.state) != action->second;
    container.name = name;
    if (action->second != nullptr && (verb != "create" || isNew)) {
        container.state = keep(action->second);
    }
    if (isNews) {
        container.starts += verb == "start" ? 1 : 0;
        changes.push_back({"container", verb, name, utcMilliseconds});
    }
}

bool KnownContainers::isNamed(const std::string& name) const {
    return std::any_of(containers.begin(), containers.end(), [&](const auto& one) { return one.second.name == name; });
}

void KnownContainers::takeList(const json& list, std::int64_t utcMilliseconds, std::vector<KxSChange>& changes) {
    listTime = utcMilliseconds;
    const auto tell = [&](const char* action, const std::string& name) {
        if (wasListed) {
            changes.push_back({"container", action, name, utcMilliseconds});
        }
    };
    // What is gone comes first: something new may have its name.
    for (const json& entry : list) {
        if (const auto found = containers.find(shorten<Id>(textOf(entry, "Id"))); found != containers.end()) {
            found->second.isListed = true;
        }
    }
    for (auto known = containers.begin(); known != containers.end();) {
        if (std::exchange(known->second.isListed, false)) {
            ++known;
            continue;
        }
        tell("remove", known->second.name);
        known = containers.erase(known);
    }
    for (const json& entry : list) {
        const std::string name = nameOf(entry);
        const std::string state = textOf(entry, "State");
        auto [found, isNew] = containers.try_emplace(shorten<Id>(textOf(entry, "Id")));
        Known& container = found->second;
        if (isNew) {
            container.state = "created";
            tell("create", name);
        } else if (container.name != name) {
            tell("rename", name);
        }
        if (const char* action = actionBetween(container.state, state)) {
            container.starts += wasListed && std::string_view(action) == "start" ? 1 : 0;
            tell(action, name);
        }
        container.name = name;
        container.state = keep(state);
    }
    wasListed = true;
}

std::vector<KxSKnownContainer> KnownContainers::all() const {
    std::vector<KxSKnownContainer> known;
    known.reserve(containers.size());
    for (const auto& [id, container] : containers) {
        known.push_back({container.name, container.state, container.starts});
    }
    return known;
}

}  // namespace KxNContainer

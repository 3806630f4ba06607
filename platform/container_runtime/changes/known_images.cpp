#include "platform/container_runtime/changes/known_images.h"

#include <set>
#include <utility>

#include "KxJson.h"

namespace KxNContainer {

namespace {

using KxNJson::json;

std::map<std::string, std::string> readNames(const json& list) {
    std::map<std::string, std::string> idByName;
    for (const json& entry : list) {
        const auto id = entry.find("Id");
        if (id == entry.end() || !id->is_string()) {
            continue;
        }
        const auto tags = entry.find("RepoTags");
        if (tags == entry.end() || !tags->is_array() || tags->empty()) {
            idByName[*id] = *id;
            continue;
        }
        for (const json& tag : *tags) {
            if (tag.is_string()) {
                idByName[tag] = *id;
            }
        }
    }
    return idByName;
}

std::set<std::string> idsOf(const std::map<std::string, std::string>& idByName) {
    std::set<std::string> ids;
    for (const auto& [name, id] : idByName) {
        ids.insert(id);
    }
    return ids;
}

}  // namespace

void KnownImages::takeList(const json& list, std::int64_t utcMilliseconds, std::vector<KxSChange>& changes) {
    std::map<std::string, std::string> current = readNames(list);
    const std::set<std::string> idsBefore = idsOf(idByName);
    const std::set<std::string> idsNow = idsOf(current);
    const auto tell = [&](const char* action, const std::string& name) {
        if (hasList) {
            changes.push_back({"image", action, name, utcMilliseconds});
        }
    };
    for (const auto& [name, id] : idByName) {
        if (current.count(name) == 0) {
            tell(idsNow.count(id) != 0 ? "untag" : "remove", name);
        }
    }
    for (const auto& [name, id] : current) {
        const auto before = idByName.find(name);
        if (before == idByName.end() || before->second != id) {
            tell(idsBefore.count(id) != 0 ? "tag" : "add", name);
        }
    }
    idByName = std::move(current);
    hasList = true;
}

}  // namespace KxNContainer

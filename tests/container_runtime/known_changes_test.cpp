// What Podman's events and lists mean for who follows the changes.
#include <algorithm>

#include "KxJson.h"
#include "platform/container_runtime/changes/known_containers.h"
#include "platform/container_runtime/changes/known_images.h"
#include "tests/support.h"

namespace KxNContainer {
namespace {

using KxNJson::json;

json eventOf(const char* action, const char* id, const char* name) {
    return {{"Type", "container"}, {"Action", action}, {"Actor", {{"ID", id}, {"Attributes", {{"name", name}}}}}};
}

json entryOf(const char* id, const char* name, const char* state) {
    return {{"Id", id}, {"Names", {std::string("/") + name}}, {"State", state}};
}

std::string textOf(std::vector<KxSChange> changes) {
    std::ranges::stable_sort(changes, {}, &KxSChange::name);
    std::string text;
    for (const KxSChange& change : changes) {
        text += (text.empty() ? "" : ", ") + change.action + " " + change.name;
    }
    return text;
}

TEST(KnownContainers, NothingIsToldTwiceAndNothingIsMissed) {
    const struct {
        const char* fault;
        json step;  // an event, or a list
        const char* told;
    } steps[] = {
        {"the first list is no news", json{entryOf("1", "a", "running"), entryOf("2", "b", "exited")}, ""},
        {"a start that the list has told", eventOf("start", "1", "a"), ""},
        {"a late event of one that is gone", eventOf("die", "9", "old"), ""},
        {"an event", eventOf("die", "1", "a"), "die a"},
        {"the same again", eventOf("die", "1", "a"), ""},
        {"what does not concern anybody", eventOf("cleanup", "1", "a"), ""},
        {"a new one", eventOf("create", "3", "c"), "create c"},
        {"a new one that starts", eventOf("start", "3", "c"), "start c"},
        {"another name", eventOf("rename", "2", "d"), "rename d"},
        {"its removal", eventOf("remove", "2", "d"), "remove d"},
        {"its removal again", eventOf("remove", "2", "d"), ""},
        {"a list that makes up for what was missed",
         json{entryOf("1", "a", "running"), entryOf("3", "e", "paused"), entryOf("4", "f", "running"),
              entryOf("5", "g", "created")},
         "start a, rename e, pause e, create f, start f, create g"},
        {"the same list",
         json{entryOf("1", "a", "running"), entryOf("3", "e", "paused"), entryOf("4", "f", "running"),
              entryOf("5", "g", "created")},
         ""},
        {"a new one with the name of one that is gone",
         json{entryOf("6", "a", "created"), entryOf("3", "e", "paused"), entryOf("4", "f", "running"),
              entryOf("5", "g", "created")},
         "remove a, create a"},
        {"an empty list", json::array(), "remove a, remove e, remove f, remove g"},
        {"what is no event", json{{"Action", "start"}}, ""},
    };
    KnownContainers containers;
    for (const auto& one : steps) {
        std::vector<KxSChange> changes;
        if (one.step.is_array()) {
            containers.takeList(one.step, 0, changes);
        } else {
            containers.takeEvent(one.step, 0, changes);
        }
        EXPECT_EQ(textOf(changes), one.told) << one.fault;
    }
    EXPECT_TRUE(containers.all().empty());
}

TEST(KnownImages, EachNameIsToldByWhatBecameOfIt) {
    const json before = {{{"Id", "1"}, {"RepoTags", {"a:1", "b:1"}}}, {{"Id", "2"}, {"RepoTags", {"c:1"}}}};
    const json after = {{{"Id", "1"}, {"RepoTags", {"a:1", "d:1"}}}, {{"Id", "3"}, {"RepoTags", nullptr}}};
    KnownImages images;
    std::vector<KxSChange> changes;
    images.takeList(before, 0, changes);
    EXPECT_TRUE(changes.empty());
    images.takeList(after, 0, changes);
    EXPECT_EQ(textOf(changes), "add 3, untag b:1, remove c:1, tag d:1");
}

}  // namespace
}  // namespace KxNContainer

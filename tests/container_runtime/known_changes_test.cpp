// What Podman's events and lists mean for who follows the changes.
#include <algorithm>

#include "KxJson.h"
#include "platform/container_runtime/changes/change_watch.h"
#include "platform/container_runtime/changes/known_containers.h"
#include "platform/container_runtime/changes/known_images.h"
#include "podman_double.h"
#include "tests/support.h"

using namespace KxNContainer;
using namespace KxNTests;

using KxNJson::json;

static json eventOf(const char* action, const char* id, const char* name) {
    return {{"Type", "container"}, {"Action", action}, {"Actor", {{"ID", id}, {"Attributes", {{"name", name}}}}}};
}

static json entryOf(const char* id, const char* name, const char* state) {
    return {{"Id", id}, {"Names", {std::string("/") + name}}, {"State", state}};
}

static std::string textOf(std::vector<KxSChange> changes) {
    std::ranges::stable_sort(changes, {}, &KxSChange::name);
    std::string text;
    for (const KxSChange& change : changes) {
        text += (text.empty() ? "" : ", ") + change.action + " " + change.name;
    }
    return text;
}

TEST(KnownContainers, NothingIsToldTwiceAndNothingIsMissed) {
    // step: an event, or a list
    const std::tuple<const char*, json, const char*> steps[] = {
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
        {"what is no event", json{{"Action", "start"}}, ""}};
    KnownContainers containers;
    for (const auto& [fault, step, told] : steps) {
        std::vector<KxSChange> changes;
        if (step.is_array()) {
            containers.takeList(step, 0, changes);
        } else {
            containers.takeEvent(step, 0, changes);
        }
        EXPECT_EQ(textOf(changes), told) << fault;
    }
    EXPECT_TRUE(containers.all().empty());
}

TEST(KnownContainers, ANameThatLivesOnIsNotToldAsRemoved) {
    const std::tuple<const char*, std::int64_t, json, const char*> events[] = {
        {"of a former one, older than the list", 900, eventOf("create", "1", "a"), ""},
        {"and its end", 990, eventOf("remove", "1", "a"), ""},
        {"the next one, that has the name before", 1100, eventOf("create", "3", "a"), "create a"},
        {"the end of the one before is told", 1101, eventOf("remove", "2", "a"), ""},
        {"the last one", 1200, eventOf("remove", "3", "a"), "remove a"}};
    KnownContainers containers;
    std::vector<KxSChange> changes;
    containers.takeList(json{entryOf("2", "a", "created")}, 1000, changes);
    for (const auto& [fault, time, event, told] : events) {
        changes.clear();
        containers.takeEvent(event, time, changes);
        EXPECT_EQ(textOf(changes), told) << fault;
    }
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

/// Notes what is told, on the watch's thread.
class Told final : public KxCChangeSink {
public:
    void takeChange(const KxSChange& change) override { note(change.kind + (" " + change.action + " " + change.name)); }
    void takeRelist() override { note("relist"); }
    /// Whether what has been told becomes `text`.
    bool becomes(const std::string& text) {
        return waitFor([&] {
            const std::lock_guard lock(mutex);
            return told == text;
        });
    }
    std::string text() {
        const std::lock_guard lock(mutex);
        return told;
    }

private:
    void note(const std::string& text) {
        const std::lock_guard lock(mutex);
        told += text + ";";
    }

    std::mutex mutex;
    std::string told;
};

TEST(ChangeWatch, EventsAndListsTogetherTellEachChangeOnce) {
    std::mutex mutex;
    std::vector<PodmanDouble::Peer> streams;
    std::string said;
    json containers = json{entryOf("1", "a", "running")};
    json images = {{{"Id", "i"}, {"RepoTags", {"x:1"}}}};
    int failures = 1;
    const PodmanDouble podman("", [&](PodmanDouble::Peer& peer) {
        const std::string asked = peer.readHeader();
        const std::lock_guard lock(mutex);
        if (asked.find("/events?filters=%7B%22type%22%3A%5B%22container%22%2C%22image%22%5D%7D&since=") != asked.npos) {
            peer.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
            streams.push_back(std::move(peer));
            if (!said.empty()) {
                streams.back().sendChunk(said);  // a new stream repeats what came lately
            }
        } else if (asked.find("/images/json") != asked.npos) {
            peer.answer(200, images.dump());
        } else {
            peer.answer(failures-- > 0 ? 500 : 200, containers.dump());
        }
    });
    const auto say = [&](const std::string& bytes) {
        const std::lock_guard lock(mutex);
        said += bytes;
        streams.back().sendChunk(bytes);
    };
    const auto at = [](std::int64_t number, json event) {
        event["timeNano"] =
            std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()) / 1ns + number;
        return event.dump() + "\n";
    };
    PodmanClient client(podman.address());
    Told told;
    ChangeWatch watch(client);
    watch.setSink(&told);
    watch.start();
    std::string expected = "relist;";
    ASSERT_TRUE(told.becomes(expected)) << told.text();

    const std::string death = at(0, eventOf("die", "1", "a"));
    const std::string born = at(1, eventOf("create", "2", "b"));
    say(death.substr(0, 20));
    say(death.substr(20) + "no event\n7\n{}\n" + death + born.substr(0, 9));
    std::this_thread::sleep_for(50ms);
    say(born.substr(9, 6));
    std::this_thread::sleep_for(50ms);  // so that it comes alone
    say(born.substr(15));
    EXPECT_TRUE(told.becomes(expected += "container die a;container create b;")) << told.text();
    {
        const std::lock_guard lock(mutex);
        images[0]["RepoTags"] = {"x:1", "y:1"};
    }
    say(at(2, {{"Type", "image"}, {"Action", "tag"}}));
    EXPECT_TRUE(told.becomes(expected += "image tag y:1;")) << told.text();
    {
        const std::lock_guard lock(mutex);
        containers = json{entryOf("2", "b", "running")};
        said.clear();
        streams.clear();  // Podman has gone
    }
    EXPECT_TRUE(told.becomes(expected += "container remove a;container start b;")) << told.text();
    ASSERT_EQ(watch.knownContainers().size(), 1u);
    EXPECT_EQ(watch.knownContainers()[0].starts, 1u);
    watch.setSink(nullptr);
    say(at(3, eventOf("die", "2", "b")));
    EXPECT_TRUE(waitFor([&] { return watch.knownContainers()[0].state == "exited"; }));
    watch.stop();
    EXPECT_EQ(told.text(), expected);
}

#include "platform/console/events/event_ring.h"

#include <atomic>
#include <thread>

#include "KxJson.h"
#include "tests/support.h"

namespace KxNConsole {
namespace {

using KxNJson::json;

constexpr std::uint64_t START = 1000;

void addEvents(EventRing& ring, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        ring.add({"container", "start", std::to_string(i), 0});
    }
}

/// What somebody gets who comes back: "relist", and the first and the last number.
std::string follow(EventRing& ring, std::optional<std::int64_t> after) {
    EventRing::Position position = ring.begin(after);
    const std::uint64_t end = ring.begin({}).seq;
    std::string got;
    std::uint64_t first = 0;
    std::uint64_t last = 0;
    while (position.seq != end) {
        for (const std::string& text : ring.next(position, [] { return false; })) {
            const json message = json::parse(text);
            got += message.contains("relist") ? "relist" : "";
            last = message.value("seq", last);
            first = first == 0 ? last : first;
        }
    }
    return got + " " + std::to_string(first) + "-" + std::to_string(last);
}

TEST(EventRing, WhoComesBackGetsWhatWasMissedOrAsksForEverything) {
    EventRing few(START);
    addEvents(few, 3);
    EventRing many(START);
    addEvents(many, EventRing::CAPACITY + 10);
    const std::uint64_t last = START + EventRing::CAPACITY + 10;
    const struct {
        EventRing& ring;
        std::optional<std::int64_t> after;
        std::string expected;
    } rows[] = {
        {few, 1001, " 1002-1003"},
        {few, 0, " 1001-1003"},
        {few, START, " 1001-1003"},
        {many, START + 10, " 1011-" + std::to_string(last)},
        {many, last - 1, " " + std::to_string(last) + "-" + std::to_string(last)},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(follow(row.ring, row.after), row.expected) << row.after.value_or(-1);
    }
    for (const std::int64_t lost : {std::int64_t{5}, static_cast<std::int64_t>(START + 9), std::int64_t{9999999}}) {
        EventRing::Position position = many.begin(lost);
        EXPECT_EQ(many.next(position, [] { return false; }), std::vector<std::string>{R"({"relist":true})"}) << lost;
        EXPECT_EQ(position.seq, last) << lost;
    }
}

TEST(EventRing, AFollowerWhoIsTooSlowIsToldSoAndAWaitEndsWhenItIsOver) {
    EventRing ring(START);
    EventRing::Position position = ring.begin({});
    addEvents(ring, EventRing::CAPACITY + 1);
    EXPECT_EQ(ring.next(position, [] { return false; }).front(), R"({"relist":true})");

    std::atomic<bool> isOver{false};
    std::thread follower([&] { EXPECT_TRUE(ring.next(position, [&] { return isOver.load(); }).empty()); });
    isOver = true;
    ring.wake();
    follower.join();
}

}  // namespace
}  // namespace KxNConsole

#include "platform/console/events/event_ring.h"

#include <algorithm>
#include <utility>

#include "KxJson.h"
#include "platform/console/time_text.h"

namespace KxNConsole {

namespace {

constexpr const char* RELIST = R"({"relist":true})";
constexpr std::uint64_t MESSAGES_AT_ONCE = 256;

}  // namespace

void EventRing::add(Event event) {
    const std::lock_guard lock(mutex);
    kept.push_back(std::move(event));
    ++last;
    if (kept.size() > CAPACITY) {
        kept.pop_front();
    }
    changed.notify_all();
}

void EventRing::relist() {
    const std::lock_guard lock(mutex);
    ++relists;
    changed.notify_all();
}

EventRing::Position EventRing::begin(std::optional<std::int64_t> after) const {
    const std::lock_guard lock(mutex);
    if (!after) {
        return {last, relists, false};
    }
    const auto seq = static_cast<std::uint64_t>(std::max<std::int64_t>(*after, 0));
    if (seq == 0) {
        return {first() - 1, relists, false};
    }
    const bool isKept = seq <= last && seq + 1 >= first();
    return {isKept ? seq : last, relists, !isKept};
}

std::vector<std::string> EventRing::next(Position& position, const std::function<bool()>& isOver) {
    std::unique_lock lock(mutex);
    bool isEnding = false;
    changed.wait(lock, [&] {
        isEnding = isOver();
        return isEnding || position.hasMissed || position.relists != relists || position.seq != last;
    });
    std::vector<std::string> messages;
    if (isEnding) {
        return messages;
    }
    const bool hasLost = position.seq + 1 < first();  // too slow: what came next is gone
    if (std::exchange(position.hasMissed, false) || hasLost || position.relists != relists) {
        messages.emplace_back(RELIST);
        position.relists = relists;
        position.seq = hasLost ? last : position.seq;
    }
    const std::uint64_t end = std::min(last, position.seq + MESSAGES_AT_ONCE);
    while (position.seq < end) {
        messages.push_back(write(++position.seq));
    }
    return messages;
}

void EventRing::wake() {
    const std::lock_guard lock(mutex);  // who has looked waits by now
    changed.notify_all();
}

std::string EventRing::write(std::uint64_t seq) const {
    const Event& event = kept[seq - first()];
    const KxNJson::json message = {{"seq", seq},
                                   {"time", timeText(event.utcMilliseconds)},
                                   {"kind", event.kind},
                                   {"action", event.action},
                                   {"name", event.name}};
    return message.dump(-1, ' ', false, KxNJson::Utf8ErrorMode::replace);
}

}  // namespace KxNConsole

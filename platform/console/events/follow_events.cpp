#include "platform/console/events/follow_events.h"

#include <memory>
#include <optional>

#include "platform/console/parts.h"

namespace KxNConsole {

namespace {

void wakeFollowers(const void* ring, std::uint32_t, KxNTamberWebApi::KxCWebSocket*) {
    const_cast<EventRing*>(static_cast<const EventRing*>(ring))->wake();
}

}  // namespace

void openEvents(const Call& call) {
    call.response.switchWebSocket(call.pool, "events", nullptr, nullptr, 0, wakeFollowers, &call.parts.events, 0);
    call.response.setSubprotocol("kx.events.v1");
}

void followEvents(const StreamCall& call) {
    const std::unique_ptr<KxNTamberWebApi::KxCWebSocket> socket(call.socket);
    EventRing& ring = call.parts.events;
    const std::int64_t* const after = call.number("after");
    EventRing::Position position = ring.begin(after != nullptr ? std::optional(*after) : std::nullopt);
    while (socket->isOpen()) {
        for (const std::string& message : ring.next(position, [&] { return !socket->isOpen(); })) {
            if (!socket->sendText(call.pool, message.data(), message.size(), -1, false)) {
                return;
            }
        }
    }
}

}  // namespace KxNConsole

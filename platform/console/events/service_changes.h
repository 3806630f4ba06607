// The events that the service's own operations are.
#pragma once

#include <optional>
#include <string_view>

#include "KxContainer.h"
#include "platform/console/events/event_ring.h"

namespace KxNConsole {

/// What a request has changed beside containers and images, of which Podman tells itself. None when that is nothing.
/// `name` is what the request named.
std::optional<Event> describeServiceChange(std::string_view operationId, int status, std::string_view name,
                                           KxNContainer::KxCContainer& container);

}  // namespace KxNConsole

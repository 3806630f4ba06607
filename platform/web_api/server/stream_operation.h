// The way from an upgrade request to the operation that works on the stream.
#pragma once

#include <memory>
#include <string_view>

#include "platform/net/loop_stream.h"
#include "platform/web_api/server/exchange.h"
#include "platform/web_api/server/server_core.h"

namespace KxNTamberWebApi {

/// Answers the upgrade request of `exchange` on `stream`, which then belongs to the WebSocket, and calls the handler's
/// operation on a thread of its own. `readAhead` has come behind the request. False, with nothing done, when the
/// request has no usable key.
bool openStream(ServerCore& core, Exchange& exchange, const std::shared_ptr<KxNNet::LoopStream>& stream,
                std::string_view readAhead);

}  // namespace KxNTamberWebApi

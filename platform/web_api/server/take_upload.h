// An upload's way through the server: what it waits for, and on which thread.
#pragma once

#include "platform/web_api/server/client_stream.h"
#include "platform/web_api/server/exchange.h"
#include "platform/web_api/server/server_core.h"

namespace KxNTamberWebApi {

/// Takes the upload that the head of `exchange` announces, on the event loop until its beginning is there and on an
/// upload thread from then on. Afterwards the answer stands, without a status when the client has gone. All three
/// outlive the coroutine.
KxNNet::Task<void> takeUpload(Exchange& exchange, ClientStream& client, ServerCore& core);

}  // namespace KxNTamberWebApi

// What the server answers to GET /openapi.json.
#pragma once

#include "platform/web_api/http/answer.h"
#include "platform/web_api/server/server_core.h"

namespace KxNTamberWebApi {

/// Describes the API of all handlers. The document is made when it is first asked for, which takes some milliseconds,
/// and then kept: most devices are never asked. 503 when a handler has been detached, 500 when its tables are wrong,
/// which is logged. Any thread.
Answer describeApi(ServerCore& core);

}  // namespace KxNTamberWebApi

// What the server answers to GET /openapi.json.
#pragma once

#include "platform/web_api/http/answer.h"
#include "platform/web_api/server/server_core.h"

namespace KxNTamberWebApi {

/// Describes the API of all handlers. The document is made for each request: it is seldom asked for, and keeping it
/// would cost every device several hundred KiB. 503 when a handler has been detached, 500 when its tables are wrong,
/// which is logged. Takes some milliseconds; any thread.
Answer describeApi(const ServerCore& core);

}  // namespace KxNTamberWebApi

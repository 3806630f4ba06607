// The one way in which the handler's request operation is called.
#pragma once

#include <memory>

#include "KxJsonFwd.h"
#include "platform/web_api/access/roles.h"
#include "platform/web_api/http/answer.h"
#include "platform/web_api/operation/registration.h"

class KxCErrorListPool;

namespace KxNTamberWebApi {

/// Calls handleRequest for `caller` and leaves in `state` an answer in any case: the operation's, 503 when the handler
/// is detached, or 500 when the operation failed without one. What it added to its error pool is logged.
void callOperation(const std::shared_ptr<KxCHandler::Registration>& registration,
                   const KxSTamberWebApiEndpoint* endpoint, const Caller& caller, const KxNJson::json* content,
                   const KxSTamberWebApiParameterValue* const* values, KxCResponse::State& state);

/// Logs the errors of a pool that belongs to one call.
void logErrors(KxCErrorListPool& pool, const char* operationId);

/// The answer that stands for a handler that has been detached.
Answer makeDetachedRefusal();

}  // namespace KxNTamberWebApi

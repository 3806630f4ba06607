#include "platform/web_api/operation/operation.h"

#include <exception>

#include "KxErrorManager.h"
#include "KxLog.h"

namespace KxNTamberWebApi {

namespace {

bool tryOperation(KxCHandler& handler, const KxSTamberWebApiEndpoint* endpoint, const Caller& caller,
                  const KxNJson::json* content, const KxSTamberWebApiParameterValue* const* values,
                  KxCResponse::State& state) {
    KxCErrorListPool pool;
    KxCRequest request(endpoint, caller.role, caller.identity.c_str());
    const KxSBody body{content};
    KxCResponse response(state);
    try {
        handler.handleRequest(pool, &request, &body, values, &response);
    } catch (const std::exception& failure) {
        KxCRTE_LOG(4, "Korvex Container Service: Web API: operation %s threw: %s", endpoint->operationId,
                   failure.what());
        return false;
    } catch (...) {
        KxCRTE_LOG(4, "Korvex Container Service: Web API: operation %s threw", endpoint->operationId);
        return false;
    }
    logErrors(pool, endpoint->operationId);
    return !state.isUntouched();
}

}  // namespace

void logErrors(KxCErrorListPool& pool, const char* operationId) {
    if (pool.getErrorCount() == 0) {
        return;
    }
    for (const KxCErrorListPool::KxSError& error : pool.takeErrors()) {
        KxCRTE_LOG(4, "Korvex Container Service: Web API: operation %s: %s", operationId, error.detail.c_str());
    }
}

Answer makeDetachedRefusal() {
    return makeRefusal(503, "The service is going down");
}

void callOperation(const std::shared_ptr<KxCHandler::Registration>& registration,
                   const KxSTamberWebApiEndpoint* endpoint, const Caller& caller, const KxNJson::json* content,
                   const KxSTamberWebApiParameterValue* const* values, KxCResponse::State& state) {
    const HandlerUse use(registration);
    if (use.handler() == nullptr) {
        state.answer = makeDetachedRefusal();
        return;
    }
    if (!tryOperation(*use.handler(), endpoint, caller, content, values, state)) {
        state.switchesToStream = false;
        state.answer = makeRefusal(500, "Internal error");
    }
}

}  // namespace KxNTamberWebApi

#include "platform/console/console.h"

#include "platform/console/call.h"
#include "platform/console/endpoints.h"
#include "platform/console/schemas.h"

namespace KxNConsole {

Console::Console(KxNContainer::KxCContainer& runtime) : container(runtime) {
    setSchemas(&SCHEMAS);
}

const KxSTamberWebApiEndpoint* const* Console::getEndpoints() {
    return endpoints();
}

bool Console::handleRequest(KxCErrorListPool& pool, KxNTamberWebApi::KxCRequest* request,
                            const KxNTamberWebApi::KxSBody*, const KxSTamberWebApiParameterValue* const* values,
                            KxNTamberWebApi::KxCResponse* response) {
    findOperation(request->getEndpoint())({pool, *request, values, *response, container});
    return true;
}

bool Console::handleWebSocket(KxCErrorListPool&, const KxSTamberWebApiEndpoint*,
                              const KxSTamberWebApiParameterValue* const*, KxNTamberWebApi::KxCWebSocket* socket) {
    delete socket;
    return true;
}

}  // namespace KxNConsole

#include "platform/console/console.h"

#include <utility>

#include "platform/console/call.h"
#include "platform/console/endpoints.h"
#include "platform/console/events/service_changes.h"
#include "platform/console/schemas.h"

namespace KxNConsole {

Console::Console(KxNContainer::KxCContainer& runtime) : parts(runtime) {
    setSchemas(&SCHEMAS);
    observeTable(endpoints());
    runtime.SetChangeSink(this);
}

Console::~Console() {
    parts.container.SetChangeSink(nullptr);
    detach();
}

const KxSTamberWebApiEndpoint* const* Console::getEndpoints() {
    return endpoints();
}

bool Console::handleRequest(KxCErrorListPool& pool, KxNTamberWebApi::KxCRequest* request,
                            const KxNTamberWebApi::KxSBody*, const KxSTamberWebApiParameterValue* const* values,
                            KxNTamberWebApi::KxCResponse* response) {
    callOperation(*request->getEndpoint(), {{values}, pool, *request, *response, parts.container, parts});
    return true;
}

bool Console::handleWebSocket(KxCErrorListPool& pool, const KxSTamberWebApiEndpoint* endpoint,
                              const KxSTamberWebApiParameterValue* const* values,
                              KxNTamberWebApi::KxCWebSocket* socket) {
    callStream(*endpoint, {{values}, pool, socket, parts.container, parts});
    return true;
}

void Console::onAnswered(const KxNTamberWebApi::AnsweredRequest& request) {
    parts.requests.count(request);
    if (request.endpoint == nullptr || request.endpoint->method == KxNTamberWebApi::METHOD_GET) {
        return;
    }
    if (auto event =
            describeServiceChange(request.endpoint->operationId, request.status, request.name, parts.container)) {
        parts.events.add(std::move(*event));
    }
}

void Console::onStreamEnded(const KxSTamberWebApiEndpoint& endpoint) {
    parts.requests.countStreamEnd(endpoint);
}

void Console::takeChange(const KxNContainer::KxSChange& change) {
    parts.events.add({change.kind, change.action, change.name, change.utcMilliseconds});
}

void Console::takeRelist() {
    parts.events.relist();
}

}  // namespace KxNConsole

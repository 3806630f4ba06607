#include "platform/web_api/server/api_description.h"

#include <exception>
#include <list>
#include <mutex>
#include <vector>

#include "KxLog.h"
#include "platform/web_api/description/openapi.h"
#include "platform/web_api/operation/operation.h"

namespace KxNTamberWebApi {

Answer describeApi(ServerCore& core) {
    std::list<HandlerUse> uses;  // the schemas live as long as their handlers
    std::vector<DescribedTable> tables;
    for (const auto& registration : core.registrations) {
        KxCHandler* const handler = uses.emplace_back(registration).handler();
        if (handler == nullptr) {
            return makeDetachedRefusal();
        }
        tables.push_back({handler->getEndpoints(), handler->getSchemas()});
    }
    KxCHandler& first = *uses.front().handler();
    const ApiTexts texts{first.getServiceTitle(), first.getDescription(), first.getVersion(), first.getBasePath(true)};
    try {
        const std::lock_guard lock(core.describing);
        if (core.description.empty()) {
            core.description = makeOpenApiDocument(texts, tables, core.access->needsToken());
        }
        return {200, core.description, "application/json", {}};
    } catch (const std::exception& failure) {
        KxCRTE_LOG(4, "Korvex Container Service: Web API cannot describe itself: %s", failure.what());
        return makeRefusal(500, "Internal error");
    }
}

}  // namespace KxNTamberWebApi

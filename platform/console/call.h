// One request of the console's, as its operations see it.
#pragma once

#include <string>

#include "KxContainer.h"
#include "KxJsonFwd.h"
#include "KxTamberWebApi/KxHandler.h"

namespace KxNConsole {

struct Call {
    using Handler = KxNTamberWebApi::KxCHandler;

    KxCErrorListPool& pool;
    const KxNTamberWebApi::KxCRequest& request;
    const KxSTamberWebApiParameterValue* const* values;
    KxNTamberWebApi::KxCResponse& response;
    KxNContainer::KxCContainer& container;

    /// The path parameter "name"; never null where the route has it.
    const char* name() const { return Handler::getStringParam(values, "name", KxNTamberWebApi::LOCATION_PATH); }
    /// Null when the request does not hold the parameter.
    const char* text(const char* key) const {
        return Handler::getStringParam(values, key, KxNTamberWebApi::LOCATION_QUERY);
    }
    const std::int64_t* number(const char* key) const {
        return Handler::getInt64ParamPtr(values, key, KxNTamberWebApi::LOCATION_QUERY);
    }

    void answer(int status, const KxNJson::json& document) const { response.setJsonBody(pool, status, &document); }

    // The refusals, each with the one name of its status.
    void badRequest(const std::string& message) const { refuse(400, "BadRequest", message); }
    void notFound(const std::string& message) const { refuse(404, "NotFound", message); }
    void conflict(const std::string& message) const { refuse(409, "Conflict", message); }
    void internalError(const std::string& message) const { refuse(500, "InternalServerError", message); }

private:
    void refuse(int status, const char* title, const std::string& message) const {
        response.setError(pool, status, title, message.c_str(), 1);
    }
};

}  // namespace KxNConsole

// A request of the console's, as its operations see it.
#pragma once

#include <string>

#include "KxContainer.h"
#include "KxJsonFwd.h"
#include "KxTamberWebApi/KxHandler.h"

namespace KxNConsole {

struct Parts;

/// The parameters of a request.
struct Parameters {
    using Handler = KxNTamberWebApi::KxCHandler;

    const KxSTamberWebApiParameterValue* const* values;

    /// The path parameter "name"; never null where the route has it.
    const char* name() const { return Handler::getStringParam(values, "name", KxNTamberWebApi::LOCATION_PATH); }
    /// Null when the request does not hold the parameter.
    const char* text(const char* key) const {
        return Handler::getStringParam(values, key, KxNTamberWebApi::LOCATION_QUERY);
    }
    const std::int64_t* number(const char* key) const {
        return Handler::getInt64ParamPtr(values, key, KxNTamberWebApi::LOCATION_QUERY);
    }
};

/// A request that is to be answered.
struct Call : Parameters {
    KxCErrorListPool& pool;
    const KxNTamberWebApi::KxCRequest& request;
    KxNTamberWebApi::KxCResponse& response;
    KxNContainer::KxCContainer& container;
    Parts& parts;

    /// Whether the container service is started, as what follows needs. False when the answer stands.
    bool isStarted() const;

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

/// A WebSocket that is to be worked on.
struct StreamCall : Parameters {
    KxCErrorListPool& pool;
    KxNTamberWebApi::KxCWebSocket* socket;  ///< the callee's, who deletes it
    KxNContainer::KxCContainer& container;
    Parts& parts;
};

}  // namespace KxNConsole

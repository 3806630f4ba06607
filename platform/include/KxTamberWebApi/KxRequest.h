// A request as a handler sees it.
#pragma once

#include "KxJsonFwd.h"
#include "KxTamberWebApi/KxEndpoint.h"

namespace KxNTamberWebApi {

/// The request of one operation. Belongs to the library and is valid during the call.
class KxCRequest {
public:
    explicit KxCRequest(const KxSTamberWebApiEndpoint* routedTo) : endpoint(routedTo) {}

    /// The endpoint that the request was routed to.
    const KxSTamberWebApiEndpoint* getEndpoint() const { return endpoint; }

private:
    const KxSTamberWebApiEndpoint* endpoint;
};

/// The parsed body of a request. Belongs to the library and is valid during the call.
struct KxSBody {
    /// For a JSON endpoint the parsed text; for the finish of an upload {"fileName", "size"} of what was received.
    /// Null when the request had no body.
    const KxNJson::json* content;
};

}  // namespace KxNTamberWebApi

// A request as a handler sees it.
#pragma once

#include <cstdint>

#include "KxJsonFwd.h"
#include "KxTamberWebApi/KxEndpoint.h"

namespace KxNTamberWebApi {

/// What the sender of a request may do; each role may also do all that the ones before it may.
enum KxERole : std::uint32_t {
    ROLE_NONE = 0,           ///< nothing was shown that gives a role
    ROLE_VIEWER = 1,         ///< reads
    ROLE_OPERATOR = 2,       ///< starts, stops and restarts what is there
    ROLE_ADMINISTRATOR = 3,  ///< everything
};

/// The request of one operation. Belongs to the library and is valid during the call.
class KxCRequest {
public:
    explicit KxCRequest(const KxSTamberWebApiEndpoint* routedTo, KxERole senderRole = ROLE_NONE,
                        const char* senderIdentity = "none")
        : endpoint(routedTo), role(senderRole), identity(senderIdentity) {}

    /// The endpoint that the request was routed to.
    const KxSTamberWebApiEndpoint* getEndpoint() const { return endpoint; }

    /// The role of who sends the request. It suffices for the operation, or the operation would not have been called.
    KxERole getRole() const { return role; }

    /// Who sends the request: "token" with the administrator's token, the name of an identity, the subject of a client
    /// certificate that no identity names, or "none". Never null.
    const char* getIdentity() const { return identity; }

private:
    const KxSTamberWebApiEndpoint* endpoint;
    KxERole role;
    const char* identity;
};

/// The parsed body of a request. Belongs to the library and is valid during the call.
struct KxSBody {
    /// For a JSON endpoint the parsed text; for the finish of an upload {"fileName", "size"} of what was received.
    /// Null when the request had no body.
    const KxNJson::json* content;
};

}  // namespace KxNTamberWebApi

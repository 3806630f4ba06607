// One request and its answer, and what the request's head asks for.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "platform/web_api/audit/audit_record.h"
#include "platform/web_api/http/answer.h"
#include "platform/web_api/http/request_head.h"
#include "platform/web_api/routing/router.h"
#include "platform/web_api/server/request_body.h"
#include "platform/web_api/server/server_core.h"

namespace KxNTamberWebApi {

/// Lives from the end of the request's head to the end of its answer.
struct Exchange {
    RequestParser parser;
    std::optional<RequestBody> body;  ///< once the head has passed the checks
    RouteMatch match;
    Caller caller;
    std::string uploadedName;
    std::uint64_t uploadedBytes = 0;
    KxCResponse::State response;
    bool keepsConnection = true;
    bool mayComeIn = false;
    std::chrono::steady_clock::time_point begunAt = std::chrono::steady_clock::now();

    const RequestHead& request() const { return parser.get(); }
    void refuse(int status, std::string_view detail) { response.answer = makeRefusal(status, detail); }
};

/// What is to be done with a request whose head was looked at.
enum class Next {
    answer,        ///< it stands already
    runOperation,  ///< without a body
    readJson,
    takeUpload,
};

/// The checks of a request in their order: its form, who sends it and whether the role suffices, its route, the kind of
/// its body. Waits for nothing and calls no operation.
Next examine(Exchange& exchange, std::string_view head, RequestBuffer& readAhead, KxNNet::Stream& stream,
             const AccessRules::Sender& sender, ServerCore& core);

/// Refuses a body of another type than JSON. A chunked body of no type is none when it turns out to be empty, so that
/// it is asked once the first byte is there.
bool refusesType(Exchange& exchange);
/// Tells the server's observer, if there is one, how the request was answered: 101 when it became a stream.
void tellObserver(const Exchange& exchange, int status, const ServerCore& core);

/// What is told of an answered request.
enum class AuditKind { nothing, change, refusal };
AuditKind findAuditKind(const Exchange& exchange);
AuditRecord makeAuditRecord(const Exchange& exchange, const std::string& peer);

}  // namespace KxNTamberWebApi

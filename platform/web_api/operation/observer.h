// What a server tells of its work.
#pragma once

#include <chrono>
#include <cstdint>
#include <string_view>

#include "KxTamberWebApi/KxEndpoint.h"

namespace KxNTamberWebApi {

/// A request whose answer stands.
struct AnsweredRequest {
    const KxSTamberWebApiEndpoint* endpoint;  ///< null when the request led to none
    std::string_view name;                    ///< its path parameter "name", or that of the file that it uploaded
    int status;                               ///< 101 for one that became a stream; 0 when the client has gone
    std::chrono::nanoseconds duration;        ///< from the end of its head
    std::uint64_t uploadedBytes;
};

/// Is told of all answers and streams, on whatever thread has them, before the client gets them. Must not wait.
class ServerObserver {
public:
    virtual ~ServerObserver() = default;
    virtual void onAnswered(const AnsweredRequest& request) = 0;
    /// The stream of an answer with status 101 has ended.
    virtual void onStreamEnded(const KxSTamberWebApiEndpoint& endpoint) = 0;
};

}  // namespace KxNTamberWebApi

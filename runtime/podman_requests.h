// Every request that the service makes of Podman.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "KxContainer.h"

namespace KxNPodman {

/// One kind of request. The path of a request is `pathBegin`, the name of the thing it is about, `pathEnd`, and then
/// the query, put together as they are.
struct Request {
    const char* pathBegin;
    const char* pathEnd;
    KxCCurlHandler::MethodType method;
    const char* header;  ///< the one header line
    bool isLongRunning;
};

using Method = KxCCurlHandler::MethodType;

// Start and stop announce a JSON body although they send none.
inline constexpr Request LIST_CONTAINERS{"/containers/json", "", Method::GET, "Accept: application/json", false};
inline constexpr Request DELETE_CONTAINER{"/containers/", "", Method::DELETE, "Accept: application/json", false};
inline constexpr Request START_CONTAINER{"/containers/", "/start", Method::POST, "Content-Type: application/json",
                                         false};
inline constexpr Request STOP_CONTAINER{"/containers/", "/stop", Method::POST, "Content-Type: application/json", false};
inline constexpr Request INSPECT_CONTAINER{"/containers/", "/json", Method::GET, "Accept: application/json", false};
inline constexpr Request FOLLOW_LOGS{"/containers/", "/logs", Method::GET, "Accept: application/octet-stream", false};
inline constexpr Request LIST_IMAGES{"/images/json", "", Method::GET, "Accept: application/json", false};
inline constexpr Request DELETE_IMAGE{"/images/", "", Method::DELETE, "Accept: application/json", true};
/// The body is the path of the archive file.
inline constexpr Request LOAD_IMAGE{"/images/load", "", Method::POST, "Content-Type: application/x-tar", true};

/// Sends `request` about `name` with `query` (empty, or from its "?" on) and waits for the answer.
KxNContainer::PodmanReply execute(KxNContainer::KxCContainer& container, const Request& request,
                                  std::string_view name = {}, std::string_view query = {},
                                  const std::string& body = {});

/// Sends `request` and passes its answer on to `socket` until that ends. The reply's body means nothing.
KxNContainer::PodmanReply stream(KxNContainer::KxCContainer& container, const Request& request, std::string_view name,
                                 std::string_view query, KxCErrorListPool& pool,
                                 std::shared_ptr<KxNContainer::KxCContainer::KxSLogStreamSession> session,
                                 KxNTamberWebApi::KxCWebSocket* socket);

/// True for 200 to 299.
inline bool isSuccess(const KxNContainer::PodmanReply& reply) {
    return static_cast<std::uint32_t>(reply.status) - 200U <= 99U;
}

/// The body for a line of the log, which a null character would end: in its place stands what the log writes for one.
std::string loggableBody(const KxNContainer::PodmanReply& reply);

}  // namespace KxNPodman

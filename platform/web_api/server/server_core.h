// What all connections of a server share.
#pragma once

#include <atomic>
#include <boost/asio/io_context.hpp>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/common/storage_room.h"
#include "platform/net/cancellation.h"
#include "platform/net/tls_files.h"
#include "platform/web_api/access/access_rules.h"
#include "platform/web_api/audit/audit_trail.h"
#include "platform/web_api/connection/connection_registry.h"
#include "platform/web_api/connection/limits.h"
#include "platform/web_api/operation/observer.h"
#include "platform/web_api/operation/registration.h"
#include "platform/web_api/routing/router.h"
#include "platform/web_api/routing/static_files.h"
#include "platform/web_api/threads/fair_shares.h"
#include "platform/web_api/threads/request_threads.h"
#include "platform/web_api/threads/stream_threads.h"
#include "platform/web_api/threads/upload_threads.h"

namespace KxNTamberWebApi {

/// What the server knows of the uploads to one endpoint.
struct UploadKind {
    bool lasts = true;      ///< whether its end may take minutes, as an image takes to be loaded
    std::string directory;  ///< where the handler stores the file; empty when that is not known
    std::string fileName;   ///< under which name; empty for the client's

    /// Null where that is not known.
    std::optional<std::uint64_t> roomForFile() const {
        return directory.empty() ? std::nullopt : KxNCommon::roomFor(directory);
    }
};

/// What the operator configures, and where the TLS files are.
struct ServerSettings {
    std::string address = "127.0.0.1";
    std::uint16_t port = 8460;
    bool needsToken = true;
    std::string tokenFile;
    std::string identitiesFile;
    std::string auditFile;  ///< empty for none
    std::size_t maxConnections = 1024;
    std::uint64_t maxUploadBytes = 0;
    std::string certificatesDirectory;
    std::map<std::string, UploadKind, std::less<>> uploadKinds;  ///< by operationId
    std::size_t requestThreads = 16;

    const UploadKind& uploadKind(const std::string& operationId) const {
        static const UploadKind unknown;
        const auto found = uploadKinds.find(operationId);
        return found != uploadKinds.end() ? found->second : unknown;
    }
};

/// An endpoint of one of the handlers.
struct ServedEndpoint {
    std::shared_ptr<KxCHandler::Registration> registration;
    std::atomic<bool> tendsToBlock{false};  ///< its operation blocked lately
};

/// Its members are destroyed in the order that their users need: the coroutines of the connections with `context`.
struct ServerCore {
    ServerCore(ServerSettings serverSettings, const Limits& serverLimits)
        : settings(std::move(serverSettings)),
          limits(serverLimits),
          requests(context, settings.requestThreads, limits.requestThreads),
          uploads(limits.uploadThreads, limits.uploadWait),
          uploadMemory(limits.uploadBeginnings, limits.uploadWait) {}

    const ServerSettings settings;
    const Limits limits;

    ConnectionRegistry connections;  // outlives the connections that the event loop still holds when it goes
    boost::asio::io_context context;
    RequestThreads requests;
    UploadThreads uploads;
    FairShares uploadMemory;  ///< bytes, for the beginnings of files
    StreamThreads streams;
    std::atomic<bool> isStopping{false};
    KxNNet::Cancellation graceIsOver;  ///< ends what threads of uploads wait for

    // Set before the first connection.
    std::unique_ptr<KxNNet::TlsFiles> tls;
    std::optional<AccessRules> access;
    std::optional<AuditTrail> audit;
    std::optional<Router> router;
    std::map<const KxSTamberWebApiEndpoint*, ServedEndpoint> served;
    std::vector<std::shared_ptr<KxCHandler::Registration>> registrations;  ///< of the handlers, in their order
    std::optional<StaticFiles> files;
    ServerObserver* observer = nullptr;

    std::mutex describing;    ///< for `description`
    std::string description;  ///< of the API, once somebody has asked for it
};

}  // namespace KxNTamberWebApi

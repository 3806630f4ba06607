// The console: what this platform offers to an operator beside the service's own endpoints.
#pragma once

#include "KxContainer.h"
#include "KxTamberWebApi/KxHandler.h"
#include "platform/console/parts.h"
#include "platform/web_api/operation/observer.h"

namespace KxNConsole {

/// A handler of its own beside the service's, under the same base path.
class Console final : public KxNTamberWebApi::KxCHandler,
                      public KxNTamberWebApi::ServerObserver,
                      private KxNContainer::KxCChangeSink {
public:
    explicit Console(KxNContainer::KxCContainer& container);
    ~Console() override;

    /// Counts the requests for the endpoints of another handler, too. Before the server starts.
    void observeTable(const KxSTamberWebApiEndpoint* const* table) { parts.requests.addTable(table); }
    void onAnswered(const KxNTamberWebApi::AnsweredRequest& request) override;
    void onStreamEnded(const KxSTamberWebApiEndpoint& endpoint) override;

    const char* getServiceTitle() override { return "Korvex Container Service Console"; }
    const char* getDescription() override { return "What an operator of the container service looks at."; }
    const char* getVersion() override { return "1.0"; }
    const char* getApiName() override { return "cre"; }
    const char* getBasePath(bool resolved) override { return resolved ? "/api/cre/v1.0" : "/api/cre/{version}"; }
    const char* getServiceName() override { return "CreConsole"; }
    const KxSTamberWebApiEndpoint* const* getEndpoints() override;

    bool handleRequest(KxCErrorListPool& pool, KxNTamberWebApi::KxCRequest* request,
                       const KxNTamberWebApi::KxSBody* body, const KxSTamberWebApiParameterValue* const* values,
                       KxNTamberWebApi::KxCResponse* response) override;
    bool handleWebSocket(KxCErrorListPool& pool, const KxSTamberWebApiEndpoint* endpoint,
                         const KxSTamberWebApiParameterValue* const* values,
                         KxNTamberWebApi::KxCWebSocket* socket) override;
    /// The console takes no uploads.
    std::uint32_t handleUploadChunk(const KxSTamberWebApiEndpoint*, const char*, const char*, const char*, const char*,
                                    const void*, std::uint64_t, std::uint32_t) override {
        return 0xFFFFFFFF;
    }

private:
    void takeChange(const KxNContainer::KxSChange& change) override;
    void takeRelist() override;

    Parts parts;
};

}  // namespace KxNConsole

// Between the web API server library and the operations: describes the API, takes the parameters out of each request
// and calls the one virtual operation of its endpoint.
#pragma once

#include <cstdint>

#include "KxErrorManager.h"
#include "KxJsonFwd.h"
#include "KxTamberWebApi/KxHandler.h"

/// Every operation has a default that answers that it is not implemented; a handler overrides what it offers.
///
/// The operations take the request's error pool, the request, their arguments and the response, which they answer
/// exactly once. A text, number or flag that the request does not hold is null, and so is the body of a request without
/// one. All of them are called on threads of the web API server library, any number at once.
///
/// The order of the virtual operations is fixed: programs of the platform call them by their position.
class KxCCreTamberWebApiHandler : public KxNTamberWebApi::KxCHandler {
public:
    using KxCRequest = KxNTamberWebApi::KxCRequest;
    using KxCResponse = KxNTamberWebApi::KxCResponse;
    using KxCWebSocket = KxNTamberWebApi::KxCWebSocket;

    KxCCreTamberWebApiHandler();
    ~KxCCreTamberWebApiHandler() override;

    const char* getServiceTitle() override;
    const char* getDescription() override;
    const char* getVersion() override;
    const char* getApiName() override;
    const char* getBasePath(bool resolved) override;
    const char* getServiceName() override;
    const KxSTamberWebApiEndpoint* const* getEndpoints() override;

    bool handleRequest(KxCErrorListPool& pool, KxCRequest* request, const KxNTamberWebApi::KxSBody* body,
                       const KxSTamberWebApiParameterValue* const* values, KxCResponse* response) override;
    bool handleWebSocket(KxCErrorListPool& pool, const KxSTamberWebApiEndpoint* endpoint,
                         const KxSTamberWebApiParameterValue* const* values, KxCWebSocket* socket) override;
    std::uint32_t handleUploadChunk(const KxSTamberWebApiEndpoint* endpoint, const char* requestTarget,
                                    const char* contentType, const char* fileName, const char* fieldName,
                                    const void* data, std::uint64_t offset, std::uint32_t size) override;

    // The operations, in the fixed order. `...Start` takes one chunk of an upload (see KxCHandler::handleUploadChunk)
    // and returns 0 when it was taken, -1 when the upload is refused; the operation of the same name without `Start`
    // finishes the upload and answers the request.

    virtual void ListContainers(KxCErrorListPool& pool, const KxCRequest& request, const bool* all,
                                KxCResponse& response);
    virtual void DeleteContainer(KxCErrorListPool& pool, const KxCRequest& request, const char* name, const bool* force,
                                 KxCResponse& response);
    virtual void StartContainer(KxCErrorListPool& pool, const KxCRequest& request, const char* name,
                                KxCResponse& response);
    virtual void StopContainer(KxCErrorListPool& pool, const KxCRequest& request, const char* name,
                               const std::int64_t* timeout, KxCResponse& response);
    virtual void GetContainerLogs(KxCErrorListPool& pool, const KxCRequest& request, const char* name,
                                  const bool* stdoutWanted, const bool* stderrWanted, const std::int64_t* since,
                                  const std::int64_t* until, const bool* timestamps, const char* tail,
                                  KxCResponse& response);
    /// The second phase of GetContainerLogs: works on the established WebSocket, which it owns, until the log ends.
    virtual void GetContainerLogsSetWebSocket(KxCErrorListPool& pool, const char* name, const bool* stdoutWanted,
                                              const bool* stderrWanted, const std::int64_t* since,
                                              const std::int64_t* until, const bool* timestamps, const char* tail,
                                              KxCWebSocket* socket);
    virtual void ListImages(KxCErrorListPool& pool, const KxCRequest& request, KxCResponse& response);
    virtual void UploadImage(KxCErrorListPool& pool, const KxCRequest& request, const KxNJson::json* body,
                             KxCResponse& response);
    virtual std::int32_t UploadImageStart(const char* fileName, const char* fieldName, const void* data,
                                          std::uint64_t offset, std::uint32_t size);
    virtual void RemoveImage(KxCErrorListPool& pool, const KxCRequest& request, const char* name,
                             KxCResponse& response);
    virtual void GetSettings(KxCErrorListPool& pool, const KxCRequest& request, KxCResponse& response);
    virtual void PatchSettings(KxCErrorListPool& pool, const KxCRequest& request, const KxNJson::json* body,
                               KxCResponse& response);
    virtual void GetEnable(KxCErrorListPool& pool, const KxCRequest& request, KxCResponse& response);
    virtual void PatchEnable(KxCErrorListPool& pool, const KxCRequest& request, const KxNJson::json* body,
                             KxCResponse& response);
    virtual void ListPlugins(KxCErrorListPool& pool, const KxCRequest& request, KxCResponse& response);
    virtual void UploadPlugin(KxCErrorListPool& pool, const KxCRequest& request, const KxNJson::json* body,
                              KxCResponse& response);
    virtual std::int32_t UploadPluginStart(const char* fileName, const char* fieldName, const void* data,
                                           std::uint64_t offset, std::uint32_t size);
    virtual void DeletePlugin(KxCErrorListPool& pool, const KxCRequest& request, const char* name,
                              KxCResponse& response);
    virtual void ActivatePlugin(KxCErrorListPool& pool, const KxCRequest& request, const KxNJson::json* body,
                                const char* name, const char* pluginVersion, KxCResponse& response);
    virtual void ComposeStart(KxCErrorListPool& pool, const KxCRequest& request, const char* name,
                              KxCResponse& response);
    virtual void ComposeStop(KxCErrorListPool& pool, const KxCRequest& request, const char* name,
                             KxCResponse& response);
    virtual void ComposeCreate(KxCErrorListPool& pool, const KxCRequest& request, const char* name,
                               KxCResponse& response);
    virtual void ComposeRemove(KxCErrorListPool& pool, const KxCRequest& request, const char* name,
                               KxCResponse& response);
    virtual void ListComposeFiles(KxCErrorListPool& pool, const KxCRequest& request, KxCResponse& response);
    virtual void UploadComposeFile(KxCErrorListPool& pool, const KxCRequest& request, const KxNJson::json* body,
                                   KxCResponse& response);
    virtual std::int32_t UploadComposeFileStart(const char* fileName, const char* fieldName, const void* data,
                                                std::uint64_t offset, std::uint32_t size);
    virtual void DeleteComposeFile(KxCErrorListPool& pool, const KxCRequest& request, const char* name,
                                   KxCResponse& response);
    virtual void ListCerts(KxCErrorListPool& pool, const KxCRequest& request, KxCResponse& response);
    virtual void UploadCertificate(KxCErrorListPool& pool, const KxCRequest& request, const KxNJson::json* body,
                                   KxCResponse& response);
    virtual std::int32_t UploadCertificateStart(const char* fileName, const char* fieldName, const void* data,
                                                std::uint64_t offset, std::uint32_t size);
    virtual void DeleteCertificate(KxCErrorListPool& pool, const KxCRequest& request, KxCResponse& response);
    virtual void UploadPrivateKey(KxCErrorListPool& pool, const KxCRequest& request, const KxNJson::json* body,
                                  KxCResponse& response);
    virtual std::int32_t UploadPrivateKeyStart(const char* fileName, const char* fieldName, const void* data,
                                               std::uint64_t offset, std::uint32_t size);
    virtual void DeletePrivateKey(KxCErrorListPool& pool, const KxCRequest& request, KxCResponse& response);
    virtual void UploadCaCertificate(KxCErrorListPool& pool, const KxCRequest& request, const KxNJson::json* body,
                                     KxCResponse& response);
    virtual std::int32_t UploadCaCertificateStart(const char* fileName, const char* fieldName, const void* data,
                                                  std::uint64_t offset, std::uint32_t size);
    virtual void DeleteCaCertificate(KxCErrorListPool& pool, const KxCRequest& request, KxCResponse& response);
};

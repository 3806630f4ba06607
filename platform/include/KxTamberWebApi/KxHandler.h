// The interface between the web API server library and the program that answers requests.
#pragma once

#include <cstdint>
#include <memory>

#include "KxTamberWebApi/KxEndpoint.h"
#include "KxTamberWebApi/KxRequest.h"
#include "KxTamberWebApi/KxResponse.h"
#include "KxTamberWebApi/KxSchema.h"
#include "KxTamberWebApi/KxWebSocket.h"

class KxCErrorListPool;

namespace KxNTamberWebApi {

class KxCHandler {
public:
    struct Registration;  ///< the library's own record of a registered handler

    KxCHandler();
    virtual ~KxCHandler();
    KxCHandler(const KxCHandler&) = delete;
    KxCHandler& operator=(const KxCHandler&) = delete;

    // What the API is. The texts are constants.
    virtual const char* getServiceTitle() = 0;
    virtual const char* getDescription() = 0;
    virtual const char* getVersion() = 0;
    virtual const char* getApiName() = 0;
    /// The path below which all routes lie: the served one when `resolved`, else the one with its placeholder.
    virtual const char* getBasePath(bool resolved) = 0;
    virtual const char* getServiceName() = 0;
    /// The endpoint records, ended by a null pointer.
    virtual const KxSTamberWebApiEndpoint* const* getEndpoints() = 0;

    // Work. All three are called from threads of the library, any number at once, and may block.

    /// Answers one request through `response`. `values` ends with a null pointer. False when the pool received an
    /// error, or when the request is nothing the handler knows, in which case `response` may be untouched.
    virtual bool handleRequest(KxCErrorListPool& pool, KxCRequest* request, const KxSBody* body,
                               const KxSTamberWebApiParameterValue* const* values, KxCResponse* response) = 0;

    /// Works on an established WebSocket until it is done with it; owns `socket` from here on.
    /// Called on a thread that belongs to this one stream.
    virtual bool handleWebSocket(KxCErrorListPool& pool, const KxSTamberWebApiEndpoint* endpoint,
                                 const KxSTamberWebApiParameterValue* const* values, KxCWebSocket* socket) = 0;

    /// Takes one chunk of an upload: `size` bytes at `data`, which begin at byte `offset` of the file. 0 when it was
    /// taken, 0xFFFFFFFF when the upload is refused. `requestTarget` and `contentType` are those of the request,
    /// `fileName` the last path component of the client's name for the file (null or empty when there is none),
    /// `fieldName` the form field that held it (empty for a raw body).
    /// All chunks of one upload and the handleRequest that finishes it are called on one thread, which carries no other
    /// upload meanwhile.
    virtual std::uint32_t handleUploadChunk(const KxSTamberWebApiEndpoint* endpoint, const char* requestTarget,
                                            const char* contentType, const char* fileName, const char* fieldName,
                                            const void* data, std::uint64_t offset, std::uint32_t size) = 0;

    // Access to parameter values, for handlers. Null when the request does not hold the parameter, or holds it
    // with another type. What is returned lives as long as `values`.
    static const char* getStringParam(const KxSTamberWebApiParameterValue* const* values, const char* name,
                                      std::uint32_t location);
    static const bool* getBooleanParamPtr(const KxSTamberWebApiParameterValue* const* values, const char* name,
                                          std::uint32_t location);
    static const std::int64_t* getInt64ParamPtr(const KxSTamberWebApiParameterValue* const* values, const char* name,
                                                std::uint32_t location);

    /// Reports to `pool` that an operation has no implementation.
    static void setErrorImplementationMissing(KxCErrorListPool& pool, const char* text);

    /// Lets a server that still runs forget this handler: when it returns, no operation of the handler is running and
    /// none will be called; requests are then answered 503. The destructor of the most derived class calls it first,
    /// while the operations still exist. Without a server it does nothing. Not to be called from an operation.
    void detach();

    /// Describes the bodies of the operations for the OpenAPI document; to be called before the handler is registered.
    /// `apiSchemas` is constant data that lives as long as the handler. Without it the document describes no bodies.
    void setSchemas(const KxSApiSchemas* apiSchemas) { schemas = apiSchemas; }
    const KxSApiSchemas* getSchemas() const { return schemas; }

    /// For the library: where `KxCServer::registerHandler` keeps its record.
    std::shared_ptr<Registration> registration;

private:
    const KxSApiSchemas* schemas = nullptr;
};

}  // namespace KxNTamberWebApi

// What an operation answers that a handler does not override.
#include "api/KxCCreTamberWebApiHandler.h"
#include "api/responses.h"

using KxNCre::answerNotImplemented;

namespace {

constexpr std::int32_t REFUSED = -1;

}  // namespace

void KxCCreTamberWebApiHandler::ListContainers(KxCErrorListPool& pool, const KxCRequest&, const bool*,
                                               KxCResponse& response) {
    answerNotImplemented(pool, response);
}

void KxCCreTamberWebApiHandler::DeleteContainer(KxCErrorListPool& pool, const KxCRequest&, const char*, const bool*,
                                                KxCResponse& response) {
    answerNotImplemented(pool, response);
}

void KxCCreTamberWebApiHandler::StartContainer(KxCErrorListPool& pool, const KxCRequest&, const char*,
                                               KxCResponse& response) {
    answerNotImplemented(pool, response);
}

void KxCCreTamberWebApiHandler::StopContainer(KxCErrorListPool& pool, const KxCRequest&, const char*,
                                              const std::int64_t*, KxCResponse& response) {
    answerNotImplemented(pool, response);
}

void KxCCreTamberWebApiHandler::GetContainerLogs(KxCErrorListPool& pool, const KxCRequest&, const char*, const bool*,
                                                 const bool*, const std::int64_t*, const std::int64_t*, const bool*,
                                                 const char*, KxCResponse& response) {
    answerNotImplemented(pool, response);
}

void KxCCreTamberWebApiHandler::GetContainerLogsSetWebSocket(KxCErrorListPool& pool, const char*, const bool*,
                                                             const bool*, const std::int64_t*, const std::int64_t*,
                                                             const bool*, const char*, KxCWebSocket*) {
    setErrorImplementationMissing(pool,
                                  "Attempt to set WebSocket failed. Service does not support functionality. "
                                  "Affected operation: 'openWebSocketSetWebSocket'.");
}

void KxCCreTamberWebApiHandler::ListImages(KxCErrorListPool& pool, const KxCRequest&, KxCResponse& response) {
    answerNotImplemented(pool, response);
}

void KxCCreTamberWebApiHandler::UploadImage(KxCErrorListPool& pool, const KxCRequest&, const KxNJson::json*,
                                            KxCResponse& response) {
    answerNotImplemented(pool, response);
}

std::int32_t KxCCreTamberWebApiHandler::UploadImageStart(const char*, const char*, const void*, std::uint64_t,
                                                         std::uint32_t) {
    return REFUSED;
}

void KxCCreTamberWebApiHandler::RemoveImage(KxCErrorListPool& pool, const KxCRequest&, const char*,
                                            KxCResponse& response) {
    answerNotImplemented(pool, response);
}

void KxCCreTamberWebApiHandler::GetSettings(KxCErrorListPool& pool, const KxCRequest&, KxCResponse& response) {
    answerNotImplemented(pool, response);
}

void KxCCreTamberWebApiHandler::PatchSettings(KxCErrorListPool& pool, const KxCRequest&, const KxNJson::json*,
                                              KxCResponse& response) {
    answerNotImplemented(pool, response);
}

void KxCCreTamberWebApiHandler::GetEnable(KxCErrorListPool& pool, const KxCRequest&, KxCResponse& response) {
    answerNotImplemented(pool, response);
}

void KxCCreTamberWebApiHandler::PatchEnable(KxCErrorListPool& pool, const KxCRequest&, const KxNJson::json*,
                                            KxCResponse& response) {
    answerNotImplemented(pool, response);
}

void KxCCreTamberWebApiHandler::ListPlugins(KxCErrorListPool& pool, const KxCRequest&, KxCResponse& response) {
    answerNotImplemented(pool, response);
}

void KxCCreTamberWebApiHandler::UploadPlugin(KxCErrorListPool& pool, const KxCRequest&, const KxNJson::json*,
                                             KxCResponse& response) {
    answerNotImplemented(pool, response);
}

std::int32_t KxCCreTamberWebApiHandler::UploadPluginStart(const char*, const char*, const void*, std::uint64_t,
                                                          std::uint32_t) {
    return REFUSED;
}

void KxCCreTamberWebApiHandler::DeletePlugin(KxCErrorListPool& pool, const KxCRequest&, const char*,
                                             KxCResponse& response) {
    answerNotImplemented(pool, response);
}

void KxCCreTamberWebApiHandler::ActivatePlugin(KxCErrorListPool& pool, const KxCRequest&, const KxNJson::json*,
                                               const char*, const char*, KxCResponse& response) {
    answerNotImplemented(pool, response);
}

void KxCCreTamberWebApiHandler::ComposeStart(KxCErrorListPool& pool, const KxCRequest&, const char*,
                                             KxCResponse& response) {
    answerNotImplemented(pool, response);
}

void KxCCreTamberWebApiHandler::ComposeStop(KxCErrorListPool& pool, const KxCRequest&, const char*,
                                            KxCResponse& response) {
    answerNotImplemented(pool, response);
}

void KxCCreTamberWebApiHandler::ComposeCreate(KxCErrorListPool& pool, const KxCRequest&, const char*,
                                              KxCResponse& response) {
    answerNotImplemented(pool, response);
}

void KxCCreTamberWebApiHandler::ComposeRemove(KxCErrorListPool& pool, const KxCRequest&, const char*,
                                              KxCResponse& response) {
    answerNotImplemented(pool, response);
}

void KxCCreTamberWebApiHandler::ListComposeFiles(KxCErrorListPool& pool, const KxCRequest&, KxCResponse& response) {
    answerNotImplemented(pool, response);
}

void KxCCreTamberWebApiHandler::UploadComposeFile(KxCErrorListPool& pool, const KxCRequest&, const KxNJson::json*,
                                                  KxCResponse& response) {
    answerNotImplemented(pool, response);
}

std::int32_t KxCCreTamberWebApiHandler::UploadComposeFileStart(const char*, const char*, const void*, std::uint64_t,
                                                               std::uint32_t) {
    return REFUSED;
}

void KxCCreTamberWebApiHandler::DeleteComposeFile(KxCErrorListPool& pool, const KxCRequest&, const char*,
                                                  KxCResponse& response) {
    answerNotImplemented(pool, response);
}

void KxCCreTamberWebApiHandler::ListCerts(KxCErrorListPool& pool, const KxCRequest&, KxCResponse& response) {
    answerNotImplemented(pool, response);
}

void KxCCreTamberWebApiHandler::UploadCertificate(KxCErrorListPool& pool, const KxCRequest&, const KxNJson::json*,
                                                  KxCResponse& response) {
    answerNotImplemented(pool, response);
}

std::int32_t KxCCreTamberWebApiHandler::UploadCertificateStart(const char*, const char*, const void*, std::uint64_t,
                                                               std::uint32_t) {
    return REFUSED;
}

void KxCCreTamberWebApiHandler::DeleteCertificate(KxCErrorListPool& pool, const KxCRequest&, KxCResponse& response) {
    answerNotImplemented(pool, response);
}

void KxCCreTamberWebApiHandler::UploadPrivateKey(KxCErrorListPool& pool, const KxCRequest&, const KxNJson::json*,
                                                 KxCResponse& response) {
    answerNotImplemented(pool, response);
}

std::int32_t KxCCreTamberWebApiHandler::UploadPrivateKeyStart(const char*, const char*, const void*, std::uint64_t,
                                                              std::uint32_t) {
    return REFUSED;
}

void KxCCreTamberWebApiHandler::DeletePrivateKey(KxCErrorListPool& pool, const KxCRequest&, KxCResponse& response) {
    answerNotImplemented(pool, response);
}

void KxCCreTamberWebApiHandler::UploadCaCertificate(KxCErrorListPool& pool, const KxCRequest&, const KxNJson::json*,
                                                    KxCResponse& response) {
    answerNotImplemented(pool, response);
}

std::int32_t KxCCreTamberWebApiHandler::UploadCaCertificateStart(const char*, const char*, const void*, std::uint64_t,
                                                                 std::uint32_t) {
    return REFUSED;
}

void KxCCreTamberWebApiHandler::DeleteCaCertificate(KxCErrorListPool& pool, const KxCRequest&, KxCResponse& response) {
    answerNotImplemented(pool, response);
}

// Double of the web API server library: what a handler answers goes into the journal.
#include <cstring>
#include <stdexcept>

#include "KxContainer.h"
#include "KxTamberWebApi/KxHandler.h"
#include "KxTamberWebApi/KxServer.h"
#include "tests/doubles/World.h"

using KxNDoubles::note;
using KxNDoubles::succeeds;

namespace KxNTamberWebApi {

namespace {

const KxSTamberWebApiParameterValue* find(const KxSTamberWebApiParameterValue* const* values, const char* name,
                                          std::uint32_t location, std::uint32_t type) {
    for (; values != nullptr && *values != nullptr; ++values) {
        if (std::strcmp((*values)->name, name) == 0 && (*values)->location == location && (*values)->type == type) {
            return *values;
        }
    }
    return nullptr;
}

template <typename... Parts>
void answer(int status, const Parts&... parts) {
    note(parts...).answeredStatus = status;
}

template <typename... Parts>
bool callServer(KxCErrorListPool& pool, const std::string& call, const Parts&... arguments) {
    const bool isDone = succeeds("server " + call, arguments...);
    if (!isDone) {
        pool.addError(0, "server " + call + " failed");
    }
    return isDone;
}

}  // namespace

KxCHandler::KxCHandler() = default;
KxCHandler::~KxCHandler() { note("handler destroyed"); }
void KxCHandler::detach() { note("handler detached"); }
const char* KxCHandler::getStringParam(const KxSTamberWebApiParameterValue* const* values, const char* name,
                                       std::uint32_t location) {
    const auto* value = find(values, name, location, TYPE_TEXT);
    return value != nullptr ? value->text : nullptr;
}
const bool* KxCHandler::getBooleanParamPtr(const KxSTamberWebApiParameterValue* const* values, const char* name,
                                           std::uint32_t location) {
    const auto* value = find(values, name, location, TYPE_BOOLEAN);
    return value != nullptr ? &value->boolean : nullptr;
}
const std::int64_t* KxCHandler::getInt64ParamPtr(const KxSTamberWebApiParameterValue* const* values, const char* name,
                                                 std::uint32_t location) {
    const auto* value = find(values, name, location, TYPE_INT64);
    return value != nullptr ? &value->integer : nullptr;
}
void KxCHandler::setErrorImplementationMissing(KxCErrorListPool& pool, const char* text) { pool.addError(0, text); }

void KxCResponse::setError(KxCErrorListPool& pool, int code, const char* statusName, const char* message, int flag) {
    setError(pool, code, statusName, std::string_view(message), flag);
}
void KxCResponse::setError(KxCErrorListPool&, int code, const char* statusName, std::string_view message, int flag) {
    answer(code, statusName, " ", code, ": ", message, flag == 1 ? "" : " WITH ANOTHER FLAG");
}
void KxCResponse::setJsonBody(KxCErrorListPool&, int code, const KxNJson::json* document) {
    answer(code, "json ", code, " ", document->dump());
}
void KxCResponse::setJsonBody(KxCErrorListPool&, int code, const char* text) { answer(code, "text ", code, " ", text); }
void KxCResponse::setTextBody(KxCErrorListPool&, int code, const char* mediaType, std::string_view text) {
    answer(code, mediaType, " ", code, "\n", text);
}
void KxCResponse::setSubprotocol(const char* name) { note("subprotocol ", name); }
void KxCResponse::setEmptyBody(KxCErrorListPool&, int code) { answer(code == 0 ? 204 : code, "empty ", code); }
void KxCResponse::switchWebSocket(KxCErrorListPool&, const char* name, KxCWebSocket::DataCallback dataCallback,
                                  const void* dataContext, std::uint32_t dataLength,
                                  KxCWebSocket::CloseCallback closeCallback, const void* closeContext,
                                  std::uint32_t closeLength) {
    const bool isAsAgreed = dataCallback == nullptr && dataContext == nullptr && dataLength == 0 &&
                            closeCallback == &KxNContainer::KxCContainer::LogStreamCloseHandler &&
                            closeContext == nullptr && closeLength == 0;
    answer(101, "switch ", name, isAsAgreed ? "" : " WITH OTHER CALLBACKS");
}

struct KxCWebSocket::State {};
KxCWebSocket::KxCWebSocket(std::shared_ptr<State> given) : state(std::move(given)) {}
KxCWebSocket::~KxCWebSocket() { note("socket destroyed"); }
bool KxCWebSocket::sendText(KxCErrorListPool&, const char* text, std::size_t length, int timeoutMilliseconds,
                            bool joinable) {
    note("sendText '", std::string(text, length), "' ", timeoutMilliseconds, joinable ? " joinable" : "");
    return --KxNDoubles::world().sendsLeft > 0;
}
bool KxCWebSocket::isOpen() const { return KxNDoubles::world().sendsLeft > 0; }

KxSAuditState getAuditState() { return KxNDoubles::world().audit; }
std::string readAuditEntries(std::uint64_t after, std::size_t limit) {
    return succeeds("audit", " after ", after, " at most ", limit) ? "{}" : throw std::runtime_error("disk");
}

struct KxCServer::State {};
KxCServer::KxCServer(std::unique_ptr<State> given) : state(std::move(given)) {}
KxCServer::~KxCServer() { note("server destroyed"); }
std::unique_ptr<KxCServer> KxCServer::create(KxCErrorListPool& pool, std::uint32_t requestThreads) {
    const bool isMade = callServer(pool, "create", " ", requestThreads);
    return std::unique_ptr<KxCServer>(isMade ? new KxCServer(std::make_unique<State>()) : nullptr);
}
void KxCServer::init(KxCErrorListPool& pool) { callServer(pool, "init"); }
void KxCServer::registerHandler(KxCErrorListPool& pool, KxCHandler*) { callServer(pool, "registerHandler"); }
void KxCServer::start(KxCErrorListPool& pool, std::uint32_t stopGraceSeconds) {
    callServer(pool, "start", " ", stopGraceSeconds);
}
void KxCServer::stop(KxCErrorListPool& pool) { callServer(pool, "stop"); }

}  // namespace KxNTamberWebApi

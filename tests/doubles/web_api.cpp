// Double of the web API server library: what a handler answers goes into the journal.
#include <cstring>

#include "KxContainer.h"
#include "KxTamberWebApi/KxHandler.h"
#include "KxTamberWebApi/KxServer.h"
#include "tests/doubles/World.h"

using KxNDoubles::world;

namespace KxNTamberWebApi {

namespace {

const KxSTamberWebApiParameterValue* find(const KxSTamberWebApiParameterValue* const* values, const char* name,
                                          std::uint32_t location, std::uint32_t type) {
    for (; values != nullptr && *values != nullptr; ++values) {
        const KxSTamberWebApiParameterValue& value = **values;
        if (std::strcmp(value.name, name) == 0 && value.location == location && value.type == type) {
            return &value;
        }
    }
    return nullptr;
}

void serverCall(KxCErrorListPool& pool, const std::string& call) {
    world().note("server " + call);
    if (world().failingServerCall == call.substr(0, call.find(' '))) {
        pool.addError(0, "server " + call + " failed");
    }
}

}  // namespace

KxCHandler::KxCHandler() = default;
KxCHandler::~KxCHandler() {
    world().note("handler destroyed");
}
void KxCHandler::detach() {
    world().note("handler detached");
}
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
void KxCHandler::setErrorImplementationMissing(KxCErrorListPool& pool, const char* text) {
    pool.addError(0, text);
}

void KxCResponse::setError(KxCErrorListPool&, int code, const char* statusName, const char* message, int flag) {
    world().note("error " + std::to_string(code) + " " + statusName + ": " + message +
                 (flag == 1 ? "" : " WITH FLAG " + std::to_string(flag)));
}
void KxCResponse::setJsonBody(KxCErrorListPool&, int code, const KxNJson::json* document) {
    world().note("json " + std::to_string(code) + " " + document->dump());
}
void KxCResponse::setJsonBody(KxCErrorListPool&, int code, const char* text) {
    world().note("text " + std::to_string(code) + " " + text);
}
void KxCResponse::setEmptyBody(KxCErrorListPool&, int code) {
    world().note("empty " + std::to_string(code));
}
void KxCResponse::switchWebSocket(KxCErrorListPool&, const char* name, KxCWebSocket::DataCallback dataCallback,
                                  const void* dataContext, std::uint32_t dataLength,
                                  KxCWebSocket::CloseCallback closeCallback, const void* closeContext,
                                  std::uint32_t closeLength) {
    const bool isAsAgreed = dataCallback == nullptr && dataContext == nullptr && dataLength == 0 &&
                            closeCallback == &KxNContainer::KxCContainer::LogStreamCloseHandler &&
                            closeContext == nullptr && closeLength == 0;
    world().note(std::string("switch ") + name + (isAsAgreed ? "" : " WITH OTHER CALLBACKS"));
}

struct KxCWebSocket::State {};
KxCWebSocket::KxCWebSocket(std::shared_ptr<State> given) : state(std::move(given)) {}
KxCWebSocket::~KxCWebSocket() {
    world().note("socket destroyed");
}
bool KxCWebSocket::sendText(KxCErrorListPool&, const char* text, std::size_t length, int timeoutMilliseconds,
                            bool joinable) {
    world().note("sendText '" + std::string(text, length) + "' " + std::to_string(timeoutMilliseconds) +
                 (joinable ? " joinable" : ""));
    return true;
}

struct KxCServer::State {};
KxCServer::KxCServer(std::unique_ptr<State> given) : state(std::move(given)) {}
KxCServer::~KxCServer() {
    world().note("server destroyed");
}
std::unique_ptr<KxCServer> KxCServer::create(KxCErrorListPool& pool, std::uint32_t requestThreads) {
    serverCall(pool, "create " + std::to_string(requestThreads));
    if (world().failingServerCall == "create") {
        return nullptr;
    }
    return std::unique_ptr<KxCServer>(new KxCServer(std::make_unique<State>()));
}
void KxCServer::init(KxCErrorListPool& pool) {
    serverCall(pool, "init");
}
void KxCServer::registerHandler(KxCErrorListPool& pool, KxCHandler*) {
    serverCall(pool, "registerHandler");
}
void KxCServer::start(KxCErrorListPool& pool, std::uint32_t stopGraceSeconds) {
    serverCall(pool, "start " + std::to_string(stopGraceSeconds));
}
void KxCServer::stop(KxCErrorListPool& pool) {
    serverCall(pool, "stop");
}

}  // namespace KxNTamberWebApi

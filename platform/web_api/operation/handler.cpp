#include <cstring>
#include <utility>

#include "KxErrorManager.h"
#include "KxTamberWebApi/KxHandler.h"
#include "platform/web_api/operation/registration.h"

namespace KxNTamberWebApi {

namespace {

const KxSTamberWebApiParameterValue* findValue(const KxSTamberWebApiParameterValue* const* values, const char* name,
                                               std::uint32_t location, std::uint32_t type) {
    if (values == nullptr || name == nullptr) {
        return nullptr;
    }
    for (; *values != nullptr; ++values) {
        const KxSTamberWebApiParameterValue& value = **values;
        if (value.location == location && value.type == type && std::strcmp(value.name, name) == 0) {
            return &value;
        }
    }
    return nullptr;
}

}  // namespace

void KxCHandler::Registration::close() {
    inside.fetch_or(CLOSED_FLAG);
    {
        std::lock_guard lock(mutex);
        if (endStreams) {
            endStreams();
        }
    }
    for (std::uint32_t now = inside.load(); now != CLOSED_FLAG; now = inside.load()) {
        inside.wait(now);
    }
}

void KxCHandler::Registration::forgetServer() {
    std::lock_guard lock(mutex);
    endStreams = nullptr;
}

HandlerUse::HandlerUse(std::shared_ptr<KxCHandler::Registration> used) : registration(std::move(used)) {
    isInside = (registration->inside.fetch_add(1) & KxCHandler::Registration::CLOSED_FLAG) == 0;
}

HandlerUse::~HandlerUse() {
    constexpr std::uint32_t lastOfClosed = KxCHandler::Registration::CLOSED_FLAG | 1;
    if (registration->inside.fetch_sub(1) == lastOfClosed) {
        registration->inside.notify_all();
    }
}

KxCHandler::KxCHandler() = default;

KxCHandler::~KxCHandler() {
    detach();
}

void KxCHandler::detach() {
    if (registration) {
        registration->close();
    }
}

const char* KxCHandler::getStringParam(const KxSTamberWebApiParameterValue* const* values, const char* name,
                                       std::uint32_t location) {
    const auto* value = findValue(values, name, location, TYPE_TEXT);
    return value != nullptr ? value->text : nullptr;
}

const bool* KxCHandler::getBooleanParamPtr(const KxSTamberWebApiParameterValue* const* values, const char* name,
                                           std::uint32_t location) {
    const auto* value = findValue(values, name, location, TYPE_BOOLEAN);
    return value != nullptr ? &value->boolean : nullptr;
}

const std::int64_t* KxCHandler::getInt64ParamPtr(const KxSTamberWebApiParameterValue* const* values, const char* name,
                                                 std::uint32_t location) {
    const auto* value = findValue(values, name, location, TYPE_INT64);
    return value != nullptr ? &value->integer : nullptr;
}

void KxCHandler::setErrorImplementationMissing(KxCErrorListPool& pool, const char* text) {
    pool.addError(0, text);
}

}  // namespace KxNTamberWebApi

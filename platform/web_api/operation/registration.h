// The library's record of a registered handler: the gate that all its operations pass through.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

#include "KxTamberWebApi/KxHandler.h"

namespace KxNTamberWebApi {

struct KxCHandler::Registration {
    /// `endStreams` ends the streams of the server that serves the handler.
    Registration(KxCHandler* registered, std::function<void()> endServersStreams)
        : handler(registered), endStreams(std::move(endServersStreams)) {}

    /// Lets nobody in any more and waits until nobody is inside.
    void close();
    /// The server goes: `endStreams` is not called any more.
    void forgetServer();

private:
    friend class HandlerUse;
    static constexpr std::uint32_t CLOSED_FLAG = 0x8000'0000U;

    KxCHandler* handler;
    std::atomic<std::uint32_t> inside{0};  // callers that are inside, and the flag
    std::mutex mutex;
    std::function<void()> endStreams;
};

/// Being inside the gate: while this lives and gives a handler, the handler lives too.
class HandlerUse {
public:
    explicit HandlerUse(std::shared_ptr<KxCHandler::Registration> registration);
    ~HandlerUse();
    HandlerUse(const HandlerUse&) = delete;
    HandlerUse& operator=(const HandlerUse&) = delete;

    /// Null when the handler has been detached.
    KxCHandler* handler() const { return isInside ? registration->handler : nullptr; }

private:
    std::shared_ptr<KxCHandler::Registration> registration;
    bool isInside;
};

}  // namespace KxNTamberWebApi

// Link-time double of the web API server's WebSocket: what was sent can be read, and the client can be slow or go.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>

#include "KxTamberWebApi/KxWebSocket.h"

struct KxNTamberWebApi::KxCWebSocket::State {
    std::mutex mutex;
    std::condition_variable changed;
    std::string sent;
    bool isOpen = true;
    bool isReading = true;

    /// As the library does it: first the mark, then the callback, which the caller makes.
    void close();
    void setReading(bool reads);
    std::string sentSoFar();
};

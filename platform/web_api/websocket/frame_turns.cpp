#include "platform/web_api/websocket/frame_turns.h"

#include <array>
#include <cstdint>

namespace KxNTamberWebApi {

namespace {

/// The head of a frame of the server that is a whole text message (RFC 6455, section 5.2).
class TextFrameHead {
public:
    explicit TextFrameHead(std::uint64_t length) {
        append(0x81);
        if (length < 126) {
            append(length);
            return;
        }
        const bool isShort = length <= 0xFFFF;
        append(isShort ? 126 : 127);
        for (int shift = isShort ? 8 : 56; shift >= 0; shift -= 8) {
            append(length >> shift & 0xFF);
        }
    }

    std::string_view bytes() const { return {data.data(), size}; }

private:
    void append(std::uint64_t byte) { data[size++] = static_cast<char>(byte); }

    std::array<char, 10> data;
    std::size_t size = 0;
};

}  // namespace

FrameTurns::FrameTurns(Transport& connection)
    : transport(connection), turn(connection.get_executor(), Clock::time_point::max()) {}

bool FrameTurns::tryTake() {
    const std::lock_guard lock(mutex);
    if (transport.isTls() || isClosed || libraryWaits || holder != Holder::nobody) {
        return false;
    }
    holder = Holder::thread;
    return true;
}

bool FrameTurns::writeText(std::string_view text) {
    error_code error;
    transport.writeBlocking(TextFrameHead(text.size()).bytes(), text, error);
    if (error) {
        transport.shutdownBoth();
    }
    const std::lock_guard lock(mutex);
    holder = Holder::nobody;
    if (libraryWaits) {
        turn.cancel();
    }
    return !error;
}

void FrameTurns::close() {
    const std::lock_guard lock(mutex);
    isClosed = true;
}

void FrameTurns::endLibrary(bool isFrameOut) {
    const std::lock_guard lock(mutex);
    if (isFrameOut) {
        holder = Holder::nobody;
    }
}

}  // namespace KxNTamberWebApi

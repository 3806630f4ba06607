// The frames of the WebSocket protocol (RFC 6455, section 5) from the server's side, without a socket.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace KxNTamberWebApi {

enum class Opcode : std::uint8_t { continuation = 0, text = 1, binary = 2, close = 8, ping = 9, pong = 10 };

// Close codes: RFC 6455, section 7.4.1.
inline constexpr std::uint16_t CLOSE_NORMAL = 1000;
inline constexpr std::uint16_t CLOSE_GOING_AWAY = 1001;
inline constexpr std::uint16_t CLOSE_PROTOCOL_ERROR = 1002;
inline constexpr std::uint16_t CLOSE_INVALID_TEXT = 1007;
inline constexpr std::uint16_t CLOSE_POLICY = 1008;
inline constexpr std::uint16_t CLOSE_TOO_BIG = 1009;
inline constexpr std::uint16_t CLOSE_SERVER_FAILED = 1011;

/// The head of a whole, unmasked message of the server.
class FrameHead {
public:
    FrameHead(Opcode opcode, std::uint64_t payloadSize);
    std::string_view bytes() const { return {data.data(), size}; }

private:
    void append(std::uint64_t byte) { data[size++] = static_cast<char>(byte); }

    std::array<char, 10> data;
    std::size_t size = 0;
};

std::string makeControlFrame(Opcode opcode, std::string_view payload);
std::string makeCloseFrame(std::uint16_t code);

/// Takes the client's bytes, however they are cut, and says what they mean. Grows with no length that a frame
/// announces, only with what has come, up to the longest message.
class FrameReader {
public:
    enum class Event {
        none,     ///< more bytes are needed
        message,  ///< a text message, which `payload` gives
        ping,     ///< to be answered with `payload`
        close,    ///< the client closes: to be answered with `closeCode`
        broken,   ///< the client broke the protocol: to be closed with `closeCode`
    };

    explicit FrameReader(std::size_t longestMessage) : longest(longestMessage) {}

    /// Takes bytes off the front of `bytes` until something has happened; `none` when they are used up. After `close`
    /// and `broken` nothing more is taken.
    Event next(std::string_view& bytes);

    /// Valid until the next call of `next`.
    std::string_view payload() const { return given; }
    std::uint16_t closeCode() const { return code; }

private:
    bool takeHead(std::string_view& bytes);
    std::uint16_t checkFirstBytes() const;
    std::uint16_t readLength();
    Event endFrame();
    Event endMessage();
    Event endClose();
    Event breakOff(std::uint16_t closeCode);

    Opcode opcode() const { return static_cast<Opcode>(head[0] & 0x0F); }
    bool isLast() const { return (head[0] & 0x80) != 0; }
    bool isControl() const { return (head[0] & 0x08) != 0; }

    const std::size_t longest;
    std::array<unsigned char, 14> head{};
    std::size_t headSize = 0;  // bytes of the head that have come
    std::size_t headNeeds = 2;
    std::uint64_t left = 0;  // payload of the frame that has not come
    std::size_t maskAt = 0;
    bool inMessage = false;
    bool isText = false;  // the message is
    std::string message;
    std::string control;
    std::string given;
    std::uint16_t code = 0;  // not 0 at the end
};

}  // namespace KxNTamberWebApi

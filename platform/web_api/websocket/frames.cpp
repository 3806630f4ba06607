#include "platform/web_api/websocket/frames.h"

#include <algorithm>
#include <utility>

#include "platform/common/utf8_text.h"

namespace KxNTamberWebApi {

namespace {

constexpr unsigned char MASKED = 0x80;
constexpr std::size_t MASK_SIZE = 4;
constexpr std::size_t LONGEST_CONTROL = 125;
constexpr std::uint64_t SHORT_LENGTH = 126;  // and more: 2 bytes of length follow
constexpr std::uint64_t LONG_LENGTH = 127;   // 8 bytes do

bool isUtf8(std::string_view bytes) {
    KxNCommon::Utf8Text repair;
    std::string repaired;
    repair.append(bytes, repaired);
    repair.finish(repaired);
    return repaired == bytes;
}

/// Those that an endpoint may send (RFC 6455, section 7.4, and the registry of IANA).
bool mayBeSent(std::uint16_t code) {
    return (code >= 1000 && code <= 1003) || (code >= 1007 && code <= 1014) || (code >= 3000 && code <= 4999);
}

}  // namespace

FrameHead::FrameHead(Opcode opcode, std::uint64_t payloadSize) {
    append(0x80U | static_cast<unsigned>(opcode));
    if (payloadSize < SHORT_LENGTH) {
        append(payloadSize);
        return;
    }
    const bool isShort = payloadSize <= 0xFFFF;
    append(isShort ? SHORT_LENGTH : LONG_LENGTH);
    for (int shift = isShort ? 8 : 56; shift >= 0; shift -= 8) {
        append(payloadSize >> shift & 0xFF);
    }
}

std::string makeControlFrame(Opcode opcode, std::string_view payload) {
    std::string frame(FrameHead(opcode, payload.size()).bytes());
    frame += payload;
    return frame;
}

std::string makeCloseFrame(std::uint16_t code) {
    const char payload[] = {static_cast<char>(code >> 8), static_cast<char>(code & 0xFF)};
    return makeControlFrame(Opcode::close, {payload, sizeof payload});
}

FrameReader::Event FrameReader::next(std::string_view& bytes) {
    given.clear();
    while (code == 0) {
        if (headSize < headNeeds) {
            if (!takeHead(bytes)) {
                return code == 0 ? Event::none : Event::broken;
            }
            maskAt = headNeeds - MASK_SIZE;
        }
        const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(left, bytes.size()));
        std::string& target = isControl() ? control : message;
        const std::size_t mask = headNeeds - MASK_SIZE;
        for (const char byte : bytes.substr(0, size)) {
            target += static_cast<char>(byte ^ head[maskAt]);
            maskAt = maskAt + 1 == headNeeds ? mask : maskAt + 1;
        }
        bytes.remove_prefix(size);
        left -= size;
        if (left > 0) {
            return Event::none;
        }
        if (const Event event = endFrame(); event != Event::none) {
            return event;
        }
    }
    return Event::none;
}

/// True once the head is complete; false when more bytes are needed, or when it breaks a rule.
bool FrameReader::takeHead(std::string_view& bytes) {
    while (headSize < headNeeds) {
        if (bytes.empty()) {
            return false;
        }
        head[headSize++] = static_cast<unsigned char>(bytes.front());
        bytes.remove_prefix(1);
        if (headSize == 2) {
            if ((code = checkFirstBytes()) != 0) {
                return false;
            }
            const std::uint64_t length = head[1] & ~MASKED;
            headNeeds += MASK_SIZE + (length == LONG_LENGTH ? 8 : length == SHORT_LENGTH ? 2 : 0);
        }
    }
    code = readLength();
    return code == 0;
}

/// 0, or the code with which what they say is refused.
std::uint16_t FrameReader::checkFirstBytes() const {
    const bool isReserved = (head[0] & 0x70) != 0 || (head[0] & 0x07) > 2;
    const bool isWrongControl = isControl() && (!isLast() || (head[1] & ~MASKED) > static_cast<int>(LONGEST_CONTROL));
    const bool isWrongData = !isControl() && inMessage != (opcode() == Opcode::continuation);
    const bool isUnmasked = (head[1] & MASKED) == 0;
    return isReserved || isWrongControl || isWrongData || isUnmasked ? CLOSE_PROTOCOL_ERROR : 0;
}

std::uint16_t FrameReader::readLength() {
    left = head[1] & ~MASKED;
    const std::size_t bytes = headNeeds - MASK_SIZE - 2;
    if (bytes > 0) {
        left = 0;
        for (std::size_t i = 0; i < bytes; ++i) {
            left = left << 8 | head[2 + i];
        }
        if (left < (bytes == 2 ? SHORT_LENGTH : 0x10000) || left >> 63 != 0) {
            return CLOSE_PROTOCOL_ERROR;  // not the shortest form
        }
    }
    return !isControl() && left > longest - message.size() ? CLOSE_TOO_BIG : 0;
}

FrameReader::Event FrameReader::endFrame() {
    headSize = 0;
    headNeeds = 2;
    switch (opcode()) {
        case Opcode::close:
            return endClose();
        case Opcode::ping:
            given = std::exchange(control, {});
            return Event::ping;
        case Opcode::pong:
            control.clear();
            return Event::none;
        default:
            return endMessage();
    }
}

FrameReader::Event FrameReader::endMessage() {
    if (opcode() != Opcode::continuation) {
        isText = opcode() == Opcode::text;
    }
    inMessage = !isLast();
    if (inMessage) {
        return Event::none;
    }
    std::string whole = std::exchange(message, {});
    if (!isText) {
        return Event::none;
    }
    given = std::move(whole);
    return isUtf8(given) ? Event::message : breakOff(CLOSE_INVALID_TEXT);
}

FrameReader::Event FrameReader::endClose() {
    if (control.empty()) {
        code = CLOSE_NORMAL;
        return Event::close;
    }
    if (control.size() == 1) {
        return breakOff(CLOSE_PROTOCOL_ERROR);
    }
    const auto sent = static_cast<std::uint16_t>(static_cast<unsigned char>(control[0]) << 8 |
                                                 static_cast<unsigned char>(control[1]));
    if (!mayBeSent(sent)) {
        return breakOff(CLOSE_PROTOCOL_ERROR);
    }
    if (!isUtf8(std::string_view(control).substr(2))) {
        return breakOff(CLOSE_INVALID_TEXT);
    }
    code = sent;
    return Event::close;
}

FrameReader::Event FrameReader::breakOff(std::uint16_t closeCode) {
    code = closeCode;
    return Event::broken;
}

}  // namespace KxNTamberWebApi

// Podman's framing of container output: 8 bytes before each piece, which name its stream and length.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/common/utf8_text.h"

namespace KxNContainer {

/// Takes frames apart, however they are cut. Payload is passed on as it comes, so nothing grows with the length that a
/// frame announces.
class LogFrames {
public:
    struct Piece {
        std::uint8_t stream;  ///< 1 standard output, 2 standard error
        std::string_view payload;
    };

    /// Takes the next piece of payload off the front of `bytes`; none when `bytes` is used up. The payload points into
    /// `bytes` or into this object and is valid until the next call.
    std::optional<Piece> next(std::string_view& bytes);

    /// True when something came that is no frame. From there on everything, the header that was none included, is
    /// passed on as standard output: output in doubt is better than output lost.
    bool isBroken() const { return broken; }

private:
    bool takeHeader(std::string_view& bytes);

    std::array<char, 8> header{};
    std::size_t headerSize = 0;  ///< bytes of it that have come, of one that is not complete
    std::uint8_t stream = 1;
    std::uint32_t remaining = 0;  ///< payload of the current frame that has not come yet
    bool broken = false;
};

/// A container's output as text: frames taken away where the container has them, invalid UTF-8 replaced, each stream by
/// itself.
class LogText {
public:
    explicit LogText(bool isFramed) : framed(isFramed) {}

    void append(std::string_view bytes, std::string& text);
    void finish(std::string& text);
    bool isBroken() const { return frames.isBroken(); }

private:
    bool framed;
    LogFrames frames;
    KxNCommon::Utf8Text output;
    KxNCommon::Utf8Text errors;
};

}  // namespace KxNContainer

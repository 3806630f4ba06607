#include "platform/common/utf8_text.h"

#include <cstdint>
#include <utility>

namespace KxNCommon {

namespace {

constexpr std::string_view REPLACEMENT = "\xEF\xBF\xBD";

bool isWithin(std::uint8_t byte, std::uint8_t lowest, std::uint8_t highest) {
    return byte >= lowest && byte <= highest;
}

/// Goes through all of it without a branch, as most text is ASCII.
bool isAscii(std::string_view bytes) {
    std::uint8_t together = 0;
    for (const char byte : bytes) {
        together |= static_cast<std::uint8_t>(byte);
    }
    return together < 0x80;
}

/// The number of bytes at the front of `bytes` that are ASCII.
std::size_t asciiPrefix(std::string_view bytes) {
    std::size_t size = 0;
    while (size + 8 <= bytes.size() && isAscii(bytes.substr(size, 8))) {
        size += 8;
    }
    while (size < bytes.size() && isAscii(bytes.substr(size, 1))) {
        ++size;
    }
    return size;
}

}  // namespace

// After Unicode's table of well-formed byte sequences: only the second byte has a range that depends on the first.
Utf8Character firstCharacter(std::string_view bytes) {
    const auto at = [&](std::size_t index) { return static_cast<std::uint8_t>(bytes[index]); };
    const std::uint8_t lead = at(0);
    if (!isWithin(lead, 0xC2, 0xF4)) {
        return {Utf8Character::INVALID, 1};
    }
    const std::size_t size = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    std::uint8_t lowest = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    std::uint8_t highest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    for (std::size_t index = 1; index < size; ++index) {
        if (index == bytes.size()) {
            return {Utf8Character::INCOMPLETE, index};
        }
        if (!isWithin(at(index), lowest, highest)) {
            return {Utf8Character::INVALID, index};
        }
        lowest = 0x80;
        highest = 0xBF;
    }
    return {Utf8Character::VALID, size};
}

void Utf8Text::append(std::string_view bytes, std::string& text) {
    if (pending.empty() && isAscii(bytes)) {
        text.append(bytes);
        return;
    }
    std::string joined;
    if (!pending.empty()) {
        joined = std::exchange(pending, {}).append(bytes);
        bytes = joined;
    }
    std::size_t checked = 0;  // valid bytes that are not in `text` yet
    while ((checked += asciiPrefix(bytes.substr(checked))) < bytes.size()) {
        const Utf8Character character = firstCharacter(bytes.substr(checked));
        if (character.kind == Utf8Character::VALID) {
            checked += character.size;
            continue;
        }
        text.append(bytes.substr(0, checked));
        if (character.kind == Utf8Character::INVALID) {
            text.append(REPLACEMENT);
        } else {
            pending = bytes.substr(checked);
        }
        bytes.remove_prefix(checked + character.size);
        checked = 0;
    }
    text.append(bytes);
}

void Utf8Text::finish(std::string& text) {
    text.append(std::exchange(pending, {}).empty() ? std::string_view() : REPLACEMENT);
}

std::string toUtf8(std::string_view bytes) {
    Utf8Text utf8;
    std::string text;
    utf8.append(bytes, text);
    utf8.finish(text);
    return text;
}

}  // namespace KxNCommon

#include "platform/container_runtime/logs/log_cursor.h"

#include <algorithm>

#include "platform/common/text.h"
#include "platform/common/utf8_text.h"

namespace KxNContainer {

namespace {

constexpr std::size_t LONGEST = 500;

std::string_view takeField(std::string_view& text) {
    const std::string_view field = text.substr(0, text.find('.'));
    text.remove_prefix(std::min(text.size(), field.size() + 1));
    return field;
}

/// The beginning of one character, or nothing. None when it is something else.
std::optional<std::string> parseIncomplete(std::string_view digits) {
    std::string bytes;
    for (; digits.size() >= 2; digits.remove_prefix(2)) {
        const int high = KxNCommon::hexDigit(digits[0]);
        const int low = KxNCommon::hexDigit(digits[1]);
        if (high < 0 || low < 0) {
            return std::nullopt;
        }
        bytes.push_back(static_cast<char>(high * 16 + low));
    }
    const bool isIncomplete =
        bytes.empty() || (static_cast<unsigned char>(bytes[0]) >= 0x80 &&
                          KxNCommon::firstCharacter(bytes).kind == KxNCommon::Utf8Character::INCOMPLETE);
    return digits.empty() && isIncomplete ? std::optional(bytes) : std::nullopt;
}

bool mayStandInPlace(char c) {
    return KxNCommon::isAlphanumeric(c) || std::string_view("-_~:;=").find(c) != std::string_view::npos;
}

}  // namespace

std::optional<LogCursor> LogCursor::parse(std::string_view text) {
    if (text.size() > LONGEST || std::count(text.begin(), text.end(), '.') != 3) {
        return std::nullopt;
    }
    const std::string_view kind = takeField(text);
    if (kind != "f" && kind != "j" && kind != "n") {
        return std::nullopt;
    }
    LogCursor cursor;
    cursor.kind = static_cast<Kind>(kind[0]);
    for (std::string& bytes : cursor.incomplete) {
        auto parsed = parseIncomplete(takeField(text));
        if (!parsed) {
            return std::nullopt;
        }
        bytes = std::move(*parsed);
    }
    if (!std::all_of(text.begin(), text.end(), mayStandInPlace)) {
        return std::nullopt;
    }
    cursor.place = text;
    return cursor;
}

std::string LogCursor::format() const {
    std::string text(1, static_cast<char>(kind));
    for (const std::string& bytes : incomplete) {
        text += "." + KxNCommon::toHex(bytes);
    }
    return text + "." + place;
}

}  // namespace KxNContainer

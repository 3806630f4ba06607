// Small things that are done to bytes of text. ASCII only, whatever the locale.
#pragma once

#include <algorithm>
#include <charconv>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace KxNCommon {

constexpr bool isControl(char c) {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
}

/// Whether `text` holds a control character other than those of `allowed`.
constexpr bool holdsControl(std::string_view text, std::string_view allowed = {}) {
    return std::ranges::any_of(text, [&](char c) { return isControl(c) && allowed.find(c) == allowed.npos; });
}

constexpr bool isAlphanumeric(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

/// The value of a hexadecimal digit, -1 for any other character.
constexpr int hexDigit(char c) {
    const char lower = static_cast<char>(c | 0x20);
    return c >= '0' && c <= '9' ? c - '0' : lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

constexpr std::string_view LOWER_CASE_DIGITS = "0123456789abcdef";
constexpr std::string_view UPPER_CASE_DIGITS = "0123456789ABCDEF";

/// Appends the two hexadecimal digits of `byte` to a string of any kind.
template <class String>
void appendHex(String& text, char byte, std::string_view digits = LOWER_CASE_DIGITS) {
    const auto value = static_cast<unsigned char>(byte);
    text.push_back(digits[value >> 4]);
    text.push_back(digits[value & 15]);
}

inline std::string toHex(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) {
        appendHex(text, byte);
    }
    return text;
}

/// The decimal number that all of `text` is; none when it is anything else or does not fit.
template <class Number>
std::optional<Number> parseNumber(std::string_view text) {
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

/// `text` without the blanks around it.
constexpr std::string_view trim(std::string_view text, std::string_view blanks = " \t") {
    const std::size_t first = text.find_first_not_of(blanks);
    return first == std::string_view::npos ? std::string_view()
                                           : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

}  // namespace KxNCommon

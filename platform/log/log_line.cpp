#include "platform/log/log_line.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdint>

namespace KxNLogLine {

namespace {

struct LevelText {
    char priority;  // syslog(3)
    const char* word;
};

constexpr std::array<LevelText, 7> LEVEL_TEXTS = {{
    {'7', "DEBUG"},
    {'7', "DEBUG"},
    {'6', "INFO"},
    {'4', "WARNING"},
    {'3', "ERROR"},
    {'3', "ERROR"},
    {'5', "NOTICE"},
}};

const LevelText& textsOf(int level) {
    const int last = static_cast<int>(LEVEL_TEXTS.size()) - 1;
    return LEVEL_TEXTS[static_cast<std::size_t>(std::clamp(level, 0, last))];
}

void appendNumber(std::pmr::string& line, unsigned value, std::size_t width, char after) {
    std::array<char, 12> digits;
    char* const end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
    const auto length = static_cast<std::size_t>(end - digits.data());
    if (length < width) {
        line.append(width - length, '0');
    }
    line.append(digits.data(), length);
    line.push_back(after);
}

void appendTimestamp(std::pmr::string& line, const timespec& utc) {
    using namespace std::chrono;
    const sys_seconds instant{seconds{utc.tv_sec}};
    const sys_days day = floor<days>(instant);
    const year_month_day date{day};
    const hh_mm_ss time{instant - day};
    appendNumber(line, static_cast<unsigned>(std::max(0, static_cast<int>(date.year()))), 4, '-');
    appendNumber(line, static_cast<unsigned>(date.month()), 2, '-');
    appendNumber(line, static_cast<unsigned>(date.day()), 2, 'T');
    appendNumber(line, static_cast<unsigned>(time.hours().count()), 2, ':');
    appendNumber(line, static_cast<unsigned>(time.minutes().count()), 2, ':');
    appendNumber(line, static_cast<unsigned>(time.seconds().count()), 2, '.');
    appendNumber(line, static_cast<unsigned>(utc.tv_nsec / 1'000'000), 3, 'Z');
}

// Line and paragraph separator, which some viewers obey.
bool breaksLines(std::uint32_t codePoint) {
    return codePoint == 0x2028 || codePoint == 0x2029;
}

// Length of the character beyond ASCII that begins `text`, 0 when it is malformed or may not be shown as it is.
std::size_t showableLength(std::string_view text) {
    const auto byteAt = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned lead = byteAt(0);
    std::size_t length;
    std::uint32_t codePoint;
    std::uint32_t lowest;
    if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4, codePoint = lead & 0x07u, lowest = 0x10000;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3, codePoint = lead & 0x0Fu, lowest = 0x800;
    } else if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2, codePoint = lead & 0x1Fu, lowest = 0xA0;  // U+0080 to U+009F are control characters
    } else {
        return 0;
    }
    if (text.size() < length) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((byteAt(i) & 0xC0u) != 0x80u) {
            return 0;
        }
        codePoint = codePoint << 6 | (byteAt(i) & 0x3Fu);
    }
    const bool isSurrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
    return codePoint < lowest || codePoint > 0x10FFFF || isSurrogate || breaksLines(codePoint) ? 0 : length;
}

void appendEscape(std::pmr::string& line, unsigned char byte) {
    constexpr std::string_view HEX = "0123456789abcdef";
    switch (byte) {
        case '\n':
            line.append("\\n");
            break;
        case '\r':
            line.append("\\r");
            break;
        case '\t':
            line.append("\\t");
            break;
        default:
            line.append("\\x");
            line.push_back(HEX[byte >> 4]);
            line.push_back(HEX[byte & 0x0Fu]);
    }
}

}  // namespace

void appendPrefix(std::pmr::string& line, Prefix prefix, int level, const timespec& utc) {
    if (prefix == Prefix::Journal) {
        line.push_back('<');
        line.push_back(textsOf(level).priority);
        line.push_back('>');
        return;
    }
    appendTimestamp(line, utc);
    line.push_back(' ');
    line.append(textsOf(level).word);
    line.push_back(' ');
}

void appendEscaped(std::pmr::string& line, std::string_view text) {
    std::size_t shown = 0;  // up to here `text` is in `line`
    std::size_t at = 0;
    while (at < text.size()) {
        const auto byte = static_cast<unsigned char>(text[at]);
        const bool isPlain = byte >= 0x20 && byte < 0x7F;
        const std::size_t length = isPlain ? 1 : byte >= 0x80 ? showableLength(text.substr(at)) : 0;
        if (length > 0) {
            at += length;
            continue;
        }
        line.append(text.substr(shown, at - shown));
        appendEscape(line, byte);
        shown = ++at;
    }
    line.append(text.substr(shown));
}

}  // namespace KxNLogLine

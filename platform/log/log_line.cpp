#include "platform/log/log_line.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "platform/common/text.h"
#include "platform/common/utf8_text.h"

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

void appendTimestamp(std::pmr::string& line, const timespec& utc) {
    tm parts{};
    ::gmtime_r(&utc.tv_sec, &parts);
    std::array<char, 64> text;
    const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text.data() + length, text.size() - length, ".%03dZ", static_cast<int>(utc.tv_nsec / 1'000'000));
    line.append(text.data());
}

// Length of the character beyond ASCII that begins `text`, 0 when it is malformed or may not be shown as it is: a
// control character (U+0080 to U+009F), or a line or paragraph separator, which some viewers obey.
std::size_t showableLength(std::string_view text) {
    const auto [kind, size] = KxNCommon::firstCharacter(text);
    const bool isShown = kind == KxNCommon::Utf8Character::VALID && !(text[0] == '\xC2' && text[1] < '\xA0') &&
                         !text.starts_with("\xE2\x80\xA8") && !text.starts_with("\xE2\x80\xA9");
    return isShown ? size : 0;
}

void appendEscape(std::pmr::string& line, char byte) {
    constexpr std::string_view NAMED = "\n\r\t";
    line.push_back('\\');
    if (const std::size_t at = NAMED.find(byte); at != std::string_view::npos) {
        line.push_back("nrt"[at]);
    } else {
        line.push_back('x');
        KxNCommon::appendHex(line, byte);
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
        const bool isAscii = (text[at] & 0x80) == 0;
        const std::size_t length = isAscii ? !KxNCommon::isControl(text[at]) : showableLength(text.substr(at));
        if (length > 0) {
            at += length;
            continue;
        }
        line.append(text.substr(shown, at - shown));
        appendEscape(line, text[at]);
        shown = ++at;
    }
    line.append(text.substr(shown));
}

}  // namespace KxNLogLine

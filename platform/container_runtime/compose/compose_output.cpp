#include "platform/container_runtime/compose/compose_output.h"

#include <algorithm>
#include <array>
#include <deque>
#include <sstream>
#include <vector>

#include "platform/common/text.h"
#include "platform/common/utf8_text.h"

namespace KxNContainer {

namespace {

constexpr std::string_view ERROR_MARK = "ERROR: ";

/// The number of bytes of the escape sequence at the beginning of `text`.
std::size_t escapeLength(std::string_view text) {
    if (text.size() < 2 || text[1] != '[') {
        return std::min<std::size_t>(2, text.size());
    }
    const auto isFinal = [](char character) { return character >= 0x40 && character <= 0x7e; };
    const auto last = std::find_if(text.begin() + 2, text.end(), isFinal);
    return static_cast<std::size_t>(last - text.begin()) + (last == text.end() ? 0 : 1);
}

bool isProgress(std::string_view line) {
    constexpr std::array<std::string_view, 4> ends = {" ...", " ... done", " ... failed", " ... error"};
    return std::any_of(ends.begin(), ends.end(), [&line](std::string_view end) { return line.ends_with(end); });
}

/// Says nothing about the cause. The Debian package of the tool prints its exit status, too.
bool isEmptyPhrase(std::string_view line) {
    return line.empty() || line == "1" || line.ends_with("Encountered errors while bringing up the project.") ||
           isProgress(line);
}

/// Only the last line of a stack trace is for users; it follows the indented ones.
void dropStackTrace(std::vector<std::string>& lines) {
    const bool hasTrace = std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
        return line.starts_with("Traceback (most recent call last)");
    });
    if (hasTrace) {
        const auto isIndented = [](const std::string& line) { return line.starts_with(' '); };
        lines.erase(lines.begin(), std::find_if(lines.rbegin(), lines.rend(), isIndented).base());
    }
}

std::string joinEnd(const std::vector<std::string>& lines) {
    constexpr std::size_t maxLines = 5;
    constexpr std::size_t maxBytes = 1000;
    std::string text;
    for (std::size_t index = lines.size() > maxLines ? lines.size() - maxLines : 0; index < lines.size(); ++index) {
        text += (text.empty() ? "" : " ") + lines[index];
    }
    if (text.size() > maxBytes) {
        text = readableOutput("..." + text.substr(text.size() - maxBytes));  // the cut may go through a character
    }
    return text;
}

}  // namespace

std::string readableOutput(std::string_view output) {
    std::string bytes;
    while (!output.empty()) {
        const char character = output.front();
        std::size_t length = 1;
        if (character == '\x1b') {
            length = escapeLength(output);
        } else if (character == '\r') {
            bytes += output.starts_with("\r\n") ? "" : "\n";
        } else if (character == '\n' || character == '\t' || !KxNCommon::isControl(character)) {
            bytes += character;
        }
        output.remove_prefix(length);
    }
    return KxNCommon::toUtf8(bytes);
}

std::string lastWords(const std::string& output) {
    std::vector<std::string> lines;
    std::istringstream stream(output);
    for (std::string line; std::getline(stream, line);) {
        if (!isEmptyPhrase(KxNCommon::trim(line))) {
            lines.push_back(line);
        }
    }
    dropStackTrace(lines);
    for (std::string& line : lines) {
        line = std::string(KxNCommon::trim(line));
    }
    const auto isMarked = [](const std::string& line) { return line.starts_with(ERROR_MARK); };
    const auto afterMarked = std::find_if(lines.rbegin(), lines.rend(), isMarked);
    if (afterMarked != lines.rend()) {
        lines.erase(lines.begin(), afterMarked.base() - 1);
        lines.front().erase(0, ERROR_MARK.size());
    }
    return joinEnd(lines);
}

}  // namespace KxNContainer

#include "platform/container_runtime/logs/entry_text.h"

namespace KxNContainer {

namespace {

/// What writes the log cuts lines at 8 KiB: a longer one than two such pieces goes out as it comes.
constexpr std::size_t LONGEST_HELD = 16UL << 10;

}  // namespace

void EntryText::append(const LogEntry& entry, std::string& text) {
    Output& output = outputs[indexOf(entry.output)];
    if (!output.held.empty() || !(entry.endsLine() || output.isTorn)) {
        appendPiece(entry, output, output.held);
        if (entry.endsLine() || output.held.size() > LONGEST_HELD) {
            text.append(output.held);
            std::string().swap(output.held);
            output.isTorn = !entry.endsLine();
        }
        return;
    }
    appendPiece(entry, output, text);
    output.isTorn = !entry.endsLine();
}

void EntryText::appendPiece(const LogEntry& entry, Output& output, std::string& text) {
    if (hasTimes && entry.beginsLine && !entry.timeText.empty()) {
        text.append(entry.timeText).push_back(' ');
    }
    output.characters.append(entry.text, text);
}

void EntryText::release(std::string& text) {
    for (Output& output : outputs) {
        output.isTorn |= !output.held.empty();
        text.append(output.held);
        std::string().swap(output.held);
    }
}

void EntryText::finish(std::string& text) {
    release(text);
    for (Output& output : outputs) {
        output.characters.finish(text);
    }
}

}  // namespace KxNContainer

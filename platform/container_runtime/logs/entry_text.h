// Entries of a log as text for those who read it.
#pragma once

#include <array>
#include <string>

#include "platform/common/utf8_text.h"
#include "platform/container_runtime/logs/entry/log_entry.h"

namespace KxNContainer {

/// Joins the entries to the container's output: invalid UTF-8 replaced, for each output by itself, and a time before
/// each line if that is wanted.
///
/// The log has lines of one output between the pieces of a line of the other. So a line's beginning is held here until
/// its end comes, it is too long, or nobody wants to wait any more. No line is torn that way; the order of each output
/// stays.
class EntryText {
public:
    explicit EntryText(bool wantsTimes) : hasTimes(wantsTimes) {}

    void append(const LogEntry& entry, std::string& text);

    /// Whether the beginning of a line is held.
    bool isHolding() const { return !outputs[0].held.empty() || !outputs[1].held.empty(); }
    /// Appends what is held.
    void release(std::string& text);
    /// Nothing follows.
    void finish(std::string& text);

private:
    struct Output {
        KxNCommon::Utf8Text characters;
        std::string held;     ///< the beginning of a line
        bool isTorn = false;  ///< of the line some has been given already
    };

    void appendPiece(const LogEntry& entry, Output& output, std::string& text);

    const bool hasTimes;
    std::array<Output, LOG_OUTPUTS> outputs;
};

}  // namespace KxNContainer

// The place in a log where somebody who follows its entries can go on.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "platform/container_runtime/logs/entry/log_entry.h"

namespace KxNContainer {

/// "KIND.BYTES.BYTES.PLACE": the kind of the log, the beginning of a character that each output has left incomplete
/// there, in hexadecimal, and the place as the reader of that kind tells it.
struct LogCursor {
    enum class Kind : char { file = 'f', journal = 'j', none = 'n' };

    Kind kind = Kind::none;
    std::array<std::string, LOG_OUTPUTS> incomplete;
    std::string place;

    static std::optional<LogCursor> parse(std::string_view text);
    std::string format() const;
};

}  // namespace KxNContainer

// What docker-compose printed, for a person.
#pragma once

#include <string>
#include <string_view>

namespace KxNContainer {

/// `output` as a text: escape sequences and control characters taken out, line ends unified, invalid UTF-8 replaced.
std::string readableOutput(std::string_view output);

/// What the tool said last about its failure, in one line of moderate length; empty when it said nothing. `output` is
/// readable. Where the tool marked errors, those; else its last words without progress reports and stack traces.
std::string lastWords(const std::string& output);

}  // namespace KxNContainer

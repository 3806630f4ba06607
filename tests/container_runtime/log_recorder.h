// Link-time double of the log: keeps the lines for a test to look at.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace KxNTests {

/// The lines since the last call, each with its level. Any thread.
std::vector<std::pair<int, std::string>> takeLogLines();

}  // namespace KxNTests

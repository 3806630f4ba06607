// SHA-256 (FIPS 180-4).
#pragma once

#include <array>
#include <string>
#include <string_view>

namespace KxNCommon {

using Sha256 = std::array<unsigned char, 32>;

/// Any thread.
Sha256 sha256(std::string_view bytes);

/// The same as 64 lower-case hexadecimal digits.
std::string sha256Hex(std::string_view bytes);

}  // namespace KxNCommon

// What every fuzzer has: its entry, and an end when what must hold does not.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#define KX_REQUIRE(condition) ((condition) ? static_cast<void>(0) : failRequirement(__FILE__, __LINE__, #condition))

[[noreturn]] inline void failRequirement(const char* file, int line, const char* condition) {
    std::fprintf(stderr, "%s:%d: %s does not hold\n", file, line, condition);
    std::abort();
}

/// Whether a control character other than those in `allowed` is in `text`.
inline bool hasControl(std::string_view text, std::string_view allowed = {}) {
    return std::any_of(text.begin(), text.end(), [&](char c) {
        return (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) && allowed.find(c) == std::string_view::npos;
    });
}

inline std::uint8_t byteAt(std::string_view input, std::size_t position) {
    return static_cast<std::uint8_t>(input[position]);
}

/// What the fuzzer does with one input.
void fuzz(std::string_view input);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz({reinterpret_cast<const char*>(data), size});
    return 0;
}

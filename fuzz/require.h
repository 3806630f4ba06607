// Stops a fuzzer when what must hold does not.
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

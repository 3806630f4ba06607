// Stops a fuzzer when what must hold does not.
#pragma once

#include <cstdio>
#include <cstdlib>

#define KX_REQUIRE(condition)                                                                  \
    do {                                                                                       \
        if (!(condition)) {                                                                    \
            std::fprintf(stderr, "%s:%d: %s does not hold\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                      \
        }                                                                                      \
    } while (false)

#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the process, which is how a fuzz target reports a finding, unless the condition holds.
#define REQUIRE(condition, ...)                                                             \
    do {                                                                                    \
        if (condition) break;                                                               \
        std::fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition); \
        std::fprintf(stderr, "  " __VA_ARGS__);                                             \
        std::fputc('\n', stderr);                                                           \
        std::abort();                                                                       \
    } while (false)

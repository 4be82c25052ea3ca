// SPDX-License-Identifier: MIT
// The few definitions that every room uses.
#pragma once

#include <cstdint>

// What containers hold: a pointer or an integer.
using word = std::uintptr_t;

// "Not found" of a vector index.
inline constexpr std::uint32_t NO_INDEX = 0xFFFFFFFF;

// Lets the compiler check the arguments of a printf-style function.
#define PRINTF_LIKE(format_index, first_argument) __attribute__((format(printf, format_index, first_argument)))

// Where a container was made. The default argument of a creating function takes it; callers never write it.
struct birth_place {
    const char *file = nullptr;
    int line = 0;

    static constexpr birth_place here(const char *file = __builtin_FILE(), int line = __builtin_LINE())
    {
        return {file, line};
    }
};

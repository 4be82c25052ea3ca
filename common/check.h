// SPDX-License-Identifier: MIT
// Checks of the containers' own state, of the C library's kind: a failure prints text, file and line and ends the
// program. They guard against faults of this program, never against bad input.
#pragma once

[[noreturn]] void check_failed(const char *text, const char *file, int line);

#define CHECK_STATE(condition, text)                                                                                   \
    do {                                                                                                               \
        if (!(condition)) [[unlikely]] {                                                                               \
            check_failed(text, __FILE__, __LINE__);                                                                    \
        }                                                                                                              \
    } while (0)

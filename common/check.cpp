// SPDX-License-Identifier: MIT
// Where a failed check of a container's state ends the program.
#include "common/check.h"

#include <cstdio>
#include <cstdlib>

void check_failed(const char *text, const char *file, int line)
{
    std::fprintf(stderr, "Assertion failed: %s, file %s, line %d\n", text, file, line);
    std::abort();
}

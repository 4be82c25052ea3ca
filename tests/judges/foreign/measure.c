// SPDX-License-Identifier: MIT
// A second unit, with a function whose lines lie far apart in code and in the file.
#include "tests/judges/foreign/shapes.h"

#define MIX(n) (table[n] ^= (n) + 1)
#define MIX_FOUR(n) (MIX(n), MIX((n) + 1), MIX((n) + 2), MIX((n) + 3))
#define MIX_SIXTEEN(n) (MIX_FOUR(n), MIX_FOUR((n) + 4), MIX_FOUR((n) + 8), MIX_FOUR((n) + 12))

int elsewhere = 1;
static volatile unsigned char table[64];

int measure(int value, int limit)
{
    int found = clamp(value, limit);
    MIX_SIXTEEN(0);
    found += table[value & 63];
    MIX_FOUR(16);
    found -= limit;
    MIX(20);
#line 400
    table[limit & 63] = (unsigned char)found;
    MIX_SIXTEEN(32);
#line 25
    return found;
}

// SPDX-License-Identifier: MIT
// What the two units share.
#pragma once

enum colour { RED, GREEN = 5, BLUE = -3, FAR = 100000 };

int measure(int value, int limit);

static inline int clamp(int value, int limit)
{
    if (value > limit) {
        return limit;
    }
    return value < -limit ? -limit : value;
}

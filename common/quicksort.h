// SPDX-License-Identifier: MIT
// The program's own quicksort. It is not stable, and the order in which it leaves equal elements shows in outputs:
// no library sort may stand in for it.
#pragma once

#include <cstddef>
#include <cstdint>

// Three-way comparison of two elements, given by their addresses.
using compare_function = int (*)(const void *left, const void *right);

// Sorts `count` elements of `size` bytes at `base` in place.
void quicksort(void *base, std::uint32_t count, std::size_t size, compare_function compare);

// SPDX-License-Identifier: MIT
// The table of pointer classes by which the symbol database describes a C pointer.
#pragma once

#include <cstdint>

inline constexpr std::int32_t PTR_START = 1;
inline constexpr std::int32_t PTR_END = 55;

// Size in bytes of a pointer of this class. A number outside the table is a failed assertion and gives 0.
std::uint32_t ptr_size(std::int32_t id);

// SPDX-License-Identifier: MIT
// Text to numbers as the C library converts them where `long` has 32 bits: a result that does not fit saturates at the
// 32-bit limits. All start behind leading white space, take a sign, and in base 16 a "0x".
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

// `strtoul`: `used`, when given, receives how many characters were taken, 0 when there is no number. A minus sign
// negates in 32 bits. Base 0 takes the base from the prefix.
std::uint32_t text_to_u32(std::string_view text, int base, std::size_t *used = nullptr);
// `strtol`.
std::int32_t text_to_i32(std::string_view text, int base, std::size_t *used = nullptr);
// `atoi` and `atol`: 0 when there is no number.
std::int32_t text_to_int(std::string_view text);
// A "%u" conversion: false, and `out` left alone, when there is no number.
bool scan_unsigned(std::string_view text, std::uint32_t *out);

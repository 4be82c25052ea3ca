// SPDX-License-Identifier: MIT
// Hexadecimal fields of text images.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

inline constexpr std::uint32_t HEX_BAD = 0xFFFF;

// Two digits at `position`; HEX_BAD when one is no digit or lies behind the end of the line.
std::uint32_t hex_byte(std::string_view line, std::size_t position);
// Four digits: the low pair plus the high pair times 256, a bad pair counting as HEX_BAD.
std::uint32_t hex_word(std::string_view line, std::size_t position);
// Decodes `count` bytes; a bad pair is stored as 0xFF. The sum of what `hex_byte` gives for each.
std::uint32_t hex_bytes(std::string_view line, std::size_t position, std::uint32_t count, std::uint8_t *out);
bool is_hex_digit(char c);

// SPDX-License-Identifier: MIT
// Hexadecimal fields of text images.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

inline constexpr std::uint32_t HEX_BAD = 0xFFFF;

// What two characters give, by their bytes as a number of the host: the value of two digits, or HEX_BAD.
inline constexpr std::size_t HEX_PAIRS = std::size_t{1} << 16;
extern const std::array<std::uint16_t, HEX_PAIRS> hex_pair_values;

inline std::uint32_t hex_pair(const char *p)
{
    std::uint16_t pair = 0;
    std::memcpy(&pair, p, sizeof pair);
    return hex_pair_values[pair];
}

// Two digits at `position`; HEX_BAD when one is no digit or lies behind the end of the line.
inline std::uint32_t hex_byte(std::string_view line, std::size_t position)
{
    return line.size() < 2 || position > line.size() - 2 ? HEX_BAD : hex_pair(line.data() + position);
}

// Four digits: the low pair plus the high pair times 256, a bad pair counting as HEX_BAD.
inline std::uint32_t hex_word(std::string_view line, std::size_t position)
{
    return (hex_byte(line, position) << 8) + hex_byte(line, position + 2);
}

// Decodes `count` bytes; a bad pair is stored as 0xFF. The sum of what `hex_byte` gives for each.
std::uint32_t hex_bytes(std::string_view line, std::size_t position, std::uint32_t count, std::uint8_t *out);
bool is_hex_digit(char c);

// SPDX-License-Identifier: MIT
// Classes of ASCII characters, their case and their values as digits, whatever the locale. Bytes above 127 belong to no class.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

constexpr bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

constexpr bool is_upper(char c)
{
    return c >= 'A' && c <= 'Z';
}

constexpr bool is_lower(char c)
{
    return c >= 'a' && c <= 'z';
}

constexpr bool is_letter(char c)
{
    return is_upper(c) || is_lower(c);
}

constexpr char to_lower(char c)
{
    return is_upper(c) ? static_cast<char>(c - 'A' + 'a') : c;
}

constexpr char to_upper(char c)
{
    return is_lower(c) ? static_cast<char>(c - 'a' + 'A') : c;
}

// `isspace` of the C locale.
constexpr bool is_space(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// The value of each character as a digit of base 36; 255 for any other, so a test against the base is all that is needed.
inline constexpr std::array<std::uint8_t, 256> DIGIT_VALUES = []() {
    std::array<std::uint8_t, 256> values{};
    values.fill(0xFF);
    for (std::uint8_t i = 0; i < 10; ++i) {
        values[static_cast<std::size_t>('0') + i] = i;
    }
    for (std::uint8_t i = 0; i < 26; ++i) {
        values[static_cast<std::size_t>('a') + i] = static_cast<std::uint8_t>(10 + i);
        values[static_cast<std::size_t>('A') + i] = static_cast<std::uint8_t>(10 + i);
    }
    return values;
}();

constexpr std::uint8_t digit_value(char c)
{
    return DIGIT_VALUES[static_cast<unsigned char>(c)];
}

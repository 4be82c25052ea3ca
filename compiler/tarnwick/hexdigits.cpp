// SPDX-License-Identifier: MIT
// Decoding of hexadecimal fields, through one table for all characters.
#include "compiler/tarnwick/hexdigits.h"

#include <array>

namespace {

constexpr std::uint8_t NO_DIGIT = 0xFF;
constexpr std::uint32_t BYTE_MASK = 0xFF;

constexpr std::array<std::uint8_t, 256> digit_values = [] {
    std::array<std::uint8_t, 256> values{};
    values.fill(NO_DIGIT);
    constexpr std::string_view DIGITS = "0123456789ABCDEF";
    for (std::size_t i = 0; i < DIGITS.size(); ++i) {
        const char digit = DIGITS[i];
        values[static_cast<std::uint8_t>(digit)] = static_cast<std::uint8_t>(i);
        if (digit >= 'A') {
            values[static_cast<std::uint8_t>(digit - 'A' + 'a')] = static_cast<std::uint8_t>(i);
        }
    }
    return values;
}();

std::uint32_t digit_value(char c)
{
    return digit_values[static_cast<std::uint8_t>(c)];
}

std::uint32_t digit_pair(const char *p)
{
    const std::uint32_t high = digit_value(p[0]);
    const std::uint32_t low = digit_value(p[1]);
    return (high | low) > 0xF ? HEX_BAD : high << 4 | low;
}

} // namespace

bool is_hex_digit(char c)
{
    return digit_value(c) != NO_DIGIT;
}

std::uint32_t hex_byte(std::string_view line, std::size_t position)
{
    if (line.size() < 2 || position > line.size() - 2) {
        return HEX_BAD;
    }
    return digit_pair(line.data() + position);
}

std::uint32_t hex_word(std::string_view line, std::size_t position)
{
    const std::uint32_t low = hex_byte(line, position + 2);
    const std::uint32_t high = hex_byte(line, position);
    return (high << 8) + low;
}

std::uint32_t hex_bytes(std::string_view line, std::size_t position, std::uint32_t count, std::uint8_t *out)
{
    const std::size_t there = position < line.size() ? (line.size() - position) / 2 : 0;
    const auto whole = there < count ? static_cast<std::uint32_t>(there) : count;
    std::uint32_t sum = 0;
    for (std::uint32_t i = 0; i < whole; ++i) {
        const std::uint32_t value = digit_pair(line.data() + position + std::size_t{i} * 2);
        out[i] = static_cast<std::uint8_t>(value & BYTE_MASK);
        sum += value;
    }
    for (std::uint32_t i = whole; i < count; ++i) {
        out[i] = static_cast<std::uint8_t>(HEX_BAD & BYTE_MASK);
        sum += HEX_BAD;
    }
    return sum;
}

// SPDX-License-Identifier: MIT
// Decoding of hexadecimal fields, through one table for all pairs of characters.
#include "compiler/tarnwick/hexdigits.h"

#include <array>
#include <bit>
#include <cstring>

#include "common/ascii.h"
#include "compiler/tarnwick/hexwide.h"

namespace {

constexpr std::uint32_t BASE_HEX = 16;
constexpr std::uint32_t BYTE_MASK = 0xFF;

} // namespace

// What two digits give, by the two characters read as one number in the host's byte order; only the few hundred entries
// of digits are ever touched, so that the table costs little of the cache.
constinit const std::array<std::uint16_t, HEX_PAIRS> hex_pair_values = []() {
    std::array<std::uint16_t, HEX_PAIRS> values{};
    values.fill(HEX_BAD);
    constexpr std::string_view DIGITS = "0123456789ABCDEFabcdef";
    for (const char high : DIGITS) {
        for (const char low : DIGITS) {
            const std::array<char, 2> pair = {high, low};
            values[std::bit_cast<std::uint16_t>(pair)] =
                static_cast<std::uint16_t>(digit_value(high) * BASE_HEX + digit_value(low));
        }
    }
    return values;
}();

bool is_hex_digit(char c)
{
    return digit_value(c) < BASE_HEX;
}

std::uint32_t hex_bytes(std::string_view line, std::size_t position, std::uint32_t count, std::uint8_t *out)
{
    const std::size_t there = position < line.size() ? (line.size() - position) / 2 : 0;
    const auto whole = there < count ? static_cast<std::uint32_t>(there) : count;
    const char *text = line.data() + position;
    std::uint32_t sum = 0;
    for (std::uint32_t i = hexwide::decode(text, whole, out, &sum); i < whole; ++i) {
        const std::uint32_t value = hex_pair(text + std::size_t{i} * 2);
        out[i] = static_cast<std::uint8_t>(value & BYTE_MASK);
        sum += value;
    }
    if (whole < count) {
        std::memset(out + whole, HEX_BAD & BYTE_MASK, count - whole);
        sum += (count - whole) * HEX_BAD;
    }
    return sum;
}

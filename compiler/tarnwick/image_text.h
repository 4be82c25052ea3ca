// SPDX-License-Identifier: MIT
// What the text images have in common in their lines.
#pragma once

#include <cstddef>
#include <string_view>

inline constexpr std::size_t DIGITS_PER_BYTE = 2;

// Characters that one read of a line takes; what a longer line has left counts as a line of its own.
inline constexpr std::size_t IMAGE_LINE_LIMIT = 511;

// The line without its newline and without the white space in front of that.
constexpr std::string_view without_trailing_space(std::string_view line)
{
    const std::size_t last = line.find_last_not_of(" \t\n\v\f\r");
    return line.substr(0, last + 1);
}

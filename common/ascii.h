// SPDX-License-Identifier: MIT
// Classes of ASCII characters, whatever the locale. Bytes above 127 belong to none.
#pragma once

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

// `isspace` of the C locale.
constexpr bool is_space(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

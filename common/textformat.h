// SPDX-License-Identifier: MIT
// printf-style formatting for texts that come from outside, such as a message catalogue: arguments carry their kinds, so
// no text can make the program read what is not there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

// One argument of a report: an integer of up to 64 bits, or a text (null prints as "(null)").
struct format_argument {
    enum kind_of : std::uint8_t { SIGNED, UNSIGNED, TEXT } kind = UNSIGNED;
    std::uint64_t number = 0; // sign-extended when SIGNED
    const char *text = nullptr;
};

template <typename T>
format_argument make_format_argument(const T &value)
{
    if constexpr (std::is_convertible_v<T, const char *>) {
        return {format_argument::TEXT, 0, static_cast<const char *>(value)};
    } else if constexpr (std::is_signed_v<T>) {
        return {format_argument::SIGNED, static_cast<std::uint64_t>(static_cast<std::int64_t>(value)), nullptr};
    } else {
        static_assert(std::is_integral_v<T> || std::is_enum_v<T>);
        return {format_argument::UNSIGNED, static_cast<std::uint64_t>(value), nullptr};
    }
}

// Formats into `buffer` of `size` bytes, always terminated, cutting what does not fit; the length of the whole text. The
// integer conversions (d i u x X o c) print the low 32 bits whatever length modifier stands there ("ll" prints 64), flags,
// width and precision work as usual. A conversion whose argument is missing or of the wrong kind prints nothing; an
// unknown conversion prints as it stands.
std::size_t format_text(char *buffer, std::size_t size, const char *format, std::span<const format_argument> arguments);

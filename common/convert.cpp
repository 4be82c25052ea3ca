// SPDX-License-Identifier: MIT
// Text to numbers of 32 bits. Most of a map file and of a symbol database is numbers, so the common token, digits alone,
// takes one table look-up a character.
#include "common/convert.h"

#include <limits>

#include "common/ascii.h"

namespace {

constexpr std::uint32_t U32_MAX = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint32_t I32_MAX = 0x7FFFFFFF;
constexpr std::uint32_t I32_MIN_MAGNITUDE = 0x80000000;

// What stands in a text, before the target type is known.
struct parsed_number {
    std::uint32_t magnitude = 0;
    bool negative = false;
    bool too_large = false; // the magnitude needs more than 32 bits
    std::size_t used = 0;   // 0 when there is no number
};

// Takes the "0x" of a text whose base allows it and settles base 0. A "0x" with no digit behind it is the number 0 with
// an "x" behind it, and stays.
std::size_t skip_prefix(std::string_view text, std::size_t at, int *base)
{
    const bool zero = at < text.size() && text[at] == '0';
    const bool prefix =
        zero && at + 2 < text.size() && (text[at + 1] == 'x' || text[at + 1] == 'X') && digit_value(text[at + 2]) < 16;
    if (prefix && (*base == 16 || *base == 0)) {
        *base = 16;
        return at + 2;
    }
    if (*base == 0) {
        *base = zero ? 8 : 10;
    }
    return at;
}

parsed_number parse_number(std::string_view text, int base)
{
    parsed_number number;
    std::size_t at = 0;
    while (at < text.size() && is_space(text[at])) {
        ++at;
    }
    if (at < text.size() && (text[at] == '-' || text[at] == '+')) {
        number.negative = text[at] == '-';
        ++at;
    }
    at = skip_prefix(text, at, &base);

    const std::size_t first_digit = at;
    std::uint64_t value = 0;
    while (at < text.size()) {
        const std::uint32_t digit = digit_value(text[at]);
        if (digit >= static_cast<std::uint32_t>(base)) {
            break;
        }
        value = value * static_cast<std::uint32_t>(base) + digit;
        if (value > U32_MAX) {
            number.too_large = true;
            value = U32_MAX; // keeps the next step within 64 bits
        }
        ++at;
    }
    number.magnitude = static_cast<std::uint32_t>(value);
    number.used = at == first_digit ? 0 : at;
    return number;
}

// Texts of so many digits fit 32 bits in either base, whatever they hold.
constexpr std::size_t PLAIN_DIGITS = 8;

// The number of a text that is nothing but a few digits, as nearly every one is; false for any other.
template <std::uint32_t Base>
bool read_plain(std::string_view text, std::uint32_t *out)
{
    if (text.size() > PLAIN_DIGITS) {
        return false;
    }
    std::uint32_t value = 0;
    for (const char c : text) {
        const std::uint32_t digit = digit_value(c);
        if (digit >= Base) {
            return false;
        }
        value = value * Base + digit;
    }
    *out = value;
    return true;
}

bool read_plain(std::string_view text, int base, std::uint32_t *out)
{
    return base == 16 ? read_plain<16>(text, out) : base == 10 && read_plain<10>(text, out);
}

} // namespace

std::uint32_t text_to_u32(std::string_view text, int base, std::size_t *used)
{
    if (std::uint32_t plain = 0; read_plain(text, base, &plain)) {
        if (used != nullptr) {
            *used = text.size();
        }
        return plain;
    }
    const parsed_number number = parse_number(text, base);
    if (used != nullptr) {
        *used = number.used;
    }
    if (number.too_large) {
        return U32_MAX; // with a minus sign too
    }
    return number.negative ? 0U - number.magnitude : number.magnitude;
}

std::int32_t text_to_i32(std::string_view text, int base, std::size_t *used)
{
    const parsed_number number = parse_number(text, base);
    if (used != nullptr) {
        *used = number.used;
    }
    if (number.negative) {
        return number.magnitude >= I32_MIN_MAGNITUDE ? std::numeric_limits<std::int32_t>::min()
                                                     : -static_cast<std::int32_t>(number.magnitude);
    }
    return number.magnitude > I32_MAX ? std::numeric_limits<std::int32_t>::max()
                                      : static_cast<std::int32_t>(number.magnitude);
}

std::int32_t text_to_int(std::string_view text)
{
    return text_to_i32(text, 10);
}

bool scan_unsigned(std::string_view text, std::uint32_t *out)
{
    std::size_t used = 0;
    const std::uint32_t value = text_to_u32(text, 10, &used);
    if (used == 0) {
        return false;
    }
    *out = value;
    return true;
}

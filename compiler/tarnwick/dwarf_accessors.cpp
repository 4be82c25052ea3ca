// SPDX-License-Identifier: MIT
// Target values of byte-addressed targets: the bytes follow the byte order in force, and a target unit is a byte.
#include "compiler/tarnwick/dwarf_accessors.h"

#include <cstring>

#include "compiler/tarnwick/encdec.h"

namespace {

constexpr std::uint32_t LEB_GROUP_BITS = 7;
constexpr std::uint8_t LEB_GROUP_MASK = 0x7F;
constexpr std::uint8_t LEB_MORE = 0x80;
constexpr std::uint8_t LEB_SIGN = 0x40;
constexpr std::uint32_t LEB_VALUE_BITS = 64;
constexpr std::uint32_t WORD_BITS = 32;

const char *as_text(const std::uint8_t *p)
{
    return reinterpret_cast<const char *>(p);
}

std::size_t section_strlen(const std::uint8_t *p)
{
    return std::strlen(as_text(p));
}

std::size_t section_strsize(const std::uint8_t *p)
{
    return section_strlen(p) + 1;
}

std::size_t get_string(const std::uint8_t *p, char *out)
{
    const std::size_t size = section_strsize(p);
    std::memcpy(out, p, size);
    return size;
}

std::size_t put_string(std::uint8_t *p, const char *text)
{
    const std::size_t size = std::strlen(text) + 1;
    std::memcpy(p, text, size);
    return size;
}

// `n` bytes are always stored: what a short text leaves over is zeros, and a text of `n` or more has no terminator.
std::size_t copy_n(char *to, const char *from, std::size_t n)
{
    const std::size_t length = strnlen(from, n);
    std::memcpy(to, from, length);
    std::memset(to + length, 0, n - length);
    return length + 1;
}

std::size_t get_stringn(const std::uint8_t *p, char *out, std::size_t n)
{
    return copy_n(out, as_text(p), n);
}

std::size_t put_stringn(std::uint8_t *p, const char *text, std::size_t n)
{
    return copy_n(reinterpret_cast<char *>(p), text, n);
}

// The sign is extended with a 32-bit mask, shifted by the bit count modulo 32: a negative value of more than 31 bits does
// not come back as it was. Only dumps read such values, and they have always shown them so.
std::int64_t get_sleb(const std::uint8_t **p)
{
    std::uint64_t value = 0;
    std::uint32_t bits = 0;
    std::uint8_t group = 0;
    do {
        group = *(*p)++;
        if (bits < LEB_VALUE_BITS) { // what lies above the 64th bit is lost
            value |= static_cast<std::uint64_t>(group & LEB_GROUP_MASK) << bits;
            bits += LEB_GROUP_BITS;
        }
    } while ((group & LEB_MORE) != 0);

    if (bits < LEB_VALUE_BITS && (group & LEB_SIGN) != 0) {
        const auto mask = static_cast<std::int32_t>(UINT32_MAX << (bits % WORD_BITS));
        value |= static_cast<std::uint64_t>(static_cast<std::int64_t>(mask));
    }
    return static_cast<std::int64_t>(value);
}

std::uint32_t same_offset(std::uint32_t offset)
{
    return offset;
}

} // namespace

const dwarf_accessors dwarf_byte_accessors = {
    .dwarf_get1 = get8,
    .dwarf_put1 = put8,
    .dwarf_get2 = get16,
    .dwarf_put2 = put16,
    .dwarf_get4 = get32,
    .dwarf_put4 = put32,
    .dwarf_get8 = get64,
    .dwarf_put8 = put64,
    .dwarf_get_string = get_string,
    .dwarf_put_string = put_string,
    .dwarf_get_stringn = get_stringn,
    .dwarf_put_stringn = put_stringn,
    .dwarf_strlen = section_strlen,
    .dwarf_strsize = section_strsize,
    .dwarf_get_uleb = uleb_get,
    .dwarf_get_sleb = get_sleb,
    .dwarf_put_uleb = uleb_put,
    .dwarf_put_sleb = sleb_put,
    .dwarf_scale_offset = same_offset,
    .dwarf_unscale_offset = same_offset,
};

const dwarf_accessors *dwarf_access = nullptr;

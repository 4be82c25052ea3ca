// SPDX-License-Identifier: MIT
// What the writers of debugging sections are tested with. A section lives as long as the process and all tests write to
// it, so a test looks at what was added since it began.
#pragma once

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "compiler/tarnwick/dwarf_accessors.h"
#include "tests/unit/tarnwick/dwarf_testing.h"

using bytes = std::vector<std::uint8_t>;

inline bytes joined(std::initializer_list<bytes> pieces)
{
    bytes all;
    for (const bytes &piece : pieces) {
        all.insert(all.end(), piece.begin(), piece.end());
    }
    return all;
}

// A text with its terminator.
inline bytes text_bytes(const char *text)
{
    return {text, text + std::strlen(text) + 1};
}

inline std::string hex(const bytes &content)
{
    static constexpr char DIGITS[] = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : content) {
        text += DIGITS[byte >> 4];
        text += DIGITS[byte & 0xF];
    }
    return text;
}

// A little-endian number.
inline std::uint64_t number_at(const bytes &content, std::size_t offset, std::size_t size)
{
    std::uint64_t value = 0;
    for (std::size_t i = size; i-- > 0;) {
        value = value << 8 | content.at(offset + i);
    }
    return value;
}

class section_mark {
public:
    using finish_function = void (*)(std::uint8_t **data, std::uint32_t *size);

    explicit section_mark(finish_function finish) : finish_(finish), start_(whole().size()) {}

    std::uint32_t start() const { return static_cast<std::uint32_t>(start_); }
    bytes added() const
    {
        const bytes all = whole();
        return {all.begin() + static_cast<std::ptrdiff_t>(start_), all.end()};
    }

private:
    bytes whole() const
    {
        std::uint8_t *data = nullptr;
        std::uint32_t size = 0;
        finish_(&data, &size);
        return {data, data + size};
    }

    finish_function finish_;
    std::size_t start_;
};

// --- a target whose memory unit is a word of two bytes ------------------------------------------------------------------

inline constexpr std::size_t WORD_BYTES = 2;

// What a section holds on such a target: each byte has a word of its own.
inline bytes spread(const bytes &content)
{
    bytes words;
    for (const std::uint8_t byte : content) {
        words.push_back(byte);
        words.push_back(0);
    }
    return words;
}

inline std::uint32_t put_spread(std::uint8_t **p, const std::uint8_t *content, std::size_t size)
{
    for (std::size_t i = 0; i < size; i++) {
        *(*p)++ = content[i];
        *(*p)++ = 0;
    }
    return static_cast<std::uint32_t>(size * WORD_BYTES);
}

template <auto Put, typename Value>
std::uint8_t *put_word_value(std::uint8_t *p, Value value)
{
    std::uint8_t plain[sizeof(Value)];
    Put(plain, value);
    put_spread(&p, plain, sizeof plain);
    return p;
}

template <auto Put, typename Value>
std::uint32_t put_word_leb(std::uint8_t **p, Value value)
{
    std::uint8_t plain[10];
    std::uint8_t *end = plain;
    return put_spread(p, plain, Put(&end, value));
}

inline dwarf_accessors make_word_accessors()
{
    dwarf_accessors table = dwarf_byte_accessors;
    table.dwarf_put1 = put_word_value<[](std::uint8_t *p, std::uint8_t v) { dwarf_byte_accessors.dwarf_put1(p, v); }>;
    table.dwarf_put2 = put_word_value<[](std::uint8_t *p, std::uint16_t v) { dwarf_byte_accessors.dwarf_put2(p, v); }>;
    table.dwarf_put4 = put_word_value<[](std::uint8_t *p, std::uint32_t v) { dwarf_byte_accessors.dwarf_put4(p, v); }>;
    table.dwarf_put8 = put_word_value<[](std::uint8_t *p, std::uint64_t v) { dwarf_byte_accessors.dwarf_put8(p, v); }>;
    table.dwarf_put_uleb =
        put_word_leb<[](std::uint8_t **p, std::uint64_t v) { return dwarf_byte_accessors.dwarf_put_uleb(p, v); }>;
    table.dwarf_put_sleb =
        put_word_leb<[](std::uint8_t **p, std::int64_t v) { return dwarf_byte_accessors.dwarf_put_sleb(p, v); }>;
    table.dwarf_put_string = [](std::uint8_t *p, const char *text) -> std::size_t {
        return put_spread(&p, reinterpret_cast<const std::uint8_t *>(text), std::strlen(text) + 1);
    };
    table.dwarf_scale_offset = [](std::uint32_t units) { return units * std::uint32_t{WORD_BYTES}; };
    table.dwarf_unscale_offset = [](std::uint32_t size) { return size / std::uint32_t{WORD_BYTES}; };
    return table;
}
inline const dwarf_accessors word_accessors = make_word_accessors();

// Fields of bytes, and distances told in halves: tells the forms of the length fields apart.
inline dwarf_accessors make_halving_accessors()
{
    dwarf_accessors table = dwarf_byte_accessors;
    table.dwarf_unscale_offset = [](std::uint32_t size) { return size / 2; };
    return table;
}
inline const dwarf_accessors halving_accessors = make_halving_accessors();

// ------------------------------------------------------------------------------------------------------------------------

// What a run reports when it meets an internal error, and its status.
inline const std::string INTERNAL_ERROR_LINE = INTERNAL_ERROR_TEXT + "\n";
inline constexpr int INTERNAL_ERROR_STATUS = 1;

// A catalogue that makes a plain message of the internal error, so that the run goes on behind it.
inline const std::string LOWERING_CATALOGUE = "20250101000000_en.msgs";
inline const std::string LOWERED_ERROR_ROW = "1521 M internal error\n";
inline const std::string LOWERED_ERROR_LINE = "internal error\n";

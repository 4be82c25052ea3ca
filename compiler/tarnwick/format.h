// SPDX-License-Identifier: MIT
// File formats. A format is one room that exports its descriptor; the driver knows formats through `format_table`
// alone.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <span>

struct format_descriptor {
    bool (*identify)(std::FILE *stream); // the stream stands at its start
    bool (*read)(std::FILE *stream, const char *path);
    bool (*write)(std::FILE *stream, const char *path);
    bool (*dump)(std::FILE *stream); // false on failure
    const char *name;
    const char *key;
    const char *ext; // without the point
    bool binary;
};

inline constexpr std::uint32_t FORMAT_COUNT = 7;
// The position, counted from 1, is the format's number; the order is that of identification.
extern const std::array<const format_descriptor *, FORMAT_COUNT> format_table;

// The number of the format with this key or unambiguous beginning of a key. Raises messages 602, 603 and 604; 0 when
// those were lowered.
std::uint32_t format_find(const char *key);
// The same in any table.
std::uint32_t format_find_in(std::span<const format_descriptor *const> table, const char *key);

extern const format_descriptor format_tarnsym;
extern const format_descriptor format_orbell;
extern const format_descriptor format_ihex;
extern const format_descriptor format_s19;
extern const format_descriptor format_vcoff;
extern const format_descriptor format_elf;
extern const format_descriptor format_ubrof;

// The operation of a format that does not have it.
bool format_no_transfer(std::FILE *stream, const char *path);
bool format_no_dump(std::FILE *stream);

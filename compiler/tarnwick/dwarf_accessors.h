// SPDX-License-Identifier: MIT
// Values in a debugging section as the target lays them out. Writers and dumps go through the table in force, so that a
// target whose memory unit is not the byte could bring its own.
#pragma once

#include <cstddef>
#include <cstdint>

struct dwarf_accessors {
    std::uint8_t (*dwarf_get1)(const std::uint8_t *p);
    std::uint8_t *(*dwarf_put1)(std::uint8_t *p, std::uint8_t value);
    std::uint16_t (*dwarf_get2)(const std::uint8_t *p);
    std::uint8_t *(*dwarf_put2)(std::uint8_t *p, std::uint16_t value);
    std::uint32_t (*dwarf_get4)(const std::uint8_t *p);
    std::uint8_t *(*dwarf_put4)(std::uint8_t *p, std::uint32_t value);
    std::uint64_t (*dwarf_get8)(const std::uint8_t *p);
    std::uint8_t *(*dwarf_put8)(std::uint8_t *p, std::uint64_t value);
    std::size_t (*dwarf_get_string)(const std::uint8_t *p, char *out); // length + 1, as all string sizes
    std::size_t (*dwarf_put_string)(std::uint8_t *p, const char *text);
    std::size_t (*dwarf_get_stringn)(const std::uint8_t *p, char *out, std::size_t n);
    std::size_t (*dwarf_put_stringn)(std::uint8_t *p, const char *text, std::size_t n);
    std::size_t (*dwarf_strlen)(const std::uint8_t *p);
    std::size_t (*dwarf_strsize)(const std::uint8_t *p);
    std::uint64_t (*dwarf_get_uleb)(const std::uint8_t **p);
    std::int64_t (*dwarf_get_sleb)(const std::uint8_t **p);
    std::uint32_t (*dwarf_put_uleb)(std::uint8_t **p, std::uint64_t value);
    std::uint32_t (*dwarf_put_sleb)(std::uint8_t **p, std::int64_t value);
    std::uint32_t (*dwarf_scale_offset)(std::uint32_t units);   // target units to bytes
    std::uint32_t (*dwarf_unscale_offset)(std::uint32_t bytes); // and back
};

// The table of byte-addressed targets.
extern const dwarf_accessors dwarf_byte_accessors;
// The table in force; null before the first ELF file.
extern const dwarf_accessors *dwarf_access;

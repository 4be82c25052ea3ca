// SPDX-License-Identifier: MIT
// The names of DWARF constants, one table for each class of them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

struct dwarf_name_row {
    std::uint32_t value = 0;
    std::string_view name; // without "DW_" and the class word; null in the last row
};

// For each number that a name can have, 1 above its row; 0 for those without one.
using dwarf_name_places = std::array<std::uint8_t, 256>;

// A name as it is printed: with "DW_" and the class word in front, and with blanks behind.
struct dwarf_full_name {
    std::array<char, 40> text;
    std::uint8_t length; // without the blanks
};

struct dwarf_name_table {
    std::uint32_t user_low = 0; // both 0 if the class has no user range
    std::uint32_t user_high = 0;
    std::span<const dwarf_name_row> rows;        // ascending, but for the last one
    std::span<const dwarf_full_name> full_names; // of the rows but the last one
    const dwarf_name_places &places;
};

extern const dwarf_name_table dwarf_tag_names;
extern const dwarf_name_table dwarf_attribute_names;
extern const dwarf_name_table dwarf_form_names;
extern const dwarf_name_table dwarf_operator_names;
extern const dwarf_name_table dwarf_frame_names;
extern const dwarf_name_table dwarf_line_names;
extern const dwarf_name_table dwarf_extended_line_names;
extern const dwarf_name_table dwarf_macinfo_names;

// The name, which lasts until the next call at least; an unknown value in the form "?? 0x%08X".
std::string_view dwarf_name(const dwarf_name_table &table, std::uint32_t value, bool with_prefix);
// The same, padded with blanks up to `width`, and 128 at the most.
std::string_view dwarf_name_padded(const dwarf_name_table &table, std::uint32_t value, bool with_prefix,
                                   std::size_t width);

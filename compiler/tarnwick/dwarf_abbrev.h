// SPDX-License-Identifier: MIT
// The abbreviation table: eighteen families of entry with a few fixed variants each. A variant gets its number, and its
// bytes in the section, when it is first asked for; all compile units share the table.
#pragma once

#include <cstdint>

#include "compiler/tarnwick/dwarf_section.h"

inline constexpr std::uint32_t DWARF_ABBREV_INVALID_ENTRY_INDEX = 0xFFFFFFFF;

// How an entry tells where its code is: DW_AT_low_pc and DW_AT_high_pc, or DW_AT_ranges.
enum class dwarf_pc_form : std::uint8_t {
    NONE,
    LOW_HIGH,
    RANGES,
};
// The form under the mode in force, of a compile unit and of a function or block. Abbreviations and entries both ask
// here, so that they cannot disagree.
dwarf_pc_form dwarf_unit_pc_form(std::uint32_t num_ranges);
dwarf_pc_form dwarf_code_pc_form(std::uint32_t num_ranges); // never NONE

// Opens the table, and closes it: the closing byte is written and the section handed out.
void dwarf_abbrev_create_entries_hash();
void dwarf_abbrev_destroy_entry_hash(std::uint8_t **data, std::uint32_t *size);

// The number of an entry of the wanted variant.
std::uint32_t dwarf_abbrev_get_compile_unit_entry(bool has_children, bool has_comp_dir, std::uint32_t num_ranges);
std::uint32_t dwarf_abbrev_get_subprogram_entry(bool has_children, bool has_type, bool has_frame_base, bool is_external,
                                                bool is_inlined, std::uint32_t num_ranges);
std::uint32_t dwarf_abbrev_get_subroutine_type_entry(bool has_children, bool has_type);
std::uint32_t dwarf_abbrev_get_basic_type_entry(bool has_bit_fields);
std::uint32_t dwarf_abbrev_get_const_type_entry(bool has_type);
std::uint32_t dwarf_abbrev_get_volatile_type_entry(bool has_type);
std::uint32_t dwarf_abbrev_get_pointer_type_entry(bool has_type);
std::uint32_t dwarf_abbrev_get_array_type_entry();
std::uint32_t dwarf_abbrev_get_subrange_entry();
std::uint32_t dwarf_abbrev_get_structure_type_entry(bool has_children, bool has_name, std::uint32_t size);
std::uint32_t dwarf_abbrev_get_union_type_entry(bool has_children, bool has_name, std::uint32_t size);
std::uint32_t dwarf_abbrev_get_member_entry(bool is_bitfield, bool is_union);
std::uint32_t dwarf_abbrev_get_typedef_entry(bool has_type);
std::uint32_t dwarf_abbrev_get_variable_entry(bool is_external, bool is_declaration, std::uint32_t num_locations);
std::uint32_t dwarf_abbrev_get_parameter_entry(std::uint32_t num_locations);
std::uint32_t dwarf_abbrev_get_enum_type_entry(bool has_name, bool has_size);
std::uint32_t dwarf_abbrev_get_enumerator_entry();
std::uint32_t dwarf_abbrev_get_lexical_block_entry(bool has_children, bool no_pc, std::uint32_t num_ranges);

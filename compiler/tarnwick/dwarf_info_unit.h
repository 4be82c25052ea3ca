// SPDX-License-Identifier: MIT
// The open compile unit, as the rooms that write .debug_info share it: the unit's record and its references to types
// (dwarf_info.cpp), used by the entries (dwarf_entries.cpp). Not for other rooms.
#pragma once

#include <cstdint>

#include "common/hash_of.h"
#include "compiler/tarnwick/dwarf_info.h"
#include "compiler/tarnwick/dwarf_section.h"

// `sibling_field_unit_offset` of an entry without children.
inline constexpr std::uint32_t DWARF_INFO_INVALID_SIBLING_FIELD_OFFSET = 0xFFFFFFFF;

// Offsets of the records below are bytes of the buffer from the start of the unit.
struct compile_unit_info {
    std::uint32_t unit_start = 0; // from the start of the section
    std::uint8_t address_size = 0;
    hash_of<const char *, std::uint32_t> type_entries; // type id to the offset of its entry
    hash_of<const char *, vector *> missing_types;     // type id to the offsets of the references that wait for it
};

struct dwarf_entry_info {
    compile_unit_info *cu = nullptr;
    std::uint32_t unit_offset = 0;
    std::uint32_t sibling_field_unit_offset = DWARF_INFO_INVALID_SIBLING_FIELD_OFFSET;
};

extern section_info dwarf_info_section;

// Opens an entry: its abbreviation number and, with children, the field of its sibling, which the finish fills.
dwarf_entry_info *dwarf_info_start_entry_creation(compile_unit_info *cu, std::uint32_t abbrev,
                                                  bool has_children = false);
// Ends an entry; its offset. Null gives 0.
std::uint32_t dwarf_info_close_entry(dwarf_entry_info *entry);
// The same for an entry that may have children: their list is closed and the sibling field filled.
std::uint32_t dwarf_info_close_entry(dwarf_entry_info *entry, bool has_children);

// Registers a type whose entry is at `unit_offset`, and fills the references that waited for it.
void dwarf_info_register_type(compile_unit_info *cu, const char *type_id, std::uint32_t unit_offset);
// The offset of a type's entry; 0 when it has none yet, and then the 4 bytes that the caller is about to put will be
// filled once it has.
std::uint32_t dwarf_info_find_type_offset_or_record_reference(compile_unit_info *cu, const char *type_id);

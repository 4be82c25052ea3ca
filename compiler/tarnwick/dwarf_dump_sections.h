// SPDX-License-Identifier: MIT
// The dumps of the single sections; each prints what stands behind the section's heading.
#pragma once

#include <cstddef>
#include <cstdint>

#include "compiler/tarnwick/dwarf_dump_text.h"

inline constexpr std::size_t DWARF_ATTRIBUTE_WIDTH = 20; // of the column of their names

void dwarf_str_dump(dwarf_text &out, dwarf_bytes_view section);
void dwarf_abbrev_dump(dwarf_text &out, dwarf_bytes_view section);
// The pointer size of the last unit.
std::uint32_t dwarf_info_dump(dwarf_text &out, dwarf_bytes_view info, dwarf_bytes_view abbrev, dwarf_bytes_view str);
void dwarf_line_dump(dwarf_text &out, dwarf_bytes_view section);
void dwarf_frame_dump(dwarf_text &out, dwarf_bytes_view section, std::uint32_t pointer_size);
void dwarf_pubnames_dump(dwarf_text &out, dwarf_bytes_view section);
void dwarf_aranges_dump(dwarf_text &out, dwarf_bytes_view section);
void dwarf_loc_dump(dwarf_text &out, dwarf_bytes_view section, std::uint32_t pointer_size);
void dwarf_ranges_dump(dwarf_text &out, dwarf_bytes_view section, std::uint32_t pointer_size);

// Prints the first operator of an expression, and its operand behind ": " if it has one.
void dwarf_loc_read_location(dwarf_text &out, dwarf_bytes_view expression, std::uint32_t pointer_size);

// SPDX-License-Identifier: MIT
// Where variables are: location expressions, and the location lists of .debug_loc.
#pragma once

#include <cstdint>

#include "compiler/tarnwick/dwarf_section.h"
#include "compiler/tarnwick/sdb.h"

void dwarf_loc_init(std::uint8_t address_size);
// Writes an expression behind its 2-byte length into a section; the bytes written.
std::uint32_t dwarf_loc_put_block2_location(section_info *sec, const sdb_location *location, std::uint8_t address_size);
// Writes the list of a variable's locations; its offset in .debug_loc.
std::uint32_t dwarf_loc_add_list(const sdb_node *variable);
void dwarf_loc_finish(std::uint8_t **data, std::uint32_t *size);

// The first word of a base address selection: all ones at the address size. For 8 bytes it is 0, as debuggers get it.
std::uint64_t dwarf_largest_address(std::uint8_t address_size);

// SPDX-License-Identifier: MIT
// The range lists of .debug_ranges, for code that is not contiguous.
#pragma once

#include <cstdint>

#include "compiler/tarnwick/dwarf_section.h"
#include "compiler/tarnwick/sdb.h"

void dwarf_ranges_init(std::uint8_t address_size);
// Writes a list, all of it; its plain byte offset.
std::uint32_t dwarf_ranges_add_list(const sdb_range *ranges);
void dwarf_ranges_finish(std::uint8_t **data, std::uint32_t *size);

// SPDX-License-Identifier: MIT
// The writer of .debug_aranges: code addresses to units.
#pragma once

#include <cstdint>

#include "compiler/tarnwick/dwarf_section.h"

struct aranges_unit_info;

void dwarf_aranges_init();
aranges_unit_info *dwarf_aranges_start_unit(std::uint32_t info_offset);
// `end_addr` is the address behind the range.
void dwarf_aranges_add_range(std::uint32_t start_addr, std::uint32_t end_addr);
void dwarf_aranges_finish_unit(aranges_unit_info *unit);
void dwarf_aranges_finish(std::uint8_t **data, std::uint32_t *size);

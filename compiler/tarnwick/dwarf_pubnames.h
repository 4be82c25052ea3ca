// SPDX-License-Identifier: MIT
// The writer of .debug_pubnames: external names to entries. A unit without names writes nothing.
#pragma once

#include <cstdint>

#include "compiler/tarnwick/dwarf_section.h"

struct pubnames_unit_info;

void dwarf_pubnames_init();
pubnames_unit_info *dwarf_pubnames_start_unit(std::uint32_t info_offset);
void dwarf_pubnames_add_name(pubnames_unit_info *unit, std::uint32_t unit_offset, const char *name);
// `info_size`: the compile unit's size in .debug_info, with its length field.
void dwarf_pubnames_finish_unit(pubnames_unit_info *unit, std::uint32_t info_size);
void dwarf_pubnames_finish(std::uint8_t **data, std::uint32_t *size);

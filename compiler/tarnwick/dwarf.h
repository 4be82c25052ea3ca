// SPDX-License-Identifier: MIT
// The debugging sections of an ELF output. What is written is DWARF 2, or 3 as soon as range lists or location lists are
// on, with departures from the standard that debuggers in the field rely on; each is told at its place.
#pragma once

#include <cstdint>

#include "common/vector_of.h"
#include "compiler/tarnwick/dwarf_options.h"
#include "compiler/tarnwick/dwarf_section.h"

// 3 when range lists or location lists are on, else 2.
std::uint16_t dwarf_get_version();
bool dwarf_version_is_supported(std::uint16_t version);
// Appends the finished sections, in the order of the file; none without a symbol database. Raises message 632 for an
// address size of 0 or above 8.
int dwarf_write(vector_of<dwarf_output_section *> sections);

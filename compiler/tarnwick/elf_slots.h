// SPDX-License-Identifier: MIT
// Slots of the ELF back ends that no target so far fills in its own way.
#pragma once

#include "compiler/tarnwick/elf.h"

bool elf_slot_true();
std::uint32_t elf_slot_zero();
std::uint32_t elf_same_section_flags(const tarn_segment *seg, std::uint32_t size, std::uint32_t flags);
std::uint8_t elf_no_symbol_other(const tarn_symbol *symbol, std::uint8_t info);
const dwarf_accessors *elf_byte_accessors();

// Section type of the debugging sections: notes, not program data. Debuggers in the field rely on it.
inline constexpr std::uint32_t ELF_DEBUG_SECTION_TYPE = 7;

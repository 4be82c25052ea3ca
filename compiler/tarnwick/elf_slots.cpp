// SPDX-License-Identifier: MIT
// Slots that the ELF back ends share.
#include "compiler/tarnwick/elf_slots.h"

#include "compiler/tarnwick/dwarf_accessors.h"

bool elf_slot_true()
{
    return true;
}

std::uint32_t elf_slot_zero()
{
    return 0;
}

std::uint32_t elf_same_section_flags(const tarn_segment *, std::uint32_t, std::uint32_t flags)
{
    return flags;
}

std::uint8_t elf_no_symbol_other(const tarn_symbol *, std::uint8_t)
{
    return 0;
}

const dwarf_accessors *elf_byte_accessors()
{
    return &dwarf_byte_accessors;
}

// SPDX-License-Identifier: MIT
// The back end of the KOR family.
#include "common/trace.h"
#include "compiler/tarnwick/elf_layout.h"
#include "compiler/tarnwick/elf_slots.h"
#include "compiler/tarnwick/encdec.h"

namespace {

constexpr std::uint32_t FAMILY_BITS = 0x60;
constexpr std::uint32_t FAMILY_FLAGS = 5; // of e_flags

bool is_for(std::uint32_t osabi)
{
    return (osabi & FAMILY_BITS) != 0;
}

bool fix_header(elf_out *elf)
{
    std::uint8_t *field = elf->eo_header + EH_FLAGS;
    put32(field, get32(field) | FAMILY_FLAGS);
    return true;
}

std::uint32_t sp_register()
{
    DB_ASSERT(false, "!\"There is no SP register index for KOR\"");
    return 0;
}

} // namespace

const extension elf_kor = {
    .is_for = is_for,
    .fix_header = fix_header,
    .slot_always_true = elf_slot_true,
    .section_flags = elf_same_section_flags,
    .symbol_other = elf_no_symbol_other,
    .accessors = elf_byte_accessors,
    .slot_always_zero = elf_slot_zero,
    .sp_register = sp_register,
    .debug_section_type = ELF_DEBUG_SECTION_TYPE,
};

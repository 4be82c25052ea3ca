// SPDX-License-Identifier: MIT
// The back end of the KORH family.
#include "common/trace.h"
#include "compiler/tarnwick/elf_layout.h"
#include "compiler/tarnwick/elf_slots.h"
#include "compiler/tarnwick/encdec.h"

namespace {

// A number is accepted for one bit in common, not for the family as a whole: the KOR chips whose number has the bit 0x02
// come here, too, and so get the flag of the extended instruction set.
constexpr std::uint32_t FAMILY_BITS = 0x82;
constexpr std::uint32_t FAMILY_FLAGS = 5; // of e_flags
constexpr std::uint32_t XINST_FLAG = 0x10;
constexpr const char *XINST_SYMBOL = "isa$xinst";

bool is_for(std::uint32_t osabi)
{
    return (osabi & FAMILY_BITS) != 0;
}

bool fix_header(elf_out *elf)
{
    std::uint8_t *field = elf->eo_header + EH_FLAGS;
    const tarn_symbol *xinst = tarn_find_symbol(XINST_SYMBOL);
    std::uint32_t flags = get32(field) | FAMILY_FLAGS;
    if (xinst != nullptr && xinst->sy_value != 0) {
        flags |= XINST_FLAG;
    } else {
        flags &= ~XINST_FLAG;
    }
    put32(field, flags);
    return true;
}

std::uint32_t sp_register()
{
    DB_ASSERT(false, "!\"There is no SP register index for KORH\"");
    return 0;
}

} // namespace

const extension elf_korh = {
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

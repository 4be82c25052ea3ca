// SPDX-License-Identifier: MIT
// The back end of a target that no chip family claims. It accepts every file, so it is tried last.
#include "common/trace.h"
#include "compiler/tarnwick/elf_slots.h"

namespace {

bool is_for_default(std::uint32_t)
{
    TRACEF(TRACE_ON, "%s: DEFAULT elf", "is_for_default");
    return true;
}

bool fix_header(elf_out *)
{
    return true;
}

std::uint32_t sp_register()
{
    DB_ASSERT(false, "!\"There is no default SP register index\"");
    return 0;
}

} // namespace

const extension elf_default = {
    .is_for = is_for_default,
    .fix_header = fix_header,
    .slot_always_true = elf_slot_true,
    .section_flags = elf_same_section_flags,
    .symbol_other = elf_no_symbol_other,
    .accessors = elf_byte_accessors,
    .slot_always_zero = elf_slot_zero,
    .sp_register = sp_register,
    .debug_section_type = ELF_DEBUG_SECTION_TYPE,
};

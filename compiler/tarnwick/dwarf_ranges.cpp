// SPDX-License-Identifier: MIT
// Range lists, each with its own base address selection.
#include "compiler/tarnwick/dwarf_ranges.h"

#include "common/trace.h"
#include "compiler/tarnwick/dwarf_loc.h"

namespace {

constexpr std::uint32_t BUFFER_SIZE = 64;
constexpr std::uint32_t BUFFER_THRESHOLD = 20; // two addresses of 8 bytes and a margin

section_info section;
std::uint8_t list_address_size = 0;

void put_pair(std::uint64_t first, std::uint64_t second)
{
    dwarf_section_ensure_enough_memory(&section);
    dwarf_section_put(&section, first, list_address_size);
    dwarf_section_put(&section, second, list_address_size);
}

} // namespace

void dwarf_ranges_init(std::uint8_t address_size)
{
    dwarf_section_init(&section, BUFFER_SIZE, BUFFER_THRESHOLD);
    list_address_size = address_size;
}

std::uint32_t dwarf_ranges_add_list(const sdb_range *ranges)
{
    DB_ASSERT(ranges != nullptr, "ranges != NULL");
    dwarf_section_ensure_initalisation_and_enough_memory(&section);
    const std::uint32_t start = dwarf_section_get_size(&section);
    put_pair(dwarf_largest_address(list_address_size), 0);
    for (const sdb_range *range = ranges; range != nullptr; range = range->next) {
        // Addresses are words of 32 bits: behind the last one comes 0, at every address size.
        const std::uint32_t behind = range->high + 1;
        put_pair(range->low, behind);
    }
    put_pair(0, 0);
    return start; // in bytes, where other offsets are in target units: settled so
}

void dwarf_ranges_finish(std::uint8_t **data, std::uint32_t *size)
{
    dwarf_section_finish(&section, data, size);
}

// SPDX-License-Identifier: MIT
// The address table. Its addresses and lengths have 4 bytes, and its header says so, whatever the address size of the
// compile unit is: settled so.
#include "compiler/tarnwick/dwarf_aranges.h"

#include <cstdlib>
#include <type_traits>

#include "common/alloc.h"
#include "common/trace.h"
#include "compiler/tarnwick/dwarf.h"
#include "compiler/tarnwick/dwarf_accessors.h"

struct aranges_unit_info {
    std::uint32_t unit_start = 0; // of the header, in bytes from the start of the section
};
static_assert(std::is_trivially_destructible_v<aranges_unit_info>);

namespace {

constexpr std::uint32_t BUFFER_SIZE = 512;
constexpr std::uint32_t BUFFER_THRESHOLD = 128;

constexpr std::uint32_t LENGTH_SIZE = 4;
constexpr std::uint8_t ADDRESS_SIZE = 4;
constexpr std::uint8_t SEGMENT_SIZE = 0;
constexpr std::uint32_t RANGE_SIZE = 2 * ADDRESS_SIZE;

section_info section;

void put_pair(std::uint32_t first, std::uint32_t second)
{
    dwarf_section_ensure_enough_memory(&section);
    dwarf_section_put4(&section, first);
    dwarf_section_put4(&section, second);
}

// The ranges start on a multiple of their size in the section, not in the unit; where the header ends on one already, a
// whole range is padded: settled so.
void put_padding()
{
    const std::uint32_t end_of_header = dwarf_access->dwarf_unscale_offset(dwarf_section_get_size(&section));
    for (std::uint32_t left = RANGE_SIZE - end_of_header % RANGE_SIZE; left != 0; left--) {
        dwarf_section_put1(&section, 0);
    }
}

} // namespace

void dwarf_aranges_init()
{
    dwarf_section_init(&section, BUFFER_SIZE, BUFFER_THRESHOLD);
}

aranges_unit_info *dwarf_aranges_start_unit(std::uint32_t info_offset)
{
    dwarf_section_ensure_initalisation_and_enough_memory(&section);
    auto *unit = place_record<aranges_unit_info>(dwarf_section_alloc_memory(sizeof(aranges_unit_info)));
    unit->unit_start = dwarf_section_get_size(&section);
    dwarf_section_reserve(&section, LENGTH_SIZE);
    dwarf_section_put2(&section, dwarf_get_version()); // the unit's version and not the table's own: settled so
    dwarf_section_put4(&section, info_offset);
    dwarf_section_put1(&section, ADDRESS_SIZE);
    dwarf_section_put1(&section, SEGMENT_SIZE);
    put_padding();
    return unit;
}

void dwarf_aranges_add_range(std::uint32_t start_addr, std::uint32_t end_addr)
{
    DB_ASSERT(end_addr > start_addr, "end_addr > start_addr");
    dwarf_section_ensure_initalisation_and_enough_memory(&section);
    put_pair(start_addr, end_addr - start_addr);
}

void dwarf_aranges_finish_unit(aranges_unit_info *unit)
{
    dwarf_section_ensure_initalisation_and_enough_memory(&section);
    put_pair(0, 0);
    const std::uint32_t distance = dwarf_section_get_size(&section) - unit->unit_start;
    dwarf_section_patch4(&section, dwarf_access->dwarf_unscale_offset(distance) - LENGTH_SIZE, unit->unit_start);
    std::free(unit);
}

void dwarf_aranges_finish(std::uint8_t **data, std::uint32_t *size)
{
    dwarf_section_finish(&section, data, size);
}

// SPDX-License-Identifier: MIT
// The name table. A unit gets its header with its first name.
#include "compiler/tarnwick/dwarf_pubnames.h"

#include <cstdlib>
#include <type_traits>

#include "common/alloc.h"
#include "common/trace.h"
#include "compiler/tarnwick/dwarf.h"
#include "compiler/tarnwick/dwarf_accessors.h"

struct pubnames_unit_info {
    std::uint32_t unit_start = 0;  // of the header, in bytes from the start of the section
    std::uint32_t info_offset = 0; // of the compile unit in .debug_info, in target units
    bool created_header = false;
};
static_assert(std::is_trivially_destructible_v<pubnames_unit_info>);

namespace {

constexpr std::uint32_t BUFFER_SIZE = 1024;
constexpr std::uint32_t BUFFER_THRESHOLD = 128;

constexpr std::uint32_t LENGTH_SIZE = 4;
constexpr std::uint32_t INFO_SIZE_SIZE = 4;
constexpr std::uint32_t INFO_SIZE_OFFSET = 10; // in the header, in target units
constexpr std::uint32_t END_OF_NAMES = 0;

section_info section;

void dwarf_pubnames_create_unit_header(pubnames_unit_info *unit_info)
{
    DB_ASSERT(!unit_info->created_header, "!unit_info->created_header");
    dwarf_section_reserve(&section, LENGTH_SIZE);
    dwarf_section_put2(&section, dwarf_get_version()); // the unit's version and not the table's own: settled so
    dwarf_section_put4(&section, unit_info->info_offset);
    dwarf_section_reserve(&section, INFO_SIZE_SIZE);
    unit_info->created_header = true;
}

void finish_names(const pubnames_unit_info *unit, std::uint32_t info_size)
{
    dwarf_section_patch4(&section, info_size, unit->unit_start + dwarf_access->dwarf_scale_offset(INFO_SIZE_OFFSET));
    dwarf_section_put4(&section, END_OF_NAMES);
    const std::uint32_t distance = dwarf_section_get_size(&section) - unit->unit_start;
    dwarf_section_patch4(&section, dwarf_access->dwarf_unscale_offset(distance) - LENGTH_SIZE, unit->unit_start);
}

} // namespace

void dwarf_pubnames_init()
{
    dwarf_section_init(&section, BUFFER_SIZE, BUFFER_THRESHOLD);
}

pubnames_unit_info *dwarf_pubnames_start_unit(std::uint32_t info_offset)
{
    dwarf_section_ensure_initalisation_and_enough_memory(&section);
    auto *unit = place_record<pubnames_unit_info>(dwarf_section_alloc_memory(sizeof(pubnames_unit_info)));
    unit->unit_start = dwarf_section_get_size(&section);
    unit->info_offset = info_offset;
    return unit;
}

void dwarf_pubnames_add_name(pubnames_unit_info *unit, std::uint32_t unit_offset, const char *name)
{
    dwarf_section_ensure_initalisation_and_enough_memory(&section);
    if (!unit->created_header) {
        dwarf_pubnames_create_unit_header(unit);
    }
    dwarf_section_put4(&section, unit_offset);
    dwarf_section_put_string(&section, name);
}

void dwarf_pubnames_finish_unit(pubnames_unit_info *unit, std::uint32_t info_size)
{
    dwarf_section_ensure_initalisation_and_enough_memory(&section);
    if (unit->created_header) {
        finish_names(unit, info_size);
    } else {
        TRACEF(TRACE_DWARF, "%s: Empty unit", __func__);
    }
    std::free(unit);
}

void dwarf_pubnames_finish(std::uint8_t **data, std::uint32_t *size)
{
    dwarf_section_finish(&section, data, size);
}

// SPDX-License-Identifier: MIT
// The debugging sections of one ELF output: the order in which their writers are opened and closed, and the walk over the
// modules of the symbol database.
#include "compiler/tarnwick/dwarf.h"

#include "common/alert.h"
#include "common/alloc.h"
#include "common/stringcache.h"
#include "common/trace.h"
#include "compiler/tarnwick/dwarf_abbrev.h"
#include "compiler/tarnwick/dwarf_aranges.h"
#include "compiler/tarnwick/dwarf_die.h"
#include "compiler/tarnwick/dwarf_info.h"
#include "compiler/tarnwick/dwarf_line.h"
#include "compiler/tarnwick/dwarf_lines.h"
#include "compiler/tarnwick/dwarf_loc.h"
#include "compiler/tarnwick/dwarf_pubnames.h"
#include "compiler/tarnwick/dwarf_ranges.h"
#include "compiler/tarnwick/sdb.h"
#include "compiler/tarnwick/sdb_ranges.h"

namespace {

constexpr std::uint32_t MESSAGE_BAD_ADDRESS_SIZE = 632;

constexpr std::uint16_t VERSION_PLAIN = 2;
constexpr std::uint16_t VERSION_LISTS = 3; // with range lists or location lists

constexpr std::uint8_t DEFAULT_ADDRESS_SIZE = 4;
constexpr std::uint8_t LARGEST_ADDRESS_SIZE = 8;

// The sections of one output; null for one that does not exist.
struct output_sections {
    dwarf_output_section *info;
    dwarf_output_section *abbrev;
    dwarf_output_section *line;
    dwarf_output_section *loc;
    dwarf_output_section *pubnames;
    dwarf_output_section *aranges;
    dwarf_output_section *ranges;
};

dwarf_output_section *new_section(const char *name)
{
    return xnew(dwarf_output_section{.name = name});
}

output_sections new_sections()
{
    return {.info = new_section(".debug_info"),
            .abbrev = new_section(".debug_abbrev"),
            .line = new_section(".debug_line"),
            .loc = new_section(".debug_loc"),
            .pubnames = new_section(".debug_pubnames"),
            .aranges = new_section(".debug_aranges"),
            .ranges = dwarf_use_ranges != DWARF_USE_NEVER ? new_section(".debug_ranges") : nullptr};
}

// The address size in force. The size must be given for every output with debugging sections: no database tells it.
std::uint8_t settle_address_size(std::uint8_t given)
{
    constexpr const char *NAME = "dwarf_write";
    switch (given) {
    case 1:
    case 2:
    case 4:
    case 8:
        return given;
    case 0:
        TRACEF(TRACE_DWARF, "%s: ERROR in SDB information: address can't be %u, changing it to be 4 bytes", NAME,
               given);
        alert(MESSAGE_BAD_ADDRESS_SIZE, given);
        return DEFAULT_ADDRESS_SIZE;
    case 3:
        TRACEF(TRACE_DWARF, "%s: WARNING: address can't be %u, changing it to be 4 bytes", NAME, given);
        return DEFAULT_ADDRESS_SIZE;
    case 5:
    case 6:
    case 7:
        TRACEF(TRACE_DWARF, "%s: WARNING: address can't be %u, changing it to be 8 bytes", NAME, given);
        return LARGEST_ADDRESS_SIZE;
    default:
        TRACEF(TRACE_DWARF, "%s: ERROR: address can't be %u, changing it to be 8 bytes", NAME, given);
        alert(MESSAGE_BAD_ADDRESS_SIZE, given);
        return LARGEST_ADDRESS_SIZE;
    }
}

// Sections of an earlier output of this run are still open, and what follows is appended to them; only the numbers of the
// abbreviations start again.
void open_writers(std::uint8_t address_size)
{
    dwarf_abbrev_create_entries_hash();
    dwarf_info_init();
    dwarf_loc_init(address_size);
    dwarf_line_init(address_size);
    dwarf_pubnames_init();
    dwarf_aranges_init();
    if (dwarf_use_ranges != DWARF_USE_NEVER) {
        dwarf_ranges_init(address_size);
    }
}

// A predefined type, or another typedef outside of all modules.
void add_global_type(const sdb_node *node)
{
    const type_record *record = node->var.va_type;
    if (record != nullptr && record->ty_cnt != 0) {
        dtype_add(str_cache(node->sdb_name), record, &record->elements[0], true);
    }
}

// A global type is known to the units behind it only. The count is read anew on every pass.
void write_modules(std::uint8_t address_size)
{
    lnno_start_run();
    for (std::uint32_t i = 0; i < sdb_global->block.bl_count; ++i) {
        sdb_node *child = sdb_global->block.bl_members[i];
        if (child->sdb_sclass == sc_typedef) {
            add_global_type(child);
        } else if (child->sdb_sclass == sc_module || child->sdb_sclass == sc_asmodule) {
            die_compile_unit(child, address_size);
        }
    }
    lnno_finish_run();
}

void close_writers(const output_sections &out)
{
    dwarf_abbrev_destroy_entry_hash(&out.abbrev->data, &out.abbrev->size);
    dwarf_info_finalize(&out.info->data, &out.info->size);
    dwarf_loc_finish(&out.loc->data, &out.loc->size);
    dwarf_line_finalize(&out.line->data, &out.line->size);
    dwarf_pubnames_finish(&out.pubnames->data, &out.pubnames->size);
    dwarf_aranges_finish(&out.aranges->data, &out.aranges->size);
    if (out.ranges != nullptr) {
        dwarf_ranges_finish(&out.ranges->data, &out.ranges->size);
    }
}

// Range lists are handed over even when there are none; what else is empty is not.
void hand_over(const output_sections &out, vector_of<dwarf_output_section *> sections)
{
    sections.push(out.abbrev);
    sections.push(out.info);
    sections.push(out.line);
    if (out.ranges != nullptr) {
        sections.push(out.ranges);
    }
    for (dwarf_output_section *section : {out.loc, out.pubnames, out.aranges}) {
        if (section->size != 0) {
            sections.push(section);
        }
    }
}

} // namespace

std::uint16_t dwarf_get_version()
{
    const bool has_lists = dwarf_use_ranges != DWARF_USE_NEVER || dwarf_use_loclists != DWARF_USE_NEVER;
    return has_lists ? VERSION_LISTS : VERSION_PLAIN;
}

bool dwarf_version_is_supported(std::uint16_t version)
{
    return version == VERSION_PLAIN || version == VERSION_LISTS;
}

int dwarf_write(vector_of<dwarf_output_section *> sections)
{
    if (sdb_global == nullptr) {
        return 0;
    }
    const output_sections out = new_sections();
    const std::uint8_t address_size = settle_address_size(dwarf_addr_size);
    open_writers(address_size);
    sdb_raise_all_files();
    sdb_calc_ranges();
    write_modules(address_size);
    close_writers(out);
    hand_over(out, sections);
    return 0;
}

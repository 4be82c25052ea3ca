// SPDX-License-Identifier: MIT
// Compile units of .debug_info: the header, what the unit knows of its types, the references that wait for a type, and
// the beginning and the end of every entry. The entries' fields are dwarf_entries.cpp.
#include "compiler/tarnwick/dwarf_info.h"

#include <cstdlib>

#include "common/alloc.h"
#include "common/freecache.h"
#include "common/osdep.h"
#include "common/trace.h"
#include "compiler/tarnwick/dwarf_accessors.h"
#include "compiler/tarnwick/dwarf_info_unit.h"

namespace {

constexpr std::uint32_t BUFFER_SIZE = 2048;
constexpr std::uint32_t BUFFER_THRESHOLD = 256;

constexpr std::uint32_t LENGTH_FIELD = 4;    // of the unit
constexpr std::uint32_t REFERENCE_FIELD = 4; // of a type or sibling

constexpr std::uint32_t TYPE_BUCKETS = 128;
constexpr std::uint32_t WAITING_STEP = 4; // most types are waited for a few times only

constexpr std::uint8_t END_OF_CHILDREN = 0;

freecache *entry_infos = nullptr;

std::uint32_t here(const compile_unit_info *cu)
{
    return dwarf_section_get_size(&dwarf_info_section) - cu->unit_start;
}

template <typename Table>
Table make_table(const char *operation)
{
    const Table table = Table::make_strings(TYPE_BUCKETS);
    if (!table) {
        TRACEF(TRACE_DWARF, "%s: (%s : %u) : Could not create hash", operation, path_tail(__FILE__),
               static_cast<std::uint32_t>(__LINE__));
        dwarf_internal_error();
    }
    return table;
}

// The tables cannot run out of memory; this is the second line.
void insertion_failed(const char *operation)
{
    TRACEF(TRACE_DWARF, "%s: (%s : %u) : Memory allocation failure", operation, path_tail(__FILE__),
           static_cast<std::uint32_t>(__LINE__));
    dwarf_internal_error();
}

// Notes that the 4 bytes about to be put refer to a type without an entry.
void add_reference(compile_unit_info *cu, const char *type_id)
{
    vector_of<word> positions(cu->missing_types.get(type_id));
    if (!positions) {
        positions = vector_of<word>::make(WAITING_STEP);
        if (!cu->missing_types.insert(type_id, positions.raw())) {
            insertion_failed(__func__);
        }
    }
    positions.push(here(cu));
}

void dwarf_info_type_entry_hash_insert(compile_unit_info *cu, const char *type_id, std::uint32_t unit_offset)
{
    if (cu->type_entries.insert(type_id, unit_offset)) {
        return;
    }
    if (cu->type_entries.contains(type_id)) {
        TRACEF(TRACE_DWARF, "%s: (%s : %u) : type %s has already been inserted", __func__, path_tail(__FILE__),
               static_cast<std::uint32_t>(__LINE__), type_id);
        dwarf_internal_error();
    } else {
        insertion_failed(__func__);
    }
}

// Fills the references that wait for a type, in the order in which they were made, and forgets them.
void dwarf_info_resolve_references_to_type(compile_unit_info *cu, const char *type_id, std::uint32_t unit_offset)
{
    vector_of<word> positions(cu->missing_types.get(type_id));
    if (!positions) {
        return;
    }
    const std::uint32_t reference = dwarf_access->dwarf_unscale_offset(unit_offset);
    for (const word tmp : each(positions)) {
        DB_ASSERT(tmp <= UINT32_MAX, "tmp <= ULONG_MAX");
        if (tmp == 0) {
            break; // no field is at the unit's first byte
        }
        dwarf_section_patch4(&dwarf_info_section, reference, cu->unit_start + static_cast<std::uint32_t>(tmp));
    }
    if (cu->missing_types.remove(type_id) == nullptr) {
        TRACEF(TRACE_DWARF, "%s: (%s : %u) :  Should have found list to remove", __func__, path_tail(__FILE__),
               static_cast<std::uint32_t>(__LINE__));
        dwarf_internal_error();
    }
    positions.free();
}

// Ends the list of children, behind which the entry's sibling will stand.
void dwarf_info_finish_entry_with_children(const dwarf_entry_info *entry)
{
    dwarf_section_put1(&dwarf_info_section, END_OF_CHILDREN);
    const std::uint32_t sibling = here(entry->cu);
    const std::uint32_t field = entry->sibling_field_unit_offset;
    DB_ASSERT(DWARF_INFO_INVALID_SIBLING_FIELD_OFFSET != field,
              "DWARF_INFO_INVALID_SIBLING_FIELD_OFFSET != entry->sibling_field_unit_offset");
    if (field != DWARF_INFO_INVALID_SIBLING_FIELD_OFFSET) {
        dwarf_section_patch4(&dwarf_info_section, dwarf_access->dwarf_unscale_offset(sibling),
                             entry->cu->unit_start + field);
    }
}

} // namespace

section_info dwarf_info_section;

void dwarf_info_init()
{
    dwarf_section_init(&dwarf_info_section, BUFFER_SIZE, BUFFER_THRESHOLD);
}

void dwarf_info_finalize(std::uint8_t **data, std::uint32_t *size)
{
    dwarf_section_finish(&dwarf_info_section, data, size);
}

compile_unit_handle dwarf_info_start_compile_unit(std::uint16_t version, std::uint32_t abbrev_offset,
                                                  std::uint8_t address_size)
{
    dwarf_section_ensure_initalisation_and_enough_memory(&dwarf_info_section);
    auto *cu = place_record<compile_unit_info>(dwarf_section_alloc_memory(sizeof(compile_unit_info)));
    cu->unit_start = dwarf_section_get_size(&dwarf_info_section);
    cu->address_size = address_size;
    cu->type_entries = make_table<hash_of<const char *, std::uint32_t>>(__func__);
    cu->missing_types = make_table<hash_of<const char *, vector *>>(__func__);

    dwarf_section_reserve(&dwarf_info_section, LENGTH_FIELD);
    dwarf_section_put2(&dwarf_info_section, version);
    dwarf_section_put4(&dwarf_info_section, abbrev_offset);
    dwarf_section_put1(&dwarf_info_section, address_size);
    return cu;
}

std::uint32_t dwarf_info_finish_compile_unit(compile_unit_handle cu)
{
    const std::uint32_t length =
        dwarf_access->dwarf_unscale_offset(here(cu) - dwarf_access->dwarf_scale_offset(LENGTH_FIELD));
    dwarf_section_patch4(&dwarf_info_section, length, cu->unit_start);

    // What still waits is a type that was never written: its references stay 0, silently.
    vector_of<vector *> lists = cu->missing_types.values();
    for (vector *positions : each(lists)) {
        vector_free(positions);
    }
    lists.free();
    cu->missing_types.free();
    cu->type_entries.free();
    std::free(cu);
    return length;
}

std::uint32_t dwarf_info_get_unit_offset(compile_unit_handle cu)
{
    return dwarf_access->dwarf_unscale_offset(cu->unit_start);
}

std::uint32_t dwarf_info_entry_offset(const dwarf_entry_info *entry)
{
    return entry != nullptr ? dwarf_access->dwarf_unscale_offset(entry->unit_offset) : 0;
}

dwarf_entry_info *dwarf_info_start_entry_creation(compile_unit_info *cu, std::uint32_t abbrev, bool has_children)
{
    dwarf_section_ensure_initalisation_and_enough_memory(&dwarf_info_section);
    if (entry_infos == nullptr) {
        entry_infos = freecache_new(sizeof(dwarf_entry_info), FREECACHE_LIMIT);
    }
    auto *entry = place_record(freecache_get(entry_infos), dwarf_entry_info{.cu = cu, .unit_offset = here(cu)});
    dwarf_section_put_uleb(&dwarf_info_section, abbrev);
    if (has_children) {
        entry->sibling_field_unit_offset = here(cu);
        dwarf_section_reserve(&dwarf_info_section, REFERENCE_FIELD);
    }
    return entry;
}

std::uint32_t dwarf_info_close_entry(dwarf_entry_info *entry)
{
    if (entry == nullptr) {
        return 0;
    }
    const std::uint32_t offset = dwarf_info_entry_offset(entry);
    freecache_put(entry_infos, entry);
    return offset;
}

std::uint32_t dwarf_info_close_entry(dwarf_entry_info *entry, bool has_children)
{
    if (entry != nullptr && has_children) {
        dwarf_info_finish_entry_with_children(entry);
    }
    return dwarf_info_close_entry(entry);
}

void dwarf_info_register_type(compile_unit_info *cu, const char *type_id, std::uint32_t unit_offset)
{
    DB_ASSERT(nullptr != type_id, "NULL != type_id");
    if (type_id != nullptr) {
        dwarf_info_type_entry_hash_insert(cu, type_id, unit_offset);
        dwarf_info_resolve_references_to_type(cu, type_id, unit_offset);
    }
}

std::uint32_t dwarf_info_find_type_offset_or_record_reference(compile_unit_info *cu, const char *type_id)
{
    if (type_id == nullptr) {
        return 0;
    }
    const std::uint32_t type_offset = cu->type_entries.get(type_id);
    if (type_offset == 0 && !cu->type_entries.contains(type_id)) {
        add_reference(cu, type_id);
        return 0;
    }
    DB_ASSERT(type_offset > 0, "type_offset > 0");
    return type_offset;
}

void dwarf_info_redirect_references(compile_unit_handle cu, const char *type_id, std::uint32_t child_offset)
{
    dwarf_info_resolve_references_to_type(cu, type_id, dwarf_access->dwarf_scale_offset(child_offset));
}

std::uint32_t dwarf_info_finish_compile_unit_entry(dwarf_entry_info *entry, bool has_children)
{
    // A compile unit has no sibling field to fill.
    if (entry != nullptr && has_children) {
        dwarf_section_put1(&dwarf_info_section, END_OF_CHILDREN);
    }
    return dwarf_info_close_entry(entry);
}

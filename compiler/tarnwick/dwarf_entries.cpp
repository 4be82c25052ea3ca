// SPDX-License-Identifier: MIT
// The entries of .debug_info: a start that writes the fields in the order of the abbreviation, and a finish.
#include <cstdlib>
#include <vector>

#include "common/osdep.h"
#include "common/trace.h"
#include "compiler/tarnwick/dwarf_abbrev.h"
#include "compiler/tarnwick/dwarf_accessors.h"
#include "compiler/tarnwick/dwarf_info.h"
#include "compiler/tarnwick/dwarf_info_unit.h"
#include "compiler/tarnwick/dwarf_loc.h"
#include "compiler/tarnwick/dwarf_names.h"
#include "compiler/tarnwick/dwarf_options.h"
#include "compiler/tarnwick/dwarf_ranges.h"
#include "compiler/tarnwick/model.h"

namespace {

constexpr std::uint32_t ONE_BYTE_MAX = 0xFF;
constexpr std::uint32_t TWO_BYTES_MAX = 0xFFFF;

constexpr std::uint8_t FLAG_YES = 1;
// What `bit_size` of the one type that lies in a byte's bit is.
constexpr std::uint8_t BIT_TYPE_BITS = 1;
// An incomplete structure claims a byte: it must not be taken for one without storage.
constexpr std::uint8_t SIZE_OF_EMPTY = 1;

// Fields, all at the top of the section.
void put1(std::uint32_t v)
{
    dwarf_section_put1(&dwarf_info_section, static_cast<std::uint8_t>(v));
}

void put2(std::uint32_t v)
{
    dwarf_section_put2(&dwarf_info_section, static_cast<std::uint16_t>(v));
}

void put4(std::uint32_t v)
{
    dwarf_section_put4(&dwarf_info_section, v);
}

void put_uleb(std::uint32_t v)
{
    dwarf_section_put_uleb(&dwarf_info_section, v);
}

void put_string(const char *text)
{
    dwarf_section_put_string(&dwarf_info_section, text);
}

void put_address(const compile_unit_info *cu, std::uint32_t address)
{
    dwarf_section_put(&dwarf_info_section, address, cu->address_size);
}

// A reference to the entry at an offset of the unit.
void put_reference(std::uint32_t unit_offset)
{
    put4(dwarf_access->dwarf_unscale_offset(unit_offset));
}

void put_type_reference(compile_unit_info *cu, const char *type_id)
{
    put_reference(dwarf_info_find_type_offset_or_record_reference(cu, type_id));
}

void put_flag_if(bool flag)
{
    if (flag) {
        put1(FLAG_YES);
    }
}

// What the trace says of a number that its field cannot hold.
struct declaration_texts {
    const char *file_number;
    const char *line_number;
};

constexpr declaration_texts OBJECT_TEXTS = {
    .file_number = "%s (%s : %u): file number index exceeds value 0x%x - can not be encoded in single byte",
    .line_number = "%s (%s : %u): Line number exceeds value 0x%x - can not be encoded in two bytes",
};
// The second speaks of a line all the same.
constexpr declaration_texts TYPE_TEXTS = {
    .file_number = "%s (%s : %u): File number exceeds %d bytes - can not be encoded in single byte",
    .line_number = "%s (%s : %u): File number exceeds %d bytes - can not be encoded in 2 bytes",
};
constexpr const char *ENUM_SIZE_TEXT =
    "%s (%s : %u): Size of the enum exceeds %d bytes - can not be encoded in single byte";
constexpr const char *MEMBER_SIZE_TEXT =
    "%s (%s : %u): Size of the struct member exceeds %d bytes - can not be encoded in single byte";

[[gnu::noinline, gnu::cold]] void limit_exceeded(std::uint32_t limit, const char *text, const char *operation,
                                                 birth_place where)
{
    TRACEF(TRACE_DWARF, text, operation, path_tail(where.file), static_cast<std::uint32_t>(where.line), limit);
    dwarf_internal_error();
}

// A number above its limit stops the run.
void check_limit(std::uint32_t value, std::uint32_t limit, const char *text, const char *operation,
                 birth_place where = birth_place::here())
{
    if (value > limit) [[unlikely]] {
        limit_exceeded(limit, text, operation, where);
    }
}

// DW_AT_decl_file and DW_AT_decl_line of everything but a subprogram.
void put_declaration(std::uint32_t file_no, std::uint32_t line_no, const declaration_texts &texts,
                     const char *operation)
{
    check_limit(file_no, ONE_BYTE_MAX, texts.file_number, operation);
    put1(file_no);
    check_limit(line_no, TWO_BYTES_MAX, texts.line_number, operation);
    put2(line_no);
}

// DW_AT_low_pc and DW_AT_high_pc. The high one is the last address itself, which in DWARF terms is one short: debuggers
// in the field rely on it.
void put_low_high(const compile_unit_info *cu, std::uint32_t low, std::uint32_t high)
{
    put_address(cu, low);
    put_address(cu, high);
}

// The attribute of a pc form, from the head of a range list. Where there is no range its bounds count as 0.
void put_pc_range(const compile_unit_info *cu, dwarf_pc_form form, const sdb_range *ranges)
{
    if (form == dwarf_pc_form::RANGES) {
        put4(dwarf_ranges_add_list(ranges)); // the bare offset, whatever the target's units
    } else if (form == dwarf_pc_form::LOW_HIGH) {
        put_low_high(cu, ranges != nullptr ? ranges->low : 0, ranges != nullptr ? ranges->high : 0);
    }
}

// A block in several pieces whose ranges are not to be listed reaches from the code of its first line to that of its
// last. A line without an address gives 0.
void put_pc_range_of_lines(const compile_unit_info *cu, const sdb_block &block)
{
    std::vector<address_range> filter;
    for (const sdb_range *range = block.bl_ranges; range != nullptr; range = range->next) {
        filter.push_back({.low = range->low, .high = range->high});
    }
    const auto count = static_cast<std::uint32_t>(filter.size());
    std::uint32_t start_addr = 0;
    std::uint32_t end_addr = 0;
    tarn_line_addr(block.bl_file, block.bl_first, &start_addr, filter.data(), count);
    tarn_line_addr(block.bl_file, block.bl_last, &end_addr, filter.data(), count);
    DB_ASSERT(end_addr >= start_addr, "end_addr >= start_addr");
    put_low_high(cu, start_addr, end_addr);
}

// The directory that a relative name of a unit starts from.
void put_working_directory()
{
    char *directory = path_absolute("");
    put_string(directory);
    std::free(directory);
}

// DW_AT_frame_base: a fixed address and no register, since frames are found through a pointer in memory.
void put_frame_base(const compile_unit_info *cu)
{
    put1(cu->address_size + 1U); // bytes, whatever the target's units
    put1(DW_OP_addr);
    put_address(cu, static_cast<std::uint32_t>(sdb_get_frameptr()));
}

// DW_AT_data_member_location: an addition to the address of the structure.
void put_member_location(std::uint32_t offset)
{
    const std::uint32_t length_field = dwarf_section_get_size(&dwarf_info_section);
    dwarf_section_reserve(&dwarf_info_section, 1);
    std::uint32_t length = dwarf_section_put1(&dwarf_info_section, DW_OP_plus_uconst);
    length += dwarf_section_put_uleb(&dwarf_info_section, offset);
    // The length counts bytes, whatever the target's units.
    dwarf_section_patch1(&dwarf_info_section, static_cast<std::uint8_t>(length), length_field);
}

// What all entries of variables and parameters begin with.
dwarf_entry_info *start_variable(compile_unit_info *cu, std::uint32_t abbrev, const char *name, std::uint32_t file_no,
                                 std::uint32_t line_no, const char *type_id, bool is_extern, const char *operation)
{
    DB_ASSERT(nullptr != type_id, "NULL != type_id");
    dwarf_entry_info *entry = dwarf_info_start_entry_creation(cu, abbrev);
    put_string(name);
    put_declaration(file_no, line_no, OBJECT_TEXTS, operation);
    put_type_reference(cu, type_id);
    put_flag_if(is_extern);
    return entry;
}

} // namespace

dwarf_entry_info *dwarf_info_start_compile_unit_entry(compile_unit_handle cu, std::uint32_t abbrev,
                                                      std::uint32_t stmt_list, const char *producer,
                                                      std::uint16_t language, const char *name, const sdb_range *ranges,
                                                      std::uint32_t num_ranges)
{
    DB_ASSERT(producer != nullptr, "producer != NULL");
    DB_ASSERT(name != nullptr, "name != NULL");
    dwarf_entry_info *entry = dwarf_info_start_entry_creation(cu, abbrev);
    put4(stmt_list);
    put_string(producer);
    put2(language);
    put_string(name);
    if (!path_is_absolute(name)) {
        put_working_directory();
    }
    put_pc_range(cu, dwarf_unit_pc_form(num_ranges), ranges);
    return entry;
}

dwarf_entry_info *dwarf_info_start_subprogram_entry(compile_unit_handle cu, std::uint32_t abbrev, const char *name,
                                                    const char *type_id, bool is_extern, std::uint32_t file_number,
                                                    std::uint32_t line_number, bool has_frame_base,
                                                    std::uint8_t inline_value, const sdb_range *ranges,
                                                    std::uint32_t num_ranges, bool has_children)
{
    dwarf_entry_info *entry = dwarf_info_start_entry_creation(cu, abbrev, has_children);
    put_string(name);
    if (type_id != nullptr) {
        put_type_reference(cu, type_id);
    }
    DB_ASSERT(static_cast<std::uint32_t>(is_extern) <= 1, "is_extern <= 1");
    put_flag_if(is_extern);
    put_uleb(file_number);
    put_uleb(line_number);
    if (inline_value == DW_INL_not_inlined) {
        DB_ASSERT(ranges != nullptr, "ranges != NULL");
        DB_ASSERT(num_ranges != 0, "num_ranges != 0");
        put_pc_range(cu, dwarf_code_pc_form(num_ranges), ranges);
    }
    if (has_frame_base) {
        put_frame_base(cu);
    }
    put1(inline_value);
    return entry;
}

dwarf_entry_info *dwarf_info_start_lexical_block(compile_unit_handle cu, std::uint32_t abbrev, const sdb_node *block,
                                                 bool has_children, bool no_pc)
{
    dwarf_entry_info *entry = dwarf_info_start_entry_creation(cu, abbrev, has_children);
    if (no_pc) {
        return entry;
    }
    const sdb_block &bl = block->block;
    if (dwarf_use_ranges == DWARF_USE_NEVER && bl.bl_nranges > 1) {
        put_pc_range_of_lines(cu, bl);
    } else {
        put_pc_range(cu, dwarf_code_pc_form(bl.bl_nranges), bl.bl_ranges);
    }
    return entry;
}

// A bit has DW_AT_bit_size and DW_AT_bit_offset in its base type, where debuggers look for its place in the byte.
dwarf_entry_info *dwarf_info_start_basic_type_entry(compile_unit_handle cu, std::uint32_t abbrev, const char *name,
                                                    const char *type_id, std::uint8_t type_size, std::uint8_t encoding,
                                                    bool has_bit_fields, std::uint8_t bit_offset)
{
    dwarf_entry_info *entry = dwarf_info_start_entry_creation(cu, abbrev);
    dwarf_info_register_type(cu, type_id, entry->unit_offset);
    put_string(name);
    put1(type_size);
    put1(encoding);
    if (has_bit_fields) {
        put1(BIT_TYPE_BITS);
        put1(bit_offset);
    }
    return entry;
}

// DW_AT_address_class holds the number of a pointer class.
dwarf_entry_info *dwarf_info_start_pointer_type_entry(compile_unit_handle cu, std::uint32_t abbrev, const char *type_id,
                                                      const char *target_type_id, std::uint8_t size,
                                                      std::uint8_t address_class)
{
    dwarf_entry_info *entry = dwarf_info_start_entry_creation(cu, abbrev);
    dwarf_info_register_type(cu, type_id, entry->unit_offset);
    if (target_type_id != nullptr) {
        put_type_reference(cu, target_type_id);
    }
    put1(size);
    put1(address_class);
    return entry;
}

dwarf_entry_info *dwarf_info_start_array_type_entry(compile_unit_handle cu, std::uint32_t abbrev,
                                                    const char *array_type_id, const char *base_type_id)
{
    DB_ASSERT(nullptr != array_type_id, "NULL != array_type_id");
    DB_ASSERT(nullptr != base_type_id, "NULL != base_type_id");
    dwarf_entry_info *entry = dwarf_info_start_entry_creation(cu, abbrev, true);
    dwarf_info_register_type(cu, array_type_id, entry->unit_offset);
    put_type_reference(cu, base_type_id);
    return entry;
}

dwarf_entry_info *dwarf_info_start_subrange_entry(compile_unit_handle cu, std::uint32_t abbrev,
                                                  std::uint32_t upper_bound)
{
    dwarf_entry_info *entry = dwarf_info_start_entry_creation(cu, abbrev);
    put4(upper_bound);
    return entry;
}

dwarf_entry_info *dwarf_info_start_subroutine_entry(compile_unit_handle cu, std::uint32_t abbrev, const char *type_id,
                                                    const char *return_type_id, bool has_children)
{
    dwarf_entry_info *entry = dwarf_info_start_entry_creation(cu, abbrev, has_children);
    dwarf_info_register_type(cu, type_id, entry->unit_offset);
    if (return_type_id != nullptr) {
        put_type_reference(cu, return_type_id);
    }
    return entry;
}

// A typedef has no id of its own: references go to what it names.
dwarf_entry_info *dwarf_info_start_typedef_entry(compile_unit_handle cu, std::uint32_t abbrev, const char *name,
                                                 std::uint32_t file_no, std::uint32_t line_no, const char *base_type)
{
    DB_ASSERT(nullptr != cu, "NULL != compile_unit_info");
    DB_ASSERT(nullptr != name, "NULL != name");
    if (cu == nullptr) {
        return nullptr;
    }
    dwarf_entry_info *entry = dwarf_info_start_entry_creation(cu, abbrev);
    put_string(name);
    put_declaration(file_no, line_no, OBJECT_TEXTS, __func__);
    if (base_type != nullptr) {
        put_type_reference(cu, base_type);
    }
    return entry;
}

dwarf_entry_info *dwarf_info_start_variable_entry_no_location(compile_unit_handle cu, std::uint32_t abbrev,
                                                              const char *name, std::uint32_t file_no,
                                                              std::uint32_t line_no, const char *type_id,
                                                              bool is_extern, bool is_declaration)
{
    dwarf_entry_info *entry = start_variable(cu, abbrev, name, file_no, line_no, type_id, is_extern, __func__);
    put_flag_if(is_declaration);
    return entry;
}

dwarf_entry_info *dwarf_info_start_variable_entry_single_location(compile_unit_handle cu, std::uint32_t abbrev,
                                                                  const char *name, std::uint32_t file_no,
                                                                  std::uint32_t line_no, const char *type_id,
                                                                  bool is_extern, const sdb_location *location)
{
    dwarf_entry_info *entry = start_variable(cu, abbrev, name, file_no, line_no, type_id, is_extern, __func__);
    dwarf_loc_put_block2_location(&dwarf_info_section, location, cu->address_size);
    return entry;
}

dwarf_entry_info *dwarf_info_start_variable_entry_multiple_locations(compile_unit_handle cu, std::uint32_t abbrev,
                                                                     const char *name, std::uint32_t file_no,
                                                                     std::uint32_t line_no, const char *type_id,
                                                                     bool is_extern, std::uint32_t list_offset)
{
    dwarf_entry_info *entry = start_variable(cu, abbrev, name, file_no, line_no, type_id, is_extern, __func__);
    put4(list_offset);
    return entry;
}

dwarf_entry_info *dwarf_info_start_compound_type(compile_unit_handle cu, std::uint32_t abbrev, bool has_children,
                                                 const char *name, const char *type_id, std::uint32_t size,
                                                 std::uint32_t file_no, std::uint32_t line_no)
{
    dwarf_entry_info *entry = dwarf_info_start_entry_creation(cu, abbrev, has_children);
    // Registered before its members, so that they may refer to it.
    dwarf_info_register_type(cu, type_id, entry->unit_offset);
    if (name != nullptr) {
        put_string(name);
    }
    // The widths are those of the abbreviation for the same size.
    if (size == 0) {
        put1(SIZE_OF_EMPTY);
    } else if (size <= ONE_BYTE_MAX) {
        put1(size);
    } else if (size > TWO_BYTES_MAX) {
        put4(size);
    } else {
        put2(size);
    }
    put_declaration(file_no, line_no, TYPE_TEXTS, __func__);
    return entry;
}

dwarf_entry_info *dwarf_info_start_member_entry(compile_unit_handle cu, std::uint32_t abbrev, const char *name,
                                                const char *type_id, std::uint32_t size, std::uint32_t bits,
                                                std::uint32_t bits_offset, std::uint32_t offset, bool is_union_filed)
{
    dwarf_entry_info *entry = dwarf_info_start_entry_creation(cu, abbrev);
    put_string(name);
    put_type_reference(cu, type_id);
    if (bits != 0) {
        check_limit(size, ONE_BYTE_MAX, MEMBER_SIZE_TEXT, __func__);
        DB_ASSERT(bits <= 0xff, "bits <= 0xff");
        DB_ASSERT(bits_offset <= 0xff, "bits_offset <= 0xff");
        put1(size);
        put1(bits);
        put1(bits_offset);
    }
    if (!is_union_filed) {
        put_member_location(offset);
    }
    return entry;
}

dwarf_entry_info *dwarf_info_start_enum_type_entry(compile_unit_handle cu, std::uint32_t abbrev, const char *name,
                                                   const char *type_id, std::uint32_t size, std::uint32_t file_no,
                                                   std::uint32_t line_no)
{
    dwarf_entry_info *entry = dwarf_info_start_entry_creation(cu, abbrev, true);
    dwarf_info_register_type(cu, type_id, entry->unit_offset);
    if (name != nullptr) {
        put_string(name);
    }
    if (size != 0) {
        check_limit(size, ONE_BYTE_MAX, ENUM_SIZE_TEXT, __func__);
        put1(size);
    } else {
        TRACEF(TRACE_DWARF, "%s: No size", __func__);
    }
    put_declaration(file_no, line_no, TYPE_TEXTS, __func__);
    return entry;
}

dwarf_entry_info *dwarf_info_start_enumerator_entry(compile_unit_handle cu, std::uint32_t abbrev, const char *name,
                                                    std::uint32_t value)
{
    dwarf_entry_info *entry = dwarf_info_start_entry_creation(cu, abbrev);
    put_string(name);
    put4(value);
    return entry;
}

// One entry for each qualifier, innermost first, each pointing back at the one before it. Over void the innermost has no
// type, and the next one's type is 0 by choice: what it would point at is not remembered.
dwarf_entry_info *dwarf_info_start_qualified_type_entry(compile_unit_handle cu,
                                                        const std::vector<std::uint32_t> &abbrev_list,
                                                        const char *type_id, const char *child_type_id)
{
    dwarf_entry_info *entry = nullptr;
    std::uint32_t remembered = 0;
    for (std::size_t i = abbrev_list.size(); i-- > 0;) {
        const bool innermost = entry == nullptr;
        dwarf_info_close_entry(entry);
        entry = dwarf_info_start_entry_creation(cu, abbrev_list[i]);
        if (!innermost) {
            put_reference(remembered);
        } else if (child_type_id != nullptr) {
            put_type_reference(cu, child_type_id);
        } else {
            continue;
        }
        remembered = entry->unit_offset;
    }
    if (entry != nullptr) {
        dwarf_info_register_type(cu, type_id, entry->unit_offset);
    }
    return entry;
}

std::uint32_t dwarf_info_finish_subprogram_entry(dwarf_entry_info *entry, bool has_children)
{
    return dwarf_info_close_entry(entry, has_children);
}

std::uint32_t dwarf_info_finish_subroutine_entry(dwarf_entry_info *entry, bool has_children)
{
    DB_ASSERT(nullptr != entry, "NULL != subroutine_type_entry_info");
    return dwarf_info_close_entry(entry, has_children);
}

std::uint32_t dwarf_info_finish_lexical_block(dwarf_entry_info *entry, bool has_children)
{
    return dwarf_info_close_entry(entry, has_children);
}

std::uint32_t dwarf_info_finish_compound_type_entry(dwarf_entry_info *entry, bool has_children)
{
    DB_ASSERT(nullptr != entry, "NULL != compound_type_info");
    return dwarf_info_close_entry(entry, has_children);
}

std::uint32_t dwarf_info_finish_array_type_entry(dwarf_entry_info *entry)
{
    DB_ASSERT(nullptr != entry, "NULL != array_type_entry_info");
    return dwarf_info_close_entry(entry, true);
}

std::uint32_t dwarf_info_finish_enum_type_entry(dwarf_entry_info *entry)
{
    return dwarf_info_close_entry(entry, true);
}

std::uint32_t dwarf_info_finish_basic_type_entry(dwarf_entry_info *entry)
{
    DB_ASSERT(nullptr != entry, "NULL != basic_type_entry_info");
    return dwarf_info_close_entry(entry);
}

std::uint32_t dwarf_info_finish_pointer_type_entry(dwarf_entry_info *entry)
{
    DB_ASSERT(nullptr != entry, "NULL != pointer_type_entry_info");
    return dwarf_info_close_entry(entry);
}

std::uint32_t dwarf_info_finish_qualified_type_entry(dwarf_entry_info *entry)
{
    DB_ASSERT(nullptr != entry, "NULL != qualified_type_entry_info");
    return dwarf_info_close_entry(entry);
}

std::uint32_t dwarf_info_finish_typedef_entry(dwarf_entry_info *entry)
{
    DB_ASSERT(nullptr != entry, "NULL != typedef_entry_info");
    return dwarf_info_close_entry(entry);
}

std::uint32_t dwarf_info_finish_subrange_entry(dwarf_entry_info *entry)
{
    return dwarf_info_close_entry(entry);
}

std::uint32_t dwarf_info_finish_variable_entry(dwarf_entry_info *entry)
{
    return dwarf_info_close_entry(entry);
}

std::uint32_t dwarf_info_finish_member_entry(dwarf_entry_info *entry)
{
    return dwarf_info_close_entry(entry);
}

std::uint32_t dwarf_info_finish_enumerator_entry(dwarf_entry_info *entry)
{
    return dwarf_info_close_entry(entry);
}

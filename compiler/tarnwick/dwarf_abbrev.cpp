// SPDX-License-Identifier: MIT
// Abbreviations: what each family of entry may hold, how a variant of it is told from the others, and the one writer of
// their bytes.
#include "compiler/tarnwick/dwarf_abbrev.h"

#include <array>
#include <iterator>

#include "common/hash_of.h"
#include "common/osdep.h"
#include "common/trace.h"
#include "compiler/tarnwick/dwarf_names.h"
#include "compiler/tarnwick/dwarf_options.h"

namespace {

constexpr std::uint32_t BUFFER_SIZE = 2048;
constexpr std::uint32_t BUFFER_THRESHOLD = 64;

enum family_number : std::uint32_t {
    FAMILY_COMPILE_UNIT = 1,
    FAMILY_SUBPROGRAM = 2,
    FAMILY_SUBROUTINE_TYPE = 3,
    FAMILY_BASIC_TYPE = 4,
    FAMILY_CONST_TYPE = 5,
    FAMILY_VOLATILE_TYPE = 6,
    FAMILY_POINTER_TYPE = 7,
    FAMILY_ARRAY_TYPE = 8,
    FAMILY_SUBRANGE = 9,
    FAMILY_STRUCTURE_TYPE = 10,
    FAMILY_UNION_TYPE = 11,
    FAMILY_MEMBER = 12,
    FAMILY_TYPEDEF = 13,
    FAMILY_VARIABLE = 14,
    FAMILY_PARAMETER = 15,
    FAMILY_ENUM_TYPE = 16,
    FAMILY_ENUMERATOR = 17,
    FAMILY_LEXICAL_BLOCK = 18,
};

// What an entry has beside the attributes that all entries of its family have: bits of a set.
enum choice : std::uint32_t {
    ALWAYS = 0,
    HAS_CHILDREN = 1U << 0,
    HAS_COMP_DIR = 1U << 1,
    HAS_LOW_HIGH = 1U << 2,
    HAS_RANGES = 1U << 3,
    HAS_NAME = 1U << 4,
    HAS_TYPE = 1U << 5,
    HAS_SIZE = 1U << 6,
    HAS_SIZE_1 = 1U << 7,
    HAS_SIZE_2 = 1U << 8,
    HAS_SIZE_4 = 1U << 9,
    HAS_BITS = 1U << 10,
    HAS_FRAME_BASE = 1U << 11,
    HAS_MEMBER_LOCATION = 1U << 12,
    HAS_LOCATION = 1U << 13,
    HAS_LOCATION_LIST = 1U << 14,
    IS_EXTERNAL = 1U << 15,
    IS_DECLARATION = 1U << 16,
};

struct attribute_row {
    std::uint32_t attribute = 0; // 0 behind the last one
    std::uint32_t form = 0;
    choice when = ALWAYS;
};

constexpr std::size_t MAX_ATTRIBUTES = 12; // of a family, the end mark among them

struct family_row {
    dwarf_tag tag;
    attribute_row attributes[MAX_ATTRIBUTES];
};

// The families, by number from 1. The attributes of an entry stand in this order. Only a subprogram has no limit on its
// file number and line: that is on purpose.
constexpr family_row FAMILIES[] = {
    // 1
    {DW_TAG_compile_unit,
     {{DW_AT_stmt_list, DW_FORM_data4},
      {DW_AT_producer, DW_FORM_string},
      {DW_AT_language, DW_FORM_data2},
      {DW_AT_name, DW_FORM_string},
      {DW_AT_comp_dir, DW_FORM_string, HAS_COMP_DIR},
      {DW_AT_low_pc, DW_FORM_addr, HAS_LOW_HIGH},
      {DW_AT_high_pc, DW_FORM_addr, HAS_LOW_HIGH},
      {DW_AT_ranges, DW_FORM_data4, HAS_RANGES}}},
    // 2
    {DW_TAG_subprogram,
     {{DW_AT_sibling, DW_FORM_ref4, HAS_CHILDREN},
      {DW_AT_name, DW_FORM_string},
      {DW_AT_type, DW_FORM_ref4, HAS_TYPE},
      {DW_AT_external, DW_FORM_flag, IS_EXTERNAL},
      {DW_AT_decl_file, DW_FORM_udata},
      {DW_AT_decl_line, DW_FORM_udata},
      {DW_AT_low_pc, DW_FORM_addr, HAS_LOW_HIGH},
      {DW_AT_high_pc, DW_FORM_addr, HAS_LOW_HIGH},
      {DW_AT_ranges, DW_FORM_data4, HAS_RANGES},
      {DW_AT_frame_base, DW_FORM_block1, HAS_FRAME_BASE},
      {DW_AT_inline, DW_FORM_data1}}},
    // 3
    {DW_TAG_subroutine_type, {{DW_AT_sibling, DW_FORM_ref4, HAS_CHILDREN}, {DW_AT_type, DW_FORM_ref4, HAS_TYPE}}},
    // 4
    {DW_TAG_base_type,
     {{DW_AT_name, DW_FORM_string},
      {DW_AT_byte_size, DW_FORM_data1},
      {DW_AT_encoding, DW_FORM_data1},
      {DW_AT_bit_size, DW_FORM_data1, HAS_BITS},
      {DW_AT_bit_offset, DW_FORM_data1, HAS_BITS}}},
    // 5
    {DW_TAG_const_type, {{DW_AT_type, DW_FORM_ref4, HAS_TYPE}}},
    // 6
    {DW_TAG_volatile_type, {{DW_AT_type, DW_FORM_ref4, HAS_TYPE}}},
    // 7
    {DW_TAG_pointer_type,
     {{DW_AT_type, DW_FORM_ref4, HAS_TYPE}, {DW_AT_byte_size, DW_FORM_data1}, {DW_AT_address_class, DW_FORM_data1}}},
    // 8
    {DW_TAG_array_type, {{DW_AT_sibling, DW_FORM_ref4, HAS_CHILDREN}, {DW_AT_type, DW_FORM_ref4}}},
    // 9
    {DW_TAG_subrange_type, {{DW_AT_upper_bound, DW_FORM_data4}}},
    // 10
    {DW_TAG_structure_type,
     {{DW_AT_sibling, DW_FORM_ref4, HAS_CHILDREN},
      {DW_AT_name, DW_FORM_string, HAS_NAME},
      {DW_AT_byte_size, DW_FORM_data1, HAS_SIZE_1},
      {DW_AT_byte_size, DW_FORM_data2, HAS_SIZE_2},
      {DW_AT_byte_size, DW_FORM_data4, HAS_SIZE_4},
      {DW_AT_decl_file, DW_FORM_data1},
      {DW_AT_decl_line, DW_FORM_data2}}},
    // 11
    {DW_TAG_union_type,
     {{DW_AT_sibling, DW_FORM_ref4, HAS_CHILDREN},
      {DW_AT_name, DW_FORM_string, HAS_NAME},
      {DW_AT_byte_size, DW_FORM_data1, HAS_SIZE_1},
      {DW_AT_byte_size, DW_FORM_data2, HAS_SIZE_2},
      {DW_AT_byte_size, DW_FORM_data4, HAS_SIZE_4},
      {DW_AT_decl_file, DW_FORM_data1},
      {DW_AT_decl_line, DW_FORM_data2}}},
    // 12
    {DW_TAG_member,
     {{DW_AT_name, DW_FORM_string},
      {DW_AT_type, DW_FORM_ref4},
      {DW_AT_byte_size, DW_FORM_data1, HAS_BITS},
      {DW_AT_bit_size, DW_FORM_data1, HAS_BITS},
      {DW_AT_bit_offset, DW_FORM_data1, HAS_BITS},
      {DW_AT_data_member_location, DW_FORM_block1, HAS_MEMBER_LOCATION}}},
    // 13
    {DW_TAG_typedef,
     {{DW_AT_name, DW_FORM_string},
      {DW_AT_decl_file, DW_FORM_data1},
      {DW_AT_decl_line, DW_FORM_data2},
      {DW_AT_type, DW_FORM_ref4, HAS_TYPE}}},
    // 14
    {DW_TAG_variable,
     {{DW_AT_name, DW_FORM_string},
      {DW_AT_decl_file, DW_FORM_data1},
      {DW_AT_decl_line, DW_FORM_data2},
      {DW_AT_type, DW_FORM_ref4},
      {DW_AT_external, DW_FORM_flag, IS_EXTERNAL},
      {DW_AT_declaration, DW_FORM_flag, IS_DECLARATION},
      {DW_AT_location, DW_FORM_block2, HAS_LOCATION},
      {DW_AT_location, DW_FORM_data4, HAS_LOCATION_LIST}}},
    // 15
    {DW_TAG_formal_parameter,
     {{DW_AT_name, DW_FORM_string},
      {DW_AT_decl_file, DW_FORM_data1},
      {DW_AT_decl_line, DW_FORM_data2},
      {DW_AT_type, DW_FORM_ref4},
      {DW_AT_location, DW_FORM_block2, HAS_LOCATION},
      {DW_AT_location, DW_FORM_data4, HAS_LOCATION_LIST}}},
    // 16
    {DW_TAG_enumeration_type,
     {{DW_AT_sibling, DW_FORM_ref4, HAS_CHILDREN},
      {DW_AT_name, DW_FORM_string, HAS_NAME},
      {DW_AT_byte_size, DW_FORM_data1, HAS_SIZE},
      {DW_AT_decl_file, DW_FORM_data1},
      {DW_AT_decl_line, DW_FORM_data2}}},
    // 17
    {DW_TAG_enumerator, {{DW_AT_name, DW_FORM_string}, {DW_AT_const_value, DW_FORM_data4}}},
    // 18
    {DW_TAG_lexical_block,
     {{DW_AT_sibling, DW_FORM_ref4, HAS_CHILDREN},
      {DW_AT_low_pc, DW_FORM_addr, HAS_LOW_HIGH},
      {DW_AT_high_pc, DW_FORM_addr, HAS_LOW_HIGH},
      {DW_AT_ranges, DW_FORM_data4, HAS_RANGES}}},
};
static_assert(std::size(FAMILIES) == FAMILY_LEXICAL_BLOCK);

// The key of a variant: the family below, the variant above.
constexpr std::uint32_t FAMILY_BITS = 8;
constexpr std::uint32_t FAMILY_MASK = 0xFF;
constexpr std::uint32_t HASH_SIZE = 19;

// Parts of the variant number for each pc form, in the order of dwarf_pc_form.
using pc_variants = std::array<std::uint32_t, 3>;
constexpr pc_variants UNIT_PC = {0, 12, 4};
constexpr pc_variants SUBPROGRAM_PC = {0, 16, 32};
constexpr pc_variants BLOCK_PC = {2, 4, 8};
constexpr std::array<std::uint32_t, 3> PC_CHOICES = {ALWAYS, HAS_LOW_HIGH, HAS_RANGES};

// The same for no location, one, and a list of them.
using location_variants = std::array<std::uint32_t, 3>;
constexpr location_variants VARIABLE_LOCATIONS = {0, 4, 2};
constexpr location_variants PARAMETER_LOCATIONS = {2, 0, 1};
constexpr std::array<std::uint32_t, 3> LOCATION_CHOICES = {ALWAYS, HAS_LOCATION, HAS_LOCATION_LIST};

// Parts of the variant number of a structure or union.
constexpr std::uint32_t COMPOUND_CHILDREN = 16;
constexpr std::uint32_t COMPOUND_NAME = 32;

section_info abbrev_section;
std::uint32_t next_entry_index = 1;
hash_of<std::uint32_t, std::uint32_t> entries;

constexpr std::uint32_t bit(bool set, std::uint32_t number)
{
    return static_cast<std::uint32_t>(set) << number;
}

constexpr std::uint32_t pick(bool has, choice what)
{
    return has ? what : ALWAYS;
}

constexpr std::size_t index_of(dwarf_pc_form form)
{
    return static_cast<std::size_t>(form);
}

// Of a function or block, which should have code if its code is asked for.
dwarf_pc_form wanted_pc_form(bool wanted, std::uint32_t num_ranges)
{
    if (!wanted) {
        return dwarf_pc_form::NONE;
    }
    DB_ASSERT(num_ranges != 0, "num_ranges != 0");
    return dwarf_code_pc_form(num_ranges);
}

constexpr std::size_t location_kind_of(std::uint32_t num_locations)
{
    return num_locations < 2 ? num_locations : 2;
}

void remember_entry(std::uint32_t key, std::uint32_t number)
{
    if (entries.contains(key)) {
        TRACEF(TRACE_DWARF, "%s: (%s : %u) : Key 0x%x has already been inserted", __func__, path_tail(__FILE__),
               static_cast<std::uint32_t>(__LINE__), key);
        dwarf_internal_error();
    } else if (!entries.insert(key, number)) {
        TRACEF(TRACE_DWARF, "%s: (%s : %u) : Memory allocation failure", __func__, path_tail(__FILE__),
               static_cast<std::uint32_t>(__LINE__));
        dwarf_internal_error();
    }
}

// The number of a variant; true when it is new and its bytes have to be written.
bool dwarf_abbrev_check_entry_existance_and_create(family_number family, std::uint32_t variant, std::uint32_t *index)
{
    const std::uint32_t key = variant << FAMILY_BITS | family;
    *index = entries.get(key);
    if (*index != 0) {
        return false;
    }
    *index = next_entry_index++;
    remember_entry(key, *index);
    return true;
}

void write_entry(const family_row &family, std::uint32_t number, std::uint32_t choices)
{
    const std::uint8_t has_children = (choices & HAS_CHILDREN) != 0 ? DW_CHILDREN_yes : DW_CHILDREN_no;
    DB_ASSERT(has_children <= 1, "has_children <= 1");
    dwarf_section_put_uleb(&abbrev_section, number);
    dwarf_section_put_uleb(&abbrev_section, family.tag);
    dwarf_section_put1(&abbrev_section, has_children);
    for (const attribute_row &row : family.attributes) {
        if (row.attribute != 0 && (row.when & choices) == row.when) {
            dwarf_section_put_uleb(&abbrev_section, row.attribute);
            dwarf_section_put_uleb(&abbrev_section, row.form);
        }
    }
    dwarf_section_put2(&abbrev_section, 0);
}

std::uint32_t entry_number(family_number family, std::uint32_t variant, std::uint32_t choices)
{
    dwarf_section_ensure_initalisation_and_enough_memory(&abbrev_section);
    std::uint32_t entry_num = DWARF_ABBREV_INVALID_ENTRY_INDEX;
    if (entries && dwarf_abbrev_check_entry_existance_and_create(family, variant, &entry_num)) {
        write_entry(FAMILIES[family - 1], entry_num, choices);
    }
    DB_ASSERT((DWARF_ABBREV_INVALID_ENTRY_INDEX != entry_num) && (0 != entry_num),
              "(DWARF_ABBREV_INVALID_ENTRY_INDEX != entry_num) && (0 != entry_num)");
    return entry_num;
}

// Families whose variant is their one question.
std::uint32_t simple_entry_number(family_number family, bool has, choice what)
{
    return entry_number(family, bit(has, 0), pick(has, what));
}

std::uint32_t compound_entry_number(family_number family, bool has_children, bool has_name, std::uint32_t size)
{
    struct width {
        std::uint32_t largest;
        std::uint32_t bytes;
        choice what;
    };
    constexpr width WIDTHS[] = {{0xFF, 1, HAS_SIZE_1}, {0xFFFF, 2, HAS_SIZE_2}, {0xFFFFFFFF, 4, HAS_SIZE_4}};
    const width *w = WIDTHS;
    while (size > w->largest) {
        ++w;
    }
    return entry_number(family, w->bytes + (has_children ? COMPOUND_CHILDREN : 0) + (has_name ? COMPOUND_NAME : 0),
                        w->what | pick(has_children, HAS_CHILDREN) | pick(has_name, HAS_NAME));
}

} // namespace

dwarf_pc_form dwarf_unit_pc_form(std::uint32_t num_ranges)
{
    if (dwarf_use_ranges == DWARF_USE_NEVER || num_ranges == 0) {
        return dwarf_pc_form::NONE;
    }
    return dwarf_code_pc_form(num_ranges);
}

dwarf_pc_form dwarf_code_pc_form(std::uint32_t num_ranges)
{
    if (dwarf_use_ranges == DWARF_USE_NEVER || (dwarf_use_ranges == DWARF_USE_AUTO && num_ranges == 1)) {
        return dwarf_pc_form::LOW_HIGH;
    }
    return dwarf_pc_form::RANGES;
}

void dwarf_abbrev_create_entries_hash()
{
    dwarf_section_init(&abbrev_section, BUFFER_SIZE, BUFFER_THRESHOLD);
    // The numbers start again even when an earlier output has left its table in the section.
    next_entry_index = 1;
    entries = hash_of<std::uint32_t, std::uint32_t>(hash_new(
        HASH_SIZE, [](word key) { return static_cast<std::uint32_t>(key & FAMILY_MASK); },
        [](word left, word right) { return static_cast<int>(left - right); }));
    if (!entries) {
        TRACEF(TRACE_DWARF, "%s: Failed to create hash", __func__);
        dwarf_internal_error();
    }
}

void dwarf_abbrev_destroy_entry_hash(std::uint8_t **data, std::uint32_t *size)
{
    dwarf_section_ensure_initalisation_and_enough_memory(&abbrev_section);
    dwarf_section_put1(&abbrev_section, 0);
    entries.free();
    dwarf_section_finish(&abbrev_section, data, size);
}

std::uint32_t dwarf_abbrev_get_compile_unit_entry(bool has_children, bool has_comp_dir, std::uint32_t num_ranges)
{
    const std::size_t form = index_of(dwarf_unit_pc_form(num_ranges));
    return entry_number(FAMILY_COMPILE_UNIT, (bit(has_children, 0) | bit(has_comp_dir, 1)) + UNIT_PC[form],
                        pick(has_children, HAS_CHILDREN) | pick(has_comp_dir, HAS_COMP_DIR) | PC_CHOICES[form]);
}

std::uint32_t dwarf_abbrev_get_subprogram_entry(bool has_children, bool has_type, bool has_frame_base, bool is_external,
                                                bool is_inlined, std::uint32_t num_ranges)
{
    const std::size_t form = index_of(wanted_pc_form(!is_inlined, num_ranges));
    const std::uint32_t variant =
        bit(has_children, 0) | bit(has_type, 1) | bit(has_frame_base, 2) | bit(is_external, 3);
    return entry_number(FAMILY_SUBPROGRAM, variant + SUBPROGRAM_PC[form],
                        pick(has_children, HAS_CHILDREN) | pick(has_type, HAS_TYPE) |
                            pick(has_frame_base, HAS_FRAME_BASE) | pick(is_external, IS_EXTERNAL) | PC_CHOICES[form]);
}

std::uint32_t dwarf_abbrev_get_subroutine_type_entry(bool has_children, bool has_type)
{
    return entry_number(FAMILY_SUBROUTINE_TYPE, bit(has_children, 0) | bit(has_type, 1),
                        pick(has_children, HAS_CHILDREN) | pick(has_type, HAS_TYPE));
}

std::uint32_t dwarf_abbrev_get_basic_type_entry(bool has_bit_fields)
{
    return simple_entry_number(FAMILY_BASIC_TYPE, has_bit_fields, HAS_BITS);
}

std::uint32_t dwarf_abbrev_get_const_type_entry(bool has_type)
{
    return simple_entry_number(FAMILY_CONST_TYPE, has_type, HAS_TYPE);
}

std::uint32_t dwarf_abbrev_get_volatile_type_entry(bool has_type)
{
    return simple_entry_number(FAMILY_VOLATILE_TYPE, has_type, HAS_TYPE);
}

std::uint32_t dwarf_abbrev_get_pointer_type_entry(bool has_type)
{
    return simple_entry_number(FAMILY_POINTER_TYPE, has_type, HAS_TYPE);
}

std::uint32_t dwarf_abbrev_get_array_type_entry()
{
    return entry_number(FAMILY_ARRAY_TYPE, 0, HAS_CHILDREN);
}

std::uint32_t dwarf_abbrev_get_subrange_entry()
{
    return entry_number(FAMILY_SUBRANGE, 0, ALWAYS);
}

std::uint32_t dwarf_abbrev_get_structure_type_entry(bool has_children, bool has_name, std::uint32_t size)
{
    return compound_entry_number(FAMILY_STRUCTURE_TYPE, has_children, has_name, size);
}

std::uint32_t dwarf_abbrev_get_union_type_entry(bool has_children, bool has_name, std::uint32_t size)
{
    return compound_entry_number(FAMILY_UNION_TYPE, has_children, has_name, size);
}

std::uint32_t dwarf_abbrev_get_member_entry(bool is_bitfield, bool is_union)
{
    return entry_number(FAMILY_MEMBER, bit(is_bitfield, 0) | bit(is_union, 1),
                        pick(is_bitfield, HAS_BITS) | pick(!is_union, HAS_MEMBER_LOCATION));
}

std::uint32_t dwarf_abbrev_get_typedef_entry(bool has_type)
{
    return simple_entry_number(FAMILY_TYPEDEF, has_type, HAS_TYPE);
}

std::uint32_t dwarf_abbrev_get_variable_entry(bool is_external, bool is_declaration, std::uint32_t num_locations)
{
    const std::size_t kind = location_kind_of(num_locations);
    return entry_number(FAMILY_VARIABLE, (bit(is_external, 0) | bit(is_declaration, 3)) + VARIABLE_LOCATIONS[kind],
                        pick(is_external, IS_EXTERNAL) | pick(is_declaration, IS_DECLARATION) | LOCATION_CHOICES[kind]);
}

std::uint32_t dwarf_abbrev_get_parameter_entry(std::uint32_t num_locations)
{
    const std::size_t kind = location_kind_of(num_locations);
    return entry_number(FAMILY_PARAMETER, PARAMETER_LOCATIONS[kind], LOCATION_CHOICES[kind]);
}

std::uint32_t dwarf_abbrev_get_enum_type_entry(bool has_name, bool has_size)
{
    return entry_number(FAMILY_ENUM_TYPE, bit(has_name, 0) | bit(has_size, 1),
                        HAS_CHILDREN | pick(has_name, HAS_NAME) | pick(has_size, HAS_SIZE));
}

std::uint32_t dwarf_abbrev_get_enumerator_entry()
{
    return entry_number(FAMILY_ENUMERATOR, 0, ALWAYS);
}

std::uint32_t dwarf_abbrev_get_lexical_block_entry(bool has_children, bool no_pc, std::uint32_t num_ranges)
{
    const std::size_t form = index_of(wanted_pc_form(!no_pc, num_ranges));
    return entry_number(FAMILY_LEXICAL_BLOCK, BLOCK_PC[form] + bit(has_children, 0),
                        pick(has_children, HAS_CHILDREN) | PC_CHOICES[form]);
}

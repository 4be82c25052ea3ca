// SPDX-License-Identifier: MIT
// The name tables, entries with their forms, and location expressions.
#include "compiler/tarnwick/dwarf_name_tables.h"

#include <algorithm>
#include <set>

#include "tests/unit/tarnwick/dwarf_dump_testing.h"

namespace {

const std::string END_WARNING = " WARNING: Unexpectedly reached the end of compile unit, could not continue...\n";
const std::string FORM_WARNING = "\n\nWARNING: invalid attribute form, could not proceed...\n";
const std::string ERROR_LINE = "ERROR occurred while dumping .debug_info section...\n";
const std::string ENTRY = " <0><b>: Abbrev Number: 1 (DW_TAG_variable)\n";
const std::string HEADER_TAIL = "   Version:       2\n   Abbrev Offset: 0x0\n   Pointer Size:  4\n";

std::string unit_header(std::size_t length)
{
    return "\n  Compilation Unit @ 0:\n   Length:        " + std::to_string(length) + "\n" + HEADER_TAIL;
}

// Number 1: a variable with one attribute.
section_bytes one_attribute(std::uint8_t attribute, std::uint8_t form)
{
    return section_bytes().raw({1, 0x34, 0, attribute, form, 0, 0, 0});
}

section_bytes unit_of(const section_bytes &entries, std::uint8_t pointer_size = 4, std::uint32_t table = 0)
{
    return with_length(section_bytes().b2(2).b4(table).b1(pointer_size).bytes(entries));
}

std::string info(const section_bytes &section, const section_bytes &abbrev, const section_bytes &str = {})
{
    const dwarf_room room;
    return printed_by([&](dwarf_text &out) { dwarf_info_dump(out, section, abbrev, str); });
}

// What an attribute of a form prints behind its name.
std::string value_of(std::uint8_t attribute, std::uint8_t form, std::initializer_list<std::uint8_t> value,
                     const section_bytes &str = {})
{
    section_bytes entry;
    entry.b1(1).raw(value);
    const section_bytes unit = unit_of(entry);
    const std::string name{dwarf_name_padded(dwarf_attribute_names, attribute, true, 20)};
    const std::string start = unit_header(unit.size() - 4) + ENTRY + "     " + name + " :";
    const std::string text = info(unit, one_attribute(attribute, form), str);
    EXPECT_EQ(start, text.substr(0, start.size()));
    return text.substr(std::min(start.size(), text.size()));
}

// The same with another pointer size.
std::string value_at(std::uint8_t pointer_size, std::uint8_t form, std::initializer_list<std::uint8_t> value)
{
    const section_bytes unit = unit_of(section_bytes().b1(1).raw(value), pointer_size);
    const std::string text = info(unit, one_attribute(0x11, form));
    const std::string start = ENTRY + "     DW_AT_low_pc         :";
    const std::size_t place = text.find(start);
    return place == std::string::npos ? "no attribute in " + text : text.substr(place + start.size());
}

std::string expression(std::initializer_list<std::uint8_t> bytes, std::uint32_t pointer_size = 4)
{
    const dwarf_room room;
    const section_bytes content = section_bytes().raw(bytes);
    return printed_by([&](dwarf_text &out) { dwarf_loc_read_location(out, content, pointer_size); });
}

struct table_facts {
    const dwarf_name_table &table;
    std::size_t rows;
    std::uint32_t first;
    std::string first_name;
    std::uint32_t last;
    std::string last_name;
};

TEST(dwarf_dump_names, every_table_has_its_rows)
{
    for (const table_facts &facts :
         {table_facts{dwarf_tag_names, 51, 0, "DW_TAG_padding", 0x38, "DW_TAG_interface_type"},
          {dwarf_attribute_names, 59, 1, "DW_AT_sibling", 0x4D, "DW_AT_vtable_elem_location"},
          {dwarf_form_names, 21, 1, "DW_FORM_addr", 0x16, "DW_FORM_indirect"},
          {dwarf_operator_names, 145, 3, "DW_OP_addr", 0x96, "DW_OP_nop"},
          {dwarf_frame_names, 18, 0, "DW_CFA_nop", 0xC0, "DW_CFA_restore"},
          {dwarf_line_names, 9, 1, "DW_LNS_copy", 9, "DW_LNS_fixed_advance_pc"},
          {dwarf_extended_line_names, 3, 1, "DW_LNE_end_sequence", 3, "DW_LNE_define_file"},
          {dwarf_macinfo_names, 5, 1, "DW_MACINFO_define", 0xFF, "DW_MACINFO_vendor_ext"}}) {
        ASSERT_EQ(facts.rows + 1, facts.table.rows.size()) << facts.first_name;
        EXPECT_EQ(facts.first, facts.table.rows.front().value);
        EXPECT_EQ(facts.last, facts.table.rows[facts.rows - 1].value);
        EXPECT_EQ(facts.first_name, dwarf_name(facts.table, facts.first, true));
        EXPECT_EQ(facts.last_name, dwarf_name(facts.table, facts.last, true));
        EXPECT_EQ(0U, facts.table.rows.back().value);
        EXPECT_EQ(nullptr, facts.table.rows.back().name.data());
        for (std::size_t i = 1; i < facts.rows; ++i) {
            EXPECT_LT(facts.table.rows[i - 1].value, facts.table.rows[i].value);
        }
        const std::string prefix = facts.first_name.substr(0, facts.first_name.find('_', 3) + 1);
        for (const dwarf_name_row &row : facts.table.rows.first(facts.rows)) {
            EXPECT_EQ(row.name, dwarf_name(facts.table, row.value, false));
            EXPECT_EQ(prefix + std::string(row.name), dwarf_name(facts.table, row.value, true));
        }
    }
}

TEST(dwarf_dump_names, limits_of_the_user_ranges)
{
    struct range {
        const dwarf_name_table &table;
        std::uint32_t low;
        std::uint32_t high;
    };
    for (const range &r : {range{dwarf_tag_names, 0x4080, 0xFFFF},
                           {dwarf_attribute_names, 0x2000, 0x3FFF},
                           {dwarf_operator_names, 0xE0, 0xFF},
                           {dwarf_frame_names, 0x1C, 0x3F}}) {
        const std::string mark = " (user-defined)";
        EXPECT_TRUE(std::string(dwarf_name(r.table, r.low, true)).ends_with(mark));
        EXPECT_TRUE(std::string(dwarf_name(r.table, r.high, true)).ends_with(mark));
        EXPECT_FALSE(std::string(dwarf_name(r.table, r.low - 1, true)).ends_with(mark));
        EXPECT_FALSE(std::string(dwarf_name(r.table, r.high + 1, true)).ends_with(mark));
    }
    for (const dwarf_name_table *table :
         {&dwarf_form_names, &dwarf_line_names, &dwarf_extended_line_names, &dwarf_macinfo_names}) {
        EXPECT_EQ("?? 0x0000003F", dwarf_name(*table, 0x3F, true));
        EXPECT_EQ("?? 0x00000000", dwarf_name(*table, 0, true));
    }
}

TEST(dwarf_dump_names, rows_prefix_padding_and_unknown_values)
{
    EXPECT_EQ("DW_TAG_padding", dwarf_name(dwarf_tag_names, 0, true));
    EXPECT_EQ("interface_type", dwarf_name(dwarf_tag_names, 0x38, false));
    EXPECT_EQ("?? 0x00000039", dwarf_name(dwarf_tag_names, 0x39, true));
    EXPECT_EQ("?? 0x0000407F", dwarf_name(dwarf_tag_names, 0x407F, true));
    EXPECT_EQ("?? 0x00004080 (user-defined)", dwarf_name(dwarf_tag_names, 0x4080, true));
    EXPECT_EQ("?? 0x0000FFFF (user-defined)", dwarf_name(dwarf_tag_names, 0xFFFF, false));
    EXPECT_EQ("?? 0x00010000", dwarf_name(dwarf_tag_names, 0x10000, true));
    EXPECT_EQ("DW_AT_vtable_elem_location", dwarf_name(dwarf_attribute_names, 0x4D, true));
    EXPECT_EQ("?? 0x00000055", dwarf_name(dwarf_attribute_names, 0x55, true));
    EXPECT_EQ("?? 0x00002000 (user-defined)", dwarf_name(dwarf_attribute_names, 0x2000, true));
    EXPECT_EQ("DW_OP_lit31", dwarf_name(dwarf_operator_names, 0x4F, true));
    EXPECT_EQ("DW_OP_breg0", dwarf_name(dwarf_operator_names, 0x70, true));
    EXPECT_EQ("?? 0x000000E0 (user-defined)", dwarf_name(dwarf_operator_names, 0xE0, true));
    EXPECT_EQ("DW_MACINFO_vendor_ext", dwarf_name(dwarf_macinfo_names, 0xFF, true));
    EXPECT_EQ("DW_AT_name          ", dwarf_name_padded(dwarf_attribute_names, 3, true, 20));
    EXPECT_EQ(128U, dwarf_name_padded(dwarf_form_names, 8, true, 500).size());
    EXPECT_EQ("DW_AT_vtable_elem_location", dwarf_name_padded(dwarf_attribute_names, 0x4D, true, 20));
    EXPECT_EQ("name    ", dwarf_name_padded(dwarf_attribute_names, 3, false, 8));
    EXPECT_EQ("?? 0x00000055   ", dwarf_name_padded(dwarf_attribute_names, 0x55, true, 16));
    for (std::size_t width = 0; width <= 130; ++width) {
        const std::string expected = "DW_FORM_string" + std::string(std::clamp<std::size_t>(width, 14, 128) - 14, ' ');
        EXPECT_EQ(expected, dwarf_name_padded(dwarf_form_names, 8, true, width)) << width;
    }
}

TEST(dwarf_dump_info, forms)
{
    EXPECT_EQ("0x12345678\n", value_of(0x11, 0x01, {0x78, 0x56, 0x34, 0x12}));
    EXPECT_EQ("2 byte block 1 ff \n", value_of(0x1C, 0x0A, {2, 1, 0xFF}));
    EXPECT_EQ("1 byte block 7 \n", value_of(0x1C, 0x03, {1, 0, 7}));
    EXPECT_EQ("1 byte block 7 \n", value_of(0x1C, 0x04, {1, 0, 0, 0, 7}));
    EXPECT_EQ("1 byte block 7 \n", value_of(0x1C, 0x09, {1, 7}));
    EXPECT_EQ("2 byte block 91 7e     (DW_OP_fbreg: -2)\n", value_of(0x02, 0x0A, {2, 0x91, 0x7E}));
    EXPECT_EQ("2 byte block 23 4     (DW_OP_plus_uconst: 4)\n", value_of(0x38, 0x0A, {2, 0x23, 4}));
    EXPECT_EQ("1 byte block 55     (DW_OP_reg5)\n", value_of(0x40, 0x0A, {1, 0x55}));
    EXPECT_EQ("0xff (255)\n", value_of(0x0B, 0x0B, {0xFF}));
    EXPECT_EQ("0xfffe (65534)\n", value_of(0x0B, 0x05, {0xFE, 0xFF}));
    EXPECT_EQ("0xfffffffe (-2)\n", value_of(0x0B, 0x06, {0xFE, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ("0xffffffffffffffff (-1)\n", value_of(0x0B, 0x07, {255, 255, 255, 255, 255, 255, 255, 255}));
    EXPECT_EQ("0xffffffffffffffff (-1)\n", value_of(0x0B, 0x0D, {0x7F}));
    EXPECT_EQ("0x80 (128)\n", value_of(0x0B, 0x0F, {0x80, 0x01}));
    EXPECT_EQ("\"ab\"\n", value_of(0x03, 0x08, {'a', 'b', 0}));
    EXPECT_EQ("false\n", value_of(0x3F, 0x0C, {0}));
    EXPECT_EQ("true\n", value_of(0x3F, 0x0C, {1}));
    EXPECT_EQ("2\n", value_of(0x3F, 0x0C, {2}));
    const section_bytes str = section_bytes().text("x").text("str");
    EXPECT_EQ("<2> (\"str\")\n", value_of(0x03, 0x0E, {2, 0, 0, 0}, str));
    EXPECT_EQ("<6> (\"???\")\n", value_of(0x03, 0x0E, {6, 0, 0, 0}, str));
    for (const std::uint8_t form : std::initializer_list<std::uint8_t>{0x10, 0x13}) {
        EXPECT_EQ("<1a>\n", value_of(0x49, form, {0x1A, 0, 0, 0}));
    }
    EXPECT_EQ("<1a>\n", value_of(0x49, 0x11, {0x1A}));
    EXPECT_EQ("<1a>\n", value_of(0x49, 0x12, {0x1A, 0}));
    EXPECT_EQ("<1a>\n", value_of(0x49, 0x14, {0x1A, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ("<1a>\n", value_of(0x49, 0x15, {0x1A}));
}

TEST(dwarf_dump_info, addresses_and_references_of_the_pointer_size)
{
    for (const std::uint8_t form : std::initializer_list<std::uint8_t>{0x01, 0x10}) {
        const auto shown = [form](const std::string &digits) {
            return form == 0x01 ? "0x" + digits + "\n" : "<" + digits + ">\n";
        };
        EXPECT_EQ(shown("fe"), value_at(1, form, {0xFE}));
        EXPECT_EQ(shown("1234"), value_at(2, form, {0x34, 0x12}));
        EXPECT_EQ(shown("123456789abcdef0"), value_at(8, form, {0xF0, 0xDE, 0xBC, 0x9A, 0x78, 0x56, 0x34, 0x12}));
    }
}

TEST(dwarf_dump_info, an_address_of_no_width_is_an_internal_error)
{
    for (const std::uint8_t form : std::initializer_list<std::uint8_t>{0x01, 0x10}) {
        for (const std::uint8_t width : std::initializer_list<std::uint8_t>{0, 3, 5, 9, 255}) {
            const survived_errors errors;
            EXPECT_EQ(END_WARNING + ERROR_LINE, value_at(width, form, {1, 2, 3, 4, 5, 6, 7, 8, 9}));
            EXPECT_EQ(1U, errors.count());
        }
    }
}

TEST(dwarf_dump_info, references_count_from_the_unit)
{
    const section_bytes abbrev = section_bytes()
                                     .raw({1, 0x34, 0})
                                     .raw({0x49, 0x11, 0x49, 0x12, 0x49, 0x13})
                                     .raw({0x49, 0x14, 0x49, 0x15, 0x49, 0x10, 0, 0, 0});
    section_bytes section = unit_of({});
    const section_bytes entry =
        section_bytes().b1(1).b1(0xFF).b2(0xFFFF).b4(0xFFFFFFFF).number(UINT64_MAX, 8).raw({5}).b4(0xFFFFFFFF);
    section.bytes(unit_of(entry)); // at 11
    const std::string type = "     DW_AT_type           :<";
    const std::string text = info(section, abbrev);
    EXPECT_EQ(type + "10a>\n" + type + "1000a>\n" + type + "a>\n" + type + "a>\n" + type + "10>\n" + type +
                  "10000000a>\n",
              text.substr(std::min(text.size(), text.find(type))));
}

TEST(dwarf_dump_info, strings_of_the_table)
{
    EXPECT_EQ("<1> (\"cut\")\n", value_of(0x03, 0x0E, {1, 0, 0, 0}, section_bytes().raw({0, 'c', 'u', 't'})));
    EXPECT_EQ("<0> (\"???\")\n", value_of(0x03, 0x0E, {0, 0, 0, 0}));
    EXPECT_EQ("<ffffffff> (\"???\")\n", value_of(0x03, 0x0E, {255, 255, 255, 255}, section_bytes().text("a")));
    const std::string name(100000, 'n');
    EXPECT_EQ("<0> (\"" + name + "\")\n", value_of(0x03, 0x0E, {0, 0, 0, 0}, section_bytes().text(name)));
}

TEST(dwarf_dump_info, many_values_of_one_endless_string_stay_cheap)
{
    constexpr std::size_t VALUES = 4000;
    section_bytes unit = section_bytes().b2(2).b4(0).b1(4).b1(1);
    section_bytes abbrev = section_bytes().raw({1, 0x34, 0});
    for (std::size_t i = 0; i < VALUES; ++i) {
        abbrev.raw({3, 0x0E});
        unit.b4(0);
    }
    abbrev.zeros(3);
    const section_bytes str = section_bytes().text(std::string(std::size_t{1} << 18, 'x')); // 1 GiB, all together
    const std::string text = info(with_length(unit), abbrev, str);
    EXPECT_LT(text.size(), std::size_t{1} << 23);
    EXPECT_EQ(VALUES, static_cast<std::size_t>(std::count(text.begin(), text.end(), '"') / 2));
    EXPECT_TRUE(text.ends_with("     DW_AT_name           :<0> (\"" + std::string(255, 'x') + "\")\n"));
}

// One entry whose attribute's number does not end, used by all others.
TEST(dwarf_dump_info, a_number_of_many_bytes_is_read_once)
{
    constexpr std::size_t ENTRIES = 200000;
    section_bytes abbrev = section_bytes().raw({1, 0x34, 0, 0x8B});
    abbrev.insert(abbrev.end(), ENTRIES, 0x80);
    abbrev.raw({0, 0x0B, 0, 0, 2, 0x11, 1, 0, 0, 0});
    section_bytes unit = section_bytes().b2(2).b4(0).b1(4).b1(2);
    for (std::size_t i = 0; i < ENTRIES; ++i) {
        unit.b1(1).b1(7);
    }
    const std::string text = info(with_length(unit), abbrev);
    EXPECT_TRUE(text.ends_with("(DW_TAG_variable)\n     DW_AT_byte_size      :0x7 (7)\n"));
}

TEST(dwarf_dump_info, entries_nested_without_end)
{
    const section_bytes abbrev = section_bytes().raw({1, 0x34, 1, 0, 0, 0});
    section_bytes entries;
    entries.insert(entries.end(), 200000, 1);
    const std::string text = info(unit_of(entries), abbrev);
    EXPECT_TRUE(text.ends_with(" <199999><30d4a>: Abbrev Number: 1 (DW_TAG_variable)\n"));
}

TEST(dwarf_dump_info, indirect_and_unknown_forms_stop_the_dump)
{
    EXPECT_EQ("0x7 (7)\n" + FORM_WARNING + ERROR_LINE, value_of(0x0B, 0x16, {0x0B, 7}));
    EXPECT_EQ("\"a\"\n" + FORM_WARNING + ERROR_LINE, value_of(0x03, 0x16, {0x16, 0x88, 0x00, 'a', 0}));
    EXPECT_EQ(FORM_WARNING + ERROR_LINE, value_of(0x0B, 0x16, {0x17, 7}));
    EXPECT_EQ(FORM_WARNING + ERROR_LINE, value_of(0x0B, 0x02, {0, 0}));
    EXPECT_EQ(FORM_WARNING + ERROR_LINE, value_of(0x0B, 0x17, {0, 0}));
}

TEST(dwarf_dump_info, values_cut_by_the_end_of_the_unit)
{
    for (const std::uint8_t form :
         std::initializer_list<std::uint8_t>{0x01, 0x03, 0x04, 0x05, 0x06, 0x07, 0x0E, 0x10, 0x12, 0x13, 0x14}) {
        EXPECT_EQ(END_WARNING + ERROR_LINE, value_of(0x0B, form, {1})) << int{form};
    }
    for (const std::uint8_t form : std::initializer_list<std::uint8_t>{0x08, 0x09, 0x0A, 0x0D, 0x0F, 0x15, 0x16}) {
        EXPECT_EQ(END_WARNING + ERROR_LINE, value_of(0x0B, form, {0x81})) << int{form};
    }
}

TEST(dwarf_dump_info, a_long_string_is_cut)
{
    section_bytes entry;
    entry.b1(1).text(std::string(300, 'a'));
    const section_bytes unit = unit_of(entry);
    EXPECT_EQ(unit_header(unit.size() - 4) + ENTRY + "     DW_AT_name           :\"" + std::string(256, 'a') + "\"\n",
              info(unit, one_attribute(3, 8)));
}

TEST(dwarf_dump_info, levels_null_entries_and_siblings)
{
    const section_bytes abbrev = section_bytes().raw({1, 0x11, 1, 0, 0, 2, 0x34, 0, 0, 0, 0});
    const std::string entries = " <0><b>: Abbrev Number: 1 (DW_TAG_compile_unit)\n"
                                " <1><c>: Abbrev Number: 1 (DW_TAG_compile_unit)\n"
                                " <2><d>: Abbrev Number: 2 (DW_TAG_variable)\n"
                                " <1><f>: Abbrev Number: 2 (DW_TAG_variable)\n";
    EXPECT_EQ(unit_header(13) + entries, info(unit_of(section_bytes().raw({1, 1, 2, 0, 2, 0})), abbrev));
    EXPECT_EQ(unit_header(12) + entries, info(unit_of(section_bytes().raw({1, 1, 2, 0, 2})), abbrev));
    EXPECT_EQ(unit_header(14) + entries +
                  " WARNING: Compile unit entry has siblings when it should not have, ignoring...\n",
              info(unit_of(section_bytes().raw({1, 1, 2, 0, 2, 0, 2})), abbrev));
    EXPECT_EQ(unit_header(8) +
                  " <0><b>: Abbrev Number: 9\n\n WARNING: Could not locate abbrev entry, could not "
                  "continue...\n" +
                  ERROR_LINE,
              info(unit_of(section_bytes().raw({9})), abbrev));
}

TEST(dwarf_dump_info, a_unit_without_an_entry)
{
    const section_bytes abbrev = one_attribute(3, 8);
    EXPECT_EQ(unit_header(7), info(unit_of({}), abbrev));
    EXPECT_EQ(unit_header(10), info(unit_of(section_bytes().zeros(3)), abbrev));
    EXPECT_EQ(unit_header(9) + " WARNING: Compile unit entry has siblings when it should not have, ignoring...\n",
              info(unit_of(section_bytes().raw({0, 1})), abbrev));
    EXPECT_EQ(unit_header(8) + END_WARNING + ERROR_LINE, info(unit_of(section_bytes().raw({0x81})), abbrev));
}

TEST(dwarf_dump_info, a_unit_that_the_section_cuts)
{
    section_bytes section = unit_of(section_bytes().raw({1, 'a'}));
    section[0] = 0xFF;
    EXPECT_EQ(unit_header(0xFF) + ENTRY + "     DW_AT_name           :" + END_WARNING + ERROR_LINE,
              info(section, one_attribute(3, 8)));
}

TEST(dwarf_dump_info, what_stands_behind_the_last_unit)
{
    const std::string small = " WARNING: length of .dwarf_info section is too small, could not continue...\n\n";
    const std::string unit = unit_header(9) + ENTRY + "     DW_AT_name           :\"\"\n";
    const section_bytes entry = section_bytes().raw({1, 0});
    EXPECT_EQ(unit + "\n  Compilation Unit @ d:\n   Length:        0\n" + small,
              info(unit_of(entry).zeros(4), one_attribute(3, 8)));
    EXPECT_EQ(unit + "\n  Compilation Unit @ d:\n" + small, info(unit_of(entry).zeros(3), one_attribute(3, 8)));
    EXPECT_EQ(unit + "\n  Compilation Unit @ d:\n   Length:        7\n" + small,
              info(unit_of(entry).b4(7).zeros(6), one_attribute(3, 8)));
}

TEST(dwarf_dump_info, the_pointer_size_is_that_of_the_last_unit)
{
    const dwarf_room room;
    const section_bytes abbrev = one_attribute(3, 8);
    const auto size_after = [&abbrev](const section_bytes &section) {
        std::uint32_t size = 0;
        printed_by([&](dwarf_text &out) { size = dwarf_info_dump(out, section, abbrev, {}); });
        return size;
    };
    EXPECT_EQ(4U, size_after({}));
    EXPECT_EQ(8U, size_after(unit_of({}, 8)));
    EXPECT_EQ(2U, size_after(unit_of({}, 8).bytes(unit_of({}, 2))));
    EXPECT_EQ(3U, size_after(unit_of({}, 3)));
    EXPECT_EQ(8U, size_after(unit_of({}, 8).zeros(20))); // the second has none
}

TEST(dwarf_dump_info, a_big_endian_section)
{
    const dwarf_room room(true);
    const section_bytes abbrev =
        section_bytes().raw({1, 0x34, 0, 0x0B, 0x05, 0x0B, 0x06, 0x0B, 0x07, 0x11, 0x01, 2, 0x0A, 0, 0, 0});
    const section_bytes unit = unit_of(section_bytes()
                                           .b1(1)
                                           .raw({0x12, 0x34, 0x12, 0x34, 0x56, 0x78, 0, 0, 0, 0, 0, 0, 0, 9})
                                           .raw({0, 0, 0x01, 0x00, 3, 0x0A, 0x01, 0x02}));
    EXPECT_EQ(unit_header(30) + ENTRY +
                  "     DW_AT_byte_size      :0x1234 (4660)\n     DW_AT_byte_size      :0x12345678 (305419896)\n"
                  "     DW_AT_byte_size      :0x9 (9)\n     DW_AT_low_pc         :0x100\n"
                  "     DW_AT_location       :3 byte block a 1 2     (DW_OP_const2u: 258)\n",
              printed_by([&](dwarf_text &out) { dwarf_info_dump(out, unit, abbrev, {}); }));
}

TEST(dwarf_dump_info, a_target_of_words)
{
    const word_room room;
    const section_bytes abbrev = section_bytes().zeros(2).bytes(one_attribute(0x49, 0x11));
    const section_bytes one = section_bytes().b4(7).b2(2).b4(1).b1(4).raw({1, 2}).zeros(5);
    const section_bytes unit = section_bytes(one).bytes(one);
    const std::string tail = "   Length:        7 (actual 14)\n   Version:       2\n"
                             "   Abbrev Offset: 0x1 (actual 0x2)\n   Pointer Size:  4\n";
    const std::string entry = ">: Abbrev Number: 1 (DW_TAG_variable)\n     DW_AT_type           :<";
    EXPECT_EQ("\n  Compilation Unit @ 0:\n" + tail + " <0><5" + entry + "2>\n\n  Compilation Unit @ 9:\n" + tail +
                  " <0><e" + entry + "b>\n",
              printed_by([&](dwarf_text &out) { dwarf_info_dump(out, unit, abbrev, {}); }));
    EXPECT_EQ(" WARNING: Size of .dwarf_info section is too small, must be at least (14), could not continue...\n\n",
              printed_by([&](dwarf_text &out) { dwarf_info_dump(out, section_bytes().zeros(13), abbrev, {}); }));
}

TEST(dwarf_dump_info, damaged_headers)
{
    const section_bytes abbrev = one_attribute(3, 8);
    EXPECT_EQ(" WARNING: Size of .dwarf_info section is too small, must be at least (7), could not continue...\n\n",
              info(section_bytes().zeros(6), abbrev));
    EXPECT_EQ("\n  Compilation Unit @ 0:\n   Length:        6\n"
              " WARNING: length of .dwarf_info section is too small, could not continue...\n\n",
              info(section_bytes().b4(6).zeros(6), abbrev));
    EXPECT_EQ("\n  Compilation Unit @ 0:\n   Length:        7\n   Version:       4\n"
              " WARNING: Unsupported DWARF version (4), can not continue...\n",
              info(section_bytes().b4(7).b2(4).zeros(5), abbrev));
    EXPECT_EQ("\n  Compilation Unit @ 0:\n   Length:        7\n   Version:       3\n   Abbrev Offset: 0x8\n"
              " WARNING: Abbrev Offset is too big, beyond the section limit, could not continue...\n",
              info(section_bytes().b4(7).b2(3).b4(8).b1(4), abbrev));
    EXPECT_EQ("\n  Compilation Unit @ 0:\n   Length:        7\n   Version:       3\n   Abbrev Offset: 0x0\n"
              "   Pointer Size:  3\n WARNING: Pointer Size is invalid, could not continue...\n",
              info(section_bytes().b4(7).b2(3).b4(0).b1(3), abbrev));
}

TEST(dwarf_dump_expression, operands)
{
    EXPECT_EQ("(unknown)", expression({}));
    EXPECT_EQ("DW_OP_addr: 0x1234", expression({0x03, 0x34, 0x12, 0, 0}));
    EXPECT_EQ("DW_OP_addr: (unknown)", expression({0x03, 0x34, 0x12, 0}));
    EXPECT_EQ("DW_OP_deref", expression({0x06}));
    EXPECT_EQ("DW_OP_const1u: 255", expression({0x08, 0xFF}));
    EXPECT_EQ("DW_OP_const1s: -1", expression({0x09, 0xFF}));
    EXPECT_EQ("DW_OP_const2u: 65535", expression({0x0A, 0xFF, 0xFF}));
    EXPECT_EQ("DW_OP_const2s: -1", expression({0x0B, 0xFF, 0xFF}));
    EXPECT_EQ("DW_OP_const4u: 4294967295", expression({0x0C, 0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ("DW_OP_const4s: -1", expression({0x0D, 0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ("DW_OP_const8u: 0x1", expression({0x0E, 1, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ("DW_OP_constu: 128", expression({0x10, 0x80, 0x01}));
    EXPECT_EQ("DW_OP_consts: -2", expression({0x11, 0x7E}));
    EXPECT_EQ("DW_OP_pick: 3", expression({0x15, 3}));
    EXPECT_EQ("DW_OP_skip: -2", expression({0x2F, 0xFE, 0xFF}));
    EXPECT_EQ("DW_OP_bra: 2", expression({0x28, 2, 0}));
    EXPECT_EQ("DW_OP_breg31: -8", expression({0x8F, 0x78}));
    EXPECT_EQ("DW_OP_bregx5: -8", expression({0x92, 5, 0x78}));
    EXPECT_EQ("DW_OP_piece: 4", expression({0x93, 4}));
    EXPECT_EQ("DW_OP_nop", expression({0x96}));
    EXPECT_EQ("DW_OP_deref_size: 2", expression({0x94, 2}));
    EXPECT_EQ("DW_OP_xderef_size: 255", expression({0x95, 255}));
    EXPECT_EQ("DW_OP_const8s: 0xffffffffffffffff", expression({0x0F, 255, 255, 255, 255, 255, 255, 255, 255}));
    EXPECT_EQ("DW_OP_plus_uconst: 8", expression({0x23, 8}));
    EXPECT_EQ("DW_OP_regx: 130", expression({0x90, 0x82, 1}));
    EXPECT_EQ("DW_OP_fbreg: -128", expression({0x91, 0x80, 0x7F}));
    EXPECT_EQ("?? 0x00000097", expression({0x97}));
    EXPECT_EQ("?? 0x000000E0 (user-defined)", expression({0xE0, 1, 2}));
}

TEST(dwarf_dump_expression, addresses_of_other_pointer_sizes)
{
    EXPECT_EQ("DW_OP_addr: 0xff", expression({0x03, 0xFF}, 1));
    EXPECT_EQ("DW_OP_addr: 0x201", expression({0x03, 1, 2}, 2));
    EXPECT_EQ("DW_OP_addr: 0x807060504030201", expression({0x03, 1, 2, 3, 4, 5, 6, 7, 8}, 8));
    const survived_errors errors;
    EXPECT_EQ("DW_OP_addr: (unknown)", expression({0x03, 1, 2, 3}, 3));
    EXPECT_EQ(1U, errors.count());
}

// Every operator with an operand, all of whose bytes are missing; all others stand alone.
TEST(dwarf_dump_expression, operands_that_do_not_fit)
{
    const dwarf_room room;
    std::set<int> with_operand = {0x03, 0x28, 0x2F, 0x90, 0x91, 0x92, 0x93, 0x94, 0x95, 0x15, 0x23};
    for (int code = 0x08; code <= 0x11; ++code) {
        with_operand.insert(code); // the constants
    }
    for (int code = 0x70; code <= 0x8F; ++code) {
        with_operand.insert(code); // the based registers
    }
    for (int code = 0; code < 256; ++code) {
        const auto byte = static_cast<std::uint8_t>(code);
        const std::string name{dwarf_name(dwarf_operator_names, byte, true)};
        EXPECT_EQ(name + (with_operand.contains(code) ? ": (unknown)" : ""), expression({byte}));
    }
    EXPECT_EQ("DW_OP_const4u: (unknown)", expression({0x0C, 1, 2, 3}));
    EXPECT_EQ("DW_OP_constu: (unknown)", expression({0x10, 0x80, 0x80}));
    EXPECT_EQ("DW_OP_bregx5: (unknown)", expression({0x92, 5}));
    EXPECT_EQ("DW_OP_bregx: (unknown)", expression({0x92, 0x85}));
}

} // namespace

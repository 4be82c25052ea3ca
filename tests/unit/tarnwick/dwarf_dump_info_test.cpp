// SPDX-License-Identifier: MIT
// The name tables, abbreviations, entries with their forms, and location expressions.
#include "compiler/tarnwick/dwarf_name_tables.h"
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

section_bytes unit_of(const section_bytes &entries)
{
    section_bytes unit;
    unit.b2(2).b4(0).b1(4);
    unit.insert(unit.end(), entries.begin(), entries.end());
    return with_length(unit);
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

std::string expression(std::initializer_list<std::uint8_t> bytes)
{
    const dwarf_room room;
    const section_bytes content = section_bytes().raw(bytes);
    return printed_by([&](dwarf_text &out) { dwarf_loc_read_location(out, content, 4); });
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
}

TEST(dwarf_dump_abbrev, entries_and_their_pairs)
{
    const dwarf_room room;
    const section_bytes section =
        section_bytes().raw({1, 0x11, 1, 3, 8, 0x11, 1, 0, 0, 2, 0x34, 0, 0, 0, 3, 0x24, 7, 0, 0, 0});
    EXPECT_EQ("\n  Number TAG\n"
              "   1      DW_TAG_compile_unit       [has children]\n"
              "    DW_AT_name           DW_FORM_string\n"
              "    DW_AT_low_pc         DW_FORM_addr\n"
              "   2      DW_TAG_variable           [no children]\n"
              "   3      DW_TAG_base_type          [not known]\n",
              printed_by([&](dwarf_text &out) { dwarf_abbrev_dump(out, section); }));
}

TEST(dwarf_dump_abbrev, the_end_of_the_section_inside_an_entry)
{
    const dwarf_room room;
    const section_bytes section = section_bytes().raw({1, 0x34, 0, 3});
    testing::internal::CaptureStderr();
    const std::string text = printed_by([&](dwarf_text &out) { dwarf_abbrev_dump(out, section); });
    EXPECT_EQ("WARNING: content of .dwarf_abbrev goes beyond the section limit.\n",
              testing::internal::GetCapturedStderr());
    EXPECT_EQ("\n  Number TAG\n   1      DW_TAG_variable           [no children]\n", text);
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

TEST(dwarf_dump_info, indirect_and_unknown_forms_stop_the_dump)
{
    EXPECT_EQ("0x7 (7)\n" + FORM_WARNING + ERROR_LINE, value_of(0x0B, 0x16, {0x0B, 7}));
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
    EXPECT_EQ("?? 0x00000097", expression({0x97}));
}

} // namespace

// SPDX-License-Identifier: MIT
// The dump of abbreviations, and their look-up: which entry of a number counts, tables that units come back to, and
// tables that overlap.
#include "compiler/tarnwick/dwarf_dump_abbrev.h"
#include "tests/unit/tarnwick/dwarf_dump_testing.h"

namespace {

const std::string BEYOND = "WARNING: content of .dwarf_abbrev goes beyond the section limit.\n";

// Standard output; what went to the standard error stream is compared.
std::string dumped(const section_bytes &section, const std::string &errors = "")
{
    const dwarf_room room;
    testing::internal::CaptureStderr();
    const std::string text = printed_by([&](dwarf_text &out) { dwarf_abbrev_dump(out, section); });
    EXPECT_EQ(errors, testing::internal::GetCapturedStderr());
    return text;
}

TEST(dwarf_dump_abbrev, entries_and_their_pairs)
{
    EXPECT_EQ("\n  Number TAG\n"
              "   1      DW_TAG_compile_unit       [has children]\n"
              "    DW_AT_name           DW_FORM_string\n"
              "    DW_AT_low_pc         DW_FORM_addr\n"
              "   2      DW_TAG_variable           [no children]\n"
              "   3      DW_TAG_base_type          [not known]\n",
              dumped(section_bytes().raw({1, 0x11, 1, 3, 8, 0x11, 1, 0, 0, 2, 0x34, 0, 0, 0, 3, 0x24, 7, 0, 0, 0})));
}

TEST(dwarf_dump_abbrev, numbers_of_0_are_passed_over_and_long_names_run_on)
{
    EXPECT_EQ("\n  Number TAG\n"
              "12345      DW_TAG_template_type_parameter [no children]\n"
              "    DW_AT_vtable_elem_location DW_FORM_ref_udata\n"
              "    ?? 0x00002001 (user-defined) ?? 0x00000019\n"
              "   1      ?? 0x00004080 (user-defined) [no children]\n",
              dumped(section_bytes()
                         .raw({0, 0, 0xB9, 0x60, 0x2F, 0, 0x4D, 0x15, 0x81, 0x40, 0x19, 0, 0, 0, 0})
                         .raw({1, 0x80, 0x81, 0x01, 0, 0, 0})));
}

TEST(dwarf_dump_abbrev, the_end_of_the_section_inside_an_entry)
{
    const std::string entry = "\n  Number TAG\n   1      DW_TAG_variable           [no children]\n";
    EXPECT_EQ("\n  Number TAG\n", dumped(section_bytes().raw({0x81}), BEYOND));
    EXPECT_EQ("\n  Number TAG\n", dumped(section_bytes().raw({1}), BEYOND));
    EXPECT_EQ("\n  Number TAG\n", dumped(section_bytes().raw({1, 0x34}), BEYOND));
    EXPECT_EQ(entry, dumped(section_bytes().raw({1, 0x34, 0}), BEYOND));
    EXPECT_EQ(entry, dumped(section_bytes().raw({1, 0x34, 0, 3}), BEYOND));
    EXPECT_EQ(entry + "    DW_AT_name           DW_FORM_string\n",
              dumped(section_bytes().raw({1, 0x34, 0, 3, 8}), BEYOND));
    EXPECT_EQ(entry, dumped(section_bytes().raw({1, 0x34, 0, 0, 0})));
    EXPECT_EQ("\n  Number TAG\n", dumped({}));
}

// The tag of a number, 0 if it is not found.
std::uint32_t tag_of(abbreviation_tables &tables, std::uint32_t number)
{
    const abbreviation *entry = tables.dwarf_abbrev_locate_entry(number);
    return entry != nullptr ? entry->tag : 0;
}

TEST(dwarf_dump_abbrev_tables, the_first_entry_of_a_number_counts)
{
    const dwarf_room room;
    const section_bytes section =
        section_bytes().raw({7, 71, 0, 0, 0, 1, 11, 0, 0, 0, 1, 12, 0, 0, 0, 2, 21, 0, 0, 0}).raw({7,  72, 0, 0, 0, 3,
                                                                                                   31, 0,  0, 0, 2, 22,
                                                                                                   0,  0,  0, 0, 9, 91,
                                                                                                   0,  0,  0});
    for (const std::vector<std::uint32_t> &order :
         {std::vector<std::uint32_t>{1, 2, 3, 7}, {7, 3, 2, 1}, {3, 1, 7, 2}}) {
        abbreviation_tables tables(section);
        tables.open(0);
        EXPECT_EQ(0U, tag_of(tables, 0));
        for (int round = 0; round < 2; ++round) {
            for (const std::uint32_t number : order) {
                EXPECT_EQ(number * 10 + 1, tag_of(tables, number));
            }
        }
        EXPECT_EQ(0U, tag_of(tables, 4));
        EXPECT_EQ(0U, tag_of(tables, 9)); // behind the end of the table
        EXPECT_EQ(31U, tag_of(tables, 3));
    }
}

TEST(dwarf_dump_abbrev_tables, a_number_out_of_order_keeps_its_first_entry)
{
    const dwarf_room room;
    const section_bytes section = section_bytes().raw({2, 21, 0, 0, 0, 1, 11, 0, 0, 0, 2, 22, 0, 0, 0, 0});
    abbreviation_tables tables(section);
    tables.open(0);
    EXPECT_EQ(11U, tag_of(tables, 1));
    EXPECT_EQ(0U, tag_of(tables, 3)); // all of it has been read now
    EXPECT_EQ(21U, tag_of(tables, 2));
}

TEST(dwarf_dump_abbrev_tables, units_come_back_to_a_table)
{
    const dwarf_room room;
    const section_bytes section = section_bytes()
                                      .raw({1, 11, 1, 3, 8, 4, 5, 0, 0, 9, 19, 0, 0, 0, 0})
                                      .raw({1, 21, 0, 5, 6, 0, 0, 9, 29, 0, 0, 0});
    abbreviation_tables tables(section);
    for (int round = 0; round < 3; ++round) {
        tables.open(0);
        EXPECT_EQ(11U, tag_of(tables, 1));
        EXPECT_EQ(19U, tag_of(tables, 9));
        const abbreviation *entry = tables.dwarf_abbrev_locate_entry(1);
        ASSERT_EQ(2U, tables.pairs(*entry).size());
        EXPECT_EQ(1, entry->children);
        EXPECT_EQ(3U, tables.pairs(*entry)[0].attribute);
        EXPECT_EQ(5U, tables.pairs(*entry)[1].form);
        tables.open(15);
        EXPECT_EQ(29U, tag_of(tables, 9));
        EXPECT_EQ(21U, tag_of(tables, 1));
        EXPECT_EQ(1U, tables.pairs(*tables.dwarf_abbrev_locate_entry(1)).size());
        tables.open(9); // in the middle of the first table
        EXPECT_EQ(19U, tag_of(tables, 9));
        EXPECT_EQ(0U, tag_of(tables, 1));
    }
}

TEST(dwarf_dump_abbrev_tables, an_entry_that_the_section_cuts_does_not_count)
{
    const dwarf_room room;
    const section_bytes section = section_bytes().raw({1, 11, 0, 0, 0, 2, 21, 0, 3, 8});
    abbreviation_tables tables(section);
    tables.open(0);
    EXPECT_EQ(11U, tag_of(tables, 1));
    EXPECT_EQ(0U, tag_of(tables, 2));
    EXPECT_EQ(0U, tag_of(tables, 2));
}

TEST(dwarf_dump_abbrev_tables, overlapping_tables_are_read_up_to_an_allowance)
{
    const dwarf_room room;
    constexpr std::size_t ENTRIES = 200000;
    section_bytes section;
    for (std::size_t i = 0; i < ENTRIES; ++i) {
        section.raw({5, 51, 0, 0, 0});
    }
    section.raw({1, 11, 0, 0, 0, 0});
    abbreviation_tables tables(section);
    std::size_t found = 0;
    for (std::size_t i = 0; i < ENTRIES / 2; ++i) { // 100 GB, were they all read to their end
        tables.open(i * 5);
        found += tag_of(tables, 1) == 11 ? 1 : 0;
    }
    EXPECT_LE(4U, found);
    EXPECT_GE(8U, found);
    tables.open(0);
    EXPECT_EQ(11U, tag_of(tables, 1)); // read long before
}

} // namespace

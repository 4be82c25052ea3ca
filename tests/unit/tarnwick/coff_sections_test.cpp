// SPDX-License-Identifier: MIT
// The section table of a COFF output, and which section an address is in.
#include "compiler/tarnwick/coff_sections.h"

#include <random>

#include "tests/unit/tarnwick/coff_testing.h"

namespace {

class coff_sections_test : public coff_model {
public:
    void make() { coff_make_sections(&sections, &tables); }
    // "name paddr size flags", in hexadecimal.
    text_lines list() const
    {
        text_lines lines;
        for (const coff_section &section : sections.list) {
            lines.push_back(name_in(section.name.data(), tables.coff_strings) +
                            format_numbers({section.paddr, section.size, section.flags}));
        }
        return lines;
    }
    std::uint32_t section_of(std::uint32_t address, std::uint32_t segment) const
    {
        return vcoff_section_of(sections, {address, segment});
    }

    coff_tables tables;
    coff_sections sections;
};

TEST_F(coff_sections_test, the_empty_model_has_the_absolute_section)
{
    make();
    EXPECT_EQ(list(), (text_lines{"ABS 0 0 1000"}));
    EXPECT_EQ(sections.first_block, 1U);
}

TEST_F(coff_sections_test, segments_of_no_code_space_come_first_and_then_all_blocks)
{
    set_add(eeprom_spaces, 3);
    add_segment("bss", DATA, 0x20, 5);
    add_segment("code", CODE, 0x100, 4);
    add_segment("eeprom", 3, 0x10, 2);
    add_segment("other", 9, 0x40, 1);
    add_block(2, 0x100, 4);
    add_block(3, 0xF000, 2);
    make();
    EXPECT_EQ(list(), (text_lines{"ABS 0 0 1000", "bss 20 5 80", "eeprom 10 2 80", "other 40 1 80", "code 100 4 20",
                                  "eeprom1 F000 2 20"}));
    EXPECT_EQ(sections.first_block, 4U);
    EXPECT_EQ(sections.list[3].block, nullptr);
    EXPECT_EQ(sections.list[5].block, data_list.get(1));
}

TEST_F(coff_sections_test, addresses_are_in_units)
{
    coff.rom_unit = 2;
    add_segment("bss", DATA, 0x21, 5);
    add_segment("code", CODE, 0x101, 4);
    add_block(2, 0x101, 4);
    make();
    EXPECT_EQ(list(), (text_lines{"ABS 0 0 1000", "bss 21 5 80", "code 80 4 20"}));
}

TEST_F(coff_sections_test, blocks_of_one_segment_get_distinct_names)
{
    add_segment("name", CODE, 0, 8);
    add_block(1, 0, 2);
    add_block(1, 4, 2);
    add_block(1, 6, 2);
    make();
    EXPECT_EQ(list(), (text_lines{"ABS 0 0 1000", "name 0 2 20", "name1 4 2 20", "name2 6 2 20"}));
}

TEST_F(coff_sections_test, a_block_of_no_segment_is_text)
{
    add_segment("code", CODE, 0, 8);
    add_block(0, 0, 2);
    add_block(1, 2, 2);
    add_block(2, 4, 2); // above the count of segments
    add_block(0xFFFFFFFF, 6, 2);
    make();
    EXPECT_EQ(list(), (text_lines{"ABS 0 0 1000", "text 0 2 20", "code 2 2 20", "text1 4 2 20", "text2 6 2 20"}));
}

TEST_F(coff_sections_test, long_names_follow_the_length_rule_and_keep_underscores)
{
    opt_strip_underscore = true;
    add_segment("_stray_data_0_", CODE, 0, 8);
    add_segment("_d", DATA, 0, 8);
    add_block(1, 0, 2);
    add_block(1, 4, 2);
    make();
    EXPECT_EQ(list(), (text_lines{"ABS 0 0 1000", "_d 0 8 80", "'_stray_data_0_' 0 2 20", "'_stray_data_0_1' 4 2 20"}));
    EXPECT_EQ(strings_of(tables), (text_lines{"_stray_data_0_", "_stray_data_0_1"}));
}

TEST_F(coff_sections_test, a_name_that_is_missing_is_made_up)
{
    const name_watch generated;
    add_segment("a", DATA, 0, 1);
    add_segment("b", CODE, 0, 1);
    seg_list.get(0)->sg_name = nullptr;
    seg_list.get(1)->sg_name = nullptr;
    add_block(2, 0, 1);
    make();
    EXPECT_EQ(list(), (text_lines{"ABS 0 0 1000", generated(0) + " 0 1 80", generated(1) + " 0 1 20"}));
}

TEST_F(coff_sections_test, a_data_address_is_in_the_section_of_its_segment)
{
    add_segment("code1", CODE, 0, 0x40);
    add_segment("data1", DATA, 0x20, 0x10);
    add_segment("code2", CODE, 0x40, 0x40);
    add_segment("data2", DATA, 0x30, 0x10);
    add_block(1, 0, 0x40);
    add_block(3, 0x40, 0x40);
    make();
    EXPECT_EQ(section_of(0x25, 2), 2U); // ABS, data1
    EXPECT_EQ(section_of(0x35, 4), 3U); // ABS, data1, data2
    EXPECT_EQ(section_of(0x99, 4), 3U) << "an address outside keeps the number it came with";
}

TEST_F(coff_sections_test, a_data_address_follows_a_segment_that_was_split)
{
    add_segment("data", DATA, 0x20, 0x10);
    add_segment("code", CODE, 0, 0x10);
    add_segment("more", DATA, 0x30, 0x10);
    seg_list.get(2)->sg_index = 1; // the younger part bears the number that addresses came with
    tarn_segments_changed();
    make();
    EXPECT_EQ(section_of(0x2F, 1), 2U);
    EXPECT_EQ(section_of(0x30, 1), 3U);
}

TEST_F(coff_sections_test, other_addresses_are_in_the_first_block_that_holds_them)
{
    add_segment("code", CODE, 0, 0x100);
    add_segment("data", DATA, 0, 0x100);
    add_block(1, 0x40, 0x20);
    add_block(1, 0x20, 0x30); // reaches into the one in front of it
    add_block(1, 0x10, 0x10);
    make(); // ABS, data, three blocks
    EXPECT_EQ(section_of(0x40, 1), 3U);
    EXPECT_EQ(section_of(0x5F, 1), 3U);
    EXPECT_EQ(section_of(0x20, 1), 4U);
    EXPECT_EQ(section_of(0x3F, 0), 4U) << "no segment";
    EXPECT_EQ(section_of(0x1F, 7), 5U) << "a number that is no segment";
}

TEST_F(coff_sections_test, an_address_that_nothing_holds_gets_its_segment_number_and_one)
{
    add_segment("code", CODE, 0, 0x100);
    add_block(1, 0x40, 0x20);
    make();
    EXPECT_EQ(section_of(0x3F, 0), 1U);
    EXPECT_EQ(section_of(0x60, 1), 2U);
    EXPECT_EQ(section_of(0x60, 77), 78U);
}

TEST_F(coff_sections_test, code_addresses_count_program_units)
{
    coff.rom_unit = 2;
    add_segment("code", CODE, 0, 0x100);
    add_block(1, 0x40, 0x20);
    make();
    EXPECT_EQ(section_of(0x1F, 1), 2U) << "byte 3E is in front of the block";
    EXPECT_EQ(section_of(0x20, 5), 2U);
    EXPECT_EQ(section_of(0x30, 5), 6U) << "byte 60 is behind it";
    EXPECT_EQ(section_of(0x80000020, 5), 2U) << "the product has 32 bits";
}

TEST_F(coff_sections_test, the_last_byte_of_the_address_range_is_in_no_block)
{
    add_block(0, 0xFFFFFFF0, 0x0F);
    add_block(0, 0xFFFFFFFF, 1); // its end wraps, so it has no byte
    make();
    EXPECT_EQ(section_of(0xFFFFFFFE, 8), 2U);
    EXPECT_EQ(section_of(0xFFFFFFFF, 8), 9U);
}

// The plain form of the search.
std::uint32_t walked_section(std::uint32_t section_count, std::uint32_t address, std::uint32_t segment)
{
    if (tarn_segno_is_data(segment)) {
        std::uint32_t n = segment;
        for (std::uint32_t i = 0; i < seg_list.count(); ++i) {
            const tarn_segment *seg = seg_list.get(i);
            const std::uint32_t byte = address * coff.ram_unit;
            if (seg->sg_index == segment && byte >= seg->sg_addr && byte < seg->sg_addr + seg->sg_size) {
                n = i + 1;
                break;
            }
        }
        std::uint32_t codes = 0;
        for (std::uint32_t i = 0; i < n; ++i) {
            codes += tarn_seg_is_code(seg_list.get(i)) ? 1 : 0;
        }
        return n - codes + 1;
    }
    for (std::uint32_t i = 0; i < data_list.count(); ++i) {
        const tarn_data *dp = data_list.get(i);
        const std::uint32_t byte = address * coff.rom_unit;
        if (byte >= dp->da_addr && byte < dp->da_addr + dp->da_len) {
            return section_count + i + 1 - data_list.count();
        }
    }
    return segment + 1;
}

TEST_F(coff_sections_test, the_index_finds_what_a_walk_finds)
{
    std::mt19937 engine(11);
    const auto random = [&engine](std::uint32_t bound) { return static_cast<std::uint32_t>(engine() % bound); };
    coff.rom_unit = 2;
    for (int i = 0; i < 60; ++i) {
        const std::string name = "s" + std::to_string(i);
        add_segment(name.c_str(), 1 + random(3), random(500), random(60));
        seg_list.last()->sg_index = 1 + random(60);
    }
    tarn_segments_changed();
    for (int i = 0; i < 200; ++i) {
        add_block(random(70), random(1000), random(40));
    }
    make();
    for (int i = 0; i < 5000; ++i) {
        const std::uint32_t address = random(600);
        const std::uint32_t segment = random(70);
        ASSERT_EQ(section_of(address, segment),
                  walked_section(static_cast<std::uint32_t>(sections.list.size()), address, segment));
    }
}

} // namespace

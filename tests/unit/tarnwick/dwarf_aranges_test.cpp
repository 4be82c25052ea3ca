// SPDX-License-Identifier: MIT
#include "compiler/tarnwick/dwarf_aranges.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/trace.h"
#include "tests/unit/scenario.h"
#include "tests/unit/tarnwick/dwarf_bytes.h"
#include "tests/unit/tarnwick/trace_log.h"

namespace {

class dwarf_address_table : public testing::Test {
protected:
    dwarf_address_table() { dwarf_aranges_init(); }

    static bytes unit_without_ranges()
    {
        const section_mark mark(dwarf_aranges_finish);
        dwarf_aranges_finish_unit(dwarf_aranges_start_unit(0x11223344));
        return mark.added();
    }

private:
    dwarf_room room_;
};

// The whole section, as a line of a scenario.
void note_section()
{
    std::uint8_t *data = nullptr;
    std::uint32_t size = 0;
    dwarf_aranges_finish(&data, &size);
    note("%s", hex({data, data + size}).c_str());
}

TEST_F(dwarf_address_table, unit_without_ranges_has_header_padding_and_end)
{
    EXPECT_EQ(unit_without_ranges(), (bytes{20, 0, 0, 0, 2, 0, 0x44, 0x33, 0x22, 0x11, 4, 0, //
                                            0,  0, 0, 0,                                     //
                                            0,  0, 0, 0, 0, 0, 0,    0}));
}

TEST_F(dwarf_address_table, ranges_are_start_and_length)
{
    const section_mark mark(dwarf_aranges_finish);
    aranges_unit_info *unit = dwarf_aranges_start_unit(0x80);
    dwarf_aranges_add_range(0x12345678, 0x1234567A);
    dwarf_aranges_add_range(0, 0x100);
    dwarf_aranges_finish_unit(unit);
    EXPECT_EQ(mark.added(), (bytes{36,   0,    0,    0,    2, 0, 0x80, 0, 0, 0, 4, 0, //
                                   0,    0,    0,    0,                               //
                                   0x78, 0x56, 0x34, 0x12, 2, 0, 0,    0,             //
                                   0,    0,    0,    0,    0, 1, 0,    0,             //
                                   0,    0,    0,    0,    0, 0, 0,    0}));
}

TEST_F(dwarf_address_table, numbers_follow_the_byte_order)
{
    opt_big_endian = true;
    const section_mark mark(dwarf_aranges_finish);
    aranges_unit_info *unit = dwarf_aranges_start_unit(0x11223344);
    dwarf_aranges_add_range(0x1000, 0x1234);
    dwarf_aranges_finish_unit(unit);
    EXPECT_EQ(mark.added(), (bytes{0, 0, 0,    28, 0, 2, 0x11, 0x22, 0x33, 0x44, 4, 0, //
                                   0, 0, 0,    0,                                      //
                                   0, 0, 0x10, 0,  0, 0, 0x02, 0x34,                   //
                                   0, 0, 0,    0,  0, 0, 0,    0}));
}

TEST_F(dwarf_address_table, version_is_that_of_the_unit)
{
    for (const dwarf_use_mode mode : {DWARF_USE_AUTO, DWARF_USE_ALWAYS}) {
        dwarf_use_loclists = DWARF_USE_NEVER;
        EXPECT_EQ(number_at(unit_without_ranges(), 4, 2), 2U);
        dwarf_use_ranges = mode;
        EXPECT_EQ(number_at(unit_without_ranges(), 4, 2), 3U);
        dwarf_use_ranges = DWARF_USE_NEVER;
        dwarf_use_loclists = mode;
        EXPECT_EQ(number_at(unit_without_ranges(), 4, 2), 3U);
    }
}

TEST_F(dwarf_address_table, addresses_have_4_bytes_whatever_the_option_says)
{
    const std::uint8_t before = dwarf_addr_size;
    const bytes expected = unit_without_ranges();
    for (const std::uint8_t size : bytes{1, 2, 8}) {
        dwarf_addr_size = size;
        EXPECT_EQ(unit_without_ranges(), expected);
    }
    dwarf_addr_size = before;
}

TEST_F(dwarf_address_table, range_to_the_end_of_the_address_space)
{
    const section_mark mark(dwarf_aranges_finish);
    aranges_unit_info *unit = dwarf_aranges_start_unit(0);
    // The address behind the last one is 0.
    dwarf_aranges_add_range(0xFFFFFF00, 0);
    dwarf_aranges_finish_unit(unit);
    const bytes content = mark.added();
    EXPECT_EQ(number_at(content, 16, 4), 0xFFFFFF00U);
    EXPECT_EQ(number_at(content, 20, 4), 0x100U);
}

TEST_F(dwarf_address_table, range_that_ends_before_its_start_is_written_all_the_same)
{
    const section_mark mark(dwarf_aranges_finish);
    aranges_unit_info *unit = dwarf_aranges_start_unit(0);
    dwarf_aranges_add_range(0x100, 0x100);
    dwarf_aranges_add_range(0x100, 0xFF);
    dwarf_aranges_finish_unit(unit);
    EXPECT_EQ(mark.added(), (bytes{36, 0, 0, 0, 2,    0,    0,    0,    0, 0, 4, 0, //
                                   0,  0, 0, 0,                                     //
                                   0,  1, 0, 0, 0,    0,    0,    0,                //
                                   0,  1, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF,             //
                                   0,  0, 0, 0, 0,    0,    0,    0}));
}

TEST_F(dwarf_address_table, range_that_ends_before_its_start_fails_an_assertion)
{
    aranges_unit_info *unit = dwarf_aranges_start_unit(0);
    const trace_log log;
    dwarf_aranges_add_range(0x100, 0x101);
    EXPECT_EQ(log.failed(), std::vector<std::string>());
    dwarf_aranges_add_range(0x100, 0x100);
    EXPECT_EQ(log.failed(), (std::vector<std::string>{"end_addr > start_addr"}));
    dwarf_aranges_add_range(0x100, 0xFF);
    EXPECT_EQ(log.failed(), (std::vector<std::string>{"end_addr > start_addr", "end_addr > start_addr"}));
    dwarf_aranges_finish_unit(unit);
}

TEST_F(dwarf_address_table, lengths_are_right_when_the_buffer_grows)
{
    constexpr std::uint32_t COUNT = 10000;
    const section_mark mark(dwarf_aranges_finish);
    aranges_unit_info *unit = dwarf_aranges_start_unit(0);
    for (std::uint32_t i = 0; i < COUNT; i++) {
        dwarf_aranges_add_range(2 * i, 2 * i + 2);
    }
    dwarf_aranges_finish_unit(unit);
    const bytes content = mark.added();
    ASSERT_EQ(content.size(), 80024U);
    EXPECT_EQ(number_at(content, 0, 4), 80020U);
    for (std::uint32_t i = 0; i < COUNT; i++) {
        ASSERT_EQ(number_at(content, 16 + 8 * std::size_t{i}, 4), 2 * i);
        ASSERT_EQ(number_at(content, 20 + 8 * std::size_t{i}, 4), 2U);
    }
    EXPECT_EQ(number_at(content, content.size() - 8, 8), 0U);
}

TEST_F(dwarf_address_table, length_is_scaled_before_its_field_is_left_out)
{
    // The header's 12 bytes are 6 units, so 2 bytes of padding follow; the unit's 22 bytes are 11 units.
    const bytes unit = joined({{7, 0, 0, 0, 2, 0, 0, 0, 0, 0, 4, 0}, bytes(2), bytes(8)});
    expect_run(
        [] {
            const dwarf_room room;
            dwarf_access = &halving_accessors;
            dwarf_aranges_init();
            dwarf_aranges_finish_unit(dwarf_aranges_start_unit(0));
            note_section();
        },
        hex(unit) + "\n");
}

TEST_F(dwarf_address_table, words_of_two_bytes_get_the_same_numbers)
{
    const bytes unit = {28, 0, 0, 0, 2, 0, 0x80, 0, 0, 0, 4, 0, //
                        0,  0, 0, 0,                            //
                        0,  1, 0, 0, 2, 0, 0,    0,             //
                        0,  0, 0, 0, 0, 0, 0,    0};
    expect_run(
        [] {
            const dwarf_room room;
            dwarf_access = &word_accessors;
            dwarf_aranges_init();
            for (int i = 0; i < 2; i++) {
                aranges_unit_info *info = dwarf_aranges_start_unit(0x80);
                dwarf_aranges_add_range(0x100, 0x102);
                dwarf_aranges_finish_unit(info);
            }
            note_section();
        },
        hex(spread(joined({unit, unit}))) + "\n");
}

// --- padding ------------------------------------------------------------------------------------------------------------

// A target that counts its units from somewhere before the section: the padding goes by the offset that it tells.
std::uint32_t first_unit = 0;

dwarf_accessors make_shifted_accessors()
{
    dwarf_accessors table = dwarf_byte_accessors;
    table.dwarf_unscale_offset = [](std::uint32_t size) { return size + first_unit; };
    return table;
}
const dwarf_accessors shifted_accessors = make_shifted_accessors();

struct padding_case {
    std::uint32_t first_unit;
    std::size_t padding;
    std::uint8_t length; // of a unit without ranges: 12 + padding + 8 + first_unit - 4
};

class dwarf_address_padding : public testing::TestWithParam<padding_case> {};

INSTANTIATE_TEST_SUITE_P(offsets, dwarf_address_padding,
                         testing::Values(padding_case{0, 4, 20}, padding_case{1, 3, 20}, padding_case{2, 2, 20},
                                         padding_case{3, 1, 20}, padding_case{4, 8, 28}, padding_case{5, 7, 28},
                                         padding_case{6, 6, 28}, padding_case{7, 5, 28}));

TEST_P(dwarf_address_padding, is_1_to_8_bytes)
{
    const padding_case &row = GetParam();
    const bytes expected = joined({{row.length, 0, 0, 0, 2, 0, 0, 0, 0, 0, 4, 0}, bytes(row.padding), bytes(8)});
    expect_run(
        [&row] {
            const dwarf_room room;
            dwarf_access = &shifted_accessors;
            first_unit = row.first_unit;
            dwarf_aranges_init();
            dwarf_aranges_finish_unit(dwarf_aranges_start_unit(0));
            note_section();
        },
        hex(expected) + "\n");
}

TEST(dwarf_address_padding_in_section, goes_by_the_section_and_not_by_the_unit)
{
    // The first unit takes a target that counts from 2: 2 bytes of padding, 22 bytes, which it tells as 24. So the second
    // starts at 22 and its header ends at 34: 6 bytes lead to 40.
    const bytes first = joined({{20, 0, 0, 0, 2, 0, 0, 0, 0, 0, 4, 0}, bytes(2), bytes(8)});
    const bytes second = joined({{22, 0, 0, 0, 2, 0, 0, 0, 0, 0, 4, 0}, bytes(6), bytes(8)});
    expect_run(
        [] {
            const dwarf_room room;
            dwarf_access = &shifted_accessors;
            first_unit = 2;
            dwarf_aranges_init();
            dwarf_aranges_finish_unit(dwarf_aranges_start_unit(0));
            dwarf_access = &dwarf_byte_accessors;
            dwarf_aranges_finish_unit(dwarf_aranges_start_unit(0));
            note_section();
        },
        hex(joined({first, second})) + "\n");
}

TEST(dwarf_address_table_order, a_section_that_was_not_opened_is_an_internal_error)
{
    expect_run(
        [] {
            const dwarf_room room;
            dwarf_aranges_finish_unit(dwarf_aranges_start_unit(0));
            note("not reached");
        },
        INTERNAL_ERROR_LINE, INTERNAL_ERROR_STATUS);
}

} // namespace

// SPDX-License-Identifier: MIT
#include "compiler/tarnwick/dwarf_pubnames.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/trace.h"
#include "tests/unit/scenario.h"
#include "tests/unit/tarnwick/dwarf_bytes.h"
#include "tests/unit/tarnwick/trace_log.h"

namespace {

class dwarf_name_table : public testing::Test {
protected:
    dwarf_name_table() { dwarf_pubnames_init(); }

    // A unit with one name.
    static bytes one_name_unit()
    {
        const section_mark mark(dwarf_pubnames_finish);
        pubnames_unit_info *unit = dwarf_pubnames_start_unit(0x11223344);
        dwarf_pubnames_add_name(unit, 0x0B, "main");
        dwarf_pubnames_finish_unit(unit, 0x55667788);
        return mark.added();
    }

private:
    dwarf_room room_;
};

TEST_F(dwarf_name_table, unit_with_a_name)
{
    EXPECT_EQ(one_name_unit(), joined({{23, 0, 0, 0, 2, 0, 0x44, 0x33, 0x22, 0x11, 0x88, 0x77, 0x66, 0x55},
                                       {0x0B, 0, 0, 0},
                                       text_bytes("main"),
                                       {0, 0, 0, 0}}));
}

TEST_F(dwarf_name_table, numbers_follow_the_byte_order)
{
    opt_big_endian = true;
    EXPECT_EQ(one_name_unit(), joined({{0, 0, 0, 23, 0, 2, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88},
                                       {0, 0, 0, 0x0B},
                                       text_bytes("main"),
                                       {0, 0, 0, 0}}));
}

TEST_F(dwarf_name_table, version_is_that_of_the_unit)
{
    for (const dwarf_use_mode mode : {DWARF_USE_AUTO, DWARF_USE_ALWAYS}) {
        dwarf_use_loclists = DWARF_USE_NEVER;
        EXPECT_EQ(number_at(one_name_unit(), 4, 2), 2U);
        dwarf_use_ranges = mode;
        EXPECT_EQ(number_at(one_name_unit(), 4, 2), 3U);
        dwarf_use_ranges = DWARF_USE_NEVER;
        dwarf_use_loclists = mode;
        EXPECT_EQ(number_at(one_name_unit(), 4, 2), 3U);
    }
}

TEST_F(dwarf_name_table, names_keep_their_order)
{
    const section_mark mark(dwarf_pubnames_finish);
    pubnames_unit_info *unit = dwarf_pubnames_start_unit(0);
    dwarf_pubnames_add_name(unit, 0x300, "b");
    dwarf_pubnames_add_name(unit, 0x40, "a");
    dwarf_pubnames_add_name(unit, 0x300, "b");
    dwarf_pubnames_finish_unit(unit, 0x1000);
    EXPECT_EQ(mark.added(), joined({{32, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0x00, 0x10, 0, 0},
                                    {0x00, 0x03, 0, 0, 'b', 0},
                                    {0x40, 0x00, 0, 0, 'a', 0},
                                    {0x00, 0x03, 0, 0, 'b', 0},
                                    {0, 0, 0, 0}}));
}

TEST_F(dwarf_name_table, no_name_is_an_empty_one)
{
    const section_mark mark(dwarf_pubnames_finish);
    pubnames_unit_info *unit = dwarf_pubnames_start_unit(0);
    dwarf_pubnames_add_name(unit, 1, nullptr);
    dwarf_pubnames_finish_unit(unit, 2);
    EXPECT_EQ(mark.added(), (bytes{19, 0, 0, 0, 2, 0, 0, 0, 0, 0, 2, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(dwarf_name_table, unit_without_names_writes_nothing)
{
    const section_mark mark(dwarf_pubnames_finish);
    dwarf_pubnames_finish_unit(dwarf_pubnames_start_unit(0x100), 0x20);
    EXPECT_EQ(mark.added(), bytes());

    // Nor does it leave anything for the units around it.
    const bytes before = one_name_unit();
    dwarf_pubnames_finish_unit(dwarf_pubnames_start_unit(0x100), 0x20);
    const bytes behind = one_name_unit();
    EXPECT_EQ(mark.added(), joined({before, behind}));
    EXPECT_EQ(before, behind);
}

TEST_F(dwarf_name_table, unit_without_names_is_traced)
{
    const trace_log log;
    gDebugMask = TRACE_DWARF;
    one_name_unit();
    EXPECT_EQ(log.lines(), std::vector<std::string>());
    dwarf_pubnames_finish_unit(dwarf_pubnames_start_unit(0), 0);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"dwarf_pubnames_finish_unit: Empty unit"}));
    gDebugMask = TRACE_ON; // of the other classes, none has this line
    dwarf_pubnames_finish_unit(dwarf_pubnames_start_unit(0), 0);
    EXPECT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.failed(), std::vector<std::string>());
}

TEST_F(dwarf_name_table, lengths_are_right_when_the_buffer_grows)
{
    constexpr std::uint32_t COUNT = 10000;
    const section_mark mark(dwarf_pubnames_finish);
    pubnames_unit_info *unit = dwarf_pubnames_start_unit(7);
    bytes expected;
    for (std::uint32_t i = 0; i < COUNT; i++) {
        dwarf_pubnames_add_name(unit, 5, "name");
        expected.insert(expected.end(), {5, 0, 0, 0, 'n', 'a', 'm', 'e', 0});
    }
    dwarf_pubnames_finish_unit(unit, 9);
    // 10 + 9 * 10000 + 4 = 0x15F9E
    EXPECT_EQ(mark.added(), joined({{0x9E, 0x5F, 0x01, 0, 2, 0, 7, 0, 0, 0, 9, 0, 0, 0}, expected, {0, 0, 0, 0}}));
}

TEST_F(dwarf_name_table, name_may_be_longer_than_the_buffer)
{
    const std::string name(100000, 'x');
    const section_mark mark(dwarf_pubnames_finish);
    pubnames_unit_info *unit = dwarf_pubnames_start_unit(0);
    dwarf_pubnames_add_name(unit, 1, name.c_str());
    dwarf_pubnames_finish_unit(unit, 2);
    // 10 + 4 + 100001 + 4 = 0x186B3
    EXPECT_EQ(mark.added(), joined({{0xB3, 0x86, 0x01, 0, 2, 0, 0, 0, 0, 0, 2, 0, 0, 0, 1, 0, 0, 0},
                                    text_bytes(name.c_str()),
                                    {0, 0, 0, 0}}));
}

TEST_F(dwarf_name_table, words_of_two_bytes_get_the_same_numbers)
{
    const bytes plain = one_name_unit();
    dwarf_access = &word_accessors;
    EXPECT_EQ(one_name_unit(), spread(plain));
}

TEST_F(dwarf_name_table, length_is_scaled_before_its_field_is_left_out)
{
    dwarf_access = &halving_accessors;
    EXPECT_EQ(number_at(one_name_unit(), 0, 4), 27U / 2 - 4);
}

TEST(dwarf_name_table_order, a_section_that_was_not_opened_is_an_internal_error)
{
    expect_run(
        [] {
            const dwarf_room room;
            dwarf_pubnames_finish_unit(dwarf_pubnames_start_unit(0), 0);
            note("not reached");
        },
        INTERNAL_ERROR_LINE, INTERNAL_ERROR_STATUS);
}

} // namespace

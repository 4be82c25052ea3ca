// SPDX-License-Identifier: MIT
#include "compiler/tarnwick/dwarf_ranges.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/trace.h"
#include "tests/unit/scenario.h"
#include "tests/unit/tarnwick/dwarf_bytes.h"
#include "tests/unit/tarnwick/trace_log.h"

namespace {

class dwarf_range_lists : public testing::Test {
protected:
    sdb_range second_ = {.low = 0x180, .high = 0x18F};
    sdb_range first_ = {.low = 0x100, .high = 0x1FF, .next = &second_};

private:
    dwarf_room room_;
};

TEST_F(dwarf_range_lists, pairs_have_the_address_size)
{
    dwarf_ranges_init(2);
    const section_mark two(dwarf_ranges_finish);
    EXPECT_EQ(dwarf_ranges_add_list(&first_), two.start());
    EXPECT_EQ(two.added(), (bytes{0xFF, 0xFF, 0, 0,       //
                                  0x00, 0x01, 0x00, 0x02, //
                                  0x80, 0x01, 0x90, 0x01, //
                                  0, 0, 0, 0}));

    dwarf_ranges_init(4);
    const section_mark four(dwarf_ranges_finish);
    EXPECT_EQ(dwarf_ranges_add_list(&first_), four.start());
    EXPECT_EQ(four.added(), (bytes{0xFF, 0xFF, 0xFF, 0xFF, 0,    0,    0, 0, //
                                   0x00, 0x01, 0,    0,    0x00, 0x02, 0, 0, //
                                   0x80, 0x01, 0,    0,    0x90, 0x01, 0, 0, //
                                   0,    0,    0,    0,    0,    0,    0, 0}));

    dwarf_ranges_init(1);
    const section_mark one(dwarf_ranges_finish);
    const sdb_range low = {.low = 0x10, .high = 0x1F};
    EXPECT_EQ(dwarf_ranges_add_list(&low), one.start());
    EXPECT_EQ(one.added(), (bytes{0xFF, 0, 0x10, 0x20, 0, 0}));
}

TEST_F(dwarf_range_lists, list_of_8_byte_addresses_opens_with_zeros)
{
    dwarf_ranges_init(8);
    const section_mark mark(dwarf_ranges_finish);
    dwarf_ranges_add_list(&second_);
    EXPECT_EQ(mark.added(),
              joined({bytes(16), {0x80, 0x01, 0, 0, 0, 0, 0, 0, 0x90, 0x01, 0, 0, 0, 0, 0, 0}, bytes(16)}));
}

TEST_F(dwarf_range_lists, pairs_follow_the_byte_order)
{
    opt_big_endian = true;
    dwarf_ranges_init(2);
    const section_mark mark(dwarf_ranges_finish);
    dwarf_ranges_add_list(&second_);
    EXPECT_EQ(mark.added(), (bytes{0xFF, 0xFF, 0, 0, 0x01, 0x80, 0x01, 0x90, 0, 0, 0, 0}));
}

TEST_F(dwarf_range_lists, address_behind_the_last_one_is_0)
{
    const sdb_range top = {.low = 0xFFFFFFF0, .high = 0xFFFFFFFF};
    dwarf_ranges_init(8);
    const section_mark mark(dwarf_ranges_finish);
    dwarf_ranges_add_list(&top);
    EXPECT_EQ(mark.added(), joined({bytes(16), {0xF0, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0}, bytes(24)}));
}

TEST_F(dwarf_range_lists, no_ranges_give_a_list_all_the_same)
{
    dwarf_ranges_init(2);
    const section_mark mark(dwarf_ranges_finish);
    EXPECT_EQ(dwarf_ranges_add_list(nullptr), mark.start());
    EXPECT_EQ(mark.added(), (bytes{0xFF, 0xFF, 0, 0, 0, 0, 0, 0}));
}

TEST_F(dwarf_range_lists, no_ranges_fail_an_assertion)
{
    dwarf_ranges_init(2);
    const trace_log log;
    dwarf_ranges_add_list(&first_);
    EXPECT_EQ(log.failed(), std::vector<std::string>());
    dwarf_ranges_add_list(nullptr);
    EXPECT_EQ(log.failed(), (std::vector<std::string>{"ranges != NULL"}));
}

TEST_F(dwarf_range_lists, long_lists_are_whole)
{
    constexpr std::uint32_t COUNT = 20000;
    std::vector<sdb_range> ranges(COUNT);
    for (std::uint32_t i = 0; i < COUNT; i++) {
        ranges[i] = {.low = 16 * i, .high = 16 * i + 3, .next = i + 1 < COUNT ? &ranges[i + 1] : nullptr};
    }
    dwarf_ranges_init(4);
    const section_mark mark(dwarf_ranges_finish);
    dwarf_ranges_add_list(ranges.data());
    const bytes list = mark.added();
    ASSERT_EQ(list.size(), std::size_t{8} * (COUNT + 2));
    for (std::uint32_t i = 0; i < COUNT; i++) {
        ASSERT_EQ(number_at(list, 8 * std::size_t{i} + 8, 4), 16 * i);
        ASSERT_EQ(number_at(list, 8 * std::size_t{i} + 12, 4), 16 * i + 4);
    }
    EXPECT_EQ(number_at(list, list.size() - 8, 8), 0U);
}

TEST_F(dwarf_range_lists, offset_of_a_list_counts_bytes)
{
    dwarf_ranges_init(2);
    const section_mark mark(dwarf_ranges_finish);
    dwarf_access = &word_accessors;
    EXPECT_EQ(dwarf_ranges_add_list(&second_), mark.start());
    EXPECT_EQ(dwarf_ranges_add_list(&second_), mark.start() + 24);
    const bytes list = spread({0xFF, 0xFF, 0, 0, 0x80, 0x01, 0x90, 0x01, 0, 0, 0, 0});
    EXPECT_EQ(mark.added(), joined({list, list}));
}

TEST(dwarf_range_list_order, a_section_that_was_not_opened_is_an_internal_error)
{
    expect_run(
        [] {
            const dwarf_room room;
            const sdb_range range;
            dwarf_ranges_add_list(&range);
            note("not reached");
        },
        INTERNAL_ERROR_LINE, INTERNAL_ERROR_STATUS);
}

} // namespace

// SPDX-License-Identifier: MIT
// Lists of keys.
#include "compiler/tarnwick/dwarf_keys.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

#include "tests/unit/tarnwick/random_numbers.h"

namespace {

TEST(key_lists, know_nothing_at_first)
{
    const dwarf_key_list list;
    EXPECT_EQ(list.find(0), NO_INDEX);
    EXPECT_EQ(list.find(7), NO_INDEX);
}

TEST(key_lists, find_the_first_of_equal_keys)
{
    dwarf_key_list list;
    for (const std::uint64_t key : {5U, 0U, 5U, 9U, 0U, 9U}) {
        list.append(key);
    }
    EXPECT_EQ(list.find(5), 0U);
    EXPECT_EQ(list.find(0), 1U);
    EXPECT_EQ(list.find(9), 3U) << "equal keys in front of it have places of their own";
    EXPECT_EQ(list.find(6), NO_INDEX);
}

TEST(key_lists, append_a_key_that_is_asked_for)
{
    dwarf_key_list list;
    EXPECT_EQ(list.position_of(40), 0U);
    EXPECT_EQ(list.position_of(41), 1U);
    EXPECT_EQ(list.position_of(40), 0U);
    EXPECT_EQ(list.position_of(42), 2U);
}

TEST(key_lists, start_again_when_they_are_cleared)
{
    dwarf_key_list list;
    for (std::uint64_t key = 0; key < 1000; ++key) {
        list.append(key);
    }
    list.clear();
    EXPECT_EQ(list.find(0), NO_INDEX);
    EXPECT_EQ(list.find(999), NO_INDEX);
    EXPECT_EQ(list.position_of(999), 0U);
    EXPECT_EQ(list.find(0), NO_INDEX);
}

// Keys that agree in their lower bits, as addresses do, in their upper bits, or in none, against a plain search.
TEST(key_lists, agree_with_a_plain_search)
{
    random_numbers random(11);
    for (const std::uint32_t shift : {0U, 4U, 32U, 57U}) {
        dwarf_key_list list;
        std::vector<std::uint64_t> keys;
        for (int round = 0; round < 1000; ++round) {
            const std::uint64_t key = std::uint64_t{random() % 700U} << shift;
            const auto found = std::find(keys.begin(), keys.end(), key);
            const auto place = static_cast<std::uint32_t>(found - keys.begin());
            ASSERT_EQ(list.find(key), found != keys.end() ? place : NO_INDEX) << key;
            if (random() % 2 != 0) {
                keys.push_back(key);
                list.append(key);
            }
        }
    }
}

} // namespace

// SPDX-License-Identifier: MIT
// Tally tables.
#include "common/tally.h"

#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/vector_of.h"
#include "tests/unit/common/container_testing.h"

namespace {

using words = std::vector<word>;

words top_keys(const tally_table *table)
{
    words keys;
    for (const tally_entry *entry : each(vector_of<tally_entry *>(table->top_list))) {
        EXPECT_TRUE(entry->on_top_list);
        keys.push_back(entry->key);
    }
    return keys;
}

void add_times(tally_table *table, word key, int times)
{
    for (int time = 0; time < times; ++time) {
        tally_add(table, key);
    }
}

int highest_key_first(const void *left, const void *right)
{
    const tally_entry *a = *static_cast<const tally_entry *const *>(left);
    const tally_entry *b = *static_cast<const tally_entry *const *>(right);
    return a->key > b->key ? -1 : a->key < b->key ? 1 : 0;
}

} // namespace

TEST(Tally, CountsAKey)
{
    tally_table *table = tally_new(13, 1, nullptr, nullptr);
    EXPECT_EQ(tally_add(table, 7), 1U);
    EXPECT_EQ(tally_add(table, 7), 2U);
    EXPECT_EQ(tally_add(table, 8), 1U);
    EXPECT_EQ(tally_add(table, 7), 3U);
}

TEST(Tally, KeysAreOneOnlyWhenTheyAreTheSameWord)
{
    tally_table *table = tally_new(13, 1, hash_key_nocase, nullptr);
    const std::string text = "key";
    const std::string copy = text;
    EXPECT_EQ(tally_add(table, to_word(text.c_str())), 1U);
    EXPECT_EQ(tally_add(table, to_word(copy.c_str())), 1U);
    EXPECT_EQ(tally_add(table, to_word(text.c_str())), 2U);
}

TEST(Tally, TopListIsByCountDescending)
{
    tally_table *table = tally_new(13, 3, nullptr, nullptr);
    add_times(table, 1, 2);
    add_times(table, 2, 5);
    add_times(table, 3, 3);
    EXPECT_EQ(top_keys(table), (words{2, 3, 1}));
    add_times(table, 1, 4);
    EXPECT_EQ(top_keys(table), (words{1, 2, 3}));
}

TEST(Tally, NewcomerTakesTheLastPlaceWithoutASort)
{
    tally_table *table = tally_new(13, 2, nullptr, nullptr);
    add_times(table, 1, 3);
    add_times(table, 2, 2);
    add_times(table, 3, 2);
    EXPECT_EQ(top_keys(table), (words{1, 2})) << "an equal count displaces no one";
    tally_add(table, 3);
    EXPECT_EQ(top_keys(table), (words{1, 3}));
    tally_add(table, 3);
    EXPECT_EQ(top_keys(table), (words{3, 1})) << "on the list, it is sorted";
    add_times(table, 2, 1);
    EXPECT_EQ(top_keys(table), (words{3, 1})) << "the displaced entry, at 3, equals the last one";
    add_times(table, 2, 1);
    EXPECT_EQ(top_keys(table), (words{3, 2}));
    EXPECT_EQ(vector_count(table->top_list), 2U);
}

TEST(Tally, TieBreakOrdersEqualCounts)
{
    tally_table *table = tally_new(13, 4, nullptr, highest_key_first);
    for (const word key : {2U, 4U, 1U, 3U}) {
        tally_add(table, key);
    }
    EXPECT_EQ(top_keys(table), (words{4, 3, 2, 1}));
    tally_add(table, 1);
    EXPECT_EQ(top_keys(table), (words{1, 4, 3, 2}));
}

TEST(TallyDeath, ChecksOfState)
{
    EXPECT_CHECK(tally_new(0, 1, nullptr, nullptr), "size");
    EXPECT_CHECK(tally_new(13, 0, nullptr, nullptr), "top_list_size");
    EXPECT_CHECK(tally_add(nullptr, 1), "tab != NULL");
    tally_table hollow;
    EXPECT_CHECK(tally_add(&hollow, 1), "tab->table");

    tally_table *table = tally_new(13, 1, nullptr, nullptr);
    tally_add(table, 5);
    from_word<tally_entry *>(vector_last(table->top_list))->count = std::numeric_limits<std::uint32_t>::max();
    EXPECT_CHECK(tally_add(table, 5), "te->count != 0");
}

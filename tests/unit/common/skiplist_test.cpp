// SPDX-License-Identifier: MIT
// Skip lists: order, dictionary operations and the master list.
#include "common/skiplist.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "tests/unit/common/container_testing.h"

namespace {

using words = std::vector<word>;

words taken(vector *list)
{
    words found;
    for (const word w : each(vector_of<word>(list))) {
        found.push_back(w);
    }
    vector_free(list);
    return found;
}

std::uint32_t hash_by_ten(word key)
{
    return static_cast<std::uint32_t>(key % 10);
}

int compare_words(word left, word right)
{
    return left < right ? -1 : left > right ? 1 : 0;
}

// The dump that a program makes which never had a skip list on the list.
const std::vector<std::string> dump_without_lists = [] {
    const trace_capture capture;
    skiplist_dump_master_list();
    return trace_capture::lines();
}();

} // namespace

TEST(Skiplist, EmptyList)
{
    skiplist *list = skiplist_new();
    EXPECT_EQ(skiplist_count(list), 0U);
    EXPECT_EQ(skiplist_first(list), 0U);
    EXPECT_EQ(skiplist_get(list, 0), 0U);
    EXPECT_EQ(skiplist_delete(list, 5), 0U);
    EXPECT_TRUE(taken(skiplist_values(list)).empty());
    EXPECT_TRUE(taken(skiplist_keys(list)).empty());
    skiplist_free(list);
    skiplist_free(nullptr);
}

TEST(Skiplist, FirstValueStays)
{
    skiplist *list = skiplist_new();
    EXPECT_EQ(skiplist_insert(list, 5, 50), 1);
    EXPECT_EQ(skiplist_insert(list, 5, 51), 0);
    EXPECT_EQ(skiplist_get(list, 5), 50U);
    EXPECT_EQ(skiplist_count(list), 1U);
    EXPECT_EQ(skiplist_insert(list, 6, 0), 1);
    EXPECT_EQ(skiplist_get(list, 6), 0U) << "as an absent key";
    EXPECT_EQ(skiplist_insert(list, 6, 1), 0) << "but it is there";
    skiplist_free(list);
}

TEST(Skiplist, OrderIsByHashThenByComparison)
{
    // Hash is the last digit.
    const words ascending = {30, 100, 11, 21, 5, 25, 19};
    words keys = ascending;
    std::mt19937 random(3);
    for (int round = 0; round < 50; ++round) {
        std::shuffle(keys.begin(), keys.end(), random);
        skiplist *list = skiplist_new(hash_by_ten, compare_words);
        for (const word key : keys) {
            EXPECT_EQ(skiplist_insert(list, key, key + 1000), 1);
        }
        EXPECT_EQ(taken(skiplist_keys(list)), ascending);
        EXPECT_EQ(taken(skiplist_values(list)), (words{1030, 1100, 1011, 1021, 1005, 1025, 1019}));
        EXPECT_EQ(skiplist_first(list), 1030U);
        skiplist_free(list);
    }
}

TEST(Skiplist, WalkVisitsInOrder)
{
    skiplist *list = skiplist_new();
    for (const word key : {9U, 2U, 7U}) {
        skiplist_insert(list, key, key * 2);
    }
    words seen;
    skiplist_walk(list, &seen, [](void *context, word key, word value) {
        auto *all = static_cast<words *>(context);
        all->push_back(key);
        all->push_back(value);
    });
    EXPECT_EQ(seen, (words{2, 4, 7, 14, 9, 18}));
    skiplist_free(list);
}

TEST(Skiplist, DefaultsCountThirtyTwoBitsOfAKey)
{
    skiplist *list = skiplist_new();
    const word low = 3;
    const word high = (word{1} << 32) + 3;
    EXPECT_EQ(skiplist_insert(list, low, 1), 1);
    EXPECT_EQ(skiplist_insert(list, high, 2), 0) << "one key, by 32 bits";
    EXPECT_EQ(skiplist_insert(list, 0xFFFFFFFF, 4), 1);
    EXPECT_EQ(skiplist_insert(list, 0x80000000, 5), 1);
    EXPECT_EQ(taken(skiplist_keys(list)), (words{3, 0x80000000, 0xFFFFFFFF})) << "hashes are unsigned";
    skiplist_free(list);
}

TEST(Skiplist, ComparisonGetsTheKeyFirst)
{
    static word searched;
    skiplist *list = skiplist_new([](word) { return 7U; },
                                  [](word left, word right) {
                                      EXPECT_EQ(left, searched);
                                      return compare_words(left, right);
                                  });
    for (const word key : {5U, 1U, 9U, 3U}) {
        searched = key;
        skiplist_insert(list, key, key);
    }
    searched = 3;
    EXPECT_EQ(skiplist_get(list, 3), 3U);
    EXPECT_EQ(skiplist_delete(list, 3), 3U);
    EXPECT_EQ(taken(skiplist_keys(list)), (words{1, 5, 9}));
    skiplist_free(list);
}

TEST(Skiplist, ClearLeavesAnEmptyListThatServesOn)
{
    skiplist *list = skiplist_new();
    for (word key = 0; key < 1000; ++key) {
        skiplist_insert(list, key, key);
    }
    skiplist_clear(list);
    EXPECT_EQ(skiplist_count(list), 0U);
    EXPECT_EQ(skiplist_get(list, 5), 0U);
    for (word key = 1000; key-- > 0;) {
        EXPECT_EQ(skiplist_insert(list, key, key + 1), 1);
    }
    EXPECT_EQ(skiplist_get(list, 999), 1000U);
    EXPECT_EQ(skiplist_first(list), 1U);
    skiplist_free(list);
}

TEST(Skiplist, SameAsAnOrderedMap)
{
    std::mt19937 random(4);
    skiplist *list = skiplist_new(hash_by_ten, compare_words);
    std::map<std::tuple<std::uint32_t, word>, word> map;
    for (int step = 0; step < 20000; ++step) {
        const word key = random() % 700;
        const auto place = std::make_tuple(hash_by_ten(key), key);
        if (random() % 2 != 0) {
            const word value = random() % 1000 + 1;
            ASSERT_EQ(skiplist_insert(list, key, value) != 0, map.emplace(place, value).second);
        } else {
            const auto found = map.find(place);
            ASSERT_EQ(skiplist_delete(list, key), found != map.end() ? found->second : 0U);
            if (found != map.end()) {
                map.erase(found);
            }
        }
        const word other = random() % 700;
        const auto found = map.find(std::make_tuple(hash_by_ten(other), other));
        ASSERT_EQ(skiplist_get(list, other), found != map.end() ? found->second : 0U);
    }
    words keys;
    for (const auto &entry : map) {
        keys.push_back(std::get<1>(entry.first));
    }
    EXPECT_EQ(taken(skiplist_keys(list)), keys);
    EXPECT_EQ(skiplist_count(list), keys.size());
    skiplist_free(list);
}

TEST(Skiplist, SearchIsFarFromLinear)
{
    static int comparisons;
    constexpr word COUNT = 50000;
    // All hashes equal, so that every step of a search is a comparison.
    skiplist *list = skiplist_new([](word) { return 0U; },
                                  [](word left, word right) {
                                      ++comparisons;
                                      return compare_words(left, right);
                                  });
    for (word key = 0; key < COUNT; ++key) {
        skiplist_insert(list, key, key + 1);
    }
    comparisons = 0;
    for (word key = 0; key < COUNT; key += 50) {
        ASSERT_EQ(skiplist_get(list, key), key + 1);
    }
    EXPECT_LT(comparisons / 1000, 100) << "50000 keys lie about 8 levels high, with a few steps on each";
    skiplist_free(list);
}

TEST(SkiplistOf, StringsAreComparedExactly)
{
    auto list = skiplist_of<const int *>::make_strings();
    const int one = 1;
    const int two = 2;
    EXPECT_TRUE(list.insert("b", &one));
    EXPECT_TRUE(list.insert("B", &two));
    EXPECT_FALSE(list.insert(std::string("b").c_str(), &two));
    EXPECT_EQ(list.count(), 2U);
    EXPECT_EQ(list.get("b"), &one);
    EXPECT_EQ(list.get("c"), nullptr);
    // One letter: the hash rises with the character, and upper case comes first.
    EXPECT_EQ(list.first(), &two);
    auto keys = list.keys();
    auto values = list.values();
    EXPECT_STREQ(keys.get(0), "B");
    EXPECT_STREQ(keys.get(1), "b");
    EXPECT_EQ(values.get(1), &one);
    keys.free();
    values.free();
    list.free();
    EXPECT_EQ(list.raw(), nullptr);
}

namespace {

struct listing {
    listing() { skiplist_master_list(true); }
    ~listing() { skiplist_master_list(false); }
    listing(const listing &) = delete;
    listing &operator=(const listing &) = delete;
};

std::vector<std::string> dumped_rows(const char *file)
{
    const trace_capture capture;
    skiplist_dump_master_list();
    return trace_capture::lines_with(std::string("    ") + file);
}

std::string row(const skiplist *list, const char *rest)
{
    return trace_capture::format("# %p    %s", static_cast<const void *>(list), rest);
}

} // namespace

TEST(SkiplistMasterList, NoneWithoutRecords)
{
    EXPECT_EQ(dump_without_lists, (std::vector<std::string>{"# Skiplist Master List:", "# None."}));
}

TEST(SkiplistMasterList, HeadingsAndRows)
{
    const listing on;
    skiplist *list = skiplist_new(nullptr, nullptr, nullptr, {"rows.c", 5});
    for (const word key : {1U, 2U, 3U}) {
        skiplist_insert(list, key, key);
    }
    skiplist_insert(list, 3, 0); // refused
    skiplist_delete(list, 2);
    skiplist_delete(list, 3);
    skiplist_insert(list, 7, 7);
    {
        const trace_capture capture;
        skiplist_dump_master_list();
        const std::vector<std::string> lines = trace_capture::lines();
        ASSERT_GE(lines.size(), 3U);
        EXPECT_EQ(lines[0], "# Skiplist Master List:");
        EXPECT_EQ(lines[1],
                  "# ptr    file:line    max_usage    clashes/inserts    max_chain    voidcmp    voidhash    alive");
    }
    EXPECT_EQ(dumped_rows("rows.c").at(0), row(list, "rows.c:5    3    0/4    0    Y    Y    Y"));
    skiplist_free(list);
    EXPECT_EQ(dumped_rows("rows.c").at(0), row(list, "rows.c:5    3    0/4    0    Y    Y    n"));

    list = skiplist_new(hash_by_ten, compare_words, nullptr, {"given.c", 6});
    EXPECT_EQ(dumped_rows("given.c").at(0), row(list, "given.c:6    0    0/0    0    n    n    Y"));
    skiplist_free(list);
}

TEST(SkiplistMasterList, NeighboursOfEqualHashClash)
{
    const listing on;
    skiplist *list = skiplist_new(hash_by_ten, compare_words, nullptr, {"clash.c", 9});
    {
        const trace_capture capture;
        skiplist_insert(list, 0, 1, {"user.c", 1}); // hash 0, as the head's: the head is no neighbour
        skiplist_insert(list, 15, 1, {"user.c", 1});
        skiplist_insert(list, 14, 1, {"user.c", 1});
        EXPECT_TRUE(trace_capture::lines().empty());
        skiplist_insert(list, 25, 1, {"user.c", 2}); // behind 15
        skiplist_insert(list, 5, 1, {"user.c", 3});  // in front of 15
        const std::vector<std::string> lines = trace_capture::lines();
        ASSERT_EQ(lines.size(), 2U);
        EXPECT_EQ(lines[0].find("user.c:2> SKIPLIST @ clash.c:9 (#"), 0U);
        EXPECT_NE(lines[0].find(") clashed 1 times inserting"), std::string::npos);
        EXPECT_EQ(lines[1].find("user.c:3> SKIPLIST @ clash.c:9 (#"), 0U);
        EXPECT_NE(lines[1].find(") clashed 2 times inserting"), std::string::npos);
    }
    EXPECT_EQ(dumped_rows("clash.c").at(0), row(list, "clash.c:9    5    2/5    0    n    n    Y"));
    skiplist_free(list);
}

TEST(SkiplistMasterList, MostClashesFirst)
{
    const listing on;
    skiplist *calm = skiplist_new(nullptr, nullptr, nullptr, {"order.c", 1});
    skiplist *busy = skiplist_new(hash_by_ten, compare_words, nullptr, {"order.c", 2});
    skiplist_insert(busy, 1, 1);
    skiplist_insert(busy, 11, 1);
    const std::vector<std::string> rows = dumped_rows("order.c");
    ASSERT_EQ(rows.size(), 2U);
    EXPECT_EQ(rows[0], row(busy, "order.c:2    2    1/2    0    n    n    Y"));
    EXPECT_EQ(rows[1], row(calm, "order.c:1    0    0/0    0    Y    Y    Y"));
    skiplist_free(calm);
    skiplist_free(busy);
}

namespace {

// A hash that changes its mind: its second answer about key 5 is low, all others are the key.
std::uint32_t wavering_hash(word key)
{
    static int asked = 0;
    return key == 5 && ++asked == 2 ? 0 : static_cast<std::uint32_t>(key);
}

void print_key(word key, char *buffer, std::uint32_t size)
{
    std::snprintf(buffer, size, "<%u>", static_cast<unsigned>(key));
}

void print_lines_to_stderr()
{
    static constexpr trace_sink SINK = {
        .line = [](const char *, int, const char *, std::va_list) {},
        .text = [](const char *, int, const char *) {},
        .enter = [](const char *, int, const char *, const char *, std::va_list) {},
        .exit = [](const char *, int, const char *, const char *, std::va_list) {},
        .raw =
            [](const char *format, std::va_list arguments) {
                std::vfprintf(stderr, format, arguments);
                std::fputs("\n", stderr);
            },
        .raw_text = [](const char *text) { std::fprintf(stderr, "%s\n", text); },
        .alert = [](const char *) {},
        .assert_failed = [](const char *, const char *, int) {},
    };
    trace_install(&SINK);
}

void break_a_list(key_printer printer)
{
    print_lines_to_stderr();
    skiplist_master_list(true);
    skiplist *list = skiplist_new(wavering_hash, compare_words, printer, {"broken.c", 8});
    skiplist_insert(list, 3, 1);
    skiplist_insert(list, 5, 1);
}

} // namespace

TEST(SkiplistMasterListDeath, FallingHashes)
{
    EXPECT_DEATH(break_a_list(print_key), "SKIPLIST Node out-of-order: @ broken.c:8\n"
                                          "KEY: <5>\n"
                                          "    number: [0-9]+\n"
                                          "    hash:   0\n"
                                          "    order:  [12]\n"
                                          "(        [01]\\) Nil\n)+"
                                          "List AFTER:\n"
                                          "HEAD\\(   [12]\\)\n"
                                          "        0\\) <3>\n"
                                          "(        1\\) <[35]>\n)?"
                                          "KEY: <3>\n"
                                          "    number: [0-9]+\n"
                                          "    hash:   3\n"
                                          "    order:  [12]\n"
                                          "        0\\) <5>\n"
                                          "(        1\\) [^\n]+\n)?"
                                          "KEY: <5>\n"
                                          "(.|\n)*Assertion failed: ");
    EXPECT_DEATH(break_a_list(nullptr), "KEY: 0x5\n");
}

// SPDX-License-Identifier: MIT
// Sets and number sets.
#include "common/set.h"

#include <limits>
#include <random>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include "tests/unit/common/container_testing.h"

namespace {

using words = std::vector<word>;

set *set_with(const words &values, compare_function compare = nullptr)
{
    set *so = set_new(compare);
    for (const word value : values) {
        set_add(so, value);
    }
    return so;
}

words walk(set *so)
{
    words found;
    for (const word value : each_in(so)) {
        found.push_back(value);
    }
    return found;
}

int descending(const void *left, const void *right)
{
    const word a = *static_cast<const word *>(left);
    const word b = *static_cast<const word *>(right);
    return a > b ? -1 : a < b ? 1 : 0;
}

} // namespace

TEST(Set, EmptySet)
{
    set *so = set_new();
    EXPECT_TRUE(set_is_empty(so));
    EXPECT_TRUE(set_is_empty(nullptr));
    EXPECT_EQ(set_size(so), 0U);
    EXPECT_EQ(set_min(so), 0U);
    EXPECT_FALSE(set_contains(so, 0));
    EXPECT_FALSE(set_contains(so, 64));
    EXPECT_TRUE(walk(so).empty());
    set_free(so);
    set_free(nullptr);
}

TEST(Set, SixtyThreeIsABitSixtyFourIsNot)
{
    set *so = set_with({63, 64});
    EXPECT_TRUE(set_contains(so, 63));
    EXPECT_TRUE(set_contains(so, 64));
    EXPECT_FALSE(set_contains(so, 62));
    EXPECT_FALSE(set_contains(so, 65));
    EXPECT_EQ(set_size(so), 2U);
    set_free(so);

    // A comparison orders the values from 64 on and no others: it tells where a value is kept.
    so = set_with({62, 63, 64, 65}, descending);
    EXPECT_EQ(walk(so), (words{62, 63, 65, 64}));
    set_free(so);
}

TEST(Set, AddingTwiceAddsOnce)
{
    set *so = set_with({5, 5, 500, 500});
    EXPECT_EQ(set_size(so), 2U);
    EXPECT_FALSE(set_is_empty(so));
    EXPECT_EQ(walk(so), (words{5, 500}));
    set_free(so);
}

TEST(Set, BitsComeFirstThenTheSkipListsOrder)
{
    set *so = set_with({70, 3, 65});
    EXPECT_EQ(walk(so), (words{3, 65, 70}));
    set_free(so);

    // Ascending in the low 32 bits.
    const word high = (word{1} << 32) + 66;
    so = set_with({70, high, 0, 63, 65});
    EXPECT_EQ(walk(so), (words{0, 63, 65, high, 70}));
    set_free(so);
}

TEST(Set, MinIsTheLowestBitElseTheFirstOfTheSkipList)
{
    set *so = set_with({90, 80});
    EXPECT_EQ(set_min(so), 80U);
    set_add(so, 63);
    EXPECT_EQ(set_min(so), 63U);
    set_add(so, 0);
    EXPECT_EQ(set_min(so), 0U);
    set_free(so);
}

TEST(Set, Intersections)
{
    const auto intersect = [](const words &a, const words &b) {
        set *first = set_with(a);
        set *second = set_with(b);
        const bool shared = set_intersects(first, second);
        EXPECT_EQ(set_intersects(second, first), shared);
        set_free(first);
        set_free(second);
        return shared;
    };
    EXPECT_FALSE(intersect({}, {}));
    EXPECT_FALSE(intersect({1}, {}));
    EXPECT_FALSE(intersect({1, 64}, {2, 65}));
    EXPECT_TRUE(intersect({1, 64}, {1, 65}));
    EXPECT_TRUE(intersect({1, 64, 99}, {2, 64}));
    EXPECT_TRUE(intersect({63, 100}, {63}));
    EXPECT_FALSE(intersect({100}, {36})) << "100 is no bit";
}

TEST(Set, NullSetMakesNoPass)
{
    EXPECT_TRUE(walk(nullptr).empty());
    EXPECT_EQ(set_iter_more(nullptr), 0);
    EXPECT_EQ(set_next(nullptr), 0U);
    EXPECT_EQ(set_iter_step(nullptr, 0), 0);
}

TEST(SetIterator, Protocol)
{
    set *so = set_with({2, 64});
    set_iter_begin(so);
    EXPECT_EQ(set_iter_more(so), 1);
    EXPECT_EQ(set_iter_more(so), 1) << "asking again moves nothing";
    EXPECT_EQ(set_next(so), 2U);
    EXPECT_EQ(set_iter_step(so, 1), 1);
    EXPECT_EQ(set_iter_more(so), 1);
    EXPECT_EQ(set_next(so), 64U);
    EXPECT_EQ(set_iter_more(so), 0);
    EXPECT_EQ(set_next(so), 0U);
    EXPECT_EQ(set_iter_step(so, 0), 0);
    EXPECT_EQ(walk(so), (words{2, 64}));
    set_free(so);
}

TEST(SetIterator, LoopsNestAndMayEndEarly)
{
    set *so = set_with({1, 2, 64, 65});
    words seen;
    for (const word outer : each_in(so)) {
        for (const word inner : each_in(so)) {
            if (inner > outer) {
                break;
            }
            seen.push_back(outer * 100 + inner);
        }
    }
    EXPECT_EQ(seen, (words{101, 201, 202, 6401, 6402, 6464, 6501, 6502, 6564, 6565}));
    EXPECT_EQ(walk(so), (words{1, 2, 64, 65}));
    set_free(so);
}

TEST(SetIterator, PointersAddedDuringALoopAreNotSeen)
{
    set *so = set_with({1, 70});
    words seen;
    for (const word value : each_in(so)) {
        seen.push_back(value);
        set_add(so, value + 100);
    }
    EXPECT_EQ(seen, (words{1, 70}));
    EXPECT_EQ(walk(so), (words{1, 70, 101, 170}));
    set_free(so);
}

TEST(SetIterator, FreeingASetEndsItsLoops)
{
    set *so = set_with({1, 70});
    set_iter_begin(so);
    set_iter_begin(so);
    set_free(so);
    so = set_with({5});
    EXPECT_EQ(walk(so), (words{5})) << "the records came back empty";
    EXPECT_EQ(set_size(so), 1U);
    set_free(so);
}

TEST(Set, SameAsAnOrderedSet)
{
    std::mt19937 random(5);
    set *so = set_new();
    std::set<word> expected;
    for (int step = 0; step < 5000; ++step) {
        const word value = random() % 300;
        set_add(so, value);
        expected.insert(value);
        const word other = random() % 300;
        ASSERT_EQ(set_contains(so, other), expected.count(other) != 0);
    }
    EXPECT_EQ(walk(so), words(expected.begin(), expected.end()));
    EXPECT_EQ(set_size(so), expected.size());
    set_free(so);
}

TEST(SetDeath, ChecksOfState)
{
    EXPECT_CHECK(set_add(nullptr, 1), "so != NULL");
    EXPECT_CHECK(set_contains(nullptr, 1), "so != NULL");
    EXPECT_CHECK(set_size(nullptr), "so != NULL");
    EXPECT_CHECK(set_min(nullptr), "so != NULL");
    EXPECT_CHECK(set_iter_step(nullptr, 1), "more == 0");

    set *so = set_new();
    EXPECT_CHECK(set_intersects(nullptr, so), "sp1 != NULL");
    EXPECT_CHECK(set_intersects(so, nullptr), "sp2 != NULL");
    EXPECT_CHECK(set_iter_more(so), "sp->iterator != NULL");
    EXPECT_CHECK(set_next(so), "sp->iterator != NULL");
    EXPECT_CHECK(set_iter_step(so, 0), "sp->iterator != NULL");

    set hollow;
    EXPECT_CHECK(set_add(&hollow, 1), "sp != NULL");
    EXPECT_CHECK(set_add(&hollow, 64), "sp != NULL");
    EXPECT_CHECK(set_min(&hollow), "sp != NULL");
    EXPECT_CHECK(set_iter_begin(&hollow), "sp != NULL");

    // The first pointer of a set, added inside a loop that began without any: the loop has nothing to stand on.
    set_iter_begin(so);
    set_add(so, 64);
    EXPECT_CHECK(set_iter_more(so), "sp->table == NULL || sp->iterator != NULL");
    EXPECT_CHECK(set_iter_step(so, 0), "sp->iterator!= NULL");
    set_free(so);
}

TEST(Numset, HoldsZeroButNotTheHighestWord)
{
    constexpr word HIGHEST = std::numeric_limits<word>::max();
    static numset *so; // number sets are never released
    so = numset_new();
    EXPECT_FALSE(numset_contains(so, 0));
    numset_remove(so, 0); // nothing there yet
    numset_add(so, 0);
    numset_add(so, 0);
    numset_add(so, 1013);
    EXPECT_TRUE(numset_contains(so, 0));
    EXPECT_TRUE(numset_contains(so, 1013));
    EXPECT_FALSE(numset_contains(so, 1));
    EXPECT_FALSE(numset_contains(so, 1012));
    EXPECT_FALSE(numset_contains(so, HIGHEST));
    numset_remove(so, 0);
    EXPECT_FALSE(numset_contains(so, 0));
    EXPECT_TRUE(numset_contains(so, 1013));
    numset_remove(so, 5);
    EXPECT_TRUE(numset_contains(so, 1013));
}

TEST(NumsetDeath, ChecksOfState)
{
    constexpr word HIGHEST = std::numeric_limits<word>::max();
    static numset *so; // number sets are never released
    so = numset_new();
    EXPECT_CHECK(numset_add(so, HIGHEST), "numset_canContain(n)");
    EXPECT_CHECK(numset_remove(so, HIGHEST), "numset_canContain(n)");
    EXPECT_CHECK(numset_add(nullptr, 1), "so != NULL");
    EXPECT_CHECK(numset_contains(nullptr, 1), "so != NULL");
}

// SPDX-License-Identifier: MIT
// Vectors: storage, iterators and the master list.
#include "common/vector.h"

#include <initializer_list>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/unit/common/container_testing.h"

namespace {

using words = std::vector<word>;

vector *vector_with(std::initializer_list<word> elements)
{
    vector *p = vector_new();
    for (const word w : elements) {
        vector_push(p, w);
    }
    return p;
}

words contents(const vector *p)
{
    words found;
    for (std::uint32_t index = 0; index < vector_count(p); ++index) {
        found.push_back(vector_get(p, index));
    }
    return found;
}

// A whole loop by the protocol.
words walk(vector *p)
{
    words found;
    vector_iter_begin(p);
    for (;;) {
        const int more = vector_iter_more(p);
        const word w = more != 0 ? vector_next(p) : 0;
        if (vector_iter_step(p, more) == 0) {
            return found;
        }
        found.push_back(w);
    }
}

int ascending(const void *left, const void *right)
{
    const word a = *static_cast<const word *>(left);
    const word b = *static_cast<const word *>(right);
    return a < b ? -1 : a > b ? 1 : 0;
}

} // namespace

TEST(Vector, NewOneIsEmptyAndHasNoStorage)
{
    vector *p = vector_new();
    EXPECT_EQ(p->count, 0U);
    EXPECT_EQ(p->capacity, 0U);
    EXPECT_EQ(p->initial_size, 10U);
    EXPECT_EQ(p->data, nullptr);
    EXPECT_EQ(p->iterator, nullptr);
    EXPECT_EQ(p->master, nullptr);
    EXPECT_EQ(vector_get(p, 0), 0U);
    EXPECT_EQ(vector_last(p), 0U);
    EXPECT_EQ(vector_pop(p), 0U);
    EXPECT_EQ(vector_find(p, 0), NO_INDEX);
    EXPECT_EQ(vector_find(p, 0), 0xFFFFFFFFU);
    EXPECT_EQ(vector_delete(p, 0), 0);
    vector_sort(p, ascending);
    EXPECT_EQ(p->data, nullptr);
    vector_free(p);
}

TEST(Vector, SerialsRise)
{
    vector *first = vector_new();
    vector *second = vector_new_sized(3);
    vector *third = vector_copy(first);
    EXPECT_EQ(second->serial, first->serial + 1);
    EXPECT_EQ(third->serial, first->serial + 2);
    vector_free(first);
    vector_free(second);
    vector_free(third);
}

TEST(Vector, PushGivesTheIndexAndDoublesTheCapacity)
{
    vector *p = vector_new();
    for (std::uint32_t index = 0; index < 21; ++index) {
        EXPECT_EQ(vector_push(p, index + 100), index);
        EXPECT_EQ(p->capacity, index < 10 ? 10U : index < 20 ? 20U : 40U);
    }
    EXPECT_EQ(vector_count(p), 21U);
    for (std::uint32_t index = 0; index < 21; ++index) {
        EXPECT_EQ(vector_get(p, index), index + 100);
    }
    EXPECT_EQ(vector_get(p, 21), 0U);
    EXPECT_EQ(vector_get(p, NO_INDEX), 0U);
    EXPECT_EQ(vector_last(p), 120U);
    vector_free(p);
}

TEST(Vector, InitialSizeIsTheFirstCapacity)
{
    vector *p = vector_new_sized(3);
    EXPECT_EQ(p->capacity, 0U);
    vector_push(p, 1);
    EXPECT_EQ(p->capacity, 3U);
    vector_set(p, 9, 24);
    EXPECT_EQ(p->capacity, 48U) << "3 doubled until 24 lies below it: 6, 12, 24, 48";
    vector_free(p);

    p = vector_new_sized(3);
    vector_set(p, 9, 7);
    EXPECT_EQ(p->capacity, 12U) << "the first allocation doubles too";
    vector_free(p);
}

TEST(Vector, AddUniqueFindsTheFirstEqualWord)
{
    vector *p = vector_with({7, 8, 7});
    EXPECT_EQ(vector_add_unique(p, 7), 0U);
    EXPECT_EQ(vector_add_unique(p, 8), 1U);
    EXPECT_EQ(vector_count(p), 3U);
    EXPECT_EQ(vector_add_unique(p, 9), 3U);
    EXPECT_EQ(contents(p), (words{7, 8, 7, 9}));
    EXPECT_EQ(vector_find(p, 7), 0U);
    EXPECT_EQ(vector_find(p, 9), 3U);
    EXPECT_EQ(vector_find(p, 10), NO_INDEX);
    vector_free(p);
}

TEST(Vector, InsertMovesUpAndClampsTheIndex)
{
    vector *p = vector_with({1, 2, 3});
    EXPECT_EQ(vector_insert(p, 10, 1), 1U);
    EXPECT_EQ(contents(p), (words{1, 10, 2, 3}));
    EXPECT_EQ(vector_insert(p, 11, 99), 4U);
    EXPECT_EQ(vector_insert(p, 12, 0), 0U);
    EXPECT_EQ(contents(p), (words{12, 1, 10, 2, 3, 11}));
    vector_free(p);

    p = vector_new_sized(1);
    EXPECT_EQ(vector_insert(p, 1, NO_INDEX), 0U);
    EXPECT_EQ(vector_insert(p, 2, 0), 0U);
    EXPECT_EQ(contents(p), (words{2, 1}));
    vector_free(p);
}

TEST(Vector, SetPastTheEndRaisesTheCount)
{
    vector *p = vector_new();
    vector_set(p, 5, 3);
    EXPECT_EQ(contents(p), (words{0, 0, 0, 5}));
    vector_set(p, 6, 0);
    EXPECT_EQ(contents(p), (words{6, 0, 0, 5}));
    vector_set(p, 7, 4);
    EXPECT_EQ(vector_count(p), 5U);
    vector_free(p);
}

TEST(Vector, SetInAFullVectorGrowsItEvenWhenItReplaces)
{
    vector *p = vector_new_sized(2);
    vector_push(p, 1);
    vector_push(p, 2);
    EXPECT_EQ(p->capacity, 2U);
    vector_set(p, 3, 0);
    EXPECT_EQ(p->capacity, 4U);
    EXPECT_EQ(contents(p), (words{3, 2}));
    vector_free(p);
}

TEST(Vector, SkippedWordsKeepWhatWasThere)
{
    vector *p = vector_with({1, 2, 3, 4});
    EXPECT_EQ(vector_pop(p), 4U);
    EXPECT_EQ(vector_pop(p), 3U);
    EXPECT_EQ(p->data[2], 3U) << "a popped word stays";
    EXPECT_EQ(vector_delete(p, 1), 1);
    EXPECT_EQ(p->data[1], 0U) << "a deleted slot is zeroed";
    vector_set(p, 9, 4);
    EXPECT_EQ(contents(p), (words{1, 0, 3, 4, 9}));
    vector_free(p);
}

TEST(Vector, GrowthForgetsWhatStandsPastTheCount)
{
    vector *p = vector_new_sized(2);
    vector_push(p, 1);
    vector_push(p, 2);
    EXPECT_EQ(vector_pop(p), 2U);
    vector_set(p, 7, 3);
    EXPECT_EQ(contents(p), (words{1, 0, 0, 7}));
    vector_free(p);
}

TEST(Vector, DeleteMovesDown)
{
    vector *p = vector_with({1, 2, 3});
    EXPECT_EQ(vector_delete(p, 3), 0);
    EXPECT_EQ(vector_delete(p, 0), 1);
    EXPECT_EQ(contents(p), (words{2, 3}));
    EXPECT_EQ(p->data[2], 0U);
    EXPECT_EQ(vector_delete(p, 1), 1);
    EXPECT_EQ(vector_delete(p, 0), 1);
    EXPECT_EQ(vector_count(p), 0U);
    vector_free(p);
}

TEST(Vector, CopyHasItsOwnStorageAndNoIterators)
{
    vector *p = vector_new_sized(4);
    vector_push(p, 1);
    vector_push(p, 2);
    vector_iter_begin(p);
    vector *copy = vector_copy(p);
    EXPECT_EQ(contents(copy), (words{1, 2}));
    EXPECT_EQ(copy->capacity, 4U);
    EXPECT_EQ(copy->initial_size, 4U);
    EXPECT_EQ(copy->iterator, nullptr);
    EXPECT_NE(copy->data, p->data);
    vector_set(copy, 9, 0);
    EXPECT_EQ(vector_get(p, 0), 1U);
    vector_free(copy);
    vector_free(p);

    p = vector_new_sized(4);
    copy = vector_copy(p);
    EXPECT_EQ(copy->data, nullptr);
    vector_push(copy, 1);
    EXPECT_EQ(copy->capacity, 4U);
    vector_free(copy);
    vector_free(p);
}

TEST(Vector, AppendGivesTheCountOfTheOther)
{
    vector *p = vector_with({1});
    vector *n = vector_with({2, 3});
    EXPECT_EQ(vector_append(p, n), 2U);
    EXPECT_EQ(contents(p), (words{1, 2, 3}));
    EXPECT_EQ(contents(n), (words{2, 3}));
    EXPECT_EQ(n->iterator, nullptr);
    EXPECT_EQ(vector_append(n, n), 2U);
    EXPECT_EQ(contents(n), (words{2, 3, 2, 3}));
    vector_free(p);
    vector_free(n);
}

TEST(Vector, SortUsesTheProgramsQuicksort)
{
    vector *p = vector_with({3, 1, 2, 1});
    vector_sort(p, ascending);
    EXPECT_EQ(contents(p), (words{1, 1, 2, 3}));
    vector_free(p);

    // All equal: the steps of the sort leave a b c d as c d a b.
    p = vector_with({0xA, 0xB, 0xC, 0xD});
    vector_sort(p, [](const void *, const void *) { return 0; });
    EXPECT_EQ(contents(p), (words{0xC, 0xD, 0xA, 0xB}));
    vector_free(p);
}

TEST(Vector, NullIsSafeWhereItSaysSo)
{
    EXPECT_EQ(vector_count(nullptr), 0U);
    EXPECT_EQ(vector_copy(nullptr), nullptr);
    vector_free(nullptr);
    vector_iter_begin(nullptr);
    EXPECT_EQ(vector_iter_more(nullptr), 0);
    EXPECT_EQ(vector_next(nullptr), 0U);
    EXPECT_EQ(vector_current(nullptr), 0U);
    EXPECT_EQ(vector_first(nullptr), 0U);
    EXPECT_EQ(vector_iter_step(nullptr, 0), 0);
    EXPECT_TRUE(walk(nullptr).empty());
}

TEST(VectorIterator, DeliversAllAndLeavesNoNode)
{
    vector *p = vector_with({1, 2, 3});
    EXPECT_EQ(walk(p), (words{1, 2, 3}));
    EXPECT_EQ(p->iterator, nullptr);
    vector_clear(p);
    EXPECT_TRUE(walk(p).empty());
    vector_free(p);
}

TEST(VectorIterator, CurrentDoesNotAdvanceAndTheEndIsStable)
{
    vector *p = vector_with({1, 2});
    EXPECT_EQ(vector_first(p), 1U);
    EXPECT_EQ(vector_current(p), 2U);
    EXPECT_EQ(vector_current(p), 2U);
    EXPECT_EQ(vector_next(p), 2U);
    EXPECT_EQ(vector_iter_more(p), 0);
    EXPECT_EQ(vector_current(p), 0U);
    EXPECT_EQ(vector_next(p), 0U);
    EXPECT_EQ(p->iterator->position, 2U) << "the end does not advance";
    vector_push(p, 3);
    EXPECT_EQ(vector_iter_more(p), 1) << "what is pushed during the loop is delivered";
    EXPECT_EQ(vector_next(p), 3U);
    EXPECT_EQ(vector_iter_step(p, 7), 7);
    EXPECT_EQ(vector_iter_step(p, 0), 0);
    EXPECT_EQ(p->iterator, nullptr);
    vector_free(p);
}

TEST(VectorIterator, LoopsNest)
{
    vector *p = vector_with({1, 2});
    vector_iter_begin(p);
    EXPECT_EQ(vector_next(p), 1U);
    EXPECT_EQ(walk(p), (words{1, 2}));
    vector_iter_begin(p);
    EXPECT_EQ(vector_next(p), 1U);
    vector_iter_step(p, 0);
    EXPECT_EQ(vector_next(p), 2U) << "the outer loop has its own position";
    vector_iter_step(p, 0);
    vector_free(p);
}

TEST(VectorIterator, DeletionKeepsTheNextElement)
{
    vector *p = vector_with({1, 2, 3, 4});
    vector_iter_begin(p);
    EXPECT_EQ(vector_next(p), 1U);
    EXPECT_EQ(vector_next(p), 2U);
    vector_iter_begin(p); // stands at 0 and must stay there
    EXPECT_EQ(vector_delete(p, 1), 1);
    EXPECT_EQ(vector_next(p), 1U);
    vector_iter_step(p, 0);
    EXPECT_EQ(vector_next(p), 3U) << "the element delivered last went away";
    EXPECT_EQ(vector_delete(p, 2), 1) << "the element that was next";
    EXPECT_EQ(vector_iter_more(p), 0);
    vector_free(p);
}

TEST(VectorIterator, InsertionKeepsTheFollowingElement)
{
    vector *p = vector_with({1, 2, 3});
    vector_iter_begin(p);
    EXPECT_EQ(vector_next(p), 1U);
    vector_insert(p, 10, 0); // in front of the position
    vector_insert(p, 11, 2); // at the position
    EXPECT_EQ(contents(p), (words{10, 1, 11, 2, 3}));
    EXPECT_EQ(vector_next(p), 2U);
    vector_insert(p, 12, 5); // behind the position
    EXPECT_EQ(vector_next(p), 3U);
    EXPECT_EQ(vector_next(p), 12U);
    vector_iter_step(p, 0);
    vector_free(p);
}

TEST(VectorIterator, ClearEndsTheLoopButResetsNothing)
{
    vector *p = vector_with({1, 2, 3});
    const std::uint32_t capacity = p->capacity;
    vector_iter_begin(p);
    vector_next(p);
    vector_next(p);
    vector_clear(p);
    EXPECT_EQ(p->capacity, capacity);
    EXPECT_EQ(vector_iter_more(p), 0);
    vector_push(p, 7);
    vector_push(p, 8);
    EXPECT_EQ(vector_iter_more(p), 0);
    vector_push(p, 9);
    EXPECT_EQ(vector_next(p), 9U) << "the position stayed at 2";
    vector_free(p);
}

TEST(VectorIterator, PopAdjustsNoIterator)
{
    vector *p = vector_with({1, 2});
    vector_iter_begin(p);
    vector_next(p);
    vector_next(p);
    vector_pop(p);
    EXPECT_EQ(p->iterator->position, 2U);
    EXPECT_EQ(vector_iter_more(p), 0);
    vector_free(p);
}

TEST(VectorIterator, NodesComeZeroedFromOneCache)
{
    vector *p = vector_with({1, 2});
    vector *q = vector_with({5});
    vector_iter_begin(p);
    vector_next(p);
    const vector_iterator *node = p->iterator;
    vector_free(p); // gives its iterators back
    vector_iter_begin(q);
    EXPECT_EQ(q->iterator, node) << "the node serves the next vector";
    EXPECT_EQ(q->iterator->position, 0U);
    EXPECT_EQ(q->iterator->below, nullptr);
    vector_free(q);
}

TEST(VectorLasting, HasNoStorageBeforeTheFirstStore)
{
    vector *p = vector_new_lasting(3);
    EXPECT_TRUE(p->lasting);
    EXPECT_EQ(p->count, 0U);
    EXPECT_EQ(p->capacity, 0U);
    EXPECT_EQ(p->initial_size, 3U);
    EXPECT_EQ(p->data, nullptr);
    EXPECT_EQ(p->iterator, nullptr);
    EXPECT_EQ(p->master, nullptr);
    EXPECT_EQ(vector_get(p, 0), 0U);
    EXPECT_EQ(vector_pop(p), 0U);
    vector_free(p);

    vector *first = vector_new();
    vector *second = vector_new_lasting(1);
    EXPECT_EQ(second->serial, first->serial + 1);
    EXPECT_FALSE(first->lasting);
    vector_free(first);
    vector_free(second);
}

TEST(VectorLasting, GrowsBeyondItsFirstWords)
{
    for (const std::uint32_t size : {1U, 2U, 5U}) {
        vector *p = vector_new_lasting(size);
        words expected;
        std::uint32_t capacity = size;
        for (std::uint32_t index = 0; index < 40; ++index) {
            EXPECT_EQ(vector_push(p, index + 100), index);
            capacity = index < capacity ? capacity : capacity * 2;
            EXPECT_EQ(p->capacity, capacity);
            expected.push_back(index + 100);
            ASSERT_EQ(contents(p), expected);
        }
        vector_free(p);
    }
}

TEST(VectorLasting, SetFarPastTheEnd)
{
    vector *p = vector_new_lasting(1);
    vector_set(p, 7, 20); // the first store
    EXPECT_EQ(p->capacity, 32U);
    EXPECT_EQ(vector_count(p), 21U);
    EXPECT_EQ(vector_get(p, 19), 0U);
    EXPECT_EQ(vector_get(p, 20), 7U);
    vector_free(p);

    p = vector_new_lasting(2);
    vector_push(p, 1);
    vector_set(p, 7, 100); // from the first words
    EXPECT_EQ(p->capacity, 128U);
    vector_set(p, 8, 1000); // from later ones
    EXPECT_EQ(vector_get(p, 0), 1U);
    EXPECT_EQ(vector_get(p, 100), 7U);
    EXPECT_EQ(vector_get(p, 999), 0U);
    EXPECT_EQ(vector_get(p, 1000), 8U);
    vector_free(p);

    p = vector_new_lasting(1);
    vector_set(p, 5, 0);
    EXPECT_EQ(p->capacity, 1U);
    vector_set(p, 6, 0);
    EXPECT_EQ(p->capacity, 2U) << "a store into a full vector makes it grow";
    EXPECT_EQ(contents(p), words{6});
    vector_free(p);
}

TEST(VectorLasting, CopiesAreOrdinaryVectors)
{
    vector *p = vector_new_lasting(2);
    vector *of_none = vector_copy(p);
    vector_push(p, 1);
    vector_push(p, 2);
    vector *of_first_words = vector_copy(p);
    vector_push(p, 3);
    vector *of_later_words = vector_copy(p);
    EXPECT_EQ(contents(of_none), words{});
    EXPECT_EQ(contents(of_first_words), (words{1, 2}));
    EXPECT_EQ(contents(of_later_words), (words{1, 2, 3}));
    for (vector *copy : {of_none, of_first_words, of_later_words}) {
        EXPECT_FALSE(copy->lasting);
        EXPECT_EQ(copy->initial_size, 2U);
        vector_push(copy, 9);
        EXPECT_EQ(vector_last(copy), 9U);
    }
    EXPECT_EQ(contents(p), (words{1, 2, 3}));
    vector_free(p);
    EXPECT_EQ(contents(of_first_words), (words{1, 2, 9})) << "words of its own";
    for (vector *copy : {of_none, of_first_words, of_later_words}) {
        vector_free(copy);
    }
}

// Their first words lie beside each other: none may run into the next, and none is freed.
TEST(VectorLasting, ManyOfThemStandSideBySide)
{
    std::vector<vector *> all;
    for (std::uint32_t i = 0; i < 300; ++i) {
        all.push_back(vector_new_lasting(1 + i % 4));
    }
    for (std::uint32_t round = 0; round < 9; ++round) {
        for (std::uint32_t i = 0; i < all.size(); ++i) {
            if (round < i % 10) {
                vector_push(all[i], i * 100 + round);
            }
        }
    }
    for (std::uint32_t i = 0; i < all.size(); ++i) {
        ASSERT_EQ(vector_count(all[i]), i % 10);
        for (std::uint32_t round = 0; round < i % 10; ++round) {
            ASSERT_EQ(vector_get(all[i], round), i * 100 + round);
        }
        vector_free(all[i]);
    }
}

TEST(VectorLasting, DoesWhatAnOrdinaryOneDoes)
{
    std::mt19937 random(12);
    for (std::uint32_t size = 1; size <= 6; ++size) {
        vector *lasting = vector_new_lasting(size);
        vector *plain = vector_new_sized(size);
        for (int step = 0; step < 400; ++step) {
            const word w = random() % 20 + 1;
            const auto index = static_cast<std::uint32_t>(random() % 12);
            switch (random() % 8) {
            case 0:
                EXPECT_EQ(vector_insert(lasting, w, index), vector_insert(plain, w, index));
                break;
            case 1:
                vector_set(lasting, w, index);
                vector_set(plain, w, index);
                break;
            case 2:
                EXPECT_EQ(vector_delete(lasting, index), vector_delete(plain, index));
                break;
            case 3:
            case 4:
                EXPECT_EQ(vector_pop(lasting), vector_pop(plain));
                break;
            case 5:
                EXPECT_EQ(vector_add_unique(lasting, w), vector_add_unique(plain, w));
                break;
            case 6:
                vector_sort(lasting, ascending);
                vector_sort(plain, ascending);
                break;
            default:
                EXPECT_EQ(vector_push(lasting, w), vector_push(plain, w));
                break;
            }
            ASSERT_EQ(contents(lasting), contents(plain)) << size << ", step " << step;
            ASSERT_EQ(lasting->capacity, plain->capacity) << size << ", step " << step;
            ASSERT_EQ(walk(lasting), walk(plain));
        }
        vector_iter_begin(lasting); // goes with the vector
        vector_free(lasting);
        vector_free(plain);
    }
}

// Words of half a megabyte and more are moved in another way. What growth keeps and forgets is the same.
TEST(Vector, GrowthOfLargeVectors)
{
    constexpr std::uint32_t HALF_MEGABYTE = (1U << 19) / sizeof(word);
    for (const std::uint32_t size : {HALF_MEGABYTE / 2, HALF_MEGABYTE - 1, HALF_MEGABYTE, HALF_MEGABYTE * 8}) {
        for (vector *p : {vector_new_sized(size), vector_new_lasting(size)}) {
            words expected;
            for (word w = 1; w <= size; ++w) {
                vector_push(p, w);
                expected.push_back(w);
            }
            // Twice from a vector that was full to one of which the upper words are not those that were there.
            for (int round = 0; round < 2; ++round) {
                vector_pop(p);
                vector_pop(p);
                const std::uint32_t end = p->capacity;
                vector_set(p, 7, end);
                EXPECT_EQ(p->capacity, end * 2);
                expected.resize(expected.size() - 2);
                expected.resize(end);
                expected.push_back(7);
                ASSERT_TRUE(words(p->data, p->data + p->count) == expected) << size << ", round " << round;
                while (p->count < p->capacity) {
                    vector_push(p, p->count);
                    expected.push_back(expected.size());
                }
            }
            vector *copy = vector_copy(p);
            EXPECT_EQ(copy->capacity, p->capacity);
            vector_free(p);
            EXPECT_TRUE(words(copy->data, copy->data + copy->count) == expected);
            vector_push(copy, 9);
            EXPECT_EQ(vector_last(copy), 9U);
            vector_free(copy);
        }
    }
}

TEST(VectorDeath, ChecksOfState)
{
    EXPECT_CHECK(vector_push(nullptr, 1), "p != NULL");
    EXPECT_CHECK(vector_add_unique(nullptr, 1), "p != NULL");
    EXPECT_CHECK(vector_insert(nullptr, 1, 0), "p != NULL");
    EXPECT_CHECK(vector_set(nullptr, 1, 0), "p != NULL");
    EXPECT_CHECK(vector_get(nullptr, 0), "p != NULL");
    EXPECT_CHECK(vector_last(nullptr), "p != NULL");
    EXPECT_CHECK(vector_pop(nullptr), "p != NULL");
    EXPECT_CHECK(vector_delete(nullptr, 0), "p != NULL");
    EXPECT_CHECK(vector_find(nullptr, 0), "p != NULL");
    EXPECT_CHECK(vector_clear(nullptr), "p != NULL");
    EXPECT_CHECK(vector_sort(nullptr, ascending), "p != NULL");

    vector *p = vector_new();
    EXPECT_CHECK(vector_append(nullptr, p), "p != NULL");
    EXPECT_CHECK(vector_append(p, nullptr), "n != NULL");
    EXPECT_CHECK(vector_iter_more(p), "p->iterator != NULL");
    EXPECT_CHECK(vector_next(p), "p->iterator != NULL");
    EXPECT_CHECK(vector_current(p), "p->iterator != NULL");
    EXPECT_CHECK(vector_iter_step(p, 0), "p->iterator != NULL");
    EXPECT_CHECK(vector_iter_step(nullptr, 1), "more == 0");
    EXPECT_CHECK(vector_set(p, 1, NO_INDEX), "index != NO_INDEX");
    vector_free(p);

    p = vector_new_sized(0);
    EXPECT_CHECK(vector_push(p, 1), "initial_size != 0");
    vector_free(p);
    p = vector_new_lasting(0);
    EXPECT_CHECK(vector_push(p, 1), "initial_size != 0");
    vector_free(p);

    vector broken;
    broken.count = 1;
    EXPECT_CHECK(vector_get(&broken, 0), "p->data != NULL");
    EXPECT_CHECK(vector_last(&broken), "p->data != NULL");
    EXPECT_CHECK(vector_pop(&broken), "p->data != NULL");
    EXPECT_CHECK(vector_delete(&broken, 0), "p->data != NULL");
    EXPECT_CHECK(vector_find(&broken, 0), "p->data != NULL");
    EXPECT_CHECK(vector_sort(&broken, ascending), "p->data != NULL");
}

namespace {

// The master list is on while this lives; it starts empty.
struct listing {
    listing() { vector_master_list(true); }
    ~listing() { vector_master_list(false); }
    listing(const listing &) = delete;
    listing &operator=(const listing &) = delete;
};

vector *listed(birth_place where, std::uint32_t initial_size, std::uint32_t count)
{
    vector *p = vector_new_sized(initial_size, where);
    for (std::uint32_t index = 0; index < count; ++index) {
        vector_push(p, index);
    }
    return p;
}

std::vector<std::string> dumped()
{
    const trace_capture capture;
    vector_dump_master_list();
    return capture.lines();
}

std::string living_row(const vector *p, const char *rest)
{
    return trace_capture::format("# %p    %s", static_cast<const void *>(p), rest);
}

} // namespace

TEST(VectorMasterList, EmptyDump)
{
    const listing on;
    const std::vector<std::string> lines = dumped();
    ASSERT_EQ(lines.size(), 6U);
    EXPECT_EQ(lines[0], "# Living Vector Master List:");
    EXPECT_EQ(lines[1], "# ptr    file:line    max_count/capacity    alive");
    EXPECT_EQ(lines[2], "# Vector Master List Summary:");
    EXPECT_EQ(lines[3].find("# "), 0U);
    const std::size_t living = lines[3].find("Living");
    const std::size_t dead = lines[3].find("Dead");
    const std::size_t total = lines[3].find("Total");
    EXPECT_LT(living, dead);
    EXPECT_LT(dead, total);
    EXPECT_LT(total, lines[3].size());
    EXPECT_NE(lines[4].find("file:line"), std::string::npos);
    const std::size_t column = lines[4].find("vectors/capacity");
    const std::size_t second = lines[4].find("vectors/capacity", column + 1);
    EXPECT_NE(lines[4].find("vectors/capacity", second + 1), std::string::npos);
    EXPECT_EQ(lines[5], "#                       Total Summary:0                            0/0    0/0    0/0");
}

TEST(VectorMasterList, RowsAndSummary)
{
    const listing on;
    static const char FIRST[] = "one.c";
    static const char SECOND[] = "two.c";
    vector *a = listed({FIRST, 10}, 4, 3);
    vector *b = listed({FIRST, 10}, 4, 5); // grows to 8
    vector *c = listed({SECOND, 7}, 10, 1);
    vector *d = listed({FIRST, 10}, 2, 2);
    vector_pop(a);
    vector_free(d);

    const std::vector<std::string> lines = dumped();
    ASSERT_EQ(lines.size(), 11U);
    // The largest first: c 10, b 8, a 4; the dead d is only counted.
    EXPECT_EQ(lines[2], living_row(c, "two.c:7    1/10    Y"));
    EXPECT_EQ(lines[3], living_row(b, "one.c:10    5/8    Y"));
    EXPECT_EQ(lines[4], living_row(a, "one.c:10    3/4    Y")) << "the highest count, not the present one";
    EXPECT_EQ(lines[5], "# Vector Master List Summary:");
    // New rows go to the front, the total stands last; only it has total columns.
    EXPECT_EQ(lines[8], "#                               one.c:10                           2/12    1/2    0/0");
    EXPECT_EQ(lines[9], "#                               two.c:7                            1/10    0/0    0/0");
    EXPECT_EQ(lines[10], "#                       Total Summary:0                            3/22    1/2    4/24");
    vector_free(a);
    vector_free(b);
    vector_free(c);
}

TEST(VectorMasterList, OrderOfEqualCapacity)
{
    const listing on;
    vector *by_count = listed({"m.c", 5}, 10, 1);
    vector *by_line = listed({"m.c", 4}, 10, 2);
    vector *by_file = listed({"k.c", 9}, 10, 2);
    vector *base = listed({"m.c", 5}, 10, 2);
    const std::vector<std::string> lines = dumped();
    ASSERT_GE(lines.size(), 6U);
    EXPECT_EQ(lines[2], living_row(by_count, "m.c:5    1/10    Y")) << "the lower count first";
    EXPECT_EQ(lines[3], living_row(by_file, "k.c:9    2/10    Y")) << "then the file name";
    EXPECT_EQ(lines[4], living_row(by_line, "m.c:4    2/10    Y")) << "then the line";
    EXPECT_EQ(lines[5], living_row(base, "m.c:5    2/10    Y"));
    for (vector *p : {by_count, by_line, by_file, base}) {
        vector_free(p);
    }
}

TEST(VectorMasterList, OfEqualRecordsTheLaterInMemoryComesFirst)
{
    const listing on;
    vector *first = listed({"e.c", 1}, 10, 1);
    vector *second = listed({"e.c", 1}, 10, 1);
    const bool second_is_later =
        reinterpret_cast<std::uintptr_t>(second->master) > reinterpret_cast<std::uintptr_t>(first->master);
    const std::vector<std::string> lines = dumped();
    ASSERT_GE(lines.size(), 4U);
    EXPECT_EQ(lines[2], living_row(second_is_later ? second : first, "e.c:1    1/10    Y"));
    EXPECT_EQ(lines[3], living_row(second_is_later ? first : second, "e.c:1    1/10    Y"));
    vector_free(first);
    vector_free(second);
}

TEST(VectorMasterList, SummaryTellsFilesApartByPointer)
{
    const listing on;
    static const char TEXT[] = "same.c";
    static const char TWIN[] = "same.c";
    vector *first = listed({TEXT, 3}, 10, 1);
    vector *second = listed({TWIN, 3}, 10, 1);
    const std::vector<std::string> lines = dumped();
    ASSERT_EQ(lines.size(), 10U);
    EXPECT_EQ(lines[7], "#                              same.c:3                            1/10    0/0    0/0");
    EXPECT_EQ(lines[8], lines[7]);
    vector_free(first);
    vector_free(second);
}

TEST(VectorMasterList, CopyIsListedWhenItsSourceIs)
{
    vector *unlisted = vector_new({"u.c", 1});
    vector_master_list(true);
    vector *copy_of_unlisted = vector_copy(unlisted, {"u.c", 2});
    EXPECT_EQ(copy_of_unlisted->master, nullptr);
    vector *p = listed({"c.c", 1}, 10, 4);
    vector_pop(p);
    vector *copy = vector_copy(p, {"c.c", 2});
    const std::vector<std::string> lines = dumped();
    EXPECT_EQ(lines[2], living_row(copy, "c.c:2    3/10    Y")) << "the present count of the source";
    EXPECT_EQ(lines[3], living_row(p, "c.c:1    4/10    Y"));
    vector_master_list(false);
    vector *unlisted_too = vector_new();
    EXPECT_EQ(unlisted_too->master, nullptr);
    for (vector *each_vector : {unlisted, copy_of_unlisted, p, copy, unlisted_too}) {
        vector_free(each_vector);
    }
}

TEST(VectorMasterList, InsertAndSetRaiseTheHighWaterMarks)
{
    const listing on;
    vector *p = vector_new_sized(2, {"h.c", 1});
    vector_insert(p, 1, 0);
    vector_set(p, 1, 4);
    vector_clear(p);
    EXPECT_EQ(dumped()[2], living_row(p, "h.c:1    5/8    Y"));
    vector_free(p);
}

TEST(VectorMasterList, LastingVectorsAreListedAsOthers)
{
    const listing on;
    vector *p = vector_new_lasting(1, {"lasting.c", 4});
    EXPECT_EQ(dumped()[2], living_row(p, "lasting.c:4    0/0    Y"));
    for (word w = 0; w < 3; ++w) {
        vector_push(p, w);
    }
    EXPECT_EQ(dumped()[2], living_row(p, "lasting.c:4    3/4    Y"));
    vector *copy = vector_copy(p, {"lasting.c", 5});
    vector_free(p);
    EXPECT_EQ(dumped()[2], living_row(copy, "lasting.c:5    3/4    Y")) << "the other is dead";
    vector_free(copy);
}

TEST(VectorMasterList, BirthPlaceIsTheCallersLine)
{
    const listing on;
    const int line = __LINE__ + 1;
    vector *p = vector_new();
    const std::string row = dumped()[2];
    EXPECT_NE(row.find(trace_capture::format("vector_test.cpp:%d    0/0    Y", line)), std::string::npos) << row;
    vector_free(p);
}

TEST(VectorMasterListDeath, AliveBitLost)
{
    const listing on;
    vector *p = listed({"d.c", 1}, 10, 1);
    vector stale = *p;
    vector_free(p);
    EXPECT_CHECK(vector_push(&stale, 1), "is_alive(p)");
    EXPECT_CHECK(vector_insert(&stale, 1, 0), "is_alive(p)");
    EXPECT_CHECK(vector_set(&stale, 1, 0), "is_alive(p)");
    EXPECT_CHECK(vector_delete(&stale, 0), "is_alive(p)");
    EXPECT_CHECK(vector_clear(&stale), "is_alive(p)");
    EXPECT_CHECK(vector_free(&stale), "is_alive(p)");
}

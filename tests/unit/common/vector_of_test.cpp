// SPDX-License-Identifier: MIT
// The typed view over vectors, and the loop.
#include "common/vector_of.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

struct record {
    int number;
};

int by_number(record *left, record *right)
{
    return left->number - right->number;
}

vector_of<record *> list_of(std::vector<record> &records)
{
    const auto list = vector_of<record *>::make();
    for (record &r : records) {
        list.push(&r);
    }
    return list;
}

std::vector<int> numbers(vector_of<record *> list)
{
    std::vector<int> found;
    for (const record *r : each(list)) {
        found.push_back(r->number);
    }
    return found;
}

} // namespace

TEST(VectorOf, NullViewIsAnEmptyCollection)
{
    const vector_of<record *> list;
    EXPECT_FALSE(static_cast<bool>(list));
    EXPECT_EQ(list.count(), 0U);
    EXPECT_TRUE(list.empty());
    EXPECT_EQ(list.copy().raw(), nullptr);
    EXPECT_TRUE(numbers(list).empty());
}

TEST(VectorOf, OperationsKeepTheirTypes)
{
    std::vector<record> records = {{3}, {1}, {2}};
    auto list = list_of(records);
    EXPECT_TRUE(static_cast<bool>(list));
    EXPECT_EQ(list.count(), 3U);
    EXPECT_EQ(list.get(1), &records[1]);
    EXPECT_EQ(list.get(3), nullptr);
    EXPECT_EQ(list.last(), &records[2]);
    EXPECT_EQ(list.find(&records[2]), 2U);
    EXPECT_EQ(list.add_unique(&records[0]), 0U);
    list.sort<by_number>();
    EXPECT_EQ(numbers(list), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(list.pop(), &records[0]);
    EXPECT_EQ(list.insert(&records[0], 0), 0U);
    EXPECT_EQ(list.remove(1), 1);
    list.set(&records[1], 0);
    EXPECT_EQ(numbers(list), (std::vector<int>{1, 2}));

    auto copy = list.copy();
    copy.append(list);
    EXPECT_EQ(numbers(copy), (std::vector<int>{1, 2, 1, 2}));
    copy.clear();
    EXPECT_TRUE(copy.empty());
    copy.free();
    EXPECT_EQ(copy.raw(), nullptr);
    list.free();
}

TEST(VectorOf, CopiesOfTheViewAreOneCollection)
{
    auto list = vector_of<std::uint32_t>::make(1);
    const auto same = list;
    same.push(0xFFFFFFFF);
    EXPECT_EQ(list.count(), 1U);
    EXPECT_EQ(list.get(0), 0xFFFFFFFFU);
    EXPECT_EQ(list.raw()->initial_size, 1U);
    list.free();
}

TEST(VectorOf, LastingVectorsGrowAsOthers)
{
    auto list = vector_of<std::uint32_t>::make_lasting(1);
    EXPECT_TRUE(list.raw()->lasting);
    EXPECT_EQ(list.raw()->initial_size, 1U);
    for (const std::uint32_t n : {1U, 2U, 3U}) {
        list.push(n);
    }
    auto copy = list.copy();
    list.free();
    EXPECT_EQ(list.raw(), nullptr);
    EXPECT_EQ(copy.count(), 3U);
    EXPECT_EQ(copy.last(), 3U);
    copy.free();
}

TEST(VectorOf, SignedElementsComeBackSigned)
{
    auto list = vector_of<std::int32_t>::make();
    list.push(-5);
    EXPECT_EQ(list.last(), -5);
    EXPECT_EQ(list.find(-5), 0U);
    list.free();
}

TEST(Each, ClosesItsIteratorOnEveryWayOut)
{
    std::vector<record> records = {{1}, {2}, {3}};
    auto list = list_of(records);
    for (const record *r : each(list)) {
        if (r->number == 2) {
            break;
        }
    }
    EXPECT_EQ(list.raw()->iterator, nullptr);

    const auto find = [&list](int number) -> const record * {
        for (const record *r : each(list)) {
            if (r->number == number) {
                return r;
            }
        }
        return nullptr;
    };
    EXPECT_EQ(find(1), &records[0]);
    EXPECT_EQ(find(4), nullptr);
    EXPECT_EQ(list.raw()->iterator, nullptr);
    list.free();
}

TEST(Each, LoopsNestOnOneVector)
{
    std::vector<record> records = {{1}, {2}, {3}};
    auto list = list_of(records);
    std::vector<int> pairs;
    for (const record *outer : each(list)) {
        for (const record *inner : each(list)) {
            if (inner->number > outer->number) {
                break;
            }
            pairs.push_back(outer->number * 10 + inner->number);
        }
    }
    EXPECT_EQ(pairs, (std::vector<int>{11, 21, 22, 31, 32, 33}));
    EXPECT_EQ(list.raw()->iterator, nullptr);
    list.free();
}

TEST(Each, SurvivesInsertionAndDeletion)
{
    auto list = vector_of<std::uint32_t>::make();
    for (const std::uint32_t n : {1U, 2U, 3U, 4U}) {
        list.push(n);
    }
    std::vector<std::uint32_t> seen;
    for (const std::uint32_t n : each(list)) {
        seen.push_back(n);
        if (n == 2) {
            list.remove(list.find(2));
            list.insert(20, 0);
        }
        if (n == 4) {
            list.push(5);
        }
    }
    EXPECT_EQ(seen, (std::vector<std::uint32_t>{1, 2, 3, 4, 5}));
    list.free();
}

// SPDX-License-Identifier: MIT
#include "common/distinct_sort.h"

#include <cstdint>
#include <random>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "common/quicksort.h"

namespace {

struct keyed {
    std::uint32_t key;
};

int compare_keyed(const keyed *left, const keyed *right)
{
    return left->key < right->key ? -1 : left->key > right->key ? 1 : 0;
}

int compare_places(const void *left, const void *right)
{
    return compare_keyed(*static_cast<keyed *const *>(left), *static_cast<keyed *const *>(right));
}

std::vector<keyed *> pointers_to(std::vector<keyed> *records)
{
    std::vector<keyed *> result;
    for (keyed &record : *records) {
        result.push_back(&record);
    }
    return result;
}

// Both forms leave the records, equal ones too, where the quicksort leaves them.
void expect_quicksorted(std::vector<keyed> records)
{
    std::vector<keyed *> expected = pointers_to(&records);
    quicksort(expected.data(), static_cast<std::uint32_t>(expected.size()), sizeof(keyed *), compare_places);

    std::vector<keyed *> places = pointers_to(&records);
    sort_records<compare_keyed>(places.data(), static_cast<std::uint32_t>(places.size()));
    EXPECT_EQ(places, expected);

    auto list = vector_of<keyed *>::make();
    for (keyed &record : records) {
        list.push(&record);
    }
    sort_records<compare_keyed>(list);
    ASSERT_EQ(list.count(), expected.size());
    for (std::uint32_t i = 0; i < list.count(); ++i) {
        EXPECT_EQ(list.get(i), expected[i]);
    }
    list.free();
}

} // namespace

TEST(SortRecords, NothingAndOne)
{
    expect_quicksorted({});
    expect_quicksorted({{7}});
}

// The pivot is the first of the two and both scans stop at once: equal records change places.
TEST(SortRecords, EqualOnesAsTheQuicksortLeavesThem)
{
    std::vector<keyed> records = {{5}, {5}};
    std::vector<keyed *> places = pointers_to(&records);
    sort_records<compare_keyed>(places.data(), 2);
    EXPECT_EQ(places, (std::vector<keyed *>{&records[1], &records[0]}));
}

TEST(SortRecords, AsTheQuicksort)
{
    std::mt19937 random(3);
    for (int round = 0; round < 300; ++round) {
        std::vector<keyed> records(random() % 60);
        const std::uint32_t keys = round % 2 == 0 ? 20 : 0xFFFFFFFF; // with many equal ones, and with hardly any
        for (keyed &record : records) {
            record.key = static_cast<std::uint32_t>(random() % keys);
        }
        expect_quicksorted(std::move(records));
    }
}

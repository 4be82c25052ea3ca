// SPDX-License-Identifier: MIT
// The program's quicksort, held against its steps written down once more in the plainest way.
#include "common/quicksort.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <random>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/unit/common/container_testing.h"

namespace {

// What is sorted: `key` decides, `tag` shows where an element came from.
struct item {
    std::uint32_t key;
    std::uint32_t tag;

    bool operator==(const item &) const = default;
};
static_assert(sizeof(item) == sizeof(std::uint64_t));

// One call of a comparison, told by the tags of its arguments.
using call = std::pair<std::uint32_t, std::uint32_t>;

// The steps, on whole items, with a recorded comparison.
class reference_sort {
public:
    std::vector<item> items;
    std::vector<call> calls;
    std::function<int(const item &, const item &)> decide; // in place of the keys

    void run()
    {
        if (items.size() < 2) {
            return;
        }
        std::vector<std::pair<long, long>> stack;
        long low = 0;
        long high = static_cast<long>(items.size()) - 1;
        for (;;) {
            while (low < high) {
                const item pivot = at((low + high) / 2);
                long i = low;
                long j = high;
                do {
                    while (compare(at(i), pivot) < 0) {
                        i = i + 1;
                    }
                    while (compare(pivot, at(j)) < 0) {
                        j = j - 1;
                    }
                    if (i <= j) {
                        std::swap(at(i), at(j));
                        i = i + 1;
                        j = j - 1;
                    }
                } while (!(i > j));
                if (j - low >= high - i) {
                    if (low < j) {
                        stack.emplace_back(low, j);
                    }
                    low = i;
                } else {
                    if (i < high) {
                        stack.emplace_back(i, high);
                    }
                    high = j;
                }
            }
            if (stack.empty()) {
                return;
            }
            low = stack.back().first;
            high = stack.back().second;
            stack.pop_back();
        }
    }

private:
    item &at(long index) { return items.at(static_cast<std::size_t>(index)); }
    int compare(const item &left, const item &right)
    {
        calls.emplace_back(left.tag, right.tag);
        if (decide) {
            return decide(left, right);
        }
        return left.key < right.key ? -1 : left.key > right.key ? 1 : 0;
    }
};

std::vector<call> recorded;

int compare_items(const void *left, const void *right)
{
    item a;
    item b;
    std::memcpy(&a, left, sizeof(item));
    std::memcpy(&b, right, sizeof(item));
    recorded.emplace_back(a.tag, b.tag);
    return a.key < b.key ? -1 : a.key > b.key ? 1 : 0;
}

// The same items in elements of another size, so that the general form sorts them.
template <std::size_t Extra>
struct padded {
    item value;
    char extra[Extra];
};

template <typename Element>
std::vector<item> sorted_as(const std::vector<item> &items)
{
    std::vector<Element> elements;
    for (const item &i : items) {
        Element element{};
        std::memcpy(&element, &i, sizeof(item));
        if constexpr (sizeof(Element) > sizeof(item)) {
            // The rest of the element has to travel with it.
            std::memset(reinterpret_cast<char *>(&element) + sizeof(item), static_cast<int>(i.tag & 0xFF),
                        sizeof(Element) - sizeof(item));
        }
        elements.push_back(element);
    }
    recorded.clear();
    quicksort(elements.data(), static_cast<std::uint32_t>(elements.size()), sizeof(Element), compare_items);
    std::vector<item> result;
    for (const Element &element : elements) {
        item i;
        std::memcpy(&i, &element, sizeof(item));
        const auto *bytes = reinterpret_cast<const unsigned char *>(&element);
        for (std::size_t at = sizeof(item); at < sizeof(Element); ++at) {
            EXPECT_EQ(bytes[at], i.tag & 0xFF);
        }
        result.push_back(i);
    }
    return result;
}

std::vector<item> random_items(std::mt19937 &random, std::uint32_t count, std::uint32_t keys)
{
    std::vector<item> items;
    for (std::uint32_t tag = 0; tag < count; ++tag) {
        items.push_back({static_cast<std::uint32_t>(random()) % keys, tag});
    }
    return items;
}

void expect_as_reference(const std::vector<item> &items)
{
    reference_sort reference;
    reference.items = items;
    reference.run();
    EXPECT_EQ(sorted_as<item>(items), reference.items);
    EXPECT_EQ(recorded, reference.calls);
    EXPECT_EQ(sorted_as<padded<4>>(items), reference.items);
    EXPECT_EQ(recorded, reference.calls);
}

// The same order at a cost that stays in bounds where the reference's does not.
void expect_quick_as_reference(const std::vector<item> &items)
{
    reference_sort reference;
    reference.items = items;
    reference.run();
    EXPECT_EQ(sorted_as<item>(items), reference.items);
    const double count = static_cast<double>(items.size());
    EXPECT_LT(static_cast<double>(recorded.size()), 12 * count * std::log2(count));
    EXPECT_EQ(sorted_as<padded<4>>(items), reference.items);
}

// A list that is as slow as can be: its keys are decided while the steps compare, always to the disadvantage of the
// pivot. `share` neighbours in the order are then made equal.
std::vector<item> worst_for_reference(std::uint32_t count, std::uint32_t share)
{
    constexpr std::uint32_t OPEN = UINT32_MAX;
    std::vector<std::uint32_t> keys(count, OPEN);
    std::uint32_t decided = 0;
    std::uint32_t candidate = 0; // likely to be the pivot
    reference_sort reference;
    for (std::uint32_t tag = 0; tag < count; ++tag) {
        reference.items.push_back({0, tag});
    }
    reference.decide = [&](const item &left, const item &right) {
        std::uint32_t &a = keys[left.tag];
        std::uint32_t &b = keys[right.tag];
        if (a == OPEN && b == OPEN) {
            (left.tag == candidate ? a : b) = decided++;
        }
        candidate = a == OPEN ? left.tag : b == OPEN ? right.tag : candidate;
        return a < b ? -1 : a > b ? 1 : 0;
    };
    reference.run();
    EXPECT_GT(reference.calls.size(), std::size_t{count} * count / 8);
    std::vector<item> items;
    for (std::uint32_t tag = 0; tag < count; ++tag) {
        items.push_back({keys[tag] / share, tag});
    }
    return items;
}

std::vector<std::uint32_t> tags_of_equal(std::uint32_t count)
{
    std::vector<item> items;
    for (std::uint32_t tag = 0; tag < count; ++tag) {
        items.push_back({1, tag});
    }
    std::vector<std::uint32_t> tags;
    for (const item &i : sorted_as<item>(items)) {
        tags.push_back(i.tag);
    }
    return tags;
}

} // namespace

TEST(Quicksort, EqualElementsByHand)
{
    using tags = std::vector<std::uint32_t>;
    EXPECT_EQ(tags_of_equal(2), (tags{1, 0}));
    EXPECT_EQ(tags_of_equal(3), (tags{2, 1, 0}));
    // 0 1 2 3 exchanges to 3 2 1 0; the left side waits, the right one becomes 0 1, then the left one 2 3.
    EXPECT_EQ(tags_of_equal(4), (tags{2, 3, 0, 1}));
}

TEST(Quicksort, CallsByHand)
{
    // Keys 2 1: pivot is element 0. Up: it against itself. Down: the pivot against element 1 and then nothing below.
    const std::vector<item> sorted = sorted_as<item>({{2, 0}, {1, 1}});
    EXPECT_EQ(sorted, (std::vector<item>{{1, 1}, {2, 0}}));
    EXPECT_EQ(recorded, (std::vector<call>{{0, 0}, {0, 1}}));

    // Keys 1 2: up stops at element 0, down passes element 1 and stops at element 0, which is exchanged with itself.
    sorted_as<item>({{1, 0}, {2, 1}});
    EXPECT_EQ(recorded, (std::vector<call>{{0, 0}, {0, 1}, {0, 0}}));
}

TEST(Quicksort, AsTheReferenceOnAllSmallArrays)
{
    for (std::uint32_t count = 0; count <= 6; ++count) {
        std::uint32_t arrays = 1;
        for (std::uint32_t index = 0; index < count; ++index) {
            arrays *= 4;
        }
        for (std::uint32_t array = 0; array < arrays; ++array) {
            std::vector<item> items;
            for (std::uint32_t tag = 0; tag < count; ++tag) {
                items.push_back({array >> (2 * tag) & 3, tag});
            }
            expect_as_reference(items);
            if (HasFailure()) {
                FAIL() << "array " << array << " of " << count;
            }
        }
    }
}

TEST(Quicksort, AsTheReferenceOnRandomArraysWithEqualKeys)
{
    std::mt19937 random(1);
    for (int round = 0; round < 300; ++round) {
        const std::uint32_t count = static_cast<std::uint32_t>(random()) % 500;
        const std::uint32_t keys = 1 + static_cast<std::uint32_t>(random()) % (round % 3 == 0 ? 5 : 1000);
        expect_as_reference(random_items(random, count, keys));
    }
    expect_as_reference(random_items(random, 100000, 300));
}

TEST(Quicksort, SortedAndSymmetricShapes)
{
    std::vector<item> ascending;
    std::vector<item> descending;
    constexpr std::uint32_t COUNT = 20000;
    for (std::uint32_t tag = 0; tag < COUNT; ++tag) {
        ascending.push_back({tag, tag});
        descending.push_back({COUNT - tag, tag});
    }
    expect_as_reference(ascending);
    expect_as_reference(descending);
    expect_as_reference(std::vector<item>(COUNT, item{7, 7}));
}

// The one that hurts a middle pivot: the largest is in the middle, again and again.
TEST(Quicksort, SlowShapesAsTheReference)
{
    for (const std::uint32_t share : {1U, 2U, 10U}) { // so many elements are equal
        std::vector<item> organ_pipe;
        std::vector<item> rising_runs;
        constexpr std::uint32_t COUNT = 1500;
        for (std::uint32_t tag = 0; tag < COUNT; ++tag) {
            organ_pipe.push_back({(tag < COUNT / 2 ? tag : COUNT - tag) / share, tag});
            rising_runs.push_back({(tag % 2 == 0 ? tag : COUNT + tag) / share, tag});
        }
        expect_quick_as_reference(organ_pipe);
        expect_quick_as_reference(rising_runs);
        expect_quick_as_reference(worst_for_reference(COUNT, share));
    }
}

TEST(Quicksort, ElementsWhosePivotNeedsTheHeap)
{
    std::mt19937 random(2);
    const std::vector<item> items = random_items(random, 200, 20);
    reference_sort reference;
    reference.items = items;
    reference.run();
    EXPECT_EQ(sorted_as<padded<788>>(items), reference.items); // 796 bytes: still on the stack
    EXPECT_EQ(sorted_as<padded<792>>(items), reference.items); // 800 bytes: on the heap
    EXPECT_EQ(sorted_as<padded<1500>>(items), reference.items);
}

TEST(Quicksort, SingleBytes)
{
    char text[] = "quicksort";
    quicksort(text, 9, 1, [](const void *left, const void *right) {
        return *static_cast<const char *>(left) - *static_cast<const char *>(right);
    });
    EXPECT_STREQ(text, "cikoqrstu");
}

TEST(Quicksort, PivotIsACopyOutsideTheArray)
{
    static std::vector<std::uint64_t> array;
    static int inside_twice;
    array = {5, 3, 9, 3, 1, 5};
    inside_twice = 0;
    quicksort(array.data(), static_cast<std::uint32_t>(array.size()), sizeof(std::uint64_t),
              [](const void *left, const void *right) {
                  const auto in_array = [](const void *address) {
                      return address >= array.data() && address < array.data() + array.size();
                  };
                  inside_twice += in_array(left) == in_array(right) ? 1 : 0;
                  const std::uint64_t a = *static_cast<const std::uint64_t *>(left);
                  const std::uint64_t b = *static_cast<const std::uint64_t *>(right);
                  return a < b ? -1 : a > b ? 1 : 0;
              });
    EXPECT_EQ(inside_twice, 0) << "one argument is always the element, the other the copy";
    EXPECT_EQ(array, (std::vector<std::uint64_t>{1, 3, 3, 5, 5, 9}));
}

TEST(Quicksort, ShortArraysAreLeftAlone)
{
    const auto never = [](const void *, const void *) -> int {
        ADD_FAILURE() << "nothing to compare";
        return 0;
    };
    quicksort(nullptr, 0, sizeof(int), never);
    quicksort(nullptr, 1, sizeof(int), never);
    int one = 1;
    quicksort(&one, 1, sizeof(int), never);
    EXPECT_EQ(one, 1);
}

TEST(QuicksortDeath, NullArray)
{
    EXPECT_CHECK(quicksort(nullptr, 2, sizeof(int), compare_items), "vbase");
}

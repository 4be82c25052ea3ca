// SPDX-License-Identifier: MIT
#include "compiler/tarnwick/span_index.h"

#include <random>

#include <gtest/gtest.h>

namespace {

// The walk that the index stands in for.
std::uint32_t first_with_common_byte(const std::vector<address_span> &spans, std::uint32_t start, std::uint32_t end)
{
    std::uint32_t result = NO_INDEX;
    for (const address_span &span : spans) {
        const bool common = start < end && span.start < end && start < span.end;
        if (common && span.position < result) {
            result = span.position;
        }
    }
    return result;
}

TEST(span_index, without_spans_finds_nothing)
{
    const span_index index;
    EXPECT_EQ(index.lowest(0, 0xFFFFFFFF), NO_INDEX);
}

TEST(span_index, tells_the_edges_of_a_span)
{
    span_index index;
    index.add({0x10, 0x20, 7});
    EXPECT_EQ(index.lowest(0x0F, 0x10), NO_INDEX);
    EXPECT_EQ(index.lowest(0x0F, 0x11), 7U);
    EXPECT_EQ(index.lowest(0x10, 0x11), 7U);
    EXPECT_EQ(index.lowest(0x1F, 0x20), 7U);
    EXPECT_EQ(index.lowest(0x20, 0x21), NO_INDEX);
    EXPECT_EQ(index.lowest(0, 0xFFFFFFFF), 7U);
}

TEST(span_index, an_empty_range_has_no_byte)
{
    span_index index;
    index.add({0x10, 0x20, 7});
    EXPECT_EQ(index.lowest(0x18, 0x18), NO_INDEX);
    EXPECT_EQ(index.lowest(0x1C, 0x14), NO_INDEX); // the end wrapped
}

TEST(span_index, the_lowest_position_counts_and_not_the_lowest_address)
{
    span_index index;
    index.add({0x10, 0x40, 5});
    index.add({0x20, 0x30, 2});
    EXPECT_EQ(index.lowest(0x10, 0x20), 5U);
    EXPECT_EQ(index.lowest(0x10, 0x21), 2U);
    EXPECT_EQ(index.lowest(0x2F, 0x40), 2U);
    EXPECT_EQ(index.lowest(0x30, 0x40), 5U);
}

TEST(span_index, reaches_the_highest_address_that_a_span_can_end_at)
{
    span_index index;
    index.add({0xFFFFFFF0, 0xFFFFFFFF, 1});
    EXPECT_EQ(index.lowest(0xFFFFFFFE, 0xFFFFFFFF), 1U);
    EXPECT_EQ(index.lowest(0, 0xFFFFFFF0), NO_INDEX);
}

TEST(span_index, gives_what_a_walk_gives)
{
    std::mt19937 random(1);
    const auto below = [&random](std::uint32_t limit) { return static_cast<std::uint32_t>(random() % limit); };
    for (const std::uint32_t extent : {200U, 5000U, 0xFFFFF000U}) {
        span_index index;
        std::vector<address_span> spans;
        for (std::uint32_t i = 0; i < 1500; ++i) {
            const std::uint32_t start = below(extent);
            const address_span span = {start, start + 1 + below(extent < 1000000 ? 20 : 4000), below(100000)};
            spans.push_back(span);
            index.add(span);
            // Each size on the way is looked at, so short lists and tables of every size take their turn.
            const std::uint32_t from = below(extent);
            const std::uint32_t to = from + below(i % 3 == 0 ? extent : 30);
            ASSERT_EQ(index.lowest(from, to), first_with_common_byte(spans, from, to)) << i << ' ' << from << ' ' << to;
        }
    }
}

} // namespace

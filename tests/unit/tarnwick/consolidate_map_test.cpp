// SPDX-License-Identifier: MIT
// The mapping of blocks to segments beside a plain walk of both, and for many of them.
#include "compiler/tarnwick/consolidate.h"

#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/unit/tarnwick/consolidate_testing.h"

namespace {

using namespace consolidate_testing;

// The reference: every segment for every block, and every byte of a block.
class plain_walk {
public:
    struct segment {
        std::uint32_t load;
        std::uint32_t size;
        bool noprog;
    };
    std::vector<segment> segs;
    std::vector<block> list;

    void run()
    {
        for (std::size_t i = 0; i < list.size(); ++i) {
            if (list[i].segment == 0) {
                map(i);
            }
        }
    }

private:
    static bool inside(const segment &seg, std::uint32_t address)
    {
        return address >= seg.load && address < seg.load + seg.size;
    }

    // Cuts the part up to or from `at` off.
    void cut_head(std::size_t i, std::uint32_t at)
    {
        list.push_back({list[i].address, at - list[i].address, 0});
        list[i].length -= at - list[i].address;
        list[i].address = at;
    }
    void cut_tail(std::size_t i, std::uint32_t at)
    {
        const std::uint32_t rest = at - list[i].address;
        list.push_back({at, list[i].length - rest, 0});
        list[i].length = rest;
    }

    bool take(std::size_t i, std::size_t s)
    {
        const std::uint32_t end = list[i].address + list[i].length;
        std::uint32_t first = list[i].address;
        while (first < end && !inside(segs[s], first)) {
            ++first;
        }
        if (first >= end) {
            return false;
        }
        if (first != list[i].address) {
            cut_head(i, first);
        }
        std::uint32_t outside = first;
        while (outside < end && inside(segs[s], outside)) {
            ++outside;
        }
        if (outside < end) {
            cut_tail(i, outside);
        }
        list[i].segment = static_cast<std::uint32_t>(s + 1);
        return true;
    }

    void map(std::size_t i)
    {
        for (std::size_t s = 0; s < segs.size(); ++s) {
            if (!segs[s].noprog && take(i, s)) {
                return;
            }
        }
        if (stray_ == 0 || segs[stray_ - 1].load + segs[stray_ - 1].size != list[i].address) {
            segs.push_back({list[i].address, 0, false});
            stray_ = segs.size();
        }
        segs[stray_ - 1].size += list[i].length;
        list[i].segment = static_cast<std::uint32_t>(stray_);
    }

    std::size_t stray_ = 0; // number of the stray segment in use
};

struct random_program {
    std::uint32_t base;
    std::uint32_t extent;
    std::uint32_t segments;
    std::uint32_t blocks;
    std::uint32_t longest; // block
};

void compare_with_plain_walk(const random_program &shape, std::uint32_t seed)
{
    start_model();
    std::mt19937 random(seed);
    const auto below = [&random](std::uint32_t limit) { return static_cast<std::uint32_t>(random() % limit); };
    plain_walk plain;
    for (std::uint32_t i = 0; i < shape.segments; ++i) {
        const plain_walk::segment seg = {shape.base + below(shape.extent), below(24), below(5) == 0};
        plain.segs.push_back(seg);
        add_segment(("s" + std::to_string(i)).c_str(), seg.load, seg.size, seg.noprog ? PDB_NOSPACE : PDB_WRITE);
    }
    std::uint32_t address = shape.base;
    for (std::uint32_t i = 0; i < shape.blocks; ++i) {
        // Half of the blocks continue the one before, as in an image.
        address = below(2) == 0 ? address : shape.base + below(shape.extent);
        const block b = {address, below(shape.longest), below(20) == 0 ? 1 + below(9) : 0};
        plain.list.push_back(b);
        add_block(b.address, b.length, static_cast<std::uint8_t>(b.address), b.segment);
        address += b.length;
    }

    plain.run();
    map_data_list_to_segments();

    ASSERT_EQ(blocks(), plain.list);
    ASSERT_EQ(seg_list.count(), plain.segs.size());
    for (std::uint32_t i = 0; i < seg_list.count(); ++i) {
        ASSERT_EQ(seg_list.get(i)->sg_load, plain.segs[i].load);
        ASSERT_EQ(seg_list.get(i)->sg_size, plain.segs[i].size);
    }
    for (const tarn_data *dp : each(data_list)) {
        for (std::uint32_t i = 0; i < dp->da_len; ++i) {
            ASSERT_EQ(dp->da_bytes[i], static_cast<std::uint8_t>(dp->da_addr + i));
        }
    }
}

TEST(consolidation_map, gives_what_a_plain_walk_gives)
{
    for (std::uint32_t seed = 0; seed < 100; ++seed) {
        SCOPED_TRACE(seed);
        compare_with_plain_walk({0x1000, 150, 6, 30, 20}, seed);
        compare_with_plain_walk({0x1000, 3000, 120, 300, 40}, seed);
        if (HasFatalFailure()) {
            return;
        }
    }
}

TEST(consolidation_map, gives_what_a_plain_walk_gives_where_addresses_wrap)
{
    for (std::uint32_t seed = 0; seed < 300; ++seed) {
        SCOPED_TRACE(seed);
        compare_with_plain_walk({0xFFFFFFA0, 150, 6, 30, 20}, seed);
        if (HasFatalFailure()) {
            return;
        }
    }
}

TEST(consolidation_map, gives_what_a_plain_walk_gives_for_long_blocks_over_many_strays)
{
    for (std::uint32_t seed = 0; seed < 10; ++seed) {
        SCOPED_TRACE(seed);
        compare_with_plain_walk({0x1000, 10000, 3, 500, 8}, seed);
        compare_with_plain_walk({0x1000, 10000, 100, 150, 800}, seed);
        if (HasFatalFailure()) {
            return;
        }
    }
}

// A walk of all segments for each block would take hours here.
TEST(consolidation_map, many_blocks_and_many_segments_take_little_time)
{
    constexpr std::uint32_t SEGMENTS = 20000;
    constexpr std::uint32_t STRAYS = 100000;
    start_model();
    for (std::uint32_t i = 0; i < SEGMENTS; ++i) {
        add_segment(("s" + std::to_string(i)).c_str(), i * 0x20, 0x10);
    }
    for (std::uint32_t i = 0; i < SEGMENTS; ++i) {
        add_block(i * 0x20, 0x10);
    }
    for (std::uint32_t i = 0; i < STRAYS; ++i) {
        add_block(0x10000000 + i * 2, 1);
    }
    add_block(0x10000000, 2 * STRAYS); // is cut at every stray segment there
    map_data_list_to_segments();
    EXPECT_EQ(data_list.get(SEGMENTS - 1)->da_seg, SEGMENTS);
    EXPECT_EQ(data_list.get(SEGMENTS + STRAYS - 1)->da_seg, SEGMENTS + STRAYS);
    EXPECT_EQ(seg_list.count(), SEGMENTS + 2 * STRAYS);
    EXPECT_EQ(data_list.count(), SEGMENTS + 3 * STRAYS);
}

} // namespace

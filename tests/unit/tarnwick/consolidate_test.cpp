// SPDX-License-Identifier: MIT
// Consolidation: cutting, mapping, merging, splitting and widening, and its report.
#include "compiler/tarnwick/consolidate.h"

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "compiler/tarnwick/options.h"
#include "tests/unit/scenario.h"
#include "tests/unit/tarnwick/consolidate_testing.h"
#include "tests/unit/tarnwick/trace_log.h"

namespace {

using namespace consolidate_testing;

// --- split_data ---------------------------------------------------------------------------------------------------------

TEST_F(consolidation, a_positive_count_cuts_off_the_first_bytes)
{
    split_data(add_block(0x100, 10), 3);
    EXPECT_EQ(blocks(), (block_list{{0x103, 7, 0}, {0x100, 3, 0}}));
    EXPECT_EQ(bytes_of(0), (bytes{3, 4, 5, 6, 7, 8, 9}));
    EXPECT_EQ(bytes_of(1), (bytes{0, 1, 2}));
}

TEST_F(consolidation, a_negative_count_cuts_off_the_last_bytes)
{
    split_data(add_block(0x100, 10), -4);
    EXPECT_EQ(blocks(), (block_list{{0x100, 6, 0}, {0x106, 4, 0}}));
    EXPECT_EQ(bytes_of(0), (bytes{0, 1, 2, 3, 4, 5}));
    EXPECT_EQ(bytes_of(1), (bytes{6, 7, 8, 9}));
}

TEST_F(consolidation, a_cut_of_the_whole_block_does_nothing)
{
    tarn_data *dp = add_block(0x100, 10);
    split_data(dp, 10);
    split_data(dp, -10);
    EXPECT_EQ(blocks(), (block_list{{0x100, 10, 0}}));
}

TEST_F(consolidation, a_piece_that_was_cut_off_has_no_segment)
{
    split_data(add_block(0x100, 10, 0, 4), 3);
    EXPECT_EQ(blocks(), (block_list{{0x103, 7, 4}, {0x100, 3, 0}}));
}

TEST_F(consolidation, a_cut_longer_than_the_block_is_an_assertion_and_does_nothing)
{
    const trace_log log;
    split_data(add_block(0x100, 10), 11);
    split_data(data_list.get(0), -11);
    split_data(nullptr, 1);
    EXPECT_EQ(blocks(), (block_list{{0x100, 10, 0}}));
    EXPECT_EQ(log.failed(), (texts{"split_bytes < dp->da_len", "split_bytes < dp->da_len", "dp != NULL"}));
}

// --- map_data_list_to_segments ------------------------------------------------------------------------------------------

TEST_F(consolidation, a_block_inside_takes_the_number_of_its_segment)
{
    add_segment("a", 0x100, 0x10);
    add_segment("b", 0x200, 0x10);
    add_block(0x204, 4);
    add_block(0x100, 0x10);
    map_data_list_to_segments();
    EXPECT_EQ(blocks(), (block_list{{0x204, 4, 2}, {0x100, 0x10, 1}}));
    EXPECT_EQ(seg_list.count(), 2U);
}

TEST_F(consolidation, a_block_across_two_segments_ends_as_two)
{
    add_segment("a", 0x100, 0x10);
    add_segment("b", 0x110, 0x10);
    add_block(0x10C, 8);
    map_data_list_to_segments();
    EXPECT_EQ(blocks(), (block_list{{0x10C, 4, 1}, {0x110, 4, 2}}));
    EXPECT_EQ(bytes_of(0), (bytes{0, 1, 2, 3}));
    EXPECT_EQ(bytes_of(1), (bytes{4, 5, 6, 7}));
}

TEST_F(consolidation, a_head_in_front_of_its_segment_becomes_a_block_and_may_be_stray)
{
    add_segment("a", 0x100, 0x10);
    add_block(0xFC, 8);
    map_data_list_to_segments();
    EXPECT_EQ(blocks(), (block_list{{0x100, 4, 1}, {0xFC, 4, 2}}));
    EXPECT_EQ(segments(), (placed_list{{"a", 0x100, 0x10}, {"_stray_data_0_", 0xFC, 4}}));
}

// The head stands in front of the tail in the list.
TEST_F(consolidation, a_block_around_a_segment_ends_as_three)
{
    add_segment("a", 0x104, 4);
    add_block(0x100, 12);
    map_data_list_to_segments();
    EXPECT_EQ(blocks(), (block_list{{0x104, 4, 1}, {0x100, 4, 2}, {0x108, 4, 3}}));
    EXPECT_EQ(segments(), (placed_list{{"a", 0x104, 4}, {"_stray_data_0_", 0x100, 4}, {"_stray_data_1_", 0x108, 4}}));
}

TEST_F(consolidation, of_segments_that_overlap_the_first_of_the_list_takes_its_part)
{
    add_segment("b", 0x108, 0x10);
    add_segment("a", 0x100, 0x10);
    add_block(0x100, 0x10);
    map_data_list_to_segments();
    EXPECT_EQ(blocks(), (block_list{{0x108, 8, 1}, {0x100, 8, 2}}));
}

TEST_F(consolidation, segments_without_place_in_the_image_take_no_data)
{
    add_segment("ram", 0x100, 0x10, PDB_WRITE | PDB_NOSPACE);
    add_segment("rom", 0x100, 0x10, PDB_WRITE);
    add_block(0x100, 4);
    map_data_list_to_segments();
    EXPECT_EQ(blocks(), (block_list{{0x100, 4, 2}}));
}

TEST_F(consolidation, a_block_that_came_with_a_number_is_left_alone)
{
    add_segment("a", 0x100, 0x10);
    add_block(0x100, 0x20, 0, 9);
    map_data_list_to_segments();
    EXPECT_EQ(blocks(), (block_list{{0x100, 0x20, 9}}));
    EXPECT_EQ(seg_list.count(), 1U);
}

// A COFF input stores numbers from 0.
TEST_F(consolidation, the_place_of_a_segment_counts_and_not_its_stored_number)
{
    add_segment("a", 0x100, 0x10)->sg_index = 0;
    add_segment("b", 0x200, 0x10)->sg_index = 1;
    add_block(0x100, 4);
    add_block(0x200, 4);
    map_data_list_to_segments();
    EXPECT_EQ(blocks(), (block_list{{0x100, 4, 1}, {0x200, 4, 2}}));
}

TEST_F(consolidation, a_stray_segment_has_the_delta_of_the_option_and_the_lowest_code_space)
{
    code_delta = 2;
    set_add(code_spaces, 2);
    add_segment("a", 0x100, 0x10);
    add_block(0x300, 8);
    map_data_list_to_segments();
    const tarn_segment *seg = seg_list.get(1);
    EXPECT_STREQ(seg->sg_name, "_stray_data_0_");
    EXPECT_EQ(seg->sg_index, 2U);
    EXPECT_EQ(seg->sg_addr, 0x300U);
    EXPECT_EQ(seg->sg_load, 0x300U);
    EXPECT_EQ(seg->sg_size, 8U);
    EXPECT_EQ(seg->sg_flags, PDB_WRITE);
    EXPECT_EQ(seg->sg_delta, 2U);
    EXPECT_EQ(seg->sg_space, 2U);
    EXPECT_FALSE(seg->sg_noranges);
    EXPECT_TRUE(bool(seg->sg_ranges));
    EXPECT_TRUE(seg->sg_ranges.empty());
}

TEST_F(consolidation, stray_data_without_gap_joins_and_a_gap_starts_another)
{
    add_block(0x300, 8);
    add_block(0x308, 8);
    add_block(0x311, 1);
    map_data_list_to_segments();
    EXPECT_EQ(blocks(), (block_list{{0x300, 8, 1}, {0x308, 8, 1}, {0x311, 1, 2}}));
    EXPECT_EQ(segments(), (placed_list{{"_stray_data_0_", 0x300, 0x10}, {"_stray_data_1_", 0x311, 1}}));
}

TEST_F(consolidation, only_the_latest_stray_segment_grows_and_only_at_its_end)
{
    add_block(0x300, 8);
    add_block(0x400, 8);
    add_block(0x308, 8); // continues the first
    add_block(0x2F8, 8); // lies in front of it
    map_data_list_to_segments();
    EXPECT_EQ(segments(), (placed_list{{"_stray_data_0_", 0x300, 8},
                                       {"_stray_data_1_", 0x400, 8},
                                       {"_stray_data_2_", 0x308, 8},
                                       {"_stray_data_3_", 0x2F8, 8}}));
}

TEST_F(consolidation, stray_segments_take_part_in_the_walks_that_follow)
{
    add_block(0x300, 8);
    add_block(0x400, 8);
    add_block(0x2FE, 4); // two bytes in front, two inside
    map_data_list_to_segments();
    EXPECT_EQ(blocks(), (block_list{{0x300, 8, 1}, {0x400, 8, 2}, {0x300, 2, 1}, {0x2FE, 2, 3}}));
}

TEST_F(consolidation, a_block_of_length_0_goes_to_a_stray_segment)
{
    add_segment("a", 0x100, 0x10);
    add_block(0x104, 0);
    add_block(0x104, 4);
    map_data_list_to_segments();
    EXPECT_EQ(blocks(), (block_list{{0x104, 0, 2}, {0x104, 4, 1}}));
    EXPECT_EQ(segments(), (placed_list{{"a", 0x100, 0x10}, {"_stray_data_0_", 0x104, 0}}));
}

TEST_F(consolidation, data_that_follows_a_stray_block_of_length_0_joins_it)
{
    add_block(0x104, 0);
    add_block(0x104, 4);
    map_data_list_to_segments();
    EXPECT_EQ(blocks(), (block_list{{0x104, 0, 1}, {0x104, 4, 1}}));
    EXPECT_EQ(segments(), (placed_list{{"_stray_data_0_", 0x104, 4}}));
}

TEST_F(consolidation, a_span_whose_end_wraps_is_empty)
{
    add_segment("top", 0xFFFFFFF0, 0x10); // ends at 0
    add_segment("over", 0xFFFFFF00, 0x200);
    add_block(0xFFFFFFF8, 4);
    add_block(0xFFFFFFFC, 8); // ends at 4
    add_block(0x4, 4);
    map_data_list_to_segments();
    EXPECT_EQ(blocks(), (block_list{{0xFFFFFFF8, 4, 3}, {0xFFFFFFFC, 8, 3}, {0x4, 4, 3}}));
    EXPECT_EQ(segments().back(), (placed{"_stray_data_0_", 0xFFFFFFF8, 16}));
}

// --- sorting, merging and splitting -------------------------------------------------------------------------------------

TEST_F(consolidation, blocks_that_touch_are_merged_within_their_segment)
{
    add_segment("a", 0x100, 0x10);
    add_segment("b", 0x110, 0x10);
    add_block(0x110, 8, 0x50);
    add_block(0x108, 8, 0x40);
    add_block(0x118, 8, 0x60);
    add_block(0x100, 8, 0x30);
    ensure_contiguous_data();
    EXPECT_EQ(blocks(), (block_list{{0x100, 0x10, 1}, {0x110, 0x10, 2}}));
    EXPECT_EQ(bytes_of(0), (bytes{0x30, 0x31, 0x32, 0x33, 0x34, 0x35, 0x36, 0x37, //
                                  0x40, 0x41, 0x42, 0x43, 0x44, 0x45, 0x46, 0x47}));
    EXPECT_EQ(bytes_of(1), (bytes{0x50, 0x51, 0x52, 0x53, 0x54, 0x55, 0x56, 0x57, //
                                  0x60, 0x61, 0x62, 0x63, 0x64, 0x65, 0x66, 0x67}));
    EXPECT_EQ(segments(), (placed_list{{"a", 0x100, 0x10}, {"b", 0x110, 0x10}}));
}

TEST_F(consolidation, blocks_are_sorted_by_segment_first)
{
    add_segment("high", 0x200, 0x10);
    add_segment("low", 0x100, 0x10);
    add_block(0x100, 0x10);
    add_block(0x200, 0x10);
    ensure_contiguous_data();
    EXPECT_EQ(blocks(), (block_list{{0x200, 0x10, 1}, {0x100, 0x10, 2}}));
}

// Two images whose lines alternate: runs that interleave are slow work for the program's own quicksort.
TEST_F(consolidation, interleaved_images_take_little_time)
{
    constexpr std::uint32_t BLOCKS = 400000;
    add_segment("a", 0, 4 * BLOCKS);
    for (const std::uint32_t image : {0U, 1U}) {
        for (std::uint32_t i = 0; i < BLOCKS / 2; ++i) {
            add_block(8 * i + 4 * image, 4);
        }
    }
    ensure_contiguous_data();
    EXPECT_EQ(blocks(), (block_list{{0, 4 * BLOCKS, 1}}));
}

// The quicksort exchanges two equal elements: the pivot is the first of the two, and both scans stop at once.
TEST_F(consolidation, blocks_of_one_address_stand_as_the_quicksort_leaves_them)
{
    add_segment("a", 0x100, 0x10);
    add_block(0x100, 2, 0x10);
    add_block(0x100, 3, 0x20);
    ensure_contiguous_data();
    EXPECT_EQ(blocks(), (block_list{{0x100, 3, 1}, {0x100, 2, 2}}));
    EXPECT_EQ(segments(), (placed_list{{"a$0", 0x100, 3}, {"a$1", 0x100, 2}}));
}

TEST_F(consolidation, a_hole_in_the_data_splits_its_segment)
{
    tarn_segment *a = add_segment("a", 0x100, 0x20, PDB_EXEC);
    add_segment("b", 0x200, 4);
    a->sg_addr = 0x8100;
    a->sg_delta = 2;
    a->sg_space = 7;
    add_block(0x104, 4);
    add_block(0x110, 8);
    add_block(0x200, 4);
    ensure_contiguous_data();
    EXPECT_EQ(blocks(), (block_list{{0x104, 4, 1}, {0x110, 8, 3}, {0x200, 4, 2}}));
    EXPECT_EQ(segments(), (placed_list{{"a$0", 0x104, 4}, {"b", 0x200, 4}, {"a$1", 0x110, 8}}));
    const tarn_segment *first = seg_list.get(0);
    const tarn_segment *second = seg_list.get(2);
    EXPECT_EQ(first->sg_index, 1U);
    EXPECT_EQ(second->sg_index, 3U);
    EXPECT_EQ(first->sg_addr, 0x8104U);
    EXPECT_EQ(second->sg_addr, 0x8110U);
    for (const tarn_segment *piece : {first, second}) {
        EXPECT_EQ(piece->sg_flags, PDB_EXEC);
        EXPECT_EQ(piece->sg_delta, 2U);
        EXPECT_EQ(piece->sg_space, 7U);
        EXPECT_EQ(piece->sg_ranges.raw(), a->sg_ranges.raw()); // shared
    }
}

TEST_F(consolidation, a_lone_block_shrinks_its_segment_to_itself_when_the_program_has_others)
{
    add_segment("a", 0x100, 0x20);
    add_segment("b", 0x200, 4);
    add_block(0x104, 4);
    add_block(0x200, 4);
    ensure_contiguous_data();
    EXPECT_EQ(segments(), (placed_list{{"a$0", 0x104, 4}, {"b", 0x200, 4}}));
    EXPECT_EQ(seg_list.get(0)->sg_index, 1U);
}

TEST_F(consolidation, the_single_block_of_a_program_splits_nothing)
{
    add_segment("a", 0x100, 0x20);
    add_block(0x104, 2);
    add_block(0x106, 2);
    ensure_contiguous_data();
    EXPECT_EQ(blocks(), (block_list{{0x104, 4, 1}}));
    EXPECT_EQ(segments(), (placed_list{{"a", 0x100, 0x20}}));
}

TEST_F(consolidation, the_old_number_is_kept_when_it_is_not_the_place)
{
    add_segment("a", 0x100, 0x20)->sg_index = 0;
    add_segment("b", 0x200, 0x20)->sg_index = 1;
    add_block(0x100, 4, 0, 1);
    add_block(0x200, 4, 0, 2);
    add_block(0x210, 4, 0, 2);
    ensure_contiguous_data();
    EXPECT_EQ(segments(), (placed_list{{"a$0", 0x100, 4}, {"b$0", 0x200, 4}, {"b$1", 0x210, 4}}));
    EXPECT_EQ(seg_list.get(0)->sg_index, 0U);
    EXPECT_EQ(seg_list.get(1)->sg_index, 1U);
    EXPECT_EQ(seg_list.get(2)->sg_index, 3U);
    EXPECT_EQ(blocks(), (block_list{{0x100, 4, 1}, {0x200, 4, 2}, {0x210, 4, 3}}));
}

// A COFF input with two sections of one name leaves such numbers.
TEST_F(consolidation, a_number_above_the_count_of_segments_is_none)
{
    add_segment("a", 0x100, 0x20);
    add_block(0x100, 4, 0, 1);
    add_block(0x110, 4, 0, 1);
    add_block(0x200, 4, 0, 2);
    ensure_contiguous_data();
    EXPECT_EQ(segments(), (placed_list{{"a$0", 0x100, 4}, {"a$1", 0x110, 4}}));
    EXPECT_EQ(blocks(), (block_list{{0x100, 4, 1}, {0x110, 4, 2}, {0x200, 4, 2}}));
}

TEST_F(consolidation, split_segment_without_blocks_does_nothing)
{
    tarn_segment *a = add_segment("a", 0x100, 0x20);
    vector_of<tarn_data *> none = vector_of<tarn_data *>::make();
    split_segment(a, none);
    split_segment(a, {});
    split_segment(nullptr, none);
    none.free();
    EXPECT_EQ(segments(), (placed_list{{"a", 0x100, 0x20}}));
}

TEST_F(consolidation, split_segment_asserts_its_arguments)
{
    tarn_segment *a = add_segment("a", 0x100, 0x20);
    vector_of<tarn_data *> none = vector_of<tarn_data *>::make();
    const trace_log log;
    split_segment(nullptr, none);
    split_segment(a, {});
    none.free();
    EXPECT_EQ(log.failed(), (texts{"oldsp != NULL", "datals != NULL"}));
}

TEST_F(consolidation, a_piece_whose_name_is_taken_ends_the_run)
{
    EXPECT_EXIT(
        {
            start_model();
            add_segment("a", 0x100, 0x20);
            add_segment("a$1", 0x200, 4);
            add_block(0x100, 4);
            add_block(0x110, 4);
            ensure_contiguous_data();
        },
        testing::ExitedWithCode(1), "\\(1521\\) internal error encountered creating DWARF information");
}

// --- widening -----------------------------------------------------------------------------------------------------------

TEST_F(consolidation, a_segment_is_widened_to_its_first_block)
{
    tarn_segment *a = add_segment("a", 0x100, 0x10);
    a->sg_addr = 0x8100;
    add_block(0xF8, 0x20, 0, 1);
    ensure_contiguous_data();
    EXPECT_EQ(segments(), (placed_list{{"a", 0xF8, 0x20}}));
    EXPECT_EQ(a->sg_addr, 0x80F8U);
}

TEST_F(consolidation, a_segment_keeps_its_end_when_its_start_moves)
{
    add_segment("a", 0x100, 0x10);
    add_block(0xF8, 0x10, 0, 1);
    ensure_contiguous_data();
    EXPECT_EQ(segments(), (placed_list{{"a", 0xF8, 0x18}}));
}

TEST_F(consolidation, a_segment_is_widened_at_its_end_only)
{
    tarn_segment *a = add_segment("a", 0x100, 0x10);
    add_block(0x108, 0x10, 0, 1);
    ensure_contiguous_data();
    EXPECT_EQ(segments(), (placed_list{{"a", 0x100, 0x18}}));
    EXPECT_EQ(a->sg_addr, 0x100U);
}

TEST_F(consolidation, a_link_address_wraps_as_it_grows_with_the_load_address)
{
    tarn_segment *a = add_segment("a", 0x100, 0x10);
    a->sg_addr = 4;
    add_block(0xF8, 8, 0, 1);
    ensure_contiguous_data();
    EXPECT_EQ(a->sg_addr, 0xFFFFFFFCU);
    EXPECT_EQ(a->sg_size, 0x18U);
}

TEST_F(consolidation, a_block_of_length_0_widens_nothing)
{
    add_segment("a", 0x100, 0x10);
    add_block(0x80, 0, 0, 1);
    ensure_contiguous_data();
    EXPECT_EQ(segments(), (placed_list{{"a", 0x100, 0x10}}));
}

// Two blocks of one segment are left only where a number was none when the segments were split.
TEST_F(consolidation, only_the_first_block_of_a_segment_widens_it)
{
    add_segment("a", 0x100, 0x20);
    add_block(0x100, 4, 0, 1);
    add_block(0x110, 4, 0, 1);
    add_block(0x90, 4, 0, 2);
    ensure_contiguous_data();
    EXPECT_EQ(blocks(), (block_list{{0x100, 4, 1}, {0x110, 4, 2}, {0x90, 4, 2}}));
    EXPECT_EQ(segments(), (placed_list{{"a$0", 0x100, 4}, {"a$1", 0x110, 4}}));
}

// --- state and reports --------------------------------------------------------------------------------------------------

TEST_F(consolidation, a_call_without_data_leaves_the_work_to_a_later_one)
{
    add_segment("a", 0x100, 0x10);
    ensure_contiguous_data();
    add_block(0x100, 4);
    ensure_contiguous_data();
    EXPECT_EQ(blocks(), (block_list{{0x100, 4, 1}}));
}

TEST_F(consolidation, it_is_done_once)
{
    add_segment("a", 0x100, 0x10);
    add_block(0x100, 4);
    ensure_contiguous_data();
    add_block(0x108, 4);
    ensure_contiguous_data();
    EXPECT_EQ(blocks(), (block_list{{0x100, 4, 1}, {0x108, 4, 0}}));
}

void report_sample(std::uint8_t verbose)
{
    start_model();
    opt_verbose = verbose;
    add_segment("rom", 0x100, 0x20)->sg_addr = 0x8100;
    add_segment("empty", 0x300, 0);
    add_block(0x100, 8);
    add_block(0x110, 4);
    add_block(0x114, 2);
    ensure_contiguous_data();
}

// The total leaves out the first block: 4 + 2 bytes are reported.
TEST(consolidation_report, counts_blocks_and_lists_segments)
{
    expect_run([] { report_sample(1); }, "\nData blocks: 2, total size 6\n"
                                         "\nSegments: 3\n"
                                         "\trom$0 8100-8107 Load@100\n"
                                         "\tempty 300\n"
                                         "\trom$1 8110-8115 Load@110\n"
                                         "\n");
}

TEST(consolidation_report, lists_blocks_when_more_verbose)
{
    expect_run([] { report_sample(2); }, "\nData blocks: 2, total size 6\n"
                                         "\t100-107 rom$0\n"
                                         "\t110-115 rom$1\n"
                                         "\nSegments: 3\n"
                                         "\trom$0 8100-8107 Load@100\n"
                                         "\tempty 300\n"
                                         "\trom$1 8110-8115 Load@110\n"
                                         "\n");
}

TEST(consolidation_report, stays_silent_by_default)
{
    expect_run([] { report_sample(0); }, "");
}

TEST(consolidation_report, prints_blocks_of_no_segment_and_is_ahead_of_the_widening)
{
    expect_run(
        [] {
            start_model();
            opt_verbose = 2;
            add_segment("rom", 0x100, 0x10);
            add_block(0xF0, 0x20, 0, 1);
            add_block(0x400, 1, 0, 12);
            ensure_contiguous_data();
        },
        "\nData blocks: 2, total size 1\n"
        "\tF0-10F rom$0\n"
        "\t400-400 seg 11\n"
        "\nSegments: 1\n"
        "\trom$0 F0-10F\n"
        "\n");
}

TEST_F(consolidation, its_steps_are_traced)
{
    tarn_segment *seg = add_segment("rom", 0x100, 0x20);
    seg->sg_addr = 0x8100;
    add_block(0xFC, 0x10);
    add_block(0x110, 4);
    const trace_log log;
    map_data_list_to_segments();
    const texts mapping = {
        "split off [FC-FF]",
        "data [100-10B] -> seg[rom,100-11F]\n",
        "data [110-113] -> seg[rom,100-11F]\n",
    };
    EXPECT_EQ(log.lines(), mapping);
    log.lines().clear();
    ensure_contiguous_data();
    const texts grouping = {
        "seg_list before",
        "  1: \"rom\" [8100+20] Load@100",
        "  2: \"_stray_data_0_\" [FC+4] Load@FC",
        "data[0]: seg[1]",
        "same_segs = 1",
        "data[1]: seg[1]",
        "same_segs = 2",
        "data[2]: seg[2]",
        "same_segs = 1",
        "seg_list after",
        "  1: \"rom$0\" [8100+C] Load@100",
        "  2: \"_stray_data_0_\" [FC+4] Load@FC",
        "  3: \"rom$1\" [8110+4] Load@110",
    };
    EXPECT_EQ(log.lines(), grouping);
}

} // namespace

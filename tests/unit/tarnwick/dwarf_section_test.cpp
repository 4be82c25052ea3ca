// SPDX-License-Identifier: MIT
#include "compiler/tarnwick/dwarf_section.h"

#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "tests/unit/scenario.h"
#include "tests/unit/tarnwick/dwarf_testing.h"

namespace {

using strings = std::vector<std::string>;

constexpr std::uint32_t SIZE = 64; // the smallest buffers there are
constexpr std::uint32_t THRESHOLD = 20;

class dwarf_section : public testing::Test {
protected:
    dwarf_section() { dwarf_section_init(&sec, SIZE, THRESHOLD); }
    ~dwarf_section() override { std::free(sec.ds_start); }

    section_bytes bytes() const { return {sec.ds_start, dwarf_section_get_size(&sec)}; }
    void fill(std::uint32_t count)
    {
        for (std::uint32_t i = 0; i < count; ++i) {
            dwarf_section_put1(&sec, static_cast<std::uint8_t>(i));
        }
    }

    dwarf_room room_;
    section_info sec;
};

class dwarf_section_order : public dwarf_section, public testing::WithParamInterface<bool> {
protected:
    dwarf_section_order() { opt_big_endian = GetParam(); }
};
INSTANTIATE_TEST_SUITE_P(byte_order, dwarf_section_order, testing::Bool());

TEST_F(dwarf_section, is_opened_once)
{
    EXPECT_TRUE(sec.initialised);
    EXPECT_EQ(sec.ds_alloc_size, SIZE);
    EXPECT_EQ(sec.realloc_threshold, THRESHOLD);
    EXPECT_EQ(sec.ds_top, sec.ds_start);
    EXPECT_EQ(section_bytes(sec.ds_start, SIZE), section_bytes().zeros(SIZE));

    const std::uint8_t *start = sec.ds_start;
    dwarf_section_put1(&sec, 7);
    dwarf_section_init(&sec, 512, 128);
    EXPECT_EQ(sec.ds_start, start);
    EXPECT_EQ(sec.ds_alloc_size, SIZE);
    EXPECT_EQ(sec.realloc_threshold, THRESHOLD);
    EXPECT_EQ(bytes(), section_bytes().b1(7));
}

TEST_F(dwarf_section, threshold_must_hold_a_leb128)
{
    const strings too_small = {"realloc_threshold > (sizeof(long long) * 8 / 7 + 1)"};
    for (const std::uint32_t threshold : {10U, 11U}) {
        const trace_log log;
        section_info small;
        dwarf_section_init(&small, SIZE, threshold);
        EXPECT_EQ(log.failed(), threshold == 10 ? too_small : strings{}) << threshold;
        std::free(small.ds_start);
    }
}

TEST_P(dwarf_section_order, puts_follow_the_byte_order_and_tell_their_sizes)
{
    EXPECT_EQ(dwarf_section_put1(&sec, 0x12), 1U);
    EXPECT_EQ(dwarf_section_put2(&sec, 0x1234), 2U);
    EXPECT_EQ(dwarf_section_put4(&sec, 0x12345678), 4U);
    EXPECT_EQ(dwarf_section_put8(&sec, 0x123456789ABCDEF0), 8U);
    section_bytes expected;
    if (GetParam()) {
        expected.raw({0x12, 0x12, 0x34, 0x12, 0x34, 0x56, 0x78, 0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE, 0xF0});
    } else {
        expected.raw({0x12, 0x34, 0x12, 0x78, 0x56, 0x34, 0x12, 0xF0, 0xDE, 0xBC, 0x9A, 0x78, 0x56, 0x34, 0x12});
    }
    EXPECT_EQ(bytes(), expected);
}

TEST_P(dwarf_section_order, put_by_width)
{
    section_bytes expected;
    for (const std::uint32_t width : {1U, 2U, 4U, 8U}) {
        EXPECT_EQ(dwarf_section_put(&sec, 0x1122334455667788, width), width);
        expected.number(0x1122334455667788, width);
    }
    EXPECT_EQ(bytes(), expected);
}

TEST_F(dwarf_section, put_of_another_width_writes_nothing)
{
    for (const std::uint32_t width : {0U, 3U, 5U, 16U}) {
        const trace_log log;
        EXPECT_EQ(dwarf_section_put(&sec, 1, width), 0U);
        EXPECT_EQ(log.failed(), (strings{"0"}));
    }
    EXPECT_EQ(dwarf_section_get_size(&sec), 0U);
}

TEST_F(dwarf_section, leb128)
{
    EXPECT_EQ(dwarf_section_put_uleb(&sec, 0), 1U);
    EXPECT_EQ(dwarf_section_put_uleb(&sec, 127), 1U);
    EXPECT_EQ(dwarf_section_put_uleb(&sec, 128), 2U);
    EXPECT_EQ(dwarf_section_put_uleb(&sec, UINT64_MAX), 10U);
    EXPECT_EQ(dwarf_section_put_sleb(&sec, -1), 1U);
    EXPECT_EQ(dwarf_section_put_sleb(&sec, 64), 2U);
    EXPECT_EQ(dwarf_section_put_sleb(&sec, INT64_MIN), 10U);
    EXPECT_EQ(bytes(), section_bytes()
                           .raw({0, 0x7F, 0x80, 0x01})
                           .raw({0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x01})
                           .raw({0x7F, 0xC0, 0x00})
                           .raw({0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x7F}));
}

TEST_F(dwarf_section, doubles_when_the_top_has_passed_its_reserve)
{
    // 64 - 20: the put that finds the top at 44 still has its reserve; the one that finds it at 45 has not.
    fill(45);
    EXPECT_EQ(sec.ds_alloc_size, 64U);
    dwarf_section_put1(&sec, 45);
    EXPECT_EQ(sec.ds_alloc_size, 128U);
    // 128 - 20.
    for (std::uint32_t i = 46; i < 109; ++i) {
        dwarf_section_put1(&sec, static_cast<std::uint8_t>(i));
    }
    EXPECT_EQ(sec.ds_alloc_size, 128U);
    dwarf_section_put1(&sec, 109);
    EXPECT_EQ(sec.ds_alloc_size, 256U);

    section_bytes expected;
    for (std::uint8_t i = 0; i < 110; ++i) {
        expected.push_back(i);
    }
    EXPECT_EQ(bytes(), expected);
    EXPECT_EQ(sec.realloc_threshold, THRESHOLD);
}

TEST_P(dwarf_section_order, patches_stay_right_when_the_buffer_moves)
{
    fill(2);
    EXPECT_EQ(dwarf_section_reserve(&sec, 1), 1U);
    EXPECT_EQ(dwarf_section_reserve(&sec, 2), 2U);
    EXPECT_EQ(dwarf_section_reserve(&sec, 4), 4U);
    fill(100);
    EXPECT_GT(sec.ds_alloc_size, SIZE);
    const std::uint32_t size = dwarf_section_get_size(&sec);
    dwarf_section_patch1(&sec, 0xA1, 2);
    dwarf_section_patch2(&sec, 0xB1B2, 3);
    dwarf_section_patch4(&sec, 0xC1C2C3C4, 5);
    EXPECT_EQ(dwarf_section_get_size(&sec), size);
    EXPECT_EQ(dwarf_section_get_ptr(&sec, 2), sec.ds_start + 2);
    section_bytes expected = section_bytes().raw({0, 1, 0xA1}).b2(0xB1B2).b4(0xC1C2C3C4);
    for (std::uint8_t i = 0; i < 100; ++i) {
        expected.push_back(i);
    }
    EXPECT_EQ(bytes(), expected);
}

TEST_F(dwarf_section, reserve_leaves_what_is_there)
{
    EXPECT_EQ(dwarf_section_put4(&sec, 0x44332211), 4U);
    sec.ds_top = sec.ds_start;
    EXPECT_EQ(dwarf_section_reserve(&sec, 4), 4U);
    EXPECT_EQ(bytes(), section_bytes().raw({0x11, 0x22, 0x33, 0x44}));
}

TEST_F(dwarf_section, reserve_of_more_than_the_threshold)
{
    EXPECT_EQ(dwarf_section_reserve(&sec, 300), 300U);
    EXPECT_EQ(sec.realloc_threshold, THRESHOLD);
    EXPECT_EQ(dwarf_section_get_size(&sec), 300U);
    EXPECT_EQ(sec.ds_alloc_size, 512U);
}

TEST_F(dwarf_section, strings_around_the_threshold)
{
    // With its terminator one less than the threshold, the threshold itself, and one more.
    std::string expected;
    for (const std::size_t length : {18U, 19U, 20U}) {
        const std::string text(length, static_cast<char>('a' + length - 18));
        EXPECT_EQ(dwarf_section_put_string(&sec, text.c_str()), length + 1);
        EXPECT_EQ(sec.realloc_threshold, THRESHOLD);
        expected += text + '\0';
    }
    EXPECT_EQ(std::string(reinterpret_cast<char *>(sec.ds_start), dwarf_section_get_size(&sec)), expected);
}

TEST_F(dwarf_section, strings_longer_than_the_whole_buffer)
{
    // No text is too long for a buffer: it grows until the text fits, at an empty and at a full top.
    std::string expected;
    for (const std::size_t length : {10000U, 63U, 64U, 65U, 100000U, 0U}) {
        const std::string text(length, static_cast<char>('a' + length % 26));
        EXPECT_EQ(dwarf_section_put_string(&sec, text.c_str()), length + 1);
        expected += text + '\0';
        EXPECT_EQ(dwarf_section_put1(&sec, '!'), 1U);
        expected += '!';
    }
    EXPECT_EQ(std::string(reinterpret_cast<char *>(sec.ds_start), dwarf_section_get_size(&sec)), expected);
    EXPECT_EQ(sec.realloc_threshold, THRESHOLD);
}

TEST_F(dwarf_section, bytes_do_not_depend_on_the_first_size)
{
    section_info large;
    dwarf_section_init(&large, 100000, THRESHOLD);
    for (section_info *each_section : {&sec, &large}) {
        for (std::uint32_t i = 0; i < 500; ++i) {
            dwarf_section_put_string(each_section, std::string(i % 97, 'x').c_str());
            dwarf_section_put_uleb(each_section, std::uint64_t{i} << (i % 50));
            dwarf_section_put8(each_section, i);
        }
    }
    EXPECT_EQ(bytes(), section_bytes(large.ds_start, dwarf_section_get_size(&large)));
    std::free(large.ds_start);
}

TEST_F(dwarf_section, null_string_is_the_empty_one)
{
    const trace_log log;
    gDebugMask = TRACE_DWARF;
    EXPECT_EQ(dwarf_section_put_string(&sec, nullptr), 1U);
    EXPECT_EQ(dwarf_section_put_string(&sec, ""), 1U);
    EXPECT_EQ(bytes(), section_bytes().raw({0, 0}));
    EXPECT_EQ(log.lines(), (strings{"dwarf_section_put_string: Empty string is passed"}));
}

TEST_F(dwarf_section, finish_hands_out_the_bytes_and_keeps_them)
{
    fill(3);
    std::uint8_t *data = nullptr;
    std::uint32_t size = 0;
    dwarf_section_finish(&sec, &data, &size);
    EXPECT_EQ(section_bytes(data, size), section_bytes().raw({0, 1, 2}));
    EXPECT_EQ(data, sec.ds_start);
    dwarf_section_put1(&sec, 3);
    EXPECT_EQ(bytes(), section_bytes().raw({0, 1, 2, 3}));
}

TEST_P(dwarf_section_order, get_by_width)
{
    const section_bytes number = section_bytes().number(0xF1F2F3F4F5F6F7F8, 8);
    const bool big = GetParam();
    EXPECT_EQ(dwarf_get(number.data(), 1), big ? 0xF1U : 0xF8U);
    EXPECT_EQ(dwarf_get(number.data(), 2), big ? 0xF1F2U : 0xF7F8U);
    EXPECT_EQ(dwarf_get(number.data(), 4), big ? 0xF1F2F3F4U : 0xF5F6F7F8U);
    EXPECT_EQ(dwarf_get(number.data(), 8), 0xF1F2F3F4F5F6F7F8U);
}

TEST_F(dwarf_section, get_of_another_width)
{
    const survived_errors errors;
    const section_bytes number = section_bytes().number(1, 8);
    EXPECT_EQ(dwarf_get(number.data(), 3), 0U);
    EXPECT_EQ(dwarf_get(number.data(), 0), 0U);
    EXPECT_EQ(errors.count(), 2U);
    EXPECT_EQ(errors.traced(),
              (strings{"dwarf_get: Invalid number of bytes: 3", "dwarf_get: Invalid number of bytes: 0"}));
}

TEST_F(dwarf_section, an_unopened_section_is_an_internal_error)
{
    const survived_errors errors;
    section_info closed;
    dwarf_section_ensure_initalisation_and_enough_memory(&closed);
    EXPECT_EQ(errors.count(), 1U);
    EXPECT_EQ(errors.traced(), (strings{"dwarf_section_ensure_initalisation_and_enough_memory: "
                                        "Module wasn't properly initialised"}));
    EXPECT_EQ(errors.failed(), (strings{"section_info->ds_top != NULL", "section_info->ds_start != NULL"}));
    // Nothing can be written there.
    EXPECT_EQ(dwarf_section_put4(&closed, 1), 0U);
    EXPECT_EQ(dwarf_section_put_string(&closed, "text"), 0U);
    EXPECT_EQ(dwarf_section_reserve(&closed, 4), 0U);
    EXPECT_EQ(dwarf_section_get_size(&closed), 0U);

    dwarf_section_ensure_initalisation_and_enough_memory(&sec);
    EXPECT_EQ(errors.count(), 1U);
}

TEST_F(dwarf_section, a_section_of_four_gigabytes_is_an_internal_error)
{
    const survived_errors errors;
    fill(3);
    EXPECT_EQ(dwarf_section_reserve(&sec, UINT32_MAX - 2), 0U);
    EXPECT_EQ(errors.count(), 1U);
    EXPECT_EQ(errors.traced(), (strings{"dwarf_section_ensure_enough_memory: Could not realloc memory"}));
    EXPECT_EQ(bytes(), section_bytes().raw({0, 1, 2}));
    EXPECT_EQ(sec.realloc_threshold, THRESHOLD);
    EXPECT_EQ(dwarf_section_put1(&sec, 3), 1U); // what fits goes on
}

TEST_F(dwarf_section, ensure_makes_the_reserve)
{
    sec.ds_top = sec.ds_start + 44;
    dwarf_section_ensure_enough_memory(&sec);
    EXPECT_EQ(sec.ds_alloc_size, 64U);
    sec.ds_top = sec.ds_start + 45;
    dwarf_section_ensure_enough_memory(&sec);
    EXPECT_EQ(sec.ds_alloc_size, 128U);
    EXPECT_EQ(dwarf_section_get_size(&sec), 45U);

    // A reserve that one doubling does not make.
    sec.realloc_threshold = 1000;
    dwarf_section_ensure_enough_memory(&sec);
    EXPECT_EQ(sec.ds_alloc_size, 2048U);
}

TEST_F(dwarf_section, assertions_on_null)
{
    const trace_log log;
    dwarf_section_init(nullptr, SIZE, THRESHOLD);
    dwarf_section_ensure_enough_memory(nullptr);
    dwarf_section_ensure_initalisation_and_enough_memory(nullptr);
    EXPECT_EQ(log.failed(), (strings(3, "section_info != NULL")));
    log.failed().clear();

    EXPECT_EQ(dwarf_section_put1(nullptr, 1), 0U);
    EXPECT_EQ(dwarf_section_put_string(nullptr, "x"), 0U);
    EXPECT_EQ(dwarf_section_put_uleb(nullptr, 1), 0U);
    EXPECT_EQ(dwarf_section_put_sleb(nullptr, 1), 0U);
    EXPECT_EQ(dwarf_section_reserve(nullptr, 1), 0U);
    dwarf_section_patch1(nullptr, 1, 0);
    EXPECT_EQ(dwarf_section_get_size(nullptr), 0U);
    EXPECT_EQ(dwarf_section_get_ptr(nullptr, 0), nullptr);
    EXPECT_EQ(log.failed(), (strings(8, "sec != NULL")));
    log.failed().clear();

    EXPECT_EQ(dwarf_get(nullptr, 1), 0U);
    EXPECT_EQ(log.failed(), (strings{"p != NULL"}));
}

TEST_F(dwarf_section, assertion_on_a_patch_outside_of_the_buffer)
{
    const std::string text = "offset + dwarf_scale_offset(bytes) < sec->ds_alloc_size";
    const trace_log log;
    dwarf_section_patch1(&sec, 1, 62);
    dwarf_section_patch2(&sec, 1, 61);
    dwarf_section_patch4(&sec, 1, 59);
    EXPECT_EQ(log.failed(), strings{});
    dwarf_section_patch1(&sec, 1, 63);
    dwarf_section_patch2(&sec, 1, 62);
    dwarf_section_patch4(&sec, 1, 60);
    dwarf_section_patch1(&sec, 1, 64); // not made
    dwarf_section_patch4(&sec, 1, UINT32_MAX);
    EXPECT_EQ(log.failed(), strings(5, text));
}

TEST_F(dwarf_section, memory_for_small_records_is_clear)
{
    auto *memory = static_cast<std::uint8_t *>(dwarf_section_alloc_memory(100));
    EXPECT_EQ(section_bytes(memory, 100), section_bytes().zeros(100));
    std::free(memory);
}

// A target whose memory unit has two bytes.
TEST_F(dwarf_section, units_of_a_word_addressed_target)
{
    dwarf_accessors words = dwarf_byte_accessors;
    words.dwarf_scale_offset = [](std::uint32_t units) { return units * 2; };
    words.dwarf_unscale_offset = [](std::uint32_t bytes) { return bytes / 2; };
    dwarf_access = &words;
    EXPECT_EQ(dwarf_section_reserve(&sec, 3), 6U);
    EXPECT_EQ(dwarf_section_get_size(&sec), 6U); // bytes all the same
    EXPECT_EQ(dwarf_section_put4(&sec, 1), 4U);
    const trace_log log;
    dwarf_section_patch2(&sec, 1, 59);
    EXPECT_EQ(log.failed(), strings{});
    dwarf_section_patch2(&sec, 1, 60);
    EXPECT_EQ(log.failed().size(), 1U);
}

TEST(dwarf_internal_error_report, ends_the_run)
{
    expect_run([] { dwarf_internal_error(); }, INTERNAL_ERROR_TEXT + "\n", 1);
}

} // namespace

// SPDX-License-Identifier: MIT
#include "compiler/tarnwick/dwarf_accessors.h"

#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "compiler/tarnwick/options.h"

namespace {

using bytes = std::vector<std::uint8_t>;

constexpr const dwarf_accessors &table = dwarf_byte_accessors;

class accessors : public testing::TestWithParam<bool> {
protected:
    void SetUp() override { opt_big_endian = GetParam(); }
    void TearDown() override { opt_big_endian = false; }
};

INSTANTIATE_TEST_SUITE_P(byte_order, accessors, testing::Bool());

TEST_P(accessors, values_follow_the_byte_order_in_force)
{
    bytes section(16, 0xEE);
    std::uint8_t *p = section.data();
    p = table.dwarf_put1(p, 0x01);
    p = table.dwarf_put2(p, 0x0203);
    p = table.dwarf_put4(p, 0x04050607);
    p = table.dwarf_put8(p, 0x08090A0B0C0D0E0F);
    EXPECT_EQ(p, section.data() + 15);
    const bytes little = {1, 3, 2, 7, 6, 5, 4, 0xF, 0xE, 0xD, 0xC, 0xB, 0xA, 9, 8, 0xEE};
    const bytes big = {1, 2, 3, 4, 5, 6, 7, 8, 9, 0xA, 0xB, 0xC, 0xD, 0xE, 0xF, 0xEE};
    EXPECT_EQ(section, GetParam() ? big : little);

    EXPECT_EQ(table.dwarf_get1(section.data()), 0x01);
    EXPECT_EQ(table.dwarf_get2(section.data() + 1), 0x0203);
    EXPECT_EQ(table.dwarf_get4(section.data() + 3), 0x04050607U);
    EXPECT_EQ(table.dwarf_get8(section.data() + 7), 0x08090A0B0C0D0E0FU);
}

TEST(dwarf_strings, sizes_count_the_terminator)
{
    bytes section(6, 0xEE);
    EXPECT_EQ(table.dwarf_put_string(section.data(), "abc"), 4U);
    EXPECT_EQ(section, (bytes{'a', 'b', 'c', 0, 0xEE, 0xEE}));
    EXPECT_EQ(table.dwarf_strlen(section.data()), 3U);
    EXPECT_EQ(table.dwarf_strsize(section.data()), 4U);
    char out[6] = {'x', 'x', 'x', 'x', 'x', 'x'};
    EXPECT_EQ(table.dwarf_get_string(section.data(), out), 4U);
    EXPECT_EQ(std::memcmp(out, "abc\0xx", 6), 0);
    EXPECT_EQ(table.dwarf_put_string(section.data(), ""), 1U);
    EXPECT_EQ(section[0], 0);
}

TEST(dwarf_strings, bounded_copies_fill_up_with_zeros)
{
    bytes section(6, 0xEE);
    EXPECT_EQ(table.dwarf_put_stringn(section.data(), "ab", 5), 3U);
    EXPECT_EQ(section, (bytes{'a', 'b', 0, 0, 0, 0xEE}));
    char out[6] = {'x', 'x', 'x', 'x', 'x', 'x'};
    EXPECT_EQ(table.dwarf_get_stringn(section.data(), out, 4), 3U);
    EXPECT_EQ(std::memcmp(out, "ab\0\0xx", 6), 0);
}

TEST(dwarf_strings, bounded_copies_may_lose_the_terminator)
{
    bytes section(4, 0xEE);
    EXPECT_EQ(table.dwarf_put_stringn(section.data(), "abc", 2), 3U);
    EXPECT_EQ(section, (bytes{'a', 'b', 0xEE, 0xEE}));
    char out[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(table.dwarf_get_stringn(section.data(), out, 1), 2U);
    EXPECT_EQ(std::memcmp(out, "axxx", 4), 0);
}

struct leb_case {
    std::int64_t value;
    bytes encoded;
};

bytes encode_unsigned(std::uint64_t value)
{
    bytes out(12);
    std::uint8_t *p = out.data();
    const std::uint32_t size = table.dwarf_put_uleb(&p, value);
    EXPECT_EQ(p, out.data() + size);
    out.resize(size);
    return out;
}

bytes encode_signed(std::int64_t value)
{
    bytes out(12);
    std::uint8_t *p = out.data();
    const std::uint32_t size = table.dwarf_put_sleb(&p, value);
    EXPECT_EQ(p, out.data() + size);
    out.resize(size);
    return out;
}

std::uint64_t decode_unsigned(const bytes &encoded)
{
    const std::uint8_t *p = encoded.data();
    const std::uint64_t value = table.dwarf_get_uleb(&p);
    EXPECT_EQ(p, encoded.data() + encoded.size());
    return value;
}

std::int64_t decode_signed(const bytes &encoded)
{
    const std::uint8_t *p = encoded.data();
    const std::int64_t value = table.dwarf_get_sleb(&p);
    EXPECT_EQ(p, encoded.data() + encoded.size());
    return value;
}

// The examples of the DWARF standard, and the bounds.
TEST(dwarf_leb128, unsigned_values)
{
    const std::pair<std::uint64_t, bytes> rows[] = {
        {0, {0}},
        {2, {2}},
        {127, {0x7F}},
        {128, {0x80, 0x01}},
        {129, {0x81, 0x01}},
        {12857, {0xB9, 0x64}},
        {0xFFFFFFFF, {0xFF, 0xFF, 0xFF, 0xFF, 0x0F}},
        {UINT64_MAX, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x01}},
    };
    for (const auto &[value, encoded] : rows) {
        EXPECT_EQ(encode_unsigned(value), encoded) << value;
        EXPECT_EQ(decode_unsigned(encoded), value) << value;
    }
}

TEST(dwarf_leb128, signed_values_of_up_to_31_bits_come_back)
{
    const leb_case rows[] = {
        {0, {0}},
        {2, {2}},
        {-2, {0x7E}},
        {127, {0xFF, 0x00}},
        {-127, {0x81, 0x7F}},
        {128, {0x80, 0x01}},
        {-128, {0x80, 0x7F}},
        {-123456, {0xC0, 0xBB, 0x78}},
        {-(1 << 27), {0x80, 0x80, 0x80, 0x40}},
        {(INT64_C(1) << 34) - 1, {0xFF, 0xFF, 0xFF, 0xFF, 0x3F}},
        {INT64_MAX, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00}},
    };
    for (const leb_case &row : rows) {
        EXPECT_EQ(encode_signed(row.value), row.encoded) << row.value;
        EXPECT_EQ(decode_signed(row.encoded), row.value) << row.value;
    }
}

// 35 bits were read: all ones, shifted by 3, are or-ed in, and only three bits of the value are left to see.
TEST(dwarf_leb128, a_long_negative_value_loses_bits_to_the_32_bit_mask)
{
    const bytes encoded = {0x80, 0x80, 0x80, 0x80, 0x40};
    EXPECT_EQ(encode_signed(-(INT64_C(1) << 34)), encoded);
    EXPECT_EQ(decode_signed(encoded), -8);
    EXPECT_EQ(decode_signed({0x85, 0x80, 0x80, 0x80, 0x78}), -3);
    // 63 bits: the shift is 31.
    EXPECT_EQ(decode_signed({0x81, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x40}), INT64_C(-0x80000000) + 1);
}

TEST(dwarf_leb128, with_64_bits_read_there_is_no_sign_to_extend)
{
    const bytes lowest = {0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x7F};
    EXPECT_EQ(encode_signed(INT64_MIN), lowest);
    EXPECT_EQ(decode_signed(lowest), INT64_MIN);
}

TEST(dwarf_leb128, any_length_is_accepted)
{
    EXPECT_EQ(decode_unsigned({0x81, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x00}), 1U);
    EXPECT_EQ(decode_signed({0x81, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x00}), 1);
}

TEST(dwarf_offsets, are_bytes_on_a_byte_addressed_target)
{
    for (const std::uint32_t offset : {0U, 1U, 7U, 0xFFFFFFFFU}) {
        EXPECT_EQ(table.dwarf_scale_offset(offset), offset);
        EXPECT_EQ(table.dwarf_unscale_offset(offset), offset);
    }
}

} // namespace

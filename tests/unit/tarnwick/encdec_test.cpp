// SPDX-License-Identifier: MIT
#include "compiler/tarnwick/encdec.h"

#include <array>
#include <limits>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "compiler/tarnwick/hexdigits.h"
#include "compiler/tarnwick/options.h"

namespace {

using bytes = std::vector<std::uint8_t>;

constexpr std::array<std::uint8_t, 16> COUNTED = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};

class byte_order_guard {
public:
    explicit byte_order_guard(bool big) { opt_big_endian = big; }
    ~byte_order_guard() { opt_big_endian = false; }
};

bytes uleb(std::uint64_t value)
{
    std::uint8_t room[16] = {};
    std::uint8_t *p = room;
    const std::uint32_t count = uleb_put(&p, value);
    EXPECT_EQ(p, room + count);
    return {room, p};
}

bytes sleb(std::int64_t value)
{
    std::uint8_t room[16] = {};
    std::uint8_t *p = room;
    const std::uint32_t count = sleb_put(&p, value);
    EXPECT_EQ(p, room + count);
    return {room, p};
}

std::uint64_t read_uleb(const bytes &text)
{
    const std::uint8_t *p = text.data();
    const std::uint64_t value = uleb_get(&p);
    EXPECT_EQ(p, text.data() + text.size());
    return value;
}

std::int64_t read_sleb(const bytes &text)
{
    const std::uint8_t *p = text.data();
    const std::int64_t value = sleb_get(&p);
    EXPECT_EQ(p, text.data() + text.size());
    return value;
}

constexpr std::int64_t SMALLEST = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t LARGEST = std::numeric_limits<std::int64_t>::max();

} // namespace

TEST(ByteOps, LittleEndianRow)
{
    const byte_operations &row = byte_ops[0];
    EXPECT_EQ(row.get16(COUNTED.data()), 0x0201);
    EXPECT_EQ(row.get32(COUNTED.data()), 0x04030201U);
    EXPECT_EQ(row.get64(COUNTED.data()), 0x0807060504030201U);
    const uint128_value wide = row.get128(COUNTED.data());
    EXPECT_EQ(wide.low, 0x0807060504030201U);
    EXPECT_EQ(wide.high, 0x100F0E0D0C0B0A09U);
}

TEST(ByteOps, BigEndianRow)
{
    const byte_operations &row = byte_ops[1];
    EXPECT_EQ(row.get16(COUNTED.data()), 0x0102);
    EXPECT_EQ(row.get32(COUNTED.data()), 0x01020304U);
    EXPECT_EQ(row.get64(COUNTED.data()), 0x0102030405060708U);
    // All sixteen bytes are reversed, not the halves alone.
    const uint128_value wide = row.get128(COUNTED.data());
    EXPECT_EQ(wide.low, 0x090A0B0C0D0E0F10U);
    EXPECT_EQ(wide.high, 0x0102030405060708U);
}

TEST(ByteOps, PutsReturnThePositionBehind)
{
    for (const byte_operations &row : byte_ops) {
        std::array<std::uint8_t, 30> out{};
        std::uint8_t *p = row.put16(out.data(), row.get16(COUNTED.data()));
        EXPECT_EQ(p, out.data() + 2);
        p = row.put32(p, row.get32(COUNTED.data()));
        EXPECT_EQ(p, out.data() + 6);
        p = row.put64(p, row.get64(COUNTED.data()));
        EXPECT_EQ(p, out.data() + 14);
        p = row.put128(p, row.get128(COUNTED.data()));
        EXPECT_EQ(p, out.data() + 30);
        EXPECT_EQ(out, (std::array<std::uint8_t, 30>{1, 2, 1, 2, 3, 4, 1, 2, 3,  4,  5,  6,  7,  8,  1,
                                                     2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}));
    }
}

TEST(ByteOps, OptionChoosesTheRow)
{
    std::array<std::uint8_t, 16> out{};
    {
        const byte_order_guard little(false);
        EXPECT_EQ(get16(COUNTED.data()), 0x0201);
        EXPECT_EQ(get32(COUNTED.data()), 0x04030201U);
        EXPECT_EQ(get64(COUNTED.data()), 0x0807060504030201U);
        EXPECT_EQ(get128(COUNTED.data()).low, 0x0807060504030201U);
        EXPECT_EQ(put16(out.data(), 0x1234), out.data() + 2);
        EXPECT_EQ(out[0], 0x34);
    }
    const byte_order_guard big(true);
    EXPECT_EQ(get16(COUNTED.data()), 0x0102);
    EXPECT_EQ(get32(COUNTED.data()), 0x01020304U);
    EXPECT_EQ(get64(COUNTED.data()), 0x0102030405060708U);
    EXPECT_EQ(get128(COUNTED.data()).high, 0x0102030405060708U);
    EXPECT_EQ(put32(out.data(), 0x12345678), out.data() + 4);
    EXPECT_EQ(out[0], 0x12);
    EXPECT_EQ(put64(out.data(), 0x123456789ABCDEF0), out.data() + 8);
    EXPECT_EQ(out[7], 0xF0);
    EXPECT_EQ(put128(out.data(), {.low = 0x22, .high = 0x1100000000000000}), out.data() + 16);
    EXPECT_EQ(out[0], 0x11);
    EXPECT_EQ(out[15], 0x22);
}

TEST(ByteOps, SingleBytesHaveNoRow)
{
    std::uint8_t out[2] = {};
    EXPECT_EQ(put8(out, 0xA5), out + 1);
    EXPECT_EQ(get8(out), 0xA5);
}

// The examples of the DWARF standard, and the bounds.
TEST(Leb128, Unsigned)
{
    EXPECT_EQ(uleb(0), (bytes{0}));
    EXPECT_EQ(uleb(2), (bytes{2}));
    EXPECT_EQ(uleb(127), (bytes{127}));
    EXPECT_EQ(uleb(128), (bytes{0x80, 1}));
    EXPECT_EQ(uleb(129), (bytes{0x81, 1}));
    EXPECT_EQ(uleb(12857), (bytes{0x80 + 57, 100}));
    EXPECT_EQ(uleb(~std::uint64_t{0}), (bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 1}));
}

TEST(Leb128, Signed)
{
    EXPECT_EQ(sleb(0), (bytes{0}));
    EXPECT_EQ(sleb(2), (bytes{2}));
    EXPECT_EQ(sleb(-2), (bytes{0x7E}));
    EXPECT_EQ(sleb(63), (bytes{63}));
    EXPECT_EQ(sleb(64), (bytes{0xC0, 0}));
    EXPECT_EQ(sleb(-64), (bytes{0x40}));
    EXPECT_EQ(sleb(-65), (bytes{0xBF, 0x7F}));
    EXPECT_EQ(sleb(127), (bytes{0xFF, 0}));
    EXPECT_EQ(sleb(-127), (bytes{0x81, 0x7F}));
    EXPECT_EQ(sleb(128), (bytes{0x80, 1}));
    EXPECT_EQ(sleb(-128), (bytes{0x80, 0x7F}));
    EXPECT_EQ(sleb(SMALLEST), (bytes{0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x7F}));
    EXPECT_EQ(sleb(LARGEST), (bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0}));
}

TEST(Leb128, WhatIsPutIsGot)
{
    std::mt19937_64 random(1);
    for (int i = 0; i < 20000; ++i) {
        const std::uint64_t value = random() >> (random() % 64);
        EXPECT_EQ(read_uleb(uleb(value)), value);
        const auto plus = static_cast<std::int64_t>(value);
        EXPECT_EQ(read_sleb(sleb(plus)), plus);
        EXPECT_EQ(read_sleb(sleb(~plus)), ~plus);
    }
    EXPECT_EQ(read_sleb(sleb(SMALLEST)), SMALLEST);
    EXPECT_EQ(read_sleb(sleb(LARGEST)), LARGEST);
}

TEST(Leb128, LongForms)
{
    EXPECT_EQ(read_uleb({0x82, 0x80, 0x80, 0x00}), 2U);
    EXPECT_EQ(read_sleb({0xFE, 0xFF, 0x7F}), -2);
    EXPECT_EQ(read_sleb({0x82, 0x80, 0x00}), 2);
    // What lies above 64 bits is dropped, however long the number is.
    bytes endless(40, 0xFF);
    endless.push_back(0x7F);
    EXPECT_EQ(read_uleb(endless), ~std::uint64_t{0});
    EXPECT_EQ(read_sleb(endless), -1);
    bytes zeros(40, 0x80);
    zeros.push_back(0x40);
    EXPECT_EQ(read_uleb(zeros), 0U);
}

TEST(Leb128, SignIsExtendedBelow64BitsOnly)
{
    // Nine groups are 63 bits: the sign fills the last one.
    EXPECT_EQ(read_sleb({0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x40}), SMALLEST / 2);
    // Ten groups are more than 64: the tenth gives bit 63, and its sign bit nothing.
    EXPECT_EQ(read_sleb({0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x40}), 0);
    EXPECT_EQ(read_sleb({0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x01}), SMALLEST);
}

TEST(HexDigits, Bytes)
{
    EXPECT_EQ(hex_byte("00", 0), 0U);
    EXPECT_EQ(hex_byte("9aF0", 0), 0x9AU);
    EXPECT_EQ(hex_byte("9aF0", 1), 0xAFU);
    EXPECT_EQ(hex_byte("9aF0", 2), 0xF0U);
    for (const char *text : {"G0", "0G", "0g", " 1", "1 ", "-1", "0x", "/0", ":0", "@0", "`0"}) {
        EXPECT_EQ(hex_byte(text, 0), HEX_BAD) << text;
    }
    // Behind the end of the line there is no digit.
    EXPECT_EQ(hex_byte("12", 1), HEX_BAD);
    EXPECT_EQ(hex_byte("12", 2), HEX_BAD);
    EXPECT_EQ(hex_byte("12", 1000), HEX_BAD);
    EXPECT_EQ(hex_byte("", 0), HEX_BAD);
    EXPECT_EQ(hex_byte("1", 0), HEX_BAD);
}

TEST(HexDigits, EveryCharacter)
{
    const std::string digits = "0123456789abcdefABCDEF";
    for (int c = 0; c < 256; ++c) {
        const auto character = static_cast<char>(c);
        const bool expected = digits.find(character) != std::string::npos;
        EXPECT_EQ(is_hex_digit(character), expected) << c;
        const std::string text = {'1', character};
        EXPECT_EQ(hex_byte(text, 0) != HEX_BAD, expected) << c;
    }
}

TEST(HexDigits, Words)
{
    EXPECT_EQ(hex_word("1234", 0), 0x1234U);
    EXPECT_EQ(hex_word("x00FFx", 1), 0x00FFU);
    // A bad low pair counts as 0xFFFF, and so does a bad high one, in front of the shift.
    EXPECT_EQ(hex_word("12G4", 0), 0x1200U + 0xFFFFU);
    EXPECT_EQ(hex_word("G234", 0), 0xFFFF00U + 0x34U);
    EXPECT_EQ(hex_word("FF\n", 0), 0x1FEFFU);
    EXPECT_EQ(hex_word("", 0), 0xFFFF00U + 0xFFFFU);
}

TEST(HexDigits, Runs)
{
    std::uint8_t out[4] = {};
    EXPECT_EQ(hex_bytes("x0102ff", 1, 3, out), 0x102U);
    EXPECT_EQ(out[0], 1);
    EXPECT_EQ(out[2], 0xFF);
    // A bad pair is stored as FF and counts as 0xFFFF; so is every one that the line does not hold.
    EXPECT_EQ(hex_bytes("01x", 0, 3, out), 1U + HEX_BAD + HEX_BAD);
    EXPECT_EQ(out[1], 0xFF);
    EXPECT_EQ(out[2], 0xFF);
    EXPECT_EQ(hex_bytes("01", 7, 1, out), HEX_BAD);
    EXPECT_EQ(hex_bytes("01", 0, 0, out), 0U);
}

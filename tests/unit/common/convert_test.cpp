// SPDX-License-Identifier: MIT
// Numbers as the C library reads them where `long` has 32 bits.
#include "common/convert.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <random>
#include <string>

namespace {

struct unsigned_case {
    const char *text;
    int base;
    std::uint32_t value;
    std::size_t used;
};

constexpr unsigned_case UNSIGNED_CASES[] = {
    {"0", 10, 0, 1},
    {"1234", 10, 1234, 4},
    {"4294967295", 10, 0xFFFFFFFF, 10},
    {"4294967296", 10, 0xFFFFFFFF, 10},
    {"99999999999999999999999999", 10, 0xFFFFFFFF, 26},
    {"-1", 10, 0xFFFFFFFF, 2},
    {"-2", 10, 0xFFFFFFFE, 2},
    {"-4294967295", 10, 1, 11},
    {"-4294967296", 10, 0xFFFFFFFF, 11}, // saturates with a minus sign too
    {"+7", 10, 7, 2},
    {" \t\n\v\f\r12 ", 10, 12, 8},
    {"12ab", 10, 12, 2},
    {"", 10, 0, 0},
    {"   ", 10, 0, 0},
    {"-", 10, 0, 0},
    {"+", 10, 0, 0},
    {"+-1", 10, 0, 0},
    {"- 1", 10, 0, 0},
    {"x", 10, 0, 0},
    {"DeadBeef", 16, 0xDEADBEEF, 8},
    {"FFFFFFFF", 16, 0xFFFFFFFF, 8},
    {"100000000", 16, 0xFFFFFFFF, 9},
    {"0x1f", 16, 0x1F, 4},
    {"0X1F", 16, 0x1F, 4},
    {"-0x10", 16, 0xFFFFFFF0, 5},
    {"0x", 16, 0, 1}, // no digit behind it: the "0" alone is the number
    {"0xg", 16, 0, 1},
    {"0x-1", 16, 0, 1},
    {"00x1", 16, 0, 2},
    {"fg", 16, 15, 1},
    {"g", 16, 0, 0},
    {"0x10", 10, 0, 1},
    {"0x10", 0, 16, 4},
    {"010", 0, 8, 3},
    {"08", 0, 0, 1},
    {"10", 0, 10, 2},
    {"0x", 0, 0, 1},
    {"0", 0, 0, 1},
    {"777", 8, 0777, 3},
    {"78", 8, 7, 1},
    {"102", 2, 2, 2},
    {"zz", 36, 35 * 36 + 35, 2},
};

TEST(Convert, Unsigned)
{
    for (const unsigned_case &c : UNSIGNED_CASES) {
        std::size_t used = 99;
        EXPECT_EQ(text_to_u32(c.text, c.base, &used), c.value) << '"' << c.text << "\" in base " << c.base;
        EXPECT_EQ(used, c.used) << '"' << c.text << "\" in base " << c.base;
        EXPECT_EQ(text_to_u32(c.text, c.base), c.value);
    }
}

struct signed_case {
    const char *text;
    int base;
    std::int32_t value;
    std::size_t used;
};

constexpr signed_case SIGNED_CASES[] = {
    {"2147483647", 10, 2147483647, 10},
    {"2147483648", 10, 2147483647, 10},
    {"-2147483647", 10, -2147483647, 11},
    {"-2147483648", 10, -2147483647 - 1, 11},
    {"-2147483649", 10, -2147483647 - 1, 11},
    {"99999999999999999999", 10, 2147483647, 20},
    {"-99999999999999999999", 10, -2147483647 - 1, 21},
    {"FFFFFFFF", 16, 2147483647, 8},
    {"-7f", 16, -127, 3},
    {"0x", 16, 0, 1},
    {"", 10, 0, 0},
    {"-x", 10, 0, 0},
};

TEST(Convert, Signed)
{
    for (const signed_case &c : SIGNED_CASES) {
        std::size_t used = 99;
        EXPECT_EQ(text_to_i32(c.text, c.base, &used), c.value) << '"' << c.text << "\" in base " << c.base;
        EXPECT_EQ(used, c.used) << '"' << c.text << "\" in base " << c.base;
    }
}

TEST(Convert, AtoiGivesZeroWithoutANumber)
{
    EXPECT_EQ(text_to_int("42abc"), 42);
    EXPECT_EQ(text_to_int("  -3"), -3);
    EXPECT_EQ(text_to_int("0x10"), 0);
    EXPECT_EQ(text_to_int("abc"), 0);
    EXPECT_EQ(text_to_int(""), 0);
    EXPECT_EQ(text_to_int("3000000000"), 2147483647);
}

TEST(Convert, ScanLeavesTheOutputAloneWithoutANumber)
{
    std::uint32_t value = 77;
    EXPECT_FALSE(scan_unsigned("", &value));
    EXPECT_FALSE(scan_unsigned("x1", &value));
    EXPECT_FALSE(scan_unsigned("-", &value));
    EXPECT_EQ(value, 77U);
    EXPECT_TRUE(scan_unsigned(" 12,13", &value));
    EXPECT_EQ(value, 12U);
    EXPECT_TRUE(scan_unsigned("-1", &value));
    EXPECT_EQ(value, 0xFFFFFFFFU);
    EXPECT_TRUE(scan_unsigned("0x20", &value));
    EXPECT_EQ(value, 0U);
}

TEST(Convert, StopsAtTheEndOfTheViewAndAtNul)
{
    std::size_t used = 0;
    EXPECT_EQ(text_to_u32(std::string_view("123456").substr(0, 3), 10, &used), 123U);
    EXPECT_EQ(used, 3U);
    EXPECT_EQ(text_to_u32(std::string_view("12\0"
                                           "34",
                                           5),
                          10, &used),
              12U);
    EXPECT_EQ(used, 2U);
    EXPECT_EQ(text_to_u32(std::string_view("0x1").substr(0, 2), 16, &used), 0U);
    EXPECT_EQ(used, 1U);
    EXPECT_EQ(text_to_u32(std::string_view(), 10, &used), 0U);
    EXPECT_EQ(used, 0U);
}

// The host's own conversion, which has 64 bits, brought to 32. Right for texts that do not exceed its own range.
std::int32_t reference_i32(const std::string &text, int base, std::size_t *used)
{
    char *end = nullptr;
    const long long value = std::strtoll(text.c_str(), &end, base);
    *used = static_cast<std::size_t>(end - text.c_str());
    return static_cast<std::int32_t>(std::clamp<long long>(value, INT32_MIN, INT32_MAX));
}

std::uint32_t reference_u32(const std::string &text, int base)
{
    const long long value = std::strtoll(text.c_str(), nullptr, base);
    const bool fits = value >= -0xFFFFFFFFLL && value <= 0xFFFFFFFFLL;
    return fits ? static_cast<std::uint32_t>(value) : 0xFFFFFFFF;
}

TEST(Convert, AgreesWithTheHostOnAnyText)
{
    constexpr std::string_view ALPHABET = " \t+-0001289afAFxXgz";
    std::mt19937 random(1);
    for (int round = 0; round < 200000; ++round) {
        std::string text(random() % 13, ' ');
        for (char &c : text) {
            c = ALPHABET[random() % ALPHABET.size()];
        }
        for (const int base : {0, 8, 10, 16}) {
            std::size_t used = 0;
            std::size_t reference_used = 0;
            const std::int32_t expected = reference_i32(text, base, &reference_used);
            ASSERT_EQ(text_to_i32(text, base, &used), expected) << '"' << text << "\" in base " << base;
            ASSERT_EQ(used, reference_used) << '"' << text << "\" in base " << base;
            ASSERT_EQ(text_to_u32(text, base), reference_u32(text, base)) << '"' << text << "\" in base " << base;
        }
    }
}

} // namespace

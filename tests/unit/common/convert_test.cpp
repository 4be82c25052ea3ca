// SPDX-License-Identifier: MIT
// Numbers as the C library reads them where `long` has 32 bits.
#include "common/convert.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <random>
#include <string>
#include <string_view>
#include <vector>

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

// A number by the rules alone, from one character to the next.
struct number_read {
    bool negative = false;
    std::uint64_t magnitude = 0; // at most 2 to the 32nd
    std::size_t used = 0;
};

int digit_of(char c)
{
    constexpr std::string_view DIGITS = "0123456789abcdefghijklmnopqrstuvwxyz";
    const std::size_t at = DIGITS.find(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
    return at != std::string_view::npos ? static_cast<int>(at) : 99;
}

number_read read_by_the_rules(std::string_view text, int base)
{
    number_read number;
    std::size_t at = text.find_first_not_of(" \t\n\v\f\r");
    at = at == std::string_view::npos ? text.size() : at;
    if (at < text.size() && (text[at] == '-' || text[at] == '+')) {
        number.negative = text[at++] == '-';
    }
    const std::string_view rest = text.substr(at);
    const bool prefixed = rest.size() > 2 && rest[0] == '0' && std::tolower(rest[1]) == 'x' && digit_of(rest[2]) < 16;
    if (prefixed && (base == 0 || base == 16)) {
        base = 16;
        at += 2;
    } else if (base == 0) {
        base = rest.starts_with('0') ? 8 : 10;
    }
    for (; at < text.size() && digit_of(text[at]) < base; ++at) {
        const auto digit = static_cast<std::uint64_t>(digit_of(text[at]));
        number.magnitude =
            std::min(number.magnitude * static_cast<std::uint64_t>(base) + digit, std::uint64_t{1} << 32);
        number.used = at + 1;
    }
    return number;
}

void expect_by_the_rules(std::string_view text, int base)
{
    constexpr std::uint64_t HIGHEST = 0xFFFFFFFF;
    constexpr std::int64_t SIGNED_HIGHEST = 0x7FFFFFFF;
    const number_read number = read_by_the_rules(text, base);
    const auto magnitude = static_cast<std::int64_t>(number.magnitude);
    const auto word = static_cast<std::uint32_t>(number.magnitude);
    const std::uint32_t expected = number.magnitude > HIGHEST ? 0xFFFFFFFF : number.negative ? 0 - word : word;
    const std::int64_t expected_signed =
        number.negative ? std::max(-magnitude, -SIGNED_HIGHEST - 1) : std::min(magnitude, SIGNED_HIGHEST);

    std::size_t used = 99;
    ASSERT_EQ(text_to_u32(text, base, &used), expected) << '"' << text << "\" in base " << base;
    ASSERT_EQ(used, number.used) << '"' << text << "\" in base " << base;
    ASSERT_EQ(text_to_u32(text, base), expected) << '"' << text << "\" in base " << base;
    used = 99;
    ASSERT_EQ(text_to_i32(text, base, &used), expected_signed) << '"' << text << "\" in base " << base;
    ASSERT_EQ(used, number.used) << '"' << text << "\" in base " << base;
}

constexpr int BASES[] = {0, 2, 8, 10, 16};

// All texts of up to four of these characters.
TEST(Convert, AllShortTexts)
{
    constexpr std::string_view ALPHABET = "0189aFgxX-+ \t";
    std::vector<std::string> texts = {""};
    for (std::size_t done = 0; done < texts.size(); ++done) {
        for (const int base : BASES) {
            expect_by_the_rules(texts[done], base);
            ASSERT_FALSE(HasFatalFailure());
        }
        if (texts[done].size() < 4) {
            for (const char c : ALPHABET) {
                texts.push_back(texts[done] + c);
            }
        }
    }
    EXPECT_EQ(texts.size(), 1U + 13 + 13 * 13 + 13 * 13 * 13 + 13 * 13 * 13 * 13);
}

TEST(Convert, EveryCharacterAmongDigits)
{
    for (int c = 0; c <= 0xFF; ++c) {
        const std::string character(1, static_cast<char>(c));
        for (const std::string &text : {character, "1" + character, character + "1", "12345" + character + "7"}) {
            for (const int base : BASES) {
                expect_by_the_rules(text, base);
                ASSERT_FALSE(HasFatalFailure()) << c;
            }
        }
    }
}

// Around the lengths at which a number may outgrow 32 bits, and those at which a reader may change its way.
TEST(Convert, DigitsAtTheLimits)
{
    const std::string_view digits[] = {
        "7FFFFFFF",   "80000000",  "FFFFFFFF",    "ffffffff",    "FfFfFfFf",   "0FFFFFFFF",   "00FFFFFFFF",
        "100000000",  "1FFFFFFFF", "00000000",    "000000000",   "000000001",  "0000000000",  "99999999",
        "999999999",  "099999999", "0999999999",  "2147483647",  "2147483648", "4294967295",  "4294967296",
        "9999999999", "0FFFFFFF",  "FFFFFFF",     "9999999",     "FFFFFFFFF",  "12345678",    "123456789",
        "1234567",    "0x7FFFFF",  "0x7FFFFFFF",  "0xFFFFFFFF",  "0x0FFFFFFF", "0x100000000", "0xFFFFFF",
        "0xFFFFF",    "000000x1",  "37777777777", "40000000000",
    };
    for (const std::string_view text : digits) {
        for (const char *front : {"", "-", "+", " ", "  ", "\t-", "0"}) {
            for (const char *back : {"", " ", "g", "9", "F", "-"}) {
                for (const int base : BASES) {
                    expect_by_the_rules(front + std::string(text) + back, base);
                    ASSERT_FALSE(HasFatalFailure());
                }
            }
        }
    }
    EXPECT_EQ(text_to_u32("FFFFFFFF", 16), 0xFFFFFFFFU);
    EXPECT_EQ(text_to_u32("0FFFFFFFF", 16), 0xFFFFFFFFU);
    EXPECT_EQ(text_to_u32("100000000", 16), 0xFFFFFFFFU);
    EXPECT_EQ(text_to_u32("99999999", 10), 99999999U);
    EXPECT_EQ(text_to_u32("999999999", 10), 999999999U);
}

TEST(Convert, RandomDigits)
{
    constexpr std::string_view DIGITS = "0123456789ABCDEFabcdef";
    std::mt19937 random(2);
    for (int round = 0; round < 40000; ++round) {
        const std::size_t kinds = random() % 2 == 0 ? 10 : DIGITS.size();
        std::string text(1 + random() % 11, ' ');
        for (char &c : text) {
            c = DIGITS[random() % kinds];
        }
        for (const int base : BASES) {
            expect_by_the_rules(text, base);
            ASSERT_FALSE(HasFatalFailure());
        }
    }
}

} // namespace

// SPDX-License-Identifier: MIT
// Formatting of texts that are not trusted. The C library's own formatter judges what is well formed.
#include "common/textformat.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>

namespace {

template <typename... Arguments>
std::string formatted(const char *format, const Arguments &...arguments)
{
    const std::array<format_argument, sizeof...(Arguments)> packed{make_format_argument(arguments)...};
    char buffer[512];
    const std::size_t length = format_text(buffer, sizeof buffer, format, packed);
    EXPECT_LT(length, sizeof buffer) << "the test's text is too long";
    return {buffer, length};
}

TEST(TextFormat, PlainTextAndPercent)
{
    EXPECT_EQ(formatted(""), "");
    EXPECT_EQ(formatted("out of memory"), "out of memory");
    EXPECT_EQ(formatted("100%%"), "100%");
    EXPECT_EQ(formatted("%%%d%%", 5), "%5%");
}

TEST(TextFormat, ArgumentsInOrder)
{
    EXPECT_EQ(formatted("can't open %s file \"%s\": line %u", "input", "a.tmf", 12U),
              "can't open input file \"a.tmf\": line 12");
    EXPECT_EQ(formatted("%c%c", 'o', 107), "ok");
    EXPECT_EQ(formatted("%d %i %u %x %X %o", -1, -2, 3U, 0xABU, 0xABU, 8U), "-1 -2 3 ab AB 10");
}

TEST(TextFormat, NullTextHasAName)
{
    EXPECT_EQ(formatted("%s", static_cast<const char *>(nullptr)), "(null)");
    EXPECT_EQ(formatted("%.3s", static_cast<const char *>(nullptr)), "(nu");
}

TEST(TextFormat, PrecisionBoundsTheReading)
{
    const std::array<char, 3> unterminated = {'a', 'b', 'c'};
    const std::array<format_argument, 1> arguments{{{format_argument::TEXT, 0, unterminated.data()}}};
    char buffer[16];
    EXPECT_EQ(format_text(buffer, sizeof buffer, "%.3s", arguments), 3U);
    EXPECT_STREQ(buffer, "abc");
}

// `long` has 32 bits: whatever the length modifier, but for "ll".
TEST(TextFormat, IntegersHave32Bits)
{
    const std::uint64_t large = 0x123456789ABCDEF0;
    EXPECT_EQ(formatted("%lX", large), "9ABCDEF0");
    EXPECT_EQ(formatted("%X", large), "9ABCDEF0");
    EXPECT_EQ(formatted("%zX", large), "9ABCDEF0");
    EXPECT_EQ(formatted("%jX", large), "9ABCDEF0");
    EXPECT_EQ(formatted("%hX", large), "9ABCDEF0");
    EXPECT_EQ(formatted("%llX", large), "123456789ABCDEF0");
    EXPECT_EQ(formatted("%ld", std::int64_t{0xFFFFFFFF}), "-1");
    EXPECT_EQ(formatted("%lX", -1), "FFFFFFFF");
    EXPECT_EQ(formatted("%lu", std::int64_t{-1}), "4294967295");
    EXPECT_EQ(formatted("%lld", INT64_MIN), "-9223372036854775808");
    EXPECT_EQ(formatted("%llu", UINT64_MAX), "18446744073709551615");
    EXPECT_EQ(formatted("%llo", UINT64_MAX), "1777777777777777777777");
    EXPECT_EQ(formatted("%d", INT32_MIN), "-2147483648");
}

TEST(TextFormat, SmallAndEnumeratedArguments)
{
    enum color : std::uint8_t { RED = 200 };
    EXPECT_EQ(formatted("%u", RED), "200");
    EXPECT_EQ(formatted("%d", static_cast<std::int8_t>(-5)), "-5");
    EXPECT_EQ(formatted("%u", true), "1");
}

TEST(TextFormat, MissingArgumentsPrintNothing)
{
    EXPECT_EQ(formatted("[%s]"), "[]");
    EXPECT_EQ(formatted("[%d]"), "[]");
    EXPECT_EQ(formatted("[%5c]"), "[]");
    EXPECT_EQ(formatted("%s, %s", "one"), "one, ");
    EXPECT_EQ(formatted("[%*d]", 5), "[]");
}

TEST(TextFormat, ArgumentsOfTheWrongKindPrintNothingAndAreUsedUp)
{
    EXPECT_EQ(formatted("[%s]", 5), "[]");
    EXPECT_EQ(formatted("[%d]", "text"), "[]");
    EXPECT_EQ(formatted("[%c]", "text"), "[]");
    EXPECT_EQ(formatted("[%s][%s]", 5, "text"), "[][text]");
    EXPECT_EQ(formatted("[%*d]", "text", 5), "[5]");
}

TEST(TextFormat, ExtraArgumentsAreIgnored)
{
    EXPECT_EQ(formatted("%u", 1, 2, "three"), "1");
}

TEST(TextFormat, UnknownConversionsStandForThemselves)
{
    EXPECT_EQ(formatted("%q"), "%q");
    EXPECT_EQ(formatted("%n", 5), "%n");
    EXPECT_EQ(formatted("%p", 5), "%p");
    EXPECT_EQ(formatted("%-08.3lf"), "%-08.3lf");
    EXPECT_EQ(formatted("%m %d", 5), "%m 5");
    EXPECT_EQ(formatted("50% wide"), "50% wide");
    EXPECT_EQ(formatted("%"), "%");
    EXPECT_EQ(formatted("%5"), "%5");
    EXPECT_EQ(formatted("%.*", 3), "%.*");
    EXPECT_EQ(formatted("%ll"), "%ll");
}

TEST(TextFormat, WidthAndPrecisionFromArguments)
{
    EXPECT_EQ(formatted("[%*d]", 5, 42), "[   42]");
    EXPECT_EQ(formatted("[%*d]", -5, 42), "[42   ]");
    EXPECT_EQ(formatted("[%.*s]", 2, "abc"), "[ab]");
    EXPECT_EQ(formatted("[%.*s]", -1, "abc"), "[abc]");
    EXPECT_EQ(formatted("[%*.*u]", 6, 3, 7U), "[   007]");
    EXPECT_EQ(formatted("[%-*s]", 5, "ab"), "[ab   ]");
}

TEST(TextFormat, CutsAndTerminates)
{
    const std::array<format_argument, 1> arguments{make_format_argument("abcdef")};
    char buffer[5] = {'x', 'x', 'x', 'x', 'x'};
    EXPECT_EQ(format_text(buffer, 4, "%s", arguments), 6U);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(buffer[4], 'x');
    EXPECT_EQ(format_text(buffer, 1, "%s", arguments), 6U);
    EXPECT_STREQ(buffer, "");
    buffer[0] = 'x';
    EXPECT_EQ(format_text(buffer, 0, "%s", arguments), 6U);
    EXPECT_EQ(buffer[0], 'x');
    EXPECT_EQ(format_text(nullptr, 0, "%s", arguments), 6U);
}

TEST(TextFormat, HugeFieldsCostNothing)
{
    const std::array<format_argument, 2> arguments{make_format_argument(INT32_MAX), make_format_argument(1)};
    char buffer[8];
    EXPECT_EQ(format_text(buffer, sizeof buffer, "%*d", arguments), 2147483647U);
    EXPECT_STREQ(buffer, "       ");
    EXPECT_EQ(format_text(buffer, sizeof buffer, "%99999999999999999999d", arguments), 2147483647U);
    EXPECT_EQ(format_text(buffer, sizeof buffer, "%.*d", arguments), 2147483647U);
    EXPECT_STREQ(buffer, "0000000");
    const std::array<format_argument, 2> smallest{make_format_argument(INT32_MIN), make_format_argument(1)};
    EXPECT_EQ(format_text(buffer, sizeof buffer, "%*d", smallest), 2147483647U);
    EXPECT_STREQ(buffer, "1      ");
}

template <typename T>
void expect_like_printf(const std::string &format, T value)
{
    char expected[128];
    const int length = std::snprintf(expected, sizeof expected, format.c_str(), value);
    ASSERT_GE(length, 0);
    EXPECT_EQ(formatted(format.c_str(), value), std::string(expected, static_cast<std::size_t>(length))) << format;
}

// Every set of flags with widths and precisions, as the C library prints it.
TEST(TextFormat, FlagsAreThoseOfPrintf)
{
    constexpr std::string_view FLAGS = "-+ #0";
    for (unsigned set = 0; set < 32; ++set) {
        std::string flags = "%";
        for (std::size_t i = 0; i < FLAGS.size(); ++i) {
            if ((set >> i & 1) != 0) {
                flags += FLAGS[i];
            }
        }
        for (const char *width : {"", "1", "4", "12"}) {
            for (const char *precision : {"", ".", ".0", ".1", ".5", ".14"}) {
                const std::string start = flags + width + precision;
                for (const int value : {0, 1, -1, 255, INT32_MAX, INT32_MIN}) {
                    expect_like_printf(start + "d", value);
                    expect_like_printf(start + "i", value);
                }
                for (const unsigned value : {0U, 1U, 8U, 255U, UINT32_MAX}) {
                    for (const char *letter : {"u", "x", "X", "o"}) {
                        expect_like_printf(start + letter, value);
                    }
                }
                for (const unsigned long long value : {0ULL, 0xFEDCBA9876543210ULL}) {
                    for (const char *letter : {"llu", "llx", "llX", "llo"}) {
                        expect_like_printf(start + letter, value);
                    }
                }
                for (const char *text : {"", "a", "abcdefgh"}) {
                    expect_like_printf(start + "s", text);
                }
                expect_like_printf(start + "c", 'A');
            }
        }
    }
}

} // namespace

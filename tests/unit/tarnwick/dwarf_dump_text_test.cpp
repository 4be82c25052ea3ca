// SPDX-License-Identifier: MIT
// The buffer in front of the stream against the formats of the C library, and the allowance of a dump.
#include <cinttypes>
#include <random>

#include "compiler/tarnwick/dump_allowance.h"
#include "tests/unit/tarnwick/dwarf_dump_testing.h"

namespace {

std::string formatted(const char *format, int width, std::uint64_t value)
{
    char text[64];
    std::snprintf(text, sizeof text, format, width, value);
    return text;
}

TEST(dwarf_text, numbers_look_as_the_c_library_formats_them)
{
    std::mt19937_64 random(5);
    std::vector<std::uint64_t> values = {0, 1, 9, 10, 15, 16, 255, 0x7FFFFFFF, 0x80000000, INT64_MAX, UINT64_MAX};
    for (int i = 0; i < 200; ++i) {
        values.push_back(random() >> random() % 64);
    }
    for (const std::uint64_t value : values) {
        for (const int width : {0, 1, 4, 5, 8, 10, 16}) {
            const auto columns = static_cast<std::size_t>(width);
            const auto show = [&](auto print) { return printed_by([&](dwarf_text &out) { print(out); }); };
            EXPECT_EQ(formatted("%-*" PRIu64, width, value), show([&](auto &out) { out.number(value, columns); }));
            EXPECT_EQ(formatted("%-*" PRId64, width, value),
                      show([&](auto &out) { out.signed_number(static_cast<std::int64_t>(value), columns); }));
            EXPECT_EQ(formatted("%*" PRIu64, width, value), show([&](auto &out) { out.right_number(value, columns); }));
            EXPECT_EQ(formatted("%0*" PRIu64, width, value),
                      show([&](auto &out) { out.padded_number(value, columns); }));
            EXPECT_EQ(formatted("%0*" PRIx64, width, value), show([&](auto &out) { out.hex(value, columns); }));
            EXPECT_EQ(formatted("%*" PRIx64, width, value), show([&](auto &out) { out.right_hex(value, columns); }));
            EXPECT_EQ(formatted("%0*" PRIX64, width, value), show([&](auto &out) { out.upper_hex(value, columns); }));
        }
    }
}

TEST(dwarf_text, texts_of_any_length_keep_their_order)
{
    std::string expected;
    const std::string text = printed_by([&](dwarf_text &out) {
        for (std::size_t size = 1; size < 300000; size = size * 3 + 1) {
            for (const std::size_t length : {size, std::size_t{65536}, std::size_t{65537}, std::size_t{0}}) {
                const std::string piece(length, static_cast<char>('a' + size % 26));
                out.text(piece).number(size).hex(size);
                expected += piece + formatted("%*" PRIu64, 0, size) + formatted("%*" PRIx64, 0, size);
            }
        }
    });
    EXPECT_EQ(expected.size(), text.size());
    EXPECT_TRUE(expected == text);
}

TEST(dump_allowance, long_texts_and_data_share_it)
{
    dump_allowance allowance(100); // 1 MiB, and four times the size
    const std::string text(2000000, 'x');
    EXPECT_EQ(3U, allowance.text("abc\0d", 5).size());
    EXPECT_EQ(2U, allowance.text("abc", 2).size());
    EXPECT_EQ(0U, allowance.text("", 0).size());
    EXPECT_EQ(1000U + 255, allowance.text(text.data(), 1255).size());
    EXPECT_EQ(1048976U - 1000 - 70, allowance.take(1048976U - 1000 - 70));
    EXPECT_FALSE(allowance.used_up());
    EXPECT_EQ(70U + 255, allowance.text(text.data(), text.size()).size());
    EXPECT_TRUE(allowance.used_up());
    EXPECT_EQ(255U, allowance.text(text.data(), text.size()).size());
    EXPECT_EQ(0U, allowance.take(1));
}

} // namespace

// SPDX-License-Identifier: MIT
// Entries, names and the string table of a COFF output.
#include "compiler/tarnwick/coff_symbols.h"

#include <random>

#include "tests/unit/tarnwick/coff_testing.h"

namespace {

class coff_symbols_test : public coff_model {
public:
    // The bytes of a name field as text, zeros as points.
    static std::string field_of(const coff_entry &entry)
    {
        std::string text(reinterpret_cast<const char *>(entry.data()), COFF_NAME_SIZE);
        for (char &c : text) {
            c = c == '\0' ? '.' : c;
        }
        return text;
    }
    std::string named(const char *name)
    {
        coff_entry entry{};
        vcoff_set_name(&tables, &entry, name);
        return field(entry.data(), 0, 4) != 0 ? field_of(entry) : std::to_string(field(entry.data(), 4, 4));
    }
    std::string put_name(const char *name)
    {
        coff_entry entry{};
        coff_put_name(&tables, entry.data(), name);
        return field(entry.data(), 0, 4) != 0 ? field_of(entry) : std::to_string(field(entry.data(), 4, 4));
    }

    coff_tables tables;
};

TEST_F(coff_symbols_test, a_name_of_eight_characters_stays_in_the_entry)
{
    EXPECT_EQ(named("a"), "a.......");
    EXPECT_EQ(named("_1234567"), "_1234567");
    EXPECT_TRUE(tables.coff_strings.empty());
}

TEST_F(coff_symbols_test, a_name_of_nine_characters_goes_to_the_string_table)
{
    EXPECT_EQ(named("_12345678"), "4");
    EXPECT_EQ(named("a_long_name"), "14"); // 4 + 9 characters and a terminator
    EXPECT_EQ(strings_of(tables), (text_lines{"_12345678", "a_long_name"}));
    EXPECT_EQ(tables.coff_strings.size(), 22U);
}

TEST_F(coff_symbols_test, an_empty_name_is_eight_zero_bytes)
{
    coff_entry entry{};
    vcoff_set_name(&tables, &entry, "");
    EXPECT_EQ(field_of(entry), "........");
    EXPECT_TRUE(tables.coff_strings.empty());
}

TEST_F(coff_symbols_test, equal_strings_share_one_offset)
{
    EXPECT_EQ(vcoff_string_offset(&tables, "first"), 4U);
    EXPECT_EQ(vcoff_string_offset(&tables, "second"), 10U);
    EXPECT_EQ(vcoff_string_offset(&tables, "first"), 4U);
    EXPECT_EQ(vcoff_string_offset(&tables, "cond"), 17U) << "the end of another string is not shared";
    EXPECT_EQ(vcoff_string_offset(&tables, ""), 22U);
    EXPECT_EQ(tables.coff_strings, std::string("first\0second\0cond\0\0", 19));
}

// The plain form of the search: a walk over the strings with a running offset.
std::uint32_t walked_offset(text_lines *strings, const std::string &text)
{
    std::uint32_t offset = 4;
    for (const std::string &known : *strings) {
        if (known == text) {
            return offset;
        }
        offset += static_cast<std::uint32_t>(known.size()) + 1;
    }
    strings->push_back(text);
    return offset;
}

TEST_F(coff_symbols_test, the_index_finds_what_a_walk_finds)
{
    std::mt19937 random(7);
    text_lines strings;
    for (int i = 0; i < 2000; ++i) {
        const std::string text(random() % 6, static_cast<char>('a' + random() % 20));
        ASSERT_EQ(vcoff_string_offset(&tables, text.c_str()), walked_offset(&strings, text));
    }
    EXPECT_EQ(strings_of(tables), strings);
}

TEST_F(coff_symbols_test, one_leading_underscore_is_cut_on_request)
{
    EXPECT_EQ(named("__x"), "__x.....");
    opt_strip_underscore = true;
    EXPECT_EQ(named("_x"), "x.......");
    EXPECT_EQ(named("__x"), "_x......");
    EXPECT_EQ(named("x_"), "x_......");
    EXPECT_EQ(named("_12345678"), "12345678") << "the length is that of what is left";
    EXPECT_TRUE(tables.coff_strings.empty());
    EXPECT_EQ(named("_123456789"), "4");
    EXPECT_EQ(strings_of(tables), (text_lines{"123456789"}));
}

TEST_F(coff_symbols_test, the_length_rule_alone_cuts_nothing)
{
    opt_strip_underscore = true;
    EXPECT_EQ(put_name("_x"), "_x......");
    EXPECT_EQ(put_name("_12345678"), "4");
    EXPECT_EQ(strings_of(tables), (text_lines{"_12345678"}));
}

TEST_F(coff_symbols_test, a_missing_name_is_made_up)
{
    const name_watch generated;
    EXPECT_EQ(put_name(nullptr).substr(0, generated(0).size()), generated(0));
    EXPECT_EQ(named(nullptr).substr(0, generated(1).size()), generated(1));
    coff_tables others;
    std::uint8_t bytes[COFF_NAME_SIZE] = {};
    coff_put_name(&others, bytes, nullptr);
    EXPECT_EQ(name_in(bytes, others.coff_strings), generated(2)) << "the counter is shared by all tables";
}

// A process of its own knows the first names.
TEST(coff_generated_names, begin_with_0)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            coff_tables tables;
            coff_append_marker(&tables, nullptr, {});
            coff_append_marker(&tables, nullptr, {});
            std::fprintf(stderr, "%s, %s", name_in(tables.coff_symbols[0].data(), "").c_str(),
                         name_in(tables.coff_symbols[1].data(), "").c_str());
            std::exit(0);
        },
        testing::ExitedWithCode(0), "^\\.u0, \\.u1$");
}

TEST_F(coff_symbols_test, fields_of_a_symbol_stand_at_their_places)
{
    coff_entry entry =
        coff_make_symbol({.value = 0x44332211, .section = 0x98766655, .type = 0xAA998877, .cls = CSC_END_OF_FILE});
    coff_put_name(&tables, entry.data(), "nm");
    const coff_entry expected = {'n',  'm',  0,    0,    0,    0,    0,    0,    0x11, 0x22,
                                 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 107,  0};
    EXPECT_EQ(entry, expected);
}

TEST_F(coff_symbols_test, fields_of_an_auxiliary_entry_stand_at_their_places)
{
    const coff_entry entry = coff_make_aux({.tag = 0x44332211, .line = 0x16655, .size = 0x18877});
    const coff_entry expected = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};
    EXPECT_EQ(entry, expected);
}

TEST_F(coff_symbols_test, an_auxiliary_entry_is_counted_and_follows)
{
    EXPECT_EQ(coff_append_marker(&tables, ".eof", {.cls = CSC_END_OF_FILE}), 0U);
    EXPECT_EQ(coff_append_marker(&tables, ".bb", {.value = 5, .section = 2, .cls = CSC_BLOCK}, {.line = 7}), 1U);
    EXPECT_EQ(coff_append_marker(&tables, ".eb", {.value = 5, .section = 2, .cls = CSC_BLOCK}, {.line = 9}), 3U);
    coff_close(&tables, 1, 3);
    EXPECT_EQ(tables.coff_symbols.size(), 5U);
    EXPECT_EQ(tables.coff_symbols[0][CSY_AUX], 0);
    EXPECT_EQ(tables.coff_symbols[1][CSY_AUX], 1);
    // The opening one points to the auxiliary entry of the closing one, not to that itself.
    EXPECT_EQ(listing(tables),
              (text_lines{"0 .eof 0 0 0 107", "1 .bb 5 2 0 100", "+ 0 7 0 0 0 4", "3 .eb 5 2 0 100", "+ 0 9"}));
}

} // namespace

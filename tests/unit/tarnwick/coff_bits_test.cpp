// SPDX-License-Identifier: MIT
// Bit variables in a COFF output.
#include "compiler/tarnwick/coff_bits.h"

#include <algorithm>

#include "tests/unit/tarnwick/coff_testing.h"

namespace {

class coff_bits_test : public coff_model {
public:
    static sdb_node *bit(const char *name, sclass cls = sc_extern) { return sdb_new_node(cls, name); }
    void add(const char *name, std::uint32_t address) { bits.vcoff_bit_add(bit(name), address); }
    text_lines write()
    {
        bits.write_groups(&tables);
        return listing(tables);
    }
    // The names of the groups' members, in order.
    text_lines member_names()
    {
        bits.write_groups(&tables);
        text_lines names;
        for (std::size_t i = 0; i < tables.coff_symbols.size(); i += 2) {
            if (tables.coff_symbols[i][CSY_CLASS] == CSC_BIT_FIELD) {
                names.push_back(name_in(tables.coff_symbols[i].data(), tables.coff_strings));
            }
        }
        return names;
    }

    coff_tables tables;
    coff_bits bits;
};

TEST_F(coff_bits_test, without_bits_nothing_is_written)
{
    EXPECT_EQ(write(), text_lines{});
}

TEST_F(coff_bits_test, the_bits_of_a_word_are_members_of_a_struct)
{
    const name_watch generated;
    coff_append_marker(&tables, "x", {});
    add("_c", 0x105); // byte 20
    add("_a", 0x100);
    add("_b", 0x101);
    EXPECT_EQ(write(), (text_lines{"0 x 0 0 0 0",                                                //
                                   "1 " + generated(0) + " 0 FFFE 0 10", "+ 0 0 1 0 0 C",        //
                                   "3 _a 0 FFFE C 18", "+ 0 0 1", "5 _b 1 FFFE C 18", "+ 0 0 1", //
                                   "7 - 2 FFFE C 18", "+ 0 0 3", "9 _c 5 FFFE C 18", "+ 0 0 1",  //
                                   "11 .eos 0 FFFF 0 102", "+ 1 0 1",                            //
                                   "13 '_bitvars1' 20 1 8 2", "+ 1 0 1"}));
}

TEST_F(coff_bits_test, each_word_has_a_group_in_order_of_addresses)
{
    const name_watch generated;
    add("_high", 0xFFFFFFFF);
    add("_low", 7);
    add("_next", 8);
    EXPECT_EQ(write(), (text_lines{"0 " + generated(0) + " 0 FFFE 0 10",
                                   "+ 0 0 1 0 0 7",
                                   "2 - 0 FFFE C 18",
                                   "+ 0 0 7",
                                   "4 _low 7 FFFE C 18",
                                   "+ 0 0 1",
                                   "6 .eos 0 FFFF 0 102",
                                   "+ 0 0 1",
                                   "8 '_bitvars1' 0 1 8 2",
                                   "+ 0 0 1", //
                                   "10 " + generated(1) + " 0 FFFE 0 10",
                                   "+ 0 0 1 0 0 F",
                                   "12 _next 0 FFFE C 18",
                                   "+ 0 0 1",
                                   "14 .eos 0 FFFF 0 102",
                                   "+ A 0 1",
                                   "16 '_bitvars2' 1 1 8 2",
                                   "+ A 0 1",
                                   "18 " + generated(2) + " 0 FFFE 0 10",
                                   "+ 0 0 1 0 0 19",
                                   "20 - 0 FFFE C 18",
                                   "+ 0 0 7",
                                   "22 _high 7 FFFE C 18",
                                   "+ 0 0 1",
                                   "24 .eos 0 FFFF 0 102",
                                   "+ 12 0 1",
                                   "26 '_bitvars3' 1FFFFFFF 1 8 2",
                                   "+ 12 0 1"}));
}

TEST_F(coff_bits_test, a_word_is_named_after_the_symbol_at_its_address)
{
    define("_PORT", 5, DATA);
    define("_zero", 0, DATA);
    add("_bit", 5 * 8 + 1);
    add("_none", 3);
    const text_lines lines = write();
    EXPECT_EQ(lines[8], "8 '_bitvars1' 0 1 8 2") << "at address 0 no symbol is looked for";
    EXPECT_EQ(lines.end()[-2], "18 '__PORTbits' 5 1 8 2");
}

TEST_F(coff_bits_test, without_underscores_the_prefix_is_empty)
{
    opt_strip_underscore = true;
    define("_P", 5, DATA);
    add("_bit_a", 5 * 8);
    add("_bit_b", 6 * 8);
    const text_lines lines = write();
    EXPECT_EQ(lines[2], "2 bit_a 0 FFFE C 18");
    EXPECT_EQ(lines[6], "6 _Pbits 5 1 8 2") << "the symbol's own name is not cut";
    EXPECT_EQ(lines[14], "14 bitvars2 6 1 8 2");
}

TEST_F(coff_bits_test, a_static_of_a_function_goes_by_its_assembler_name)
{
    opt_strip_underscore = true;
    sdb_node *of_function = bit("_flag", sc_static);
    of_function->var.va_asmname = "_F123";
    sdb_node *other = bit("_other", sc_static);
    sdb_node *no_static = bit("_ext", sc_extern);
    no_static->var.va_asmname = "F9";
    bits.vcoff_bit_add(of_function, 0);
    bits.vcoff_bit_add(other, 1);
    bits.vcoff_bit_add(no_static, 2);
    EXPECT_EQ(member_names(), (text_lines{"_F123", "other", "ext"})) << "it is taken as it stands";
}

TEST_F(coff_bits_test, symbols_of_bits_are_done)
{
    define("_a", 1, DATA);
    define("_b", 2, DATA);
    define("F5", 3, DATA);
    sdb_node *of_function = bit("_b", sc_static);
    of_function->var.va_asmname = "F5";
    add("_a", 0);
    bits.vcoff_bit_add(of_function, 1);
    write();
    EXPECT_TRUE(is_done("_a"));
    EXPECT_TRUE(is_done("_b")) << "it is the database's name that is looked for";
    EXPECT_FALSE(is_done("F5"));
}

TEST_F(coff_bits_test, bits_at_one_address_are_one_member_with_a_joined_name)
{
    define("a", 1, DATA);
    define("b", 2, DATA);
    sdb_node *first = bit("a");
    bits.vcoff_bit_add(first, 3);
    bits.vcoff_bit_add(bit("b"), 3);
    EXPECT_EQ(member_names(), (text_lines{"-", "b/a"}));
    EXPECT_STREQ(first->sdb_name, "b/a") << "the database keeps the name";
    EXPECT_FALSE(is_done("a")) << "no symbol has the joined name, so the labels are written";
    EXPECT_FALSE(is_done("b"));
}

TEST_F(coff_bits_test, equal_names_are_not_joined)
{
    sdb_node *first = bit("_a");
    bits.vcoff_bit_add(first, 3);
    bits.vcoff_bit_add(bit("_a"), 3);
    bits.vcoff_bit_add(first, 3);
    bits.vcoff_bit_add(bit("_b"), 3);
    bits.vcoff_bit_add(bit("_b/_a"), 3);
    EXPECT_EQ(member_names(), (text_lines{"-", "_b/_a"}));
}

TEST_F(coff_bits_test, a_name_in_front_counts_as_a_new_one)
{
    for (const char *name : {"_a", "_b", "_b", "_a", "/_a"}) {
        add(name, 0);
    }
    EXPECT_EQ(member_names(), (text_lines{"'/_a/_a/_b/_b/_a'"}));
}

TEST_F(coff_bits_test, the_old_name_loses_its_underscore_when_names_are_stripped)
{
    opt_strip_underscore = true;
    for (const char *name : {"__a", "_b", "_c"}) {
        add(name, 0);
    }
    EXPECT_EQ(member_names(), (text_lines{"c/b/_a"}));
}

TEST_F(coff_bits_test, a_joined_name_is_what_its_node_is_joined_with_elsewhere)
{
    sdb_node *first = bit("a");
    bits.vcoff_bit_add(first, 0);
    bits.vcoff_bit_add(bit("b"), 0);
    bits.vcoff_bit_add(bit("x"), 1);
    bits.vcoff_bit_add(first, 1);
    EXPECT_STREQ(bits.name_of(first), "b/a");
    bits.vcoff_bit_add(bit("c"), 0);
    EXPECT_STREQ(bits.name_of(first), "c/b/a");
    EXPECT_EQ(member_names(), (text_lines{"c/b/a", "b/a/x"}));
}

// With the plain form, which makes each name anew.
TEST_F(coff_bits_test, joined_names_are_those_of_a_plain_join)
{
    for (const bool strip : {false, true}) {
        opt_strip_underscore = strip;
        coff_bits joined;
        sdb_node *first = bit("_n0");
        joined.vcoff_bit_add(first, 9);
        std::string expected = "_n0";
        for (int i = 1; i < 200; ++i) {
            const std::string name = (i % 3 == 0 ? "__n" : "n") + std::to_string(i / 2);
            joined.vcoff_bit_add(bit(str_cache(name.c_str())), 9);
            if (name != expected) {
                expected = name + "/" + expected.substr(strip && expected[0] == '_' ? 1 : 0);
            }
        }
        EXPECT_EQ(joined.name_of(first), expected);
    }
}

TEST_F(coff_bits_test, many_bits_of_one_address_take_no_more_room_than_their_names)
{
    constexpr int COUNT = 200000;
    for (int i = 0; i < COUNT; ++i) {
        add(i % 2 == 0 ? "_even" : "_odd", 0); // each differs from the joined name
    }
    bits.write_groups(&tables);
    // "_odd" as the last, then the pairs, and the first name.
    EXPECT_EQ(tables.coff_strings.size(), (5 + 6) * COUNT / 2 - 1 + 1 + std::strlen("_bitvars1") + 1);
}

TEST_F(coff_bits_test, the_size_of_a_word_is_that_of_a_data_unit)
{
    coff.ram_unit = 2; // sixteen bits
    add("_a", 0x1F);
    const text_lines lines = write();
    EXPECT_EQ(lines[1], "+ 0 0 2 0 0 7");
    EXPECT_EQ(lines[3], "+ 0 0 F") << "padding up to bit 15";
    EXPECT_EQ(lines[8], "8 '_bitvars1' 1 1 8 2");
    EXPECT_EQ(lines[9], "+ 0 0 2");
}

} // namespace

// SPDX-License-Identifier: MIT
// What the COFF writer makes of databases. In the expected entries section 1 is ABS, 2 the data segment and 3 the block of
// the code segment, unless a test has sections of its own.
#include "compiler/tarnwick/coff_walk.h"

#include "tests/unit/tarnwick/coff_testing.h"

namespace {

class coff_walk_test : public coff_model {
public:
    // The entries that one module of this text gives in the small program.
    text_lines entries(std::string_view text)
    {
        if (seg_list.empty()) {
            small_program();
        }
        out.emplace_back(std::make_unique<walked>());
        last_module = read(text);
        out.back()->module(last_module);
        return out.back()->list();
    }
    text_lines strings() const { return strings_of(out.back()->tables); }
    std::uint32_t coff_index(const char *name, int nth = 1) const
    {
        return member(last_module, name, nth)->var.va_coff_index;
    }

    std::vector<std::unique_ptr<walked>> out;
    sdb_node *last_module = nullptr;
};

// --- variables ----------------------------------------------------------------------------------------------------------

TEST_F(coff_walk_test, a_static_and_an_extern)
{
    define("_s", 0x21, 2);
    define("_e", 0x22, 2);
    EXPECT_EQ(entries("[v _s s `i 1 s 2 _s ]\n[v _e e `uc 1 e 1 _e ]\n"),
              (text_lines{"0 _s 21 2 4 3", "1 _e 22 2 C 2"}));
    EXPECT_EQ(coff_index("_e"), 1U);
    EXPECT_TRUE(is_done("_s"));
    EXPECT_TRUE(is_done("_e"));
}

TEST_F(coff_walk_test, an_extern_of_no_size_is_a_definition_unless_it_is_a_function)
{
    define("_e", 0x22, 2);
    define("_f", 0x110, 1);
    EXPECT_EQ(entries("[v _e e `v 1 e 0 _e ]\n[v _f f `(v 1 e 0 _f ]\n"),
              (text_lines{"0 _e 22 2 1 5", "1 _f 110 3 41 2"}));
}

TEST_F(coff_walk_test, prototypes_that_nothing_resolves_stand_at_0)
{
    EXPECT_EQ(entries("[v _gone gone `(i 1 e 0 _gone ]\n"), (text_lines{"0 _gone 0 1 44 2"}))
        << "no block holds address 0: segment 0 + 1";
    EXPECT_EQ(entries("[v _gone_static gone `(i 1 s 0 _gone ]\n"), (text_lines{"0 '_gone_static' 0 1 44 3"}));
}

TEST_F(coff_walk_test, variables_without_location_are_passed_over)
{
    errors_of([&] { EXPECT_EQ(entries("[v _lost lost `i 1 e 2 _lost ]\n"), text_lines{}); });
    EXPECT_EQ(entries("[v _t t `i 1 t 2 ]\n[s S1 . 2 i a 0 2 ]\n[e E1 . A 0 ]\n[d x 1 ]\n"), text_lines{});
}

TEST_F(coff_walk_test, a_variable_with_an_address_needs_no_symbol)
{
    EXPECT_EQ(entries("[v _port port `Vuc 1 e 1 @5 ]\n"), (text_lines{"0 _port 5 2 C 2"}))
        << "the default data space is taken for a segment's number";
}

TEST_F(coff_walk_test, an_array_has_an_auxiliary_entry)
{
    define("_a", 0x20, 2);
    EXPECT_EQ(entries("[v _a a `[3]i 1 e 6 _a ]\n"), (text_lines{"0 _a 20 2 64 2", "+ 0 0 6 3"}));
}

TEST_F(coff_walk_test, a_name_comes_into_the_string_table_ahead_of_its_tags)
{
    define("_variable", 0x20, 2);
    EXPECT_EQ(entries("[s S1 a_long_tag 2 i a_long_member 0 2 ]\n[v _variable variable `S1 1 e 2 _variable ]\n"),
              (text_lines{"0 'a_long_tag' 0 0 0 10", "+ 0 0 2 0 0 4", "2 'a_long_member' 0 0 4 8", "3 .eos 0 0 0 102",
                          "+ 0 0 2", "5 '_variable' 20 2 8 2", "+ 0 0 2"}));
    EXPECT_EQ(strings(), (text_lines{"_variable", "a_long_tag", "a_long_member"}));
    EXPECT_EQ(coff_index("_variable"), 5U);
}

TEST_F(coff_walk_test, the_size_of_a_variable_mends_its_float)
{
    define("_f", 0x20, 2);
    // The words make "f" four bytes, the variable has three.
    small_program();
    out.emplace_back(std::make_unique<walked>());
    out.back()->module(read("[v _f f `f 1 e 3 _f ]\n", "[p AVOCET KORM IEEE_FLT ]\n"));
    EXPECT_EQ(out.back()->list(), (text_lines{"0 _f 20 2 6 2"}));
}

TEST_F(coff_walk_test, an_underscore_is_cut_from_names_but_not_for_look_ups)
{
    opt_strip_underscore = true;
    define("_s", 0x21, 2);
    EXPECT_EQ(entries("[v _s s `i 1 s 2 _s ]\n"), (text_lines{"0 s 21 2 4 3"}));
    EXPECT_TRUE(is_done("_s"));
}

// --- files --------------------------------------------------------------------------------------------------------------

TEST_F(coff_walk_test, files_are_opened_and_closed_around_their_symbols)
{
    define("_a", 0x21, 2);
    define("_b", 0x22, 2);
    tarn_add_file("/x/b.c");
    EXPECT_EQ(entries("\"1 /x/a.c\n[v _a a `i 1 s 2 _a ]\n\"1 /x/b.c\n[v _b b `i 1 s 2 _b ]\n"),
              (text_lines{"0 .file 0 0 0 103", "+ 4", "2 _a 21 2 4 3", "3 .eof 0 0 0 107", "4 .file 0 0 0 103", "+ B",
                          "6 _b 22 2 4 3"}));
    EXPECT_EQ(strings(), (text_lines{"\\x\\a.c", "\\x\\b.c"})) << "short names are strings, too";
    EXPECT_EQ(tarn_find_file("/x/b.c")->fl_coff_index, 4U);
    EXPECT_EQ(out.back()->walk.current_file, std::string("/x/b.c"));
}

TEST_F(coff_walk_test, a_file_without_symbols_leaves_no_entry_but_its_index)
{
    define("_b", 0x22, 2);
    tarn_add_file("/x/a.c");
    tarn_add_file("/x/b.c");
    tarn_add_file("/x/c.c");
    EXPECT_EQ(
        entries("\"1 /x/c.c\n[v _b b `i 1 s 2 _b ]\n\"1 /x/a.c\n\"1 /x/b.c\n[v _b b `i 1 s 2 _b ]\n"),
        (text_lines{"0 .file 0 0 0 103", "+ 4", "2 _b 22 2 4 3", "3 .eof 0 0 0 107", "4 .file 0 0 0 103", "+ 12"}))
        << "the second _b is the first one again";
    EXPECT_EQ(tarn_find_file("/x/a.c")->fl_coff_index, 4U) << "stale: it is the index of b.c now";
    EXPECT_EQ(tarn_find_file("/x/b.c")->fl_coff_index, 4U);
    EXPECT_EQ(strings(), (text_lines{"\\x\\c.c", "\\x\\a.c", "\\x\\b.c"})) << "the string stays";
}

TEST_F(coff_walk_test, the_open_file_goes_on_into_the_next_module)
{
    define("_a", 0x21, 2);
    small_program();
    walked result;
    result.module(read("\"1 /x/a.c\n[v _a a `i 1 s 2 _a ]\n"));
    result.module(read("[v _a a `i 1 s 2 _a ]\n\"1 /x/b.c\n"));
    EXPECT_EQ(result.list(), (text_lines{"0 .file 0 0 0 103", "+ 4", "2 _a 21 2 4 3", "3 _a 21 2 4 3",
                                         "4 .eof 0 0 0 107", "5 .file 0 0 0 103", "+ B"}));
}

TEST_F(coff_walk_test, a_file_is_looked_up_as_files_are)
{
    opt_strip_ext = true;
    tarn_add_file("/X/A.c"); // bears "/X/A"
    EXPECT_EQ(entries("\"1 /x/a.c\n\"1 /x/b.c\n"), (text_lines{"0 .file 0 0 0 103", "+ B"}));
    EXPECT_EQ(tarn_find_file("/x/a.h")->fl_coff_index, 0U);
    coff_tables tables;
    coff_append_eof(&tables);
    vcoff_add_file(&tables, "/x/a.c");
    EXPECT_EQ(tarn_find_file("/X/A.h")->fl_coff_index, 1U) << "whatever the case, and without the extension";
}

// --- functions and blocks -----------------------------------------------------------------------------------------------

constexpr const char *FUNCTION = "\"3 /x/a.c\n"
                                 "[v _f f `(i 1 e 0 _f ]\n"
                                 "\"5\n{\n"
                                 "[v f@p p `i 1 p 2 f@p ]\n"
                                 "[v f@a a `uc 1 a 1 f@a ]\n"
                                 "[v f@q q `i 1 p 2 f@q ]\n"
                                 "\"6\n{\n"
                                 "[v f@b b `uc 1 a 1 f@b ]\n"
                                 "\"7\n}\n"
                                 "\"9\n}\n2 0 0 0\n";

class coff_function_test : public coff_walk_test {
public:
    coff_function_test()
    {
        define("_f", 0x110, 1);
        define("f@p", 0x30, 2);
        define("f@q", 0x32, 2);
        define("f@a", 0x34, 2);
        define("f@b", 0x35, 2);
    }
};

TEST_F(coff_function_test, a_function_comes_as_a_member_and_with_its_block)
{
    define("__end_of_f", 0x120, 1);
    EXPECT_EQ(entries(FUNCTION), (text_lines{"0 .file 0 0 0 103",  "+ 4",             //
                                             "2 _f 110 3 44 2",    "3 _f 110 3 44 2", //
                                             "4 .bf 110 3 0 101",  "+ 0 5 0 0 0 13",  // to the entry behind .ef
                                             "6 f@p 30 2 4 3",     "7 f@q 32 2 4 3",  // parameters first
                                             "8 .bb 110 3 0 100",  "+ 0 5 0 0 0 11",  //
                                             "10 f@a 34 2 C 3",                       //
                                             "11 .bb 110 3 0 100", "+ 0 6 0 0 0 F",
                                             "13 f@b 35 2 C 3",             // the function's address
                                             "14 .eb 110 3 0 100", "+ 0 7", //
                                             "16 .eb 110 3 0 100", "+ 0 9", //
                                             "18 .ef 11F 3 0 101", "+ 0 9"}));
    EXPECT_EQ(coff_index("_f"), 3U) << "the later index is kept";
    EXPECT_EQ(out.back()->walk.coff_functions.size(), 1U);
    EXPECT_EQ(out.back()->walk.coff_functions[0].section, 3U);
    EXPECT_EQ(out.back()->walk.coff_functions[0].block, member(last_module, sc_func));
    EXPECT_TRUE(is_done("_f"));
    EXPECT_FALSE(is_done("f@a")) << "the labels of locals are written as well";
    EXPECT_FALSE(is_done("f@p"));
}

TEST_F(coff_function_test, without_a_symbol_of_its_end_a_function_ends_at_its_start)
{
    const text_lines lines = entries(FUNCTION);
    EXPECT_EQ(lines.end()[-2], "18 .ef 110 3 0 101");
}

TEST_F(coff_function_test, the_name_of_the_end_is_cut_to_127_characters)
{
    const std::string name = "_" + std::string(150, 'n');
    define(name.c_str(), 0x110, 1);
    define(("__end_of" + name).substr(0, 127).c_str(), 0x118, 1);
    define(("__end_of" + name).substr(0, 128).c_str(), 0x128, 1);
    const text_lines lines = entries("[v " + name + " n `(i 1 e 0 x ]\n{\n}\n");
    EXPECT_EQ(lines.end()[-2], "8 .ef 117 3 0 101");
}

TEST_F(coff_function_test, a_static_function)
{
    EXPECT_EQ(entries("[v _f f `(i 1 s 0 _f ]\n{\n}\n"),
              (text_lines{"0 _f 110 3 44 3", "1 _f 110 3 44 3", "2 .bf 110 3 0 101", "+ 0 0 0 0 0 9",
                          "4 .bb 110 3 0 100", "+ 0 0 0 0 0 7", "6 .eb 110 3 0 100", "+", "8 .ef 110 3 0 101", "+"}));
}

TEST_F(coff_function_test, the_size_in_bytes_behind_a_block_decides_nothing)
{
    // The frame number replaces the function's size, so that it is 2 and not 0.
    const text_lines lines = entries("[v _f f `(i 1 e 0 _f ]\n{\n}\n2 0 0 0\n");
    EXPECT_EQ(lines[0], "0 _f 110 3 44 2");
}

TEST_F(coff_function_test, registers_are_no_location_and_inner_parameters_are_passed_over)
{
    EXPECT_EQ(entries("[v _f f `(i 1 e 0 _f ]\n{\n[v r r `i 1 r 2 ptra ]\n[v x x `i 1 p 2 ptrb ]\n"
                      "{\n[v f@p p `i 1 p 2 f@p ]\n}\n}\n"),
              (text_lines{"0 _f 110 3 44 2", "1 _f 110 3 44 2", "2 .bf 110 3 0 101", "+ 0 0 0 0 0 D",
                          "4 .bb 110 3 0 100", "+ 0 0 0 0 0 B", "6 .bb 110 3 0 100", "+ 0 0 0 0 0 9",
                          "8 .eb 110 3 0 100", "+", "10 .eb 110 3 0 100", "+", "12 .ef 110 3 0 101", "+"}));
}

TEST_F(coff_function_test, a_register_variable_that_was_in_memory_has_a_class_of_its_own)
{
    small_program();
    sdb_node *module = read("[v _f f `(i 1 e 0 _f ]\n{\n[v r r `i 1 r 2 ptra ]\n}\n");
    sdb_node *variable = member(member(module, sc_func), "r");
    sdb_location place;
    place.lo_kind = LO_ADDRESS;
    place.lo_value = 0x33;
    place.lo_space = 2;
    variable->var.va_locations.push(xnew(place));
    walked result;
    result.module(module);
    EXPECT_EQ(result.list()[6], "6 r 33 2 4 4");
}

TEST_F(coff_function_test, externs_and_statics_within_a_function_are_variables)
{
    define("F7", 0x36, 2);
    define("_far_away", 0x37, 2);
    const text_lines lines = entries("[v _f f `(i 1 e 0 _f ]\n{\n[v F7 count `i 1 s 2 Scount ]\n"
                                     "[v _far_away far_away `i 1 e 2 x ]\n}\n");
    EXPECT_EQ(lines[6], "6 _count 36 2 4 3") << "a static of a function bears its C name";
    EXPECT_EQ(lines[7], "7 '_far_away' 37 2 4 2");
    EXPECT_FALSE(is_done("F7")) << "so its symbol comes out as a label";
    EXPECT_TRUE(is_done("_far_away"));
}

TEST_F(coff_function_test, a_block_outside_of_functions_has_no_address)
{
    EXPECT_EQ(entries("\"5\n{\n\"6\n}\n"),
              (text_lines{"0 .bb 0 0 0 100", "+ 0 5 0 0 0 3", "2 .eb 0 0 0 100", "+ 0 6"}));
}

TEST_F(coff_function_test, a_function_within_a_block_has_its_own_address)
{
    define("_g", 0x140, 1);
    EXPECT_EQ(entries("[v _f f `(i 1 e 0 _f ]\n{\n[v _g g `(i 1 e 0 _g ]\n{\n}\n{\n}\n}\n"),
              (text_lines{"0 _f 110 3 44 2",    "1 _f 110 3 44 2",
                          "2 .bf 110 3 0 101",  "+ 0 0 0 0 0 17", //
                          "4 .bb 110 3 0 100",  "+ 0 0 0 0 0 15", //
                          "6 _g 140 3 44 2",    "7 _g 140 3 44 2",
                          "8 .bf 140 3 0 101",  "+ 0 0 0 0 0 F", //
                          "10 .bb 140 3 0 100", "+ 0 0 0 0 0 D",
                          "12 .eb 140 3 0 100", "+", //
                          "14 .ef 140 3 0 101", "+", //
                          "16 .bb 110 3 0 100", "+ 0 0 0 0 0 13",
                          "18 .eb 110 3 0 100", "+", //
                          "20 .eb 110 3 0 100", "+",
                          "22 .ef 110 3 0 101", "+"}));
}

TEST_F(coff_function_test, a_file_can_change_within_a_function)
{
    const text_lines lines = entries("\"1 /x/a.c\n[v _f f `(i 1 e 0 _f ]\n{\n\"2 /x/a.h\n\"3 /x/a.c\n}\n");
    EXPECT_EQ(lines,
              (text_lines{"0 .file 0 0 0 103", "+ 4", "2 _f 110 3 44 2", "3 _f 110 3 44 2", "4 .bf 110 3 0 101",
                          "+ 0 3 0 0 0 E", "6 .bb 110 3 0 100", "+ 0 3 0 0 0 C", "8 .eof 0 0 0 107",
                          "9 .file 0 0 0 103", "+ 4", "11 .eb 110 3 0 100", "+ 0 3", "13 .ef 110 3 0 101", "+ 0 3"}))
        << "a.h had no symbols";
}

TEST_F(coff_function_test, an_array_of_no_size_drops_the_entry_of_a_function)
{
    small_program();
    sdb_node *module = read("[v _f f `(i 1 e 0 _f ]\n{\n}\n");
    sdb_node *function = member(module, "_f");
    sdb_node *type = make_struct("tag", 3);
    function->var.va_type = type_maker::make("[0]S", type);
    walked result;
    result.module(module);
    EXPECT_EQ(result.list(),
              (text_lines{"0 tag 0 0 0 10", "+ 0 0 3 0 0 3", "2 .eos 0 0 0 102", "+ 0 0 3", "4 _f 110 3 68 5", "+",
                          "6 .bf 110 3 0 101", "+ 0 0 0 0 0 D", "8 .bb 110 3 0 100", "+ 0 0 0 0 0 B",
                          "10 .eb 110 3 0 100", "+", "12 .ef 110 3 0 101", "+"}))
        << "as a member it has its entry";
    EXPECT_EQ(function->var.va_coff_index, 4U);
    EXPECT_TRUE(is_done("_f"));
    function->var.va_type = type_maker::make("[1]i2");
    function->var.va_size = 0;
    walked other;
    other.module(module);
    EXPECT_EQ(other.list()[2], "2 _f 110 3 64 5") << "one of some size has two";
    EXPECT_EQ(other.list()[3], "+ 0 0 2 1");
}

TEST_F(coff_function_test, blocks_can_lie_in_each_other_as_deep_as_they_like)
{
    constexpr int DEPTH = 100000;
    std::string text = "[v _f f `(i 1 e 0 _f ]\n{\n";
    for (int i = 1; i < DEPTH; ++i) {
        text += "{\n";
    }
    for (int i = 0; i < DEPTH; ++i) {
        text += "}\n";
    }
    entries(text);
    const std::vector<coff_entry> &symbols = out.back()->tables.coff_symbols;
    ASSERT_EQ(symbols.size(), std::size_t{4} * DEPTH + 6);
    EXPECT_EQ(field(symbols[5 + 2 * 100].data(), CAX_ENDNDX, 4), symbols.size() - 3 - 2 * 100);
}

// --- bits ---------------------------------------------------------------------------------------------------------------

TEST_F(coff_walk_test, bits_wait_for_their_groups)
{
    define("_flag", 0x101, 2);
    define("_plain", 0x21, 2);
    EXPECT_EQ(entries("[v _flag flag `b 1 s 0 _flag ]\n[v _plain plain `i 1 s 2 _plain ]\n"),
              (text_lines{"0 _plain 21 2 4 3"}));
    EXPECT_EQ(coff_index("_flag"), 0U);
    EXPECT_FALSE(is_done("_flag")) << "not before its group is written";
    walked &result = *out.back();
    result.bits.write_groups(&result.tables);
    EXPECT_EQ(result.list()[5], "5 _flag 1 FFFE C 18");
    EXPECT_TRUE(is_done("_flag"));
}

TEST_F(coff_walk_test, what_has_a_bit_at_its_base_counts_as_one)
{
    define("_p", 0x100, 2);
    define("_f", 0x110, 1);
    EXPECT_EQ(entries("[v _p p `*b 1 s 2 _p ]\n[v _f f `(b 1 e 0 _f ]\n{\n}\n"),
              (text_lines{"0 .bf 110 3 0 101", "+ 0 0 0 0 0 7", "2 .bb 110 3 0 100", "+ 0 0 0 0 0 5",
                          "4 .eb 110 3 0 100", "+", "6 .ef 110 3 0 101", "+"}))
        << "a function that returns a bit has its block still";
    walked &result = *out.back();
    result.bits.write_groups(&result.tables);
    const text_lines lines = result.list();
    EXPECT_EQ(lines[10], "10 _p 0 FFFE C 18");
    EXPECT_EQ(lines[18], "18 _f 0 FFFE C 18") << "met twice, it is one";
    EXPECT_EQ(coff_index("_f"), 0U);
}

TEST_F(coff_walk_test, local_bits_are_plain_locals)
{
    define("_f", 0x110, 1);
    define("f@b", 0x101, 2);
    const text_lines lines = entries("[v _f f `(i 1 e 0 _f ]\n{\n[v f@b b `b 1 a 0 f@b ]\n}\n");
    EXPECT_EQ(lines[6], "6 f@b 101 2 0 3");
}

TEST_F(coff_walk_test, the_end_of_a_function_is_looked_for_by_its_joined_name)
{
    define("_f", 0x110, 1);
    define("_b", 0x110, 2);
    define("__end_of_f", 0x120, 1);
    define("__end_of_b/_f", 0x130, 1);
    const text_lines lines = entries("[v _f f `(b 1 e 0 _f ]\n{\n[v _b b `b 1 e 0 _b ]\n}\n");
    EXPECT_EQ(lines.end()[-2], "6 .ef 12F 3 0 101");
}

// --- the table of calls -------------------------------------------------------------------------------------------------

class coff_table_calls : public coff_walk_test {
public:
    coff_table_calls()
    {
        coff.rom_width = 12;
        define("_f", 0x110, 1);
        define("entry__f", 0x104, 1);
    }
};

TEST_F(coff_table_calls, a_function_goes_by_its_entry)
{
    EXPECT_EQ(entries("[v _f f `(i 1 e 0 _f ]\n{\n}\n"),
              (text_lines{"0 _f 104 3 44 2", "1 _f 110 3 44 2", // its own entry keeps its address
                          "2 .bf 104 3 0 101", "+ 0 0 0 0 0 9", "4 .bb 104 3 0 100", "+ 0 0 0 0 0 7",
                          "6 .eb 104 3 0 100", "+", "8 .ef 104 3 0 101", "+"}));
    EXPECT_EQ(location(member(last_module, "_f"))->lo_value, 0x104U) << "the database is changed";
}

TEST_F(coff_table_calls, other_widths_have_no_table)
{
    coff.rom_width = 14;
    EXPECT_EQ(entries("[v _f f `(i 1 e 0 _f ]\n{\n}\n")[2], "2 .bf 110 3 0 101");
}

TEST_F(coff_table_calls, other_variables_have_no_entry)
{
    define("_v", 0x21, 2);
    define("entry__v", 0x22, 2);
    EXPECT_EQ(entries("[v _v v `i 1 e 2 _v ]\n[v _p p `*(v 1 e 2 @33 ]\n"),
              (text_lines{"0 _v 21 2 4 2", "1 _p 21 2 221 2"}));
}

TEST_F(coff_table_calls, the_entry_of_a_static_is_looked_for_in_its_module)
{
    small_program();
    sdb_node *module = read("[v _f f `(i 1 s 0 _f ]\n{\n}\n");
    define("entry__f", 0x108, 1, module->sdb_name);
    distribute_by_file(0);
    walked result;
    result.module(module);
    EXPECT_EQ(result.list()[0], "0 _f 108 3 44 3") << "not that of the other file";

    module->sdb_name = nullptr;
    walked nameless;
    nameless.module(module);
    EXPECT_EQ(nameless.list()[0], "0 _f 104 3 44 3") << "a block without name has no file";

    module->sdb_name = "elsewhere";
    walked elsewhere;
    elsewhere.module(module);
    EXPECT_EQ(elsewhere.list()[0], "0 _f 104 3 44 3") << "now the database's own address";
}

} // namespace

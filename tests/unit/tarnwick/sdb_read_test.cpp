// SPDX-License-Identifier: MIT
// Files, prefix lists, tokens, blocks, line records and frame numbers.
#include <filesystem>
#include <string>
#include <vector>

#include "common/osdep.h"
#include "common/stringcache.h"
#include "tests/unit/tarnwick/sdb_testing.h"
#include "tests/unit/tarnwick/trace_log.h"

namespace {

class reading : public database {};

std::vector<std::string> tokens_of(std::string_view text)
{
    std::vector<std::string> list;
    sdb_tokens tokens(text);
    for (sdb_token token = tokens.next(); token.present; token = tokens.next()) {
        list.push_back(std::string(token.text) + "@" + std::to_string(token.line) + ":" + std::to_string(token.column) +
                       (token.ends_line ? "$" : ""));
    }
    return list;
}

using strings = std::vector<std::string>;

TEST(sdb_tokens, have_places_counted_from_1)
{
    EXPECT_EQ(tokens_of("a  bc\n\n d\te"), (strings{"a@1:1", "bc@1:4$", "d@3:2", "e@3:4"}));
}

TEST(sdb_tokens, end_lines_with_newline_or_carriage_return)
{
    EXPECT_EQ(tokens_of("a \nb\nc\r\nd\re f"), (strings{"a@1:1", "b@2:1$", "c@3:1$", "d@4:1$", "e@4:3", "f@4:5"}));
}

TEST(sdb_tokens, are_divided_by_every_white_space)
{
    EXPECT_EQ(tokens_of("a\tb\vc\fd e"), (strings{"a@1:1", "b@1:3", "c@1:5", "d@1:7", "e@1:9"}));
    EXPECT_TRUE(tokens_of("").empty());
    EXPECT_TRUE(tokens_of(" \n ").empty());
}

TEST(sdb_tokens, take_a_nul_for_a_character_that_ends_the_text)
{
    EXPECT_EQ(tokens_of(std::string_view("a\0b c\n\0d e", 10)), (strings{"a@1:1", "c@1:5$", "@2:1", "e@2:4"}));
}

TEST(sdb_tokens, past_the_end_are_empty)
{
    sdb_tokens tokens("x");
    EXPECT_TRUE(tokens.next().present);
    for (int i = 0; i < 3; ++i) {
        const sdb_token token = tokens.next();
        EXPECT_FALSE(token.present);
        EXPECT_FALSE(token.ends_line);
        EXPECT_EQ(token.text, "");
        EXPECT_EQ(token.last(), '\0');
        EXPECT_EQ(token.at(0), '\0');
    }
}

TEST(sdb_tokens, may_be_of_any_length)
{
    EXPECT_EQ(tokens_of(std::string(100000, 'x'))[0].size(), 100000U + 4);
}

TEST_F(reading, replaces_what_follows_the_last_point_of_the_path)
{
    folder().write("m.sdb", KOR_PREFIX);
    const std::string path = folder().path("m.longer");
    const sdb_node *node = sdb_read(path.c_str());
    EXPECT_EQ(node->sdb_sclass, sc_module);
    EXPECT_STREQ(node->sdb_name, path.c_str()); // as given
    EXPECT_EQ(sdb_read(folder().path("m.p1").c_str()), node);
}

TEST_F(reading, appends_the_extension_where_no_point_is)
{
    std::filesystem::current_path(folder().path());
    folder().write("plain.sdb", KOR_PREFIX);
    const sdb_node *node = sdb_read("plain");
    EXPECT_EQ(node->sdb_sclass, sc_module);
    EXPECT_STREQ(node->sdb_name, "plain");
    std::filesystem::current_path("/");
}

TEST_F(reading, looks_for_the_point_in_the_whole_path)
{
    folder().make_directory("dir.d");
    folder().write("dir.sdb", KOR_PREFIX);
    folder().write("dir.d/file.sdb", KOR_PREFIX);
    const sdb_node *node = sdb_read(folder().path("dir.d/file").c_str());
    EXPECT_EQ(node->sdb_sclass, sc_module);
    EXPECT_EQ(sdb_read(folder().path("dir.o").c_str()), node); // it was "dir.sdb"
}

TEST_F(reading, reads_a_path_once)
{
    const sdb_node *first = read("[v x x `i 1 e 2 @5 ]\n");
    const std::uint32_t count = sdb_global->block.bl_count;
    EXPECT_EQ(sdb_read(path().c_str()), first);
    // A relative path of the same file is the same path.
    std::filesystem::current_path(folder().path());
    EXPECT_EQ(sdb_read("m1.obj"), first);
    std::filesystem::current_path("/");
    EXPECT_EQ(sdb_global->block.bl_count, count);
}

TEST_F(reading, finds_names_written_on_windows)
{
    folder().make_directory("sub");
    folder().write("sub/w.sdb", KOR_PREFIX);
    std::filesystem::current_path(folder().path());
    EXPECT_EQ(sdb_read("sub\\w.obj")->sdb_sclass, sc_module);
    std::filesystem::current_path("/");
}

TEST_F(reading, takes_a_missing_or_empty_file_for_an_assembly_module)
{
    processor_name = "KOR18";
    folder().write("empty.sdb", "");
    folder().make_directory("folder.sdb");
    for (const char *name : {"missing.obj", "empty.obj", "folder.obj"}) {
        const std::uint32_t index = sdb_global != nullptr ? sdb_global->block.bl_count : 19;
        const sdb_node *node = sdb_read(folder().path(name).c_str());
        EXPECT_EQ(node->sdb_sclass, sc_asmodule);
        EXPECT_STREQ(node->sdb_name, folder().path(name).c_str());
        EXPECT_EQ(node->block.bl_count, 0U);
        EXPECT_EQ(node->sdb_parent, sdb_global);
        EXPECT_EQ(node->sdb_index, index);
        EXPECT_EQ(node->block.bl_first, 0U); // the line of a new block, none yet
        EXPECT_EQ(node->block.bl_file, nullptr);
        EXPECT_EQ(member(sdb_global, index), node);
        EXPECT_EQ(sdb_read(folder().path(name).c_str()), node);
    }
}

TEST_F(reading, leaves_line_and_file_to_an_assembly_module)
{
    read("\"50 /src/a.c\n");
    const sdb_node *node = sdb_read(folder().path("start.obj").c_str());
    EXPECT_EQ(node->block.bl_first, 1U); // the line left by the end of a database
    EXPECT_STREQ(node->block.bl_file, "/src/a.c");
}

TEST_F(reading, clears_the_file_for_a_compiled_module)
{
    read("\"50 /src/a.c\n");
    const sdb_node *node = read("[v x x `i 1 e 2 @5 ]\n");
    EXPECT_EQ(node->block.bl_file, nullptr);
    EXPECT_EQ(node->block.bl_first, 1U);
    EXPECT_STREQ(location(member(node, "x"))->lo_file, "nofile");
    EXPECT_EQ(member(node, "x")->sdb_line, 1U);
}

TEST_F(reading, adds_modules_in_order)
{
    const sdb_node *first = read("\"7 /a.c\n[v x x `i 1 e 2 @5 ]\n\"3\n");
    const sdb_node *second = read("");
    EXPECT_EQ(first->sdb_parent, sdb_global);
    EXPECT_EQ(first->sdb_index, 19U); // behind the basic types
    EXPECT_EQ(second->sdb_index, 20U);
    EXPECT_EQ(member(sdb_global, 19U), first);
    EXPECT_EQ(member(sdb_global, 20U), second);
    EXPECT_EQ(sdb_current, sdb_global);
    EXPECT_EQ(first->block.bl_first, 3U);
    EXPECT_EQ(first->block.bl_last, 7U);
}

TEST_F(reading, gives_a_file_of_a_prefix_list_an_empty_module)
{
    const sdb_node *node = read("");
    EXPECT_EQ(node->sdb_sclass, sc_module);
    EXPECT_EQ(node->block.bl_count, 0U);
    EXPECT_EQ(machine, &machkor);
}

TEST_F(reading, takes_a_prefix_list_that_the_file_ends_with)
{
    const trace_log log;
    const sdb_node *node = read("", "[p AVOCET KORM ]");
    EXPECT_EQ(node->sdb_sclass, sc_module);
    EXPECT_EQ(machine, &machkor);
    EXPECT_TRUE(log.failed().empty());
}

TEST_F(reading, takes_carriage_returns_for_line_ends)
{
    const sdb_node *node =
        read("\"7 C:\\src\\a b.c\r\n[v x x `i 1 e 2 @5 ]\r\n\"9\r\n[v y y `i 1 e 2 @5 ]\r\n", "[p KORM ]\r\n");
    EXPECT_STREQ(member(node, 0U)->sdb_name, "C:\\src\\a b.c");
    EXPECT_EQ(member(node, "y")->sdb_line, 9U);
}

TEST_F(reading, ends_the_prefix_list_with_its_line)
{
    processor_name = "KOR18";
    const trace_log log;
    read("", "[p IEEE_DBL IEEE_FLT\n");
    EXPECT_EQ(log.failed(), std::vector<std::string>{"strcmp(tok, \"]\") == 0"});
    EXPECT_TRUE(machine_has_flag("IEEE_DBL"));
    EXPECT_FALSE(machine_has_flag("IEEE_FLT")); // taken for the end of the list
}

TEST_F(reading, warns_of_words_that_the_machine_lacks)
{
    processor_name = "KOR18";
    const std::string text = errors_of([this] { read("", "[p korm NEW IEEE_DBL ]\n"); });
    EXPECT_EQ(text, "(637) unknown prefix \"korm\" in SDB file \"" + path() + "\" (warning)\n" +
                        "(637) unknown prefix \"NEW\" in SDB file \"" + path() + "\" (warning)\n");
    EXPECT_TRUE(machine_has_flag("IEEE_DBL"));
}

std::uint8_t float_size(const char *key)
{
    return member(sdb_global, key)->var.va_type->elements[0].basic.te_size;
}

TEST_F(reading, sizes_floating_types_by_words)
{
    const sdb_node *none = read("[v x x `f 1 e 3 @5 ]\n");
    EXPECT_EQ(float_size("f"), 3U);
    EXPECT_EQ(float_size("d"), 3U);
    read("", "[p KORM IEEE_DBL ]\n");
    EXPECT_EQ(float_size("f"), 3U);
    EXPECT_EQ(float_size("d"), 4U);
    read("", "[p KORM IEEE_FLT ]\n");
    EXPECT_EQ(float_size("f"), 4U);
    EXPECT_EQ(float_size("d"), 4U);                                           // the flag table only grows
    EXPECT_EQ(member(none, "x")->var.va_type->elements[0].basic.te_size, 3U); // as when it was read
}

TEST_F(reading, sets_the_current_line_and_file)
{
    const sdb_node *node = read("\"7 /src/a.c\n[v x x `i 1 e 2 @5 ]\n\"9\n[v y y `i 1 e 2 @6 ]\n\"4 /src/a.h\n"
                                "[v z z `i 1 e 2 @7 ]\n");
    EXPECT_EQ(member(node, "x")->sdb_line, 7U);
    EXPECT_EQ(member(node, "y")->sdb_line, 9U);
    EXPECT_EQ(member(node, "z")->sdb_line, 4U);
    EXPECT_STREQ(location(member(node, "y"))->lo_file, "/src/a.c");
    EXPECT_STREQ(location(member(node, "z"))->lo_file, "/src/a.h");
    const sdb_node *first = member(node, sc_filename);
    const sdb_node *second = member(node, sc_filename, 2);
    EXPECT_STREQ(first->sdb_name, "/src/a.c");
    EXPECT_EQ(first->sdb_line, 7U);
    EXPECT_EQ(first->sdb_parent, node);
    EXPECT_EQ(first->sdb_index, 0U);
    EXPECT_STREQ(second->sdb_name, "/src/a.h");
    EXPECT_EQ(second->sdb_line, 4U);
    EXPECT_EQ(second->sdb_index, 3U);
    // Lines are counted anew from the file's mark.
    EXPECT_EQ(node->block.bl_first, 4U);
    EXPECT_EQ(node->block.bl_last, 4U);
}

TEST_F(reading, marks_an_absolute_file_once_and_a_relative_one_each_time)
{
    const sdb_node *node = read("\"1 /src/a.c\n\"2 /src/a.c\n\"3 rel/b.c\n\"4 rel/b.c\n[v x x `i 1 e 2 @5 ]\n");
    ASSERT_EQ(node->block.bl_count, 4U);
    EXPECT_STREQ(member(node, 0U)->sdb_name, "/src/a.c");
    EXPECT_STREQ(member(node, 1U)->sdb_name, "rel/b.c"); // as written
    EXPECT_STREQ(member(node, 2U)->sdb_name, "rel/b.c");
    char *absolute = path_absolute("rel/b.c");
    EXPECT_STREQ(location(member(node, "x"))->lo_file, absolute);
    std::free(absolute);
}

TEST_F(reading, takes_drive_and_network_paths_for_absolute)
{
    const sdb_node *node = read("\"1 D:\\w\\a.c\n[v x x `i 1 e 2 @5 ]\n\"2 \\\\host\\a.c\n[v y y `i 1 e 2 @5 ]\n");
    EXPECT_STREQ(location(member(node, "x"))->lo_file, "D:\\w\\a.c");
    EXPECT_STREQ(location(member(node, "y"))->lo_file, "\\\\host\\a.c");
}

TEST_F(reading, takes_the_rest_of_the_line_for_a_file_name)
{
    const sdb_node *node = read("\"1 \t /src/with blank \n\"2 \n\"x /q\n[v x x `i 1 e 2 @5 ]\n\"5 /eof");
    EXPECT_STREQ(member(node, 0U)->sdb_name, "/src/with blank ");
    EXPECT_STREQ(member(node, 1U)->sdb_name, "/q"); // a blank and no name: none
    EXPECT_EQ(member(node, 1U)->sdb_line, 0U);      // no number
    EXPECT_EQ(member(node, "x")->sdb_line, 0U);
    EXPECT_STREQ(member(node, 3U)->sdb_name, "/eof");
}

TEST_F(reading, ends_a_file_name_at_its_first_nul)
{
    const sdb_node *node = read(std::string_view("\"1 /a.c\0b\n\"2 \0x\n", 16));
    ASSERT_EQ(node->block.bl_count, 1U);
    EXPECT_STREQ(member(node, 0U)->sdb_name, "/a.c");
}

TEST_F(reading, counts_the_lines_of_a_block)
{
    const sdb_node *node = read("\"20 /a.c\n[v _f f `(i 1 e 0 @9 ]\n{\n\"22\n{\n\"25\n}\n\"23\n}\n0\n\"18\n");
    const sdb_node *function = member(node, sc_func);
    const sdb_node *inner = member(function, sc_block);
    EXPECT_EQ(inner->block.bl_first, 22U);
    EXPECT_EQ(inner->block.bl_last, 25U);
    EXPECT_STREQ(inner->block.bl_file, "/a.c");
    EXPECT_EQ(function->block.bl_first, 20U);
    EXPECT_EQ(function->block.bl_last, 25U);
    EXPECT_EQ(node->block.bl_first, 18U);
    EXPECT_EQ(node->block.bl_last, 23U);
}

TEST_F(reading, starts_with_line_0_and_takes_the_first_line_there_is)
{
    const sdb_node *node = read("{\n\"5\n}\n\"7\n");
    const sdb_node *block = member(node, sc_block);
    EXPECT_EQ(block->block.bl_first, 5U); // a first line of 0 takes the current one
    EXPECT_EQ(block->block.bl_last, 5U);
    EXPECT_EQ(node->block.bl_first, 5U);
    EXPECT_EQ(node->block.bl_last, 7U);
}

TEST_F(reading, places_blocks_in_their_parents)
{
    const sdb_node *node = read("\"1 /a.c\n[v x x `i 1 e 2 @5 ]\n{\n{\n}\n{\n}\n}\n");
    const sdb_node *outer = member(node, sc_block);
    EXPECT_EQ(outer->sdb_parent, node);
    EXPECT_EQ(outer->sdb_index, 2U);
    EXPECT_EQ(outer->sdb_name, nullptr);
    EXPECT_EQ(outer->block.bl_func, nullptr);
    EXPECT_EQ(member(outer, 1U)->sdb_index, 1U);
    EXPECT_EQ(member(outer, 1U)->sdb_parent, outer);
}

TEST_F(reading, opens_a_body_with_the_brace_behind_a_function)
{
    const sdb_node *node = read("[v _f f `(i 1 e 0 @9 ]\n{\n}\n0\n{\n}\n");
    EXPECT_EQ(member(node, 1U)->sdb_sclass, sc_func);
    EXPECT_EQ(member(node, 1U)->block.bl_func, member(node, "_f"));
    EXPECT_EQ(member(node, 2U)->sdb_sclass, sc_block); // then blocks again
}

TEST_F(reading, keeps_the_brace_of_a_prototype)
{
    // Variables, structs and lines in between change nothing: the brace opens a body, for the last function.
    const sdb_node *node =
        read("[v _f f `(i 1 e 0 @9 ]\n[v _g g `(i 1 e 0 @9 ]\n[v x x `i 1 e 2 @5 ]\n[s S1 . 0 ]\n\"5\n{\n}\n");
    EXPECT_EQ(member(node, sc_func)->block.bl_func, member(node, "_g"));
}

TEST_F(reading, forgets_the_brace_of_a_prototype_at_an_unknown_record)
{
    const sdb_node *node = read("[v _f f `(i 1 e 0 @9 ]\n[x\n{\n}\n");
    EXPECT_EQ(member(node, sc_func), nullptr);
    EXPECT_NE(member(node, sc_block), nullptr);
}

TEST_F(reading, opens_a_plain_block_where_a_function_is_missing)
{
    // The number takes the function away; the brace would still open its body.
    const trace_log log;
    const sdb_node *node = read("{\n}\n[v _f f `(i 1 e 0 @9 ]\n5\n{\n}\n");
    EXPECT_EQ(log.failed(), std::vector<std::string>{"lastfun != NULL"});
    EXPECT_EQ(member(node, sc_func), nullptr);
    EXPECT_NE(member(node, sc_block, 2), nullptr);
}

TEST_F(reading, keeps_the_last_function_for_the_next_file)
{
    const sdb_node *first = read("[v _f f `(i 1 e 3 @9 ]\n");
    read("{\n}\n8\n");
    EXPECT_EQ(member(first, "_f")->var.va_size, 8U);
}

std::vector<std::uint32_t> frame_of(const sdb_node *node)
{
    return {node->block.bl_frame, node->block.bl_frame + SDB_FRAME_NUMBERS};
}

using numbers = std::vector<std::uint32_t>;

TEST_F(reading, takes_four_frame_numbers)
{
    const sdb_node *node = read("[v _f f `(i 1 e 99 @9 ]\n{\n}\n6 2 -1 4 5 6\n");
    EXPECT_EQ(frame_of(member(node, sc_func)), (numbers{6, 2, 0xFFFFFFFF, 4}));
    EXPECT_EQ(member(node, "_f")->var.va_size, 6U); // the first replaces the function's size
}

TEST_F(reading, starts_counting_frame_numbers_at_each_body)
{
    const sdb_node *node = read("[v _f f `(i 1 e 99 @9 ]\n{\n}\n6 2\n[v _g g `(i 1 e 99 @9 ]\n{\n}\n7 3\n");
    EXPECT_EQ(frame_of(member(node, sc_func)), (numbers{6, 2, 0, 0}));
    EXPECT_EQ(frame_of(member(node, sc_func, 2)), (numbers{7, 3, 0, 0}));
}

TEST_F(reading, carries_on_counting_frame_numbers_over_siblings)
{
    const sdb_node *node = read("[v _f f `(i 1 e 99 @9 ]\n{\n{\n}\n1\n{\n}\n2 3\n{\n}\n4 5\n}\n6\n");
    const sdb_node *function = member(node, sc_func);
    EXPECT_EQ(frame_of(member(function, 0U)), (numbers{1, 0, 0, 0}));
    EXPECT_EQ(frame_of(member(function, 1U)), (numbers{0, 2, 3, 0}));
    EXPECT_EQ(frame_of(member(function, 2U)), (numbers{0, 0, 0, 4}));
    EXPECT_EQ(frame_of(function), (numbers{6, 0, 0, 0}));
}

TEST_F(reading, gives_a_function_the_first_number_behind_a_nested_block)
{
    const sdb_node *node = read("[v _f f `(i 1 e 99 @9 ]\n{\n{\n}\n1\n}\n6\n");
    EXPECT_EQ(member(node, "_f")->var.va_size, 1U);
    EXPECT_EQ(member(node, sc_func)->block.bl_frame[0], 6U);
}

TEST_F(reading, gives_a_number_to_the_last_prototype_in_a_body)
{
    const sdb_node *node = read("[v _f f `(i 1 e 99 @9 ]\n{\n[v _p p `(i 1 e 98 @9 ]\n}\n6\n");
    const sdb_node *function = member(node, sc_func);
    EXPECT_EQ(function->block.bl_func, member(node, "_f"));
    EXPECT_EQ(member(node, "_f")->var.va_size, 99U);
    EXPECT_EQ(member(function, "_p")->var.va_size, 6U);
    EXPECT_EQ(function->block.bl_frame[0], 6U);
}

TEST_F(reading, ends_all_blocks_at_the_end_of_the_file)
{
    const sdb_node *node = read("\"4 /a.c\n[v _f f `(i 1 e 0 @9 ]\n{\n{\n\"9\n[v x x `i 1 a 2 1 ]\n");
    const sdb_node *inner = member(member(node, sc_func), sc_block);
    ASSERT_NE(inner, nullptr);
    EXPECT_NE(member(inner, "x"), nullptr);
    EXPECT_EQ(inner->block.bl_last, 9U);
    EXPECT_EQ(node->block.bl_last, 9U);
}

TEST_F(reading, ends_a_module_at_a_brace_too_many)
{
    add_symbol("_inlined$_sdbr_in", 0x70, 0);
    const sdb_node *node = read("[v _sdbr_in in `(i 1 e 0 @9 ]\n}\nwhatever follows [v x\n");
    EXPECT_EQ(node->block.bl_count, 1U);
    EXPECT_EQ(sdb_reading.inline_offset, 0U); // which the brace of a module ends
}

TEST_F(reading, keeps_the_inline_offset_over_the_end_of_a_file)
{
    add_symbol("_inlined$_sdbr_in", 0x70, 0);
    read("[v _sdbr_in in `(i 1 e 0 @9 ]\n");
    EXPECT_EQ(sdb_reading.inline_offset, 0x70U);
}

TEST_F(reading, takes_the_token_of_an_unknown_record_alone)
{
    const sdb_node *node = read("[q\n[\n[v x x `i 1 e 2 @5 ]\n");
    EXPECT_EQ(node->block.bl_count, 1U);
}

TEST_F(reading, tells_records_by_two_characters)
{
    const sdb_node *node = read("[var x x `i 1 e 2 @5 ]\n");
    EXPECT_NE(member(node, "x"), nullptr);
}

TEST_F(reading, survives_blocks_without_end)
{
    constexpr int DEPTH = 100000;
    std::string text = "[s S1 . 2 i m 0 2 ]\n[v _f f `(i 1 e 0 @9 ]\n";
    for (int i = 0; i < DEPTH; ++i) {
        text += "{\n[v a a `*S1 1 a 2 3 ]\n";
    }
    const sdb_node *block = read(text);
    int depth = 0;
    while ((block = member(block, depth == 0 ? sc_func : sc_block)) != nullptr) {
        ++depth;
        ASSERT_EQ(type_text(member(block, "a")->var.va_type), "*<0> struct:S1");
    }
    EXPECT_EQ(depth, DEPTH);
}

TEST(reading_reports, no_prefix_list)
{
    const char *report = "(630) invalid syntax for prefix list in SDB file \"%PATH%\"\n";
    expect_database_run("prefix1", "nonsense\n", report, 1);
    expect_database_run("prefix2", "[pKORM ]\n", report, 1);
    expect_database_run("prefix3", " \n", report, 1);
}

TEST(reading_reports, no_machine)
{
    expect_database_run("machine1", "[p NOSUCH ]\n[v\n", "(668) prefix list did not match any SDB types\n", 1);
    expect_database_run("machine2", "[p ]\n", "(669) prefix list matched more than one SDB type\n", 1);
    expect_database_run("machine3", "", "(669) prefix list matched more than one SDB type\n", 1);
}

TEST(reading_reports, a_prefix_list_over_two_lines)
{
    expect_database_run("two_lines", "[p KORM AVOCET\nKORB ]\n",
                        "(631) syntax error at token \"KORB\" in SDB file \"%PATH%\" line 2 column 1\n", 1);
}

TEST(reading_reports, syntax_errors)
{
    expect_database_run("token", "[p KORM ]\n\n  what\n",
                        "(631) syntax error at token \"what\" in SDB file \"%PATH%\" line 3 column 3\n", 1);
    expect_database_run("bracket", "[p KORM ]\n]\n",
                        "(631) syntax error at token \"]\" in SDB file \"%PATH%\" line 2 column 1\n", 1);
    expect_database_run("nul", std::string("[p KORM ]\na\0b\n", 14),
                        "(631) syntax error at token \"a\" in SDB file \"%PATH%\" line 2 column 1\n", 1);
}

TEST(reading_reports, a_frame_number_before_any_inner_block)
{
    expect_database_run("frame", "[p KORM ]\n[v _f f `(i 1 e 0 @9 ]\n12\n",
                        "(631) syntax error at token \"12\" in SDB file \"%PATH%\" line 3 column 1\n", 1);
    // A block of another level is none.
    expect_database_run("frame2", "[p KORM ]\n{\n}\n{\n-5\n",
                        "(631) syntax error at token \"-5\" in SDB file \"%PATH%\" line 5 column 1\n", 1);
}

} // namespace

// SPDX-License-Identifier: MIT
// The walk over a module: units, typedefs, variables and stack offsets.
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/alloc.h"
#include "common/stringcache.h"
#include "compiler/tarnwick/dwarf_lines.h"
#include "tests/unit/tarnwick/dwarf_die_testing.h"
#include "tests/unit/tarnwick/fresh_model.h"
#include "tests/unit/tarnwick/random_numbers.h"

namespace {

using namespace dwarf_die_testing;

// --- units --------------------------------------------------------------------------------------------------------------

class die_units : public debug_unit {
protected:
    // The line of the unit alone.
    std::string unit_line(sdb_node *module)
    {
        const std::string text = text_of({module});
        EXPECT_EQ(text.find('\n'), text.size() - 1) << text;
        return text;
    }
    std::string lines_here() const { return "lines=" + std::to_string(lines_start_); }
};

TEST_F(die_units, with_a_file_mark_only_have_no_children)
{
    sdb_node *module = module_of("");
    const std::string line = unit_line(module);
    EXPECT_EQ(line, "#1 unit " + lines_here() + " language=1 name=" + module->sdb_name + "\n");
    EXPECT_EQ(info_.back(), '\0') << "the terminator of the name, and no end of children";
    EXPECT_NE(info_[info_.size() - 2], '\0');
    EXPECT_EQ(version_, 2U);
    // An empty program but for the end of its sequence; 24 bytes of header in front, then the directory and the file.
    const bytes expected =
        joined({{41 - 4, 0, 0, 0, 2, 0, 24 + 4 + 8 - 10, 0, 0, 0, 1, 1, 0xF1, 20, 10, 0, 1, 1, 1, 1, 0, 0, 0, 1},
                text_bytes("/p"),
                {0},
                text_bytes("a.c"),
                {1, 0, 0, 0},
                {2, 1, 0, 1, 1}});
    EXPECT_EQ(hex(lines_), hex(expected));
    EXPECT_EQ(hex(pubnames_), "");
    EXPECT_EQ(hex(loc_) + hex(ranges_), "");
}

TEST_F(die_units, name_their_producer)
{
    text_of({module_of("")});
    const bytes producer = text_bytes("Vantrel Kelvar ZRT Compiler v2.46");
    // Behind the header of 11 bytes, the number of the abbreviation and the offset of the lines.
    EXPECT_EQ(hex({info_.begin() + 16, info_.begin() + 16 + static_cast<std::ptrdiff_t>(producer.size())}),
              hex(producer));
}

TEST_F(die_units, of_assembly_have_their_language)
{
    choose(machkor);
    sdb_node *module = sdb_new_node(sc_asmodule, "/p/start.s");
    const std::string line = unit_line(module);
    EXPECT_EQ(line, "#1 unit " + lines_here() + " language=32769 name=/p/start.s\n");
    // Nothing has a file: the tables of directories and files are empty.
    EXPECT_EQ(lines_.size(), 24U + 1 + 1 + 5);
}

TEST_F(die_units, with_a_relative_name_tell_the_working_directory)
{
    choose(machkor);
    sdb_node *module = sdb_new_node(sc_module, "a.c");
    const std::string line = unit_line(module);
    EXPECT_EQ(line, "#1 unit " + lines_here() + " language=1 name=a.c dir=" + std::filesystem::current_path().string() +
                        "\n");
}

TEST_F(die_units, with_a_first_member_of_another_kind_are_left_open)
{
    // With one member the unit has no children by its abbreviation, and no end of them, but they are there.
    sdb_node *module = read("[v _x _x `i 1 s 2 @16 ]\n");
    ASSERT_EQ(module->block.bl_count, 1U);
    const std::string text = text_of({module});
    EXPECT_EQ(text, "#1 unit " + lines_here() + " language=1 name=" + module->sdb_name + "\n#2 " + INT +
                        "#3 variable name=_x file=0 line=0 type=#2 location=<0310000000>\n");
}

TEST_F(die_units, with_children_close_their_list)
{
    text_of({module_of("[v _x _x `i 1 s 2 @16 ]\n")});
    // The reader keeps no stack entry for the unit only when its children were closed.
    EXPECT_TRUE(children_are_closed_);
}

TEST_F(die_units, tell_their_ranges_by_the_mode)
{
    const auto line_of = [this](std::uint32_t ranges, dwarf_use_mode mode) {
        dwarf_use_ranges = mode;
        sdb_node *module = sdb_new_node(sc_module, "/p/a.c");
        for (std::uint32_t i = 0; i < ranges; ++i) {
            add_range(&module->block, 0x100 * i, 0x100 * i + 7);
        }
        const std::string line = unit_line(module);
        return line.substr(line.find("/p/a.c") + 6);
    };
    choose(machkor);
    EXPECT_EQ(line_of(1, DWARF_USE_NEVER), "\n");
    EXPECT_EQ(version_, 2U);
    EXPECT_EQ(line_of(0, DWARF_USE_AUTO), "\n");
    EXPECT_EQ(version_, 3U);
    EXPECT_EQ(line_of(1, DWARF_USE_AUTO), " low=0x0 high=0x7\n");
    EXPECT_EQ(hex(ranges_), "");
    const std::string list = line_of(2, DWARF_USE_AUTO);
    EXPECT_EQ(list.substr(0, 8), " ranges=");
    EXPECT_EQ(hex(ranges_), "ffffffff00000000"
                            "0000000008000000"
                            "0001000008010000"
                            "0000000000000000");
    EXPECT_EQ(line_of(0, DWARF_USE_ALWAYS), "\n");
    EXPECT_EQ(line_of(1, DWARF_USE_ALWAYS).substr(0, 8), " ranges=");
}

// --- files --------------------------------------------------------------------------------------------------------------

class die_files : public debug_unit {
protected:
    // The file of the declaration made next, by a typedef of void: "file=2" or the like.
    static std::string typedefs(const std::string &text)
    {
        std::string found;
        for (std::size_t at = 0; (at = text.find("file=", at)) != std::string::npos; ++at) {
            found += text.substr(at + 5, text.find(' ', at) - at - 5) + " ";
        }
        return found;
    }
};

TEST_F(die_files, are_told_apart_by_their_base_names)
{
    const std::string text = entries("[v A A `v 1 t 0 ]\n\"2 /p/b.h\n[v B B `v 1 t 0 ]\n\"3 /q/b.h\n[v C C `v 1 t 0 ]\n"
                                     "\"4 /q/c.h\n[v D D `v 1 t 0 ]\n\"5 /p/a.c\n[v E E `v 1 t 0 ]\n");
    EXPECT_EQ(typedefs(text), "1 2 2 3 1 ");
    // Directory 1 is that of a.c and of the first b.h, 2 that of c.h.
    const bytes tables = joined({text_bytes("/p"),
                                 text_bytes("/q"),
                                 {0},
                                 text_bytes("a.c"),
                                 {1, 0, 0},
                                 text_bytes("b.h"),
                                 {1, 0, 0},
                                 text_bytes("c.h"),
                                 {2, 0, 0},
                                 {0}});
    EXPECT_EQ(hex(lines_).substr(48, 2 * tables.size()), hex(tables));
}

TEST_F(die_files, stay_current_behind_the_block_that_changed_them)
{
    const std::string text =
        entries("[v _f _f `(v 1 e 0 0 ]\n{\n\"2 /p/b.h\n[v A A `v 1 t 0 ]\n}\n0\n[v B B `v 1 t 0 ]\n");
    EXPECT_EQ(typedefs(text), "1 2 2 ") << "the function itself is in the first";
}

TEST(file_table, takes_directory_and_base_name_apart)
{
    fresh_model();
    const std::uint32_t known = tarn_add_file("/p/a.c");
    dwarf_file_table table;
    EXPECT_EQ(dwarf_file_number(&table, str_cache("/p/a.c")), 1U);
    EXPECT_EQ(dwarf_file_number(&table, str_cache("C:\\inc/x\\b.h")), 2U) << "the last backslash counts";
    EXPECT_EQ(dwarf_file_number(&table, str_cache("C:c.h")), 3U);
    EXPECT_EQ(dwarf_file_number(&table, str_cache("/d.h")), 4U);
    EXPECT_EQ(dwarf_file_number(&table, str_cache("e.h")), 5U) << "made absolute";
    EXPECT_EQ(dwarf_file_number(&table, str_cache("/elsewhere/a.c")), 1U);
    EXPECT_EQ(dwarf_file_number(&table, str_cache("e.h")), 5U);
    ASSERT_EQ(table.files.size(), 5U);
    ASSERT_EQ(table.directories.size(), 5U);
    EXPECT_STREQ(table.directories[0], "");
    EXPECT_STREQ(table.directories[1], "/p");
    EXPECT_STREQ(table.directories[2], "C:\\inc/x");
    EXPECT_STREQ(table.directories[3], "C");
    EXPECT_EQ(table.directories[4], std::filesystem::current_path().string());
    const char *const names[] = {"a.c", "b.h", "c.h", "d.h", "e.h"};
    const std::uint32_t directories[] = {1, 2, 3, 0, 4};
    for (std::uint32_t i = 0; i < 5; ++i) {
        EXPECT_EQ(table.files[i].df_number, i + 1);
        EXPECT_EQ(table.files[i].df_name, str_cache(names[i]));
        EXPECT_EQ(table.files[i].df_dir, directories[i]) << names[i];
        EXPECT_EQ(table.files[i].df_time, 0U);
        EXPECT_EQ(table.files[i].df_size, 0U);
        EXPECT_EQ(table.files[i].df_id, i == 0 ? known : 0U);
    }
}

// --- typedefs -----------------------------------------------------------------------------------------------------------

class die_typedefs : public debug_unit {};

TEST_F(die_typedefs, name_their_type)
{
    EXPECT_EQ(entries("\"3\n[v word word `i 1 t 2 ]\n"),
              "  #2 " + INT + "  #3 typedef name=word file=1 line=3 type=#2\n");
}

TEST_F(die_typedefs, of_void_have_no_type)
{
    EXPECT_EQ(entries("[v none none `v 1 t 0 ]\n"), "  #2 typedef name=none file=1 line=1\n");
    std::string text;
    EXPECT_EQ(errors_of([&] { text = entries("[v none none `Gv 1 t 0 ]\n"); }), "Unknown qualifier G\n");
    EXPECT_EQ(text, "  #2 typedef name=none file=1 line=1\n") << "the letter said nothing";
}

TEST_F(die_typedefs, that_lead_to_no_type_are_left_out)
{
    EXPECT_EQ(entries("[v a a `zz 1 t 0 ]\n[v b b `[2]v 1 t 0 ]\n[v c c `Nv 1 t 0 ]\n[v d d `v 1 t 0 ]\n"),
              "  #2 typedef name=d file=1 line=1\n");
}

TEST_F(die_typedefs, inside_of_functions_wait_for_their_types)
{
    EXPECT_EQ(entries("[v _f _f `(v 1 e 0 0 ]\n{\n[v word word `i 1 t 2 ]\n}\n0\n"),
              "  #2 subprogram name=_f external=1 file=1 line=1 low=0x100 high=0x10f inline=0\n"
              "    #3 typedef name=word file=1 line=1 type=#4\n"
              "  #4 " +
                  INT);
}

// --- variables ----------------------------------------------------------------------------------------------------------

TEST_F(die_variables, are_told_by_their_second_names_and_classes)
{
    EXPECT_EQ(entries("\"2\n[v _a a_alias `i 1 e 2 @16 ]\n[v _b b_alias `i 1 s 2 @17 ]\n"),
              "  #2 " + INT +
                  "  #3 variable name=a_alias file=1 line=2 type=#2 external=1 location=<0310000000>\n"
                  "  #4 variable name=b_alias file=1 line=2 type=#2 location=<0311000000>\n");
    EXPECT_EQ(public_names(), names{"a_alias"});
}

TEST_F(die_variables, of_class_global_are_not_public)
{
    sdb_node *module = module_of("[v _a a `i 1 e 2 @16 ]\n");
    member(module, "_a")->sdb_sclass = sc_global;
    EXPECT_EQ(entries_of(module), "  #2 " + INT + "  #3 variable name=a file=1 line=1 type=#2 location=<0310000000>\n");
    EXPECT_EQ(public_names(), names{});
}

TEST_F(die_variables, of_dimension_0_are_declarations)
{
    EXPECT_EQ(entries("[v _a a `i 0 e 2 @16 ]\n[v _b b `i 0 s 2 @16 ]\n"),
              "  #2 " + INT +
                  "  #3 variable name=a file=1 line=1 type=#2 external=1 declaration=1\n"
                  "  #4 variable name=b file=1 line=1 type=#2 declaration=1\n");
    EXPECT_EQ(public_names(), names{"a"});
}

TEST_F(die_variables, of_function_types_have_no_entry)
{
    EXPECT_EQ(entries("[v _f f `(i 1 e 2 @16 ]\n[v _g g `C(i 1 e 2 @16 ]\n"), "");
    EXPECT_EQ(public_names(), names{});
}

TEST_F(die_variables, without_a_type_are_reported_and_the_walk_goes_on)
{
    std::string text;
    EXPECT_EQ(
        errors_of([&] { text = entries("[v _a a `v 1 s 2 @16 ]\n[v _b b `zz 1 s 2 @16 ]\n[v _c c `i 1 s 2 @16 ]\n"); }),
        no_type("_a") + no_type("_b"));
    EXPECT_EQ(text, "  #2 " + INT + "  #3 variable name=c file=1 line=1 type=#2 location=<0310000000>\n");
}

TEST_F(die_variables, of_void_inside_of_a_function_lead_nowhere)
{
    EXPECT_EQ(entries("[v _f _f `(v 1 e 0 0 ]\n{\n[v a a `v 1 a 2 4 ]\n}\n0\n"),
              "  #2 subprogram name=_f external=1 file=1 line=1 low=0x100 high=0x10f inline=0\n"
              "    #3 variable name=a file=1 line=1 type=0 location=<9104>\n");
}

TEST_F(die_variables, with_several_locations_have_a_list)
{
    sdb_node *module = module_of("[v _a a `i 1 s 2 @16 ]\n");
    sdb_node *variable = member(module, "_a");
    sdb_location *first = variable->var.va_locations.get(0);
    first->lo_low = 0x100;
    first->lo_high = 0x10F;
    variable->var.va_locations.push(
        xnew(sdb_location{.lo_low = 0x110, .lo_high = 0x11F, .lo_kind = LO_REGISTER, .lo_value = 3}));
    const std::string text = entries_of(module);
    const auto list = text.find("location=") + 9;
    EXPECT_EQ(text.substr(0, list), "  #2 " + INT + "  #3 variable name=a file=1 line=1 type=#2 location=");
    EXPECT_EQ(hex(loc_), "ffffffff00000000"
                         "00010000100100000500"
                         "0310000000"
                         "10010000200100000100"
                         "53"
                         "0000000000000000");
}

TEST_F(die_variables, of_inlined_functions_have_no_locations)
{
    sdb_node *module = module_of("[v _f _f `(v 1 e 0 0 ]\n{\n[v p p `i 1 p 2 4 ]\n[v a a `i 1 a 2 6 ]\n}\n0\n");
    give_ranges(module);
    sdb_node *function = member(module, sc_func);
    member(function, "p")->var.va_inline = 1;
    member(function, "a")->var.va_inline = 1;
    EXPECT_EQ(entries_of(module), "  #2 subprogram name=_f external=1 file=1 line=1 low=0x100 high=0x10f inline=0\n"
                                  "    #3 param name=p file=1 line=1 type=#5\n"
                                  "    #4 variable name=a file=1 line=1 type=#5\n"
                                  "  #5 " +
                                      INT);
}

TEST_F(die_variables, that_are_parameters_need_no_dimension)
{
    const survived_errors errors;
    sdb_node *module = module_of("[v _f _f `(v 1 e 0 0 ]\n{\n[v p p `i 0 p 2 4 ]\n}\n0\n");
    give_ranges(module);
    gAssertMode = ASSERT_ERROR;
    EXPECT_EQ(entries_of(module), "  #2 subprogram name=_f external=1 file=1 line=1 low=0x100 high=0x10f inline=0\n"
                                  "    #3 param name=p file=1 line=1 type=#4 location=<9104>\n"
                                  "  #4 " +
                                      INT);
    EXPECT_EQ(errors.failed(), std::vector<std::string>{"0 != pp->sdb_var.va_dim"});
}

TEST_F(die_variables, in_registers)
{
    EXPECT_EQ(entries("[v _f _f `(v 1 e 0 0 ]\n{\n[v r r `i 1 r 2 ptra ]\n}\n0\n"),
              "  #2 subprogram name=_f external=1 file=1 line=1 low=0x100 high=0x10f inline=0\n"
              "    #3 variable name=r file=1 line=1 type=#4 location=<5d>\n" // DW_OP_reg0 + 13
              "  #4 " +
                  INT);
}

TEST_F(die_variables, that_are_bits_have_byte_addresses)
{
    sdb_node *module = module_of("[v _a a `b 1 s 1 @259 ]\n[v _b b `Vb 1 s 1 @259 ]\n[v _c c `[8]b 1 s 1 @259 ]\n"
                                 "[v _d d `b 0 s 1 @259 ]\n");
    const std::string bit3 = "base name=bit size=1 encoding=7 bit_size=1 bit_offset=3\n";
    const std::string bit0 = "base name=bit size=1 encoding=7 bit_size=1 bit_offset=0\n";
    EXPECT_EQ(entries_of(module), "  #2 " + bit3 +
                                      "  #3 variable name=a file=1 line=1 type=#2 location=<0320000000>\n"
                                      "  #4 volatile type=#2\n"
                                      "  #5 variable name=b file=1 line=1 type=#4 location=<0320000000>\n"
                                      "  #6 " +
                                      bit0 +
                                      "  #7 array type=#6\n"
                                      "    #8 subrange upper=7\n"
                                      "  #9 variable name=c file=1 line=1 type=#7 location=<0303010000>\n"
                                      "  #10 variable name=d file=1 line=1 type=#2 declaration=1\n");
    EXPECT_EQ(location(member(module, "_a"))->lo_value, 0x20U) << "the node itself is changed";
    EXPECT_EQ(location(member(module, "_d"))->lo_value, 0x20U) << "of a declaration, too";
}

TEST_F(die_variables, that_are_bits_in_registers_stay_as_they_are)
{
    sdb_node *module = module_of("[v _f _f `(v 1 e 0 0 ]\n{\n[v a a `b 1 r 1 ptra ]\n}\n0\n");
    give_ranges(module);
    entries_of(module);
    EXPECT_EQ(location(member(member(module, sc_func), "a"))->lo_value, 13U);
}

// --- stack offsets ------------------------------------------------------------------------------------------------------

class die_stack_offsets : public debug_unit {
protected:
    // The locations of the entries, in order.
    static std::string locations(const std::string &text)
    {
        std::string found;
        for (std::size_t at = 0; (at = text.find("location=", at)) != std::string::npos; ++at) {
            found += text.substr(at + 9, text.find('\n', at) - at - 9);
        }
        return found;
    }
    static constexpr const char *BODY = "{\n[v p p `i 1 p 2 10 ]\n{\n[v a a `i 1 a 2 4 ]\n}\n2\n}\n8\n";
};

TEST_F(die_stack_offsets, of_reentrant_functions_are_taken_to_the_frame_of_the_function)
{
    // The function's frame has 8 bytes, the block's 2: 10 - 8 = 2, and 4 - 2 - 8 = -6.
    sdb_node *module = module_of(std::string("[d frameptr 0x20 ]\n[v _f f `R(v 1 e 0 0 ]\n") + BODY);
    give_ranges(module);
    const std::string text = entries_of(module);
    EXPECT_EQ(locations(text), "<9102><917a>");
    // A frame base is a fixed address.
    EXPECT_NE(text.find(" low=0x100 high=0x10f frame=<0320000000> inline=0\n"), std::string::npos) << text;
}

TEST_F(die_stack_offsets, of_other_functions_stay)
{
    EXPECT_EQ(locations(entries(std::string("[v _f f `(v 1 e 0 0 ]\n") + BODY)), "<910a><9104>");
}

TEST_F(die_stack_offsets, are_taken_twice_where_a_function_is_written_twice)
{
    sdb_node *module = module_of(std::string("[d frameptr 0x20 ]\n[v _f f `R(v 1 e 0 0 ]\n") + BODY);
    sdb_node *function = member(module, sc_func);
    add_range(&function->block, 0x100, 0x10F);
    add_range(&function->block, 0x200, 0x20F);
    EXPECT_EQ(locations(entries_of(module)), "<9102><917a><917a><9170>"); // 2 - 8 = -6, -6 - 10 = -16
}

TEST_F(die_stack_offsets, of_statics_and_addresses_stay)
{
    const std::string text = entries("[d frameptr 0x20 ]\n[v _f f `R(v 1 e 0 0 ]\n{\n[v s s `i 1 s 2 @16 ]\n}\n8\n");
    EXPECT_EQ(locations(text), "<0310000000>");
}

TEST_F(die_stack_offsets, outside_of_all_functions_count_the_blocks)
{
    // A block of the module, which no source file has, with a variable at offset 4.
    sdb_node *module = module_of("{\n}\n3\n");
    sdb_node *block = member(module, sc_block);
    sdb_node *variable = sdb_new_node(sc_auto, "a");
    variable->sdb_parent = block;
    variable->var.va_alias = "a";
    variable->var.va_dim = 1;
    variable->var.va_type = sdb_parse_type("i");
    variable->var.va_locations = vector_of<sdb_location *>::make();
    variable->var.va_locations.push(xnew(sdb_location{.lo_kind = LO_OFFSET, .lo_value = 4}));
    sdb_add_member(block, variable);
    EXPECT_EQ(locations(entries_of(module)), "<9101>");
}

// The sum by its definition: from the node's parent upwards.
std::uint32_t plain_offset(const sdb_node *variable)
{
    std::uint32_t sum = 0;
    for (const sdb_node *node = variable->sdb_parent; node != nullptr; node = node->sdb_parent) {
        if (node->sdb_sclass == sc_block) {
            sum += node->block.bl_frame[0];
        } else if (node->sdb_sclass == sc_func) {
            return sdb_is_reentrant(node->block.bl_func) ? sum + node->block.bl_frame[0] : 0;
        } else {
            break;
        }
    }
    return sum;
}

TEST_F(die_stack_offsets, among_many_are_as_their_definition_has_them)
{
    random_numbers random(5);
    const std::string head =
        "[d frameptr 0x20 ]\n[v _f f `R(v 1 e 0 0 ]\n{\n}\n4\n[v _g g `(v 1 e 0 0 ]\n{\n}\n4\n{\n}\n5\n";
    sdb_node *module = module_of(head);
    give_ranges(module);
    std::vector<sdb_node *> blocks = {member(module, sc_func, 1), member(module, sc_func, 2), member(module, sc_block)};
    std::vector<sdb_node *> autos;
    std::vector<std::uint32_t> expected;
    for (int i = 0; i < 400; ++i) {
        sdb_node *parent = blocks[random() % blocks.size()];
        const bool is_block = random() % 2 == 0;
        sdb_node *node = sdb_new_node(is_block ? sc_block : sc_auto, "n");
        // Now and then a node does not know the block that it stands in.
        node->sdb_parent = random() % 8 == 0 ? blocks[random() % blocks.size()] : parent;
        sdb_add_member(parent, node);
        if (is_block) {
            node->block.bl_frame[0] = random() % 10;
            blocks.push_back(node);
            continue;
        }
        node->var.va_alias = "a";
        node->var.va_dim = 1;
        node->var.va_type = sdb_parse_type("i");
        node->var.va_locations = vector_of<sdb_location *>::make();
        node->var.va_locations.push(xnew(sdb_location{.lo_kind = LO_OFFSET, .lo_value = 1000}));
        autos.push_back(node);
        expected.push_back(1000 - plain_offset(node));
    }
    entries_of(module);
    for (std::size_t i = 0; i < autos.size(); ++i) {
        ASSERT_EQ(location(autos[i])->lo_value, expected[i]) << i;
    }
}

} // namespace

// SPDX-License-Identifier: MIT
// The walk over a module: units, functions, blocks, variables and typedefs, and the unit's line program.
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/alloc.h"
#include "common/stringcache.h"
#include "compiler/tarnwick/complete.h"
#include "compiler/tarnwick/dwarf_lines.h"
#include "tests/unit/tarnwick/dwarf_tree.h"
#include "tests/unit/tarnwick/fresh_model.h"
#include "tests/unit/tarnwick/random_numbers.h"

namespace {

std::string no_type(const std::string &name)
{
    return "(1293) couldn't find type for \"" + name + "\" in DWARF debugging information entry (warning)\n";
}

const std::string INT = "base name=int size=2 encoding=5\n";

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

class die_variables : public debug_unit {
protected:
    using names = std::vector<std::string>;

    // The names that .debug_pubnames has, and for each the entry that it leads to, checked by its name.
    names public_names() const
    {
        names found;
        if (pubnames_.empty()) {
            return found;
        }
        section_cursor in(pubnames_);
        EXPECT_EQ(in.number(4), pubnames_.size() - 4);
        EXPECT_EQ(in.number(2), version_);
        EXPECT_EQ(in.number(4), info_start_);
        EXPECT_EQ(in.number(4), info_.size()) << "the unit with its length field";
        while (const std::uint64_t offset = in.number(4)) {
            found.push_back(in.text());
            const std::string entry = hex({info_.begin() + static_cast<std::ptrdiff_t>(offset), info_.end()});
            const std::string name = hex(text_bytes(found.back().c_str()));
            // The name stands behind the number of the abbreviation, and the sibling if there is one.
            EXPECT_TRUE(entry.substr(2, name.size()) == name || entry.substr(10, name.size()) == name) << found.back();
        }
        EXPECT_TRUE(in.at_end());
        return found;
    }
};

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

// --- functions and blocks -----------------------------------------------------------------------------------------------

class die_functions : public die_variables {
protected:
    // The ranges of .debug_aranges as text.
    std::string address_ranges() const
    {
        section_cursor in(aranges_);
        EXPECT_EQ(in.number(4), aranges_.size() - 4);
        in.at = (aranges_.size() - 8) % 8 == 0 ? 16 : 12; // the padding depends on the place in the section
        std::string text;
        for (;;) {
            const std::uint64_t start = in.number(4);
            const std::uint64_t length = in.number(4);
            if (start == 0 && length == 0) {
                break;
            }
            text += "[" + std::to_string(start) + "+" + std::to_string(length) + "]";
        }
        EXPECT_TRUE(in.at_end());
        return text;
    }
};

TEST_F(die_functions, are_subprograms)
{
    EXPECT_EQ(entries("\"4\n[v _f f_alias `(i 1 e 0 0 ]\n{\n}\n0\n\"9\n[v _g g_alias `(v 1 s 0 0 ]\n{\n[v a a `i 1 a 2 "
                      "4 ]\n}\n0\n"),
              "  #2 subprogram name=f_alias type=#3 external=1 file=1 line=4 low=0x100 high=0x10f inline=0\n"
              "  #3 " +
                  INT +
                  "  #4 subprogram name=g_alias file=1 line=9 low=0x200 high=0x20f inline=0\n"
                  "    #5 variable name=a file=1 line=9 type=#3 location=<9104>\n");
    EXPECT_EQ(public_names(), names{"f_alias"});
    EXPECT_EQ(address_ranges(), "[256+16][512+16]");
}

TEST_F(die_functions, of_qualified_types_are_shown_to_return_themselves)
{
    EXPECT_EQ(entries("[v _f f `C(i 1 e 0 0 ]\n{\n}\n0\n"),
              "  #2 subprogram name=f type=#4 external=1 file=1 line=1 low=0x100 high=0x10f inline=0\n"
              "  #3 " +
                  INT + "  #4 function type=#3\n");
}

TEST_F(die_functions, of_a_qualifier_without_a_letter_return_what_they_return)
{
    std::string text;
    EXPECT_EQ(errors_of([&] { text = entries("[v _f f `G(i 1 e 0 0 ]\n{\n}\n0\n"); }), "Unknown qualifier G\n");
    EXPECT_EQ(text,
              "  #2 subprogram name=f type=#3 external=1 file=1 line=1 low=0x100 high=0x10f inline=0\n  #3 " + INT);
}

TEST_F(die_functions, in_two_ranges_are_written_twice_without_range_lists)
{
    sdb_node *module = module_of("[v _f f `(i 1 e 0 0 ]\n{\n[v a a `l 1 a 2 4 ]\n[v _b b `b 1 s 1 @259 ]\n}\n0\n");
    sdb_node *function = member(module, sc_func);
    add_range(&function->block, 0x100, 0x10F);
    add_range(&function->block, 0x200, 0x207);
    EXPECT_EQ(entries_of(module),
              "  #2 subprogram name=f type=#8 external=1 file=1 line=1 low=0x100 high=0x10f inline=0\n"
              "    #3 variable name=a file=1 line=1 type=#9 location=<9104>\n"
              "    #4 variable name=b file=1 line=1 type=#10 location=<0320000000>\n"
              "  #5 subprogram name=f type=#8 external=1 file=1 line=1 low=0x200 high=0x207 inline=0\n"
              "    #6 variable name=a file=1 line=1 type=#9 location=<9104>\n"
              "    #7 variable name=b file=1 line=1 type=#10 location=<0304000000>\n"
              "  #8 " +
                  INT +
                  "  #9 base name=long int size=4 encoding=5\n"
                  "  #10 base name=bit size=1 encoding=7 bit_size=1 bit_offset=3\n")
        << "the types come behind both; the bit's address was divided twice";
    EXPECT_EQ(public_names(), (names{"f", "f"}));
    EXPECT_EQ(address_ranges(), "[256+16][512+8]");
}

TEST_F(die_functions, in_two_ranges_are_written_once_with_range_lists)
{
    dwarf_use_ranges = DWARF_USE_AUTO;
    sdb_node *module = module_of("[v _f f `(v 1 e 0 0 ]\n{\n}\n0\n");
    sdb_node *function = member(module, sc_func);
    add_range(&function->block, 0x100, 0x10F);
    add_range(&function->block, 0x200, 0x207);
    const std::string text = entries_of(module);
    EXPECT_EQ(text.substr(0, text.find("ranges=")), "  #2 subprogram name=f external=1 file=1 line=1 ");
    EXPECT_EQ(text.substr(text.find(" inline")), " inline=0\n");
    EXPECT_EQ(public_names(), names{"f"});
    EXPECT_EQ(address_ranges(), "[256+16][512+8]");
}

TEST_F(die_functions, without_ranges_are_not_written_without_range_lists)
{
    sdb_node *module = module_of("[v _f f `(v 1 e 0 0 ]\n{\n}\n0\n");
    EXPECT_EQ(entries_of(module), "");
    EXPECT_EQ(address_ranges(), "");
}

TEST_F(die_functions, that_are_inlined_tell_how)
{
    dwarf_use_ranges = DWARF_USE_AUTO;
    const auto entry = [this](const char *type) {
        sdb_node *module = module_of(std::string("[v _f f ") + type + " 1 s 0 0 ]\n{\n}\n0\n");
        member(module, "_f")->var.va_inline = 4;
        return entries_of(module);
    };
    EXPECT_EQ(entry("`(v"), "  #2 subprogram name=f file=1 line=1 inline=1\n");
    EXPECT_EQ(entry("`T(v"), "  #2 subprogram name=f type=#3 file=1 line=1 inline=3\n  #3 function\n");
}

TEST_F(die_functions, without_a_function_are_not_written)
{
    sdb_node *module = module_of("[v _f f `(v 1 e 0 0 ]\n{\n[v a a `i 1 a 2 4 ]\n}\n0\n[v _x x `i 1 s 2 @16 ]\n");
    give_ranges(module);
    member(module, sc_func)->block.bl_func = nullptr;
    EXPECT_EQ(entries_of(module), "  #2 " + INT + "  #3 variable name=x file=1 line=1 type=#2 location=<0310000000>\n");
}

TEST_F(die_functions, have_blocks)
{
    sdb_node *module = module_of("[v _f f `(v 1 e 0 0 ]\n{\n{\n{\n}\n}\n{\n[v a a `i 1 a 2 4 ]\n}\n}\n0\n");
    give_ranges(module);
    sdb_node *function = member(module, sc_func);
    sdb_node *first = member(function, sc_block, 1);
    sdb_node *second = member(function, sc_block, 2);
    add_range(&first->block, 0x102, 0x103);
    add_range(&member(first, sc_block)->block, 0x103, 0x103);
    second->block.bl_inline = 3;
    EXPECT_EQ(entries_of(module), "  #2 subprogram name=f external=1 file=1 line=1 low=0x100 high=0x10f inline=0\n"
                                  "    #3 block low=0x102 high=0x103\n"
                                  "      #4 block low=0x103 high=0x103\n"
                                  "    #5 block\n"
                                  "      #6 variable name=a file=1 line=1 type=#7 location=<9104>\n"
                                  "  #7 " +
                                      INT);
}

TEST_F(die_functions, have_blocks_with_ranges_by_the_mode)
{
    dwarf_use_ranges = DWARF_USE_ALWAYS;
    sdb_node *module = module_of("[v _f f `(v 1 e 0 0 ]\n{\n{\n}\n}\n0\n");
    give_ranges(module);
    add_range(&member(member(module, sc_func), sc_block)->block, 0x102, 0x103);
    const std::string text = entries_of(module);
    EXPECT_NE(text.find("    #3 block ranges="), std::string::npos) << text;
    EXPECT_EQ(hex(ranges_), "ffffffff00000000" // of the function
                            "0001000010010000"
                            "0000000000000000"
                            "ffffffff00000000" // of the block
                            "0201000004010000"
                            "0000000000000000");
}

TEST_F(die_functions, check_the_order_of_their_blocks_lines)
{
    fresh_model();
    const std::uint32_t file = tarn_add_file("/p/a.c");
    for (const auto &[line, address] : {std::pair{1U, 0x20U}, {2U, 0x10U}, {3U, 0x30U}}) {
        tarn_add_line({.ln_file = file, .ln_addr = address, .ln_line = line});
    }
    distribute_by_file(0);
    sdb_node *module = module_of("[v _f f `(v 1 e 0 0 ]\n{\n{\n}\n}\n0\n");
    give_ranges(module);
    sdb_node *block = member(member(module, sc_func), sc_block);
    add_range(&block->block, 0x10, 0x2F);
    block->block.bl_file = "/p/a.c";
    block->block.bl_first = 1;
    block->block.bl_last = 2;
    const survived_errors errors;
    gAssertMode = ASSERT_ERROR;
    entries_of(module);
    EXPECT_EQ(errors.failed(), std::vector<std::string>{"end_addr >= start_addr"});
    trace_log::failed().clear();
    dwarf_use_ranges = DWARF_USE_AUTO;
    entries_of(module);
    EXPECT_EQ(errors.failed(), std::vector<std::string>{}) << "with range lists nobody asks";
    dwarf_use_ranges = DWARF_USE_NEVER;
    block->block.bl_inline = 1;
    entries_of(module);
    EXPECT_EQ(errors.failed(), std::vector<std::string>{}) << "a block without code has no order";
}

TEST_F(die_functions, may_have_very_deep_blocks)
{
    constexpr std::uint32_t DEPTH = 100000;
    sdb_node *module = module_of("[d frameptr 0x20 ]\n[v _f f `R(v 1 e 0 0 ]\n{\n}\n1\n");
    give_ranges(module);
    sdb_node *inner = member(module, sc_func);
    for (std::uint32_t i = 0; i < DEPTH; ++i) {
        sdb_node *block = sdb_new_node(sc_block, nullptr);
        block->sdb_parent = inner;
        block->block.bl_inline = 1;
        block->block.bl_frame[0] = 1;
        sdb_add_member(inner, block);
        sdb_node *variable = sdb_new_node(sc_auto, "a");
        variable->sdb_parent = block;
        variable->var.va_alias = "a";
        variable->var.va_dim = 1;
        variable->var.va_type = sdb_parse_type("i");
        variable->var.va_locations = vector_of<sdb_location *>::make();
        variable->var.va_locations.push(xnew(sdb_location{.lo_kind = LO_OFFSET, .lo_value = 0}));
        sdb_add_member(block, variable);
        inner = block;
    }
    debug_sections sections;
    add_global_types();
    EXPECT_EQ(die_compile_unit(module, 4), 1);
    sections.finish();
    EXPECT_EQ(location(member(inner, "a"))->lo_value,
              static_cast<std::uint32_t>(-static_cast<std::int32_t>(DEPTH + 1)));
    // Every block has its number, sibling and end, and all siblings but the last lead into the row of ends.
    EXPECT_GT(sections.info.added().size(), DEPTH * 20U);
}

// --- limits -------------------------------------------------------------------------------------------------------------

TEST_F(die_functions, have_no_limit_of_files_and_lines_but_variables_have)
{
    std::string text;
    for (int i = 2; i <= 256; ++i) {
        text += "\"1 /p/f" + std::to_string(i) + ".h\n";
    }
    sdb_node *module = module_of(text + "\"70000\n[v _f f `(v 1 e 0 0 ]\n{\n}\n0\n[v _x x `i 1 s 2 @16 ]\n");
    give_ranges(module);
    const survived_errors errors;
    const std::string written = entries_of(module);
    EXPECT_EQ(errors.count(), 2U) << "1521 for the file, and for the line";
    EXPECT_EQ(written.substr(0, written.find(" low=")), "  #2 subprogram name=f external=1 file=256 line=70000");
}

TEST(declaration_limits, end_the_run)
{
    expect_run(
        [] {
            dwarf_access = &dwarf_byte_accessors;
            model_create();
            processor_name = "KOR18";
            write_file(testing::TempDir() + "tarnwick_limit.sdb",
                       "[p KORM ]\n\"1 /p/a.c\n\"70000\n[v _x x `i 1 s 2 @16 ]\n");
            sdb_node *module = sdb_read((testing::TempDir() + "tarnwick_limit.obj").c_str());
            const debug_sections sections;
            die_compile_unit(module, 4);
        },
        INTERNAL_ERROR_TEXT + "\n", 1);
    std::filesystem::remove(testing::TempDir() + "tarnwick_limit.sdb");
}

// --- lines --------------------------------------------------------------------------------------------------------------

class die_line_programs : public debug_unit {
protected:
    static void line(std::uint32_t file, std::uint32_t address, std::uint32_t number)
    {
        tarn_add_line({.ln_file = file, .ln_addr = address, .ln_line = number});
    }
    // The bytes behind the header and the tables, without the end of the sequence.
    std::string program_of(sdb_node *module)
    {
        text_of({module});
        const std::uint64_t header = number_at(lines_, 6, 4);
        const std::string all = hex({lines_.begin() + 10 + static_cast<std::ptrdiff_t>(header), lines_.end()});
        EXPECT_EQ(all.substr(all.size() - 10), "0201000101");
        return all.substr(0, all.size() - 10);
    }
};

TEST_F(die_line_programs, have_the_lines_of_the_units_files_by_address)
{
    const std::uint32_t a = tarn_add_file("/p/a.c");
    const std::uint32_t other = tarn_add_file("/p/z.c");
    const std::uint32_t b = tarn_add_file("/p/b.h");
    line(a, 0x14, 4);
    line(other, 0x11, 1);
    line(b, 0x12, 3);
    line(a, 0x10, 2);
    line(0, 0x13, 9); // of no file
    line(a, 0x14, 3);
    // Address 0x10: line 1 + 1 by special opcode 26. Then file 1, counted from 0, and 1 line and 2 units on: 66. Back to
    // file 0, 2 units on and the same line: 65. A line on at the same address: 26.
    EXPECT_EQ(program_of(module_of("\"1 /p/b.h\n")), "0005021000000"
                                                     "01a"
                                                     "0401"
                                                     "42"
                                                     "0400"
                                                     "41"
                                                     "1a");
}

TEST_F(die_line_programs, take_the_minimum_of_the_machine)
{
    const std::uint32_t a = tarn_add_file("/p/a.c");
    line(a, 0x10, 2);
    line(a, 0x14, 3);
    sdb_node *module = read("\"1 /p/a.c\n", "[p AVOCET LARGE_DATA ]\n");
    ASSERT_EQ(machine, &machkorh);
    EXPECT_EQ(program_of(module), "0005021000000"
                                  "01a"
                                  "42")
        << "4 bytes are 2 units";
    EXPECT_EQ(lines_[10], 2);
}

TEST_F(die_line_programs, start_again_as_long_as_the_address_is_0)
{
    const std::uint32_t a = tarn_add_file("/p/a.c");
    line(a, 0, 2);
    line(a, 0, 3);
    line(a, 4, 4);
    line(a, 6, 5);
    EXPECT_EQ(program_of(module_of("")), "000502000000001a"
                                         "000502000000001a"
                                         "000502040000001a"
                                         "42");
}

TEST_F(die_line_programs, without_lines_are_empty)
{
    tarn_add_file("/p/a.c");
    EXPECT_EQ(program_of(module_of("")), "");
}

TEST_F(die_line_programs, of_a_file_of_two_units_are_in_both)
{
    const std::uint32_t a = tarn_add_file("/p/a.c");
    line(a, 0x10, 2);
    sdb_node *first = module_of("");
    sdb_node *second = module_of("");
    lnno_start_run();
    const std::string one = program_of(first);
    EXPECT_EQ(one, "0005021000000"
                   "01a");
    EXPECT_EQ(program_of(second), one);
    lnno_finish_run();
}

int line_order(const tarn_line *left, const tarn_line *right)
{
    const auto order = [](std::uint32_t l, std::uint32_t r) { return l < r ? -1 : static_cast<int>(l > r); };
    const int by_address = order(left->ln_addr, right->ln_addr);
    const int by_line = order(left->ln_line, right->ln_line);
    return by_address != 0 ? by_address : by_line != 0 ? by_line : order(left->ln_file, right->ln_file);
}

// The rows by their definition: all lines of the model in order for each unit, searching the table from its end.
std::string plain_rows(const dwarf_file_table &table)
{
    auto lines = vector_of<tarn_line *>(line_list).copy();
    lines.sort<line_order>();
    line_unit_info *unit = dwarf_line_start_compile_unit_information(2, 1);
    dwarf_line_start_include_directories_record();
    dwarf_line_finish_include_directories_record();
    dwarf_line_start_file_names_record();
    dwarf_line_finish_file_names_record();
    dwarf_line_start_statement_program(unit);
    const section_mark mark(dwarf_line_finalize);
    std::uint32_t file_id = 0xFFFFFFFF;
    int index = -1;
    int last_index = 0;
    std::uint32_t last_addr = 0;
    std::uint32_t last_line = 1;
    for (const tarn_line *lp : each(lines)) {
        if (lp->ln_file != file_id) {
            file_id = lp->ln_file;
            index = static_cast<int>(table.files.size()) - 1;
            while (index >= 0 && table.files[static_cast<std::size_t>(index)].df_id != file_id) {
                --index;
            }
        }
        if (index < 0) {
            continue;
        }
        if (index != last_index) {
            dwarf_line_set_file(static_cast<std::uint32_t>(index));
        }
        const auto line_delta = static_cast<std::int32_t>(lp->ln_line - last_line);
        if (last_addr == 0) {
            dwarf_line_start_sequence(unit, line_delta, lp->ln_addr - last_addr);
        } else {
            dwarf_line_advance_line_and_pc(unit, line_delta, lp->ln_addr - last_addr);
        }
        last_addr = lp->ln_addr;
        last_line = lp->ln_line;
        last_index = index;
    }
    dwarf_line_end_sequence(unit);
    const std::string rows = hex(mark.added());
    dwarf_line_finish_statement_program();
    dwarf_line_finish_compile_unit_information(unit);
    lines.free();
    return rows;
}

TEST_F(die_line_programs, among_many_are_as_their_definition_has_them)
{
    choose(machkor);
    const debug_sections sections; // opens the section of lines
    random_numbers random(3);
    for (int round = 0; round < 40; ++round) {
        fresh_model();
        constexpr std::uint32_t FILES = 8;
        for (std::uint32_t i = 0; i < FILES; ++i) {
            tarn_add_file(str_printf("/p/f%u.c", i));
        }
        for (std::uint32_t i = random() % 200; i > 0; --i) {
            line(random() % (FILES + 1), random() % 50, random() % 20); // file 0 is none
        }
        if (round % 2 == 0) {
            lnno_start_run();
        }
        for (int unit = 0; unit < 5; ++unit) {
            dwarf_file_table table;
            for (std::uint32_t i = random() % 5; i > 0; --i) {
                // Some names are unknown to the model, and some differ in case only, which is one file of it.
                const char *format = random() % 4 == 0 ? "/p/F%u.c" : "/p/f%u.c";
                dwarf_file_number(&table, str_printf(format, random() % (FILES + 2)));
            }
            const section_mark mark(dwarf_line_finalize);
            EXPECT_EQ(lnno_compile_unit(table), mark.start());
            const bytes written = mark.added();
            const auto header = static_cast<std::ptrdiff_t>(number_at(written, 6, 4));
            ASSERT_EQ(hex({written.begin() + 10 + header, written.end()}), plain_rows(table));
        }
        lnno_finish_run();
    }
}

} // namespace

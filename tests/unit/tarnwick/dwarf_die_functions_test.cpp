// SPDX-License-Identifier: MIT
// The walk over a module: functions and their blocks, and the unit's line program.
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/alloc.h"
#include "compiler/tarnwick/complete.h"
#include "compiler/tarnwick/dwarf_lines.h"
#include "tests/unit/scenario.h"
#include "tests/unit/tarnwick/dwarf_die_testing.h"
#include "tests/unit/tarnwick/fresh_model.h"
#include "tests/unit/tarnwick/random_numbers.h"

namespace {

using namespace dwarf_die_testing;

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

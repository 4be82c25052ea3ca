// SPDX-License-Identifier: MIT
// Address ranges of modules, functions and blocks.
#include <string>
#include <vector>

#include "compiler/common/lists.h"
#include "tests/unit/tarnwick/random_numbers.h"
#include "tests/unit/tarnwick/sdb_ranges_testing.h"

namespace {

// A psect of the map file's store, of bytes.
void add_psect(const char *name, std::uint32_t link, std::uint32_t length, std::uint32_t delta = 1)
{
    tmf_psect psect;
    psect.tmfps_obj = "main.obj";
    psect.tmfps_name = name;
    psect.tmfps_class = "CODE";
    psect.tmfps_link = link;
    psect.tmfps_load = link;
    psect.tmfps_length = length;
    psect.tmfps_delta = delta;
    psect.tmfps_reloc = 1;
    tmf_add_psect(psect);
}

void add_label(const char *name, std::uint32_t value, const char *psect)
{
    tmf_symbol symbol;
    symbol.tmfsy_name = name;
    symbol.tmfsy_value = value;
    symbol.tmfsy_class = "CODE";
    symbol.tmfsy_psect = psect;
    symbol.tmfsy_file = "main.obj";
    tmf_add_symbol(symbol);
}

} // namespace

// ---- Range lists

TEST_F(code_ranges, are_added_at_the_tail)
{
    sdb_node *block = sdb_new_node(sc_block, nullptr);
    const trace_log log;
    add_range(&block->block, 0x20, 0x2F);
    add_range(&block->block, 0x10, 0x10);
    add_range(&block->block, 0x20, 0x2F);
    EXPECT_EQ(ranges_of(block), (bounds_list{{0x20, 0x2F}, {0x10, 0x10}, {0x20, 0x2F}}));
    EXPECT_EQ(block->block.bl_nranges, 3U);
    EXPECT_TRUE(trace_log::failed().empty());
}

TEST_F(code_ranges, upside_down_fail_two_assertions)
{
    sdb_node *block = sdb_new_node(sc_block, nullptr);
    const trace_log log;
    add_range(&block->block, 2, 1);
    EXPECT_EQ(trace_log::failed(), (log_lines{"!(lo > hi)", "!(hi < lo)"}));
    EXPECT_EQ(ranges_of(block), (bounds_list{{2, 1}}));
    EXPECT_EQ(block->block.bl_nranges, 1U);
}

// ---- Functions and modules

TEST_F(code_ranges, need_a_tree)
{
    sdb_global = nullptr;
    traced();
    EXPECT_EQ(all, (log_lines{"ENTER sdb_calc_ranges", "EXIT sdb_calc_ranges"}));
}

TEST_F(code_ranges, of_a_function_come_from_the_map_file)
{
    add_psect("text", 0x100, 0x80);
    add_label("_f", 0x110, "text");
    add_label("__end_of_f", 0x120, "text");
    sdb_node *function = add_function(module, "_f", 1, 9, {});
    traced();
    EXPECT_EQ(ranges_of(function), (bounds_list{{0x110, 0x11F}}));
    EXPECT_EQ(function->block.bl_nranges, 1U);
    EXPECT_EQ(all, (log_lines{
                       "ENTER sdb_calc_ranges",
                       "ENTER calc_function_ranges",
                       "entry:_f",
                       "add_range: 110 - 11F",
                       "ENTER calc_block_ranges_r",
                       "EXIT calc_block_ranges_r",
                       "EXIT calc_function_ranges",
                       "Module Ranges: /src/main.c",
                       "    0x110-0x11F",
                       "EXIT sdb_calc_ranges",
                   }));
    EXPECT_TRUE(failed.empty());
}

TEST_F(code_ranges, of_a_split_function)
{
    add_psect("text", 0x100, 0x80);
    add_psect("split", 0x400, 0x80);
    tmf_add_split("text", "split");
    add_label("_f", 0x110, "text");
    add_label("__end_of_f", 0x420, "split");
    sdb_node *function = add_function(module, "_f", 1, 9, {});
    traced();
    EXPECT_EQ(ranges_of(function), (bounds_list{{0x110, 0x17F}, {0x400, 0x41F}}));
    EXPECT_EQ(ranges_of(module), (bounds_list{{0x110, 0x17F}, {0x400, 0x41F}}));
    EXPECT_EQ(lines, (log_lines{
                         "entry:_f",
                         "add_range: 110 - 17F",
                         "add_range: 400 - 41F",
                         "Module Ranges: /src/main.c",
                         "    0x110-0x17F",
                         "    0x400-0x41F",
                     }));
}

TEST_F(code_ranges, of_a_function_are_in_units)
{
    add_psect("text", 0x80, 0x40, 2);
    add_label("_f", 0x110, "text");
    add_label("__end_of_f", 0x120, "text");
    sdb_node *function = add_function(module, "_f", 1, 9, {});
    sdb_calc_ranges();
    EXPECT_EQ(ranges_of(function), (bounds_list{{0x88, 0x8F}}));
}

TEST_F(code_ranges, of_a_function_without_symbol_are_none)
{
    sdb_node *function = add_function(module, "_f", 1, 9, {});
    function->block.bl_func->sdb_name = "_other";
    sdb_node *variable = add_auto(function, {2, 3});
    traced();
    ASSERT_FALSE(failed.empty());
    EXPECT_EQ(failed[0], "funsym != NULL");
    EXPECT_EQ(function->block.bl_nranges, 0U);
    EXPECT_EQ(module->block.bl_nranges, 0U);
    EXPECT_TRUE(places_of(variable).empty());
}

TEST_F(code_ranges, of_a_function_without_end_label_are_none)
{
    add_psect("text", 0x100, 0x80);
    add_label("_f", 0x110, "text");
    sdb_node *function = add_function(module, "_f", 1, 9, {});
    traced();
    EXPECT_EQ(function->block.bl_ranges, nullptr);
    EXPECT_EQ(lines.front(), "entry:_f");
}

TEST_F(code_ranges, of_a_nameless_function_are_none)
{
    sdb_node *function = add_function(module, "_f", 1, 9, {});
    function->block.bl_func->sdb_name = nullptr;
    sdb_node *bodiless = add_block(module, 1, 2, sc_func); // of no function at all
    sdb_calc_ranges();
    EXPECT_EQ(function->block.bl_nranges, 0U);
    EXPECT_EQ(bodiless->block.bl_nranges, 0U);
}

TEST_F(code_ranges, of_a_module_are_the_sorted_union)
{
    add_function(module, "_f", 1, 9, {{0x300, 0x3FF}, {0x500, 0x510}});
    add_function(module, "_g", 10, 19, {{0x100, 0x1FF}});
    add_function(module, "_h", 20, 29, {{0x380, 0x48F}});
    add_function(module, "_i", 30, 39, {{0x200, 0x2FE}}); // touches _g: one range
    add_function(module, "_j", 40, 49, {{0x508, 0x50F}});
    traced();
    EXPECT_EQ(ranges_of(module), (bounds_list{{0x100, 0x2FE}, {0x300, 0x48F}, {0x500, 0x510}}));
    EXPECT_EQ(module->block.bl_nranges, 3U);
    EXPECT_EQ(lines_from("Module"), log_lines{});
    EXPECT_EQ((log_lines{lines.end() - 4, lines.end()}),
              (log_lines{"Module Ranges: /src/main.c", "    0x100-0x2FE", "    0x300-0x48F", "    0x500-0x510"}));
}

TEST_F(code_ranges, of_a_module_reach_the_last_address)
{
    add_function(module, "_f", 1, 9, {{0xFFFFFF00, 0xFFFFFFFF}});
    add_function(module, "_g", 10, 19, {{0, 0xFF}});
    add_function(module, "_h", 20, 29, {{0xFFFFFFFF, 0xFFFFFFFF}});
    sdb_calc_ranges();
    EXPECT_EQ(ranges_of(module), (bounds_list{{0, 0xFF}, {0xFFFFFF00, 0xFFFFFFFF}}));
}

TEST_F(code_ranges, of_a_module_without_functions_are_none)
{
    add(module, sc_static, "x");
    traced();
    EXPECT_EQ(module->block.bl_nranges, 0U);
    EXPECT_EQ(lines, log_lines{"Module Ranges: /src/main.c"});
}

TEST_F(code_ranges, are_counted_on_top_in_a_second_run)
{
    sdb_node *function = add_function(module, "_f", 1, 9, {{0x100, 0x1FF}, {0x300, 0x3FF}});
    sdb_node *block = add_block(function, 2, 3);
    add_lines({{1, 0x100}, {2, 0x110}, {3, 0x120}, {4, 0x130}});
    sdb_calc_ranges();
    EXPECT_EQ(ranges_of(block), (bounds_list{{0x110, 0x120}}));
    sdb_calc_ranges();
    EXPECT_EQ(ranges_of(module), (bounds_list{{0x100, 0x1FF}, {0x300, 0x3FF}}));
    EXPECT_EQ(module->block.bl_nranges, 4U);
    EXPECT_EQ(ranges_of(block), (bounds_list{{0x110, 0x120}})); // kept as they are
    EXPECT_EQ(block->block.bl_nranges, 1U);
}

TEST_F(code_ranges, are_not_for_assembly_modules)
{
    sdb_node *assembly = add(sdb_global, sc_asmodule, "start.as");
    add_function(assembly, "_f", 1, 9, {{0x100, 0x1FF}});
    add(sdb_global, sc_typedef, "i");
    traced();
    EXPECT_EQ(assembly->block.bl_nranges, 0U);
    EXPECT_EQ(lines, log_lines{"Module Ranges: /src/main.c"});
}

TEST_F(code_ranges, are_not_for_inlined_functions)
{
    add_psect("text", 0x100, 0x80);
    add_label("_f", 0x110, "text");
    add_label("__end_of_f", 0x120, "text");
    add_lines({{1, 0x110}, {5, 0x118}, {9, 0x11F}});
    sdb_node *function = add_function(module, "_f", 1, 9, {});
    function->block.bl_func->var.va_inline = 1;
    sdb_node *block = add_block(function, 2, 8);
    sdb_node *variable = add_auto(function, {1, 5});
    traced();
    EXPECT_EQ(function->block.bl_nranges, 0U);
    EXPECT_EQ(block->block.bl_nranges, 0U);
    EXPECT_EQ(places_of(variable), (place_list{{0, 0, 0}, {1, 0, 0}}));
    EXPECT_EQ(all, (log_lines{"ENTER sdb_calc_ranges", "Module Ranges: /src/main.c", "EXIT sdb_calc_ranges"}));
}

TEST_F(code_ranges, of_functions_inside_functions_are_none)
{
    sdb_node *function = add_function(module, "_f", 1, 9, {{0x100, 0x1FF}});
    sdb_node *inner = add_function(function, "_g", 2, 3, {});
    sdb_node *block = add_block(inner, 2, 3);
    add_lines({{1, 0x100}, {2, 0x110}, {3, 0x120}});
    sdb_calc_ranges();
    EXPECT_EQ(inner->block.bl_nranges, 0U);
    EXPECT_EQ(block->block.bl_nranges, 0U);
}

// ---- Blocks

TEST_F(block_ranges, all_in_one_range)
{
    sdb_node *block = add_block(function, 10, 20);
    traced();
    EXPECT_EQ(ranges_of(block), (bounds_list{{0x1000, 0x1010}}));
    EXPECT_EQ(block->block.bl_nranges, 1U);
    EXPECT_EQ(lines_from("first_addr"), (log_lines{
                                            "first_addr[0x1000] last_addr[0x1010][1]",
                                            "curr_range: 0x1000-0x10FF",
                                            "add all in start range: 0x1000-0x1010",
                                        }));
    EXPECT_TRUE(failed.empty());
}

TEST_F(block_ranges, all_in_a_later_range)
{
    sdb_node *block = add_block(function, 70, 90);
    sdb_calc_ranges();
    EXPECT_EQ(ranges_of(block), (bounds_list{{0x2000, 0x20FF}}));
}

TEST_F(block_ranges, over_all_ranges)
{
    sdb_node *block = add_block(function, 20, 80);
    traced();
    EXPECT_EQ(ranges_of(block), (bounds_list{{0x1010, 0x10FF}, {0x3000, 0x30FF}, {0x2000, 0x2020}}));
    EXPECT_EQ(block->block.bl_nranges, 3U);
    EXPECT_EQ(lines_from("first_addr"), (log_lines{
                                            "first_addr[0x1010] last_addr[0x2020][1]",
                                            "curr_range: 0x1000-0x10FF",
                                            "add start range: 0x1010-0x10FF",
                                            "curr_range: 0x3000-0x30FF",
                                            "add interemdiate range: 0x3000-0x30FF",
                                            "curr_range: 0x2000-0x20FF",
                                            "add last range: 0x2000-0x2020",
                                        }));
    EXPECT_TRUE(failed.empty());
}

TEST_F(block_ranges, between_lines_begin_and_end_at_the_next)
{
    sdb_node *block = add_block(function, 11, 42);
    traced();
    EXPECT_EQ(ranges_of(block), (bounds_list{{0x1010, 0x10FF}, {0x3000, 0x3020}}));
    EXPECT_EQ(lines_from("first_addr").front(), "first_addr[0x1010] last_addr[0x3020][-1]");
}

TEST_F(block_ranges, whose_last_line_has_no_code_run_through_all_ranges)
{
    sdb_node *block = add_block(function, 50, 93); // line 95 lies outside of the function
    traced();
    EXPECT_EQ(ranges_of(block), (bounds_list{{0x3020, 0x30FF}, {0x2000, 0x20FF}}));
    EXPECT_EQ(lines_from("first_addr"), (log_lines{
                                            "first_addr[0x3020] last_addr[0x0][0]",
                                            "curr_range: 0x3000-0x30FF",
                                            "add start range: 0x3020-0x30FF",
                                            "curr_range: 0x2000-0x20FF",
                                            "add interemdiate range: 0x2000-0x20FF",
                                        }));
    EXPECT_TRUE(failed.empty());
}

TEST_F(block_ranges, whose_end_lies_before_their_start_run_through_all_ranges)
{
    sdb_node *block = add_block(function, 70, 20);
    traced();
    EXPECT_EQ(ranges_of(block), (bounds_list{{0x2000, 0x20FF}}));
    EXPECT_EQ(failed, log_lines{"mr != NULL || find_line_address_retv == 0"});
}

TEST_F(block_ranges, that_contradict_themselves_within_a_range_are_upside_down)
{
    sdb_node *block = add_block(function, 20, 10);
    traced();
    EXPECT_EQ(ranges_of(block), (bounds_list{{0x1010, 0x1000}}));
    EXPECT_EQ(failed, (log_lines{"!(lo > hi)", "!(hi < lo)"}));
}

TEST_F(block_ranges, whose_first_line_has_no_code_have_no_ranges)
{
    sdb_node *block = add_block(function, 92, 20);
    sdb_node *inner = add_block(block, 10, 20); // goes on all the same
    traced();
    EXPECT_EQ(block->block.bl_nranges, 0U);
    EXPECT_EQ(block->block.bl_ranges, nullptr);
    EXPECT_EQ(ranges_of(inner), (bounds_list{{0x1000, 0x1010}}));
    EXPECT_EQ(failed, (log_lines{"find_line_address_retv != 0", "start_range != NULL"}));
}

TEST_F(block_ranges, of_a_file_without_lines_have_no_ranges)
{
    sdb_node *block = add_block(function, 10, 20);
    block->block.bl_file = "/src/none.c";
    sdb_node *nowhere = add_block(function, 10, 20);
    nowhere->block.bl_file = nullptr;
    sdb_calc_ranges();
    EXPECT_EQ(block->block.bl_nranges, 0U);
    EXPECT_EQ(nowhere->block.bl_nranges, 0U);
}

TEST_F(block_ranges, are_found_by_base_name_too)
{
    sdb_node *block = add_block(function, 10, 20);
    block->block.bl_file = "C:\\work\\main.c";
    sdb_calc_ranges();
    EXPECT_EQ(ranges_of(block), (bounds_list{{0x1000, 0x1010}}));
}

TEST_F(block_ranges, keep_ranges_that_they_have)
{
    sdb_node *block = add_block(function, 10, 20);
    add_range(&block->block, 1, 2);
    sdb_node *inner = add_block(block, 10, 20);
    sdb_calc_ranges();
    EXPECT_EQ(ranges_of(block), (bounds_list{{1, 2}}));
    EXPECT_EQ(ranges_of(inner), (bounds_list{{0x1000, 0x1010}}));
}

TEST_F(block_ranges, that_are_faked_count)
{
    sdb_node *block = add_block(function, 20, 20);
    block->sdb_flags = SDB_FAKED;
    sdb_calc_ranges();
    EXPECT_EQ(ranges_of(block), (bounds_list{{0x1010, 0x1010}}));
}

TEST_F(block_ranges, are_gone_through_from_the_outside_in)
{
    sdb_node *first = add_block(function, 10, 30);
    add_auto(first, {});
    add_block(first, 20, 20);
    add_block(function, 40, 40);
    traced();
    log_lines steps;
    for (const std::string &line : all) {
        if (line.ends_with("calc_block_ranges_r") || line.starts_with("first_addr")) {
            steps.push_back(line);
        }
    }
    EXPECT_EQ(steps, (log_lines{
                         "ENTER calc_block_ranges_r",
                         "ENTER calc_block_ranges_r",
                         "first_addr[0x1000] last_addr[0x10FF][1]",
                         "ENTER calc_block_ranges_r",
                         "first_addr[0x1010] last_addr[0x1010][1]",
                         "EXIT calc_block_ranges_r",
                         "EXIT calc_block_ranges_r",
                         "ENTER calc_block_ranges_r",
                         "first_addr[0x3000] last_addr[0x3000][1]",
                         "EXIT calc_block_ranges_r",
                         "EXIT calc_block_ranges_r",
                     }));
}

// The function block itself, when the map file knows nothing of it, is treated like any other block.
TEST_F(code_ranges, of_a_function_that_has_none_are_looked_for_by_line)
{
    sdb_node *function = add_function(module, "_f", 10, 20, {});
    add_lines({{10, 0x1000}, {20, 0x1010}});
    traced();
    EXPECT_EQ(function->block.bl_nranges, 0U);
    EXPECT_EQ(lines_from("first_addr"), log_lines{"first_addr[0x1000] last_addr[0x1010][1]"});
    EXPECT_EQ(failed, log_lines{"start_range != NULL"});
}

TEST(function_ranges, upside_down_are_refused_by_the_module)
{
    expect_run(
        [] {
            const world w;
            world::add_function(w.module, "_f", 10, 20, {{0x1010, 0x1000}});
            sdb_calc_ranges();
        },
        "(1314) illegal action in memory allocation\n", 1);
}

// ---- Against the memory range list, and large trees

TEST(module_ranges, agree_with_the_memory_range_list)
{
    random_numbers random(65);
    for (int round = 0; round < 200; ++round) {
        const world w;
        memory_range *whole = nullptr;
        for (std::uint32_t n = random() % 40; n > 0; --n) {
            bounds_list list;
            for (std::uint32_t count = random() % 4; count > 0; --count) {
                const std::uint32_t low = random() % 400;
                const std::uint32_t high = low + random() % 12;
                list.push_back({low, high});
                range_add(&whole, low, high, true);
            }
            world::add_function(w.module, ("_f" + std::to_string(n)).c_str(), 1, 2, list);
        }
        bounds_list expected;
        for (const memory_range *range = whole; range != nullptr; range = range->next) {
            expected.push_back({range->lo, range->hi});
        }
        range_free(&whole);
        sdb_calc_ranges();
        ASSERT_EQ(ranges_of(w.module), expected);
        ASSERT_EQ(w.module->block.bl_nranges, expected.size());
        sdb_reset();
    }
    dwarf_use_loclists = DWARF_USE_NEVER;
}

// A module of many functions, each with an entry of the header's line 5 in it.
TEST_F(code_ranges, of_many_functions)
{
    constexpr std::uint32_t FUNCTIONS = 20000;
    std::vector<line_address> entries;
    std::vector<sdb_node *> blocks;
    for (std::uint32_t i = 0; i < FUNCTIONS; ++i) {
        const std::uint32_t low = 0x100 * (FUNCTIONS - i);
        sdb_node *function = add_function(module, ("_f" + std::to_string(i)).c_str(), 4, 6, {{low, low + 0xF0}});
        blocks.push_back(add_block(function, 5, 5));
        entries.push_back({5, low + 8});
    }
    add_lines(entries);
    sdb_calc_ranges();
    EXPECT_EQ(module->block.bl_nranges, FUNCTIONS);
    for (std::uint32_t i = 0; i < FUNCTIONS; ++i) {
        const std::uint32_t address = 0x100 * (FUNCTIONS - i) + 8;
        ASSERT_EQ(ranges_of(blocks[i]), (bounds_list{{address, address}}));
    }
}

// Blocks that all run through all ranges would fill the memory: refused as if there were none.
TEST(function_ranges, out_of_proportion_are_refused)
{
    expect_run(
        [] {
            const world w;
            bounds_list list;
            for (std::uint32_t i = 0; i < 2000; ++i) {
                list.push_back({0x1000 + i * 16, 0x1008 + i * 16});
            }
            sdb_node *function = world::add_function(w.module, "_f", 1, 9, list);
            for (std::uint32_t i = 0; i < 2000; ++i) {
                world::add_block(function, 1, 99);
            }
            world::add_lines({{1, 0x1000}, {2, 0x1001}}); // line 99 has no code
            sdb_calc_ranges();
        },
        "(294) can't allocate 16 bytes of memory\n", 1);
}

// Where a catalogue makes warnings of the two reports, the run goes on with what there is.
TEST(function_ranges, that_are_refused_are_left_out)
{
    const auto lowered = [](const bounds_list &list) {
        return [list] {
            enter_scratch_folder();
            write_file("99999999999999_en.msgs", "294 8 no memory\n1314 8 illegal\n");
            set_maxerrors(0);
            const world w;
            sdb_node *function = world::add_function(w.module, "_f", 1, 9, list);
            sdb_node *block = world::add_block(function, 1, 1);
            for (std::uint32_t i = 0; i < 530; ++i) {
                world::add_block(function, 1, 99);
            }
            world::add_lines({{1, 0x1000}, {2, 0x1001}});
            sdb_calc_ranges();
            note("module %u, block %u, last %u", w.module->block.bl_nranges, block->block.bl_nranges,
                 member(function, 530U)->block.bl_nranges);
        };
    };
    // No line is in a range that holds no address.
    expect_run(lowered({{0x1010, 0x1000}}), "(1314) illegal (warning)\nmodule 0, block 0, last 0\n");
    bounds_list list;
    for (std::uint32_t i = 0; i < 2000; ++i) {
        list.push_back({0x1000 + i * 16, 0x1008 + i * 16});
    }
    // There is room for 1048576 ranges and 16 for each of two lines and a symbol: one for the first block, 524 blocks
    // with 2000 each, and 623 of the next; the other five have none.
    std::string reports;
    for (int i = 0; i < 6; ++i) {
        reports += "(294) no memory (warning)\n";
    }
    expect_run(lowered(list), reports + "module 2000, block 1, last 0\n");
}

TEST_F(database, has_its_ranges_after_raising)
{
    model_create();
    tmf_store_create();
    dwarf_use_loclists = DWARF_USE_ALWAYS;
    add_psect("text", 0x100, 0x80);
    add_label("_f", 0x110, "text");
    add_label("__end_of_f", 0x140, "text");
    world::add_symbol("_f", 0x110);
    world::add_lines({{5, 0x110}, {6, 0x114}, {7, 0x120}, {9, 0x138}});
    read("\"1 /src/main.c\n[v _f _f `(v 1 e 0 _f ]\n\"5\n{\n\"6\n[v x x `i 1 a 2 0 ]\n\"7\n[v x x `i 1 a 2 4 ]\n"
         "\"9\n}\n6 2 0 1\n");
    sdb_raise_all_files();
    sdb_calc_ranges();
    const sdb_node *module = member(sdb_global, FILE_NAME);
    ASSERT_NE(module, nullptr);
    const sdb_node *function = member(module, sc_func);
    ASSERT_NE(function, nullptr);
    EXPECT_EQ(ranges_of(module), (bounds_list{{0x110, 0x13F}}));
    EXPECT_EQ(ranges_of(function), (bounds_list{{0x110, 0x13F}}));
    const sdb_node *variable = member(function, "x");
    ASSERT_NE(variable, nullptr);
    EXPECT_EQ(places_of(variable), (place_list{{0, 0x114, 0x11F}, {4, 0x120, 0x13F}}));
    dwarf_use_loclists = DWARF_USE_NEVER;
}

// SPDX-License-Identifier: MIT
// The line number records of a COFF output. Section 3 is the block of the code segment, section 2 the data segment.
#include "compiler/tarnwick/coff_lines.h"

#include <cstdio>
#include <random>

#include "tests/unit/tarnwick/coff_testing.h"
#include "tests/unit/tarnwick/trace_log.h"

namespace {

constexpr std::uint32_t CODE_SECTION = 3;

class coff_lines_test : public coff_model {
public:
    void SetUp() override
    {
        coff_model::SetUp();
        small_program();
    }

    // A function of these source lines, without a database.
    sdb_node *function(const char *file, std::uint32_t first, std::uint32_t last, std::uint32_t coff_index = 9)
    {
        sdb_node *variable = sdb_new_node(sc_extern, "_f");
        variable->var.va_coff_index = coff_index;
        sdb_node *block = sdb_new_node(sc_func, nullptr);
        block->block.bl_func = variable;
        block->block.bl_file = file;
        block->block.bl_first = first;
        block->block.bl_last = last;
        functions.push_back({block, CODE_SECTION});
        return block;
    }
    void complete()
    {
        errors_of(line_span_fixup); // it warns of gaps, which are of no matter here
        distribute_by_file(0);
        coff_make_sections(&sections, &tables);
    }
    // "srcndx line paddr flags fcnndx" of each record of a block, in hexadecimal.
    text_lines records_of(const coff_lines &lines, std::uint32_t block = 0)
    {
        std::FILE *stream = std::tmpfile();
        coff_stream output(stream);
        lines.write(block, &output);
        EXPECT_TRUE(output.finish());
        std::rewind(stream);
        text_lines found;
        std::uint8_t record[COFF_LINE_SIZE];
        while (std::fread(record, 1, sizeof record, stream) == sizeof record) {
            found.push_back(format_numbers({field(record, 0, 4), field(record, 4, 2), field(record, 6, 4),
                                            field(record, 10, 2), field(record, 12, 4)})
                                .substr(1));
        }
        std::fclose(stream);
        EXPECT_EQ(lines.count(block), found.size());
        return found;
    }
    text_lines records()
    {
        complete();
        coff_lines lines(sections);
        lines.build_line_lists(functions);
        return records_of(lines);
    }

    std::vector<coff_function> functions;
    coff_tables tables;
    coff_sections sections;
};

TEST_F(coff_lines_test, a_line_has_a_record_for_each_address)
{
    add_line("/x/a.c", 5, 0x100, 1);
    add_line("/x/a.c", 6, 0x103, 1);
    add_line("/x/a.c", 7, 0x105, 1);
    tarn_find_file("/x/a.c")->fl_coff_index = 4;
    function("/x/a.c", 5, 7, 0x123456);
    EXPECT_EQ(records(), (text_lines{"4 5 100 0 123456", "4 5 101 0 123456", "4 5 102 0 123456", "4 6 103 0 123456",
                                     "4 6 104 0 123456", "4 7 105 0 123456"}));
}

TEST_F(coff_lines_test, instructions_can_be_wider_than_an_address_unit)
{
    machine = &machkorh; // two
    add_line("/x/a.c", 5, 0x100, 1);
    add_line("/x/a.c", 6, 0x105, 1);
    add_line("/x/a.c", 7, 0x106, 1);
    function("/x/a.c", 5, 7);
    EXPECT_EQ(records(), (text_lines{"0 5 100 0 9", "0 5 102 0 9", "0 5 104 0 9", "0 6 105 0 9", "0 7 106 0 9"}));
}

TEST_F(coff_lines_test, the_last_line_of_a_function_has_one_instruction)
{
    add_line("/x/a.c", 5, 0x100, 1);
    add_line("/x/a.c", 6, 0x102, 1);
    add_line("/x/a.c", 9, 0x110, 1);
    function("/x/a.c", 5, 6);
    EXPECT_EQ(records(), (text_lines{"0 5 100 0 9", "0 5 101 0 9", "0 6 102 0 9"}));
}

TEST_F(coff_lines_test, lines_outside_of_a_function_or_in_no_code_are_not_its)
{
    add_line("/x/a.c", 4, 0x100, 1);
    add_line("/x/a.c", 5, 0x101, 1);
    add_line("/x/a.c", 5, 0x102, 2); // in the data segment
    add_line("/x/a.c", 5, 0x103, 0);
    add_line("/x/b.c", 5, 0x104, 1);
    add_line("/x/a.c", 6, 0x105, 1);
    add_line("/x/a.c", 7, 0x106, 1);
    function("/x/a.c", 5, 6);
    EXPECT_EQ(records(), (text_lines{"0 5 101 0 9", "0 6 105 0 9"}));
}

TEST_F(coff_lines_test, files_are_matched_by_their_exact_name)
{
    add_line("/x/a.c", 5, 0x100, 1);
    function("/x/A.c", 5, 6);
    function("a.c", 5, 6);
    function(nullptr, 5, 6);
    function("", 5, 6);
    EXPECT_EQ(records(), text_lines{});
}

TEST_F(coff_lines_test, the_index_of_the_file_is_that_of_a_plain_look_up)
{
    opt_strip_ext = true;
    add_line("/x/a.c", 5, 0x100, 1); // the file bears the name without extension
    tarn_find_file("/x/a.c")->fl_coff_index = 4;
    function("/x/a", 5, 6);
    EXPECT_EQ(records(), (text_lines{"4 5 100 0 9"}));
    opt_strip_ext = false;
    tarn_find_file("/x/a")->fl_name = "/x/renamed";
    functions.clear();
    function("/x/renamed", 5, 6);
    sections = {};
    coff_make_sections(&sections, &tables);
    coff_lines lines(sections);
    lines.build_line_lists(functions);
    EXPECT_EQ(records_of(lines), (text_lines{"0 5 100 0 9"})) << "a file that is not found has no index";
}

TEST_F(coff_lines_test, a_function_without_a_first_line_has_none)
{
    add_line("/x/a.c", 1, 0x100, 1);
    sdb_node *block = function("/x/a.c", 0, 0);
    EXPECT_EQ(records(), text_lines{});
    EXPECT_EQ(block->block.bl_last, 0U);
}

TEST_F(coff_lines_test, a_last_line_of_0_is_mended_in_the_database)
{
    add_line("/x/a.c", 5, 0x100, 1);
    add_line("/x/a.c", 6, 0x101, 1);
    sdb_node *block = function("/x/a.c", 5, 0);
    EXPECT_EQ(records(), (text_lines{"0 5 100 0 9"}));
    EXPECT_EQ(block->block.bl_last, 5U);
}

TEST_F(coff_lines_test, bounds_that_are_turned_round_hold_nothing)
{
    add_line("/x/a.c", 5, 0x100, 1);
    add_line("/x/a.c", 7, 0x101, 1);
    function("/x/a.c", 7, 5);
    EXPECT_EQ(records(), text_lines{});
}

TEST_F(coff_lines_test, functions_share_lines_and_stand_in_their_order)
{
    add_line("/x/a.c", 5, 0x108, 1);
    add_line("/x/a.c", 6, 0x100, 1);
    add_line("/x/a.c", 6, 0x110, 1);
    function("/x/a.c", 6, 6, 2);
    function("/x/a.c", 5, 6, 1);
    EXPECT_EQ(records().size(), 8U + 1 + 8 + 8 + 1);
    coff_lines lines(sections);
    lines.build_line_lists(functions);
    const text_lines found = records_of(lines);
    EXPECT_EQ(found[7], "0 6 107 0 2");
    EXPECT_EQ(found[8], "0 6 110 0 2");
    EXPECT_EQ(found[9], "0 5 108 0 1");
    EXPECT_EQ(found[17], "0 6 100 0 1");
    EXPECT_EQ(found[25], "0 6 110 0 1");
}

TEST_F(coff_lines_test, records_stand_in_the_section_of_their_function)
{
    add_block(1, 0x40, 0x40);
    add_line("/x/a.c", 5, 0x100, 1);
    add_line("/x/a.c", 8, 0x40, 1);
    complete(); // ABS, data, two blocks
    function("/x/a.c", 8, 8);
    functions.back().section = 4;
    function("/x/a.c", 5, 5, 1);
    function("/x/a.c", 5, 8, 2);
    functions.back().section = 2; // has no data
    function("/x/a.c", 5, 8, 3);
    functions.back().section = 5; // is none
    function("/x/a.c", 5, 8, 4);
    functions.back().section = 0;
    coff_lines lines(sections);
    lines.build_line_lists(functions);
    EXPECT_EQ(records_of(lines, 0), (text_lines{"0 5 100 0 1"}));
    EXPECT_EQ(records_of(lines, 1), (text_lines{"0 8 40 0 9"}));
}

TEST_F(coff_lines_test, addresses_end_at_the_end_of_the_range)
{
    add_line("/x/a.c", 5, 0xFFFFFFFD, 1);
    add_line("/x/a.c", 6, 0xFFFFFFFF, 1);
    function("/x/a.c", 5, 5);
    function("/x/a.c", 5, 6);
    complete();
    tarn_find_file("/x/a.c")->fl_lines[0]->ln_end = 0xFFFFFFFF;
    coff_lines lines(sections);
    lines.build_line_lists(functions);
    EXPECT_EQ(records_of(lines), (text_lines{"0 5 FFFFFFFD 0 9", "0 5 FFFFFFFD 0 9", "0 5 FFFFFFFE 0 9",
                                             "0 5 FFFFFFFF 0 9", "0 6 FFFFFFFF 0 9"}));
    machine = &machkorh; // the last line's end wraps
    coff_lines wide(sections);
    wide.build_line_lists(functions);
    EXPECT_EQ(records_of(wide), (text_lines{"0 5 FFFFFFFD 0 9", "0 5 FFFFFFFD 0 9", "0 5 FFFFFFFF 0 9"}));
}

TEST_F(coff_lines_test, a_line_that_ends_in_front_of_its_start_has_no_record)
{
    add_line("/x/a.c", 5, 0x100, 1);
    add_line("/x/a.c", 6, 0x104, 1);
    function("/x/a.c", 5, 6);
    complete();
    tarn_find_file("/x/a.c")->fl_lines[0]->ln_end = 0xFF;
    coff_lines lines(sections);
    lines.build_line_lists(functions);
    EXPECT_EQ(records_of(lines), (text_lines{"0 6 104 0 9"}));
}

TEST_F(coff_lines_test, without_a_machine_there_are_no_records)
{
    add_line("/x/a.c", 5, 0x100, 1);
    add_line("/x/a.s", 5, 0x101, 1);
    function("/x/a.c", 5, 6);
    machine = nullptr;
    complete();
    coff_lines lines(sections);
    lines.build_line_lists(functions);
    lines.add_assembler_file(tarn_find_file("/x/a.s"));
    EXPECT_EQ(records_of(lines), text_lines{});
}

TEST_F(coff_lines_test, line_numbers_have_sixteen_bits)
{
    add_line("/x/a.c", 0x10005, 0x100, 1);
    function("/x/a.c", 0x10000, 0x20000);
    EXPECT_EQ(records(), (text_lines{"0 5 100 0 9"}));
}

// --- the table of jumps -------------------------------------------------------------------------------------------------

class coff_jump_table : public coff_lines_test {
public:
    text_lines records_with(std::uint32_t width, const char *psect)
    {
        coff.rom_width = width;
        tarn_psect *pp = tarn_add_psect(psect, CODE, 2);
        tarn_psect_range range;
        range.pr_lo = 0x100; // in units of two bytes
        range.pr_hi = 0x102;
        tarn_add_psect_range(pp, range);
        add_line("/x/a.c", 5, 0x0FF, 1);
        add_line("/x/a.c", 6, 0x100, 1);
        add_line("/x/a.c", 7, 0x101, 1);
        add_line("/x/a.c", 8, 0x102, 1); // just behind it: near is not inside
        function("/x/a.c", 5, 8);
        return records();
    }
};

TEST_F(coff_jump_table, its_lines_belong_to_no_function)
{
    EXPECT_EQ(records_with(12, "jmp_tab"), (text_lines{"0 5 FF 0 9", "0 8 102 0 9"}));
}

TEST_F(coff_jump_table, other_widths_have_none)
{
    EXPECT_EQ(records_with(14, "jmp_tab").size(), 4U);
}

TEST_F(coff_jump_table, other_psects_are_none)
{
    EXPECT_EQ(records_with(12, "jmp_tabs").size(), 4U);
}

// --- assembler ----------------------------------------------------------------------------------------------------------

TEST_F(coff_lines_test, assembler_files_are_those_with_lines_and_such_a_name)
{
    add_line("/x/b.s", 5, 0x100, 1);
    add_line("/x/a.c", 5, 0x100, 1);
    add_line("/x/a.asm", 5, 0x100, 1);
    tarn_add_file("/x/empty.as");
    add_line("/x/a.as", 5, 0x100, 1);
    add_line("/x/c.S", 5, 0x100, 1);
    add_line("/x/a.inc", 5, 0x100, 1);
    text_lines names;
    for (const tarn_file *file : coff_assembler_files()) {
        names.emplace_back(file->fl_name);
    }
    EXPECT_EQ(names, (text_lines{"/x/b.s", "/x/a.asm", "/x/a.as", "/x/c.S"}));
}

TEST_F(coff_lines_test, assembler_lines_stand_behind_those_of_functions)
{
    add_line("/x/a.c", 5, 0x100, 1);
    add_line("/x/b.s", 9, 0x101, 1);
    add_line("/x/b.s", 8, 0x103, 1);
    add_line("/x/c.s", 7, 0x106, 1);
    add_line("/x/c.s", 9, 0x109, 1);
    tarn_find_file("/x/b.s")->fl_coff_index = 0x50;
    tarn_find_file("/x/c.s")->fl_coff_index = 0x53;
    function("/x/a.c", 5, 6);
    complete();
    coff_lines lines(sections);
    lines.add_assembler_file(tarn_find_file("/x/b.s"));
    lines.build_line_lists(functions);
    lines.add_assembler_file(tarn_find_file("/x/c.s"));
    EXPECT_EQ(records_of(lines),
              (text_lines{"0 5 100 0 9", "50 8 103 0 0", "50 8 104 0 0", "50 8 105 0 0", "50 9 101 0 0", "50 9 102 0 0",
                          "53 7 106 0 0", "53 7 107 0 0", "53 7 108 0 0", "53 9 109 0 0"}));
}

TEST_F(coff_lines_test, assembler_lines_go_by_their_own_address)
{
    add_block(1, 0, 0x20);
    add_line("/x/b.s", 1, 0, 1); // a line at address 0 is never written
    add_line("/x/b.s", 2, 1, 1);
    add_line("/x/b.s", 3, 0x17F, 1);
    add_line("/x/b.s", 4, 0x180, 1); // in no block: segment 1 + 1, which has no data
    add_line("/x/b.s", 5, 0x300, 2); // taken for data
    add_line("/x/b.s", 6, 0x310, 3); // a number that is no segment gives section 4
    complete();
    coff_lines lines(sections);
    lines.add_assembler_file(tarn_find_file("/x/b.s"));
    EXPECT_EQ(records_of(lines, 0), (text_lines{"0 3 17F 0 0"}));
    const text_lines low = records_of(lines, 1);
    EXPECT_EQ(low.front(), "0 2 1 0 0") << "its span is too long and was cut to one address";
    EXPECT_EQ(low.back(), "0 6 310 0 0");
    EXPECT_EQ(low.size(), 2U);
}

// --- traces, and the plain form -----------------------------------------------------------------------------------------

TEST_F(coff_lines_test, traces_name_functions_and_files)
{
    add_line("/x/a.c", 5, 0x100, 1);
    function("/x/a.c", 5, 6);
    function("/x/a.c", 0, 6);
    function("/x/b.c", 1, 6);
    function(nullptr, 1, 1);
    complete();
    coff_lines lines(sections);
    const trace_log log;
    lines.build_line_lists(functions);
    EXPECT_EQ(trace_log::lines(),
              (text_lines{"ENTER build_line_lists", "func: _f block_file[/x/a.c]", "\tfile: /x/a.c",
                          "func: _f block_file[/x/b.c]", "func: _f block_file[(null)]", "EXIT build_line_lists"}));
}

// A walk over all files and lines for each function, and over all of them for each section.
text_lines walked_records(const std::vector<coff_function> &functions, std::uint32_t section)
{
    text_lines found;
    for (const coff_function &function : functions) {
        const sdb_block &block = function.block->block;
        std::vector<const tarn_line *> bl_lines;
        for (const tarn_file *file : each(file_list)) {
            for (std::uint32_t i = 0; std::string(file->fl_name) == block.bl_file && i < file->fl_nlines; ++i) {
                const tarn_line *line = file->fl_lines[i];
                if (tarn_segno_is_code(line->ln_seg) && line->ln_line >= block.bl_first &&
                    line->ln_line <= block.bl_last) {
                    bl_lines.push_back(line);
                }
            }
        }
        for (std::size_t i = 0; function.section == section && i < bl_lines.size(); ++i) {
            const std::uint32_t s = bl_lines[i]->ln_addr;
            const std::uint32_t e = i + 1 == bl_lines.size() ? s + machine->mc_max_insn - 1 : bl_lines[i]->ln_end;
            for (std::uint32_t a = s; a <= e; a += machine->mc_min_insn) {
                found.push_back(
                    format_numbers({0, bl_lines[i]->ln_line, a, 0, block.bl_func->var.va_coff_index}).substr(1));
            }
        }
    }
    return found;
}

TEST_F(coff_lines_test, the_spans_hold_what_a_walk_finds)
{
    std::mt19937 engine(3);
    const auto random = [&engine](std::uint32_t bound) { return static_cast<std::uint32_t>(engine() % bound); };
    const char *files[] = {"/x/a.c", "/x/b.c", "/x/c.h"};
    add_block(1, 0, 0x40);
    for (int i = 0; i < 400; ++i) {
        add_line(files[random(3)], 1 + random(100), 0x100 + random(800), random(3));
    }
    for (int i = 0; i < 100; ++i) {
        const std::uint32_t first = 1 + random(100);
        function(files[random(3)], first, random(10) == 0 ? first - 1 : first + random(20), random(1000));
        functions.back().section = 2 + random(4);
    }
    complete();
    coff_lines lines(sections);
    lines.build_line_lists(functions);
    EXPECT_EQ(records_of(lines, 0), walked_records(functions, 3));
    EXPECT_EQ(records_of(lines, 1), walked_records(functions, 4));
    EXPECT_GT(lines.count(0), 100U);
}

TEST_F(coff_lines_test, functions_on_the_same_lines_take_no_room)
{
    // 20000 functions of 20000 lines are counted at once, though their records would not fit anywhere.
    constexpr std::uint32_t COUNT = 20000;
    for (std::uint32_t i = 0; i < COUNT; ++i) {
        add_line("/x/a.c", 1 + i, 0x1000 + 2 * i, 1);
        function("/x/a.c", 1, COUNT);
    }
    complete();
    coff_lines lines(sections);
    lines.build_line_lists(functions);
    EXPECT_EQ(lines.count(0), std::uint64_t{COUNT} * (2 * COUNT - 1));
}

} // namespace

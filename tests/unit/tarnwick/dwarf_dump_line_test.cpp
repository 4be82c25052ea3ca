// SPDX-License-Identifier: MIT
// The dump of line programs: header, tables, statements, matrix, and what damaged units print.
#include "tests/unit/tarnwick/dwarf_dump_testing.h"

namespace {

const std::string PROLOGUE_ERROR = "  Error occurred while reading prolog of .debug_line section, could not proceed.\n";
const std::string MATRIX_HEADING =
    "\nGenerated line number matrix:\n\n"
    "stmt    address           file        line        column      is_stmt      basic_block\n";
const std::string OPCODES = "\n Opcodes:\n  Opcode 1 has 0 args\n  Opcode 2 has 1 args\n  Opcode 3 has 1 args\n"
                            "  Opcode 4 has 1 args\n  Opcode 5 has 1 args\n  Opcode 6 has 0 args\n"
                            "  Opcode 7 has 0 args\n  Opcode 8 has 0 args\n  Opcode 9 has 1 args\n";
const std::string EMPTY_TABLES = "\n The Directory Table is empty.\n\n The File Name Table is emptry.\n";

struct unit_fields {
    section_bytes tables = section_bytes().raw({0, 0});
    std::uint8_t minimum = 2;
    std::uint8_t range = 20;
    std::size_t prologue_error = 0;
};

section_bytes unit_of(const section_bytes &program, const unit_fields &fields = {})
{
    section_bytes unit;
    unit.b2(2).b4(5 + 9 + fields.tables.size() + fields.prologue_error);
    unit.b1(fields.minimum).b1(1).b1(0xF1).b1(fields.range).b1(10).raw({0, 1, 1, 1, 1, 0, 0, 0, 1});
    return with_length(unit.bytes(fields.tables).bytes(program));
}

std::string header(std::size_t length, std::size_t prologue = 16, int minimum = 2, int range = 20)
{
    return "\n  Statement program at offset 0x0\n"
           "  Length:                      " +
           std::to_string(length) +
           "\n"
           "  DWARF Version:               2\n"
           "  Prologue Length:             " +
           std::to_string(prologue) +
           "\n"
           "  Minimum Instruction Length:  " +
           std::to_string(minimum) +
           "\n"
           "  Initial value of 'is_stmt':  1\n"
           "  Line Base:                   -15\n"
           "  Line Range:                  " +
           std::to_string(range) +
           "\n"
           "  Opcode Base:                 10\n" +
           OPCODES;
}

std::string line(const section_bytes &section)
{
    const dwarf_room room;
    return printed_by([&](dwarf_text &out) { dwarf_line_dump(out, section); });
}

// What the statements of a program print.
std::string program(const section_bytes &statements, const unit_fields &fields = {})
{
    const section_bytes unit = unit_of(statements, fields);
    const std::string start = header(unit.size() - 4, 16, fields.minimum, fields.range) + EMPTY_TABLES;
    const std::string text = line(unit);
    EXPECT_EQ(start, text.substr(0, start.size()));
    return text.substr(std::min(start.size(), text.size()));
}

TEST(dwarf_dump_line, statements_and_the_matrix_of_a_sequence)
{
    const section_bytes statements = section_bytes()
                                         .raw({0, 5, 2, 0, 1, 0, 0}) // set_address 0x100
                                         .raw({1, 2, 3, 3, 0x7F})    // copy; advance_pc 3; advance_line -1
                                         .raw({4, 2, 5, 7, 6, 7})    // set_file, set_column, negate_stmt, basic block
                                         .raw({8, 9, 0x10, 0})       // const_add_pc; fixed_advance_pc 0x10
                                         .raw({46})                  // 36: address 1, line 1
                                         .raw({0, 1, 1});
    EXPECT_EQ("00001: DW_LNE_set_address      : 0x100 (Extended opcode 2: set Address to 0x100)\n"
              "00002: DW_LNS_copy             \n"
              "00003: DW_LNS_advance_pc       : 0x3 (Advance Address by 0x6 to 0x106)\n"
              "00004: DW_LNS_advance_line     : -1 (Advance Line by -1 to 0)\n"
              "00005: DW_LNS_set_file         : 2 (Set file to be 2)\n"
              "00006: DW_LNS_set_column       : 7 (Set column to be 7)\n"
              "00007: DW_LNS_negate_stmt      : (Set is_stmt to be 0)\n"
              "00008: DW_LNS_set_basic_block  \n"
              "00009: DW_LNS_const_add_pc     : (Advance Address by 0xc to 0x112)\n"
              "00010: DW_LNS_fixed_advance_pc : 0x10 (Advance Address by 0x10 to 0x122)\n"
              "00011: SPECIAL                 : <0x1, 1> (Special opcode 46: advance Address by 0x2 to 0x124 and Line "
              "by 1 to 1)\n"
              "00012: DW_LNE_end_sequence     \n" +
                  MATRIX_HEADING +
                  "00002:  0000000000000100  1           1           0           true         false\n"
                  "00011:  0000000000000124  2           1           7           false        true \n"
                  "00012:  0000000000000124  2           1           7           false        false      (end of "
                  "sequence)\n",
              program(statements));
}

TEST(dwarf_dump_line, registers_start_again_behind_a_sequence)
{
    const std::string row = "DW_LNE_end_sequence     \n" + MATRIX_HEADING;
    EXPECT_EQ("00001: DW_LNS_set_file         : 3 (Set file to be 3)\n00002: " + row +
                  "00002:  0000000000000000  3           1           0           true         false      (end of "
                  "sequence)\n00003: " +
                  row +
                  "00003:  0000000000000000  1           1           0           true         false      (end of "
                  "sequence)\n",
              program(section_bytes().raw({4, 3, 0, 1, 1, 0, 1, 1})));
}

TEST(dwarf_dump_line, a_sequence_without_an_end_has_no_matrix)
{
    EXPECT_EQ("00001: DW_LNS_copy             \n", program(section_bytes().raw({1})));
}

TEST(dwarf_dump_line, a_program_without_statements)
{
    EXPECT_EQ("", program({}));
}

TEST(dwarf_dump_line, units_follow_each_other)
{
    const section_bytes unit = unit_of(section_bytes().raw({1}));
    const std::string shown = header(23) + EMPTY_TABLES + "00001: DW_LNS_copy             \n";
    std::string second = shown;
    second.replace(second.find("0x0"), 3, "0x1b");
    EXPECT_EQ(shown + second, line(section_bytes(unit).bytes(unit)));
}

TEST(dwarf_dump_line, special_opcodes)
{
    // 10 is line -15, 30 is one unit and line -15, 255 is twelve units and line -10.
    EXPECT_EQ("00001: SPECIAL                 : <0x0, -15> (Special opcode 10: advance Address by 0x0 to 0x0 and Line "
              "by -15 to -14)\n"
              "00002: SPECIAL                 : <0x1, -15> (Special opcode 30: advance Address by 0x2 to 0x2 and Line "
              "by -15 to -29)\n"
              "00003: SPECIAL                 : <0xc, -10> (Special opcode 255: advance Address by 0x18 to 0x1a and "
              "Line by -10 to -39)\n",
              program(section_bytes().raw({10, 30, 255})));
}

TEST(dwarf_dump_line, operands_of_many_bytes)
{
    EXPECT_EQ("00001: DW_LNS_advance_pc       : 0xABCDE (Advance Address by 0x1579bc to 0x1579bc)\n"
              "00002: DW_LNS_advance_line     : 1000 (Advance Line by 1000 to 1001)\n"
              "00003: DW_LNS_set_file         : 4294967297 (Set file to be 1)\n"
              "00004: DW_LNS_set_column       : 4294967295 (Set column to be -1)\n"
              "00005: DW_LNS_fixed_advance_pc : 0xFFFF (Advance Address by 0xffff to 0x1679bb)\n",
              program(section_bytes()
                          .raw({2, 0xDE, 0xF9, 0x2A, 3, 0xE8, 0x07, 4, 0x81, 0x80, 0x80, 0x80, 0x10})
                          .raw({5, 0xFF, 0xFF, 0xFF, 0xFF, 0x0F, 9, 0xFF, 0xFF})));
}

TEST(dwarf_dump_line, addresses_have_the_width_that_their_opcode_tells)
{
    EXPECT_EQ("00001: DW_LNE_set_address      : 0xAB (Extended opcode 2: set Address to 0xab)\n"
              "00002: DW_LNE_set_address      : 0x201 (Extended opcode 2: set Address to 0x201)\n"
              "00003: DW_LNE_set_address      : 0x807060504030201 (Extended opcode 2: set Address to "
              "0x807060504030201)\n",
              program(section_bytes().raw({0, 2, 2, 0xAB, 0, 3, 2, 1, 2, 0, 9, 2, 1, 2, 3, 4, 5, 6, 7, 8})));
}

TEST(dwarf_dump_line, an_address_of_no_width_is_an_internal_error)
{
    for (const std::uint8_t length : std::initializer_list<std::uint8_t>{0, 1, 4, 6}) {
        const survived_errors errors;
        EXPECT_EQ("00001: \n WARNING: Length field was incorrect",
                  program(section_bytes().raw({0, length, 2, 0, 0, 0, 0, 0})));
        EXPECT_EQ(1U, errors.count());
    }
}

TEST(dwarf_dump_line, rows_behind_the_last_end_of_a_sequence_are_not_printed)
{
    EXPECT_EQ("00001: DW_LNE_end_sequence     \n" + MATRIX_HEADING +
                  "00001:  0000000000000000  1           1           0           true         false      (end of "
                  "sequence)\n00002: DW_LNS_copy             \n",
              program(section_bytes().raw({0, 1, 1, 1})));
}

// The rows of each are printed from its own start, so that their number does not multiply.
TEST(dwarf_dump_line, many_sequences)
{
    constexpr std::size_t SEQUENCES = 50000;
    section_bytes statements;
    for (std::size_t i = 0; i < SEQUENCES; ++i) {
        statements.raw({1, 0, 1, 1});
    }
    const std::string text = program(statements);
    const std::string end = "99999: DW_LNS_copy             \n100000: DW_LNE_end_sequence     \n" + MATRIX_HEADING +
                            "99999:  0000000000000000  1           1           0           true         false\n"
                            "100000:  0000000000000000  1           1           0           true         false      "
                            "(end of sequence)\n";
    EXPECT_EQ(end, text.substr(text.size() - std::min(text.size(), end.size())));
}

TEST(dwarf_dump_line, a_big_endian_section)
{
    const dwarf_room room(true);
    const section_bytes unit = unit_of(section_bytes().raw({0, 5, 2, 0, 0, 1, 2, 9, 1, 0}));
    EXPECT_EQ(header(32) + EMPTY_TABLES +
                  "00001: DW_LNE_set_address      : 0x102 (Extended opcode 2: set Address to 0x102)\n"
                  "00002: DW_LNS_fixed_advance_pc : 0x100 (Advance Address by 0x100 to 0x202)\n",
              printed_by([&](dwarf_text &out) { dwarf_line_dump(out, unit); }));
}

TEST(dwarf_dump_line, a_target_of_words)
{
    const word_room room;
    const section_bytes unit =
        section_bytes().b4(11).b2(2).b4(8).raw({2, 1, 0xF1, 20, 10, 0, 1, 1, 1, 1, 0, 0, 0, 1, 0, 0});
    std::string shown = header(11, 8) + EMPTY_TABLES;
    std::string second = shown;
    second.replace(second.find("0x0"), 3, "0xd (actual 0x1a)");
    EXPECT_EQ(shown + second,
              printed_by([&](dwarf_text &out) { dwarf_line_dump(out, section_bytes(unit).bytes(unit)); }));
}

TEST(dwarf_dump_line, a_range_of_0_divides_nothing)
{
    EXPECT_EQ("00001: SPECIAL                 : <0x0, -15> (Special opcode 255: advance Address by 0x0 to 0x0 and Line "
              "by -15 to -14)\n"
              "00002: DW_LNS_const_add_pc     : (Advance Address by 0x0 to 0x0)\n",
              program(section_bytes().raw({255, 8}), {.range = 0}));
}

TEST(dwarf_dump_line, the_length_of_an_extended_opcode_decides_where_the_next_stands)
{
    EXPECT_EQ("00001: DW_LNE_define_file      : f ; dir=1 ; time=2 ; size=3\n00002: DW_LNS_copy             \n",
              program(section_bytes().raw({0, 8, 3, 'f', 0, 1, 2, 3, 0xAA, 0xAA, 1})));
    EXPECT_EQ("00001: DW_LNE_define_file      : f ; dir=1 ; time=2 ; size=3\n00002: DW_LNS_copy             \n",
              program(section_bytes().raw({0, 0, 3, 'f', 0, 1, 2, 3, 1})));
}

TEST(dwarf_dump_line, a_program_that_runs_past_its_unit)
{
    section_bytes section = unit_of(section_bytes().raw({3}));
    EXPECT_EQ("00001: \n WARNING: Length field was incorrect", program(section_bytes().raw({3})));
    section.raw({1, 1});
    EXPECT_EQ(header(23) + EMPTY_TABLES +
                  "00001: DW_LNS_advance_line     : 1 (Advance Line by 1 to 2)\n\n WARNING: Length field was incorrect",
              line(section));
}

TEST(dwarf_dump_line, tables)
{
    setenv("TZ", "UTC", 1);
    section_bytes tables;
    tables.text("/a").text("b").b1(0).text("x.c").raw({1, 1, 9}).text("y.c").raw({0, 0, 0, 0});
    const section_bytes unit = unit_of({}, {.tables = tables});
    EXPECT_EQ(header(unit.size() - 4, 14 + tables.size()) +
                  "\n The Directory Table:\n    1.  \"/a\"\n    2.  \"b\"\n"
                  "\n The File Name Table:\n    1.  \"x.c\"\n\t\tdir: 1\n\t\ttime: Thu Jan  1 00:00:01 1970\n"
                  "\t\tsize: 9\n    2.  \"y.c\"\n",
              line(unit));
}

TEST(dwarf_dump_line, opcode_lengths_that_are_not_the_standards)
{
    section_bytes unit = unit_of({});
    unit[4 + 11 + 1] = 2; // of opcode 2
    std::string expected = header(unit.size() - 4);
    expected.replace(expected.find("Opcode 2 has 1 args"), 19, "Opcode 2 has 2 args (not standard)");
    EXPECT_EQ(expected + "Non standard opcode length was defined, could not proceed", line(unit));
}

// Only nine have a number of operands to compare with, and the list is printed to its end before the dump ends.
TEST(dwarf_dump_line, opcodes_beyond_the_standards)
{
    section_bytes unit = section_bytes().b2(2).b4(5 + 13 + 2).raw({2, 1, 0xF1, 20, 13});
    unit.raw({0, 1, 1, 1, 1, 0, 0, 0, 1, 7, 0x80, 0x01, 0, 0, 0});
    std::string expected = header(26, 20);
    expected.replace(expected.find("Opcode Base:                 10"), 31, "Opcode Base:                 13");
    expected += "  Opcode 10 has 7 args\n  Opcode 11 has 128 args\n  Opcode 12 has 0 args\n";
    EXPECT_EQ(expected + EMPTY_TABLES, line(with_length(unit)));
    unit[2 + 4 + 5] = 3; // of opcode 1
    expected.replace(expected.find("Opcode 1 has 0 args"), 19, "Opcode 1 has 3 args (not standard)");
    EXPECT_EQ(expected + "Non standard opcode length was defined, could not proceed", line(with_length(unit)));
}

TEST(dwarf_dump_line, a_wrong_prologue_length)
{
    const section_bytes unit = unit_of({}, {.prologue_error = 1});
    testing::internal::CaptureStderr();
    EXPECT_EQ(header(unit.size() - 4, 17) + EMPTY_TABLES + PROLOGUE_ERROR, line(unit));
    EXPECT_EQ("Prolog length information is not correct.", testing::internal::GetCapturedStderr());
}

TEST(dwarf_dump_line, a_prologue_beyond_the_section)
{
    section_bytes unit = unit_of({});
    const std::size_t length = unit.size() - 4;
    unit.pop_back(); // the end of the file names
    EXPECT_EQ(header(length) + "\n The Directory Table is empty.\nProlog is too big (goes beyond the section limit)." +
                  PROLOGUE_ERROR,
              line(unit));
}

// Cut behind each of its bytes, a prologue prints what is there and ends with the same lines.
TEST(dwarf_dump_line, prologues_cut_anywhere)
{
    const section_bytes unit = unit_of({}, {.tables = section_bytes().text("d").b1(0).text("f").raw({1, 2, 3, 0})});
    const std::string whole = line(unit);
    const std::string end = "Prolog is too big (goes beyond the section limit)." + PROLOGUE_ERROR;
    for (std::size_t size = 1; size < unit.size(); ++size) {
        const std::string text = line(section_bytes(unit.data(), size));
        ASSERT_TRUE(text.ends_with(end)) << size;
        const std::string start = text.substr(0, text.size() - end.size());
        EXPECT_EQ(whole.substr(0, start.size()), start) << size;
        EXPECT_EQ(size >= 4, start.find("Length: ") != std::string::npos) << size;
    }
}

TEST(dwarf_dump_line, an_unknown_opcode_is_an_internal_error)
{
    const survived_errors errors;
    EXPECT_EQ("00001: ", program(section_bytes().raw({0, 1, 9})));
    EXPECT_EQ(1U, errors.count());
    section_bytes unit =
        section_bytes().b2(2).b4(5 + 10 + 2).raw({2, 1, 0xF1, 20, 11}).raw({0, 1, 1, 1, 1, 0, 0, 0, 1, 0, 0, 0, 10});
    EXPECT_TRUE(line(with_length(unit)).ends_with("emptry.\n00001: "));
    EXPECT_EQ(2U, errors.count());
}

} // namespace

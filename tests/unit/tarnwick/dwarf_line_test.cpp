// SPDX-License-Identifier: MIT
// The bytes of the line section, and the order of the calls that write them.
#include "compiler/tarnwick/dwarf_line.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/trace.h"
#include "tests/unit/scenario.h"
#include "tests/unit/tarnwick/dwarf_line_testing.h"
#include "tests/unit/tarnwick/trace_log.h"

namespace {

using namespace dwarf_line_testing;

// --- the unit -----------------------------------------------------------------------------------------------------------

TEST_F(dwarf_line_writer, unit_without_anything)
{
    EXPECT_EQ(unit_bytes(2, [](line_unit_info *) {}), joined({{22, 0, 0, 0, 2, 0, 16, 0, 0, 0}, header_tail(2)}));
}

TEST_F(dwarf_line_writer, numbers_follow_the_byte_order)
{
    opt_big_endian = true;
    EXPECT_EQ(unit_bytes(1, [](line_unit_info *unit) { dwarf_line_start_sequence(unit, 1, 0x12345678); }),
              joined({{0, 0, 0, 30, 0, 2, 0, 0, 0, 16}, header_tail(1), {0, 5, 2, 0x12, 0x34, 0x56, 0x78, 26}}));
}

TEST_F(dwarf_line_writer, version_is_the_callers)
{
    const section_mark mark(dwarf_line_finalize);
    line_unit_info *unit = dwarf_line_start_compile_unit_information(3, 4);
    put_empty_tables();
    dwarf_line_start_statement_program(unit);
    dwarf_line_finish_statement_program();
    dwarf_line_finish_compile_unit_information(unit);
    EXPECT_EQ(mark.added(), joined({{22, 0, 0, 0, 3, 0, 16, 0, 0, 0}, header_tail(4)}));
}

TEST_F(dwarf_line_writer, instruction_length_0_counts_as_1)
{
    const auto program = [](line_unit_info *unit) { dwarf_line_advance_line_and_pc(unit, 1, 2); };
    EXPECT_EQ(unit_bytes(0, program), joined({{23, 0, 0, 0, 2, 0, 16, 0, 0, 0}, header_tail(1), {66}}));
}

TEST_F(dwarf_line_writer, directories_and_files)
{
    const section_mark mark(dwarf_line_finalize);
    line_unit_info *unit = dwarf_line_start_compile_unit_information(2, 2);
    dwarf_line_start_include_directories_record();
    dwarf_line_add_include_directory("src");
    dwarf_line_add_include_directory("lib\\a");
    dwarf_line_finish_include_directories_record();
    dwarf_line_start_file_names_record();
    dwarf_line_add_file_name("m.c", 0, 0, 0);
    dwarf_line_add_file_name("n.h", 2, 128, 0xFFFFFFFF);
    dwarf_line_finish_file_names_record();
    dwarf_line_start_statement_program(unit);
    dwarf_line_end_sequence(unit);
    dwarf_line_finish_statement_program();
    dwarf_line_finish_compile_unit_information(unit);

    const bytes tables = joined({{2, 1, 0xF1, 20, 10, 0, 1, 1, 1, 1, 0, 0, 0, 1},
                                 text_bytes("src"),
                                 text_bytes("lib\\a"),
                                 {0},
                                 text_bytes("m.c"),
                                 {0, 0, 0},
                                 text_bytes("n.h"),
                                 {2, 0x80, 1, 0xFF, 0xFF, 0xFF, 0xFF, 0x0F},
                                 {0}});
    ASSERT_EQ(tables.size(), 45U);
    EXPECT_EQ(mark.added(), joined({{56, 0, 0, 0, 2, 0, 45, 0, 0, 0}, tables, {2, 1, 0, 1, 1}}));
}

TEST_F(dwarf_line_writer, offset_is_that_of_the_unit_about_to_start)
{
    for (std::uint32_t i = 0; i < 3; i++) {
        const section_mark mark(dwarf_line_finalize);
        const std::uint32_t offset = dwarf_line_get_offset();
        EXPECT_EQ(offset, mark.start());
        line_unit_info *unit = dwarf_line_start_compile_unit_information(2, 2);
        put_empty_tables();
        dwarf_line_start_statement_program(unit);
        dwarf_line_end_sequence(unit);
        dwarf_line_finish_statement_program();
        EXPECT_EQ(dwarf_line_finish_compile_unit_information(unit), offset);
        EXPECT_EQ(dwarf_line_get_offset(), offset + EMPTY_HEADER_SIZE + 5);
    }
}

TEST_F(dwarf_line_writer, lengths_are_right_when_the_buffer_grows)
{
    constexpr std::uint32_t ROWS = 100000;
    const bytes unit = unit_bytes(2, [](line_unit_info *info) {
        for (std::uint32_t i = 0; i < ROWS; i++) {
            dwarf_line_advance_line_and_pc(info, 1, 4);
        }
    });
    ASSERT_EQ(unit.size(), EMPTY_HEADER_SIZE + ROWS);
    EXPECT_EQ(number_at(unit, 0, 4), EMPTY_HEADER_SIZE + ROWS - 4);
    EXPECT_EQ(number_at(unit, 6, 4), 16U);
    EXPECT_EQ(bytes(unit.begin() + EMPTY_HEADER_SIZE, unit.end()), bytes(ROWS, 66));
}

TEST_F(dwarf_line_writer, words_of_two_bytes_get_the_same_numbers)
{
    const section_mark mark(dwarf_line_finalize);
    dwarf_access = &word_accessors;
    EXPECT_EQ(dwarf_line_get_offset(), mark.start() / 2);
    line_unit_info *unit = dwarf_line_start_compile_unit_information(2, 2);
    dwarf_line_start_include_directories_record();
    dwarf_line_add_include_directory("d");
    dwarf_line_finish_include_directories_record();
    dwarf_line_start_file_names_record();
    dwarf_line_add_file_name("f", 1, 0, 0);
    dwarf_line_finish_file_names_record();
    dwarf_line_start_statement_program(unit);
    dwarf_line_start_sequence(unit, 300, 0x100);
    dwarf_line_end_sequence(unit);
    dwarf_line_finish_statement_program();
    EXPECT_EQ(dwarf_line_finish_compile_unit_information(unit), mark.start() / 2);
    EXPECT_EQ(mark.added(),
              spread({45,  0, 0, 0, 2, 0, 23, 0, 0,    0, 2, 1, 0xF1, 20, 10, 0, 1, 1, 1, 1, 0, 0, 0, 1, //
                      'd', 0, 0,                                                                         //
                      'f', 0, 1, 0, 0, 0,                                                                //
                      0,   5, 2, 0, 1, 0, 0,  3, 0xAC, 2, 1,                                             //
                      2,   1, 0, 1, 1}));
}

TEST_F(dwarf_line_writer, lengths_leave_their_field_out_before_they_are_scaled)
{
    dwarf_access = &halving_accessors;
    // (26 + 5 - 4) / 2 and (26 - 6 - 4) / 2
    EXPECT_EQ(unit_bytes(2, [](line_unit_info *unit) { dwarf_line_end_sequence(unit); }),
              joined({{13, 0, 0, 0, 2, 0, 8, 0, 0, 0}, header_tail(2), {2, 1, 0, 1, 1}}));
}

TEST(dwarf_line_constants, are_those_of_the_header)
{
    EXPECT_EQ(DWARF_LINE_BASE, -15);
    EXPECT_EQ(DWARF_LINE_RANGE, 20);
    EXPECT_EQ(DWARF_LINE_OPCODE_BASE, 10);
    EXPECT_EQ(DWARF_lINE_MAX_SPECIAL_OPCODE, 255U);
    EXPECT_EQ(dwarf_standard_opcode_lengths, (std::array<std::uint8_t, 9>{0, 1, 1, 1, 1, 0, 0, 0, 1}));
}

// --- opcodes ------------------------------------------------------------------------------------------------------------

struct advance_case {
    std::uint8_t minimum_instruction_length;
    std::int32_t line_delta;
    std::uint32_t address_delta;
    bytes expected;
};

const advance_case ADVANCES[] = {
    // Both steps in one opcode; a small step of the line also where the address stays
    {2, 1, 4, {66}},
    {2, 1, 1, {26}},
    {2, 1, 0, {26}},
    // No step of the line; what makes no whole instruction is dropped
    {2, 0, 0, {1}},
    {2, 0, 1, {1}},
    {2, 0, 2, {45}},
    {2, 0, 3, {45}},
    {2, 0, 22, {245}},
    {2, 0, 23, {245}},
    // From 12 units on DW_LNS_const_add_pc helps, up to twice that
    {2, 0, 24, {8, 25}},
    {2, 0, 46, {8, 245}},
    {2, 0, 48, {2, 24, 1}},
    {2, 4, 20, {229}},
    {2, 4, 22, {249}},
    {2, 4, 24, {8, 29}},
    {2, 4, 46, {8, 249}},
    {2, 4, 47, {8, 249}},
    {2, 4, 48, {2, 24, 29}},
    // A step back leaves more room for the address, but 24 units are too many all the same
    {2, -10, 24, {255}},
    {2, -9, 24, {8, 16}},
    {2, -15, 24, {250}},
    {2, -15, 26, {8, 30}},
    {2, -15, 46, {8, 230}},
    {2, -10, 48, {2, 24, 15}},
    // Both ends of the span of small steps, and DW_LNS_advance_line beyond them
    {2, -15, 0, {10}},
    {2, -15, 4, {50}},
    {2, -16, 4, {3, 0x70, 65}},
    {2, -16, 1, {3, 0x70, 1}},
    {2, 4, 4, {69}},
    {2, 5, 4, {3, 5, 65}},
    {2, 5, 0, {3, 5, 1}},
    {2, 30, 4, {3, 30, 65}},
    {2, 30, 1, {3, 30, 1}},
    {2, 30, 24, {3, 30, 8, 25}},
    {2, 30, 48, {3, 30, 2, 24, 1}},
    {2, 300, 4, {3, 0xAC, 2, 65}},
    {2, LOWEST, 4, {3, 0x80, 0x80, 0x80, 0x80, 0x78, 65}},
    {2, HIGHEST, 4, {3, 0xFF, 0xFF, 0xFF, 0xFF, 0x07, 65}},
    // Large steps of the address
    {2, -1, 256, {2, 0x80, 1, 24}},
    {2, 0, 0xFFFFFFFF, {2, 0xFF, 0xFF, 0xFF, 0xFF, 0x07, 1}},
    {2, 4, 0xFFFFFFFF, {2, 0xFF, 0xFF, 0xFF, 0xFF, 0x07, 29}},
    {1, 0, 0xFFFFFFFF, {2, 0xFF, 0xFF, 0xFF, 0xFF, 0x0F, 1}},
    {1, -15, 0xFFFFFFFF, {2, 0xFF, 0xFF, 0xFF, 0xFF, 0x0F, 10}},
    // Twenty times these is 2^34 + 16 and 2^32 + 4: in 32 bits they would look like small ones
    {1, 0, 0x33333334, {2, 0xB4, 0xE6, 0xCC, 0x99, 0x03, 1}},
    {1, 0, 0x0CCCCCCD, {2, 0xCD, 0x99, 0xB3, 0x66, 1}},
    // Other instruction lengths
    {1, 0, 11, {245}},
    {1, 0, 12, {8, 25}},
    {1, 0, 23, {8, 245}},
    {1, 0, 24, {2, 24, 1}},
    {4, 0, 3, {1}},
    {4, 0, 4, {45}},
    {4, 1, 3, {26}},
    {4, 2, 7, {47}},
    {4, 0, 47, {245}},
    {4, 0, 48, {8, 25}},
    {4, 0, 95, {8, 245}},
    {4, 0, 96, {2, 24, 1}},
    {255, 0, 254, {1}},
    {255, 0, 255, {45}},
};

TEST_F(dwarf_line_writer, advance_chooses_its_opcodes)
{
    for (const advance_case &row : ADVANCES) {
        EXPECT_EQ(program_bytes(row.minimum_instruction_length,
                                [&row](line_unit_info *unit) {
                                    dwarf_line_advance_line_and_pc(unit, row.line_delta, row.address_delta);
                                }),
                  row.expected)
            << "instructions of " << unsigned{row.minimum_instruction_length} << ", line " << row.line_delta
            << ", address " << row.address_delta;
    }
}

struct start_case {
    std::int32_t line_delta;
    bytes expected; // behind DW_LNE_set_address
};

const start_case STARTS[] = {
    {0, {1}},
    {1, {26}},
    {4, {29}},
    {5, {3, 5, 1}},
    {-1, {24}},
    {-15, {10}},
    {-16, {3, 0x70, 1}},
    {99, {3, 0xE3, 0, 1}},
    {HIGHEST, {3, 0xFF, 0xFF, 0xFF, 0xFF, 0x07, 1}},
    {LOWEST, {3, 0x80, 0x80, 0x80, 0x80, 0x78, 1}},
};

TEST_F(dwarf_line_writer, start_of_a_sequence_sets_the_address_and_makes_a_row)
{
    for (const start_case &row : STARTS) {
        EXPECT_EQ(program_bytes(
                      2, [&row](line_unit_info *unit) { dwarf_line_start_sequence(unit, row.line_delta, 0x89ABCDEF); }),
                  joined({{0, 5, 2, 0xEF, 0xCD, 0xAB, 0x89}, row.expected}))
            << "line " << row.line_delta;
    }
}

TEST_F(dwarf_line_writer, start_address_has_the_address_size)
{
    const auto start = [](line_unit_info *unit) { dwarf_line_start_sequence(unit, 1, 0x89ABCDEF); };
    dwarf_line_init(1);
    EXPECT_EQ(program_bytes(2, start), (bytes{0, 2, 2, 0xEF, 26}));
    dwarf_line_init(2);
    EXPECT_EQ(program_bytes(2, start), (bytes{0, 3, 2, 0xEF, 0xCD, 26}));
    dwarf_line_init(8);
    EXPECT_EQ(program_bytes(2, start), (bytes{0, 9, 2, 0xEF, 0xCD, 0xAB, 0x89, 0, 0, 0, 0, 26}));
}

TEST_F(dwarf_line_writer, end_of_a_sequence_is_one_instruction_further)
{
    for (const std::uint8_t minimum : bytes{1, 2, 4}) {
        EXPECT_EQ(program_bytes(minimum, [](line_unit_info *unit) { dwarf_line_end_sequence(unit); }),
                  (bytes{2, 1, 0, 1, 1}));
    }
}

TEST_F(dwarf_line_writer, file_goes_out_as_it_is_given)
{
    EXPECT_EQ(program_bytes(2,
                            [](line_unit_info *) {
                                dwarf_line_set_file(0);
                                dwarf_line_set_file(1);
                                dwarf_line_set_file(127);
                                dwarf_line_set_file(128);
                                dwarf_line_set_file(0xFFFFFFFF);
                            }),
              (bytes{4, 0, 4, 1, 4, 127, 4, 0x80, 1, 4, 0xFF, 0xFF, 0xFF, 0xFF, 0x0F}));
}

TEST_F(dwarf_line_writer, sequence_may_start_again_without_an_end)
{
    EXPECT_EQ(program_bytes(2,
                            [](line_unit_info *unit) {
                                dwarf_line_start_sequence(unit, 0, 0);
                                dwarf_line_start_sequence(unit, 2, 4);
                                dwarf_line_advance_line_and_pc(unit, 0, 0);
                            }),
              (bytes{0, 5, 2, 0, 0, 0, 0, 1, 0, 5, 2, 4, 0, 0, 0, 27, 1}));
}

TEST_F(dwarf_line_writer, last_resort_fails_no_assertion)
{
    const trace_log log;
    program_bytes(2, [](line_unit_info *unit) {
        for (std::int32_t line = -20; line < 20; line++) {
            dwarf_line_advance_line_and_pc(unit, line, 1000);
        }
    });
    EXPECT_EQ(log.failed(), std::vector<std::string>());
}

// --- order of calls -----------------------------------------------------------------------------------------------------

// A unit in the order of its operations: the step at index n leads from state n - 1 to state n.
line_unit_info *open_unit = nullptr;

using line_step = void (*)();
const line_step STEPS[] = {
    [] { dwarf_line_init(ADDRESS_SIZE); },
    [] { open_unit = dwarf_line_start_compile_unit_information(2, 2); },
    dwarf_line_start_include_directories_record,
    dwarf_line_finish_include_directories_record,
    dwarf_line_start_file_names_record,
    dwarf_line_finish_file_names_record,
    [] { dwarf_line_start_statement_program(open_unit); },
    dwarf_line_finish_statement_program,
    [] { dwarf_line_finish_compile_unit_information(open_unit); },
};
constexpr std::size_t STATES = std::size(STEPS);

struct line_operation {
    const char *name;
    std::size_t needed_state;
    line_step call;
};

const line_operation OPERATIONS[] = {
    {"start_include_directories_record", 1, STEPS[2]},
    {"add_include_directory", 2, [] { dwarf_line_add_include_directory("d"); }},
    {"finish_include_directories_record", 2, STEPS[3]},
    {"start_file_names_record", 3, STEPS[4]},
    {"add_file_name", 4, [] { dwarf_line_add_file_name("f", 0, 0, 0); }},
    {"finish_file_names_record", 4, STEPS[5]},
    {"start_statement_program", 5, STEPS[6]},
    {"set_file", 6, [] { dwarf_line_set_file(1); }},
    {"start_sequence", 6, [] { dwarf_line_start_sequence(open_unit, 1, 0); }},
    {"advance_line_and_pc", 6, [] { dwarf_line_advance_line_and_pc(open_unit, 1, 2); }},
    {"end_sequence", 6, [] { dwarf_line_end_sequence(open_unit); }},
    {"finish_statement_program", 6, STEPS[7]},
    {"finish_compile_unit_information", 7, STEPS[8]},
};

// A unit for each pair of a state and an operation. The units that are not finished stay with the process.
std::vector<line_unit_info *> &unfinished_units()
{
    static auto *units = new std::vector<line_unit_info *>;
    return *units;
}

void reach_state(std::size_t state)
{
    for (std::size_t step = 0; step <= state; step++) {
        STEPS[step]();
    }
}

TEST(dwarf_line_order, each_operation_has_one_state)
{
    std::string expected;
    for (std::size_t state = 1; state < STATES - 1; state++) {
        for (const line_operation &operation : OPERATIONS) {
            expected += std::to_string(state) + " " + operation.name + "\n";
            if (operation.needed_state != state) {
                expected += LOWERED_ERROR_LINE;
            }
        }
    }
    expect_run(
        [] {
            enter_scratch_folder();
            write_file(LOWERING_CATALOGUE, LOWERED_ERROR_ROW);
            const dwarf_room room;
            for (std::size_t state = 1; state < STATES - 1; state++) {
                for (const line_operation &operation : OPERATIONS) {
                    reach_state(state);
                    note("%zu %s", state, operation.name);
                    operation.call();
                    if (operation.call != STEPS[STATES - 1]) {
                        unfinished_units().push_back(open_unit);
                    }
                }
            }
        },
        expected);
}

TEST(dwarf_line_order, nothing_but_a_new_unit_follows_opening_and_a_finished_unit)
{
    std::string expected;
    for (const char *state : {"opened", "finished"}) {
        for (const line_operation &operation : OPERATIONS) {
            expected += std::string(state) + " " + operation.name + "\n" + LOWERED_ERROR_LINE;
        }
    }
    expect_run(
        [] {
            enter_scratch_folder();
            write_file(LOWERING_CATALOGUE, LOWERED_ERROR_ROW);
            const dwarf_room room;
            dwarf_line_init(ADDRESS_SIZE);
            // An operation out of its turn needs a unit all the same; one is kept aside for it.
            const auto try_all = [](const char *state, void (*reach)()) {
                for (const line_operation &operation : OPERATIONS) {
                    line_unit_info *aside = dwarf_line_start_compile_unit_information(2, 2);
                    reach();
                    open_unit = aside;
                    note("%s %s", state, operation.name);
                    operation.call();
                    if (operation.call != STEPS[STATES - 1]) {
                        unfinished_units().push_back(aside);
                    }
                }
            };
            try_all("opened", [] { reach_state(0); });
            try_all("finished", [] { reach_state(STATES - 1); });
        },
        expected);
}

TEST(dwarf_line_order, an_operation_out_of_turn_ends_the_run)
{
    expect_run(
        [] {
            const dwarf_room room;
            dwarf_line_init(ADDRESS_SIZE);
            unfinished_units().push_back(dwarf_line_start_compile_unit_information(2, 2));
            dwarf_line_add_file_name("f", 0, 0, 0);
            note("not reached");
        },
        INTERNAL_ERROR_LINE, INTERNAL_ERROR_STATUS);
}

TEST(dwarf_line_order, traces_name_the_states)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file(LOWERING_CATALOGUE, LOWERED_ERROR_ROW);
            const dwarf_room room;
            const trace_log log;
            gDebugMask = TRACE_DWARF;
            reach_state(1);
            dwarf_line_add_file_name("f", 0, 0, 0);
            dwarf_line_start_file_names_record();
            gDebugMask = TRACE_ON; // of the other classes, none has these lines
            dwarf_line_set_file(1);
            dwarf_line_finish_statement_program();
            unfinished_units().push_back(open_unit);
            for (const std::string &line : log.lines()) {
                note("%s", line.c_str());
            }
        },
        LOWERED_ERROR_LINE + LOWERED_ERROR_LINE + LOWERED_ERROR_LINE + LOWERED_ERROR_LINE +
            "dwarf_line_check_current_state: Invalid current state: 1, expecting 4\n"
            "dwarf_line_check_and_set_next_state: Invalid next state: 4, expecting 2\n");
}

TEST(dwarf_line_order, a_lowered_report_lets_the_operation_take_its_turn)
{
    // The tables are opened too late, and all that was written stays.
    const bytes unit = joined({{27, 0, 0, 0, 2, 0, 21, 0, 0, 0},
                               {2, 1, 0xF1, 20, 10, 0, 1, 1, 1, 1, 0, 0, 0, 1},
                               text_bytes("f"),
                               {0, 0, 0},
                               {0, 0}});
    expect_run(
        [] {
            enter_scratch_folder();
            write_file(LOWERING_CATALOGUE, LOWERED_ERROR_ROW);
            const dwarf_room room;
            reach_state(1);
            dwarf_line_add_file_name("f", 0, 0, 0);
            put_empty_tables();
            dwarf_line_start_statement_program(open_unit);
            dwarf_line_finish_statement_program();
            note("%u", dwarf_line_finish_compile_unit_information(open_unit));
            std::uint8_t *data = nullptr;
            std::uint32_t size = 0;
            dwarf_line_finalize(&data, &size);
            note("%s", hex({data, data + size}).c_str());
        },
        LOWERED_ERROR_LINE + "0\n" + hex(unit) + "\n");
}

TEST(dwarf_line_order, a_lowered_report_comes_once_for_a_step_left_out)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file(LOWERING_CATALOGUE, LOWERED_ERROR_ROW);
            const dwarf_room room;
            reach_state(1);
            note("no directories");
            dwarf_line_start_file_names_record();
            dwarf_line_add_file_name("f", 0, 0, 0);
            dwarf_line_finish_file_names_record();
            note("program left open");
            dwarf_line_start_statement_program(open_unit);
            dwarf_line_finish_compile_unit_information(open_unit);
        },
        "no directories\n" + LOWERED_ERROR_LINE + "program left open\n" + LOWERED_ERROR_LINE);
}

TEST(dwarf_line_order, a_section_that_was_not_opened_is_an_internal_error)
{
    expect_run(
        [] {
            const dwarf_room room;
            unfinished_units().push_back(dwarf_line_start_compile_unit_information(2, 2));
            note("not reached");
        },
        INTERNAL_ERROR_LINE, INTERNAL_ERROR_STATUS);
}

} // namespace

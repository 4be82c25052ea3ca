// SPDX-License-Identifier: MIT
// The writer of .debug_line: one line unit for each compile unit. The operations come in a fixed order; one out of turn
// is an internal error.
#pragma once

#include <array>
#include <cstdint>

#include "compiler/tarnwick/dwarf_section.h"

struct line_unit_info;

// What the header of every line unit says of its special opcodes: `DWARF_LINE_RANGE` steps of the line from
// `DWARF_LINE_BASE` up, for each step of the address.
inline constexpr std::int8_t DWARF_LINE_BASE = -15;
inline constexpr std::uint8_t DWARF_LINE_RANGE = 20;
inline constexpr std::uint8_t DWARF_LINE_OPCODE_BASE = 10; // the first special opcode
inline constexpr std::uint32_t DWARF_lINE_MAX_SPECIAL_OPCODE = 255;

// The number of LEB128 operands of the standard opcodes, from opcode 1 on.
inline constexpr std::array<std::uint8_t, DWARF_LINE_OPCODE_BASE - 1> dwarf_standard_opcode_lengths = {
    0, // DW_LNS_copy
    1, // DW_LNS_advance_pc
    1, // DW_LNS_advance_line
    1, // DW_LNS_set_file
    1, // DW_LNS_set_column
    0, // DW_LNS_negate_stmt
    0, // DW_LNS_set_basic_block
    0, // DW_LNS_const_add_pc
    1, // DW_LNS_fixed_advance_pc; its operand is a half-word
};

void dwarf_line_init(std::uint8_t addr_size);
// Offset of the unit about to start.
std::uint32_t dwarf_line_get_offset();
line_unit_info *dwarf_line_start_compile_unit_information(std::uint16_t version,
                                                          std::uint8_t minimum_instruction_length);
void dwarf_line_start_include_directories_record();
void dwarf_line_add_include_directory(const char *dir);
void dwarf_line_finish_include_directories_record();
void dwarf_line_start_file_names_record();
void dwarf_line_add_file_name(const char *name, std::uint32_t dir_index, std::uint32_t time, std::uint32_t size);
void dwarf_line_finish_file_names_record();
void dwarf_line_start_statement_program(line_unit_info *unit);
void dwarf_line_set_file(std::uint32_t file);
void dwarf_line_start_sequence(line_unit_info *unit, std::int32_t line_delta, std::uint32_t address);
void dwarf_line_advance_line_and_pc(line_unit_info *unit, std::int32_t line_delta, std::uint32_t address_delta);
void dwarf_line_end_sequence(line_unit_info *unit);
void dwarf_line_finish_statement_program();
// The unit's offset.
std::uint32_t dwarf_line_finish_compile_unit_information(line_unit_info *unit);
void dwarf_line_finalize(std::uint8_t **data, std::uint32_t *size);

// SPDX-License-Identifier: MIT
// What the tests of the line section share: units without directories and files, and their programs.
#pragma once

#include <cstdint>
#include <limits>

#include <gtest/gtest.h>

#include "compiler/tarnwick/dwarf_line.h"
#include "tests/unit/tarnwick/dwarf_bytes.h"

namespace dwarf_line_testing {

inline constexpr std::int32_t LOWEST = std::numeric_limits<std::int32_t>::min();
inline constexpr std::int32_t HIGHEST = std::numeric_limits<std::int32_t>::max();
inline constexpr std::uint8_t ADDRESS_SIZE = 4;

// The header of a unit without directories and files, from its minimum instruction length on.
inline bytes header_tail(std::uint8_t minimum_instruction_length)
{
    return {minimum_instruction_length, 1, 0xF1, 20, 10, 0, 1, 1, 1, 1, 0, 0, 0, 1, 0, 0};
}
inline constexpr std::size_t EMPTY_HEADER_SIZE = 26; // all of it, with both lengths and the version

inline void put_empty_tables()
{
    dwarf_line_start_include_directories_record();
    dwarf_line_finish_include_directories_record();
    dwarf_line_start_file_names_record();
    dwarf_line_finish_file_names_record();
}

class dwarf_line_writer : public testing::Test {
protected:
    dwarf_line_writer() { dwarf_line_init(ADDRESS_SIZE); }

    // The bytes of a unit without directories and files, and of its program.
    template <typename Program>
    static bytes unit_bytes(std::uint8_t minimum_instruction_length, Program program)
    {
        const section_mark mark(dwarf_line_finalize);
        line_unit_info *unit = dwarf_line_start_compile_unit_information(2, minimum_instruction_length);
        put_empty_tables();
        dwarf_line_start_statement_program(unit);
        program(unit);
        dwarf_line_finish_statement_program();
        dwarf_line_finish_compile_unit_information(unit);
        return mark.added();
    }
    template <typename Program>
    static bytes program_bytes(std::uint8_t minimum_instruction_length, Program program)
    {
        const bytes unit = unit_bytes(minimum_instruction_length, program);
        return {unit.begin() + EMPTY_HEADER_SIZE, unit.end()};
    }

private:
    dwarf_room room_;
};

} // namespace dwarf_line_testing

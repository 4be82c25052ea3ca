// SPDX-License-Identifier: MIT
// Line units: header, directories and files as they are given, and the choice of opcodes for each row.
#include "compiler/tarnwick/dwarf_line.h"

#include <cstdlib>
#include <type_traits>

#include "common/alloc.h"
#include "common/trace.h"
#include "compiler/tarnwick/dwarf_accessors.h"
#include "compiler/tarnwick/dwarf_names.h"

struct line_unit_info {
    std::uint32_t unit_length_offset = 0; // from the start of the section
    std::uint32_t header_length_offset = 0;
    std::uint8_t minimum_instruction_length = 1;
    std::int8_t line_base = DWARF_LINE_BASE;
    std::uint8_t line_range = DWARF_LINE_RANGE;
    std::uint8_t opcode_base = DWARF_LINE_OPCODE_BASE;
};
static_assert(std::is_trivially_destructible_v<line_unit_info>);

namespace {

constexpr std::uint32_t BUFFER_SIZE = 2048;
constexpr std::uint32_t BUFFER_THRESHOLD = 128;
constexpr std::uint32_t LENGTH_SIZE = 4; // of both length fields

constexpr std::uint8_t DEFAULT_IS_STMT = 1;
constexpr std::uint8_t END_OF_TABLE = 0;
constexpr std::uint8_t EXTENDED_OPCODE = 0; // its length and the real opcode follow
constexpr std::uint8_t OPCODE_SIZE = 1;
constexpr std::uint32_t END_SEQUENCE_STEP = 1; // instructions from the last row to the end of its sequence

// How far a unit has come. The operations follow in this order; those without a state of their own repeat in one.
enum line_state : std::uint32_t {
    LINE_OPENED = 0,
    LINE_UNIT_STARTED = 1,
    LINE_DIRECTORIES_STARTED = 2,
    LINE_DIRECTORIES_FINISHED = 3,
    LINE_FILES_STARTED = 4,
    LINE_FILES_FINISHED = 5,
    LINE_PROGRAM_STARTED = 6,
    LINE_PROGRAM_FINISHED = 7,
    LINE_UNIT_FINISHED = 8,
};

section_info section;
std::uint8_t address_size = 0;
std::uint32_t dwarf_line_state = LINE_OPENED;

// The two checks: where the report has been lowered, the operation goes on as if its turn had come.

void dwarf_line_check_and_set_next_state(line_state next)
{
    dwarf_section_ensure_initalisation_and_enough_memory(&section);
    const std::uint32_t expected = dwarf_line_state + 1;
    if (next != expected) {
        TRACEF(TRACE_DWARF, "%s: Invalid next state: %d, expecting %d", __func__, static_cast<int>(next),
               static_cast<int>(expected));
        dwarf_internal_error();
    }
    dwarf_line_state = next;
}

[[gnu::noinline, gnu::cold]] void wrong_current_state(const char *operation, line_state expected)
{
    TRACEF(TRACE_DWARF, "%s: Invalid current state: %d, expecting %d", operation, static_cast<int>(dwarf_line_state),
           static_cast<int>(expected));
    dwarf_internal_error();
}

void dwarf_line_check_current_state(line_state expected)
{
    dwarf_section_ensure_initalisation_and_enough_memory(&section);
    if (dwarf_line_state != expected) [[unlikely]] {
        wrong_current_state(__func__, expected);
    }
}

// Fills in a length that counts from behind its own field.
void patch_length(std::uint32_t offset)
{
    const std::uint32_t distance = dwarf_section_get_size(&section) - offset;
    const std::uint32_t length =
        dwarf_access->dwarf_unscale_offset(distance - dwarf_access->dwarf_scale_offset(LENGTH_SIZE));
    dwarf_section_patch4(&section, length, offset);
}

// In 64 bits, where a step of any size has room.
std::int64_t dwarf_line_calculate_special_opcode(const line_unit_info *unit, std::int32_t line_delta,
                                                 std::uint32_t address_delta)
{
    return (std::int64_t{line_delta} - unit->line_base) + std::int64_t{unit->line_range} * address_delta +
           unit->opcode_base;
}

// A step of the line that a special opcode can make.
bool is_small_line_step(const line_unit_info *unit, std::int32_t line_delta)
{
    return line_delta != 0 && line_delta >= unit->line_base && line_delta < unit->line_base + unit->line_range;
}

// False, and nothing is written, when no special opcode makes both steps.
bool put_special_opcode(const line_unit_info *unit, std::int32_t line_delta, std::uint32_t address_delta)
{
    const std::int64_t special_opcode = dwarf_line_calculate_special_opcode(unit, line_delta, address_delta);
    if (special_opcode > DWARF_lINE_MAX_SPECIAL_OPCODE) {
        return false;
    }
    dwarf_section_put1(&section, static_cast<std::uint8_t>(special_opcode));
    return true;
}

void put_copy()
{
    dwarf_section_put1(&section, DW_LNS_copy);
}

void put_advance_line(std::int32_t line_delta)
{
    if (line_delta != 0) {
        dwarf_section_put1(&section, DW_LNS_advance_line);
        dwarf_section_put_sleb(&section, line_delta);
    }
}

void put_advance_pc(std::uint32_t units)
{
    dwarf_section_put1(&section, DW_LNS_advance_pc);
    dwarf_section_put_uleb(&section, units);
}

// DW_LNS_const_add_pc makes the address step of special opcode 255, and a special opcode the rest. False, and nothing is
// written, when the two don't reach that far, or reach too far.
bool put_const_add_pc(const line_unit_info *unit, std::int32_t line_delta, std::uint32_t units)
{
    const std::uint32_t max_address_delta = (DWARF_lINE_MAX_SPECIAL_OPCODE - unit->opcode_base) / unit->line_range;
    if (units < max_address_delta || units >= 2 * max_address_delta) {
        return false;
    }
    const std::uint32_t rest = units - max_address_delta;
    if (dwarf_line_calculate_special_opcode(unit, line_delta, rest) > DWARF_lINE_MAX_SPECIAL_OPCODE) {
        return false;
    }
    dwarf_section_put1(&section, DW_LNS_const_add_pc);
    return put_special_opcode(unit, line_delta, rest);
}

// A row `units` instructions further on. `line_delta` is 0 or a small step.
void put_row(const line_unit_info *unit, std::int32_t line_delta, std::uint32_t units)
{
    if (put_special_opcode(unit, line_delta, units) || put_const_add_pc(unit, line_delta, units)) {
        return;
    }
    put_advance_pc(units);
    if (line_delta == 0) {
        put_copy();
        return;
    }
    const std::int64_t special_opcode = dwarf_line_calculate_special_opcode(unit, line_delta, 0);
    DB_ASSERT(special_opcode >= 0, "special_opcode >= 0");
    DB_ASSERT(special_opcode <= DWARF_lINE_MAX_SPECIAL_OPCODE, "special_opcode <= DWARF_lINE_MAX_SPECIAL_OPCODE");
    dwarf_section_put1(&section, static_cast<std::uint8_t>(special_opcode));
}

} // namespace

void dwarf_line_init(std::uint8_t addr_size)
{
    dwarf_section_init(&section, BUFFER_SIZE, BUFFER_THRESHOLD);
    address_size = addr_size;
    dwarf_line_state = LINE_OPENED;
}

std::uint32_t dwarf_line_get_offset()
{
    return dwarf_access->dwarf_unscale_offset(dwarf_section_get_size(&section));
}

line_unit_info *dwarf_line_start_compile_unit_information(std::uint16_t version,
                                                          std::uint8_t minimum_instruction_length)
{
    dwarf_section_ensure_initalisation_and_enough_memory(&section);
    dwarf_line_state = LINE_UNIT_STARTED;

    auto *unit = place_record<line_unit_info>(dwarf_section_alloc_memory(sizeof(line_unit_info)));
    unit->minimum_instruction_length = minimum_instruction_length != 0 ? minimum_instruction_length : std::uint8_t{1};
    unit->unit_length_offset = dwarf_section_get_size(&section);
    dwarf_section_reserve(&section, LENGTH_SIZE);
    dwarf_section_put2(&section, version);
    unit->header_length_offset = dwarf_section_get_size(&section);
    dwarf_section_reserve(&section, LENGTH_SIZE);
    dwarf_section_put1(&section, unit->minimum_instruction_length);
    dwarf_section_put1(&section, DEFAULT_IS_STMT);
    dwarf_section_put1(&section, static_cast<std::uint8_t>(unit->line_base));
    dwarf_section_put1(&section, unit->line_range);
    dwarf_section_put1(&section, unit->opcode_base);
    for (const std::uint8_t length : dwarf_standard_opcode_lengths) {
        dwarf_section_put_uleb(&section, length);
    }
    return unit;
}

void dwarf_line_start_include_directories_record()
{
    dwarf_line_check_and_set_next_state(LINE_DIRECTORIES_STARTED);
}

void dwarf_line_add_include_directory(const char *dir)
{
    dwarf_line_check_current_state(LINE_DIRECTORIES_STARTED);
    dwarf_section_put_string(&section, dir);
}

void dwarf_line_finish_include_directories_record()
{
    dwarf_line_check_and_set_next_state(LINE_DIRECTORIES_FINISHED);
    dwarf_section_put1(&section, END_OF_TABLE);
}

void dwarf_line_start_file_names_record()
{
    dwarf_line_check_and_set_next_state(LINE_FILES_STARTED);
}

void dwarf_line_add_file_name(const char *name, std::uint32_t dir_index, std::uint32_t time, std::uint32_t size)
{
    dwarf_line_check_current_state(LINE_FILES_STARTED);
    dwarf_section_put_string(&section, name);
    dwarf_section_put_uleb(&section, dir_index);
    dwarf_section_put_uleb(&section, time);
    dwarf_section_put_uleb(&section, size);
}

void dwarf_line_finish_file_names_record()
{
    dwarf_line_check_and_set_next_state(LINE_FILES_FINISHED);
    dwarf_section_put1(&section, END_OF_TABLE);
}

void dwarf_line_start_statement_program(line_unit_info *unit)
{
    dwarf_line_check_and_set_next_state(LINE_PROGRAM_STARTED);
    patch_length(unit->header_length_offset);
}

// The operand is the caller's index, which counts from 0 where the standard counts from 1: debuggers in the field rely
// on it.
void dwarf_line_set_file(std::uint32_t file)
{
    dwarf_line_check_current_state(LINE_PROGRAM_STARTED);
    dwarf_section_put1(&section, DW_LNS_set_file);
    dwarf_section_put_uleb(&section, file);
}

void dwarf_line_start_sequence(line_unit_info *unit, std::int32_t line_delta, std::uint32_t address)
{
    dwarf_line_check_current_state(LINE_PROGRAM_STARTED);
    dwarf_section_put1(&section, EXTENDED_OPCODE);
    dwarf_section_put1(&section, static_cast<std::uint8_t>(address_size + OPCODE_SIZE));
    dwarf_section_put1(&section, DW_LNE_set_address);
    dwarf_section_put(&section, address, address_size);
    if (is_small_line_step(unit, line_delta) && put_special_opcode(unit, line_delta, 0)) {
        return;
    }
    put_advance_line(line_delta);
    put_copy();
}

void dwarf_line_advance_line_and_pc(line_unit_info *unit, std::int32_t line_delta, std::uint32_t address_delta)
{
    dwarf_line_check_current_state(LINE_PROGRAM_STARTED);
    const std::uint32_t units = address_delta / unit->minimum_instruction_length;
    if (is_small_line_step(unit, line_delta)) {
        put_row(unit, line_delta, units);
        return;
    }
    put_advance_line(line_delta);
    if (units == 0) { // bytes that make no whole instruction don't count
        put_copy();
        return;
    }
    put_row(unit, 0, units);
}

void dwarf_line_end_sequence(line_unit_info *)
{
    dwarf_line_check_current_state(LINE_PROGRAM_STARTED);
    put_advance_pc(END_SEQUENCE_STEP);
    dwarf_section_put1(&section, EXTENDED_OPCODE);
    dwarf_section_put_uleb(&section, OPCODE_SIZE);
    dwarf_section_put1(&section, DW_LNE_end_sequence);
}

void dwarf_line_finish_statement_program()
{
    dwarf_line_check_and_set_next_state(LINE_PROGRAM_FINISHED);
}

std::uint32_t dwarf_line_finish_compile_unit_information(line_unit_info *unit)
{
    dwarf_line_check_and_set_next_state(LINE_UNIT_FINISHED);
    const std::uint32_t unit_offset = unit->unit_length_offset;
    patch_length(unit_offset);
    std::free(unit);
    return dwarf_access->dwarf_unscale_offset(unit_offset);
}

void dwarf_line_finalize(std::uint8_t **data, std::uint32_t *size)
{
    dwarf_section_finish(&section, data, size);
}

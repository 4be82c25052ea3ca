// SPDX-License-Identifier: MIT
// The dump of line programs. The matrix of a sequence is made by a second run over its statements, so that a sequence
// without an end costs no memory.
#include <algorithm>
#include <ctime>

#include "common/trace.h"
#include "compiler/tarnwick/dwarf_dump_sections.h"
#include "compiler/tarnwick/dwarf_line.h"
#include "compiler/tarnwick/dwarf_name_tables.h"
#include "compiler/tarnwick/dwarf_names.h"

namespace {

// Line opcodes that are only ever read.
enum read_line_opcode : std::uint8_t {
    EXTENDED = 0,
    DW_LNS_set_column = 5,
    DW_LNS_negate_stmt = 6,
    DW_LNS_set_basic_block = 7,
    DW_LNS_fixed_advance_pc = 9,
};
constexpr std::uint8_t DW_LNE_define_file = 3;
constexpr std::uint8_t LAST_OPCODE = 255;
constexpr std::size_t NAME_WIDTH = 24;
constexpr std::size_t SERIAL_WIDTH = 5;
constexpr std::size_t ADDRESS_WIDTH = 16;
constexpr std::size_t COLUMN_WIDTH = 10;
constexpr std::size_t TABLE_NUMBER_WIDTH = 5;

struct line_header {
    std::uint8_t minimum_instruction_length = 1;
    std::uint8_t default_is_stmt = 0;
    std::int8_t line_base = 0;
    std::uint8_t line_range = 0;
    std::uint8_t opcode_base = 0;
};

struct line_registers {
    std::uint64_t address = 0;
    std::uint64_t line = 1; // as a signed number
    std::uint32_t file = 1;
    std::uint32_t column = 0;
    bool is_stmt = false;
    bool basic_block = false;
};

enum class statement : std::uint8_t {
    NO_ROW,
    ROW,
    END_OF_SEQUENCE, // a row too
    UNKNOWN,
};

// Runs statements, and tells each one if it is asked to.
class line_machine {
public:
    line_machine(const line_header &header, dwarf_text &out, bool telling)
        : header_(header), out_(out), telling_(telling)
    {
        start_sequence();
    }

    void start_sequence()
    {
        registers_ = {};
        registers_.is_stmt = header_.default_is_stmt != 0;
    }
    const line_registers &registers() const { return registers_; }
    void row_done() { registers_.basic_block = false; }

    // One statement. What it says about itself is only complete if the cursor has not failed.
    statement run(dwarf_cursor &at)
    {
        const std::uint8_t opcode = at.get1();
        if (opcode == EXTENDED) {
            return run_extended(at);
        }
        return opcode < header_.opcode_base ? run_standard(at, opcode) : run_special(opcode);
    }

private:
    statement run_standard(dwarf_cursor &at, std::uint8_t opcode)
    {
        switch (opcode) {
        case DW_LNS_copy:
            return name_alone(dwarf_line_names, opcode, at, statement::ROW);
        case DW_LNS_advance_pc:
            return advance_address(at, opcode, at.uleb(), header_.minimum_instruction_length);
        case DW_LNS_fixed_advance_pc:
            return advance_address(at, opcode, at.get2(), 1);
        case DW_LNS_advance_line:
            return advance_line(at, at.sleb());
        case DW_LNS_set_file:
            return set_file(at, at.uleb());
        case DW_LNS_set_column:
            return set_column(at, at.uleb());
        case DW_LNS_negate_stmt:
            return negate_stmt(at);
        case DW_LNS_set_basic_block:
            registers_.basic_block = true;
            return name_alone(dwarf_line_names, opcode, at, statement::NO_ROW);
        case DW_LNS_const_add_pc:
            return const_add_pc(at);
        default:
            return statement::UNKNOWN;
        }
    }

    statement advance_address(const dwarf_cursor &at, std::uint8_t opcode, std::uint64_t operand, std::uint64_t factor)
    {
        const std::uint64_t advance = operand * factor;
        registers_.address += advance;
        if (name(dwarf_line_names, opcode, at)) {
            out_.text(": 0x").upper_hex(operand).text(" (Advance Address by 0x").hex(advance);
            out_.text(" to 0x").hex(registers_.address).text(")\n");
        }
        return statement::NO_ROW;
    }
    // This advance has never been multiplied by the instruction length, whatever the standard says.
    statement const_add_pc(const dwarf_cursor &at)
    {
        const std::uint32_t advance = quotient(static_cast<std::uint8_t>(LAST_OPCODE - header_.opcode_base));
        registers_.address += advance;
        if (name(dwarf_line_names, DW_LNS_const_add_pc, at)) {
            out_.text(": (Advance Address by 0x").hex(advance).text(" to 0x").hex(registers_.address).text(")\n");
        }
        return statement::NO_ROW;
    }
    statement advance_line(const dwarf_cursor &at, std::int64_t advance)
    {
        registers_.line += static_cast<std::uint64_t>(advance);
        if (name(dwarf_line_names, DW_LNS_advance_line, at)) {
            out_.text(": ").signed_number(advance).text(" (Advance Line by ").signed_number(advance);
            out_.text(" to ").signed_number(line()).text(")\n");
        }
        return statement::NO_ROW;
    }
    statement set_file(const dwarf_cursor &at, std::uint64_t file)
    {
        registers_.file = static_cast<std::uint32_t>(file);
        if (name(dwarf_line_names, DW_LNS_set_file, at)) {
            out_.text(": ").number(file).text(" (Set file to be ").number(registers_.file).text(")\n");
        }
        return statement::NO_ROW;
    }
    statement set_column(const dwarf_cursor &at, std::uint64_t column)
    {
        registers_.column = static_cast<std::uint32_t>(column);
        if (name(dwarf_line_names, DW_LNS_set_column, at)) {
            out_.text(": ").signed_number(static_cast<std::int64_t>(column)).text(" (Set column to be ");
            out_.signed_number(static_cast<std::int32_t>(registers_.column)).text(")\n");
        }
        return statement::NO_ROW;
    }
    statement negate_stmt(const dwarf_cursor &at)
    {
        registers_.is_stmt = !registers_.is_stmt;
        if (name(dwarf_line_names, DW_LNS_negate_stmt, at)) {
            out_.text(": (Set is_stmt to be ").number(registers_.is_stmt ? 1U : 0U).text(")\n");
        }
        return statement::NO_ROW;
    }

    // The length, unless it is 0, decides where the next statement stands.
    statement run_extended(dwarf_cursor &at)
    {
        const std::uint64_t length = at.uleb();
        dwarf_cursor inner = at;
        const std::uint8_t opcode = inner.get1();
        const statement result = run_extended_opcode(inner, opcode, length);
        if (inner.failed() || length > at.left()) {
            at.fail();
        } else {
            at.skip(length != 0 ? static_cast<std::size_t>(length) : inner.offset() - at.offset());
        }
        return result;
    }
    statement run_extended_opcode(dwarf_cursor &at, std::uint8_t opcode, std::uint64_t length)
    {
        switch (opcode) {
        case DW_LNE_end_sequence:
            return name_alone(dwarf_extended_line_names, opcode, at, statement::END_OF_SEQUENCE);
        case DW_LNE_set_address:
            return set_address(at, dwarf_read_address(out_, at, static_cast<std::uint32_t>(length - 1)));
        case DW_LNE_define_file:
            return define_file(at);
        default:
            return at.failed() ? statement::NO_ROW : statement::UNKNOWN;
        }
    }
    statement set_address(const dwarf_cursor &at, std::uint64_t address)
    {
        registers_.address = address;
        if (name(dwarf_extended_line_names, DW_LNE_set_address, at)) {
            out_.text(": 0x").upper_hex(address).text(" (Extended opcode ").number(DW_LNE_set_address);
            out_.text(": set Address to 0x").hex(address).text(")\n");
        }
        return statement::NO_ROW;
    }
    statement define_file(dwarf_cursor &at)
    {
        const std::string_view file = at.string();
        const std::uint64_t dir = at.uleb();
        const std::uint64_t time = at.uleb();
        const std::uint64_t size = at.uleb();
        if (name(dwarf_extended_line_names, DW_LNE_define_file, at)) {
            out_.text(": ").text(file).text(" ; dir=").number(dir).text(" ; time=").number(time);
            out_.text(" ; size=").number(size).text("\n");
        }
        return statement::NO_ROW;
    }

    statement run_special(std::uint8_t opcode)
    {
        const auto adjusted = static_cast<std::uint8_t>(opcode - header_.opcode_base);
        const std::uint32_t advance = quotient(adjusted);
        const std::int64_t line_advance =
            header_.line_base + (header_.line_range != 0 ? adjusted % header_.line_range : 0);
        const std::uint64_t address_advance = std::uint64_t{advance} * header_.minimum_instruction_length;
        registers_.address += address_advance;
        registers_.line += static_cast<std::uint64_t>(line_advance);
        if (telling_) {
            out_.text("SPECIAL                 : <0x").hex(advance).text(", ").signed_number(line_advance);
            out_.text("> (Special opcode ").number(opcode).text(": advance Address by 0x").hex(address_advance);
            out_.text(" to 0x").hex(registers_.address).text(" and Line by ").signed_number(line_advance);
            out_.text(" to ").signed_number(line()).text(")\n");
        }
        return statement::ROW;
    }

    std::uint32_t quotient(std::uint8_t value) const
    {
        return header_.line_range != 0 ? static_cast<std::uint32_t>(value / header_.line_range) : 0;
    }
    std::int64_t line() const { return static_cast<std::int64_t>(registers_.line); }
    // True if what the statement does is to be told behind its name.
    bool name(const dwarf_name_table &table, std::uint8_t opcode, const dwarf_cursor &at)
    {
        if (!telling_ || at.failed()) {
            return false;
        }
        out_.text(dwarf_name_padded(table, opcode, true, NAME_WIDTH));
        return true;
    }
    statement name_alone(const dwarf_name_table &table, std::uint8_t opcode, const dwarf_cursor &at, statement result)
    {
        if (name(table, opcode, at)) {
            out_.text("\n");
        }
        return result;
    }

    line_header header_;
    line_registers registers_;
    dwarf_text &out_;
    bool telling_;
};

class line_dump {
public:
    line_dump(dwarf_text &out, dwarf_bytes_view section) : out_(out), section_(section) {}

    void run()
    {
        dwarf_cursor at(section_);
        while (at.more()) {
            const std::size_t start = at.offset();
            if (!dump_header(at, start) || !dump_program(at)) {
                return;
            }
        }
    }

private:
    bool dump_header(dwarf_cursor &at, std::size_t start)
    {
        const std::uint32_t units = dwarf_unscaled(start);
        out_.text("\n  Statement program at offset 0x").hex(units).actual_offset(units).text("\n");
        const std::size_t tables_end = dump_fields(at);
        const bool standard = !at.failed() && dump_opcodes(at);
        if (!at.failed() && !standard) {
            out_.text("Non standard opcode length was defined, could not proceed");
            return false;
        }
        if (!at.failed()) {
            dump_directories(at);
        }
        if (!at.failed()) {
            dump_files(at);
        }
        if (at.failed()) {
            out_.text("Prolog is too big (goes beyond the section limit).");
        } else if (at.offset() != tables_end) {
            out_.warn_on_stderr("Prolog length information is not correct.");
        } else {
            return true;
        }
        out_.text("  Error occurred while reading prolog of .debug_line section, could not proceed.\n");
        return false;
    }

    // The fixed fields; where the tables behind them should end.
    std::size_t dump_fields(dwarf_cursor &at)
    {
        const std::uint32_t length = at.get4();
        unit_end_ = at.offset() + dwarf_access->dwarf_scale_offset(length);
        field(at, "  Length:                      ", length);
        field(at, "  DWARF Version:               ", at.get2());
        const std::uint32_t prologue = at.get4();
        const std::size_t tables_end = at.offset() + dwarf_access->dwarf_scale_offset(prologue);
        field(at, "  Prologue Length:             ", prologue);
        header_.minimum_instruction_length = at.get1();
        field(at, "  Minimum Instruction Length:  ", header_.minimum_instruction_length);
        header_.default_is_stmt = at.get1();
        field(at, "  Initial value of 'is_stmt':  ", header_.default_is_stmt);
        header_.line_base = static_cast<std::int8_t>(at.get1());
        field(at, "  Line Base:                   ", header_.line_base);
        header_.line_range = at.get1();
        field(at, "  Line Range:                  ", header_.line_range);
        header_.opcode_base = at.get1();
        field(at, "  Opcode Base:                 ", header_.opcode_base);
        return tables_end;
    }
    void field(const dwarf_cursor &at, std::string_view label, std::int64_t value)
    {
        if (!at.failed()) {
            out_.text(label).signed_number(value).text("\n");
        }
    }

    // False if one of the opcodes that the standard knows has not its number of operands.
    bool dump_opcodes(dwarf_cursor &at)
    {
        bool standard = true;
        out_.text("\n Opcodes:\n");
        for (std::uint32_t opcode = 1; opcode < header_.opcode_base; ++opcode) {
            const auto operands = static_cast<std::uint32_t>(at.uleb());
            if (at.failed()) {
                break;
            }
            out_.text("  Opcode ").number(opcode).text(" has ").number(operands).text(" args");
            if (opcode <= dwarf_standard_opcode_lengths.size() &&
                operands != dwarf_standard_opcode_lengths[opcode - 1]) {
                standard = false;
                out_.text(" (not standard)");
            }
            out_.text("\n");
        }
        return standard;
    }

    // Past the 0 that ends a table.
    bool table_ends(dwarf_cursor &at)
    {
        if (at.failed() || at.left() == 0) {
            at.fail();
            return true;
        }
        return *at.place() == 0 && at.skip(1);
    }
    void dump_directories(dwarf_cursor &at)
    {
        if (table_ends(at)) {
            out_.text(at.failed() ? "" : "\n The Directory Table is empty.\n");
            return;
        }
        out_.text("\n The Directory Table:\n");
        std::uint32_t number = 0;
        do {
            entry(at, ++number, at.string());
        } while (!table_ends(at));
    }
    void dump_files(dwarf_cursor &at)
    {
        if (table_ends(at)) {
            out_.text(at.failed() ? "" : "\n The File Name Table is emptry.\n");
            return;
        }
        out_.text("\n The File Name Table:\n");
        std::uint32_t number = 0;
        do {
            const std::string_view file = at.string();
            const std::uint64_t dir = at.uleb();
            const std::uint64_t time = at.uleb();
            const std::uint64_t size = at.uleb();
            entry(at, ++number, file);
            if (!at.failed()) {
                file_value("\t\tdir: ", dir);
                file_time(time);
                file_value("\t\tsize: ", size);
            }
        } while (!table_ends(at));
    }
    void entry(const dwarf_cursor &at, std::uint32_t number, std::string_view text)
    {
        if (!at.failed()) {
            out_.right_number(number, TABLE_NUMBER_WIDTH).text(".  \"").text(text).text("\"\n");
        }
    }
    void file_value(std::string_view label, std::uint64_t value)
    {
        if (value != 0) {
            out_.text(label).number(value).text("\n");
        }
    }
    void file_time(std::uint64_t value)
    {
        if (value == 0) {
            return;
        }
        char text[64];
        const auto time = static_cast<std::time_t>(value);
        const std::tm *local = std::localtime(&time);
        if (local == nullptr) { // no calendar goes that far
            return file_value("\t\ttime: ", value);
        }
        const std::size_t size = std::strftime(text, sizeof text, "%a %b %e %H:%M:%S %Y", local);
        out_.text("\t\ttime: ").text({text, size}).text("\n");
    }

    // False if nothing can follow in the section.
    bool dump_program(dwarf_cursor &at)
    {
        line_machine machine(header_, out_, true);
        dwarf_cursor sequence = at;
        std::uint32_t serial = 0;
        std::uint32_t sequence_serial = serial;
        while (!at.failed() && at.offset() < std::min(unit_end_, section_.size())) {
            out_.padded_number(++serial, SERIAL_WIDTH).text(": ");
            const statement result = machine.run(at);
            if (at.failed()) {
                break;
            }
            if (result == statement::UNKNOWN) {
                out_.flush();
                TRACEF(TRACE_DWARF, "%s: Unknown opcode in statement %u", __func__, serial);
                dwarf_internal_error();
                return false;
            }
            if (result != statement::NO_ROW) {
                machine.row_done();
            }
            if (result == statement::END_OF_SEQUENCE) {
                dump_matrix(sequence, at.offset(), sequence_serial);
                machine.start_sequence();
                sequence = at;
                sequence_serial = serial;
            }
        }
        if (at.failed() || at.offset() != unit_end_) {
            out_.text("\n WARNING: Length field was incorrect");
            return false;
        }
        return true;
    }

    void dump_matrix(dwarf_cursor at, std::size_t end, std::uint32_t serial)
    {
        out_.text("\nGenerated line number matrix:\n\n"
                  "stmt    address           file        line        column      is_stmt      basic_block\n");
        line_machine machine(header_, out_, false);
        while (at.offset() < end) {
            const statement result = machine.run(at);
            ++serial;
            if (result != statement::NO_ROW) {
                dump_row(machine.registers(), serial, result == statement::END_OF_SEQUENCE);
                machine.row_done();
            }
        }
    }
    void dump_row(const line_registers &row, std::uint32_t serial, bool ends)
    {
        out_.padded_number(serial, SERIAL_WIDTH).text(":  ").upper_hex(row.address, ADDRESS_WIDTH);
        out_.text("  ").number(row.file, COLUMN_WIDTH);
        out_.text("  ").signed_number(static_cast<std::int64_t>(row.line), COLUMN_WIDTH);
        out_.text("  ").signed_number(static_cast<std::int32_t>(row.column), COLUMN_WIDTH);
        out_.text(row.is_stmt ? "  true " : "  false").text(row.basic_block ? "        true " : "        false");
        out_.text(ends ? "      (end of sequence)\n" : "\n");
    }

    dwarf_text &out_;
    dwarf_bytes_view section_;
    line_header header_;
    std::size_t unit_end_ = 0;
};

} // namespace

void dwarf_line_dump(dwarf_text &out, dwarf_bytes_view section)
{
    line_dump(out, section).run();
}

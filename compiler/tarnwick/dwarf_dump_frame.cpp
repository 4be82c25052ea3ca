// SPDX-License-Identifier: MIT
// The dump of call frame information, which nothing here writes: it is only ever read.
#include <unordered_map>

#include "compiler/tarnwick/dwarf_dump_sections.h"
#include "compiler/tarnwick/dwarf_name_tables.h"

namespace {

enum frame_instruction : std::uint8_t {
    DW_CFA_set_loc = 0x01,
    DW_CFA_advance_loc1 = 0x02,
    DW_CFA_advance_loc2 = 0x03,
    DW_CFA_advance_loc4 = 0x04,
    DW_CFA_offset_extended = 0x05,
    DW_CFA_restore_extended = 0x06,
    DW_CFA_undefined = 0x07,
    DW_CFA_same_value = 0x08,
    DW_CFA_register = 0x09,
    DW_CFA_def_cfa = 0x0c,
    DW_CFA_def_cfa_register = 0x0d,
    DW_CFA_def_cfa_offset = 0x0e,
    DW_CFA_offset = 0x80,
};
constexpr std::uint8_t OPERANDS_START = 0x40; // from here on an operand stands in the low bits
constexpr std::uint32_t CIE_ID = 0xFFFFFFFF;
constexpr std::uint32_t ID_SIZE = 4;
constexpr std::uint32_t SMALLEST_CIE = 8;
constexpr std::size_t WORD_DIGITS = 8;

struct frame_cie {
    bool proper = false;
    std::uint8_t version = 0;
    std::string_view augmentation;
    std::uint64_t code_alignment = 0;
    std::int64_t data_alignment = 0;
    std::uint8_t return_column = 0;
};

class frame_dump {
public:
    frame_dump(dwarf_text &out, dwarf_bytes_view section, std::uint32_t pointer_size)
        : out_(out), section_(section), pointer_size_(pointer_size)
    {
    }

    void run()
    {
        dwarf_cursor at(section_);
        while (at.more()) {
            const std::size_t offset = at.offset();
            const std::uint32_t length = at.get4();
            const std::size_t size = dwarf_access->dwarf_scale_offset(length);
            if (at.failed() || size <= ID_SIZE || size > at.left()) {
                out_.text("Invalid length information in .debug_frame section, could not continue...\n");
                return;
            }
            const std::size_t end = at.offset() + size;
            const std::uint32_t id = at.get4();
            if (!(id == CIE_ID ? dump_cie(at, offset, length, end) : dump_fde(at, offset, length, id, end))) {
                return;
            }
            at = dwarf_cursor(section_, end, section_.size());
        }
    }

private:
    bool dump_cie(dwarf_cursor &at, std::size_t offset, std::uint32_t length, std::size_t end)
    {
        out_.hex(dwarf_unscaled(offset), WORD_DIGITS).text(" ").hex(length, WORD_DIGITS).text(" ");
        out_.right_hex(CIE_ID, WORD_DIGITS).text(" CIE\n");
        if (length < SMALLEST_CIE) {
            out_.text(" WARNING, the length of CIE entry is too small, could not print...\n");
            return error();
        }
        const frame_cie cie = read_cie(at);
        if (at.failed()) {
            return error();
        }
        out_.text("  Version:               ").number(cie.version).text("\n");
        if (!cie.augmentation.empty()) {
            out_.text("  Augmentation:          (unknown) = ").text(cie.augmentation).text("\n");
            return error();
        }
        out_.text("  Augmentation:          \"\"\n");
        out_.text("  Code alignment factor: ").number(cie.code_alignment).text("\n");
        out_.text("  Data alignment factor: ").signed_number(cie.data_alignment).text("\n");
        out_.text("  Return address column: ").number(cie.return_column).text("\n");
        return dump_instructions(at, cie, end);
    }

    // The fields behind the id. With an augmentation the rest cannot be told.
    static frame_cie read_cie(dwarf_cursor &at)
    {
        frame_cie cie;
        cie.version = at.get1();
        cie.augmentation = at.string();
        if (cie.augmentation.empty()) {
            cie.code_alignment = at.uleb();
            cie.data_alignment = at.sleb();
            cie.return_column = at.get1();
            cie.proper = !at.failed();
        }
        return cie;
    }

    bool dump_fde(dwarf_cursor &at, std::size_t offset, std::uint32_t length, std::uint32_t id, std::size_t end)
    {
        const std::uint64_t start = dwarf_read_address(out_, at, pointer_size_);
        const std::uint64_t range = dwarf_read_address(out_, at, pointer_size_);
        if (at.failed()) {
            return error();
        }
        out_.hex(dwarf_unscaled(offset), WORD_DIGITS).text(" ").hex(length, WORD_DIGITS).text(" ").hex(id, WORD_DIGITS);
        out_.text(" FDE cie=").hex(dwarf_access->dwarf_scale_offset(id), WORD_DIGITS);
        out_.text(" pc=").hex(start, WORD_DIGITS).text("..").hex(start + range, WORD_DIGITS).text("\n");
        const frame_cie &cie = referenced_cie(dwarf_access->dwarf_scale_offset(id));
        if (!cie.proper) {
            out_.text("\n WARNING: FDE doesn't reference proper CIE.\n"
                      " WARNING: Could not properly retrieve code and data alignment factors from CIE entry, "
                      "could not continue...\n");
            return false;
        }
        return dump_instructions(at, cie, end);
    }

    // Every record is read once as a CIE, however many FDEs name it.
    const frame_cie &referenced_cie(std::size_t offset)
    {
        const auto [place, added] = cies_.try_emplace(offset);
        if (added && offset <= section_.size()) {
            dwarf_cursor at(section_, offset, section_.size());
            const std::size_t size = dwarf_access->dwarf_scale_offset(at.get4());
            const bool fits = !at.failed() && size >= SMALLEST_CIE && size <= at.left();
            if (fits && at.get4() == CIE_ID) {
                place->second = read_cie(at);
            }
        }
        return place->second;
    }

    // An operand may run past its record; the next record keeps its place.
    bool dump_instructions(dwarf_cursor &at, const frame_cie &cie, std::size_t end)
    {
        while (at.offset() < end) {
            dwarf_frame_dump_inst(at, cie);
            if (at.failed()) {
                return error();
            }
        }
        return true;
    }

    void dwarf_frame_dump_inst(dwarf_cursor &at, const frame_cie &cie)
    {
        // Of the bytes with an operand in them only the highest bit has ever been kept: an advance reads as no
        // operation, and a restore as an offset, with an operand that it does not have.
        const std::uint8_t byte = at.get1();
        const auto opcode = static_cast<std::uint8_t>(byte < OPERANDS_START ? byte : byte & DW_CFA_offset);
        out_.text("  ").text(dwarf_name(dwarf_frame_names, opcode, true));
        dump_operands(at, cie, opcode);
        out_.text("\n");
    }
    void dump_operands(dwarf_cursor &at, const frame_cie &cie, std::uint8_t opcode)
    {
        switch (opcode) {
        case DW_CFA_offset: // the register's bits are dropped
            return at_cfa(at, 0, at.uleb(), cie);
        case DW_CFA_set_loc:
            return address(at, dwarf_read_address(out_, at, pointer_size_));
        case DW_CFA_advance_loc1:
            return one(at, ": ", at.get1() * cie.code_alignment);
        case DW_CFA_advance_loc2:
            return one(at, ": ", at.get2() * cie.code_alignment);
        case DW_CFA_advance_loc4:
            return one(at, ": ", at.get4() * cie.code_alignment);
        case DW_CFA_restore_extended:
        case DW_CFA_undefined:
        case DW_CFA_same_value:
        case DW_CFA_def_cfa_register:
        case DW_CFA_def_cfa_offset:
            return one(at, ": r", at.uleb());
        case DW_CFA_offset_extended:
        case DW_CFA_register:
        case DW_CFA_def_cfa:
            return dump_register_pair(at, cie, opcode, at.uleb());
        default:
            return;
        }
    }
    void dump_register_pair(dwarf_cursor &at, const frame_cie &cie, std::uint8_t opcode, std::uint64_t register_number)
    {
        const std::uint64_t second = at.uleb();
        if (opcode == DW_CFA_offset_extended) {
            at_cfa(at, register_number, second, cie);
        } else if (!at.failed()) {
            out_.text(": r").number(register_number);
            if (opcode == DW_CFA_register) {
                out_.text(" r").number(second);
            } else {
                out_.text(" ofs ").signed_number(static_cast<std::int64_t>(second));
            }
        }
    }
    void at_cfa(const dwarf_cursor &at, std::uint64_t register_number, std::uint64_t factored, const frame_cie &cie)
    {
        if (!at.failed()) {
            const std::uint64_t offset = factored * static_cast<std::uint64_t>(cie.data_alignment);
            out_.text(": r").number(register_number).text(" at cfa-").signed_number(static_cast<std::int64_t>(offset));
        }
    }
    void one(const dwarf_cursor &at, std::string_view label, std::uint64_t value)
    {
        if (!at.failed()) {
            out_.text(label).number(value);
        }
    }
    void address(const dwarf_cursor &at, std::uint64_t value)
    {
        if (!at.failed()) {
            out_.text(": ").hex(value);
        }
    }

    bool error()
    {
        out_.text(" ERROR dumping \".debug_frame\" section, could not continue...\n");
        return false;
    }

    dwarf_text &out_;
    dwarf_bytes_view section_;
    std::uint32_t pointer_size_;
    std::unordered_map<std::size_t, frame_cie> cies_; // only looked up in
};

} // namespace

void dwarf_frame_dump(dwarf_text &out, dwarf_bytes_view section, std::uint32_t pointer_size)
{
    frame_dump(out, section, pointer_size).run();
}

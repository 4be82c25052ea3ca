// SPDX-License-Identifier: MIT
// The dump of the entries, and of location expressions.
#include <algorithm>
#include <array>

#include "compiler/tarnwick/dump_allowance.h"
#include "compiler/tarnwick/dwarf.h"
#include "compiler/tarnwick/dwarf_dump_abbrev.h"
#include "compiler/tarnwick/dwarf_dump_sections.h"
#include "compiler/tarnwick/dwarf_name_tables.h"
#include "compiler/tarnwick/dwarf_names.h"

namespace {

constexpr std::size_t STRING_SHOWN = 256;
constexpr std::uint32_t SMALLEST_UNIT = 7;        // version, abbreviation offset, pointer size
constexpr std::uint32_t DEFAULT_POINTER_SIZE = 4; // where no unit tells

// Forms and operators that are only ever read.
enum read_form : std::uint32_t {
    DW_FORM_block4 = 0x04,
    DW_FORM_data8 = 0x07,
    DW_FORM_block = 0x09,
    DW_FORM_sdata = 0x0d,
    DW_FORM_strp = 0x0e,
    DW_FORM_ref_addr = 0x10,
    DW_FORM_ref1 = 0x11,
    DW_FORM_ref2 = 0x12,
    DW_FORM_ref8 = 0x14,
    DW_FORM_ref_udata = 0x15,
    DW_FORM_indirect = 0x16,
};
enum read_operator : std::uint8_t {
    DW_OP_const1u = 0x08,
    DW_OP_const1s = 0x09,
    DW_OP_const2u = 0x0a,
    DW_OP_const2s = 0x0b,
    DW_OP_const4u = 0x0c,
    DW_OP_const4s = 0x0d,
    DW_OP_const8u = 0x0e,
    DW_OP_const8s = 0x0f,
    DW_OP_constu = 0x10,
    DW_OP_consts = 0x11,
    DW_OP_pick = 0x15,
    DW_OP_bra = 0x28,
    DW_OP_skip = 0x2f,
    DW_OP_breg0 = 0x70,
    DW_OP_breg31 = 0x8f,
    DW_OP_bregx = 0x92,
    DW_OP_piece = 0x93,
    DW_OP_deref_size = 0x94,
    DW_OP_xderef_size = 0x95,
};

// --- location expressions -----------------------------------------------------------------------------------------------

enum class operand : std::uint8_t {
    NONE,
    ADDRESS,
    UNSIGNED_1,
    SIGNED_1,
    UNSIGNED_2,
    SIGNED_2,
    UNSIGNED_4,
    SIGNED_4,
    HEX_8,
    ULEB,
    SLEB,
    REGISTER_AND_SLEB,
};

constexpr std::size_t OPERATORS = 256;

constexpr std::array<operand, OPERATORS> make_operands()
{
    std::array<operand, OPERATORS> kinds{};
    kinds[DW_OP_addr] = operand::ADDRESS;
    for (const std::uint8_t code : {DW_OP_const1u, DW_OP_pick, DW_OP_deref_size, DW_OP_xderef_size}) {
        kinds[code] = operand::UNSIGNED_1;
    }
    kinds[DW_OP_const1s] = operand::SIGNED_1;
    kinds[DW_OP_const2u] = operand::UNSIGNED_2;
    for (const std::uint8_t code : {DW_OP_const2s, DW_OP_skip, DW_OP_bra}) {
        kinds[code] = operand::SIGNED_2;
    }
    kinds[DW_OP_const4u] = operand::UNSIGNED_4;
    kinds[DW_OP_const4s] = operand::SIGNED_4;
    kinds[DW_OP_const8u] = operand::HEX_8;
    kinds[DW_OP_const8s] = operand::HEX_8;
    kinds[DW_OP_constu] = operand::ULEB;
    kinds[DW_OP_plus_uconst] = operand::ULEB;
    kinds[DW_OP_regx] = operand::ULEB;
    kinds[DW_OP_piece] = operand::ULEB;
    kinds[DW_OP_consts] = operand::SLEB;
    kinds[DW_OP_fbreg] = operand::SLEB;
    for (std::size_t code = DW_OP_breg0; code <= DW_OP_breg31; ++code) {
        kinds[code] = operand::SLEB;
    }
    kinds[DW_OP_bregx] = operand::REGISTER_AND_SLEB;
    return kinds;
}

constexpr std::array<operand, OPERATORS> OPERANDS = make_operands();

struct operand_value {
    std::uint64_t value = 0;
    enum : std::uint8_t { HEX, UNSIGNED, SIGNED } shown = UNSIGNED;
};

operand_value hex_operand(std::uint64_t value)
{
    return {value, operand_value::HEX};
}

operand_value signed_operand(std::int64_t value)
{
    return {static_cast<std::uint64_t>(value), operand_value::SIGNED};
}

operand_value read_operand(dwarf_text &out, dwarf_cursor &at, operand kind, std::uint32_t pointer_size)
{
    switch (kind) {
    case operand::ADDRESS:
        return hex_operand(dwarf_read_address(out, at, pointer_size));
    case operand::UNSIGNED_1:
        return {at.get1(), operand_value::UNSIGNED};
    case operand::SIGNED_1:
        return signed_operand(static_cast<std::int8_t>(at.get1()));
    case operand::UNSIGNED_2:
        return {at.get2(), operand_value::UNSIGNED};
    case operand::SIGNED_2:
        return signed_operand(static_cast<std::int16_t>(at.get2()));
    case operand::UNSIGNED_4:
        return {at.get4(), operand_value::UNSIGNED};
    case operand::SIGNED_4:
        return signed_operand(static_cast<std::int32_t>(at.get4()));
    case operand::HEX_8:
        return hex_operand(at.get8());
    case operand::ULEB:
        return {at.uleb(), operand_value::UNSIGNED};
    case operand::SLEB:
    case operand::REGISTER_AND_SLEB:
        return signed_operand(at.sleb());
    case operand::NONE:
        break;
    }
    return {};
}

void print_operand(dwarf_text &out, const operand_value &operand)
{
    if (operand.shown == operand_value::HEX) {
        out.text("0x").hex(operand.value);
    } else if (operand.shown == operand_value::SIGNED) {
        out.signed_number(static_cast<std::int64_t>(operand.value));
    } else {
        out.number(operand.value);
    }
}

// --- entries ------------------------------------------------------------------------------------------------------------

enum class outcome : std::uint8_t {
    DONE,
    STOPPED, // behind a warning
};

class info_dump {
public:
    info_dump(dwarf_text &out, dwarf_bytes_view info, dwarf_bytes_view abbrev, dwarf_bytes_view str)
        : out_(out), info_(info), str_(str), abbrev_size_(abbrev.size()), tables_(abbrev),
          allowance_(info.size() + str.size())
    {
    }

    std::uint32_t run()
    {
        if (info_.size() < dwarf_access->dwarf_scale_offset(SMALLEST_UNIT)) {
            out_.text(" WARNING: Size of .dwarf_info section is too small, must be at least (")
                .number(dwarf_access->dwarf_scale_offset(SMALLEST_UNIT))
                .text("), could not continue...\n\n");
        } else {
            dump_units();
        }
        return pointer_size_;
    }

private:
    void dump_units()
    {
        for (std::size_t offset = 0; offset < info_.size();) {
            dwarf_cursor at(info_, offset, info_.size());
            if (dump_unit_header(at) == outcome::STOPPED) {
                break;
            }
            if (dwarf_info_dump_entries(at) == outcome::STOPPED) {
                out_.text("ERROR occurred while dumping .debug_info section...\n");
                break;
            }
            if (!at.only_zeros_left()) {
                out_.text(" WARNING: Compile unit entry has siblings when it should not have, ignoring...\n");
            }
            offset = at.offset() + at.left();
        }
    }

    // Leaves the cursor at the unit's first entry, with the unit's end as its own.
    outcome dump_unit_header(dwarf_cursor &at)
    {
        unit_offset_ = at.offset();
        out_.text("\n  Compilation Unit @ ").hex(dwarf_unscaled(unit_offset_)).text(":\n");
        const std::uint32_t length = at.get4();
        if (!at.failed()) {
            out_.text("   Length:        ").number(length).actual_number(length).text("\n");
        }
        const std::size_t size = std::min<std::size_t>(dwarf_access->dwarf_scale_offset(length), at.left());
        if (size < dwarf_access->dwarf_scale_offset(SMALLEST_UNIT)) {
            out_.text(" WARNING: length of .dwarf_info section is too small, could not continue...\n\n");
            return outcome::STOPPED;
        }
        at = dwarf_cursor(info_, at.offset(), at.offset() + size);
        const std::uint16_t version = at.get2();
        out_.text("   Version:       ").number(version).text("\n");
        if (!dwarf_version_is_supported(version)) {
            out_.text(" WARNING: Unsupported DWARF version (").number(version).text("), can not continue...\n");
            return outcome::STOPPED;
        }
        const std::uint32_t abbrev_offset = at.get4();
        out_.text("   Abbrev Offset: 0x").hex(abbrev_offset).actual_offset(abbrev_offset).text("\n");
        if (dwarf_access->dwarf_scale_offset(abbrev_offset) >= abbrev_size_) {
            out_.text(" WARNING: Abbrev Offset is too big, beyond the section limit, could not continue...\n");
            return outcome::STOPPED;
        }
        tables_.open(dwarf_access->dwarf_scale_offset(abbrev_offset));
        pointer_size_ = at.get1();
        out_.text("   Pointer Size:  ").number(pointer_size_).text("\n");
        if (pointer_size_ != 1 && pointer_size_ != 2 && pointer_size_ != 4 && pointer_size_ != 8) {
            out_.text(" WARNING: Pointer Size is invalid, could not continue...\n"); // and on it goes all the same
        }
        return outcome::DONE;
    }

    // The first entry of a unit and all below it. The levels are a count, however deep they go.
    outcome dwarf_info_dump_entries(dwarf_cursor &at)
    {
        std::uint32_t depth = 0;
        while (at.more()) {
            const std::size_t offset = at.offset();
            const auto code = static_cast<std::uint32_t>(at.uleb());
            if (at.failed()) {
                return end_of_unit();
            }
            if (code != 0) {
                bool children = false;
                if (dump_entry(at, depth, offset, code, children) == outcome::STOPPED) {
                    return outcome::STOPPED;
                }
                depth += children ? 1 : 0;
            } else if (depth != 0) {
                --depth;
            }
            if (depth == 0) {
                break;
            }
        }
        return outcome::DONE;
    }

    outcome dump_entry(dwarf_cursor &at, std::uint32_t depth, std::size_t offset, std::uint32_t code, bool &children)
    {
        out_.text(" <").number(depth).text("><").hex(dwarf_unscaled(offset)).text(">: Abbrev Number: ").number(code);
        const abbreviation *entry = tables_.dwarf_abbrev_locate_entry(code);
        if (entry == nullptr) {
            out_.text("\n\n WARNING: Could not locate abbrev entry, could not continue...\n");
            return outcome::STOPPED;
        }
        children = entry->children == DW_CHILDREN_yes;
        out_.text(" (").text(dwarf_name(dwarf_tag_names, entry->tag, true)).text(")\n");
        for (const attribute_pair &pair : tables_.pairs(*entry)) {
            out_.text("     ");
            out_.text(dwarf_name_padded(dwarf_attribute_names, pair.attribute, true, DWARF_ATTRIBUTE_WIDTH)).text(" :");
            if (dump_value(at, pair) == outcome::STOPPED) {
                return outcome::STOPPED;
            }
        }
        return outcome::DONE;
    }

    outcome dump_value(dwarf_cursor &at, const attribute_pair &pair)
    {
        std::uint32_t form = pair.form;
        while (form == DW_FORM_indirect && !at.failed()) {
            form = static_cast<std::uint32_t>(at.uleb());
        }
        const bool known = at.failed() || dump_plain_value(at, pair.attribute, form);
        if (at.failed()) {
            return end_of_unit();
        }
        // The value of an indirect form is printed, and ends the dump nevertheless.
        if (!known || pair.form == DW_FORM_indirect) {
            out_.text("\n\nWARNING: invalid attribute form, could not proceed...\n");
            return outcome::STOPPED;
        }
        return outcome::DONE;
    }

    // False for a form that has no value. Prints nothing when the cursor fails.
    bool dump_plain_value(dwarf_cursor &at, std::uint32_t attribute, std::uint32_t form)
    {
        switch (form) {
        case DW_FORM_addr:
            return hex_value(at, dwarf_read_address(out_, at, pointer_size_));
        case DW_FORM_block1:
            return block(at, attribute, at.get1());
        case DW_FORM_block2:
            return block(at, attribute, at.get2());
        case DW_FORM_block4:
            return block(at, attribute, at.get4());
        case DW_FORM_block:
            return block(at, attribute, at.uleb());
        case DW_FORM_data1:
            return hex_and_number(at, at.get1());
        case DW_FORM_data2:
            return hex_and_number(at, at.get2());
        case DW_FORM_data4:
            return hex_and_signed(at, static_cast<std::int32_t>(at.get4()), UINT32_MAX);
        case DW_FORM_data8:
            return hex_and_signed(at, static_cast<std::int64_t>(at.get8()), UINT64_MAX);
        case DW_FORM_sdata:
            return hex_and_signed(at, at.sleb(), UINT64_MAX);
        case DW_FORM_udata:
            return hex_and_number(at, at.uleb());
        case DW_FORM_string:
            return string(at);
        case DW_FORM_strp:
            return string_of_table(at);
        case DW_FORM_flag:
            return flag(at, at.get1());
        default:
            return dump_reference(at, form);
        }
    }

    bool dump_reference(dwarf_cursor &at, std::uint32_t form)
    {
        switch (form) {
        case DW_FORM_ref_addr:
            return reference(at, dwarf_read_address(out_, at, pointer_size_), UINT64_MAX);
        case DW_FORM_ref1:
            return reference(at, at.get1(), UINT32_MAX);
        case DW_FORM_ref2:
            return reference(at, at.get2(), UINT32_MAX);
        case DW_FORM_ref4:
            return reference(at, at.get4(), UINT32_MAX);
        case DW_FORM_ref8:
            return reference(at, at.get8(), UINT64_MAX);
        case DW_FORM_ref_udata:
            return reference(at, at.uleb(), UINT64_MAX);
        default:
            return false;
        }
    }

    bool hex_value(const dwarf_cursor &at, std::uint64_t value)
    {
        if (!at.failed()) {
            out_.text("0x").hex(value).text("\n");
        }
        return true;
    }
    bool hex_and_number(const dwarf_cursor &at, std::uint64_t value)
    {
        if (!at.failed()) {
            out_.text("0x").hex(value).text(" (").number(value).text(")\n");
        }
        return true;
    }
    bool hex_and_signed(const dwarf_cursor &at, std::int64_t value, std::uint64_t mask)
    {
        if (!at.failed()) {
            out_.text("0x").hex(static_cast<std::uint64_t>(value) & mask).text(" (").signed_number(value).text(")\n");
        }
        return true;
    }
    bool block(dwarf_cursor &at, std::uint32_t attribute, std::uint64_t size)
    {
        const std::uint8_t *content = at.place();
        if (at.failed() || size > at.left() || !at.skip(static_cast<std::size_t>(size))) {
            at.fail();
            return true;
        }
        const dwarf_bytes_view block(content, static_cast<std::size_t>(size));
        out_.number(size).text(" byte block ");
        for (const std::uint8_t byte : block) {
            out_.hex(byte).text(" ");
        }
        if (attribute == DW_AT_location || attribute == DW_AT_data_member_location || attribute == DW_AT_frame_base) {
            out_.text("    (");
            dwarf_loc_read_location(out_, block, pointer_size_);
            out_.text(")");
        }
        out_.text("\n");
        return true;
    }
    bool string(dwarf_cursor &at)
    {
        const std::string_view text = at.string();
        if (!at.failed()) {
            out_.text("\"").text(text.substr(0, STRING_SHOWN)).text("\"\n");
        }
        return true;
    }
    bool string_of_table(dwarf_cursor &at)
    {
        const std::uint32_t place = at.get4();
        if (!at.failed()) {
            out_.text("<").hex(place).text("> (\"").text(table_string(place)).text("\")\n");
        }
        return true;
    }
    // One string of the table may be the value of every attribute.
    std::string_view table_string(std::uint32_t place)
    {
        const std::size_t offset = dwarf_access->dwarf_scale_offset(place);
        if (offset >= str_.size()) {
            return "???";
        }
        return allowance_.text(reinterpret_cast<const char *>(str_.data()) + offset, str_.size() - offset);
    }
    bool flag(const dwarf_cursor &at, std::uint8_t value)
    {
        if (at.failed()) {
            return true;
        }
        if (value > 1) {
            out_.number(value);
        } else {
            out_.text(value != 0 ? "true" : "false");
        }
        out_.text("\n");
        return true;
    }
    // Every reference is told as a place in the section, even one that is meant as such.
    bool reference(const dwarf_cursor &at, std::uint64_t value, std::uint64_t mask)
    {
        if (!at.failed()) {
            out_.text("<").hex((value + dwarf_unscaled(unit_offset_)) & mask).text(">\n");
        }
        return true;
    }

    outcome end_of_unit()
    {
        out_.text(" WARNING: Unexpectedly reached the end of compile unit, could not continue...\n");
        return outcome::STOPPED;
    }

    dwarf_text &out_;
    dwarf_bytes_view info_;
    dwarf_bytes_view str_;
    std::size_t abbrev_size_;
    abbreviation_tables tables_;
    dump_allowance allowance_; // for long strings of the table
    std::size_t unit_offset_ = 0;
    std::uint32_t pointer_size_ = DEFAULT_POINTER_SIZE;
};

} // namespace

void dwarf_loc_read_location(dwarf_text &out, dwarf_bytes_view expression, std::uint32_t pointer_size)
{
    if (expression.empty()) {
        out.text("(unknown)");
        return;
    }
    dwarf_cursor at(expression);
    const std::uint8_t code = at.get1();
    const operand kind = OPERANDS[code];
    out.text(dwarf_name(dwarf_operator_names, code, true));
    if (kind == operand::NONE) {
        return;
    }
    if (kind == operand::REGISTER_AND_SLEB) {
        const std::uint64_t register_number = at.uleb();
        if (!at.failed()) {
            out.number(register_number);
        }
    }
    const operand_value value = read_operand(out, at, kind, pointer_size);
    out.text(": ");
    if (at.failed()) {
        out.text("(unknown)");
    } else {
        print_operand(out, value);
    }
}

std::uint32_t dwarf_info_dump(dwarf_text &out, dwarf_bytes_view info, dwarf_bytes_view abbrev, dwarf_bytes_view str)
{
    return info_dump(out, info, abbrev, str).run();
}

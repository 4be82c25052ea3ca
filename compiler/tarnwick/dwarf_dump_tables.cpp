// SPDX-License-Identifier: MIT
// The dumps of the tables: names, address ranges, location lists, range lists and strings. Entries that the end of a
// section cuts are dropped.
#include <algorithm>

#include "common/trace.h"
#include "compiler/tarnwick/dwarf_dump_sections.h"

namespace {

constexpr std::uint32_t SMALLEST_NAMES = 10; // version, offset, size
constexpr std::uint32_t SMALLEST_RANGES = 6;
constexpr std::uint8_t LARGEST_POINTER = 8;
constexpr std::size_t WORD_DIGITS = 8;
constexpr std::size_t LENGTH_WIDTH = 5;

constexpr std::string_view LENGTH_WARNING = " WARNING: Length is too small, can not continue...\n";
constexpr std::string_view PADDING_WARNING = " WARNING: non zero padding at the end of current unit...\n";

// Prints the length of the unit at the cursor, and makes the unit's end the end of `unit`, which stands behind the field.
// False when nothing can follow.
bool open_unit(dwarf_text &out, dwarf_bytes_view section, dwarf_cursor at, std::string_view label,
               std::uint32_t smallest, dwarf_cursor &unit)
{
    const std::uint32_t length = at.get4();
    if (at.failed()) {
        return false;
    }
    out.text(label).number(length).actual_number(length).text("\n");
    const std::size_t size = std::min<std::size_t>(dwarf_access->dwarf_scale_offset(length), at.left());
    if (size < dwarf_access->dwarf_scale_offset(smallest)) {
        out.text(LENGTH_WARNING);
        return false;
    }
    unit = dwarf_cursor(section, at.offset(), at.offset() + size);
    return true;
}

void dump_names(dwarf_text &out, dwarf_cursor &unit)
{
    const std::uint16_t version = unit.get2();
    const std::uint32_t offset = unit.get4();
    const std::uint32_t size = unit.get4();
    out.text("  Version:                             ").number(version).text("\n");
    out.text("  Offset into .debug_info section:     0x").hex(offset).actual_offset(offset).text("\n");
    out.text("  Size of area in .debug_info section: ").number(size).actual_number(size).text("\n");
    out.text("\n      Offset    Name\n");
    while (unit.more()) {
        const std::uint32_t entry = unit.get4();
        if (entry == 0) { // the end, or nothing left
            break;
        }
        const std::string_view name = unit.string();
        if (!unit.failed()) {
            out.text("    0x").upper_hex(entry, WORD_DIGITS).text(": \"").text(name).text("\"\n");
        }
    }
}

// From the start of the section, the ranges begin at a multiple of their size; a place that is one already is passed over
// by a whole range.
void skip_alignment(dwarf_cursor &unit, std::uint32_t pointer_size)
{
    const std::size_t alignment = std::size_t{2} * dwarf_access->dwarf_scale_offset(pointer_size);
    if (alignment != 0) {
        unit.skip(alignment - unit.offset() % alignment);
    }
}

void dump_address_ranges(dwarf_text &out, dwarf_cursor &unit, std::uint32_t pointer_size)
{
    for (std::uint32_t i = 0; unit.more(); ++i) {
        const std::uint64_t start = dwarf_read_address(out, unit, pointer_size);
        const std::uint64_t length = dwarf_read_address(out, unit, pointer_size);
        if (unit.failed() || (start == 0 && length == 0)) {
            return;
        }
        out.text(" [").number(i).text("] start: 0x").hex(start, WORD_DIGITS);
        out.text("   end: 0x").hex(start + length, WORD_DIGITS);
        out.text("   length: ").right_number(length, LENGTH_WIDTH).text(" (0x").hex(length).text(")\n");
    }
}

// False when nothing can follow.
bool dump_ranges_unit(dwarf_text &out, dwarf_bytes_view section, dwarf_cursor &unit)
{
    const std::size_t end = unit.offset() + unit.left();
    dwarf_cursor header(section, unit.offset(), section.size()); // the smallest length does not hold all of it
    const std::uint16_t version = header.get2();
    const std::uint32_t offset = header.get4();
    out.text("  Version:                             ").number(version).text("\n");
    out.text("  Offset into .debug_info:  0x").hex(offset).actual_offset(offset).text("\n");
    const std::uint8_t pointer_size = header.get1();
    if (header.failed()) {
        return false;
    }
    out.text("  Pointer Size:             ").number(pointer_size).text("\n");
    if (pointer_size > LARGEST_POINTER) {
        out.text(" WARNING: Pointer size is too big, can not continue...\n");
        return false;
    }
    const std::uint8_t segment_size = header.get1();
    if (header.failed()) {
        return false;
    }
    out.text("  Segment Size:             ").number(segment_size).text(segment_size == 0 ? " (flat)\n" : " \n");
    unit = dwarf_cursor(section, std::min(header.offset(), end), end);
    skip_alignment(unit, pointer_size);
    dump_address_ranges(out, unit, pointer_size);
    if (!unit.failed() && !unit.only_zeros_left()) {
        out.text(PADDING_WARNING);
    }
    return true;
}

// False at the end of the list, or of the section.
bool dump_location(dwarf_text &out, dwarf_cursor &at, std::uint32_t pointer_size, std::size_t offset, bool first)
{
    const std::uint64_t begin = dwarf_read_address(out, at, pointer_size);
    const std::uint64_t end = dwarf_read_address(out, at, pointer_size);
    if (at.failed()) {
        return false;
    }
    if (begin == 0 && end == 0) {
        out.text("           <End of list>\n");
        return false;
    }
    const bool base_address = begin == dwarf_all_ones(pointer_size);
    const std::size_t size = base_address ? 0 : dwarf_access->dwarf_scale_offset(at.get2());
    const std::uint8_t *expression = at.place();
    if (!at.skip(size)) {
        return false;
    }
    if (first) {
        out.text("  ").hex(offset, WORD_DIGITS);
    } else {
        out.text("          ");
    }
    out.text(" ").hex(begin, WORD_DIGITS).text(" ").hex(end, WORD_DIGITS);
    if (base_address) {
        out.text(" (base address");
    } else {
        out.text(" (");
        dwarf_loc_read_location(out, {expression, size}, pointer_size);
    }
    out.text(")\n");
    return true;
}

// A value of a range list.
std::uint64_t range_value(dwarf_text &out, dwarf_cursor &at, std::size_t size, std::uint32_t pointer_size)
{
    const std::size_t offset = at.offset();
    DB_ASSERT(offset < size, "offset < size");
    return dwarf_read_address(out, at, pointer_size);
}

} // namespace

void dwarf_str_dump(dwarf_text &out, dwarf_bytes_view section)
{
    for (std::size_t offset = 0; offset < section.size();) {
        const auto *start = reinterpret_cast<const char *>(section.data()) + offset;
        const std::string_view text(start, strnlen(start, section.size() - offset));
        out.text("  <").hex(dwarf_unscaled(offset));
        if (dwarf_unscaled(offset) != offset) {
            out.text(" (actual ").hex(offset).text(")");
        }
        out.text(">: \"").text(text).text("\"\n");
        offset += text.size() + 1;
    }
}

void dwarf_pubnames_dump(dwarf_text &out, dwarf_bytes_view section)
{
    dwarf_cursor at(section);
    while (at.more()) {
        out.text("\n");
        if (!open_unit(out, section, at, "  Length:                              ", SMALLEST_NAMES, at)) {
            return;
        }
        dump_names(out, at);
        if (!at.failed() && !at.only_zeros_left()) {
            out.text(PADDING_WARNING);
        }
        at = dwarf_cursor(section, at.offset() + at.left(), section.size());
    }
}

void dwarf_aranges_dump(dwarf_text &out, dwarf_bytes_view section)
{
    dwarf_cursor at(section);
    while (at.more()) {
        if (!open_unit(out, section, at, "  Length:                   ", SMALLEST_RANGES, at) ||
            !dump_ranges_unit(out, section, at)) {
            return;
        }
        at = dwarf_cursor(section, at.offset() + at.left(), section.size());
    }
}

void dwarf_loc_dump(dwarf_text &out, dwarf_bytes_view section, std::uint32_t pointer_size)
{
    out.text("   Offset   Begin    End      Expression\n");
    dwarf_cursor at(section);
    while (at.more()) {
        const std::uint32_t offset = dwarf_unscaled(at.offset());
        for (bool first = true; dump_location(out, at, pointer_size, offset, first); first = false) {
        }
    }
}

void dwarf_ranges_dump(dwarf_text &out, dwarf_bytes_view section, std::uint32_t pointer_size)
{
    out.text("      Offset        Begin          End\n");
    dwarf_cursor at(section);
    while (at.more()) {
        const std::uint32_t offset = dwarf_unscaled(at.offset());
        const std::uint64_t begin = range_value(out, at, section.size(), pointer_size);
        const std::uint64_t end = at.failed() ? 0 : range_value(out, at, section.size(), pointer_size);
        if (at.failed()) {
            return;
        }
        out.text("    ").right_hex(offset, WORD_DIGITS).text(" ");
        out.text("    ").right_hex(static_cast<std::uint32_t>(begin), WORD_DIGITS).text(" ");
        out.text("    ").right_hex(static_cast<std::uint32_t>(end), WORD_DIGITS);
        if (begin == dwarf_all_ones(pointer_size)) {
            out.text(" (base address)");
        } else if (begin == 0 && end == 0) {
            out.text(" (end of list)");
        }
        out.text("\n");
    }
}

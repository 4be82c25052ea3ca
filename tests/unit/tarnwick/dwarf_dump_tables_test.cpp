// SPDX-License-Identifier: MIT
// The dumps of names, address ranges, location lists, range lists, strings and call frames.
#include "tests/unit/tarnwick/dwarf_dump_testing.h"

namespace {

const std::string SHORT_WARNING = " WARNING: Length is too small, can not continue...\n";
const std::string PADDING_WARNING = " WARNING: non zero padding at the end of current unit...\n";
const std::string FRAME_ERROR = " ERROR dumping \".debug_frame\" section, could not continue...\n";
const std::string FRAME_LENGTH = "Invalid length information in .debug_frame section, could not continue...\n";

std::string tables(void (*dump)(dwarf_text &, dwarf_bytes_view), const section_bytes &section)
{
    const dwarf_room room;
    return printed_by([&](dwarf_text &out) { dump(out, section); });
}

std::string lists(void (*dump)(dwarf_text &, dwarf_bytes_view, std::uint32_t), const section_bytes &section)
{
    const dwarf_room room;
    return printed_by([&](dwarf_text &out) { dump(out, section, 4); });
}

std::string names_header(int length)
{
    return "\n  Length:                              " + std::to_string(length) +
           "\n  Version:                             2\n"
           "  Offset into .debug_info section:     0x1c\n"
           "  Size of area in .debug_info section: 40\n"
           "\n      Offset    Name\n";
}

section_bytes names()
{
    return section_bytes().b2(2).b4(0x1C).b4(40);
}

TEST(dwarf_dump_str, every_string_with_its_offset)
{
    EXPECT_EQ("  <0>: \"ab\"\n  <3>: \"\"\n  <4>: \"c\"\n",
              tables(dwarf_str_dump, section_bytes().text("ab").text("").raw({'c'})));
}

TEST(dwarf_dump_pubnames, units_entries_and_padding)
{
    section_bytes section = with_length(names().b4(0xAB).text("f").b4(0).zeros(2));
    const section_bytes padded = with_length(names().b4(0).b1(1));
    section.insert(section.end(), padded.begin(), padded.end());
    EXPECT_EQ(names_header(22) + "    0x000000AB: \"f\"\n" + names_header(15) + PADDING_WARNING,
              tables(dwarf_pubnames_dump, section));
    EXPECT_EQ(names_header(15), tables(dwarf_pubnames_dump, with_length(names().b4(1).b1('x'))));
    EXPECT_EQ("\n  Length:                              9\n" + SHORT_WARNING,
              tables(dwarf_pubnames_dump, with_length(section_bytes().zeros(9))));
}

std::string ranges_header(int length, int pointer_size)
{
    return "  Length:                   " + std::to_string(length) + "\n  Version:                             2\n" +
           "  Offset into .debug_info:  0x10\n  Pointer Size:             " + std::to_string(pointer_size) + "\n";
}

TEST(dwarf_dump_aranges, ranges_behind_the_padding)
{
    const section_bytes unit =
        section_bytes().b2(2).b4(0x10).b1(4).b1(0).zeros(4).b4(0x100).b4(0x20).b4(0x200).b4(100000).zeros(8);
    const std::string shown = ranges_header(36, 4) +
                              "  Segment Size:             0 (flat)\n"
                              " [0] start: 0x00000100   end: 0x00000120   length:    32 (0x20)\n"
                              " [1] start: 0x00000200   end: 0x000188a0   length: 100000 (0x186a0)\n";
    EXPECT_EQ(shown, tables(dwarf_aranges_dump, with_length(unit)));
}

TEST(dwarf_dump_aranges, an_aligned_position_skips_a_whole_range)
{
    // With a pointer size of 2 the header ends at 12, a multiple of 4.
    const section_bytes unit = section_bytes().b2(2).b4(0x10).b1(2).b1(7).b4(0xFFFFFFFF).b2(1).b2(2).zeros(4).b1(1);
    EXPECT_EQ(ranges_header(21, 2) +
                  "  Segment Size:             7 \n"
                  " [0] start: 0x00000001   end: 0x00000003   length:     2 (0x2)\n" +
                  PADDING_WARNING,
              tables(dwarf_aranges_dump, with_length(unit)));
}

TEST(dwarf_dump_aranges, damaged_headers)
{
    EXPECT_EQ("  Length:                   5\n" + SHORT_WARNING,
              tables(dwarf_aranges_dump, with_length(section_bytes().zeros(5))));
    EXPECT_EQ(ranges_header(8, 9) + " WARNING: Pointer size is too big, can not continue...\n",
              tables(dwarf_aranges_dump, with_length(section_bytes().b2(2).b4(0x10).b1(9).b1(0))));
}

TEST(dwarf_dump_loc, lists)
{
    section_bytes section;
    section.b4(0x10).b4(0x20).b2(2).raw({0x91, 4}).b4(0xFFFFFFFF).b4(0x1000).b4(1).b4(2).b2(0).zeros(8).zeros(8);
    section.b4(1).b4(2).b2(9);
    EXPECT_EQ("   Offset   Begin    End      Expression\n"
              "  00000000 00000010 00000020 (DW_OP_fbreg: 4)\n"
              "           ffffffff 00001000 (base address)\n"
              "           00000001 00000002 ((unknown))\n"
              "           <End of list>\n"
              "           <End of list>\n",
              lists(dwarf_loc_dump, section));
}

TEST(dwarf_dump_ranges, pairs)
{
    EXPECT_EQ("      Offset        Begin          End\n"
              "           0     ffffffff         1000 (base address)\n"
              "           8           10           20\n"
              "          10            0            0 (end of list)\n",
              lists(dwarf_ranges_dump, section_bytes().b4(0xFFFFFFFF).b4(0x1000).b4(0x10).b4(0x20).zeros(8).zeros(2)));
}

section_bytes cie(const section_bytes &instructions = {})
{
    section_bytes record = section_bytes().b4(0xFFFFFFFF).raw({1, 0, 2, 0x7C, 14});
    record.insert(record.end(), instructions.begin(), instructions.end());
    return with_length(record);
}

const std::string CIE_FIELDS = "  Version:               1\n  Augmentation:          \"\"\n"
                               "  Code alignment factor: 2\n  Data alignment factor: -4\n"
                               "  Return address column: 14\n";

TEST(dwarf_dump_frame, instructions)
{
    const section_bytes instructions = section_bytes()
                                           .raw({0x00, 0x41, 0x85, 2, 0xC0, 3})
                                           .raw({0x01, 4, 3, 2, 1, 0x02, 5, 0x03, 1, 1, 0x04, 1, 0, 0, 0})
                                           .raw({0x05, 6, 7, 0x06, 1, 0x07, 2, 0x08, 3, 0x09, 4, 5})
                                           .raw({0x0A, 0x0B, 0x0C, 7, 8, 0x0D, 9, 0x0E, 10, 0x0F});
    EXPECT_EQ("00000000 00000034 ffffffff CIE\n" + CIE_FIELDS +
                  "  DW_CFA_nop\n  DW_CFA_nop\n  DW_CFA_offset: r0 at cfa--8\n  DW_CFA_offset: r0 at cfa--12\n"
                  "  DW_CFA_set_loc: 1020304\n  DW_CFA_advance_loc1: 10\n  DW_CFA_advance_loc2: 514\n"
                  "  DW_CFA_advance_loc4: 2\n  DW_CFA_offset_extended: r6 at cfa--28\n  DW_CFA_restore_extended: r1\n"
                  "  DW_CFA_undefined: r2\n  DW_CFA_same_value: r3\n  DW_CFA_register: r4 r5\n"
                  "  DW_CFA_remember_state\n  DW_CFA_restore_state\n  DW_CFA_def_cfa: r7 ofs 8\n"
                  "  DW_CFA_def_cfa_register: r9\n  DW_CFA_def_cfa_offset: r10\n  ?? 0x0000000F\n",
              lists(dwarf_frame_dump, cie(instructions)));
}

TEST(dwarf_dump_frame, an_fde_and_one_without_a_cie)
{
    section_bytes section = cie();
    section.b4(12).b4(0).b4(0x100).b4(0x20).b4(12).b4(4).b4(0x200).b4(0x10);
    EXPECT_EQ("00000000 00000009 ffffffff CIE\n" + CIE_FIELDS +
                  "0000000d 0000000c 00000000 FDE cie=00000000 pc=00000100..00000120\n"
                  "0000001d 0000000c 00000004 FDE cie=00000004 pc=00000200..00000210\n"
                  "\n WARNING: FDE doesn't reference proper CIE.\n"
                  " WARNING: Could not properly retrieve code and data alignment factors from CIE entry, could not "
                  "continue...\n",
              lists(dwarf_frame_dump, section));
}

TEST(dwarf_dump_frame, damaged_records)
{
    EXPECT_EQ(FRAME_LENGTH, lists(dwarf_frame_dump, section_bytes().b4(4).b4(0)));
    EXPECT_EQ(FRAME_LENGTH, lists(dwarf_frame_dump, section_bytes().b4(9).zeros(8)));
    EXPECT_EQ("00000000 00000007 ffffffff CIE\n"
              " WARNING, the length of CIE entry is too small, could not print...\n" +
                  FRAME_ERROR,
              lists(dwarf_frame_dump, section_bytes().b4(7).b4(0xFFFFFFFF).zeros(3)));
    EXPECT_EQ("00000000 0000000a ffffffff CIE\n  Version:               1\n"
              "  Augmentation:          (unknown) = zR\n" +
                  FRAME_ERROR,
              lists(dwarf_frame_dump, section_bytes().b4(10).b4(0xFFFFFFFF).b1(1).text("zR").zeros(2)));
}

} // namespace

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

std::string lists(void (*dump)(dwarf_text &, dwarf_bytes_view, std::uint32_t), const section_bytes &section,
                  std::uint32_t pointer_size = 4)
{
    const dwarf_room room;
    return printed_by([&](dwarf_text &out) { dump(out, section, pointer_size); });
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
    section.bytes(with_length(names().b4(0).b1(1)));
    EXPECT_EQ(names_header(22) + "    0x000000AB: \"f\"\n" + names_header(15) + PADDING_WARNING,
              tables(dwarf_pubnames_dump, section));
    EXPECT_EQ(names_header(15), tables(dwarf_pubnames_dump, with_length(names().b4(1).b1('x'))));
    EXPECT_EQ("\n  Length:                              9\n" + SHORT_WARNING,
              tables(dwarf_pubnames_dump, with_length(section_bytes().zeros(9))));
}

TEST(dwarf_dump_pubnames, a_unit_that_the_section_cuts)
{
    section_bytes section = with_length(names().b4(0xAB).text("f").b4(2).raw({'x', 'y'}));
    section[0] = 0xFF; // its length
    EXPECT_EQ(names_header(255) + "    0x000000AB: \"f\"\n", tables(dwarf_pubnames_dump, section));
    EXPECT_EQ("\n  Length:                              255\n" + SHORT_WARNING,
              tables(dwarf_pubnames_dump, section_bytes(section.data(), 4 + 9)));
    EXPECT_EQ("\n", tables(dwarf_pubnames_dump, section_bytes(section.data(), 3)));
}

TEST(dwarf_dump_pubnames, a_big_endian_section)
{
    const dwarf_room room(true);
    const section_bytes section = with_length(names().b4(0x12345678).text("f").b4(0));
    EXPECT_EQ(names_header(20) + "    0x12345678: \"f\"\n",
              printed_by([&](dwarf_text &out) { dwarf_pubnames_dump(out, section); }));
}

TEST(dwarf_dump_words, second_forms_stand_beside_what_is_scaled)
{
    const word_room room;
    const auto shown = [](auto dump, const section_bytes &section) {
        return printed_by([&](dwarf_text &out) { dump(out, section); });
    };
    EXPECT_EQ("  <0>: \"a\"\n  <1 (actual 2)>: \"bc\"\n", shown(dwarf_str_dump, section_bytes().text("a").text("bc")));
    EXPECT_EQ("\n  Length:                              10 (actual 20)\n"
              "  Version:                             2\n"
              "  Offset into .debug_info section:     0x1c (actual 0x38)\n"
              "  Size of area in .debug_info section: 40 (actual 80)\n"
              "\n      Offset    Name\n"
              "    0x00000001: \"f\"\n",
              shown(dwarf_pubnames_dump, section_bytes().b4(10).bytes(names()).b4(1).text("f").b4(0)));
    // The ranges begin at a multiple of two scaled addresses.
    EXPECT_EQ("  Length:                   14 (actual 28)\n"
              "  Version:                             2\n"
              "  Offset into .debug_info:  0x10 (actual 0x20)\n"
              "  Pointer Size:             4\n"
              "  Segment Size:             0 (flat)\n"
              " [0] start: 0x00000001   end: 0x00000003   length:     2 (0x2)\n",
              shown(dwarf_aranges_dump,
                    section_bytes().b4(14).b2(2).b4(0x10).b1(4).b1(0).b4(0xFFFFFFFF).b4(1).b4(2).zeros(8)));
    EXPECT_EQ("      Offset        Begin          End\n"
              "           0            1            2\n"
              "           4            0            0 (end of list)\n",
              shown([](dwarf_text &out, dwarf_bytes_view section) { dwarf_ranges_dump(out, section, 4); },
                    section_bytes().b4(1).b4(2).zeros(8)));
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

TEST(dwarf_dump_aranges, other_pointer_sizes)
{
    // The position in the section counts: the second unit starts at 18.
    const section_bytes one = section_bytes().b2(2).b4(0x10).b1(1).b1(0).zeros(2).b1(9).b1(8).zeros(2);
    const section_bytes eight =
        section_bytes().b2(2).b4(0x10).b1(8).b1(0).zeros(2).number(16, 8).number(32, 8).zeros(16);
    EXPECT_EQ(ranges_header(14, 1) + "  Segment Size:             0 (flat)\n" +
                  " [0] start: 0x00000009   end: 0x00000011   length:     8 (0x8)\n" + ranges_header(42, 8) +
                  "  Segment Size:             0 (flat)\n" +
                  " [0] start: 0x00000010   end: 0x00000030   length:    32 (0x20)\n",
              tables(dwarf_aranges_dump, with_length(one).bytes(with_length(eight))));
}

TEST(dwarf_dump_aranges, an_address_of_no_width_is_an_internal_error)
{
    const survived_errors errors;
    EXPECT_EQ(ranges_header(10, 0) + "  Segment Size:             0 (flat)\n",
              tables(dwarf_aranges_dump, with_length(section_bytes().b2(2).b4(0x10).b1(0).b1(0).zeros(2))));
    EXPECT_EQ(1U, errors.count());
    // 3: the ranges would begin at 18, behind the end of a unit that is shorter.
    EXPECT_EQ(ranges_header(14, 3) + "  Segment Size:             0 (flat)\n",
              tables(dwarf_aranges_dump, with_length(section_bytes().b2(2).b4(0x10).b1(3).b1(0).zeros(6))));
    EXPECT_EQ(1U, errors.count());
    EXPECT_EQ(ranges_header(15, 3) + "  Segment Size:             0 (flat)\n",
              tables(dwarf_aranges_dump, with_length(section_bytes().b2(2).b4(0x10).b1(3).b1(0).zeros(7))));
    EXPECT_EQ(2U, errors.count());
}

TEST(dwarf_dump_aranges, units_that_the_section_or_their_length_cuts)
{
    const section_bytes unit = section_bytes().b2(2).b4(0x10).b1(4).b1(0).zeros(4).b4(0x100).b4(0x20).b4(0x200);
    EXPECT_EQ(ranges_header(24, 4) + "  Segment Size:             0 (flat)\n"
                                     " [0] start: 0x00000100   end: 0x00000120   length:    32 (0x20)\n",
              tables(dwarf_aranges_dump, with_length(unit)));
    // The smallest length leaves out the two sizes, which are read all the same.
    const section_bytes small = section_bytes().b4(6).b2(2).b4(0x10).b1(4).b1(0);
    EXPECT_EQ(ranges_header(6, 4) + "  Segment Size:             0 (flat)\n", tables(dwarf_aranges_dump, small));
    EXPECT_EQ(ranges_header(6, 4), tables(dwarf_aranges_dump, section_bytes(small.data(), 11)));
    EXPECT_EQ("", tables(dwarf_aranges_dump, section_bytes().zeros(3)));
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

TEST(dwarf_dump_loc, other_pointer_sizes)
{
    const std::string heading = "   Offset   Begin    End      Expression\n";
    EXPECT_EQ(heading + "  00000000 00000001 00000002 (DW_OP_addr: 0x201)\n           0000ffff 00000003 (base "
                        "address)\n           <End of list>\n",
              lists(dwarf_loc_dump, section_bytes().b2(1).b2(2).b2(3).raw({3, 1, 2}).b2(0xFFFF).b2(3).b4(0), 2));
    EXPECT_EQ(
        heading + "  00000000 ffffffffffffffff 00001000 (base address)\n"
                  "           ffffffff 00000000 (DW_OP_reg0)\n",
        lists(dwarf_loc_dump,
              section_bytes().number(UINT64_MAX, 8).number(0x1000, 8).number(0xFFFFFFFF, 8).zeros(8).b2(1).b1(0x50),
              8));
}

TEST(dwarf_dump_loc, addresses_of_no_width_are_internal_errors)
{
    const survived_errors errors;
    EXPECT_EQ("   Offset   Begin    End      Expression\n", lists(dwarf_loc_dump, section_bytes().zeros(9), 3));
    EXPECT_EQ("      Offset        Begin          End\n", lists(dwarf_ranges_dump, section_bytes().zeros(9), 0));
    EXPECT_EQ(2U, errors.count());
}

TEST(dwarf_dump_ranges, other_pointer_sizes)
{
    const std::string heading = "      Offset        Begin          End\n";
    EXPECT_EQ(heading + "           0           ff            2 (base address)\n",
              lists(dwarf_ranges_dump, section_bytes().raw({0xFF, 2}), 1));
    EXPECT_EQ(heading + "           0     ffffffff            2\n"
                        "          10     ffffffff            3 (base address)\n",
              lists(dwarf_ranges_dump,
                    section_bytes().number(0xFFFFFFFF, 8).number(2, 8).number(UINT64_MAX, 8).number(3, 8), 8));
}

TEST(dwarf_dump_ranges, a_cut_pair_is_dropped_and_fails_the_assertion)
{
    const std::string heading = "      Offset        Begin          End\n";
    const trace_log log;
    EXPECT_EQ(heading, lists(dwarf_ranges_dump, section_bytes().b4(1)));
    EXPECT_EQ(std::vector<std::string>{"offset < size"}, trace_log::failed());
    EXPECT_EQ(heading, lists(dwarf_ranges_dump, section_bytes().b4(1).b2(2))); // the second value starts inside
    EXPECT_EQ(1U, trace_log::failed().size());
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
    return with_length(section_bytes().b4(0xFFFFFFFF).raw({1, 0, 2, 0x7C, 14}).bytes(instructions));
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

TEST(dwarf_dump_frame, an_fde_in_front_of_its_cie)
{
    const section_bytes fde = section_bytes().b4(14).b4(18).b4(0x100).b4(0x20).raw({0x02, 3});
    EXPECT_EQ("00000000 0000000e 00000012 FDE cie=00000012 pc=00000100..00000120\n"
              "  DW_CFA_advance_loc1: 6\n"
              "00000012 00000009 ffffffff CIE\n" +
                  CIE_FIELDS,
              lists(dwarf_frame_dump, section_bytes(fde).bytes(cie())));
}

TEST(dwarf_dump_frame, other_pointer_sizes)
{
    section_bytes section = cie();
    section.b4(8).b4(0).b2(0xFFF0).b2(0x20).b4(20).b4(0).number(0x1234567890, 8).number(0x10, 8);
    EXPECT_EQ("00000000 00000009 ffffffff CIE\n" + CIE_FIELDS +
                  "0000000d 00000008 00000000 FDE cie=00000000 pc=0000fff0..00010010\n",
              lists(dwarf_frame_dump, section_bytes(section.data(), 25), 2));
    EXPECT_EQ(
        "00000000 00000014 00000018 FDE cie=00000018 pc=1234567890..12345678a0\n"
        "00000018 00000009 ffffffff CIE\n" +
            CIE_FIELDS,
        lists(dwarf_frame_dump, section_bytes().b4(20).b4(24).number(0x1234567890, 8).number(0x10, 8).bytes(cie()), 8));
    const survived_errors errors;
    EXPECT_EQ(FRAME_ERROR, lists(dwarf_frame_dump, section, 3).substr(32 + CIE_FIELDS.size() - 1));
    EXPECT_EQ(1U, errors.count());
}

TEST(dwarf_dump_frame, an_operand_past_its_record_is_read_on)
{
    const section_bytes section = cie(section_bytes().raw({0x04})); // the operand is the length of the next record
    EXPECT_EQ("00000000 0000000a ffffffff CIE\n" + CIE_FIELDS +
                  "  DW_CFA_advance_loc4: 18\n"
                  "0000000e 00000009 ffffffff CIE\n" +
                  CIE_FIELDS,
              lists(dwarf_frame_dump, section_bytes(section).bytes(cie())));
    EXPECT_EQ("00000000 0000000a ffffffff CIE\n" + CIE_FIELDS + "  DW_CFA_advance_loc4\n" + FRAME_ERROR,
              lists(dwarf_frame_dump, section));
}

TEST(dwarf_dump_frame, cies_that_are_none)
{
    const std::string improper = "\n WARNING: FDE doesn't reference proper CIE.\n"
                                 " WARNING: Could not properly retrieve code and data alignment factors from CIE "
                                 "entry, could not continue...\n";
    const auto fde = [](std::uint32_t id) { return section_bytes().b4(12).b4(id).zeros(8); };
    const std::string head = "00000000 0000000c ";
    // Behind the section, itself, one with an augmentation, one that is too short, and one that the section cuts.
    EXPECT_EQ(head + "7fffffff FDE cie=7fffffff pc=00000000..00000000\n" + improper,
              lists(dwarf_frame_dump, fde(0x7FFFFFFF).bytes(cie())));
    EXPECT_EQ(head + "00000000 FDE cie=00000000 pc=00000000..00000000\n" + improper,
              lists(dwarf_frame_dump, fde(0).bytes(cie())));
    const std::string next = head + "00000010 FDE cie=00000010 pc=00000000..00000000\n" + improper;
    EXPECT_EQ(next, lists(dwarf_frame_dump,
                          fde(16).bytes(with_length(section_bytes().b4(0xFFFFFFFF).b1(1).text("zR").zeros(9)))));
    EXPECT_EQ(next, lists(dwarf_frame_dump, fde(16).bytes(with_length(section_bytes().b4(0xFFFFFFFF).zeros(3)))));
    EXPECT_EQ(next, lists(dwarf_frame_dump, fde(16).b4(9).b4(0xFFFFFFFF).raw({1, 0, 2, 0x7C})));
}

TEST(dwarf_dump_frame, a_big_endian_section)
{
    const dwarf_room room(true);
    const section_bytes section = cie(section_bytes().raw({0x03, 1, 0})).b4(12).b4(0).b4(0x12345678).b4(0x10);
    EXPECT_EQ("00000000 0000000c ffffffff CIE\n" + CIE_FIELDS +
                  "  DW_CFA_advance_loc2: 512\n"
                  "00000010 0000000c 00000000 FDE cie=00000000 pc=12345678..12345688\n",
              printed_by([&](dwarf_text &out) { dwarf_frame_dump(out, section, 4); }));
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

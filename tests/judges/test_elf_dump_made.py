#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""`tarnwick -d` prints files with every form, operator, name and opcode there is, in either byte order and with
addresses of two, four and eight bytes; and files whose dump ends early."""

import judging
from elf_dump_check import DumpJudge
from made_elf import DW_AT_const_value, FORMS, Maker, abbreviation, everything, extended, line_unit, uleb

DW_TAG_compile_unit, DW_TAG_label = 0x11, 0x0A
UNIT = 1


class Made(DumpJudge):
    def test_everything(self):
        for big_endian in False, True:
            for pointer_size in 2, 4, 8:
                path = self.scratch / f"all-{'big' if big_endian else 'little'}-{pointer_size}.elf"
                path.write_bytes(everything(big_endian, pointer_size))
                dump, facts = self.check_file(path)
                lists = len(facts.locations()), len({at for at, *_ in facts.ranges()})
                self.assertEqual((facts.big_endian, *lists), (big_endian, 3, 1))

    # --- files of few sections ---

    def file(self, attributes, entry, version=2, **sections):
        """A little-endian file whose only entry has these attributes and bytes; further sections by their names."""
        maker = Maker(False, 4)
        maker.add(".debug_abbrev", abbreviation(UNIT, DW_TAG_compile_unit, 0, attributes) + b"\0")
        maker.add(".debug_info", maker.unit(maker.u2(version) + maker.u4(0) + b"\4" + entry))
        for name, content in sections.items():
            maker.add(f".debug_{name}", content)
        path = self.scratch / f"{self.id().rpartition('.')[2]}.elf"
        path.write_bytes(maker.elf())
        return path

    def dwarf_lines(self, path, status=0):
        """The lines from the entries on, and the dump."""
        dump = self.dump(path, 0, status)
        lines = dump.tail()
        return lines[lines.index("The section .debug_info contains:") + 1 :], dump

    UNIT_LINES = ["", "  Compilation Unit @ 0:", "   Length:        {}", "   Version:       2", "   Abbrev Offset: 0x0",
                  "   Pointer Size:  4", " <0><b>: Abbrev Number: 1 (DW_TAG_compile_unit)"]  # fmt: skip

    def unit_lines(self, length):
        return [line.format(length) for line in self.UNIT_LINES]

    def test_indirect_form(self):
        """Its value is printed, and the dump of the section ends nevertheless."""
        pairs = [(DW_AT_const_value, FORMS["indirect"]), (DW_AT_const_value, FORMS["data1"])]
        path = self.file(pairs, uleb(UNIT) + uleb(FORMS["udata"]) + uleb(300) + b"\7", ranges=b"")
        lines, dump = self.dwarf_lines(path)
        end = ["", "", "WARNING: invalid attribute form, could not proceed...",
               "ERROR occurred while dumping .debug_info section...", "", ""]  # fmt: skip
        rest = ["Contents of the .debug_ranges section:", "      Offset        Begin          End", "", ""]
        self.assertEqual(lines, [*self.unit_lines(12), "     DW_AT_const_value    :0x12c (300)", *end, *rest])

    def test_invalid_form(self):
        for form in 0x02, 0x17, 0x19, 0x2001:
            path = self.file([(DW_AT_const_value, form)], uleb(UNIT) + b"\0\0\0\0")
            lines, dump = self.dwarf_lines(path)
            end = ["", "WARNING: invalid attribute form, could not proceed...",
                   "ERROR occurred while dumping .debug_info section...", "", ""]  # fmt: skip
            self.assertEqual(lines, [*self.unit_lines(12), "     DW_AT_const_value    :", *end])
            (entry,) = dump.dwarf.sections[".debug_abbrev"]
            self.assertEqual(entry[3], [("DW_AT_const_value", f"?? 0x{form:08X}")])

    def test_later_edition(self):
        lines, _ = self.dwarf_lines(self.file([], uleb(UNIT), version=4))
        end = [" WARNING: Unsupported DWARF version (4), can not continue...", "", ""]
        self.assertEqual(lines, ["", "  Compilation Unit @ 0:", "   Length:        8", "   Version:       4", *end])

    def test_siblings_of_a_unit(self):
        lines, _ = self.dwarf_lines(self.file([], uleb(UNIT) * 2))
        end = [" WARNING: Compile unit entry has siblings when it should not have, ignoring...", "", ""]
        self.assertEqual(lines, [*self.unit_lines(9), *end])

    def test_unknown_line_opcodes(self):
        """Those of later editions, and one for vendors, end the run in the middle of the line."""
        maker, end = Maker(False, 4), extended(1)
        for program in b"\x0a", b"\x0b", b"\x0c\1", extended(4, b"\1"), extended(0x80, b"vendor"):
            with self.subTest(program=program):
                unit = line_unit(maker, 2, 1, 13, [], [], b"\x01" + end + b"\x01" + program + end)
                path = self.file([], uleb(UNIT), line=unit, pubnames=b"")
                lines, dump = self.dwarf_lines(path, status=1)
                self.assertEqual(lines[-2:], [f"00003: {'DW_LNS_copy':24}", "00004: "])
                self.assertEqual([len(rows) for rows in dump.dwarf.sections[".debug_line"][0]["rows"]], [2])

    def test_macro_information_without_a_pointer_size(self):
        """The byte where the address table would tell the size of its addresses; none can have 0 bytes."""
        path = self.file([], uleb(UNIT), macinfo=b"\1\1ABCDEFGH\0\1more\0")
        lines, _ = self.dwarf_lines(path, status=1)
        heading = ["", "", "The section .debug_macinfo contains:"]
        table = ["  Length:                   1111556353", "  Version:                             17475",
                 "  Offset into .debug_info:  0x48474645", "  Pointer Size:             0",
                 "  Segment Size:             1 "]  # fmt: skip
        self.assertEqual(lines, [*self.unit_lines(8), *heading, *table, ""])


if __name__ == "__main__":
    judging.main()

#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The judges of debugging sections against results that were worked out by hand: the reader must notice each fault, and
the model must be right."""

import struct
import unittest

import judging
from dwarf_model import (
    Block,
    LineProgram,
    LineTable,
    line_unit,
    place_blocks,
    place_variable,
    read_database,
    sleb,
    split_path,
    uleb,
)
from dwarf_reader import DwarfFile

# --- a small file for the reader --------------------------------------------------------------------------------------

ABBREVIATIONS = [
    "01 11 01 10 06 25 08 13 05 03 08 00 00",  # unit: stmt_list, producer, language, name
    "02 24 00 03 08 0b 0b 3e 0b 00 00",  # base type: name, byte_size, encoding
    # function: sibling, name, type, external, decl_file, decl_line, low_pc, high_pc, inline
    "03 2e 01 01 13 03 08 49 13 3f 0c 3a 0f 3b 0f 11 01 12 01 20 0b 00 00",
    "04 34 00 03 08 3a 0b 3b 05 49 13 02 03 00 00",  # variable: name, decl_file, decl_line, type, location
    "00",
]
PRODUCER = b"Vantrel Kelvar ZRT Compiler v1.00\0"
LOW, HIGH = 0x10, 0x1F


def length(body):
    return struct.pack("<I", len(body)) + body


def elf(sections):
    """A file of debugging sections and their names."""
    names, offset, content, headers = b"\0", 52, b"", []
    for name, data in [*sections.items(), (".shstrtab", None)]:
        start = len(names)
        names += name.encode() + b"\0"
        data = names if data is None else data
        headers.append(struct.pack("<10I", start, 7, 0, 0, offset, len(data), 0, 0, 0, 0))
        content, offset = content + data, offset + len(data)
    header = b"\x7fELF\x01\x01\x01".ljust(16, b"\0")
    header += struct.pack("<HHIIIIIHHHHHH", 2, 0, 1, 0, 0, offset, 0, 52, 0, 0, 40, len(headers), len(headers) - 1)
    return header + content + b"".join(headers)


UNIT_NAME = b"/a.c\0"
INT_AT = 11 + 1 + 4 + len(PRODUCER) + 2 + len(UNIT_NAME)  # behind the header of the unit and its entry


def image(**wrong):
    """The file, with each number that is named off by what is given."""

    def off(name, value):
        return value + wrong.get(name, 0)

    unit = b"\x01" + struct.pack("<I", off("stmt_list", 0)) + PRODUCER
    unit += struct.pack("<H", off("language", 1)) + UNIT_NAME
    base = b"\x02int\0" + bytes([2, off("encoding", 5)])
    function_at = INT_AT + len(base)
    function = b"f\0" + struct.pack("<IB", off("returned", INT_AT), off("external", 1)) + bytes([off("file", 1), 5])
    function += struct.pack("<IIB", LOW, off("high", HIGH), off("inline", 0))
    expression = bytes([off("operation", 0x91), 2])
    variable = b"\x04x\0" + struct.pack("<BHI", 1, 6, INT_AT)
    variable += struct.pack("<H", off("expression", len(expression))) + expression
    end_at = function_at + 5 + len(function) + len(variable) + 1
    tree = unit + base + b"\x03" + struct.pack("<I", off("sibling", end_at)) + function + variable + b"\0\0"
    info = struct.pack("<HIB", off("version", 2), off("abbreviations", 0), off("address_size", 4)) + tree
    info = struct.pack("<I", off("unit_length", len(info))) + info

    files = b"\0a.c\0\0\0\0\0"
    header = bytes([1, 1, 0xF1, off("line_range", 20), 10, 0, 1, 1, 1, 1, 0, 0, 0, 1]) + files
    program = bytes([0, 5, 2, LOW, 0, 0, 0, 3 + 15 + 10, off("second", 1 + 15 + 20 + 10), 2, 1, 0, 1, 1])
    line = length(struct.pack("<HI", 2, off("header_length", len(header))) + header + program)

    names = struct.pack("<HIII", 2, 0, off("area", len(info)), off("entry", function_at)) + b"f\0" + bytes(4)
    ranges = struct.pack("<HIBB4x", 2, 0, 4, 0) + struct.pack("<IIII", LOW, off("range", HIGH - LOW + 1), 0, 0)
    return elf({
        ".debug_abbrev": bytes.fromhex("".join(ABBREVIATIONS)),
        ".debug_info": info,
        ".debug_line": line,
        ".debug_pubnames": length(names),
        ".debug_aranges": length(ranges),
    })  # fmt: skip


# What is off, by how much, and what the reader says.
FAULTS = [
    ("language", 1, "language"),
    ("stmt_list", 1, "units and line units do not agree"),
    ("encoding", 1, "another encoding"),
    ("returned", 1, "not the start of an entry"),
    ("returned", 11 - INT_AT, "its type is a compile_unit"),
    ("returned", -INT_AT, "a type was never written"),
    ("external", 1, "external is 2"),
    ("file", 1, "file 2 of 1"),
    ("file", -1, "file 0 of 1"),
    ("high", 1, r"the functions have \[\(16, 17\)\]"),
    ("inline", 1, "inline is 1"),
    ("operation", 1, "operation 0x92"),
    ("expression", -1, "pass the end|bytes behind|no abbreviation"),
    ("sibling", 1, "sibling 0x"),
    ("sibling", -1, "sibling 0x"),
    ("version", 2, "version 4"),
    ("abbreviations", 1, "abbreviations at 0x1"),
    ("address_size", -1, "address size 3"),
    ("unit_length", -1, "pass the end"),
    ("unit_length", 1, "pass the end"),
    ("line_range", -1, "range and opcode base"),
    ("second", 7 - 46, "opcode 7"),
    ("second", 4 - 46, "file 2 of 1"),
    ("header_length", 1, "header length leads to"),
    ("area", 1, "is not that of its unit"),
    ("entry", 1, r"\['f'\], but the unit has \['f'\]"),
    ("range", -1, r"\[\(16, 15\)\], but the functions have \[\(16, 16\)\]"),
]


class Reader(unittest.TestCase):
    def test_a_file_without_a_fault(self):
        dwarf = DwarfFile(image())
        self.assertEqual(dwarf.faults, [])
        (unit,) = dwarf.units
        base, function = unit.die.children
        (variable,) = function.children
        self.assertEqual((function.get("name"), function.ranges, function.get("type")), ("f", [(0x10, 0x20)], base))
        self.assertEqual((variable.get("name"), variable.locations), ("x", [(None, None, ("frame", 2))]))
        rows = [(row.address, row.line, row.end) for row in unit.lines.rows]
        self.assertEqual(rows, [(0x10, 4, False), (0x11, 5, False), (0x12, 5, True)])
        self.assertEqual(unit.lines.path(1), ("", "a.c"))
        self.assertEqual((unit.names, unit.addresses), ([(function, "f")], [(0x10, 0x10)]))

    def test_faults_are_noticed(self):
        for name, by, told in FAULTS:
            with self.subTest(name, by=by):
                self.assertRegex("\n".join(DwarfFile(image(**{name: by})).faults), told)

    def test_every_section_ends_where_it_should(self):
        for name in (".debug_abbrev", ".debug_info", ".debug_line", ".debug_pubnames", ".debug_aranges"):
            with self.subTest(name):
                content = image()
                sections = DwarfFile(content).sections
                for data in (sections[name] + b"\1", sections[name][:-1]):
                    self.assertNotEqual(DwarfFile(elf({**sections, name: data})).faults, [])
                self.assertEqual(DwarfFile(elf(sections)).faults, [])


# --- the model --------------------------------------------------------------------------------------------------------


class LinePrograms(unittest.TestCase):
    def steps(self, *steps, minimum=2):
        program = LineProgram(4, "little", minimum)
        for line, address in steps:
            program.advance(line, address)
        return list(program.code)

    def test_numbers(self):
        self.assertEqual([uleb(value) for value in (0, 127, 128)], [b"\0", b"\x7f", b"\x80\x01"])
        self.assertEqual([sleb(value) for value in (63, 64, -64, -65)], [b"\x3f", b"\xc0\0", b"\x40", b"\xbf\x7f"])

    def test_steps_in_units_of_two_bytes(self):
        for line, address, code in (
            (1, 4, [66]),
            (0, 1, [1]),
            (1, 1, [26]),
            (0, 24, [8, 25]),
            (4, 46, [8, 249]),
            (4, 48, [2, 24, 29]),
            (30, 4, [3, 30, 65]),
            (30, 1, [3, 30, 1]),
            (0, 48, [2, 24, 1]),
            (-15, 0, [10]),
            (-16, 0, [3, 0x70, 1]),
            (4, 0, [29]),
            (5, 0, [3, 5, 1]),
        ):
            with self.subTest(line=line, address=address):
                self.assertEqual(self.steps((line, address)), code)

    def test_sequences(self):
        for address, line, code in ((0x10, 0, [1]), (0x10, 3, [28]), (0x10, 20, [3, 20, 1]), (0x1_0000_0010, 3, [28])):
            with self.subTest(line=line):
                program = LineProgram(4, "big", 1)
                program.start_sequence(line, address)
                self.assertEqual(list(program.code), [0, 5, 2, 0, 0, 0, 0x10, *code])

    def test_a_row_at_address_0_starts_two_sequences(self):
        program = LineProgram(2, "little", 1)
        unit = line_unit("/d", "a.c", [(4, 3), (0, 2)], 2, program)
        self.assertEqual(list(program.code), [0, 3, 2, 0, 0, 26, 0, 3, 2, 4, 0, 26, 2, 1, 0, 1, 1])
        tables = b"/d\0\0a.c\0\1\0\0\0"
        header = bytes([1, 1, 0xF1, 20, 10, 0, 1, 1, 1, 1, 0, 0, 0, 1]) + tables
        expected = length(struct.pack("<HI", 2, len(header)) + header + bytes(program.code))
        self.assertEqual(unit, expected)

    def test_paths(self):
        for path, parts in (("/a/b.c", ("/a", "b.c")), ("D:\\a\\b/c.c", ("D:\\a", "b/c.c")), ("b.c", ("", "b.c"))):
            self.assertEqual(split_path(path), parts)


# Lines 10 to 60 of a function in two ranges; the line 30 has code in both.
RANGES = [(0x100, 0x11F), (0x140, 0x15F)]
ROWS = [("/a.c", line, address) for line, address in
        ((10, 0x100), (20, 0x108), (30, 0x110), (30, 0x140), (40, 0x148), (60, 0x158))]  # fmt: skip
REGISTER, STACK = ("reg", 1), ("frame", 2)


class Places(unittest.TestCase):
    table = LineTable(ROWS)

    def block(self, first, last, parent=None):
        block = Block("block", parent, "/a.c", first, last)
        if parent:
            parent.blocks.append(block)
        return block

    def placed(self, locations, is_parameter=False, last=60):
        function = self.block(10, 60)
        block = self.block(10, last, function)
        place_blocks(function, RANGES, self.table)
        return place_variable(locations, is_parameter, "/a.c", block, function, self.table)

    def test_lines(self):
        for file, line, ranges, address in (
            ("/a.c", 30, RANGES, 0x110),
            ("/a.c", 30, RANGES[1:], 0x140),
            ("/a.c", 50, RANGES, 0x158),  # the next one that has code
            ("/a.c", 70, RANGES, None),
            ("/elsewhere/a.c", 20, RANGES, 0x108),  # by its base name
            ("/b.c", 20, RANGES, None),
        ):
            with self.subTest(file=file, line=line):
                self.assertEqual(self.table.find(file, line, ranges), address)

    def test_the_only_line_of_a_file_is_not_found(self):
        self.assertIsNone(LineTable([("/a.c", 10, 0x100)]).find("/a.c", 10, RANGES))

    def test_blocks(self):
        function = self.block(10, 60)
        blocks = [self.block(first, last, function) for first, last in ((20, 30), (20, 40), (40, 60), (30, 70))]
        place_blocks(function, RANGES, self.table)
        expected = [
            [(0x108, 0x110)],
            [(0x108, 0x11F), (0x140, 0x148)],
            [(0x148, 0x158)],
            [(0x110, 0x11F), (0x140, 0x15F)],  # the last line has no code
        ]
        self.assertEqual([block.ranges for block in blocks], expected)

    def test_a_parameter_starts_with_its_function(self):
        places = self.placed([(20, REGISTER), (40, STACK)], is_parameter=True)
        expected = [(0x100, 0x11F, REGISTER), (0x140, 0x147, REGISTER), (0x148, 0x15F, STACK)]
        self.assertEqual(places, expected)

    def test_a_location_that_crosses_the_gap_is_two(self):
        places = self.placed([(20, REGISTER), (60, STACK)])
        expected = [(0x108, 0x11F, REGISTER), (0x140, 0x157, REGISTER), (0x158, 0x15F, STACK)]
        self.assertEqual(places, expected)

    def test_a_location_that_ends_where_a_range_begins(self):
        table = LineTable([row for row in ROWS if row[2] != 0x110])
        function = self.block(10, 60)
        place_blocks(function, RANGES, table)
        places = place_variable([(20, REGISTER), (30, STACK)], False, "/a.c", function, function, table)
        self.assertEqual(places, [(0x108, 0x11F, REGISTER), (0x140, 0x15F, STACK)])

    def test_a_line_without_code_drops_what_follows(self):
        places = self.placed([(20, REGISTER), (70, STACK), (80, REGISTER)])
        self.assertEqual(places, [(0x108, 0x11F, REGISTER), (0x140, 0x15F, REGISTER)])

    def test_a_next_location_before_the_function(self):
        self.assertEqual(self.placed([(5, REGISTER), (10, STACK)])[0], (0x100, 0x100, REGISTER))

    def test_the_end_of_a_block(self):
        places = self.placed([(20, REGISTER), (30, STACK)], last=40)
        self.assertEqual(places, [(0x108, 0x10F, REGISTER), (0x110, 0x11F, STACK), (0x140, 0x148, STACK)])

    def test_databases(self):
        text = """[p W ]
"1 a.c
"3
[v _f f `(v 1 e 0 0 ]
{
"4
[v i i `i 1 a 2 1 ]
"5
[v i i `i 1 a 2 acca ]
{
"6
}
"7
}
2
"""
        module = read_database(text, lambda name: "/d/" + name)
        (function,) = module.blocks
        (block,) = function.blocks
        self.assertEqual((function.kind, function.name, function.file), ("function", "_f", "/d/a.c"))
        self.assertEqual((function.first, function.last, function.lines), (3, 7, {"i": [4, 5]}))
        self.assertEqual((block.kind, block.first, block.last), ("block", 5, 6))


if __name__ == "__main__":
    judging.main()

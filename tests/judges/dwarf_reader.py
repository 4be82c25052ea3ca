#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Reads the debugging sections of an ELF file and follows every byte, link, offset and count in them.

    dwarf_reader.py FILE ...

Prints each fault with the file's name; leaves with 1 when there was one. It is written from the DWARF standard, version
2 with the range lists of version 3, and shares nothing with the program. It is told about the departures that the
program makes on purpose; DEPARTURE marks each. What it has read stands in records for further tests.
"""

import re
import sys
from pathlib import Path

from dwarf_records import Abbreviation, Cursor, Die, Fault, LineUnit, Row, Unit, elf_sections

# --- the standard's numbers, as far as the program uses them ----------------------------------------------------------

TAGS = {
    0x01: "array_type", 0x04: "enumeration_type", 0x05: "formal_parameter", 0x0B: "lexical_block", 0x0D: "member",
    0x0F: "pointer_type", 0x11: "compile_unit", 0x13: "structure_type", 0x15: "subroutine_type", 0x16: "typedef",
    0x17: "union_type", 0x21: "subrange_type", 0x24: "base_type", 0x26: "const_type", 0x28: "enumerator",
    0x2E: "subprogram", 0x34: "variable", 0x35: "volatile_type",
}  # fmt: skip

ATTRIBUTES = {
    0x01: "sibling", 0x02: "location", 0x03: "name", 0x0B: "byte_size", 0x0C: "bit_offset", 0x0D: "bit_size",
    0x10: "stmt_list", 0x11: "low_pc", 0x12: "high_pc", 0x13: "language", 0x1B: "comp_dir", 0x1C: "const_value",
    0x20: "inline", 0x25: "producer", 0x2F: "upper_bound", 0x33: "address_class", 0x38: "data_member_location",
    0x3A: "decl_file", 0x3B: "decl_line", 0x3C: "declaration", 0x3E: "encoding", 0x3F: "external", 0x40: "frame_base",
    0x49: "type", 0x55: "ranges",
}  # fmt: skip

FORMS = {
    0x01: "addr", 0x03: "block2", 0x05: "data2", 0x06: "data4", 0x08: "string", 0x0A: "block1", 0x0B: "data1",
    0x0C: "flag", 0x0F: "udata", 0x13: "ref4",
}  # fmt: skip

OP_ADDR, OP_PLUS_UCONST, OP_REG0, OP_REGX, OP_FBREG = 0x03, 0x23, 0x50, 0x90, 0x91

# --- what the program writes ------------------------------------------------------------------------------------------

PC = "(low_pc:addr high_pc:addr |ranges:data4 )"
TYPE = "(type:ref4 )"
DECLARED = "decl_file:data1 decl_line:data2 "
COMPOUND = f"(sibling:ref4 )?(name:string )?byte_size:data[124] {DECLARED}"
LOCATED = f"name:string {DECLARED}type:ref4 (external:flag )?(declaration:flag )?(location:(block2|data4) )?"

# Of each tag: the children bytes that it may have, and its attributes and forms in order.
ENTRIES = {
    "compile_unit": ("01", f"stmt_list:data4 producer:string language:data2 name:string (comp_dir:string )?{PC}?"),
    "subprogram": ("01", f"(sibling:ref4 )?name:string {TYPE}?(external:flag )?decl_file:udata decl_line:udata {PC}?"
                   "(frame_base:block1 )?inline:data1 "),
    "subroutine_type": ("01", f"(sibling:ref4 )?{TYPE}?"),
    "base_type": ("0", "name:string byte_size:data1 encoding:data1 (bit_size:data1 bit_offset:data1 )?"),
    "const_type": ("0", f"{TYPE}?"),
    "volatile_type": ("0", f"{TYPE}?"),
    "pointer_type": ("0", f"{TYPE}?byte_size:data1 address_class:data1 "),
    "array_type": ("1", "sibling:ref4 type:ref4 "),
    "subrange_type": ("0", "upper_bound:data4 "),
    "structure_type": ("01", COMPOUND),
    "union_type": ("01", COMPOUND),
    "member": ("0", f"name:string {TYPE}(byte_size:data1 bit_size:data1 bit_offset:data1 )?"
               "(data_member_location:block1 )?"),
    "typedef": ("0", f"name:string {DECLARED}{TYPE}?"),
    "variable": ("0", LOCATED),
    "formal_parameter": ("0", LOCATED),
    "enumeration_type": ("1", f"sibling:ref4 (name:string )?(byte_size:data1 )?{DECLARED}"),
    "enumerator": ("0", "name:string const_value:data4 "),
    "lexical_block": ("01", f"(sibling:ref4 )?{PC}?"),
}  # fmt: skip

QUALIFIERS = {"const_type", "volatile_type"}
TYPES = QUALIFIERS | {
    "base_type", "pointer_type", "array_type", "structure_type", "union_type", "enumeration_type", "subroutine_type",
}  # fmt: skip
SCOPES = {"compile_unit", "subprogram", "lexical_block"}

# Where an entry may stand. Types are written at the level of the unit only, whoever needs them.
PARENTS = {
    "subprogram": {"compile_unit"}, "lexical_block": SCOPES - {"compile_unit"},
    "formal_parameter": SCOPES - {"compile_unit"},  # one with several locations may come as several, in faked blocks
    "member": {"structure_type", "union_type"}, "subrange_type": {"array_type"}, "enumerator": {"enumeration_type"},
    "variable": SCOPES, "typedef": SCOPES, **{tag: {"compile_unit"} for tag in TYPES},
}  # fmt: skip

# Name -> encoding of the base types; other names are ids of types and have the encoding of their kind.
ENCODINGS = {
    "signed char": 6, "short int": 5, "int": 5, "short long int": 5, "long int": 5, "long long int": 5,
    "unsigned char": 8, "short unsigned int": 7, "unsigned int": 7, "short long unsigned int": 7,
    "long unsigned int": 7, "long long unsigned int": 7, "float": 4, "double": 4, "bit": 7, "_Bool": 2,
}  # fmt: skip

PRODUCER = re.compile(r"Vantrel Kelvar ZRT Compiler v\d+\.\d+")
LANGUAGES = {1, 0x8001}  # C89 and the assembler

LINE_BASE, LINE_RANGE, OPCODE_BASE = -15, 20, 10
OPCODE_LENGTHS = (0, 1, 1, 1, 1, 0, 0, 0, 1)


# --- the reader -------------------------------------------------------------------------------------------------------


class DwarfFile:
    """The debugging sections of an ELF file, and in `faults` what is wrong with them.

    `cut` tells that addresses of the program may not fit into the address size, so that their order tells nothing."""

    def __init__(self, content, cut=False):
        self.faults = []
        self.cut = cut
        self.units, self.abbreviations, self.line_units = [], {}, []
        try:
            self.big_endian, sections = elf_sections(content)
            self.sections = {name: data for name, (_, data) in sections.items() if name.startswith(".debug_")}
            self.kinds = {name: kind for name, (kind, _) in sections.items() if name.startswith(".debug_")}
            if self.sections:
                self.read()
        except Fault as fault:
            self.fault(f"cannot be read to its end: {fault}")

    def fault(self, text):
        self.faults.append(text)

    def expect(self, condition, text):
        if not condition:
            self.fault(text)
        return condition

    def cursor(self, name):
        return Cursor(self.sections.get(name, b""), self.big_endian, name)

    def read(self):
        self.check_sections()
        self.read_abbreviations()
        self.read_info()
        self.check_abbreviation_numbers()
        self.read_lines()
        self.read_ranges()
        self.read_locations()
        self.check_code()
        self.read_aranges()
        self.read_pubnames()
        for unit in self.units:
            self.check_unit(unit)

    def check_sections(self):
        order = [".debug_abbrev", ".debug_info", ".debug_line", ".debug_ranges", ".debug_loc", ".debug_pubnames",
                 ".debug_aranges"]  # fmt: skip
        self.expect(list(self.sections) == [name for name in order if name in self.sections], "sections out of order")
        self.expect({".debug_abbrev", ".debug_info", ".debug_line"} <= self.sections.keys(), "a section is missing")
        # DEPARTURE: the sections bear the type of notes.
        self.expect(set(self.kinds.values()) == {7}, f"types of the sections: {self.kinds}")
        self.expect(all(self.sections.values()), "a section is empty")

    # --- .debug_abbrev ------------------------------------------------------------------------------------------------

    def read_abbreviations(self):
        cursor = self.cursor(".debug_abbrev")
        while number := cursor.uleb():
            abbreviation = self.read_abbreviation(cursor, number)
            self.expect(number == len(self.abbreviations) + 1, f"abbreviation {number} is out of its turn")
            alike = [other.number for other in self.abbreviations.values() if self.alike(other, abbreviation)]
            self.expect(not alike, f"abbreviations {alike} and {number} are alike")
            self.abbreviations[number] = abbreviation
        self.expect(cursor.ended(), f"bytes behind the abbreviations, at {cursor.position:#x}")

    @staticmethod
    def alike(left, right):
        return (left.tag, left.children, left.attributes) == (right.tag, right.children, right.attributes)

    def read_abbreviation(self, cursor, number):
        tag, children, attributes = cursor.uleb(), cursor.number(1), []
        while True:
            attribute, form = cursor.uleb(), cursor.uleb()
            if (attribute, form) == (0, 0):
                break
            if attribute not in ATTRIBUTES or form not in FORMS:
                raise Fault(f"abbreviation {number}: attribute {attribute:#x} of form {form:#x}")
            attributes.append((ATTRIBUTES[attribute], FORMS[form]))
        if tag not in TAGS:
            raise Fault(f"abbreviation {number}: tag {tag:#x}")
        abbreviation = Abbreviation(number, TAGS[tag], children, attributes)
        self.check_abbreviation(abbreviation)
        return abbreviation

    def check_abbreviation(self, abbreviation):
        what = f"abbreviation {abbreviation.number} ({abbreviation.tag})"
        allowed, shape = ENTRIES[abbreviation.tag]
        self.expect(str(abbreviation.children) in allowed, f"{what}: children byte {abbreviation.children}")
        if not re.fullmatch(shape, abbreviation.shape()):
            raise Fault(f"{what}: attributes {abbreviation.shape()}")
        if abbreviation.tag != "compile_unit":
            sibling = abbreviation.has("sibling")
            self.expect(sibling == bool(abbreviation.children), f"{what}: sibling and children byte disagree")
        if abbreviation.tag == "formal_parameter":
            flags = abbreviation.has("external") or abbreviation.has("declaration")
            self.expect(not flags, f"{what}: a parameter is external or a declaration")
        if abbreviation.has("declaration"):
            self.expect(not abbreviation.has("location"), f"{what}: a declaration has a location")

    def check_abbreviation_numbers(self):
        """Numbers are given out at the first request, which comes before the entry is written. Two kinds of entry
        are requested ahead of others that stand before them: a typedef before the types that it brings with it, and the
        outer one of two qualifiers before the inner one."""
        first = {}
        for unit in self.units:
            for die in unit.die.walk():
                first.setdefault(die.abbreviation.number, die)
        unused = self.abbreviations.keys() - first.keys()
        self.expect(not unused, f"abbreviations {sorted(unused)} are used by no entry")
        numbers = list(first)
        moving = {number for number, die in first.items() if die.tag == "typedef" or die.tag in QUALIFIERS}
        fixed = [number for number in numbers if number not in moving]
        self.expect(fixed == sorted(fixed), f"abbreviations in the order of their use: {fixed}")
        for number in sorted(moving):
            behind = numbers[numbers.index(number) + 1 :]
            late = [other for other in behind if other < number and first[other].tag not in QUALIFIERS | {"typedef"}]
            self.expect(not late, f"abbreviation {number} is used before {late}")
            before = numbers[: numbers.index(number)]
            early = [other for other in before if other > number and not self.follows_from(first[other], first[number])]
            self.expect(not early, f"abbreviation {number} is used behind {early}")

    @staticmethod
    def follows_from(early, die):
        """Whether `early` was written on behalf of `die`, which stands behind it: the types between them are part of
        the type of `die`."""
        while early.parent is not None and early.parent.tag != "compile_unit":
            early = early.parent
        reached, rest = set(), [die]
        while rest:
            for part in rest.pop().walk():
                target = part.get("type")
                if target is not None and id(target) not in reached:
                    reached.add(id(target))
                    rest.append(target)
        return id(early) in reached

    # --- .debug_info --------------------------------------------------------------------------------------------------

    def read_info(self):
        cursor = self.cursor(".debug_info")
        while not cursor.ended():
            self.units.append(self.read_unit(cursor))
        self.expect(len({unit.version for unit in self.units}) <= 1, "units of several versions")
        self.expect(len({unit.address_size for unit in self.units}) <= 1, "units of several address sizes")
        self.version = self.units[0].version if self.units else 2
        self.address_size = self.units[0].address_size if self.units else 4
        self.cut = self.cut and self.address_size < 4
        self.expect(self.version in (2, 3), f"version {self.version}")

    def read_unit(self, section):
        start = section.position
        length = section.number(4)
        cursor = section.part(length)
        version, abbreviations, address_size = cursor.number(2), cursor.number(4), cursor.number(1)
        what = f"unit {start:#x}"
        self.expect(abbreviations == 0, f"{what}: abbreviations at {abbreviations:#x}")
        if address_size not in (1, 2, 4, 8):
            raise Fault(f"{what}: address size {address_size}")
        unit = Unit(start, version, address_size, length + 4)
        unit.die = self.read_tree(unit, cursor)
        if unit.die.tag != "compile_unit":
            raise Fault(f"{what}: begins with {unit.die.tag}")
        self.expect(cursor.ended(), f"{what}: bytes behind its entries, at {cursor.position:#x}")
        for die in unit.dies.values():
            self.check_die(unit, die)
        return unit

    def read_tree(self, unit, cursor):
        root = self.read_die(unit, cursor, None)
        if root is None:
            raise Fault(f"unit {unit.offset:#x} has no entry")
        # DEPARTURE: a unit with no member but its source file has no list of children, and no byte that ends one.
        parent = root if root.abbreviation.children else None
        while parent is not None:
            at = cursor.position
            die = self.read_die(unit, cursor, parent)
            if die is None:
                self.check_sibling(unit, parent, cursor.position)
                parent = parent.parent
                continue
            if parent.tag not in PARENTS.get(die.tag, ()):
                raise Fault(f"entry {at:#x}: {die.tag} within {parent.tag}")
            parent.children.append(die)
            if die.abbreviation.children:
                parent = die
        return root

    def check_sibling(self, unit, die, end):
        if die.abbreviation.has("sibling"):
            sibling = die.attributes.pop("sibling")
            self.expect(sibling == end - unit.offset,
                        f"entry {die.offset:#x}: sibling {sibling:#x}, and not {end - unit.offset:#x}")  # fmt: skip

    def read_die(self, unit, cursor, parent):
        start = cursor.position
        number = cursor.uleb()
        if number == 0:
            return None
        if number not in self.abbreviations:
            raise Fault(f"entry {start:#x}: no abbreviation {number}")
        die = Die(start, self.abbreviations[number], parent)
        for attribute, form in die.abbreviation.attributes:
            die.attributes[attribute] = self.read_form(cursor, form, unit)
        die.end = cursor.position
        unit.dies[start - unit.offset] = die
        return die

    def read_form(self, cursor, form, unit):
        if form == "addr":
            return cursor.number(unit.address_size)
        if form == "string":
            return cursor.string()
        if form == "udata":
            return cursor.uleb()
        if form == "flag":
            return cursor.number(1)
        if form.startswith("block"):
            return cursor.part(cursor.number(int(form[-1])))
        return cursor.number(int(form[-1]))

    def check_die(self, unit, die):
        what = f"entry {die.offset:#x} ({die.tag})"
        attributes = die.attributes
        for flag in ("external", "declaration"):
            self.expect(attributes.get(flag, 1) == 1, f"{what}: {flag} is {attributes.get(flag)}")
        if "type" in attributes:
            self.resolve_type(unit, die, what)
        if die.tag == "base_type":
            expected = ENCODINGS.get(attributes["name"], attributes["encoding"])
            self.expect(attributes["encoding"] == expected, f"{what}: {attributes['name']} has another encoding")
            is_bit = attributes["name"] == "bit"
            self.expect(("bit_size" in attributes) == is_bit, f"{what}: bit fields of a base type")
        if die.tag == "subprogram":
            inline = attributes["inline"]
            self.expect(inline in (0, 1, 3), f"{what}: inline is {inline}")
            self.expect((inline == 0) == self.has_code(die), f"{what}: inline is {inline}, and it has code or not")
        for name in ("location", "frame_base", "data_member_location"):
            if isinstance(attributes.get(name), Cursor):
                attributes[name] = self.read_expression(attributes[name], unit.address_size)
        kind = attributes.get("frame_base", ("addr", 0))[0]
        self.expect(kind == "addr", f"{what}: frame base is a {kind}")
        kind = attributes.get("data_member_location", ("plus", 0))[0]
        self.expect(kind == "plus", f"{what}: member location is a {kind}")
        if die.tag == "member":
            in_struct = die.parent.tag == "structure_type"
            self.expect(("data_member_location" in attributes) == in_struct, f"{what}: location of a member")

    @staticmethod
    def has_code(die):
        return die.abbreviation.has("low_pc") or die.abbreviation.has("ranges")

    def resolve_type(self, unit, die, what):
        offset = die.attributes["type"]
        target = unit.dies.get(offset)
        die.attributes["type"] = target
        if offset == 0:
            # DEPARTURE: two qualifiers over void. The inner one has no type; the outer one refers to nothing.
            before = [other for other in unit.die.children if other.offset < die.offset]
            inner = before[-1] if before else None
            over_void = die.tag in QUALIFIERS and inner and inner.tag in QUALIFIERS and "type" not in inner.attributes
            if self.expect(over_void, f"{what}: a type was never written"):
                die.attributes["type"] = inner
        elif target is None:
            self.fault(f"{what}: type {offset:#x} is not the start of an entry")
        else:
            self.expect(target.tag in TYPES, f"{what}: its type is a {target.tag}")

    def read_expression(self, cursor, address_size):
        operation = cursor.number(1)
        if operation == OP_ADDR:
            found = "addr", cursor.number(address_size)
        elif operation == OP_FBREG:
            found = "frame", cursor.sleb()
        elif operation == OP_PLUS_UCONST:
            found = "plus", cursor.uleb()
        elif operation == OP_REGX:
            found = "reg", cursor.uleb()
            self.expect(found[1] > 30, f"{cursor.what}: register {found[1]} in its long form")
        elif OP_REG0 <= operation <= OP_REG0 + 30:
            found = "reg", operation - OP_REG0
        else:
            raise Fault(f"{cursor.what}: operation {operation:#x} before {cursor.position:#x}")
        self.expect(cursor.ended(), f"{cursor.what}: bytes behind the expression, at {cursor.position:#x}")
        return found

    # --- .debug_line --------------------------------------------------------------------------------------------------

    def read_lines(self):
        cursor = self.cursor(".debug_line")
        while not cursor.ended():
            self.line_units.append(self.read_line_unit(cursor))
        offsets = [line_unit.offset for line_unit in self.line_units]
        self.expect([unit.die.get("stmt_list") for unit in self.units] == offsets, "units and line units do not agree")
        for unit, lines in zip(self.units, self.line_units):
            unit.lines = lines

    def read_line_unit(self, section):
        start = section.position
        cursor = section.part(section.number(4))
        version, header = cursor.number(2), cursor.number(4)
        behind = cursor.position + header
        minimum, is_statement, base = cursor.number(1), cursor.number(1), cursor.number(1, signed=True)
        what = f"line unit {start:#x}"
        self.expect(version == self.version, f"{what}: version {version}")
        self.expect((minimum in (1, 2), is_statement, base) == (True, 1, LINE_BASE), f"{what}: fields of the header")
        self.expect((cursor.number(1), cursor.number(1)) == (LINE_RANGE, OPCODE_BASE), f"{what}: range and opcode base")
        lengths = tuple(cursor.uleb() for _ in OPCODE_LENGTHS)
        self.expect(lengths == OPCODE_LENGTHS, f"{what}: lengths of opcodes {lengths}")
        directories, files = [], []
        while name := cursor.string():
            directories.append(name)
        while name := cursor.string():
            files.append((name, cursor.uleb(), cursor.uleb(), cursor.uleb()))
        self.expect(cursor.position == behind, f"{what}: header length leads to {behind:#x}, not {cursor.position:#x}")
        plain = all(at <= len(directories) and time == size == 0 for _, at, time, size in files)
        self.expect(plain, f"{what}: files {files}")
        self.expect(len({name for name, *_ in files}) == len(files), f"{what}: two files of one name")
        program = cursor.data[cursor.position : cursor.end]
        rows = self.run_line_program(cursor, what, max(minimum, 1), len(files))
        return LineUnit(start, version, minimum, directories, files, rows, program)

    def run_line_program(self, cursor, what, minimum, file_count):
        rows, address, line, file = [], 0, 1, 0

        def advance(units):
            return (address + units * minimum) & ((1 << (8 * self.address_size)) - 1)

        while not cursor.ended():
            opcode = cursor.number(1)
            if opcode >= OPCODE_BASE:
                units, step = divmod(opcode - OPCODE_BASE, LINE_RANGE)
                address, line = advance(units), line + LINE_BASE + step
                rows.append(Row(address, line, file))
            elif opcode == 0:
                extended = cursor.part(cursor.uleb())
                kind = extended.number(1)
                if kind == 2:
                    address = extended.number(self.address_size)
                elif kind == 1:
                    rows.append(Row(address, line, file, end=True))
                    self.expect(cursor.ended(), f"{what}: a sequence ends before the program")
                else:
                    raise Fault(f"{what}: extended opcode {kind}")
                self.expect(extended.ended(), f"{what}: bytes behind an extended opcode")
            elif opcode == 1:
                rows.append(Row(address, line, file))
            elif opcode == 2:
                address = advance(cursor.uleb())
            elif opcode == 3:
                line += cursor.sleb()
            elif opcode == 4:
                # DEPARTURE: the operand counts the files from 0, so it is one less than the standard's number.
                file = cursor.uleb()
                self.expect(file < file_count, f"{what}: file {file} of {file_count}")
            elif opcode == 8:
                address = advance((255 - OPCODE_BASE) // LINE_RANGE)
            else:
                raise Fault(f"{what}: opcode {opcode}")
        self.expect(rows and rows[-1].end, f"{what}: the program does not end a sequence")
        self.expect(all(row.line > 0 for row in rows), f"{what}: a line below 1")
        order = [row.address for row in rows]
        self.expect(self.cut or order == sorted(order), f"{what}: addresses fall")
        return rows

    # --- .debug_ranges and .debug_loc ---------------------------------------------------------------------------------

    def lists_of(self, section, references):
        """Offset -> cursor of each list: from the offset of one reference to the next. Every list has one reference,
        and they stand in the order of the entries. Reading up to an end mark alone would not do where addresses are
        cut, or with addresses of 8 bytes, where a list begins with what looks like one."""
        whole = self.cursor(section)
        starts = list(references)
        if not self.expect(starts == sorted(set(starts)), f"{section}: lists are referred to in the order {starts}"):
            return {}
        first_ok = (starts[0] == 0) if starts else whole.ended()
        if not self.expect(first_ok and all(start < whole.end for start in starts), f"{section}: lists at {starts}"):
            return {}
        ends = starts[1:] + [whole.end]
        return {start: Cursor(whole.data, self.big_endian, section, start, end) for start, end in zip(starts, ends)}

    def list_pairs(self, cursor, value_of):
        """The pairs of one list, each with what stands behind it."""
        size, start = self.address_size, cursor.position
        # DEPARTURE: with addresses of 8 bytes the pair that selects the base is 0, 0.
        selection = (1 << (8 * size)) - 1 if size < 8 else 0
        pair = cursor.number(size), cursor.number(size)
        self.expect(pair == (selection, 0), f"{cursor.what} {start:#x}: begins with {pair}")
        found = []
        while cursor.end - cursor.position > 2 * size:
            low, high = cursor.number(size), cursor.number(size)
            ended = not self.cut and (low, high) == (0, 0)
            self.expect(not ended, f"{cursor.what} {start:#x}: ends before the next one begins")
            self.expect(self.cut or low <= high, f"{cursor.what} {start:#x}: {low:#x} to {high:#x}")
            found.append((low, high, *value_of(cursor)))
        pair = cursor.number(size), cursor.number(size)
        self.expect(pair == (0, 0) and cursor.ended(), f"{cursor.what} {start:#x}: ends with {pair}")
        return found

    def all_dies(self):
        return [die for unit in self.units for die in unit.die.walk()]

    def read_ranges(self):
        owners = {}
        for die in self.all_dies():
            if "ranges" in die.attributes:
                owners[die.attributes["ranges"]] = die
            elif "low_pc" in die.attributes:
                # DEPARTURE: the high pc is the last address and not the one behind it.
                die.ranges = [(die.attributes["low_pc"], die.attributes["high_pc"] + 1)]
        count = sum("ranges" in die.attributes for die in self.all_dies())
        self.expect(count == len(owners), ".debug_ranges: two entries share a list")
        for offset, cursor in self.lists_of(".debug_ranges", owners).items():
            owners[offset].ranges = self.list_pairs(cursor, lambda _: ())

    def read_locations(self):
        def expression(cursor):
            return (self.read_expression(cursor.part(cursor.number(2)), self.address_size),)

        owners = {}
        located = [die for die in self.all_dies() if "location" in die.attributes]
        for die in located:
            if isinstance(die.attributes["location"], tuple):
                die.locations = [(None, None, die.attributes["location"])]
            else:
                owners[die.attributes["location"]] = die
        count = sum(not isinstance(die.attributes["location"], tuple) for die in located)
        self.expect(count == len(owners), ".debug_loc: two entries share a list")
        for offset, cursor in self.lists_of(".debug_loc", owners).items():
            owners[offset].locations = self.list_pairs(cursor, expression)
        for die in located:
            kinds = {location[0] for *_, location in die.locations}
            self.expect(kinds <= {"addr", "reg", "frame"}, f"entry {die.offset:#x}: location {kinds}")

    def check_code(self):
        """The code of a block lies in its function's, the code of a function in its unit's."""
        for die in self.all_dies():
            if self.cut or not die.ranges:
                continue
            self.expect(all(low <= high for low, high in die.ranges), f"entry {die.offset:#x}: code {die.ranges}")
            holder = die.parent
            while holder is not None and not holder.ranges:
                holder = holder.parent
            if holder is not None and die.ranges != [(0, 1)]:  # 0 to 0 is a block without code
                code = self.code_of(holder)
                self.expect(self.covers(code, die.ranges), f"entry {die.offset:#x}: {die.ranges} is not within {code}")

    @staticmethod
    def code_of(die):
        """DEPARTURE: without range lists, a function in several ranges is as many entries, each with all its blocks."""
        if die.tag != "subprogram":
            return die.ranges
        alike = [other for other in die.parent.children if other.tag == "subprogram"]
        alike = [other for other in alike if all(other.get(of) == die.get(of) for of in ("name", "decl_line", "type"))]
        return [pair for other in alike for pair in other.ranges]

    @staticmethod
    def covers(outer, inner):
        joined = []
        for low, high in sorted(outer):
            if joined and low <= joined[-1][1]:
                joined[-1] = joined[-1][0], max(high, joined[-1][1])
            else:
                joined.append((low, high))
        return all(any(low <= first and behind <= high for low, high in joined) for first, behind in inner)

    # --- .debug_aranges and .debug_pubnames ---------------------------------------------------------------------------

    def read_aranges(self):
        cursor = self.cursor(".debug_aranges")
        for unit in self.units:
            start = cursor.position
            part = cursor.part(cursor.number(4))
            what = f".debug_aranges {start:#x}"
            # DEPARTURE: the version is that of the units, where the standard has 2 for ever.
            self.expect(part.number(2) == self.version, f"{what}: version")
            self.expect(part.number(4) == unit.offset, f"{what}: is not that of unit {unit.offset:#x}")
            # DEPARTURE: addresses of 4 bytes, whatever the units have.
            self.expect((part.number(1), part.number(1)) == (4, 0), f"{what}: sizes of addresses and segments")
            padding = part.take(8 - part.position % 8)
            self.expect(not any(padding), f"{what}: padding {padding.hex()}")
            while part.end - part.position > 8:
                unit.addresses.append((part.number(4), part.number(4)))
            self.expect((part.number(4), part.number(4)) == (0, 0) and part.ended(), f"{what}: its end")
            self.check_addresses(unit, what)
        self.expect(cursor.ended(), f".debug_aranges: bytes behind the units, at {cursor.position:#x}")

    def check_addresses(self, unit, what):
        mask = (1 << (8 * min(self.address_size, 4))) - 1
        ranges = [pair for die in unit.die.children if die.tag == "subprogram" for pair in die.ranges]
        expected = [(low & mask, (high - low) & mask) for low, high in ranges]
        actual = [(start & mask, length & mask) for start, length in unit.addresses]
        self.expect(actual == expected, f"{what}: {actual}, but the functions have {expected}")
        self.expect(all(length > 0 for _, length in unit.addresses), f"{what}: an empty range")

    def read_pubnames(self):
        cursor = self.cursor(".debug_pubnames")
        for unit in self.units:
            expected = [(die, die.get("name")) for die in unit.die.finished() if die.get("external")]
            if not expected:
                continue  # nothing is written for a unit without names
            start = cursor.position
            part = cursor.part(cursor.number(4))
            what = f".debug_pubnames {start:#x}"
            # DEPARTURE: the version is that of the units, where the standard has 2 for ever.
            self.expect(part.number(2) == self.version, f"{what}: version")
            area = part.number(4), part.number(4)
            self.expect(area == (unit.offset, unit.size), f"{what}: is not that of its unit")
            while offset := part.number(4):
                unit.names.append((unit.dies.get(offset), part.string()))
            self.expect(part.ended(), f"{what}: bytes behind its names")
            self.expect(unit.names == expected, f"{what}: {[name for _, name in unit.names]}, but the unit has "
                        f"{[name for _, name in expected]}")  # fmt: skip
        self.expect(cursor.ended(), f".debug_pubnames: bytes behind the units, at {cursor.position:#x}")

    # --- across sections ----------------------------------------------------------------------------------------------

    def check_unit(self, unit):
        what = f"unit {unit.offset:#x}"
        attributes = unit.die.attributes
        self.expect(PRODUCER.fullmatch(attributes["producer"]), f"{what}: producer {attributes['producer']}")
        self.expect(attributes["language"] in LANGUAGES, f"{what}: language {attributes['language']:#x}")
        name = attributes["name"]
        absolute = name.startswith(("/", "\\\\")) or name[1:2] == ":"
        self.expect(("comp_dir" in attributes) != absolute, f"{what}: directory of {name}")
        count = len(unit.lines.files) if unit.lines else 0
        for die in unit.die.walk():
            file = die.get("decl_file", 1)
            self.expect(1 <= file <= count or die is unit.die, f"entry {die.offset:#x}: file {file} of {count}")


def main():
    status = 0
    for path in sys.argv[1:]:
        for fault in DwarfFile(Path(path).read_bytes()).faults:
            print(f"{path}: {fault}")
            status = 1
    return status


if __name__ == "__main__":
    sys.exit(main())

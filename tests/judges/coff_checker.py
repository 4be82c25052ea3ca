#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Reads a COFF file and follows every index, link, offset and count in it.

    coff_checker.py FILE ...

Prints each fault with the file's name; leaves with 1 when there was one. It has its own parser and shares nothing with
the program.
"""

import struct
import sys
from dataclasses import dataclass, field
from pathlib import Path

HEADER = struct.Struct("<HHIIIHH")
OPTIONAL = struct.Struct("<HIIII")
SECTION = struct.Struct("<8sIIIIIIHHI")
SYMBOL = struct.Struct("<8sIHIBB")
AUX = struct.Struct("<IHH8s4x")
LINE = struct.Struct("<IHIHI")
ENTRY_SIZE = 20

EXTERNAL, STATIC, REGISTER, EXTERNAL_DEFINITION, LABEL = 2, 3, 4, 5, 6
MEMBER, STRUCT_TAG, BIT_FIELD = 8, 10, 18
BLOCK, FUNCTION, END_OF_STRUCT, FILE, END_OF_FILE = 100, 101, 102, 103, 107
VARIABLES = {EXTERNAL, STATIC, REGISTER, EXTERNAL_DEFINITION}

DEBUG_SECTION, DEBUG_END_SECTION = 0xFFFE, 0xFFFF

BASE_NAMES = (
    "null void char short int long float double struct union enum moe "
    "uchar ushort uint ulong lngdbl slong uslong llong ullong"
).split()
BASE_SIZES = {
    "void": 0, "char": 1, "int": 2, "long": 4, "float": 3, "double": 4, "uchar": 1, "uint": 2, "ulong": 4, "slong": 3,
    "uslong": 3, "null": 0,
}  # fmt: skip
DERIVATIONS = {1: "pointer", 2: "function", 3: "array"}


def derivations(word):
    """From the outermost inward."""
    found, rest = [], word >> 5
    while rest:
        found.append(DERIVATIONS.get(rest & 7, "?"))
        rest >>= 3
    return found


def base(word):
    number = word & 0x1F
    return BASE_NAMES[number] if number < len(BASE_NAMES) else "?"


@dataclass
class Section:
    name: str
    paddr: int
    vaddr: int
    size: int
    scnptr: int
    relptr: int
    lnnoptr: int
    relocs: int
    line_count: int
    flags: int
    number: int = 0
    data: bytes = b""
    lines: list = field(default_factory=list)

    @property
    def is_block(self):
        return self.flags == 0x20


@dataclass
class Aux:
    raw: bytes
    tag: int
    line: int
    size: int
    dimensions: tuple
    end: int  # index of the auxiliary entry of the closing symbol


@dataclass
class Symbol:
    index: int
    name: str
    value: int
    section: int
    type: int
    cls: int
    aux: Aux = None


@dataclass
class Line:
    srcndx: int
    line: int
    paddr: int
    flags: int
    fcnndx: int


class CoffFile:
    """The content of a file, and in `faults` what is wrong with it."""

    def __init__(self, content):
        self.content = content
        self.faults = []
        self.sections = []
        self.symbols = []
        self.at = {}  # index -> symbol
        self.used_strings = set()
        try:
            self.read()
        except (struct.error, IndexError) as fault:
            self.fault(f"cannot be read to its end: {fault}")
        if self.faults:
            return  # what follows relies on a file that can be read
        self.check_strings()
        self.check_sections()
        self.check_symbols()
        self.check_brackets()
        self.check_lines()

    def fault(self, text):
        self.faults.append(text)

    def expect(self, condition, text):
        if not condition:
            self.fault(text)
        return condition

    # --- reading ------------------------------------------------------------------------------------------------------

    def read(self):
        content = self.content
        self.expect(content[:2] == b"\x40\x12", "bad magic")
        _, count, self.dated, self.symptr, self.nsyms, opthdr, flags = HEADER.unpack_from(content, 0)
        self.expect(opthdr == OPTIONAL.size, f"opthdr is {opthdr}")
        self.expect(flags == 2, f"flags of the file are {flags:#x}")
        magic, version, self.processor, self.rom_width, self.ram_width = OPTIONAL.unpack_from(content, HEADER.size)
        self.expect((magic, version) == (5000, 0x6018), f"optional magic {magic}, version {version:#x}")
        self.rom_unit = (self.rom_width + 7) // 8 or 2  # a width that is not known belongs to chips of words
        self.read_string_table()
        for number in range(count):
            self.read_section(number)
        self.read_symbol_table()

    def read_string_table(self):
        start = self.symptr + self.nsyms * ENTRY_SIZE
        (size,) = struct.unpack_from("<I", self.content, start)
        self.strings = self.content[start : start + size]
        fits = size >= 4 and start + size == len(self.content)
        self.expect(fits, f"{size} bytes of string table at {start:#x} do not end with the file")
        self.expect(size <= 4 or self.strings[-1] == 0, "the string table does not end with a terminator")

    def string(self, offset, what):
        if not self.expect(4 <= offset < len(self.strings), f"{what}: string offset {offset} is outside of the table"):
            return ""
        self.expect(offset == 4 or self.strings[offset - 1] == 0, f"{what}: string offset {offset} is within a string")
        self.used_strings.add(offset)
        end = self.strings.find(b"\0", offset)
        return self.strings[offset : end if end >= 0 else len(self.strings)].decode("latin-1")

    def name(self, raw, what):
        if raw[:4] == bytes(4) and raw[4:] != bytes(4):
            name = self.string(int.from_bytes(raw[4:], "little"), what)
            self.expect(len(name) > 8, f"{what}: the name {name} would fit into its field")
            return name
        name = raw.rstrip(b"\0")
        self.expect(b"\0" not in name, f"{what}: bytes behind the end of the name")
        return name.decode("latin-1")

    def read_section(self, number):
        fields = SECTION.unpack_from(self.content, HEADER.size + OPTIONAL.size + number * SECTION.size)
        section = Section(self.name(fields[0], f"section {number + 1}"), *fields[1:], number=number + 1)
        if section.scnptr:
            section.data = self.content[section.scnptr : section.scnptr + section.size]
        for i in range(section.line_count):
            section.lines.append(Line(*LINE.unpack_from(self.content, section.lnnoptr + i * LINE.size)))
        self.sections.append(section)

    def read_aux(self, index):
        raw = self.content[self.symptr + index * ENTRY_SIZE :][:ENTRY_SIZE]
        tag, line, size, dimensions = AUX.unpack(raw)
        self.expect(raw[16:] == bytes(4), f"auxiliary entry {index}: bytes behind its fields")
        # An index of an end and the inner dimensions of an array share their place.
        return Aux(raw, tag, line, size, struct.unpack("<4H", dimensions), struct.unpack("<4xI", dimensions)[0])

    def read_symbol_table(self):
        index = 0
        while index < self.nsyms:
            fields = SYMBOL.unpack_from(self.content, self.symptr + index * ENTRY_SIZE)
            raw, value, section, word, cls, aux_count = fields
            symbol = Symbol(index, self.name(raw, f"symbol {index}"), value, section, word, cls)
            self.expect(aux_count <= 1, f"symbol {index}: {aux_count} auxiliary entries")
            if aux_count and self.expect(index + 1 < self.nsyms, f"symbol {index}: its auxiliary entry is cut off"):
                symbol.aux = self.read_aux(index + 1)
            self.symbols.append(symbol)
            self.at[index] = symbol
            index += 1 + aux_count

    # --- checks -------------------------------------------------------------------------------------------------------

    def check_strings(self):
        texts = self.strings[4:].split(b"\0")[:-1]
        self.expect(len(texts) == len(set(texts)), "a text stands in the string table twice")

    def unused_strings(self):
        """Strings that nothing refers to: those of entries that were taken back."""
        for symbol in self.symbols:
            if symbol.cls == FILE and symbol.aux:
                self.used_strings.add(symbol.aux.tag)
        offset, found = 4, []
        for text in self.strings[4:].split(b"\0")[:-1]:
            if offset not in self.used_strings:
                found.append(text.decode("latin-1"))
            offset += len(text) + 1
        return found

    def check_sections(self):
        names = [section.name for section in self.sections]
        self.expect(len(names) == len(set(names)), "two sections have one name")
        first = self.sections[0]
        self.expect((first.name, first.flags, first.paddr, first.size) == ("ABS", 0x1000, 0, 0), "section 1 is not ABS")
        flags = [section.flags for section in self.sections[1:]]
        in_order = flags == sorted(flags, reverse=True) and set(flags) <= {0x80, 0x20}
        self.expect(in_order, "sections are not bss, then text")
        offset = HEADER.size + OPTIONAL.size + SECTION.size * len(self.sections)
        for section in self.sections:
            what = f"section {section.name}"
            zeros = (section.vaddr, section.relptr, section.relocs)
            self.expect(zeros == (0, 0, 0), f"{what}: fields that must be 0 are {zeros}")
            self.expect(section.scnptr == (offset if section.is_block else 0), f"{what}: data at {section.scnptr:#x}")
            offset += section.size if section.is_block else 0
        for section in self.sections:
            what = f"section {section.name}"
            at = offset if section.line_count else 0
            self.expect(section.lnnoptr == at, f"{what}: lines at {section.lnnoptr:#x}")
            offset += section.line_count * LINE.size
        self.expect(self.symptr == offset, f"symptr is {self.symptr:#x} and not {offset:#x}, behind the lines")

    def check_symbols(self):
        for symbol in self.symbols:
            what = f"symbol {symbol.index} {symbol.name}"
            if symbol.cls in VARIABLES or symbol.cls == MEMBER:
                self.check_typed(symbol, what)
            elif symbol.cls == LABEL:
                self.expect((symbol.section, symbol.type, symbol.aux) == (0, 0, None), f"{what}: no plain label")
            elif symbol.cls == STRUCT_TAG:
                self.check_tag(symbol, what)
            elif symbol.cls == BIT_FIELD:
                good = symbol.aux is not None and symbol.aux.size != 0 and symbol.type == 12
                self.expect(good, f"{what}: no bit field")
            elif symbol.cls == FILE:
                good = symbol.aux is not None and symbol.name == ".file"
                if self.expect(good, f"{what}: no file"):
                    path = self.string(symbol.aux.tag, what)
                    self.expect("/" not in path, f"{what}: a slash in {path}")
                    self.expect(symbol.aux.raw[4:] == bytes(16), f"{what}: more than a name")
            elif symbol.cls in (BLOCK, FUNCTION):
                names = (".bb", ".eb") if symbol.cls == BLOCK else (".bf", ".ef")
                self.expect(symbol.aux is not None and symbol.name in names, f"{what}: no marker")
                self.check_section_number(symbol, what)
            else:
                self.expect(symbol.cls in (END_OF_STRUCT, END_OF_FILE), f"{what}: class {symbol.cls}")

    def check_section_number(self, symbol, what):
        self.expect(symbol.section <= len(self.sections), f"{what}: section {symbol.section}")

    def check_typed(self, symbol, what):
        chain, kind = derivations(symbol.type), base(symbol.type)
        self.expect("?" not in chain and (kind in BASE_SIZES or kind == "struct"), f"{what}: type {symbol.type:#x}")
        needs_aux = kind == "struct" or "array" in chain
        if not self.expect((symbol.aux is not None) == needs_aux, f"{what}: auxiliary entry for type {symbol.type:#x}"):
            return
        if symbol.cls == MEMBER:
            self.expect(symbol.section == 0, f"{what}: a member in section {symbol.section}")
        else:
            self.check_section_number(symbol, what)
        if kind == "struct":
            tag = self.at.get(symbol.aux.tag)
            if self.expect(tag is not None and tag.cls == STRUCT_TAG, f"{what}: tag index {symbol.aux.tag}"):
                size = tag.aux.size if "array" not in chain else symbol.aux.size
                self.expect(symbol.aux.size == size, f"{what}: size {symbol.aux.size}, of its tag {tag.aux.size}")
        elif needs_aux:
            self.expect(symbol.aux.tag == 0, f"{what}: a tag index without a struct")
        if needs_aux:
            self.check_dimensions(symbol, chain, kind, what)

    def check_dimensions(self, symbol, chain, kind, what):
        aux, arrays = symbol.aux, chain.count("array")
        dimensions = aux.dimensions
        self.expect(all(value == 0 for value in dimensions[arrays:]), f"{what}: dimensions of no array")
        element = BASE_SIZES.get(kind)
        plain = 0 < arrays <= 4 and arrays == len(chain) and element is not None
        if plain and all(dimensions[:arrays]):
            size = element
            for value in dimensions[:arrays]:
                size *= value
            self.expect(aux.size == size & 0xFFFF, f"{what}: {aux.size} bytes for {dimensions}")

    def check_tag(self, symbol, what):
        """A tag, its members and its end, which point to each other."""
        if not self.expect(symbol.aux is not None and symbol.aux.tag == 0, f"{what}: a tag that names a tag"):
            return
        end = self.at.get(symbol.aux.end - 1)
        if not self.expect(end is not None and end.cls == END_OF_STRUCT and end.aux is not None, f"{what}: no end"):
            return
        self.expect(end.aux.tag == symbol.index, f"{what}: its end names the tag {end.aux.tag}")
        self.expect(end.aux.size == symbol.aux.size, f"{what}: two sizes")
        debug = symbol.section == DEBUG_SECTION
        self.expect(symbol.section in (0, DEBUG_SECTION), f"{what}: section {symbol.section}")
        self.expect(end.section == (DEBUG_END_SECTION if debug else 0), f"{what}: its end is in section {end.section}")
        for member in self.members(symbol):
            self.expect(member.cls in (MEMBER, BIT_FIELD), f"{what}: class {member.cls} between it and its end")
            self.expect(member.section == symbol.section, f"{what}: member {member.name} in section {member.section}")

    def members(self, tag):
        return [self.at[i] for i in range(tag.index + 2, tag.aux.end - 1) if i in self.at]

    def check_brackets(self):
        """Markers close what was opened last, and files stand at the outermost level."""
        open_markers, in_struct, in_file = [], False, False
        closers = {".eb": ".bb", ".ef": ".bf"}
        for symbol in self.symbols:
            what = f"symbol {symbol.index} {symbol.name}"
            if symbol.cls in (BLOCK, FUNCTION):
                if symbol.name in (".bb", ".bf"):
                    open_markers.append(symbol)
                elif not open_markers or open_markers[-1].name != closers[symbol.name]:
                    self.fault(f"{what}: closes nothing")
                else:
                    opener = open_markers.pop()
                    points = opener.aux.end
                    self.expect(points == symbol.index + 1, f"symbol {opener.index}: its end is {points}")
                    self.expect(opener.section == symbol.section, f"{what}: in another section than its beginning")
                    if symbol.cls == BLOCK:
                        self.expect(opener.value == symbol.value, f"{what}: another address than its beginning's")
            elif symbol.cls == STRUCT_TAG:
                self.expect(not in_struct, f"{what}: within a struct")
                in_struct = True
            elif symbol.cls == END_OF_STRUCT:
                self.expect(in_struct, f"{what}: ends no struct")
                in_struct = False
            elif symbol.cls == FILE:
                self.expect(not in_file, f"{what}: within a file")
                in_file = True
            elif symbol.cls == END_OF_FILE:
                self.expect(in_file, f"{what}: ends no file")
                in_file = False
            elif symbol.cls == LABEL:
                outside = not open_markers and not in_struct and not in_file
                self.expect(outside, f"{what}: a label within something")
        self.expect(not open_markers and not in_struct and not in_file, "something is open at the end")

    def check_lines(self):
        for section in self.sections:
            self.expect(section.is_block or not section.lines, f"section {section.name}: lines of no data")
            for line in section.lines:
                what = f"section {section.name} line {line.line}"
                self.expect(line.line != 0 and line.flags == 0, f"{what}: flags {line.flags}")
                if line.srcndx:
                    source = self.at.get(line.srcndx)
                    self.expect(source is not None and source.cls == FILE, f"{what}: source index {line.srcndx}")
                if line.fcnndx:
                    function = self.at.get(line.fcnndx)
                    good = function is not None and "function" in derivations(function.type)[:1]
                    self.expect(good and function.cls in VARIABLES, f"{what}: function index {line.fcnndx}")

    # --- looking things up --------------------------------------------------------------------------------------------

    def named(self, name, classes=None):
        return [symbol for symbol in self.symbols if symbol.name == name and (classes is None or symbol.cls in classes)]

    def files(self):
        """Index of the .file entry -> path."""
        return {one.index: self.string(one.aux.tag, "file") for one in self.symbols if one.cls == FILE and one.aux}

    def functions(self):
        """(own entry, .bf, .ef) of each function. Its own entry stands directly in front of .bf when it has one."""
        found = []
        for at, symbol in enumerate(self.symbols):
            if symbol.name == ".bf" and symbol.cls == FUNCTION:
                own = self.symbols[at - 1] if at else None
                found.append((own, symbol, self.at.get(symbol.aux.end - 1)))
        return found

    def lines_outside(self):
        """Lines at addresses that their section does not hold; a function that is inlined elsewhere can have some."""
        found = []
        for section in self.sections:
            end = section.paddr + section.size // self.rom_unit
            outside = [line for line in section.lines if not section.paddr <= line.paddr < end]
            found += [(section.name, line.line, line.paddr) for line in outside]
        return found

    def image(self):
        """Byte address -> byte of all sections with data."""
        found = {}
        for section in self.sections:
            start = section.paddr * self.rom_unit
            found.update({start + i: byte for i, byte in enumerate(section.data)})
        return found


def main(paths):
    bad = False
    for path in paths:
        for fault in CoffFile(Path(path).read_bytes()).faults:
            bad = True
            print(f"{path}: {fault}")
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))

# SPDX-License-Identifier: MIT
"""What dwarf_reader.py has read, as records, and how it reads a section value by value."""

import struct
from dataclasses import dataclass, field


@dataclass
class Abbreviation:
    number: int
    tag: str
    children: int
    attributes: list  # (attribute, form)

    def has(self, attribute):
        return any(name == attribute for name, _ in self.attributes)

    def shape(self):
        return "".join(f"{attribute}:{form} " for attribute, form in self.attributes)


@dataclass(eq=False)
class Die:
    """An entry. A reference among its attributes is the entry that is meant, or None where it stayed 0."""

    offset: int  # in .debug_info
    abbreviation: Abbreviation
    parent: "Die"
    attributes: dict = field(default_factory=dict)
    children: list = field(default_factory=list)
    ranges: list = field(default_factory=list)  # (first address, address behind), of code
    locations: list = field(default_factory=list)  # (first address, address behind, location); None where it is single
    end: int = 0  # of the entry without its children

    @property
    def tag(self):
        return self.abbreviation.tag

    def get(self, attribute, default=None):
        return self.attributes.get(attribute, default)

    def walk(self):
        """This entry and all below it, in the order of the section."""
        rest = [self]
        while rest:
            die = rest.pop()
            yield die
            rest.extend(reversed(die.children))

    def of_tag(self, *tags):
        return [die for die in self.walk() if die.tag in tags]

    def finished(self):
        """All entries below and then this one: each stands behind its children."""
        rest = [(self, False)]
        while rest:
            die, open_before = rest.pop()
            if open_before:
                yield die
            else:
                rest.append((die, True))
                rest.extend((child, False) for child in reversed(die.children))


@dataclass
class Row:
    address: int
    line: int
    file: int  # zero-based
    end: bool = False


@dataclass
class LineUnit:
    offset: int
    version: int
    minimum: int
    directories: list
    files: list  # (name, directory, time, size)
    rows: list
    program: bytes

    def path(self, number):
        """The full name of a file by its number, counted from 1."""
        name, directory, _, _ = self.files[number - 1]
        return (self.directories[directory - 1] if directory else ""), name


@dataclass
class Unit:
    offset: int
    version: int
    address_size: int
    size: int  # with its length field
    die: Die = None
    dies: dict = field(default_factory=dict)  # offset within the unit -> entry
    lines: LineUnit = None
    addresses: list = field(default_factory=list)  # (start, length) of .debug_aranges
    names: list = field(default_factory=list)  # (entry, name) of .debug_pubnames


class Fault(Exception):
    """What cannot be read on."""


class Cursor:
    """Reads values of one section in order."""

    def __init__(self, data, big_endian, what, position=0, end=None):
        self.data, self.order, self.what = data, "big" if big_endian else "little", what
        self.position, self.end = position, len(data) if end is None else end

    def take(self, size):
        if size > self.end - self.position:
            raise Fault(f"{self.what}: {size} bytes at {self.position:#x} pass the end {self.end:#x}")
        self.position += size
        return self.data[self.position - size : self.position]

    def number(self, size, signed=False):
        return int.from_bytes(self.take(size), self.order, signed=signed)

    def string(self):
        end = self.data.find(b"\0", self.position, self.end)
        if end < 0:
            raise Fault(f"{self.what}: the string at {self.position:#x} has no end")
        return self.take(end + 1 - self.position)[:-1].decode("latin-1")

    def groups(self):
        groups = [self.number(1)]
        while groups[-1] & 0x80:
            groups.append(self.number(1))
        return groups, sum((group & 0x7F) << (7 * i) for i, group in enumerate(groups))

    def uleb(self):
        groups, value = self.groups()
        if len(groups) > 1 and groups[-1] == 0:
            raise Fault(f"{self.what}: the number before {self.position:#x} is longer than need be")
        return value

    def sleb(self):
        groups, value = self.groups()
        sign, high = groups[-1] & 0x40, groups[-1] & 0x7F
        if len(groups) > 1 and high in (0, 0x7F) and (high == 0x7F) == bool(groups[-2] & 0x40):
            raise Fault(f"{self.what}: the number before {self.position:#x} is longer than need be")
        return value - (1 << (7 * len(groups))) if sign else value

    def ended(self):
        return self.position >= self.end

    def part(self, size):
        start = self.position
        self.take(size)
        return Cursor(self.data, self.order == "big", self.what, start, self.position)


def elf_sections(content):
    """(big endian, name -> (type, bytes)) of a 32-bit ELF file."""
    if content[:5] != b"\x7fELF\x01":
        raise Fault("no 32-bit ELF file")
    big_endian = content[5] == 2
    order = ">" if big_endian else "<"
    (offset,) = struct.unpack_from(order + "I", content, 32)
    size, count, names = struct.unpack_from(order + "HHH", content, 46)
    headers = [struct.unpack_from(order + "10I", content, offset + i * size) for i in range(count)]
    strings = headers[names][4]
    found = {}
    for name, kind, _, _, start, length, *_ in headers:
        text = content[strings + name : content.index(b"\0", strings + name)].decode("latin-1")
        if text in found and text.startswith(".debug_"):
            raise Fault(f"two sections are named {text}")
        found[text] = kind, content[start : start + length]
    return big_endian, found

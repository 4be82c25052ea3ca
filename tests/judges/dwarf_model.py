# SPDX-License-Identifier: MIT
"""A second opinion on what debugging sections make of line numbers: the line program byte for byte, the code of blocks,
and where a variable lives that moves.

It is plain and slow on purpose. It reads symbol databases as the compiler lays them out, one record on a line, and of
their records only names and places: what the facts of a sample program do not tell.
"""

from dataclasses import dataclass, field

from reference_model import HashTable

# --- line programs ----------------------------------------------------------------------------------------------------

LINE_BASE, LINE_RANGE, OPCODE_BASE = -15, 20, 10
OPCODE_LENGTHS = (0, 1, 1, 1, 1, 0, 0, 0, 1)
LAST_OPCODE = 255


def uleb(value):
    groups = bytearray()
    while value > 0x7F:
        groups.append(value & 0x7F | 0x80)
        value >>= 7
    return bytes(groups + bytes([value]))


def sleb(value):
    groups = bytearray()
    while not -0x40 <= value < 0x40:
        groups.append(value & 0x7F | 0x80)
        value >>= 7
    return bytes(groups + bytes([value & 0x7F]))


def text(name):
    return name.encode("latin-1") + b"\0"


class LineProgram:
    """The statement program of one unit."""

    def __init__(self, address_size, order, minimum):
        self.address_size, self.order, self.minimum = address_size, order, minimum
        self.code = bytearray()

    @staticmethod
    def is_small(line_delta):
        return LINE_BASE <= line_delta < LINE_BASE + LINE_RANGE

    @staticmethod
    def special(line_delta, units):
        return line_delta - LINE_BASE + LINE_RANGE * units + OPCODE_BASE

    def advance_line(self, line_delta):
        self.code += b"\x03" + sleb(line_delta)

    def copy(self):
        self.code += b"\x01"

    def set_file(self, position):
        self.code += b"\x04" + uleb(position)

    def start_sequence(self, line_delta, address):
        address &= (1 << (8 * self.address_size)) - 1
        self.code += bytes([0, self.address_size + 1, 2]) + address.to_bytes(self.address_size, self.order)
        if line_delta and self.is_small(line_delta):
            self.code.append(self.special(line_delta, 0))
            return
        if line_delta:
            self.advance_line(line_delta)
        self.copy()

    def advance(self, line_delta, address_delta):
        units = address_delta // self.minimum
        if line_delta and not self.is_small(line_delta):
            self.advance_line(line_delta)
            line_delta = 0
        if not line_delta and address_delta < self.minimum:
            self.copy()
            return
        if self.special(line_delta, units) <= LAST_OPCODE:
            self.code.append(self.special(line_delta, units))
            return
        most = (LAST_OPCODE - OPCODE_BASE) // LINE_RANGE
        if most <= units < 2 * most and self.special(line_delta, units - most) <= LAST_OPCODE:
            self.code += bytes([8, self.special(line_delta, units - most)])
            return
        self.code += b"\x02" + uleb(units)
        if line_delta:
            self.code.append(self.special(line_delta, 0))
        else:
            self.copy()

    def end_sequence(self):
        self.code += bytes([2, 1, 0, 1, 1])


def line_unit(directory, name, rows, version, program):
    """The line unit of a unit with one file. `rows` are its (address, line); `program` is empty yet."""
    last_address, last_line = 0, 1
    for address, line in sorted(rows):
        if last_address == 0:  # a row at address 0 starts a sequence, and so does the one behind it
            program.start_sequence(line - last_line, address)
        else:
            program.advance(line - last_line, address - last_address)
        last_address, last_line = address, line
    program.end_sequence()

    def number(value, size):
        return value.to_bytes(size, program.order)

    tables = (text(directory) if directory else b"") + b"\0"
    tables += text(name) + uleb(1 if directory else 0) + uleb(0) + uleb(0) + b"\0"
    fields = bytes([program.minimum, 1, LINE_BASE & 0xFF, LINE_RANGE, OPCODE_BASE, *OPCODE_LENGTHS])
    header = number(version, 2) + number(len(fields) + len(tables), 4) + fields + tables
    return number(len(header) + len(program.code), 4) + header + bytes(program.code)


def split_path(path):
    """Directory and base name, at the last backslash, or else at the last slash."""
    directory, separator, name = path.rpartition("\\" if "\\" in path else "/")
    return (directory, name) if separator else ("", path)


def unit_order(names):
    """The order of units: that of a hash table of 127 buckets which the names of source files entered one by one."""
    table = HashTable(127)
    for name in names:
        table.insert(name, name)
    if any(len(chain) > 1 for chain in table.buckets):
        raise ValueError("two names share a bucket: their order depends on which one came first")
    return table.values()


# --- databases --------------------------------------------------------------------------------------------------------

MODULE, FUNCTION, BLOCK = "module", "function", "block"


@dataclass
class Block:
    kind: str
    parent: "Block"
    file: str
    first: int
    last: int
    name: str = ""  # of a function: its assembler name
    blocks: list = field(default_factory=list)
    lines: dict = field(default_factory=dict)  # name of a local -> lines at which a location of it begins
    ranges: list = field(default_factory=list)  # (low, high), both within, of a function and its blocks

    def see_line(self, line):
        self.first = min(self.first or line, line)
        self.last = max(self.last, line)

    def walk(self):
        found = [self]
        for block in self.blocks:
            found += block.walk()
        return found


def read_database(content, absolute):
    """The module of a database; `absolute` makes a file name absolute."""
    block = module = Block(MODULE, None, "", 1, 1)
    file, line, next_kind, function = "", 1, BLOCK, ""
    for row in content.splitlines():
        tokens = row.split()
        if row.startswith('"'):
            number, _, name = row[1:].partition(" ")
            line = int(number)
            if name and absolute(name) != file:
                file = absolute(name)
                block.first, block.last = line, line
            block.see_line(line)
        elif row.startswith("[v"):
            is_function = tokens[3].startswith("`(")
            if is_function:
                next_kind, function = FUNCTION, tokens[1]
            elif block.kind != MODULE:
                block.lines.setdefault(tokens[2], []).append(line)
        elif row == "{":
            inner = Block(next_kind, block, file, line, line, function if next_kind == FUNCTION else "")
            block.blocks.append(inner)
            block, next_kind = inner, BLOCK
        elif row == "}":
            block = block.parent
            block.see_line(line)
    return module


class LineTable:
    """Lines of source files to addresses."""

    def __init__(self, rows):
        """`rows`: (file, line, address)."""
        self.lines = {}
        for file, line, address in rows:
            self.lines.setdefault(file, []).append((line, address))
        for lines in self.lines.values():
            lines.sort()

    def find(self, file, line, ranges):
        """The address of a line, or of the next one that has code within the ranges; None where there is none."""
        lines = self.lines.get(file)
        if lines is None:  # then by the base name
            base = split_path(file)[1]
            lines = next((lines for name, lines in self.lines.items() if split_path(name)[1] == base), [])
        for (line_before, before), (line_here, here) in zip(lines, lines[1:]):
            if not line_before <= line <= line_here:
                continue
            if line_before == line and range_of(ranges, before) is not None:
                return before
            if range_of(ranges, here) is not None:
                return here
        return None


def range_of(ranges, address):
    """The index of the first range that holds the address, or None."""
    return next((i for i, (low, high) in enumerate(ranges) if low <= address <= high), None)


def place_blocks(function, ranges, table):
    """Gives the function and its blocks their ranges."""
    function.ranges = list(ranges)
    for block in function.walk()[1:]:
        first = table.find(block.file, block.first, ranges)
        last = table.find(block.file, block.last, ranges)
        start = None if first is None else range_of(ranges, first)
        if start is None:
            continue
        for i, (low, high) in enumerate(ranges[start:]):
            low = first if i == 0 else low
            if last is not None and range_of(ranges[start + i : start + i + 1], last) is not None:
                block.ranges.append((low, last))
                break
            block.ranges.append((low, high))


def place_variable(locations, is_parameter, file, block, function, table):
    """(low, high, location) of a variable with several locations; `locations` are (line, location) in order."""
    ranges = function.ranges
    found = []

    def address_of(line):
        return table.find(file, line, ranges)

    for i, (line, location) in enumerate(locations):
        from_start = (i == 0 and is_parameter) or line <= function.first
        first = ranges[0][0] if from_start else address_of(line)
        adjust, ends_here = 0, i + 1 == len(locations)
        if ends_here:
            to_end = block.last >= function.last
            last = ranges[-1][1] if to_end else address_of(min(block.last, function.last))
        elif locations[i + 1][0] <= function.first:
            last = ranges[0][0]
        elif address_of(locations[i + 1][0]) is not None:
            last, adjust = address_of(locations[i + 1][0]), 1
        else:
            last, ends_here = ranges[-1][1], True
        found += spans(ranges, first, last, adjust, location)
        if ends_here:
            return found
    return found


def spans(ranges, first, last, adjust, location):
    start = None if first is None else range_of(ranges, first)
    if start is None:
        return []
    found = []
    for i, (low, high) in enumerate(ranges[start:]):
        begin = first if i == 0 else low
        if last is None or not low <= last <= high:
            found.append((begin, high, location))
            continue
        if last != low or i == 0:
            found.append((begin, last - adjust, location))
        break
    return found

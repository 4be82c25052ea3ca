# SPDX-License-Identifier: MIT
"""What readelf and llvm-dwarfdump say of an ELF file, as facts; and what the bytes say where those two say less.

The program prints debugging sections as they stand in the file. readelf would apply the relocations of a relocatable
file first, so it is shown a copy that calls itself an executable: its relocations are then left alone.
"""

import functools
import re
import struct

import judging

ET_REL, ET_EXEC = 1, 2
E_TYPE, E_SHOFF, E_SHNUM = 16, 32, 48
DATA_BIG = 2


def number(text):
    """A number as readelf prints it, in either base."""
    return int(text, 16 if text.startswith(("0x", "-0x")) else 10)


# --- names ------------------------------------------------------------------------------------------------------------

LAST_NAMES = {"TAG": 0x38, "AT": 0x4D, "FORM": 0x16, "OP": 0x96, "LNS": 9}
# Numbers that the standard leaves free, or takes out of an earlier edition; readelf has names for some.
GAPS = {"TAG": {0x06, 0x07, 0x09, 0x0C, 0x0E, 0x14}, "FORM": {0x00, 0x02},
        "AT": {0x00, *range(0x04, 0x09), 0x0A, 0x0E, 0x0F, 0x14, 0x1F, 0x23, 0x24, 0x26, 0x28, 0x29, 0x2B, 0x2D,
               0x30}}  # fmt: skip
USER_RANGES = {"TAG": (0x4080, 0xFFFF), "AT": (0x2000, 0x3FFF), "OP": (0xE0, 0xFF)}
# readelf has names of later editions, or of its own, for a few numbers.
SPELLINGS = {
    "TAG": {"DW_TAG_template_type_param": "DW_TAG_template_type_parameter",
            "DW_TAG_template_value_param": "DW_TAG_template_value_parameter"},
}  # fmt: skip
READELF_NAMES = {"AT": {"DW_AT_HP_block_index": 0x2000}}  # that pyelftools does not have
UNKNOWN = re.compile(r"(?:Unknown|User) (?:AT|TAG|FORM)(?: value)?: (?:0x)?([0-9a-f]+)")


@functools.lru_cache(maxsize=None)
def numbers(kind):
    """Name to number, as pyelftools has them."""
    try:
        from elftools.dwarf import dwarf_expr, enums
    except ImportError:
        raise judging.unittest.SkipTest("not installed: pyelftools") from None
    tables = {"TAG": enums.ENUM_DW_TAG, "AT": enums.ENUM_DW_AT, "FORM": enums.ENUM_DW_FORM,
              "OP": dwarf_expr.DW_OP_name2opcode}  # fmt: skip
    return {name: value for name, value in tables[kind].items() if isinstance(value, int)} | READELF_NAMES.get(kind, {})


def number_of(kind, name):
    """The number that readelf or the program means."""
    found = re.fullmatch(r"\?\? 0x([0-9A-F]{8})(?: \(user-defined\))?", name) or UNKNOWN.fullmatch(name)
    return int(found[1], 16) if found else numbers(kind)[name]


def printed_name(kind, name):
    """A name as the program has to print it, from what readelf calls it."""
    value = number_of(kind, name)
    if value <= LAST_NAMES[kind] and value not in GAPS.get(kind, ()):
        return SPELLINGS.get(kind, {}).get(name, name)
    low, high = USER_RANGES.get(kind, (1, 0))
    return f"?? 0x{value:08X}" + (" (user-defined)" if low <= value <= high else "")


# --- what readelf prints of the file ----------------------------------------------------------------------------------


class Readelf:
    """`path` is the file, `scratch` a folder for the copy."""

    def __init__(self, path, scratch):
        self.content = path.read_bytes()
        self.big_endian = self.content[5] == DATA_BIG
        self.order = ">" if self.big_endian else "<"
        copy = bytearray(self.content)
        self.relocatable = self.unpack("H", E_TYPE)[0] == ET_REL
        struct.pack_into(self.order + "H", copy, E_TYPE, ET_EXEC)
        self.copy = scratch / (path.name + ".copy")
        self.copy.write_bytes(copy)
        tool = judging.find_tool("readelf")
        self.text = {
            "file": self.output(tool, "-hSlsW", "-p", ".strtab", "-p", ".shstrtab", "-p", ".debug_str", path=path),
            "dwarf": self.output(tool, "-W", "--debug-dump=info,abbrev,rawline,frames,aranges,pubnames,loc,Ranges"),
        }
        heading = r"\n*(?:Raw dump of debug c|C)ontents of (?:the (\S+) section|section (\S+)):\n"
        pieces = re.split(heading, self.text["dwarf"])
        self.dwarf = {}
        for first, second, body in zip(pieces[1::3], pieces[2::3], pieces[3::3]):
            self.dwarf[first or second] = body
        self.read_file()

    def output(self, tool, *arguments, path=None):
        outcome = judging.run([tool, *arguments, str(path or self.copy)], self.copy.parent)
        return outcome.stdout.decode(judging.ENCODING)

    def unpack(self, form, at, content=None):
        return struct.unpack_from(self.order + form, self.content if content is None else content, at)

    def lines(self, part, pattern):
        return re.findall(pattern, self.text["file"] if part == "file" else self.dwarf.get(part, ""), re.MULTILINE)

    def read_file(self):
        told = dict(self.lines("file", r"^  ([A-Z][A-Za-z/ ]+): +(.*)$"))

        def value(label):
            return number(told[label].split(" ")[0])

        self.header = {
            "ident": list(bytes.fromhex(told["Magic"])),
            "flags": number(told["Flags"].split(",")[0]),
            "entry": value("Entry point address"),
            "phnum": value("Number of program headers"),
            "phentsize": value("Size of program headers"),
            "phoff": value("Start of program headers"),
            "shnum": value("Number of section headers"),
            "shentsize": value("Size of section headers"),
            "shoff": value("Start of section headers"),
            "shstrndx": value("Section header string table index"),
            "type": self.unpack("H", E_TYPE)[0],  # the words of readelf are its own
            "machine": self.unpack("H", E_TYPE + 2)[0],
        }
        row = r"^  \[ *(\d+)\] (\S*) +(\S.*?) +([0-9a-f]{8}) ([0-9a-f]{6,8}) ([0-9a-f]{6,8}) ([0-9a-f]{2})"
        row += r" +([A-Zxop]*) +(\d+) +(\d+) +(\d+)$"
        self.sections = []
        for index, name, kind, address, offset, size, entry, flags, link, info, align in self.lines("file", row):
            if int(index) != len(self.sections):
                raise ValueError(f"section {index} is out of turn")
            raw_type, raw_flags = self.unpack("2I", self.header["shoff"] + 40 * int(index) + 4)
            self.sections.append({
                "name": name, "kind": kind, "type": raw_type, "letters": flags, "flags": raw_flags,
                "address": int(address, 16), "offset": int(offset, 16), "size": int(size, 16),
                "entry_size": int(entry, 16), "link": int(link), "info": int(info), "align": int(align),
            })  # fmt: skip
        if len(self.sections) != self.header["shnum"]:
            raise ValueError("sections that readelf printed were not understood")
        row = r"^  ([A-Z0-9_+x]+) +(0x[0-9a-f]{6}) (0x[0-9a-f]{8}) (0x[0-9a-f]{8}) (0x[0-9a-f]{5,}) (0x[0-9a-f]{5,})"
        row += r" ([R ][W ][E ]) (0x[0-9a-f]+|0)$"
        self.segments = []
        for index, (_, offset, vaddr, paddr, filesz, memsz, flags, align) in enumerate(self.lines("file", row)):
            (raw_type,) = self.unpack("I", self.header["phoff"] + 32 * index)
            values = [number(text) for text in (vaddr, paddr, memsz, offset, filesz)]
            letters = "".join(letter if flag != " " else "-" for flag, letter in zip(flags, "rwx"))
            self.segments.append({"type": raw_type, "values": values, "flags": letters, "align": number(align)})
        if len(self.segments) != self.header["phnum"]:
            raise ValueError("segments that readelf printed were not understood")
        row = r"^ +\d+: ([0-9a-f]{8}) +(\d+|0x[0-9a-f]+) (<.*?>: \d+|\S+) +(<.*?>: \d+|\S+) +[A-Z]+(?: +\[.*\])?"
        row += r" +(OS \[\w+\]|\S+) ?(.*)$"
        self.symbols = [
            (name, int(value, 16), number(size), kind, binding, section)
            for value, size, kind, binding, section, name in self.lines("file", row)
        ]

    def bytes_of(self, name):
        """The last section of a name, as the program takes it; None where there is none."""
        found = [section for section in self.sections if section["name"] == name]
        if not found:
            return None
        return self.content[found[-1]["offset"] : found[-1]["offset"] + found[-1]["size"]]

    def strings(self, name):
        """(offset, text) of the strings that are not empty, as `readelf -p` has them."""
        heading = rf"^String dump of section '{re.escape(name)}':\n"
        body = re.search(heading + r"((?:  \[.*\n)*)", self.text["file"], re.MULTILINE)
        rows = re.findall(r"^  \[ *([0-9a-f]+)\]  (.*)$", body[1] if body else "", re.MULTILINE)
        return [(int(offset, 16), text) for offset, text in rows]

    # --- the debugging sections ---

    def abbreviations(self):
        found = []
        for line in self.dwarf[".debug_abbrev"].splitlines():
            if head := re.match(r" +(\d+) +(DW_TAG_\w+|\w+ TAG value: \S+) +(\[.* children\])$", line):
                found.append((int(head[1]), printed_name("TAG", head[2]), head[3], []))
            elif pair := re.match(r"    (DW_AT_\w+|\w+ AT value: \S+) +(DW_FORM_\w+|\w+ FORM value: \S+)$", line):
                found[-1][3].append((printed_name("AT", pair[1]), printed_name("FORM", pair[2])))
            elif not re.match(r"    DW_AT value: 0 +DW_FORM value: 0$|  Number TAG|$", line):
                raise ValueError(f"readelf: {line}")
        return found

    def units(self):
        """Of each unit its header values and its entries (depth, offset, abbreviation, tag, attributes), null entries
        left out; an attribute is (name, form, text)."""
        units = []
        for line in self.dwarf[".debug_info"].splitlines():
            if head := re.match(r"  Compilation Unit @ offset (\w+):$", line):
                units.append({"offset": number(head[1]), "entries": []})
            elif value := re.match(r"   ([A-Z][A-Za-z ]+): +(\w+)", line):
                units[-1][value[1]] = number(value[2])
            elif entry := re.match(r" <(\d+)><([0-9a-f]+)>: Abbrev Number: (\d+)(?: \((.*)\))?$", line):
                if int(entry[3]) != 0:
                    values = int(entry[1]), int(entry[2], 16), int(entry[3])
                    units[-1]["entries"].append((*values, printed_name("TAG", entry[4]), []))
            elif value := re.match(r"    <[0-9a-f]+> +(DW_AT_\w+|\w+ AT value: \w+) *: \((\w+)\) ?(.*)$", line):
                units[-1]["entries"][-1][4].append((printed_name("AT", value[1]), "DW_FORM_" + value[2], value[3]))
            elif line.strip():
                raise ValueError(f"readelf: {line}")
        return units

    def line_units(self):
        units = []
        for line in self.dwarf.get(".debug_line", "").splitlines():
            if head := re.match(r"  Offset: +(\w+)$", line):
                units.append({"offset": number(head[1])})
                units[-1] |= {key: [] for key in ("opcodes", "directories", "files", "statements")}
            elif value := re.match(r"  ([A-Z][A-Za-z' _]+): +(-?\d+)$", line):
                units[-1][value[1]] = int(value[2])
            elif opcode := re.match(r"  Opcode (\d+) has (\d+) args?$", line):
                units[-1]["opcodes"].append((int(opcode[1]), int(opcode[2])))
            elif file := re.match(r"  (\d+)\t(\d+)\t(\d+)\t(\d+)\t(.*)$", line):
                units[-1]["files"].append((file[5], int(file[2]), int(file[3]), int(file[4])))
            elif directory := re.match(r"  (\d+)\t(.*)$", line):
                units[-1]["directories"].append(directory[2])
            elif define := re.match(r"   (\d+)\t(\d+)\t(\d+)\t(\d+)\t(.*)$", line):
                units[-1]["statements"].append(("DW_LNE_define_file", define[5], *map(int, define.groups()[1:4])))
            elif statement := re.match(r"  \[0x[0-9a-f]+\]  (.*)$", line):
                if "define new File Table entry" not in statement[1]:
                    units[-1]["statements"].append(self.statement(statement[1]))
        return units

    STATEMENTS = [
        (r"Copy(?: \(view \d+\))?", "DW_LNS_copy"),
        (r"Advance PC by (\w+) to (\w+)(?: \(.*\))?", "DW_LNS_advance_pc"),
        (r"Advance Line by (-?\d+) to (-?\d+)", "DW_LNS_advance_line"),
        (r"Set File Name to entry (\d+) in the File Name Table", "DW_LNS_set_file"),
        (r"Set column to (\d+)", "DW_LNS_set_column"),
        (r"Set is_stmt to (\d+)", "DW_LNS_negate_stmt"),
        (r"Set basic block", "DW_LNS_set_basic_block"),
        (r"Advance PC by constant (\w+) to (\w+)(?: \(.*\))?", "DW_LNS_const_add_pc"),
        (r"Advance PC by fixed size amount (\w+) to (\w+)(?: \(.*\))?", "DW_LNS_fixed_advance_pc"),
        (r"Extended opcode 1: End of Sequence", "DW_LNE_end_sequence"),
        (r"Extended opcode 2: set Address to (\w+)", "DW_LNE_set_address"),
        (r"Special opcode (\d+): advance Address by (\w+) to (\w+) and Line by (-?\d+) to (-?\d+)(?: \(.*\))?",
         "SPECIAL"),
        (r"Set prologue_end to true|Set epilogue_begin to true|Set ISA to \d+", "UNKNOWN"),
    ]  # fmt: skip

    def statement(self, text):
        for pattern, name in self.STATEMENTS:
            if found := re.fullmatch(pattern, text):
                return (name, *map(number, found.groups()))
        raise ValueError(f"readelf: {text}")

    def line_rows(self):
        """(address, file, line, column, is_stmt, basic_block, end) of the rows of every unit, by llvm-dwarfdump."""
        tool = judging.find_tool("llvm-dwarfdump", "llvm-dwarfdump-14")
        units = []
        for line in self.output(tool, "--debug-line").splitlines():
            if line.startswith("debug_line["):
                units.append([])
            elif row := re.match(r"0x([0-9a-f]{16}) +(\d+) +(\d+) +(\d+) +\d+ +\d+ (.*)$", line):
                line_number = int(row[2]) - (int(row[2]) >> 31 << 32)  # lines below 0 come unsigned
                values = int(row[1], 16), int(row[4]), line_number, int(row[3])
                flags = row[5].split()
                units[-1].append((*values, *(flag in flags for flag in ("is_stmt", "basic_block", "end_sequence"))))
        return units

    def names(self):
        """The units of the table of names."""
        units = []
        for line in self.dwarf.get(".debug_pubnames", "").splitlines():
            if value := re.match(r"  (Length|Version|Offset|Size)( into | of area in |:)\D*(\w+)$", line):
                if value[1] == "Length":
                    units.append({"names": []})
                units[-1][value[1].lower()] = number(value[3])
            elif name := re.match(r"    ([0-9a-f]+) +\t(.*)$", line):
                units[-1]["names"].append((int(name[1], 16), name[2]))
        return units

    def address_ranges(self):
        units = []
        for line in self.dwarf.get(".debug_aranges", "").splitlines():
            if value := re.match(r"  ([A-Z][A-Za-z ._]*[a-z]): +(\w+)$", line):
                if value[1] == "Length":
                    units.append({"ranges": []})
                units[-1][value[1]] = number(value[2])
            elif pair := re.match(r"    ([0-9a-f]+) ([0-9a-f]+) ?$", line):
                units[-1]["ranges"].append((int(pair[1], 16), int(pair[2], 16)))
        return units

    def frames(self):
        """Of each record of call frames its heading, the values of a CIE and the instructions."""
        found = []
        for line in self.dwarf.get(".debug_frame", "").splitlines():
            if head := re.match(r"([0-9a-f]{8}) ([0-9a-f]+) ([0-9a-f]+) CIE$", line):
                found.append({"head": tuple(int(text, 16) for text in head.groups()), "instructions": []})
            elif head := re.match(r"(\w{8}) (\w+) (\w+) FDE cie=(\w+) pc=(\w+)\.\.(\w+)$", line):
                found.append({"head": tuple(int(text, 16) for text in head.groups()), "instructions": []})
            elif instruction := re.match(r"  (DW_CFA_.*)$", line):
                found[-1]["instructions"].append(re.sub(r" \(\w+\)", "", instruction[1]))
            elif value := re.match(r"  ([A-Z][a-z ]+): +(.*)$", line):
                found[-1][value[1]] = value[2]
            elif line.strip():
                raise ValueError(f"readelf: {line}")
        return found

    def locations(self):
        """Offset to (begin, end, first operator) of the entries of the lists that are referred to."""
        rows = self.lines(".debug_loc", r"^    ([0-9a-f]{8}) ([0-9a-f]+) ([0-9a-f]+) \((DW_OP_\w+)")
        return {int(offset, 16): (int(begin, 16), int(end, 16), name) for offset, begin, end, name in rows}

    def ranges(self):
        """(offset of the list, begin, end) of the lists that are referred to; those of a base address left out."""
        rows = self.lines(".debug_ranges", r"^    ([0-9a-f]{8}) ([0-9a-f]+) ([0-9a-f]+) ?(?:\(start == end\))?$")
        return [tuple(int(text, 16) for text in row) for row in rows]


# --- what the bytes say -----------------------------------------------------------------------------------------------


class End(Exception):
    """Nothing is left to read."""


class Bytes:
    """Reads a section from a place on; signed and unsigned values in the byte order of the file."""

    def __init__(self, content, big_endian, at=0, limit=None):
        self.content, self.order, self.at = content, "big" if big_endian else "little", at
        self.limit = len(content) if limit is None else min(limit, len(content))

    def more(self):
        return self.at < self.limit

    def take(self, size):
        if size > self.limit - self.at:
            raise End
        self.at += size
        return self.content[self.at - size : self.at]

    def value(self, size, signed=False):
        return int.from_bytes(self.take(size), self.order, signed=signed)

    def uleb(self, signed=False):
        value, shift = 0, 0
        while True:
            byte = self.value(1)
            value |= (byte & 0x7F) << shift
            shift += 7
            if byte < 0x80:
                return value - (1 << shift) if signed and byte & 0x40 else value

    def string(self):
        end = self.content.find(b"\0", self.at, self.limit)
        if end < 0:
            raise End
        return self.take(end + 1 - self.at)[:-1].decode(judging.ENCODING)


def table_strings(content):
    """(offset, text) of every string, the empty ones too; the last one may lack its end."""
    found, at = [], 0
    while at < len(content):
        text = content[at:].split(b"\0", 1)[0]
        found.append((at, text.decode(judging.ENCODING)))
        at += len(text) + 1
    return found


# Operand of an operator: size in bytes, negative if signed; or what else it is.
OPERANDS = {
    "addr": "address", "const1u": 1, "pick": 1, "deref_size": 1, "xderef_size": 1, "const1s": -1, "const2u": 2,
    "const4u": 4, "const2s": -2, "const4s": -4, "skip": -2, "bra": -2, "const8u": "hex", "const8s": "hex",
    "constu": "uleb", "plus_uconst": "uleb", "regx": "uleb", "piece": "uleb", "consts": "sleb", "fbreg": "sleb",
    "bregx": "both", **{f"breg{i}": "sleb" for i in range(32)},
}  # fmt: skip


def first_operation(expression, pointer_size, big_endian):
    """The text of the first operator of an expression."""
    if not expression:
        return "(unknown)"
    known = {value: name for name, value in numbers("OP").items() if value <= LAST_NAMES["OP"]}
    code = expression[0]
    name = known.get(code) or printed_name("OP", f"?? 0x{code:08X}")
    kind = OPERANDS.get(name.removeprefix("DW_OP_"))
    if kind is None:
        return name
    at = Bytes(expression, big_endian, 1)
    try:
        if kind == "both":
            name += str(at.uleb())
        if kind in ("address", "hex"):
            return f"{name}: 0x{at.value(pointer_size if kind == 'address' else 8):x}"
        if kind == "uleb":
            return f"{name}: {at.uleb()}"
        return f"{name}: {at.uleb(signed=True) if kind in ('sleb', 'both') else at.value(abs(kind), kind < 0)}"
    except End:
        return f"{name}: (unknown)"


def location_list(content, pointer_size, big_endian):
    """The section from its start to its end, as the program prints it: what the end cuts is not printed."""
    at, found, ones = Bytes(content, big_endian), [], (1 << 8 * pointer_size) - 1
    offset, first = 0, True
    try:
        while at.more():
            begin, end = at.value(pointer_size), at.value(pointer_size)
            if begin == end == 0:
                found.append(None)
                offset, first = at.at, True
                continue
            text = "base address"
            if begin != ones:
                text = first_operation(at.take(at.value(2)), pointer_size, big_endian)
            found.append((offset if first else None, begin, end, text))
            first = False
    except End:
        pass
    return found


def range_list(content, pointer_size, big_endian):
    at, found, ones = Bytes(content, big_endian), [], (1 << 8 * pointer_size) - 1
    while at.limit - at.at >= 2 * pointer_size:
        offset, begin, end = at.at, at.value(pointer_size), at.value(pointer_size)
        mark = "(base address)" if begin == ones else "(end of list)" if begin == end == 0 else ""
        found.append((offset, begin & 0xFFFFFFFF, end & 0xFFFFFFFF, mark))
    return found


TOO_SMALL = " WARNING: Length is too small, can not continue..."
TOO_BIG = " WARNING: Pointer size is too big, can not continue..."
PADDING = " WARNING: non zero padding at the end of current unit..."


def address_table(content, big_endian):
    """The units of an address table as the program prints them, and its warnings. It passes over a whole range where
    the ranges are aligned already, counted from the start of the section. Macro information comes this way too."""
    at, units, remarks = Bytes(content, big_endian), [], []
    while at.more():
        unit = {}
        try:
            unit["length"] = at.value(4)
            units.append(unit)
            end = min(at.at + unit["length"], len(content))
            if end - at.at < 6:
                return units, [*remarks, TOO_SMALL]
            unit["version"], unit["offset"] = at.value(2), at.value(4)
            unit["pointer_size"] = size = at.value(1)
            if size > 8:
                return units, [*remarks, TOO_BIG]
            unit["segment_size"] = at.value(1)
        except End:
            return units, remarks
        unit["ranges"] = []
        ranges = Bytes(content, big_endian, at.at + 2 * size - at.at % (2 * size), end)
        try:
            while ranges.more():
                start, length = ranges.value(size), ranges.value(size)
                if start == length == 0:
                    if any(ranges.take(ranges.limit - ranges.at)):
                        remarks.append(PADDING)
                    break
                unit["ranges"].append((start, start + length, length, length))
        except End:
            pass
        at = Bytes(content, big_endian, end)
    return units, remarks


FRAME_NAMES = ["nop", "set_loc", "advance_loc1", "advance_loc2", "advance_loc4", "offset_extended", "restore_extended",
               "undefined", "same_value", "register", "remember_state", "restore_state", "def_cfa", "def_cfa_register",
               "def_cfa_offset"]  # fmt: skip
LATER_FRAME_NAMES = {0x11: "offset_extended_sf"}  # unknown to the program


class FrameReader:
    """The instructions of call frames, in the two ways of reading them: `kept` bits of a byte of 64 and above, its
    register then being lost, or as it is meant."""

    def __init__(self, content, pointer_size, big_endian):
        self.content, self.pointer_size, self.big_endian = content, pointer_size, big_endian

    def records(self):
        """(heading, start of the instructions, end) of all records; a CIE's heading has three values, an FDE's six."""
        at, found = Bytes(self.content, self.big_endian), []
        while at.more():
            offset, length = at.at, at.value(4)
            end = at.at + length
            identity = at.value(4)
            head, start = (offset, length, identity), at.at
            if identity == 0xFFFFFFFF:
                start = self.common(offset)[5]
            else:
                low, size = at.value(self.pointer_size), at.value(self.pointer_size)
                head, start = (*head, identity, low, low + size), at.at
            found.append((head, start, end))
            at = Bytes(self.content, self.big_endian, end)
        return found

    def common(self, offset):
        """(version, augmentation, code factor, data factor, return column, place behind) of a CIE."""
        at = Bytes(self.content, self.big_endian, offset + 8)
        return at.value(1), at.string(), at.uleb(), at.uleb(signed=True), at.value(1), at.at

    def as_meant(self, start, end, cie, pc):
        """In the words of readelf."""
        at, found = Bytes(self.content, self.big_endian, start, end), []
        code, data = cie[2:4]
        while at.more():
            byte = at.value(1)
            high, low = byte & 0xC0, byte & 0x3F
            if high == 0x40:
                pc += low * code
                found.append(f"DW_CFA_advance_loc: {low * code} to {pc:08x}")
            elif high == 0x80:
                found.append(f"DW_CFA_offset: r{low} at cfa{at.uleb() * data:+d}")
            elif high == 0xC0:
                found.append(f"DW_CFA_restore: r{low}")
            else:
                if byte == 1:
                    found.append(f"DW_CFA_set_loc: {(pc := at.value(self.pointer_size)):0{2 * self.pointer_size}x}")
                    continue
                name = "DW_CFA_" + (LATER_FRAME_NAMES.get(byte) or FRAME_NAMES[byte])
                if byte == 0x11:
                    name += f": r{at.uleb()} at cfa{at.uleb(signed=True) * data:+d}"
                elif byte in (2, 3, 4):
                    pc += (delta := at.value(1 << (byte - 2)) * code)
                    name += f": {delta} to {pc:08x}"
                elif byte == 5:
                    name += f": r{at.uleb()} at cfa{at.uleb() * data:+d}"
                elif byte in (6, 7, 8, 13):
                    name += f": r{at.uleb()}"
                elif byte == 9:
                    name += f": r{at.uleb()} in r{at.uleb()}"
                elif byte == 12:
                    name += f": r{at.uleb()} ofs {at.uleb()}"
                elif byte == 14:
                    name += f": {at.uleb()}"
                found.append(name)
        return found

    def as_printed(self, start, end, cie):
        """In the words of the program; an operand is read past the record if need be, not past the section. Whether it
        came to that, too."""
        at, found = Bytes(self.content, self.big_endian, start), []
        code, data = cie[2:4]
        while at.at < end:
            byte = at.value(1)
            opcode = byte if byte < 64 else byte & 0x80
            name = f"?? 0x{opcode:08X}" + (" (user-defined)" if 0x1C <= opcode <= 0x3F else "")
            if opcode == 0x80 or opcode < len(FRAME_NAMES):
                name = "DW_CFA_" + ("offset" if opcode == 0x80 else FRAME_NAMES[opcode])
            try:
                found.append(name + self.operands(at, opcode, code, data))
            except End:
                return [*found, name], False
        return found, True

    def operands(self, at, opcode, code, data):
        if opcode == 0x80:
            return f": r0 at cfa-{at.uleb() * data}"
        if opcode == 1:
            return f": {at.value(self.pointer_size):x}"
        if opcode in (2, 3, 4):
            return f": {at.value(1 << (opcode - 2)) * code}"
        if opcode == 5:
            return f": r{at.uleb()} at cfa-{at.uleb() * data}"
        if opcode in (6, 7, 8, 13, 14):
            return f": r{at.uleb()}"
        if opcode == 9:
            return f": r{at.uleb()} r{at.uleb()}"
        if opcode == 12:
            return f": r{at.uleb()} ofs {at.uleb()}"
        return ""

# SPDX-License-Identifier: MIT
"""Reads what `tarnwick -d` prints of an ELF file back into facts.

Every line has to have one of the shapes that are written down here, character by character: a line is taken apart by
its shape, put together again from what was found, and must come out as it was. What fits nowhere is an error. Shapes
are format strings of the C library, so the columns can be read off them.
"""

import functools
import re

CONVERSION = re.compile(r"%(-?)(0?)(\d*)(?:\.(\d+))?(?:l|ll)?([udxXsc])")


class Misprint(Exception):
    """A line that is not laid out as it should be."""


class Shape:
    def __init__(self, text):
        pattern, at, self.kinds = "", 0, []
        for found in CONVERSION.finditer(text):
            left, zero, width, _, kind = found.groups()
            digits = {"u": r"\d+", "d": r"-?\d+", "x": r"[0-9a-f]+", "X": r"[0-9A-F]+", "s": r".*?", "c": r"."}[kind]
            if kind == "s" and left:  # the blanks of the column are cut off the value
                digits = f".{{{width}}}" if found[4] else f".{{{width},}}?"
            before = " *" if width and not left and not zero else ""
            after = " *" if left and kind != "s" else ""
            pattern += re.escape(text[at : found.start()]) + f"{before}({digits}){after}"
            self.kinds.append("-s" if kind == "s" and left else kind)
            at = found.end()
        self.pattern = re.compile(pattern + re.escape(text[at:]), re.DOTALL)
        self.format = CONVERSION.sub(lambda found: found.group().replace("l", ""), text)

    def match(self, line):
        """The values of a line, None if it has another shape."""
        found = self.pattern.fullmatch(line)
        if not found:
            return None
        bases = {"u": 10, "d": 10, "x": 16, "X": 16}
        values = tuple(
            int(value, bases[kind]) if kind in bases else value.rstrip(" ") if kind == "-s" else value
            for kind, value in zip(self.kinds, found.groups())
        )
        return values if self.format % values == line else None


@functools.lru_cache(maxsize=None)
def shape(text):
    return Shape(text)


class Lines:
    """The lines of a print, taken one by one."""

    def __init__(self, text):
        *self.lines, self.rest = text.split("\n")  # `rest` is a last line that was not ended
        self.at = 0

    def ended(self):
        return self.at == len(self.lines)

    def line(self):
        return self.lines[self.at] if not self.ended() else None

    def fail(self, wanted):
        raise Misprint(f"line {self.at + 1}: expected {wanted!r}, found {self.line()!r} (rest {self.rest!r})")

    def find(self, text):
        """The values of the next line and past it, None if it has another shape."""
        values = None if self.ended() else shape(text).match(self.lines[self.at])
        if values is not None:
            self.at += 1
        return values

    def take(self, text):
        values = self.find(text)
        if values is None:
            self.fail(text)
        return values if len(values) != 1 else values[0]

    def blank(self, count=1):
        for _ in range(count):
            self.take("")

    def follows(self, *texts):
        """Whether these are the next lines, shapes without values; then past them."""
        if tuple(self.lines[self.at : self.at + len(texts)]) != texts:
            return False
        self.at += len(texts)
        return True

    def all_of(self, *texts):
        """The values of as many lines as have one of the shapes."""
        found = []
        while (values := next((v for v in map(self.find, texts) if v is not None), None)) is not None:
            found.append(values)
        return found


# --- the parts of the file --------------------------------------------------------------------------------------------

SECTION_HEADS = ("No.", "Name", "Type", "Address", "Offset", "Size", "Link", "Info", "Align", "Flags")
SECTION_COLUMNS = (0, 6, 27, 58, 67, 76, 85, 94, 103)
SYMBOL_HEAD = "name                          value       size   binding       type                       other  section"
SECTION_FLAGS = {" ALLOC": 2, " EXECINSTR": 4, " WRITE": 1, " EEDATA": 0x20000000}


class Dump:
    """All of a print. `verbosity` is how often -v was given; `broken_off` tells that the run ended in its midst."""

    def __init__(self, text, verbosity, broken_off=False):
        self.verbosity = verbosity
        self.lines = lines = Lines(text)
        self.read_header()
        self.sections = self.read_sections() if self.header["shnum"] else []
        self.symbols = self.symbol_size = None
        self.strings, self.section_data, self.segment_data = {}, [], []
        if verbosity >= 1:
            if lines.follows("", "Symbol Table:"):
                self.read_symbols()
            for name in (".strtab", ".shstrtab"):
                self.read_strings(name)
        if verbosity >= 3:
            self.section_data = self.read_data("Section Data: %s")
        self.segments = self.read_segments()
        if verbosity >= 3:
            self.segment_data = self.read_data("Segment Data: No. %X, %s")
        self.tail_start = lines.at
        self.dwarf = Dwarf(lines) if self.header["shnum"] else None
        if not broken_off:
            lines.blank()
            if lines.rest:
                lines.fail("the end")
        if not lines.ended():
            lines.fail("the end")

    def tail(self):
        """The lines of the debugging sections."""
        return self.lines.lines[self.tail_start :] + [self.lines.rest]

    def read_header(self):
        take = self.lines.take
        take("ELF header:")
        magic = take("\tMagic:          %02x '%c' '%c' '%c'" + " %02x" * 12)
        self.header = header = {"ident": [value if isinstance(value, int) else ord(value) for value in magic]}
        header["class"] = take("\tClass:          %s")
        header["data"] = take("\tData:           %s")
        header["ident_version"] = take("\tVersion:        0x%X")
        header["osabi"] = take("\tOS ABI:         %s")
        header["type"] = take("\tType:           %s")
        header["machine"] = take("\tMachine:        %s")
        header["flags"] = take("\tFlags:          0x%lx")
        place = " (@ 0x%lX/%lu bytes into file)" if self.verbosity > 1 else ""
        for label, letter in ("Prog hdrs:      ", "p"), ("Sec hdrs:       ", "s"):
            count, in_hex, in_decimal, *offsets = take(f"\t{label}%d at [0x%X] %u bytes each{place}")
            if in_hex != in_decimal or len(set(offsets)) > 1:
                raise Misprint(f"{label} {in_hex:#x} is not {in_decimal}, or {offsets}")
            header[letter + "hnum"], header[letter + "hentsize"] = count, in_decimal
            header[letter + "hoff"] = offsets[0] if offsets else None
        header["shstrndx"] = take("\tshstrtab index: 0x%X")
        header["entry"] = take("\tStart addr:     0x%lX")
        self.lines.blank()

    def read_sections(self):
        full = self.verbosity > 1
        heads = [head for head in SECTION_HEADS if full or head not in ("Info", "Align")]
        columns = [*SECTION_COLUMNS[: 7 + 2 * full], 103 + 9 if full else 94]
        line = "".join(f"{head:{end - at}}" for head, at, end in zip(heads, columns, columns[1:])) + "Flags"
        if self.lines.line() != line:
            self.lines.fail(line)
        self.lines.at += 1
        found = []
        for number in range(self.header["shnum"]):
            start = self.lines.line()
            fields = " %08lX" * (6 if full else 4)
            flags = re.search(r"((?: (?:ALLOC|EXECINSTR|WRITE|EEDATA))*)$", start or "").group()
            index, name, kind, *values = self.lines.take(f"%-4X  %-20.20s %-30.30s{fields}" + flags)
            if index != number or "".join(flag for flag in SECTION_FLAGS if flag in flags) != flags:
                raise Misprint(f"section {number}: {start}")
            bits = sum(bit for flag, bit in SECTION_FLAGS.items() if flag in flags)
            found.append((name, kind, bits, *values))
        return found

    def read_symbols(self):
        self.symbol_size = self.lines.take("Symbol entry size: 0x%X/%u bytes")
        self.lines.take(SYMBOL_HEAD)
        self.symbols = self.lines.all_of("\t%-24s  0x%08lX  %-5ld  %-12s  %-25s  0x%02X   %s")

    def read_strings(self, name):
        self.lines.blank()
        self.lines.take(f"String table: {name}")
        self.lines.blank()
        self.strings[name] = [] if self.lines.follows("Empty") else self.lines.all_of('%08lX: "%s"')

    def read_data(self, heading):
        """(what the heading tells, place of the first byte, bytes) of each piece."""
        found, lines = [], self.lines
        while lines.at + 1 < len(lines.lines) and shape(heading).match(lines.lines[lines.at + 1]):
            lines.blank()
            told = lines.take(heading)
            lines.take("  offset:  byte data")
            start, content = None, b""
            while (line := lines.line()) and (row := re.fullmatch(r"([ 0-9A-F]{8}): ((?: [0-9A-F]{2}){1,16})", line)):
                at = lines.at
                start = int(row[1], 16) if start is None else start
                if row[1] != f"{start + len(content):8X}" or len(content) % 16 != 0:
                    raise Misprint(f"line {at + 1}: {line}")
                content += bytes.fromhex(row[2])
                lines.at += 1
            if heading.startswith("Section"):
                lines.blank()
            found.append((told, start, content))
        return found

    def read_segments(self):
        full = self.verbosity > 1
        self.lines.blank()
        self.lines.take("Program Headers:")
        self.lines.blank()
        head = "No.   Type                                 Virtual  Physical Memsize  Offset   Filesize Flg "
        self.lines.take(head + "Align    " * full)
        found = []
        for number in range(self.header["phnum"]):
            row = self.lines.take("%-4X  %-36.36s" + " %08lX" * 5 + " %c%c%c" + " %08lX" * full)
            index, kind, *fields = row
            letters = "".join(fields[5:8])
            if index != number or not re.fullmatch("[r-][w-][x-]", letters):
                raise Misprint(f"segment {number}: {row}")
            found.append((kind, *fields[:5], letters, *fields[8:]))
        return found


# --- the debugging sections -------------------------------------------------------------------------------------------

CONTENTS, CONTAINS = "Contents of the %s section:", "The section %s contains:"
DEBUG_CONTENTS = "Dump of debug contents of section %s:"
ORDER = [
    (".debug_str", CONTENTS, "read_str"),
    (".debug_abbrev", CONTENTS, "read_abbrev"),
    (".debug_info", CONTAINS, "read_info"),
    (".debug_line", DEBUG_CONTENTS, "read_line"),
    (".debug_frame", CONTAINS, "read_frame"),
    (".debug_pubnames", CONTENTS, "read_pubnames"),
    (".debug_aranges", CONTAINS, "read_aranges"),
    (".debug_macinfo", CONTAINS, "read_aranges"),
    (".debug_loc", CONTENTS, "read_loc"),
    (".debug_ranges", CONTENTS, "read_ranges"),
]

INFO_ERROR = "ERROR occurred while dumping .debug_info section..."
INFO_REMARKS = [
    # The line of the name ends in front of the warning where the attribute has no value.
    f"\n\nWARNING: invalid attribute form, could not proceed...\n{INFO_ERROR}",
    f"\nWARNING: invalid attribute form, could not proceed...\n{INFO_ERROR}",
    f"\n WARNING: Could not locate abbrev entry, could not continue...\n{INFO_ERROR}",
    " WARNING: Compile unit entry has siblings when it should not have, ignoring...",
]

# What a statement says behind its name and the colon; the opening of each is "%05d: ".
STATEMENTS = {
    "DW_LNS_copy": "",
    "DW_LNS_advance_pc": ": 0x%llX (Advance Address by 0x%llx to 0x%llx)",
    "DW_LNS_advance_line": ": %lld (Advance Line by %lld to %lld)",
    "DW_LNS_set_file": ": %llu (Set file to be %lu)",
    "DW_LNS_set_column": ": %lld (Set column to be %ld)",
    "DW_LNS_negate_stmt": ": (Set is_stmt to be %u)",
    "DW_LNS_set_basic_block": "",
    "DW_LNS_const_add_pc": ": (Advance Address by 0x%lx to 0x%llx)",
    "DW_LNS_fixed_advance_pc": ": 0x%llX (Advance Address by 0x%llx to 0x%llx)",
    "DW_LNE_end_sequence": "",
    "DW_LNE_set_address": ": 0x%llX (Extended opcode %d: set Address to 0x%llx)",
    "DW_LNE_define_file": ": %s ; dir=%llu ; time=%llu ; size=%llu",
    "SPECIAL": ": <0x%llx, %lld> (Special opcode %u: advance Address by 0x%llx to 0x%llx and Line by %lld to %lld)",
}
# A name shorter than its column is padded in front of the colon; where nothing follows the padding stays.
STATEMENT_SHAPES = {name: f"%05d: {name:24}{form}" for name, form in STATEMENTS.items()}

MATRIX_HEAD = "stmt    address           file        line        column      is_stmt      basic_block"
MATRIX_ROW = "%5.5lu:  %016llX  %-10lu  %-10lld  %-10ld  %-5s        %-5s"
SEQUENCE_END = "      (end of sequence)"


class Dwarf:
    """The facts of each section stand in `sections`, and what was said beside them in `remarks`."""

    def __init__(self, lines):
        self.lines = lines
        self.sections, self.remarks = {}, {}
        lines.blank(2)
        self.found = not lines.follows("No DWARF found")
        if self.found:
            lines.take("DWARF:")
            for name, heading, reader in ORDER:
                if lines.follows("", "", heading % name):
                    self.sections[name] = getattr(self, reader)(name)

    def remark(self, section, *texts):
        """Notes which of the warnings comes next; those end a section."""
        for text in texts:
            if self.lines.follows(*text.split("\n")):
                self.remarks.setdefault(section, []).append(text)
                return True
        return False

    def read_str(self, _):
        return self.lines.all_of('  <%lx>: "%s"')

    def read_abbrev(self, _):
        self.lines.blank()
        self.lines.take("  Number TAG")
        found = []
        while (entry := self.lines.find("%4lu      %-25s %s")) is not None:
            if entry[2] not in ("[has children]", "[no children]", "[not known]"):
                raise Misprint(f"children: {entry[2]}")
            found.append((*entry, self.lines.all_of("    %-20s %s")))
        return found

    def read_info(self, name):
        units = []
        while self.lines.at + 1 < len(self.lines.lines) and re.match("  Comp", self.lines.lines[self.lines.at + 1]):
            self.lines.blank()
            unit = {"offset": self.lines.take("  Compilation Unit @ %lx:")}
            unit["length"] = self.lines.take("   Length:        %lu")
            unit["version"] = self.lines.take("   Version:       %u")
            if self.remark(name, f" WARNING: Unsupported DWARF version ({unit['version']}), can not continue..."):
                return [*units, unit]
            unit["abbrev_offset"] = self.lines.take("   Abbrev Offset: 0x%lx")
            unit["pointer_size"] = self.lines.take("   Pointer Size:  %u")
            unit["entries"] = []
            while (entry := self.lines.find(" <%d><%lx>: Abbrev Number: %lu (%s)")) is not None:
                attributes = [tuple(map(str.strip, pair)) for pair in self.lines.all_of("     %-20s :%s")]
                unit["entries"].append((*entry, attributes))
            units.append(unit)
            if self.remark(name, *INFO_REMARKS) and self.remarks[name][-1].endswith(INFO_ERROR):
                break
        return units

    def read_line(self, name):
        units, take = [], self.lines.take
        while self.lines.follows("") and not self.lines.ended():
            if not self.lines.line().startswith("  Statement program"):
                self.lines.at -= 1
                break
            unit = {"offset": take("  Statement program at offset 0x%lx")}
            unit["length"] = take("  Length:                      %lu")
            unit["version"] = take("  DWARF Version:               %u")
            unit["prologue"] = take("  Prologue Length:             %lu")
            unit["minimum"] = take("  Minimum Instruction Length:  %u")
            unit["is_stmt"] = take("  Initial value of 'is_stmt':  %u")
            unit["base"] = take("  Line Base:                   %d")
            unit["range"] = take("  Line Range:                  %u")
            unit["opcode_base"] = take("  Opcode Base:                 %u")
            self.lines.blank()
            take(" Opcodes:")
            unit["opcodes"] = self.lines.all_of("  Opcode %u has %u args")
            units.append(unit)
            unit["directories"] = self.read_directories()
            unit["files"] = self.read_files()
            unit["statements"], unit["rows"] = self.read_statements()
            if self.lines.rest and self.lines.ended():
                serial = shape("%05d: ").match(self.lines.rest)
                if serial != (len(unit["statements"]) + 1,):
                    self.lines.fail("an opened statement")
                self.remarks[name] = ["unknown opcode"]
                break
        return units

    def read_directories(self):
        self.lines.blank()
        if self.lines.follows(" The Directory Table is empty."):
            return []
        self.lines.take(" The Directory Table:")
        return self.numbered(self.lines.all_of('%5ld.  "%s"'))

    def read_files(self):
        self.lines.blank()
        if self.lines.follows(" The File Name Table is emptry."):
            return []
        self.lines.take(" The File Name Table:")
        found = []
        while (entry := self.lines.find('%5ld.  "%s"')) is not None:
            values = []
            for text in "\t\tdir: %llu", "\t\ttime: %s", "\t\tsize: %llu":
                value = self.lines.find(text)
                values.append(value[0] if value else 0)
            found.append((entry[0], (entry[1], *values)))
        return self.numbered(found)

    @staticmethod
    def numbered(entries):
        if [number for number, _ in entries] != list(range(1, len(entries) + 1)):
            raise Misprint(f"numbers of {entries}")
        return [value for _, value in entries]

    def read_statements(self):
        """The statements by their names, and a list of rows for each sequence that was ended."""
        statements, matrices = [], []
        while True:
            if (line := self.lines.line()) is None or not re.match("[0-9]{5,}: ", line):
                return statements, matrices
            name = re.match("[0-9]+: ([A-Za-z_]*)", line)[1]
            if name not in STATEMENT_SHAPES:
                self.lines.fail("a statement")
            values = self.lines.take(STATEMENT_SHAPES[name])
            serial, *values = values if isinstance(values, tuple) else (values,)
            statements.append((name, *values))
            if serial != len(statements):
                raise Misprint(f"statement {len(statements)} has number {serial}")
            if name == "DW_LNE_end_sequence":
                matrices.append(self.read_matrix())

    def read_matrix(self):
        self.lines.blank()
        self.lines.take("Generated line number matrix:")
        self.lines.blank()
        self.lines.take(MATRIX_HEAD)
        rows = []
        while True:
            values = self.lines.find(MATRIX_ROW + SEQUENCE_END)
            ends = values is not None
            values = list(values or self.lines.take(MATRIX_ROW))
            for column in 5, 6:
                if values[column] not in ("true", "false"):
                    raise Misprint(f"neither true nor false: {values}")
                values[column] = values[column] == "true"
            rows.append((*values, ends))
            if ends:
                return rows

    def read_frame(self, name):
        found = []
        while self.lines.line():
            entry = {}
            if (head := self.lines.find("%08lx %08lx %8lx CIE")) is not None:
                entry["head"] = head
                entry["version"] = self.lines.take("  Version:               %u")
                if self.lines.find("  Augmentation:          (unknown) = %s"):
                    if not self.remark(name, ' ERROR dumping ".debug_frame" section, could not continue...'):
                        self.lines.fail("the error")
                    return [*found, entry]
                self.lines.take('  Augmentation:          ""')
                entry["code"] = self.lines.take("  Code alignment factor: %llu")
                entry["data"] = self.lines.take("  Data alignment factor: %lld")
                entry["column"] = self.lines.take("  Return address column: %u")
            else:
                entry["head"] = self.lines.take("%08lx %08lx %08lx FDE cie=%08lx pc=%08llx..%08llx")
            entry["instructions"] = [text for text, in self.lines.all_of("  %s")]
            found.append(entry)
            if self.remark(name, ' ERROR dumping ".debug_frame" section, could not continue...'):
                break
        return found

    def read_pubnames(self, name):
        units, take = [], self.lines.take
        while self.lines.at + 1 < len(self.lines.lines) and self.lines.lines[self.lines.at + 1].startswith("  Length"):
            self.lines.blank()
            unit = {"length": take("  Length:                              %lu")}
            unit["version"] = take("  Version:                             %u")
            unit["offset"] = take("  Offset into .debug_info section:     0x%lx")
            unit["size"] = take("  Size of area in .debug_info section: %lu")
            self.lines.blank()
            take("      Offset    Name")
            unit["names"] = self.lines.all_of('    0x%08lX: "%s"')
            units.append(unit)
            self.remark(name, " WARNING: non zero padding at the end of current unit...")
        return units

    def read_aranges(self, name):
        units, take = [], self.lines.take
        while (length := self.lines.find("  Length:                   %lu")) is not None:
            unit = {"length": length[0]}
            units.append(unit)
            if self.remark(name, " WARNING: Length is too small, can not continue..."):
                break
            version = self.lines.find("  Version:                             %u")
            if version is None:
                break
            unit["version"] = version[0]
            unit["offset"] = take("  Offset into .debug_info:  0x%lx")
            if (size := self.lines.find("  Pointer Size:             %u")) is None:
                break
            unit["pointer_size"] = size[0]
            if self.remark(name, " WARNING: Pointer size is too big, can not continue..."):
                break
            unit["segment_size"], flat = take("  Segment Size:             %u %s")
            if flat != ("(flat)" if unit["segment_size"] == 0 else ""):
                raise Misprint(f"segment size: {unit}")
            rows = self.lines.all_of(" [%lu] start: 0x%08llx   end: 0x%08llx   length: %5llu (0x%llx)")
            unit["ranges"] = [row[1:] for row in rows]
            if [row[0] for row in rows] != list(range(len(rows))):
                raise Misprint(f"numbers of {rows}")
            self.remark(name, " WARNING: non zero padding at the end of current unit...")
        return units

    def read_loc(self, _):
        """(offset of the list or None behind its first line, begin, end, text), None for the end of a list."""
        self.lines.take("   Offset   Begin    End      Expression")
        found = []
        while self.lines.line():
            if self.lines.follows("           <End of list>"):
                found.append(None)
            elif (first := self.lines.find("  %08lx %08llx %08llx (%s)")) is not None:
                found.append(first)
            else:
                found.append((None, *self.lines.take("          " + " %08llx %08llx (%s)")))
        return found

    def read_ranges(self, _):
        self.lines.take("      Offset        Begin          End")
        found = []
        for mark in iter(self.range_mark, None):
            found.append(mark)
        return found

    def range_mark(self):
        row = "    %8lx     %8lx     %8lx"
        for mark in "", " (base address)", " (end of list)":
            values = self.lines.find(row + mark)
            if values is not None:
                return (*values, mark.strip())
        return None

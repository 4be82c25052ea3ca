# SPDX-License-Identifier: MIT
"""Compares all that `tarnwick -d` prints of an ELF file, at each verbosity, with what readelf and llvm-dwarfdump say of
it and, where the program reads bytes in a way of its own, with what that way gives."""

import re
import time

import judging
from elf_dump_facts import (
    FrameReader,
    Readelf,
    address_table,
    first_operation,
    location_list,
    number,
    printed_name,
    range_list,
    table_strings,
)
from elf_dump_reader import Dump

VERBOSITIES = range(4)
INTERNAL_ERROR = "(1521) internal error encountered creating DWARF information; contact Vantrel support with details"
# Progress notes of a run that says what it does.
NOTES = re.compile(r"|==> .*|Files: 0, syms: 0, lines: 0")

SECTION_TYPES = {
    0: "Unused", 1: "Program data", 2: "Symbol table", 3: "String table", 4: "Reloc entries with addends",
    5: "Symbol hash table", 6: "Dynamic linking information", 7: "Notes", 8: "Prog space without data (bss)",
    9: "Reloc entries, no addends", 10: "Reserved", 11: "Dynamic linker symbol table",
}  # fmt: skip
SEGMENT_TYPES = {
    0: "Unused", 1: "Loadable program segment", 2: "Dynamic linking information", 3: "Program interpreter",
    4: "Auxiliary information", 5: "Reserved", 6: "Program header table",
}  # fmt: skip
# The bounds of ranges have texts of their own, which nobody laid down.
RANGE_BOUNDS = {0x60000000, 0x6FFFFFFF, 0x70000000, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF}
BINDINGS = {"LOCAL": (0, "Local"), "GLOBAL": (1, "Global"), "WEAK": (2, "Weak")}
SYMBOL_TYPES = {
    "NOTYPE": (0, "unspecified"), "OBJECT": (1, "data object"), "FUNC": (2, "code object"),
    "SECTION": (3, "associated with a section"), "FILE": (4, "file name"), "TLS": (6, None),
}  # fmt: skip
SECTION_NUMBERS = {"UND": (0, "UNDEF"), "ABS": (0xFFF1, "ABS"), "COM": (0xFFF2, "COMMON")}
SHF_SHOWN = 0x20000007
SHT_SYMTAB, SHT_NOBITS, SHF_ALLOC = 2, 8, 2

ADDRESS_LABELS = ("Length", "Version", "Offset into .debug_info", "Pointer Size", "Segment Size")

BLOCKS = {"DW_FORM_block1", "DW_FORM_block2", "DW_FORM_block4", "DW_FORM_block"}
LOCATIONS = {"DW_AT_location", "DW_AT_data_member_location", "DW_AT_frame_base"}
LONGEST_STRING = 256


def shown(text, value, verbosity):
    """A name or number from one of the tables; `text` is None where the table has no row."""
    if text is None:
        return f"0x{value:X}"
    return f"{text} (0x{value:X})" if verbosity > 2 else text


def coded(table, word):
    """(number, text or None) of what readelf has a word for, or only a number behind a remark."""
    return table.get(word) or (int(word.rpartition(" ")[2]), None)


def section_number(word):
    reserved = re.search(r"\[0x([0-9a-f]+)\]", word)
    return int(reserved[1], 16) if reserved else int(word)


class DumpJudge(judging.Judge):
    """Tests call `check_file`."""

    def dump(self, path, verbosity, status=0):
        outcome = judging.run([judging.program(), "-d", *["-v"] * verbosity, path.name], path.parent)
        told = outcome.stderr.decode(judging.ENCODING).splitlines()
        self.assertEqual([line for line in told if verbosity == 0 or not NOTES.fullmatch(line)],
                         [f"{path.name}: {INTERNAL_ERROR}"] if status else [])  # fmt: skip
        self.assertEqual(outcome.returncode, status)
        return Dump(outcome.stdout.decode(judging.ENCODING), verbosity, broken_off=status != 0)

    def check_file(self, path, verbosities=VERBOSITIES, unknown_line_opcode=False, readable=True):
        """Returns the last dump and what readelf said, for further questions. Debugging sections that readelf cannot
        read are left out."""
        facts = Readelf(path, self.scratch)
        texts, tails = {}, []
        for verbosity in verbosities:
            dump = self.dump(path, verbosity, status=int(unknown_line_opcode))
            with self.subTest(file=path.name, verbosity=verbosity):
                self.check_header(dump, facts, texts)
                self.check_sections(dump, facts)
                self.check_symbols(dump, facts)
                self.check_data(dump, facts)
                self.check_segments(dump, facts)
            tails.append(dump.tail())
        # Verbosity does not reach the debugging sections.
        self.assertEqual([tail == tails[0] for tail in tails], [True] * len(tails))
        if readable:
            with self.subTest(file=path.name):
                DwarfCheck(self, dump.dwarf, facts).run(unknown_line_opcode)
        return dump, facts

    # --- the file ---

    def check_header(self, dump, facts, texts):
        ours = dict(dump.header)
        numbers = {"class": ours["ident"][4], "data": ours["ident"][5], "osabi": ours["ident"][7]}
        numbers |= {"type": facts.header["type"], "machine": facts.header["machine"]}
        for field, value in numbers.items():
            # The words are the program's own; the number stands behind them when everything is shown.
            text = ours.pop(field)
            words = text.removesuffix(f" (0x{value:X})")
            self.assertEqual(text, words if dump.verbosity < 3 or words == f"0x{value:X}" else f"{words} (0x{value:X})")
            self.assertEqual(texts.setdefault(field, words), words)
            self.assertNotIn("(0x", words)
        self.assertEqual(ours.pop("ident_version"), ours["ident"][6])
        wanted = {field: value for field, value in facts.header.items() if field not in ("type", "machine")}
        if dump.verbosity < 2:
            wanted |= {"phoff": None, "shoff": None}
        self.assertEqual(ours, wanted)

    def check_sections(self, dump, facts):
        wanted = []
        for section in facts.sections:
            text = SECTION_TYPES.get(section["type"])
            name = '"' + section["name"].replace('"', '\\"') + '"'
            flags = section["flags"] & SHF_SHOWN
            letters = {"A": 2, "X": 4, "W": 1}
            self.assertEqual(sum(bit for letter, bit in letters.items() if letter in section["letters"]), flags & 7)
            fields = [section[field] for field in ("address", "offset", "size", "link")]
            fields += [section["info"], section["align"]] if dump.verbosity > 1 else []
            kind = shown(text, section["type"], dump.verbosity)[:30].rstrip(" ")
            wanted.append((name[:20], kind, flags, *fields))
        bounds = [kind for _, kind, *_ in dump.sections if kind in {f"0x{number:X}" for number in RANGE_BOUNDS}]
        self.assertEqual(bounds, [])
        ours = [
            (name, wanted[i][1] if facts.sections[i]["type"] in RANGE_BOUNDS else kind, *rest)
            for i, (name, kind, *rest) in enumerate(dump.sections)
        ]
        self.assertEqual(ours, wanted)

    def check_symbols(self, dump, facts):
        tables = [section for section in facts.sections if section["type"] == SHT_SYMTAB]
        if dump.verbosity < 1:
            self.assertEqual((dump.symbols, dump.strings), (None, {}))
            return
        self.assertEqual(dump.symbols is not None, tables != [])
        # Names of sections may lie in another table than the one that is called so.
        names_table = facts.sections[facts.header["shstrndx"]]["name"]
        for name, strings in dump.strings.items():
            name = name if name == ".strtab" else names_table
            self.assertEqual(strings, table_strings(facts.bytes_of(name) or b""))
            self.assertEqual([(at, text) for at, text in strings if text], facts.strings(name))
        self.assertEqual(list(dump.strings), [".strtab", ".shstrtab"])
        if not tables:
            return
        self.assertEqual(dump.symbol_size, (tables[-1]["entry_size"],) * 2)
        self.assertEqual(len(dump.symbols), tables[-1]["size"] // 16)
        self.assertEqual(len(dump.symbols), len(facts.symbols))
        for index, (ours, theirs) in enumerate(zip(dump.symbols, facts.symbols)):
            name, value, size, kind, binding, section = theirs
            if kind == "SECTION" and ours[0] == "":
                name = ""  # readelf lends it the section's
            number, text = SECTION_NUMBERS.get(section) or (section_number(section), None)
            (other,) = facts.unpack("B", tables[-1]["offset"] + 16 * index + 13)
            codes = coded(BINDINGS, binding), coded(SYMBOL_TYPES, kind)
            texts = [shown(word, code, dump.verbosity) for code, word in codes]
            signed = size - (size >> 31 << 32)
            wanted = (name, value, signed, *texts, other, shown(text, number, dump.verbosity))
            self.assertEqual(ours, wanted)

    def check_data(self, dump, facts):
        sections, segments = [], []
        if dump.verbosity > 2:
            tables = [section for section in facts.sections if section["type"] == SHT_SYMTAB]
            for section in facts.sections:
                if section["flags"] & SHF_ALLOC and section["type"] != SHT_NOBITS and section["size"]:
                    if section not in tables[-1:]:
                        sections.append((section["name"], section["offset"], section["size"]))
            for index, segment in enumerate(facts.segments):
                *_, offset, size = segment["values"]
                if size:
                    text = shown(SEGMENT_TYPES.get(segment["type"]), segment["type"], dump.verbosity)
                    segments.append(((index, text), offset, size))
        for ours, wanted in (dump.section_data, sections), (dump.segment_data, segments):
            wanted = [(told, offset, facts.content[offset : offset + size]) for told, offset, size in wanted]
            self.assertEqual(ours, wanted)

    def check_segments(self, dump, facts):
        wanted = []
        for segment in facts.segments:
            kind = shown(SEGMENT_TYPES.get(segment["type"]), segment["type"], dump.verbosity)
            align = [segment["align"]] if dump.verbosity > 1 else []
            wanted.append((kind, *segment["values"], segment["flags"], *align))
        self.assertEqual(dump.segments, wanted)


class DwarfCheck:
    """The debugging sections of one file."""

    def __init__(self, judge, dwarf, facts):
        self.judge, self.dwarf, self.facts = judge, dwarf, facts
        self.equal = judge.assertEqual
        self.remarks = {}  # what has to be said beside the sections
        self.pointer_size = 4

    def run(self, unknown_line_opcode):
        names = [".debug_str", ".debug_abbrev", ".debug_info", ".debug_line"]
        if not unknown_line_opcode:
            names += [".debug_frame", ".debug_pubnames", ".debug_aranges", ".debug_macinfo", ".debug_loc"]
            names += [".debug_ranges"]
        has_info = self.facts.bytes_of(".debug_info") is not None
        self.equal(self.dwarf.found, has_info)
        present = [name for name in names if has_info and self.facts.bytes_of(name) is not None]
        self.equal(list(self.dwarf.sections), present)
        for name in present:
            getattr(self, "check_" + name.removeprefix(".debug_"))(self.dwarf.sections[name], self.facts.bytes_of(name))
        self.equal(self.dwarf.remarks, self.remarks)

    def check_str(self, ours, content):
        self.equal(ours, table_strings(content))
        self.equal([(at, text) for at, text in ours if text], self.facts.strings(".debug_str"))

    def check_abbrev(self, ours, _):
        self.equal(ours, self.facts.abbreviations())

    # --- entries ---

    def check_info(self, ours, _):
        theirs = self.facts.units()
        self.equal([unit["offset"] for unit in ours], [unit["offset"] for unit in theirs])
        for unit, other in zip(ours, theirs):
            self.pointer_size = unit["pointer_size"]
            self.equal([unit[key] for key in ("length", "version", "abbrev_offset", "pointer_size")],
                       [other[key] for key in ("Length", "Version", "Abbrev Offset", "Pointer Size")])  # fmt: skip
            self.equal([entry[:4] for entry in unit["entries"]], [entry[:4] for entry in other["entries"]])
            for mine, entry in zip(unit["entries"], other["entries"]):
                self.equal([name for name, _ in mine[4]], [name for name, _, _ in entry[4]])
                for (name, text), (_, form, value) in zip(mine[4], entry[4]):
                    wanted = self.value_text(name, form, value, unit["offset"])
                    if text != wanted:
                        self.judge.fail(f"<{mine[1]:x}> {name} ({form}): {text!r}, readelf has {value!r}: {wanted!r}")

    def value_text(self, name, form, text, unit_offset):
        """The text that the program has to print for what readelf prints."""
        first = text.split("\t")[0].split(" ")[0]
        form = form.removeprefix("DW_FORM_")
        if "DW_FORM_" + form in BLOCKS:
            size, content = re.match(r"(\d+) byte block: ((?:[0-9a-f]+ )*)", text).groups()
            content = bytes(int(byte, 16) for byte in content.split())
            self.equal(len(content), int(size))
            told = f"{size} byte block " + "".join(f"{byte:x} " for byte in content)
            if name in LOCATIONS:
                operation = first_operation(content, self.pointer_size, self.facts.big_endian)
                if found := re.search(r"\((DW_OP_\w+)", text):
                    self.judge.assertTrue(operation.startswith(printed_name("OP", found[1])), text)
                told += f"    ({operation})"
            return told.rstrip(" ")
        if form == "string":
            return f'"{text[:LONGEST_STRING]}"'
        if form == "strp":
            place, content = re.match(r"\(offset: (\w+)\): (.*)$", text).groups()
            return f'<{number(place):x}> ("{content}")'
        if form == "flag":
            return {"0": "false", "1": "true"}.get(first, first)
        if form.startswith("ref"):
            # The unit's offset is added even to what counts from the start of the section.
            value = number(re.match(r"<?(\w+)>?", text)[1])
            return f"<{value + (unit_offset if form == 'ref_addr' else 0):x}>"
        if form == "sdata":
            value = kept_sleb(int(first))
            return f"0x{value & 0xFFFFFFFFFFFFFFFF:x} ({value})"
        value = number(first)
        if form == "addr":
            return f"0x{value:x}"
        bits = {"data4": 32, "data8": 64}.get(form)
        signed = value - (1 << bits) if bits and value >> (bits - 1) else value
        return f"0x{value:x} ({signed})"

    # --- lines ---

    HEADER = {
        "length": "Length", "version": "DWARF Version", "prologue": "Prologue Length",
        "minimum": "Minimum Instruction Length", "is_stmt": "Initial value of 'is_stmt'", "base": "Line Base",
        "range": "Line Range", "opcode_base": "Opcode Base", "offset": "offset",
        "opcodes": "opcodes", "directories": "directories", "files": "files",
    }  # fmt: skip

    def check_line(self, ours, _):
        theirs, rows = self.facts.line_units(), self.facts.line_rows()
        unknown = [unit for unit in theirs if any(name == "UNKNOWN" for name, *_ in unit["statements"])]
        if unknown:
            # The run breaks off at the first of them.
            theirs = theirs[: theirs.index(unknown[0]) + 1]
            self.remarks[".debug_line"] = ["unknown opcode"]
        self.equal(len(ours), len(theirs))
        self.judge.assertGreaterEqual(len(rows), len(theirs))
        for mine, other, matrix in zip(ours, theirs, rows):
            # A time of 0 is not printed.
            other["files"] = [(name, directory, modified and time.asctime(time.gmtime(modified)), size)
                              for name, directory, modified, size in other["files"]]  # fmt: skip
            wanted = {key: other[label] for key, label in self.HEADER.items()}
            self.equal({key: mine[key] for key in self.HEADER}, wanted)
            statements, matrix = self.as_kept(other, matrix)
            self.equal(mine["statements"], statements)
            self.equal([row[1:] for sequence in mine["rows"] for row in sequence], matrix)
            making = [i + 1 for i, (name, *_) in enumerate(statements)
                      if name in ("DW_LNS_copy", "SPECIAL", "DW_LNE_end_sequence")]  # fmt: skip
            self.equal([row[0] for sequence in mine["rows"] for row in sequence], making[: len(matrix)])

    @staticmethod
    def as_kept(unit, rows):
        """The statements of readelf in the program's words and order of values, and the rows of the sequences that end,
        with addresses as the program counts them: a constant advance is not multiplied by the instruction length."""
        minimum, base, behind, at = unit["Minimum Instruction Length"], unit["Opcode Base"], 0, 0
        statements, kept, sequence = [], [], []
        for name, *values in unit["statements"]:
            if name == "UNKNOWN":
                break
            if name in ("DW_LNS_advance_pc", "DW_LNS_fixed_advance_pc"):
                advance, to = values
                factor = minimum if name == "DW_LNS_advance_pc" else 1
                values = [advance // factor, advance, to - behind]
            elif name == "DW_LNS_const_add_pc":
                advance, to = values
                behind += advance - advance // minimum
                values = [advance // minimum, to - behind]
            elif name == "DW_LNS_advance_line":
                values = [values[0], *values]
            elif name in ("DW_LNS_set_file", "DW_LNS_set_column"):
                values = values * 2
            elif name == "DW_LNE_set_address":
                behind, values = 0, [values[0], 2, values[0]]
            elif name == "SPECIAL":
                opcode, advance, to, by, line = values
                values = [advance // minimum, by, opcode + base, advance, to - behind, by, line]
            statements.append((name, *values))
            if name in ("DW_LNS_copy", "SPECIAL", "DW_LNE_end_sequence"):
                address, *rest = rows[at]
                sequence.append((address - behind, *rest))
                at += 1
            if name == "DW_LNE_end_sequence":
                kept, sequence, behind = kept + sequence, [], 0
        return statements, kept

    # --- call frames ---

    def check_frame(self, ours, content):
        # Call frames do not tell the size of addresses: readelf takes it to be four.
        theirs = self.facts.frames() if self.pointer_size == 4 else None
        reader = FrameReader(content, self.pointer_size, self.facts.big_endian)
        records, finished, count = reader.records(), True, 0
        for (head, start, end), mine in zip(records, ours):
            is_common = len(head) == 3
            common = reader.common(head[0] if is_common else head[3])
            pc = 0 if is_common else head[4]
            count += 1
            self.equal(mine["head"], head)
            if is_common:
                self.equal([mine[key] for key in ("version", "code", "data", "column")], [common[0], *common[2:5]])
            if theirs:
                self.check_frame_record(theirs[count - 1], head, common, reader.as_meant(start, end, common, pc))
            text, finished = reader.as_printed(start, end, common)
            self.equal(mine["instructions"], text)
            if not finished:
                self.remarks[".debug_frame"] = [' ERROR dumping ".debug_frame" section, could not continue...']
                break
        self.equal(len(ours), count if not finished else len(records))
        if theirs:
            self.equal(len(theirs), len(records))

    def check_frame_record(self, record, head, common, instructions):
        """What the bytes say, and what readelf says of them."""
        self.equal(record["head"], head)
        self.equal(record["instructions"], instructions)
        if len(head) == 3:
            labels = ["Version", "Augmentation", "Code alignment factor", "Data alignment factor"]
            labels += ["Return address column"]
            version, augmentation, *values = common[:5]
            self.equal([record[label] for label in labels], [str(version), f'"{augmentation}"', *map(str, values)])

    # --- tables and lists ---

    def check_pubnames(self, ours, _):
        self.equal(ours, self.facts.names())

    def check_aranges(self, ours, content):
        units, remarks = address_table(content, self.facts.big_endian)
        self.equal(ours, units)
        if remarks:
            self.remarks[".debug_aranges"] = remarks
        # Where the alignment is the standard's, readelf has the same ranges.
        theirs = self.facts.address_ranges()
        for mine, other in zip(ours, theirs):
            self.equal([mine[key] for key in ("length", "version", "offset", "pointer_size", "segment_size")],
                       [other[key] for key in ADDRESS_LABELS])  # fmt: skip
            if mine["pointer_size"] == 4:
                pairs = [(start, length) for start, _, length, _ in mine["ranges"]]
                self.equal(pairs, [pair for pair in other["ranges"] if pair != (0, 0)])
        self.equal(len(ours), len(theirs))

    def check_macinfo(self, ours, content):
        units, remarks = address_table(content, self.facts.big_endian)
        self.equal(ours, units)
        if remarks:
            self.remarks[".debug_macinfo"] = remarks

    def bases(self):
        """What the addresses of lists may be counted from."""
        attributes = [pair for unit in self.facts.units() for entry in unit["entries"] for pair in entry[4]]
        return {number(value.split("\t")[0]) for name, _, value in attributes if name == "DW_AT_low_pc"} | {0}

    def check_loc(self, ours, content):
        self.equal(ours, location_list(content, self.pointer_size, self.facts.big_endian))
        mask, bases = (1 << 8 * self.pointer_size) - 1, self.bases()
        at, found = 0, {}
        for entry in ours:
            if entry is None:
                at += 2 * self.pointer_size
                continue
            offset, begin, end, text = entry
            self.judge.assertIn(offset, (None, at))
            found[at] = begin, end, text
            if text == "base address":
                bases.add(end)
                at += 2 * self.pointer_size
            else:
                size = Readelf.unpack(self.facts, "H", at + 2 * self.pointer_size, content)[0]
                at += 2 * self.pointer_size + 2 + size
        for offset, (begin, end, name) in self.facts.locations().items():
            mine = found[offset]
            self.judge.assertTrue(mine[2].startswith(printed_name("OP", name)), mine)
            self.judge.assertIn((begin - mine[0]) & mask, bases)
            self.equal((begin - mine[0]) & mask, (end - mine[1]) & mask)

    def check_ranges(self, ours, content):
        self.equal(ours, range_list(content, self.pointer_size, self.facts.big_endian))
        mask, bases = (1 << 8 * self.pointer_size) - 1, self.bases()
        bases |= {end for _, _, end, mark in ours if mark == "(base address)"}
        # A reference may lead into the middle of a list.
        places = {offset: index for index, (offset, *_) in enumerate(ours)}
        theirs = {}
        for offset, begin, end in self.facts.ranges():
            if begin != mask:
                theirs.setdefault(offset, []).append((begin, end))
        for offset, pairs in theirs.items():
            mine = []
            for _, begin, end, mark in ours[places[offset] :]:
                if mark == "(end of list)":
                    break
                mine += [(begin, end)] if not mark else []
            self.equal(len(pairs), len(mine))
            for (begin, end), (low, high) in zip(pairs, mine):
                self.judge.assertIn((begin - low) & mask, bases)
                self.equal((begin - low) & mask, (end - high) & mask)


def kept_sleb(value):
    """A signed LEB128 as the program reads it: of a sign only 32 bits are extended, from where the number ends."""
    bits = 7
    while not -(1 << (bits - 1)) <= value < 1 << (bits - 1):
        bits += 7
    if value >= 0 or bits >= 64:
        return value
    sign = (0xFFFFFFFF << (bits % 32)) & 0xFFFFFFFF
    sign |= 0xFFFFFFFF00000000 if sign & 0x80000000 else 0
    kept = value & ((1 << bits) - 1) | sign
    return kept - (1 << 64) if kept >> 63 else kept

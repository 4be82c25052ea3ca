#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Third-party readers go through the debugging sections of every sample program to their end, and see what is there.

A reader may complain about a departure that the program makes on purpose, and about nothing else; what it prints is
compared with what the judges' own reader has read. No third-party reader knows addresses of one byte, so those are not
shown to them.
"""

import re
import shutil

import judging
from dwarf_reader import DwarfFile
from dwarf_runs import ALWAYS, AUTO, NEVER, run_with

# Address size, mode of range lists, mode of location lists, further options.
COMBINATIONS = [
    (4, NEVER, NEVER, []),
    (4, AUTO, AUTO, []),
    (4, ALWAYS, ALWAYS, ["-k"]),
    (2, NEVER, NEVER, ["-b"]),
    (2, AUTO, AUTO, []),
    (8, NEVER, NEVER, []),
    (8, ALWAYS, ALWAYS, ["-b"]),
]

DUMPS = "--debug-dump=info,abbrev,decodedline,aranges,pubnames,loc,Ranges"

READELF_COMPLAINTS = [
    *map(re.escape, judging.KNOWN_READELF_COMPLAINTS),
    # The debugging sections have the type of notes, so they are read as notes as well.
    r"Warning: note with invalid namesz and/or descsz found at offset (0x[0-9a-f]+|0)",
    r"Warning:  type: (0x[0-9a-f]+|0), namesize: (0x[0-9a-f]+|0), descsize: (0x[0-9a-f]+|0), alignment: 4",
]
# With addresses of 8 bytes a list begins with the pair 0, 0, which ends it for a reader. What follows is never reached.
READELF_COMPLAINTS_OF_LISTS = [
    r"Warning: There is a hole \[0x[0-9a-f]+ - 0x[0-9a-f]+\] in \.debug_loc section\.",
    r"Warning: There are [0-9]+ unused bytes at the end of section \.debug_loc",
]

LLVM_COMPLAINTS = [
    # The chips are none of its targets, so it has no names for their registers. No departure.
    r".*: No available targets are compatible with triple \"unknown-unknown-unknown\"",
]
# It takes the selection of a base address among addresses of 2 bytes for a location, and the size of an expression out
# of what follows. No departure: the standard has the largest address select a base, whatever the size.
LLVM_COMPLAINTS_OF_SHORT_LISTS = [
    r"error: unexpected end of data at offset 0x[0-9a-f]+ while reading \[0x[0-9a-f]+, 0x[0-9a-f]+\)",
]

# What readers print in the midst of their output about what they do not understand; names of the program do not count.
DOUBTS = re.compile(r"corrupt|unknown|unrecognized|user defined|overlap|terminated|invalid|error[:>]", re.IGNORECASE)


def operation(location):
    """A location in the words of readelf."""
    kind, value = location
    if kind == "reg":
        return f"DW_OP_reg{value}" if value <= 30 else f"DW_OP_regx: {value}"
    return f"DW_OP_fbreg: {value}" if kind == "frame" else f"DW_OP_addr: {value:x}"


def without_registers(text):
    return re.sub(r" \(r[0-9]+\)", "", text)


def rows_of(dwarf):
    """(address, line or None at the end) of all line tables."""
    return [(row.address, None if row.end else row.line) for unit in dwarf.units for row in unit.lines.rows]


def range_pairs(dwarf):
    return [pair for die in dwarf.all_dies() if "ranges" in die.attributes for pair in die.ranges]


def location_entries(dwarf):
    moving = [die for die in dwarf.all_dies() if isinstance(die.get("location"), int)]
    return [entry for die in moving for entry in die.locations]


class Output:
    """What a reader printed, by the sections that it printed."""

    def __init__(self, tool, arguments, path, heading):
        outcome = judging.run([tool, *arguments, str(path)], path.parent)
        self.status = outcome.returncode
        self.complaints = [
            re.sub(r"^\S*readelf: ", "", line) for line in outcome.stderr.decode(errors="replace").splitlines()
        ]
        text = outcome.stdout.decode(errors="replace").split("\nDisplaying notes found in:")[0]
        pieces = re.split(heading, "\n" + text)
        self.sections = dict(zip(pieces[1::2], pieces[2::2]))

    def lines(self, section, pattern):
        """The groups of every line of a section that a pattern fits."""
        return re.findall(pattern, self.sections.get(section, ""), re.MULTILINE)

    def beyond(self, known):
        return [line for line in self.complaints if not any(re.fullmatch(pattern, line) for pattern in known)]

    def doubts(self):
        text = "\n".join(text for section, text in self.sections.items() if section != ".debug_pubnames")
        return [line for line in text.splitlines() if DOUBTS.search(line) and "DW_AT_name" not in line]


class Readers:
    """The tests of a program; mixed into a class that knows its `folder`."""

    folder = None

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        for path in cls.folder.iterdir():
            if path.is_file():
                shutil.copyfile(path, cls.scratch / path.name)
        cls.runs = []
        for number, options in enumerate(COMBINATIONS):
            run = run_with(cls.folder, *options)
            outcome = judging.run([judging.program(), *run.arguments], cls.scratch)
            output = cls.scratch / f"o{number}.elf"
            (cls.scratch / run.output).rename(output)
            cls.runs.append((run, outcome, output, DwarfFile(output.read_bytes())))

    def test_runs_succeed(self):
        for run, outcome, _, dwarf in self.runs:
            with self.subTest(str(run)):
                self.assertEqual((outcome.returncode, outcome.stdout, outcome.stderr, dwarf.faults), (0, b"", b"", []))

    def test_readelf(self):
        tool = judging.find_tool("readelf")
        for run, _, path, dwarf in self.runs:
            with self.subTest(str(run)):
                output = Output(tool, ["-a", "-W", DUMPS], path, r"\nContents of the (\.debug_[a-z]+) section:\n")
                has_lists = run.address_size == 8 and ".debug_loc" in dwarf.sections
                known = READELF_COMPLAINTS + READELF_COMPLAINTS_OF_LISTS * has_lists
                self.assertEqual((output.status, output.beyond(known), output.doubts()), (0, [], []))
                self.assertEqual(set(output.sections), set(dwarf.sections))
                self.check_readelf(run, output, dwarf)

    def check_readelf(self, run, output, dwarf):
        abbreviations = output.lines(".debug_abbrev", r"^ +([0-9]+) +DW_TAG_(\w+) +\[(no|has) children\]$")
        ours = [(str(one.number), one.tag, ("no", "has")[one.children]) for one in dwarf.abbreviations.values()]
        self.assertEqual(abbreviations, ours)

        entries = output.lines(".debug_info", r"^ <[0-9a-f]+><([0-9a-f]+)>: Abbrev Number: ([0-9]+) \(DW_TAG_(\w+)\)$")
        dies = dwarf.all_dies()
        self.assertEqual(entries, [(f"{die.offset:x}", str(die.abbreviation.number), die.tag) for die in dies])
        attributes = output.lines(".debug_info", r"^ +<[0-9a-f]+> +DW_AT_(\w+) *:")
        self.assertEqual(attributes, [name for die in dies for name, _ in die.abbreviation.attributes])
        names = output.lines(".debug_info", r"^ +<[0-9a-f]+> +DW_AT_name +: \(string\) (.*)$")
        self.assertEqual(names, [die.get("name") for die in dies if die.abbreviation.has("name")])
        single = output.lines(".debug_info", r"^ .*DW_AT_location .* block: .*\((DW_OP_.*)\)(?: \[without.*)?$")
        ours = [operation(die.get("location")) for die in dies if isinstance(die.get("location"), tuple)]
        self.assertEqual([without_registers(text) for text in single], ours)

        rows = output.lines(".debug_line", r"^\S.*? +([0-9]+|-) +(0x[0-9a-f]+|0)(?: +\[?[0-9]+\]?)? *x?$")
        self.assertEqual([(int(at, 16), None if line == "-" else int(line)) for line, at in rows], rows_of(dwarf))

        ranges = output.lines(".debug_aranges", r"^ +([0-9a-f]{8}) ([0-9a-f]{8})$")
        ours = [pair for unit in dwarf.units for pair in [*unit.addresses, (0, 0)]]
        self.assertEqual([(int(low, 16), int(length, 16)) for low, length in ranges], ours)
        names = output.lines(".debug_pubnames", r"^ +([0-9a-f]+) *\t(\S+)$")
        ours = [(f"{die.offset - unit.offset:x}", name) for unit in dwarf.units for die, name in unit.names]
        self.assertEqual(names, ours)

        reached = run.address_size != 8  # else each list ends where it begins
        pairs = output.lines(".debug_ranges", r"^ +[0-9a-f]{8} ([0-9a-f]+) ([0-9a-f]+)(?: \(start == end\))?$")
        self.assertEqual([(int(low, 16), int(high, 16)) for low, high in pairs], range_pairs(dwarf) * reached)
        pattern = r"^ +[0-9a-f]{8} ([0-9a-f]+) ([0-9a-f]+) \((DW_OP_\w+(?:: \S+?)?)(?: \(r[0-9]+\))?\)"
        entries = output.lines(".debug_loc", pattern)
        ours = [(low, high, operation(location)) for low, high, location in location_entries(dwarf)]
        self.assertEqual([(int(low, 16), int(high, 16), text) for low, high, text in entries], ours * reached)

    def test_llvm_dwarfdump(self):
        tool = judging.find_tool("llvm-dwarfdump", "llvm-dwarfdump-14")
        for run, _, path, dwarf in self.runs:
            with self.subTest(str(run)):
                output = Output(tool, ["-a"], path, r"\n(\.debug_[a-z]+) contents:\n")
                short_lists = run.address_size == 2 and ".debug_loc" in dwarf.sections
                known = LLVM_COMPLAINTS + LLVM_COMPLAINTS_OF_SHORT_LISTS * short_lists
                doubts = [line for line in output.doubts() if not (short_lists and "unexpected end of data" in line)]
                self.assertEqual((output.status, output.beyond(known), doubts), (int(short_lists), [], []))
                self.assertEqual(set(output.sections), set(dwarf.sections))
                self.check_llvm(run, output, dwarf, short_lists)

    def check_llvm(self, run, output, dwarf, short_lists):
        abbreviations = output.lines(".debug_abbrev", r"^\[([0-9]+)\] DW_TAG_(\w+)\tDW_CHILDREN_(no|yes)$")
        ours = [(str(one.number), one.tag, ("no", "yes")[one.children]) for one in dwarf.abbreviations.values()]
        self.assertEqual(abbreviations, ours)

        entries = output.lines(".debug_info", r"^0x([0-9a-f]{8}): +DW_TAG_(\w+)$")
        dies = dwarf.all_dies()
        self.assertEqual(entries, [(f"{die.offset:08x}", die.tag) for die in dies])
        types = output.lines(".debug_info", r"^ +DW_AT_type\t\(0x([0-9a-f]{8}) ")
        ours = [die.get("type") for die in dies if die.get("type")]
        self.assertEqual(types, [f"{target.offset:08x}" for target in ours])

        rows = output.lines(".debug_line", r"^0x([0-9a-f]{16}) +([0-9]+) +0 +[0-9]+ +0 +0  is_stmt( end_sequence)?$")
        ours = [(row.address, row.line, row.end) for unit in dwarf.units for row in unit.lines.rows]
        self.assertEqual([(int(at, 16), int(line), end != "") for at, line, end in rows], ours)

        ranges = output.lines(".debug_aranges", r"^\[0x([0-9a-f]+), 0x([0-9a-f]+)\)$")
        ours = [(start, start + length) for unit in dwarf.units for start, length in unit.addresses]
        self.assertEqual([(int(low, 16), int(high, 16)) for low, high in ranges], ours)
        names = output.lines(".debug_pubnames", r'^0x([0-9a-f]{8}) "(.*)"$')
        ours = [(f"{die.offset - unit.offset:08x}", name) for unit in dwarf.units for die, name in unit.names]
        self.assertEqual(names, ours)

        selection = (run.mask, 0)
        pairs = output.lines(".debug_ranges", r"^[0-9a-f]{8} ([0-9a-f]+) ([0-9a-f]+)$")
        pairs = [(int(low, 16), int(high, 16)) for low, high in pairs]
        self.assertEqual([pair for pair in pairs if pair != selection], range_pairs(dwarf))
        if not short_lists:
            entries = output.lines(".debug_loc", r"^ +[\[(]0x([0-9a-f]+), 0x([0-9a-f]+)\): DW_OP_\w+")
            ours = [(low, high) for low, high, _ in location_entries(dwarf)]
            self.assertEqual([(int(low, 16), int(high, 16)) for low, high in entries], ours)


judging.judge_samples(__name__, lambda folder: Readers)


if __name__ == "__main__":
    judging.main()

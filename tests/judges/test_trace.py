#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The trace file of whole runs: its layout to the column, which lines each class of tracing writes, and whether every
text is there that a run can reach. Texts of states that no input brings about are looked for by the unit tests of their
rooms.
"""

import re
from dataclasses import dataclass

import judging

POSITION_WIDTH, INDENT_STEP = 20, 4

NAME = r"\S+"
HEX = r"[0-9A-F]+"
ADDRESS = r"0x[0-9a-f]+"

# --- the lines --------------------------------------------------------------------------------------------------------
#
# By class of tracing: every line that the class may write, as the whole text behind the indentation.

FUNCTIONS = [  # with entry and exit lines
    "tarn_add_psect",
    "read_notes",
    "process_tmf_segments",
    "sdb_calc_ranges",
    "calc_function_ranges",
    "calc_block_ranges_r",
    "calc_auto_ranges",
    "vcoff_write",
    "build_line_lists",
    "elf_dump",
]

ON_LINES = [
    *[f"{way} {name}\\(\\)" for name in FUNCTIONS for way in ("ENTER", "EXIT")],
    # The driver and the files of the installation.
    r'main: "dwarf_addr_size" command line option is specified with value \d+',
    r'Application appears to be running from directory: ".*"',
    r"ERROR - the application is not running from a 'bin' directory",
    r"Could not locate installation directory",
    r'"new/en_msgs.txt" is not newer than "20240104201356_en.msgs"',
    # Kinds of files; the others stand on the same row of code with another word.
    r"found (asm|C|header) file",
    r"did not find (asm|C|header) file",
    r"found ELF file",
    r"found object file",
    r"found p1 file",
    r"found \.LPP library file",
    r"found \.A library file",
    r"found \.LIB library file",
    r"did not recognize file",
    # Types of object records; the last one, 24, cannot be read.
    *[
        f"{name} record"
        for name in "TEXT PSECT RELOC SYM START END IDENT XPSECT SEGMENT XSYM SIGNAT FNINFO FNCONF SEGSTART PSECTLIM"
        " LISTRELOC LR_TEXT LR_RELOC COND_EXPR DABS Unknown FNALIGN PSECTBOUND".split()
    ],
    # The model.
    r"flags => PDB_WRITE\|PDB_NOSPACE",
    r"flags => PDB_WRITE",
    rf'  ADD RANGE: "{NAME}" @\[{HEX}-{HEX}\]\[{HEX}\+{HEX}\]',
    rf"data \[{HEX}-{HEX}\] -> seg\[{NAME},{HEX}-{HEX}\]",
    rf"split off \[{HEX}-{HEX}\]",
    r"data\[\d+\]: seg\[\d+\]",
    r"same_segs = \d+",
    r"seg_list before",
    r"seg_list after",
    rf'  \d+: "{NAME}" \[{HEX}\+{HEX}\] Load@{HEX}',
    # Lines of the map file that are refused.
    r"no object file defined for the line",
    r"no source file defined for the line",
    r"no psect defined for the line",
    r"no class defined for the line",
    r"zero line number",
    # Ranges.
    r"entry:\S+",
    rf"add_range: {HEX} - {HEX}",
    rf"first_addr\[0x{HEX}\] last_addr\[0x{HEX}\]\[\d+\]",
    rf"curr_range: 0x{HEX}-0x{HEX}",
    rf"add all in start range: 0x{HEX}-0x{HEX}",
    rf"add start range: 0x{HEX}-0x{HEX}",
    rf"add interemdiate range: 0x{HEX}-0x{HEX}",
    rf"add last range: 0x{HEX}-0x{HEX}",
    rf"first_addr\[0x{HEX}\] from function start",
    rf"first_addr\[0x{HEX}\] from loc start line",
    rf"last_addr\[0x{HEX}\] from next loc start line overlaps",
    rf"last_addr\[0x{HEX}\] from next loc start line",
    rf"last_addr\[0x{HEX}\] cannot find address from next loc start line, use last addr in function",
    rf"last_addr\[0x{HEX}\] from function end",
    rf"last_addr\[0x{HEX}\] from var end line",
    rf"start_range: 0x{HEX}-0x{HEX}",
    rf"all in start range: 0x{HEX}-0x{HEX}",
    rf"start range: 0x{HEX}-0x{HEX}",
    rf"interemdiate range: 0x{HEX}-0x{HEX}",
    rf"last range: 0x{HEX}-0x{HEX}",
    r"skip range",
    r"Module Ranges: \S+",
    rf"    0x{HEX}-0x{HEX}",
    # Raising.
    rf"current module \({ADDRESS}\): \S+ \((as)?module\) @ index \d+",
    rf"replace \S+ \({ADDRESS}\) with \S+ \({ADDRESS}\) at index \d+",
    rf"add new module: \S+ \({ADDRESS}\)",
    rf"Raisng sc_filename: \S+:\d+ to module \({ADDRESS}\): lines \d+-\d+ locals \d+",
    # Writers.
    r"func: \S+ block_file\[\S+\]",
    r"\tfile: \S+",
    rf"elf_write: \(\d+, \d+\) Seg name: {NAME}",
    rf"elf_write: Seg addr: {HEX}",
    rf"elf_write: Load addr: {HEX}",
    r"elf_write: Seg length \(bytes\): \d+",
    rf"elf_write: Writing DWARF section \.debug_\w+ which resides at address {ADDRESS} and has size \d+",
    r"is_for_default: DEFAULT elf",
]

SDB_LINES = [
    r"is_union\([01]\)",
    r"(structdecl|enumdecl): name = \S+",
    r"(structdecl|enumdecl): block name = \S*",
    r"(structdecl|enumdecl): next token = \S+",
    r"structdecl: size = \d+",
    r"(structdecl|enumdecl): tag name = \S*",
    r"(structdecl|enumdecl): next token is \S+",
    r"check_location: Location for variable \S+ is invalid",
]

INTERNAL_LIMITS = r"\w+ \([\w.-]+ : \d+\): "
DWARF_LINES = [
    r"dwarf_write: WARNING: address can't be 3, changing it to be 4 bytes",
    r"dwarf_write: WARNING: address can't be 6, changing it to be 8 bytes",
    r"dwarf_write: ERROR: address can't be 9, changing it to be 8 bytes",
    r"dwarf_write: ERROR in SDB information: address can't be 0, changing it to be 4 bytes",
    r"dwarf_pubnames_finish_unit: Empty unit",
    r"do_type: Type already registered",
    r'do_type: Not in "compile unit" level, do not create type yet, postpone to later stage',
    r"\w+: No size",
    r"\w+: Could not define target type for tt_array",
    INTERNAL_LIMITS + r"Line number exceeds value 0xffff - can not be encoded in two bytes",
    INTERNAL_LIMITS + r"file number index exceeds value 0xff - can not be encoded in single byte",
    INTERNAL_LIMITS + r"File number exceeds 65535 bytes - can not be encoded in 2 bytes",
    INTERNAL_LIMITS + r"Size of the struct member exceeds 255 bytes - can not be encoded in single byte",
]

LINES = {"on": ON_LINES, "sdb": SDB_LINES, "dwarf": DWARF_LINES}


@dataclass
class Line:
    source: str
    indent: int  # columns in force
    text: str  # behind the indentation


class Layout:
    """The lines of a trace file; any deviation from the layout is an exception."""

    def __init__(self, trace):
        self.lines, self.alerts, self.arguments, self.raw = [], [], [], []
        self.deepest = 0
        if trace and not trace.endswith("\n"):
            raise AssertionError("the last line has no end")
        depth = 0
        for number, line in enumerate(trace.splitlines(), 1):
            depth = self.take(line, number, depth)
            self.deepest = max(self.deepest, depth)
        self.depth = depth

    def take(self, line, number, depth):
        if line.startswith("ALERT> "):
            self.alerts.append(line[7:])
        elif line == "" or line.startswith("APP: ") or line.startswith("ARGS:"):
            self.arguments.append(line)
        elif line.startswith("#"):
            self.raw.append(line)
        else:
            return self.take_traced(line, number, depth)
        return depth

    def take_traced(self, line, number, depth):
        match = re.match(r"([\w-]+\.(?:cpp|h)):\d+", line)
        if not match:
            raise AssertionError(f"line {number} has no position: {line}")
        begin = max(POSITION_WIDTH, match.end())
        if line[match.end() : begin].strip(" ") or line[begin : begin + 2] != "> ":
            raise AssertionError(f"line {number}: the position is not {POSITION_WIDTH} columns wide: {line}")
        text = line[begin + 2 :]
        depth -= text.lstrip(" ").startswith("EXIT ")
        indent = depth * INDENT_STEP
        if depth < 0 or text[:indent].strip(" "):
            raise AssertionError(f"line {number} is not indented by {indent}: {line}")
        self.lines.append(Line(match[1], indent, text[indent:]))
        return depth + text[indent:].startswith("ENTER ")


# --- the runs ---------------------------------------------------------------------------------------------------------

# A function in three pieces of memory, and a file whose lines were refused. The pieces are 10-1F, 40-4F and 60-67.
MAP = """%TMF
%PSECTS
$main.obj
text CODE 1 10 10 10 1 1
tail CODE 1 40 40 10 1 1
more CODE 1 60 60 10 1 1
bss RAM 2 40 40 10 1 1
%UNUSED
RAM 80-8F 1
%LINETAB
11 text CODE >5:a.c
$main.obj
10 text CODE >5:a.c
14 text CODE >6:a.c
18 text CODE >7:a.c
1C text CODE >8:a.c
40 tail CODE >9:a.c
44 tail CODE >10:a.c
60 more CODE >11:a.c
64 more CODE >12:a.c
12 text CODE >0:a.c
13 text CODE >5:
>5:a.c
15 >5:a.c
%SYMTAB
_run 10 0 CODE 1 text main.obj
__end_of_run 68 0 CODE 1 more main.obj
x@5 44 0 RAM 2 bss main.obj
%SPLITSTAB
text more
text tail
%DABS
%SEGMENTS
code 1 10 10 10 1
code2 1 40 40 10 1
code3 1 60 60 10 1
ram 2 40 40 10 1
%NOTES
"""

DATABASE = """[p AVOCET KORM ]
"2 a.c
[e E1 colour ]
[s S1 pair 2 uc one 0 1 uc two 1 1 ]
[u S2 . 2 i all 0 2 ]
"3 b.h
[v _limit limit `i 1 t 2 ]
"4 a.c
[v _run run `(Ruc 1 e 0 0 ]
"5
{
[v p p `uc 1 p 1 acca ]
[v o o `i 1 a 2 acca ]
[v o o `i 1 a 2 4 ]
"6
[v x x `i 1 a 2 4 ]
[v c c `E1 1 a 2 4 ]
[v r r `[2]S1 1 a 4 4 ]
[v u u `S2 1 a 2 4 ]
[v w w `S1 1 a 2 4 ]
[v n n `i 1 a 2 acca ]
"11
[v p p `uc 1 p 1 2 ]
"7
{
"7
[v y y `i 1 a 2 acca ]
"8
[v y y `i 1 a 2 4 ]
"9
}
{
"8
"12
}
"6
{
"7
}
"12
[v x x `i 1 a 2 acca ]
"99
[v n n `i 1 a 2 6 ]
"12
}
6 2 0 1
"""

ROW_BYTES = 24


def image(address, data):
    """An Intel HEX file whose records run across the bounds of segments."""
    text = ""
    for at in range(0, len(data), ROW_BYTES):
        row = data[at : at + ROW_BYTES]
        record = bytes([len(row), (address + at) >> 8, (address + at) & 0xFF, 0]) + row
        text += f":{record.hex().upper()}{-sum(record) & 0xFF:02X}\n"
    return text + ":00000001FF\n"


OPTIONS = ["--code-spaces=1", "--data-spaces=2"]
PROGRAM = [*OPTIONS, "prog.hex", "prog.tmf"]
LISTS = ["--dwarf-use-loclists=always", "--dwarf-use-ranges=always"]

# Source files that a database names, by what they hold. The records end with one of type 6, the end record.
RECORD_TYPES = [*range(1, 6), *range(7, 24), 6]
SOURCES = {
    "here.c": b"int x;\n",
    "here.h": b"",
    "here.asm": b"",
    "tool.elf": b"\x7fELF\1" + bytes(60),
    "one.obj": b"".join(bytes([1, 0, kind, 0]) for kind in RECORD_TYPES),
    "two.p1": b"Version 1.0 Orbell Software Intermediate Code for this and that\n",
    "three.a": b"",
    "four.lib": b"",
    "five.lpp": b"",
    "strange": b"nothing known",
}
GONE = ["gone.c", "gone.h", "gone.asm"]
FILES_DATABASE = DATABASE.replace(
    '"4 a.c\n', "".join(f'"{line} {name}\n' for line, name in enumerate([*SOURCES, *GONE], 5)) + '"4 a.c\n'
)

# Beyond the limits of the entries: a line, a file, a line of a type, and a bit field's size.
WIDE = {
    "line of a variable": ('"5\n{', '"70000\n[v far far `i 1 e 2 0 ]\n"5\n{'),
    "file of a variable": ('"5\n{', '"5\n{\n' + "".join(f'"6 f{i}.c\n[v v{i} v{i} `i 1 a 2 4 ]\n' for i in range(260))),
    "line of a type": ('"3 b.h\n', '"70000\n[s S9 far 2 i one 0 2 ]\n[v far far `S9 1 e 2 0 ]\n"3 b.h\n'),
    "size of a bit field": ('"3 b.h\n', '[s S9 wide 2 i one 0 300 :0:3 ]\n[v wide wide `S9 1 e 2 0 ]\n"3 b.h\n'),
}


def changed(text, old, new):
    if old not in text:
        raise ValueError(f"not in the text: {old}")
    return text.replace(old, new, 1)


def elf(*options, address_size="--dwarf-addr-size=4", processor="-pN4A"):
    sizes = [address_size] if address_size else []
    return [processor, *OPTIONS, *options, *sizes, "prog.hex", "prog.tmf", "-oelf", "prog.elf"]


class Trace(judging.Judge):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        (cls.scratch / "new").mkdir()
        (cls.scratch / "new" / "en_msgs.txt").write_text("634 0 %s\n")
        (cls.scratch / "prog.hex").write_text(image(0x10, bytes(range(0x58))))
        for name, content in SOURCES.items():
            (cls.scratch / name).write_bytes(content)

    def traced(self, classes, arguments, database=DATABASE, map_file=MAP):
        (self.scratch / "main.sdb").write_text(database)
        (self.scratch / "prog.tmf").write_text(map_file)
        path = self.scratch / "trace.log"
        path.unlink(missing_ok=True)
        outcome = judging.run([judging.program(), f"--zrdebug={classes},out:trace.log", *arguments], self.scratch)
        self.assertIn(outcome.returncode, (0, 1), outcome.stderr.decode())
        self.status, self.told = outcome.returncode, outcome.stderr.decode(judging.ENCODING)
        return Layout(path.read_text(judging.ENCODING) if path.exists() else "")

    def assert_lines(self, trace_class, layouts):
        """Nothing is there but what the class may write, and nothing of it is missing."""
        patterns = {pattern: 0 for pattern in LINES[trace_class]}
        for line in [line for layout in layouts for line in layout.lines]:
            matching = [pattern for pattern in patterns if re.fullmatch(pattern, line.text)]
            self.assertTrue(matching, f"unexpected under {trace_class}: {line}")
            for pattern in matching:
                patterns[pattern] += 1
        self.assertEqual([pattern for pattern, count in patterns.items() if count == 0], [])


class Texts(Trace):
    def test_lines_of_class_on(self):
        there = [text.replace("a.c", "/there/a.c") for text in (DATABASE, MAP)]
        self.assert_lines(
            "on",
            [
                self.traced("on", elf(*LISTS)),
                self.traced("on", elf(*LISTS), FILES_DATABASE),
                self.traced("on", ["-pN4A,1234,KOR14", *PROGRAM, "-ovcoff", "prog.cof"], *there),
                self.traced("on", [*OPTIONS, "-d", "prog.elf"]),
                self.traced("on", [*OPTIONS, "--edf=new/en_msgs.txt", "-d", "prog.hex"]),
            ],
        )

    def test_lines_of_class_sdb(self):
        refused = changed(DATABASE, "[v _run run", "[v _gone gone `i 1 e 2 0 ]\n[v _run run")
        self.assert_lines("sdb", [self.traced("sdb", elf(*LISTS)), self.traced("sdb", elf(), refused)])

    def test_lines_of_class_dwarf(self):
        unknown = changed(DATABASE, "[v r r `[2]S1 1 a 4 4 ]", "[v r r `[2]v 1 a 4 4 ]")
        layouts = [self.traced("dwarf", elf()), self.traced("dwarf", elf(), unknown)]
        for size in ("=3", "=6", "=9", ""):
            layouts.append(self.traced("dwarf", elf(address_size="--dwarf-addr-size" + size if size else None)))
        for name, (old, new) in WIDE.items():
            with self.subTest(name):
                layouts.append(self.traced("dwarf", elf(), changed(DATABASE, old, new)))
                self.assertIn("(1521) internal error", self.told)
        self.assert_lines("dwarf", layouts)

    def test_classes_add_up(self):
        """All classes at once write what each writes alone."""

        def counted(layout):
            texts = [re.sub(ADDRESS, "@", line.text) for line in layout.lines]
            return {text: texts.count(text) for text in texts}

        together = counted(self.traced("on,sdb,dwarf", elf(*LISTS)))
        alone = {}
        for trace_class in LINES:
            for text, count in counted(self.traced(trace_class, elf(*LISTS))).items():
                alone[text] = alone.get(text, 0) + count
        self.assertEqual(together, alone)


class Shape(Trace):
    def test_every_entry_has_its_exit(self):
        layout = self.traced("on,sdb,dwarf", elf(*LISTS))
        self.assertEqual(layout.depth, 0)
        open_functions = []
        for line in layout.lines:
            name = re.fullmatch(r"(ENTER|EXIT) (\w+)\(\)", line.text)
            if name and name[1] == "ENTER":
                open_functions.append(name[2])
            elif name:
                self.assertEqual(open_functions.pop(), name[2])
        # sdb_calc_ranges, calc_function_ranges, calc_block_ranges_r of the function, and of a block
        self.assertEqual(layout.deepest, 4)

    def test_arguments(self):
        layout = self.traced("on", elf())
        options = " ".join(["--zrdebug=on,out:trace.log", *elf()])
        self.assertEqual(layout.arguments, ["", "APP: TARNWICK", f"ARGS: {options}"])

    def test_copies_of_reports(self):
        layout = self.traced("alerts", elf())
        self.assertEqual(self.status, 1)
        self.assertEqual(layout.lines, [])
        reports = [line for line in self.told.splitlines() if re.match(r"\S+: (\d+: )?\(\d+\) ", line)]
        self.assertNotEqual(reports, [])
        self.assertEqual(layout.alerts, reports)

    def test_output_is_the_same(self):
        self.traced("on,sdb,dwarf,alerts,adt", elf(*LISTS))
        traced = (self.scratch / "prog.elf").read_bytes()
        outcome = judging.run([judging.program(), *elf(*LISTS)], self.scratch)
        self.assertEqual(outcome.stderr.decode(judging.ENCODING), self.told)
        self.assert_same_bytes((self.scratch / "prog.elf").read_bytes(), traced, "the output of a traced run")


class MasterLists(Trace):
    VECTORS = "# ptr    file:line    max_count/capacity    alive"
    TABLES = "# ptr    file:line    max_util/capacity    max_usage/capacity    clashes    voidcmp    voidhash    alive"
    SKIP_LISTS = "# ptr    file:line    max_usage    clashes/inserts    max_chain    voidcmp    voidhash    alive"
    COUNTS = r"(\d+)/(\d+)    (\d+)/(\d+)    (\d+)/(\d+)"

    def setUp(self):
        self.layout = self.traced("adt", elf(*LISTS))
        self.raw = self.layout.raw

    def between(self, first, last):
        begin = self.raw.index(first) + 1
        return self.raw[begin : self.raw.index(last) if last else None]

    def rows(self, lines, pattern):
        found = []
        for line in lines:
            match = re.fullmatch(rf"# {ADDRESS}    ([\w./-]+:\d+)    {pattern}", line)
            self.assertTrue(match, line)
            found.append(match.groups())
        return found

    def test_headings_in_order(self):
        headings = [line for line in self.raw if "Master List" in line]
        expected = ["# Living Vector Master List:", "# Vector Master List Summary:"]
        self.assertEqual(headings, [*expected, "# Hash Table Master List:", "# Skiplist Master List:"])
        self.assertEqual(self.raw[1], self.VECTORS)
        self.assertEqual(self.raw[self.raw.index("# Hash Table Master List:") + 1], self.TABLES)
        self.assertEqual(self.raw[self.raw.index("# Skiplist Master List:") + 1], self.SKIP_LISTS)

    def test_vectors(self):
        rows = self.rows(self.between(self.VECTORS, "# Vector Master List Summary:"), r"(\d+)/(\d+)    (Y)")
        self.assertNotEqual(rows, [])
        # By capacity downwards, then by the highest count upwards, then by the place.
        keys = [(-int(row[2]), int(row[1]), row[0].split(":")[0], int(row[0].split(":")[1])) for row in rows]
        self.assertEqual(keys, sorted(keys))

    def test_summary_of_vectors(self):
        lines = self.between("# Vector Master List Summary:", "# Hash Table Master List:")
        for word in ("Living", "Dead", "Total"):
            self.assertIn(word, lines[0])
        self.assertIn("file:line", lines[1])
        self.assertEqual(lines[1].count("vectors/capacity"), 3)
        sums = [0] * 4
        for line in lines[2:-1]:
            match = re.fullmatch(rf"# {{1,36}}\S+:\d+ {{24,28}}{self.COUNTS}", line)
            self.assertTrue(match, line)
            name, number = re.match(r"# +(\S+):(\d+)", line).groups()
            self.assertTrue(line.startswith(f"# {name:>35}:{number:<5}{' ' * 24}"), line)
            sums = [total + int(count) for total, count in zip(sums, match.groups())]
            self.assertEqual(match.groups()[4:], ("0", "0"))
        total = re.fullmatch(rf"# {'Total Summary':>35}:0    {' ' * 24}{self.COUNTS}", lines[-1])
        self.assertTrue(total, lines[-1])
        expected = [*sums, sums[0] + sums[2], sums[1] + sums[3]]
        self.assertEqual([int(count) for count in total.groups()], expected)

    def test_tables(self):
        pattern = r"(\d+)/(\d+)    (\d+)/(\d+)    (\d+)    ([Yn])    ([Yn])    ([Yn])"
        rows = self.rows(self.between(self.TABLES, "# Skiplist Master List:"), pattern)
        self.assertNotEqual(rows, [])
        clashes = [int(row[5]) for row in rows]
        self.assertEqual(clashes, sorted(clashes, reverse=True))
        for row in rows:
            self.assertEqual(row[2], row[4])  # the size stands twice
            self.assertLessEqual(int(row[1]), min(int(row[2]), int(row[3])))  # buckets in use
        # Each table's clashes were told as they came, by the place of its creation.
        told = {}
        for line in self.layout.lines:
            pattern = r"HASH @ (\S+:\d+) \(\d+/\d+\) clashed (\d+) times inserting \(\S+,\S+\)"
            match = re.fullmatch(pattern, line.text)
            self.assertTrue(match or line.text.startswith("SKIPLIST @ "), line)
            if match:
                told[match[1]] = told.get(match[1], 0) + int(match[2])
        listed = {}
        for row in rows:
            if row[5] != "0":
                listed[row[0]] = listed.get(row[0], 0) + int(row[5])
        self.assertEqual(told, listed)
        self.assertNotEqual(told, {})

    def test_skip_lists(self):
        pattern = r"(\d+)    (\d+)/(\d+)    (\d+)    ([Yn])    ([Yn])    ([Yn])"
        rows = self.rows(self.between(self.SKIP_LISTS, None), pattern)
        self.assertNotEqual(rows, [])
        for row in rows:
            self.assertLessEqual(int(row[2]), int(row[3]))
            self.assertLessEqual(int(row[1]), int(row[3]))


# --- assertions -------------------------------------------------------------------------------------------------------
#
# What damaged and odd inputs bring about: the text, how the program or its command differs from the sound one.

FAILURES = {
    "osabi != 0": (elf("--disable-dwarf", address_size=None), DATABASE, MAP),
    "sub_opt[0] != '\\0'": (elf("--dwarf-use-ranges="), DATABASE, MAP),
    "0": (elf("--dwarf-use-ranges=sometimes"), DATABASE, MAP),
    'strcmp(tok, "]") == 0': (elf(), changed(DATABASE, "[p AVOCET KORM ]", "[p AVOCET KORM ] x"), MAP),
    "lastfun != NULL": (elf(), DATABASE + "[v _g g `(v 1 e 0 0 ]\n0\n{\n}\n", MAP),
    "bp > cp+2": (elf(), changed(DATABASE, "[v x x `i 1", "[v x x `*.i 1"), MAP),
    "*bp != '\\0'": (elf(), changed(DATABASE, "[v x x `i 1", "[v x x `*.4 1"), MAP),
    "frameptr > 0": (elf(), changed(DATABASE, "[e E1", "[d frameptr 0 ]\n[e E1"), MAP),
    "sdb_has_framptr()": (elf(), DATABASE, MAP),
    "funsym != NULL": (elf(), DATABASE, changed(MAP, "_run 10", "_walk 10")),
    "find_line_address_retv != 0": (elf(), changed(DATABASE, '{\n"8\n"12', '"8 z.c\n{\n"12'), MAP),
    "vec_size(new_locs) == 1": (elf(), changed(DATABASE, "[v o o `i 1 a 2 4 ]", '"6\n[v o o `i 1 a 2 acca ]'), MAP),
    "hash_count(new_modules_hash) >= set_size(old_mod_idxs)": (elf(), "[p AVOCET KORM ]\n[v _x x `i 1 e 2 0 ]\n", MAP),
    "0 != pp->sdb_var.va_dim": (elf(), changed(DATABASE, "[v p p `uc 1 p", "[v p p `uc 0 p"), MAP),
    "space == pp->ps_space": (elf(), DATABASE, changed(MAP, "%UNUSED", "$b.obj\nbss RAM 1 50 50 1 1 1\n%UNUSED")),
    "delta == pp->ps_delta": (elf(), DATABASE, changed(MAP, "%UNUSED", "$b.obj\nbss RAM 2 50 50 1 2 1\n%UNUSED")),
    "parent_ps != NULL": (elf(), DATABASE, changed(MAP, "%DABS", "gone tail\n%DABS")),
    "child_ps != NULL": (elf(), DATABASE, changed(MAP, "%DABS", "text gone\n%DABS")),
    "ps != NULL": (elf(), DATABASE, changed(MAP, "%SEGMENTS", "gone 2 50 1\n%SEGMENTS")),
    "length != 0": (elf(), DATABASE, changed(MAP, "%NOTES", "%NOTES\n$id 4\n \n01 02 03 04")),
}


class Assertions(Trace):
    def failed(self, mode, text):
        arguments, database, map_file = FAILURES[text]
        self.traced(f"assert:{mode}", arguments, database, map_file)
        pattern = r"\((150\d)\) assertion failure: (.*) \(([\w./-]+):\d+\) ( \(warning\))?$"
        return re.findall(pattern, self.told, re.MULTILINE)

    def test_error(self):
        for text in FAILURES:
            with self.subTest(text):
                found = self.failed("error", text)
                self.assertIn(("1502", text), [failure[:2] for failure in found], self.told)
                self.assertEqual(self.status, 1)

    def test_fatal(self):
        for text in FAILURES:
            with self.subTest(text):
                first = self.failed("error", text)[0]
                self.assertEqual(self.failed("fatal", text), [("1503", *first[1:])])  # the first one is the last one
                self.assertEqual(self.status, 1)
                self.assertTrue(self.told.endswith(") \n"), self.told)

    def test_warning(self):
        for text in FAILURES:
            with self.subTest(text):
                found = self.failed("warning", text)
                self.assertIn(("1501", text), [failure[:2] for failure in found], self.told)
                self.assertEqual({failure[3] for failure in found}, {" (warning)"})

    def test_ignore(self):
        for text in FAILURES:
            with self.subTest(text):
                self.assertEqual(self.failed("ignore", text), [])
                arguments, _, _ = FAILURES[text]
                told, status = self.told, self.status
                outcome = judging.run([judging.program(), *arguments], self.scratch)
                self.assertEqual((outcome.returncode, outcome.stderr.decode(judging.ENCODING)), (status, told))


if __name__ == "__main__":
    judging.main()

#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The debugging sections of every sample program: read without a fault, and holding what a debugger's user looks for.

`facts.json` of a program tells what must be found again; the facts of the repository's own sample stand here. Every
program is run with the command lines that came with it, and with each address size, with both list options in their
three modes, in both byte orders and with faked blocks.
"""

import functools
import json
import re
import shutil
from collections import Counter

import judging
from dwarf_model import (
    FUNCTION,
    LineProgram,
    LineTable,
    line_unit,
    place_blocks,
    place_variable,
    read_database,
    split_path,
    unit_order,
)
from dwarf_reader import QUALIFIERS, DwarfFile
from dwarf_runs import ALWAYS, AUTO, MODES, NEVER, commands_of, run_with

# Address size, mode of range lists, mode of location lists, further options.
COMBINATIONS = [
    *[(4, ranges, locations, []) for ranges in MODES for locations in MODES],
    *[(size, mode, mode, []) for size in (1, 2, 8) for mode in MODES],
    *[(4, NEVER, NEVER, ["-b"]), (8, ALWAYS, ALWAYS, ["-b"]), (2, AUTO, ALWAYS, ["-b"])],
    *[(4, NEVER, NEVER, ["-k"]), (4, ALWAYS, ALWAYS, ["-k"])],
]


# --- types as C text --------------------------------------------------------------------------------------------------

COMPOUNDS = {"structure_type": "struct", "union_type": "union"}


def tag_of(die):
    """The tag of a struct, union or enum, None where it has none. That of an enum is then a point."""
    name = die.get("name")
    return None if die.tag == "enumeration_type" and name == "." else name


def tag_text(die):
    """A struct, union or enum by its tag, or else by its members."""
    name = tag_of(die)
    members = ";".join(child.get("name") for child in die.children)
    if die.tag == "enumeration_type":
        return f"enum {name}" if name else f"enum {{{members}}}"
    keyword = COMPOUNDS[die.tag]
    return f"{keyword} {name}" if name else f"{keyword} {{{members}}}:{die.get('byte_size')}"


def type_text(die, declarator="", qualifiers=frozenset()):
    """C text of a type, from the outermost inward. A qualifier of an array is one of its elements."""
    while True:
        wrapped = f"({declarator})" if declarator.startswith("*") else declarator
        if die is not None and die.tag in QUALIFIERS:
            qualifiers |= {die.tag.removesuffix("_type")}
        elif die is not None and die.tag == "array_type":
            declarator = wrapped + "".join(f"[{child.get('upper_bound') + 1}]" for child in die.children)
        elif die is not None and die.tag == "subroutine_type":
            declarator = wrapped + "()"
        elif die is not None and die.tag == "pointer_type":
            words = sorted(qualifiers) + [declarator] * bool(declarator)
            declarator = "*" + (" " + " ".join(words) if qualifiers else declarator)
            qualifiers = frozenset()
        else:
            break
        die = die.get("type")
    if die is None:
        base = "void"
    else:
        base = die.get("name") if die.tag == "base_type" else tag_text(die)
    return " ".join([*sorted(qualifiers), base, *([declarator] if declarator else [])])


def size_of(die):
    """Bytes of a type; None where the entry does not tell."""
    count = 1
    while die.tag in QUALIFIERS or die.tag == "array_type":
        for child in die.children:
            count *= child.get("upper_bound") + 1
        die = die.get("type")
    size = die.get("byte_size")
    return None if size is None else count * size


# --- the facts of blink, from its map file, its databases and its sources by hand -------------------------------------
# Addresses of its code count words of two bytes, as the map file has them.

MAIN, LED, LED_H, TIMER, TIMER_H, STARTUP = [
    f"/project/blink/{name}" for name in ("main.c", "led.c", "led.h", "timer.c", "timer.h", "startup.s")
]


def rows(keys, *values):
    return [dict(zip(keys.split(), row)) for row in values]


def line_facts(file, *pairs):
    return [[file, line, address] for address, line in pairs]


def members(*values):
    return rows("name type offset size bit_offset bit_size", *values)


BLINK = {
    "marked_files": [LED_H, LED, TIMER_H, TIMER, MAIN, STARTUP],
    "functions": rows(
        "name label ranges file line external type",
        ("main", "_main", [[0x8, 0x19]], MAIN, 6, True, "int ()"),
        ("led_init", "_led_init", [[0x1A, 0x2A]], LED, 5, True, "void ()"),
        ("led_toggle", "_led_toggle", [[0x2B, 0x32]], LED, 15, True, "void ()"),
        ("timer_load", "_timer_load", [[0x33, 0x3C]], TIMER, 7, True, "unsigned int ()"),
        ("timer_wait", "_timer_wait", [[0x3D, 0x4D]], TIMER, 13, True, "void ()"),
    ),
    "lines": [
        *line_facts(STARTUP, (0x0, 3), (0x2, 6), (0x4, 7), (0x6, 8)),
        *line_facts(MAIN, (0x8, 7), (0x9, 10), (0xA, 11), (0xD, 13), (0x11, 14), (0x15, 15), (0x18, 12)),
        *line_facts(MAIN, (0x19, 17)),
        *line_facts(LED, (0x1A, 6), (0x1B, 9), (0x1D, 10), (0x22, 11), (0x27, 9), (0x2A, 13), (0x2B, 16), (0x2C, 17)),
        *line_facts(LED, (0x32, 18)),
        *line_facts(TIMER, (0x33, 8), (0x34, 9), (0x37, 10), (0x3C, 11), (0x3D, 14), (0x3E, 15), (0x41, 16)),
        *line_facts(TIMER, (0x43, 17), (0x45, 18), (0x48, 20), (0x4B, 15), (0x4D, 22)),
    ],
    # The qualifier of the eeprom holds that of `volatile`. Where a header declares a variable that its own database
    # gives a size, that counts as a definition.
    "variables": rows(
        "name type size address external scope file line",
        ("blinks", "unsigned char", 1, 0x20, False, "file", MAIN, 4),
        ("leds", "struct led [2]", 4, 0x21, True, "file", LED, 3),
        ("leds", "struct led [2]", 4, 0x21, True, "file", LED_H, 10),
        ("saved_pause", "volatile unsigned int", 2, 0x0, True, "file", TIMER, 5),
    ),
    "locals": rows(
        "function name kind type size loc nlocs line depth",
        ("_main", "pause", "auto", "unsigned int", 2, ["addr", 0x25], 1, 8, 0),
        ("_led_init", "i", "auto", "unsigned char", 1, ["reg", 0], 1, 7, 0),
        ("_led_toggle", "which", "param", "enum led_colour", 1, ["addr", 0x27], 1, 16, 0),
        ("_timer_load", "pause", "auto", "unsigned int", 2, ["addr", 0x28], 1, 9, 0),
        ("_timer_wait", "pause", "param", "unsigned int", 2, ["addr", 0x2A], 1, 14, 0),
        ("_timer_wait", "spin", "auto", "unsigned char", 1, ["addr", 0x2C], 1, 16, 1),
    ),
    "typedefs": rows("name type file line", *[("ticks_t", "unsigned int", TIMER_H, 3)] * 2),
    "structs": [
        {
            "kind": "struct",
            "tag": "led",
            "size": 2,
            "elf": True,
            "members": members(
                ("port", "unsigned char", 0, 1, 0, 0),
                ("pin", "unsigned char", 1, 1, 0, 3),
                ("on", "unsigned char", 1, 1, 3, 1),
            ),
        }
    ],
    "enums": [{"tag": "led_colour", "size": 1, "members": [["LED_RED", 0], ["LED_GREEN", 1]], "elf": True}],
    "symbols": [],
}


# --- the tests --------------------------------------------------------------------------------------------------------


def for_each_run(test):
    """A test of one run becomes one of all runs of the program."""

    @functools.wraps(test)
    def test_all(self):
        for run, _, dwarf in self.outcomes:
            with self.subTest(str(run)):
                test(self, run, dwarf)

    return test_all


class Sample:
    """The tests of a program; mixed into a class that knows its `folder` and its `facts`."""

    folder = facts = None

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.scratch = cls.scratch.resolve()
        for path in cls.folder.iterdir():
            if path.is_file():
                shutil.copyfile(path, cls.scratch / path.name)
        cls.outcomes = []
        for run in commands_of(cls.folder) + [run_with(cls.folder, *options) for options in COMBINATIONS]:
            outcome = judging.run([judging.program(), *run.arguments], cls.scratch)
            output = cls.scratch / run.output
            content = output.read_bytes() if output.exists() else b""
            output.unlink(missing_ok=True)
            cls.outcomes.append((run, outcome, DwarfFile(content, cut=True)))

    def absolute(self, name):
        """The full name of a source file."""
        is_absolute = name.startswith(("/", "\\\\")) or name[1:2] == ":"
        return name if is_absolute else f"{self.scratch}/{name}"

    def assert_same(self, actual, expected):
        """The same things, each as often, in whatever order."""
        actual, expected = Counter(map(repr, actual)), Counter(map(repr, expected))
        self.assertEqual(sorted((actual - expected).elements()), sorted((expected - actual).elements()),
                         "left: found, but no fact; right: a fact, but not found")  # fmt: skip

    def path_of(self, unit, number):
        """The name of a file of a unit, put together as debuggers do."""
        directory, name = unit.lines.path(number)
        separator = "\\" if "\\" in directory else "/"
        return f"{directory}{separator}{name}" if directory else name

    @staticmethod
    def code_of(fact):
        """The ranges of a function, as pairs."""
        return [tuple(pair) for pair in fact["ranges"]]

    # --- as a whole ---

    def test_every_run_says_nothing_and_succeeds(self):
        for run, outcome, _ in self.outcomes:
            with self.subTest(str(run)):
                told = (outcome.stdout + outcome.stderr).decode(judging.ENCODING) if run.silent else ""
                self.assertEqual((outcome.returncode, told), (0, ""))

    @for_each_run
    def test_sections_are_read_without_a_fault(self, run, dwarf):
        self.assertEqual(dwarf.faults, [])
        self.assertGreater(len(dwarf.units), 0)

    @for_each_run
    def test_options_show(self, run, dwarf):
        expected = (run.version, run.address_size, run.big_endian)
        self.assertEqual((dwarf.version, dwarf.address_size, dwarf.big_endian), expected)
        dies = dwarf.all_dies()
        coded = [die for die in dies if dwarf.has_code(die)]
        listed = [die for die in coded if "ranges" in die.attributes]
        moving = [die for die in dies if isinstance(die.get("location"), int)]
        self.assertGreater(len(coded), 0)
        if run.ranges == NEVER:
            self.assertEqual(listed, [])
            self.assertFalse(any(dwarf.has_code(unit.die) for unit in dwarf.units))
        elif run.ranges == AUTO:
            self.assertEqual(listed, [die for die in coded if len(die.ranges) != 1])
        else:
            self.assertEqual(listed, coded)
        self.assertEqual(".debug_ranges" in dwarf.sections, listed != [])
        self.assertEqual(".debug_loc" in dwarf.sections, moving != [])
        if run.locations == NEVER:
            self.assertEqual(moving, [])

    @for_each_run
    def test_units_are_the_source_files(self, run, dwarf):
        names = unit_order(self.facts["marked_files"])
        self.assertEqual([unit.die.get("name") for unit in dwarf.units], names)
        for unit in dwarf.units:
            name = unit.die.get("name")
            is_c = name.lower().endswith((".c", ".h", ".i"))
            self.assertEqual((name, unit.die.get("language")), (name, 1 if is_c else 0x8001))
            self.assertEqual([self.path_of(unit, 1)], [self.absolute(name)])
            self.assertEqual(len(unit.lines.files), 1)
            if name != self.absolute(name):
                self.assertEqual(unit.die.get("comp_dir"), str(self.scratch))

    @for_each_run
    def test_units_have_the_code_of_their_functions(self, run, dwarf):
        if run.ranges == NEVER or run.address_size == 1:
            return
        for unit in dwarf.units:
            code = set()
            for function in self.facts["functions"]:
                if self.absolute(function["file"]) == self.absolute(unit.die.get("name")):
                    for low, high in self.code_of(function):
                        code.update(range(low, high + 1))
            covered = [address for low, behind in unit.die.ranges for address in range(low, behind)]
            self.assertEqual(covered, sorted(code))
            # Ranges that touch are one.
            self.assertFalse({low for low, _ in unit.die.ranges} & {behind for _, behind in unit.die.ranges})

    # --- functions ---

    def inlined(self):
        """Functions without code of their own."""
        names = [symbol["name"] for symbol in self.facts["symbols"]]
        return [name.removeprefix("_inlined$") for name in names if name.startswith("_inlined$")]

    @for_each_run
    def test_functions(self, run, dwarf):
        actual, expected, inlined = [], [], []
        for unit in dwarf.units:
            for die in unit.die.of_tag("subprogram"):
                place = self.path_of(unit, die.get("decl_file")), die.get("decl_line")
                returned = type_text(die.get("type"), "()")
                code = [(low & run.mask, high & run.mask) for low, high in die.ranges]
                if die.get("inline"):
                    inlined.append("_" + die.get("name"))
                else:
                    actual.append((die.get("name"), *place, returned, bool(die.get("external")), code))
        for function in self.facts["functions"]:
            place = self.absolute(function["file"]), function["line"]
            code = [(low & run.mask, (high + 1) & run.mask) for low, high in self.code_of(function)]
            # Without range lists, each range is a function.
            for part in [[pair] for pair in code] if run.ranges == NEVER else [code]:
                expected.append((function["name"], *place, function["type"], function["external"], part))
        self.assert_same(actual, expected)
        self.assert_same(inlined, [] if run.ranges == NEVER else self.inlined())

    # --- lines ---

    def lines_of(self, name):
        """(address, line) of a source file. Lines of a file with a relative name are found by no unit."""
        if name != self.absolute(name):
            return []
        return sorted((address, line) for file, line, address in self.facts["lines"] if file == name)

    @for_each_run
    def test_lines(self, run, dwarf):
        for unit in dwarf.units:
            expected = [(address & run.mask, line) for address, line in self.lines_of(unit.die.get("name"))]
            actual = [(row.address, row.line) for row in unit.lines.rows if not row.end]
            self.assertEqual(actual, expected)
            self.assertEqual({row.file for row in unit.lines.rows}, {0})
            minimum, end = unit.lines.minimum, unit.lines.rows[-1].address
            self.assertEqual(end, ((expected[-1][0] if expected else 0) + minimum) & run.mask)

    @for_each_run
    def test_lines_are_not_lost(self, run, dwarf):
        """Every row of the facts is in some unit, but for those of files with relative names."""
        found = sum(len(unit.lines.rows) - 1 for unit in dwarf.units)
        facts = [row for row in self.facts["lines"] if row[0] == self.absolute(row[0])]
        self.assertEqual(found, len(facts))

    @for_each_run
    def test_line_programs_byte_for_byte(self, run, dwarf):
        order = "big" if run.big_endian else "little"
        minimum = 2 if re.match(r"-pH[12]", " ".join(self.outcomes[0][0].arguments)) else 1
        expected = b""
        for name in unit_order(self.facts["marked_files"]):
            program = LineProgram(run.address_size, order, minimum)
            directory, base = split_path(self.absolute(name))
            expected += line_unit(directory, base, self.lines_of(name), run.version, program)
        self.assert_same_bytes(expected, dwarf.sections[".debug_line"], ".debug_line")

    # --- variables ---

    @staticmethod
    def holder_of(die):
        """The function that a variable belongs to, and the depth of its block."""
        depth = 0
        while die.parent.tag == "lexical_block":
            die, depth = die.parent, depth + 1
        return (die.parent if die.parent.tag == "subprogram" else None), depth

    def times(self, run, label):
        """How often a function is written: once, or once for each of its ranges."""
        (ranges,) = [function["ranges"] for function in self.facts["functions"] if function["label"] == label]
        return len(ranges) if run.ranges == NEVER else 1

    def variables_and_locals(self, run, dwarf):
        """Entries of variables: those at addresses that bear an external or a static name, and the locals."""
        labels = {(self.absolute(one["file"]), one["name"]): one["label"] for one in self.facts["functions"]}
        statics = {(fact["scope"], fact["name"]) for fact in self.facts["variables"]}
        variables, local = [], []
        for unit in dwarf.units:
            for die in unit.die.of_tag("variable", "formal_parameter"):
                function, depth = self.holder_of(die)
                if function is not None and function.get("inline"):
                    self.assertEqual(die.locations, [])  # it has no code to live in
                    continue
                if die.get("declaration"):
                    continue
                place = self.path_of(unit, die.get("decl_file")), die.get("decl_line")
                scope = labels[self.path_of(unit, 1), function.get("name")] if function else "file"
                kind = "param" if die.tag == "formal_parameter" else "auto"
                what = (scope, die.get("name"), type_text(die.get("type")), size_of(die.get("type")))
                if (scope, die.get("name")) in statics:
                    location = [(of, value & run.mask) for *_, (of, value) in die.locations]
                    variables.append((*what, location, bool(die.get("external")), *place))
                else:
                    local.append((*what, kind, die.get("decl_line"), depth, die.locations))
        return variables, local

    @for_each_run
    def test_variables(self, run, dwarf):
        expected = []
        for fact in self.facts["variables"]:
            count = 1 if fact["scope"] == "file" else self.times(run, fact["scope"])
            place = self.absolute(fact["file"]), fact["line"]
            what = (fact["scope"], fact["name"], fact["type"], fact["size"])
            location = [("addr", fact["address"] & run.mask)]
            expected += [(*what, location, fact["external"], *place)] * count
        self.assert_same(self.variables_and_locals(run, dwarf)[0], expected)

    @for_each_run
    def test_declarations(self, run, dwarf):
        """Variables that a module only declares have a type and no place."""
        actual, expected = [], []
        for unit in dwarf.units:
            for die in unit.die.of_tag("variable"):
                if die.get("declaration"):
                    self.assertEqual((die.get("external"), die.locations), (1, []))
                    place = self.path_of(unit, die.get("decl_file")), die.get("decl_line")
                    actual.append((die.get("name"), *place))
        for path in self.folder.glob("*.sdb"):
            file = line = None
            for tokens in map(str.split, path.read_text(judging.ENCODING).splitlines()):
                if tokens[0].startswith('"'):
                    line = int(tokens[0][1:])
                    file = self.absolute(tokens[1]) if len(tokens) > 1 else file
                elif tokens[0] == "[v" and tokens[4:6] == ["0", "e"] and "(" not in tokens[3]:
                    expected.append((tokens[2], file, line))
        self.assert_same(actual, expected)

    def location_of(self, location, run):
        kind, value = location
        if kind == "addr":
            return "addr", value & run.mask
        return {"reg": "reg", "stack": "frame"}[kind], value

    @for_each_run
    def test_locals(self, run, dwarf):
        if run.fake_blocks:
            return
        expected = []
        for fact in self.facts["locals"]:
            what = tuple(fact[key] for key in ("function", "name", "type", "size", "kind", "line", "depth"))
            expected += [(*what, self.locations_of(fact, run))] * self.times(run, fact["function"])
        self.assert_same(self.variables_and_locals(run, dwarf)[1], expected)

    def locations_of(self, fact, run):
        if fact["nlocs"] == 1:
            return [(None, None, self.location_of(fact["loc"], run))]
        if run.locations == NEVER:  # the first that is no register
            kept = [location for location in fact["locs"] if location[0] != "reg"][0]
            return [(None, None, self.location_of(kept, run))]
        function, table = self.placed_functions[fact["function"]]
        (block,) = [block for block in function.walk() if len(block.lines.get(fact["name"], [])) == fact["nlocs"]]
        locations = list(zip(block.lines[fact["name"]], [self.location_of(one, run) for one in fact["locs"]]))
        places = place_variable(locations, fact["kind"] == "param", block.file, block, function, table)
        return [(low & run.mask, (high + 1) & run.mask, location) for low, high, location in places]

    @for_each_run
    def test_locals_in_faked_blocks(self, run, dwarf):
        """Each further location of a variable stands in a block of its own, and so does what follows."""
        if not run.fake_blocks:
            return
        expected = []
        for fact in self.facts["locals"]:
            what = (fact["function"], fact["name"], fact["type"], fact["size"], fact["kind"])
            for location in fact.get("locs", []) if fact["nlocs"] > 1 else [fact["loc"]]:
                place = [(None, None, self.location_of(location, run))]
                expected += [(*what, place)] * self.times(run, fact["function"])
        actual = [(*what, place) for *what, _, _, place in self.variables_and_locals(run, dwarf)[1]]
        self.assert_same([tuple(row) for row in actual], expected)

    # --- blocks ---

    @functools.cached_property
    def placed_functions(self):
        """Label -> (function with its blocks, the line table)."""
        table = LineTable(self.facts["lines"])
        code = {function["label"]: self.code_of(function) for function in self.facts["functions"]}
        found = {}
        for path in sorted(self.folder.glob("*.sdb")):
            module = read_database(path.read_text(judging.ENCODING), self.absolute)
            for function in module.blocks:
                if function.kind == FUNCTION and function.name in code:
                    place_blocks(function, code[function.name], table)
                    found[function.name] = function, table
        self.assertEqual(found.keys(), code.keys())
        return found

    @for_each_run
    def test_blocks(self, run, dwarf):
        functions = self.placed_functions
        if run.fake_blocks:
            return
        actual, expected = [], []
        for unit in dwarf.units:
            for die in unit.die.of_tag("subprogram"):
                for block in die.of_tag("lexical_block"):
                    code = [(low & run.mask, high & run.mask) for low, high in block.ranges]
                    if die.get("inline"):
                        self.assertFalse(dwarf.has_code(block))
                    else:
                        actual.append((die.get("name"), code))
        for fact in self.facts["functions"]:
            function, table = functions[fact["label"]]
            for block in function.walk()[1:] * self.times(run, fact["label"]):
                code = block.ranges
                if run.ranges == NEVER and len(code) > 1:  # from its first line to its last
                    code = [tuple(table.find(block.file, line, code) for line in (block.first, block.last))]
                elif run.ranges == NEVER and not code:
                    code = [(0, 0)]
                code = [(low & run.mask, (high + 1) & run.mask) for low, high in code]
                expected.append((fact["name"], code))
        self.assert_same(actual, expected)

    # --- types ---

    @for_each_run
    def test_typedefs(self, run, dwarf):
        actual = []
        for unit in dwarf.units:
            for die in unit.die.of_tag("typedef"):
                place = self.path_of(unit, die.get("decl_file")), die.get("decl_line")
                actual.append((die.get("name"), type_text(die.get("type")), *place))
        facts = self.facts["typedefs"]
        expected = [(fact["name"], fact["type"], self.absolute(fact["file"]), fact["line"]) for fact in facts]
        self.assert_same(actual, expected)

    @staticmethod
    def member_facts(die):
        for member in die.children:
            bits = member.get("bit_size", 0)
            size = member.get("byte_size") if bits else size_of(member.get("type"))
            # The entry counts from the high bit of the storage unit.
            low = size * 8 - member.get("bit_offset") - bits if bits else 0
            offset = member.get("data_member_location", ("plus", 0))[1]
            yield member.get("name"), type_text(member.get("type")), offset, size, low, bits

    @for_each_run
    def test_structures(self, run, dwarf):
        """Those of the facts and no others; units repeat what they share."""
        keys = ("name", "type", "offset", "size", "bit_offset", "bit_size")
        actual, expected = set(), set()
        for die in dwarf.all_dies():
            if die.tag in COMPOUNDS and die.children:
                tag, size = tag_of(die), die.get("byte_size")
                actual.add((COMPOUNDS[die.tag], tag, size, tuple(self.member_facts(die))))
            elif die.tag in COMPOUNDS:
                self.assertEqual(die.get("byte_size"), 1)  # one byte for what was only declared
        for fact in self.facts["structs"]:
            shape = tuple(tuple(member[key] for key in keys) for member in fact["members"])
            if fact["elf"]:
                expected.add((fact["kind"], fact["tag"], fact["size"], shape))
        self.assertEqual(actual, expected)

    @for_each_run
    def test_enumerations(self, run, dwarf):
        actual, expected = set(), set()
        for die in dwarf.all_dies():
            if die.tag == "enumeration_type":
                values = tuple((child.get("name"), child.get("const_value")) for child in die.children)
                actual.add((tag_of(die), die.get("byte_size"), values))
        for fact in self.facts["enums"]:
            values = tuple((name, value & 0xFFFFFFFF) for name, value in fact["members"])
            if fact["elf"]:
                expected.add((fact["tag"], fact["size"], values))
        self.assertEqual(actual, expected)


def test_class(folder, facts):
    name = "".join(letter if letter.isalnum() else "_" for letter in folder.name)
    return type(name, (Sample, judging.Judge), {"folder": folder, "facts": facts, "__module__": __name__})


def test_classes():
    found = [test_class(judging.samples_folder() / "blink", BLINK)]
    shared = judging.shared_samples_folder()
    if shared is None:
        print("no folder of further sample programs: blink alone is judged", flush=True)
        return found
    for path in sorted(shared.glob("*/facts.json")):
        found.append(test_class(path.parent, json.loads(path.read_text())))
    return found


for made in test_classes():
    globals()[made.__name__] = made
del made


if __name__ == "__main__":
    judging.main()

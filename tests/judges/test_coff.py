#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""COFF outputs of every sample program: each file is followed through all its links by coff_checker, and what a
program's facts.json tells of functions, variables, types, symbols and lines is found again.

The programs are those of test_samples. Of their command lines those that make a COFF file of the map file and the image
are run.
"""

import json
import re
import shlex
import shutil

import judging
from coff_checker import (
    BIT_FIELD,
    EXTERNAL,
    EXTERNAL_DEFINITION,
    LABEL,
    STATIC,
    STRUCT_TAG,
    VARIABLES,
    CoffFile,
    base,
    derivations,
)

BLINK = "-pN4A,1234,{} --code-spaces=1 --data-spaces=2 blink.hex blink.tmf -ovcoff blink.cof"
COMMANDS = {"blink": [f"{flags} {BLINK.format(word)}" for flags, word in (
    ("", "KOR18"), ("-m", "KOR18"), ("", "KOR14"), ("-m -b", "KOR16"), ("-k", "KOR12"),
)]}  # fmt: skip

GENERATED_NAME = re.compile(r"\.u\d+$")
ASSEMBLER = (".s", ".S", ".as", ".asm", ".sx")


def command_lines(folder):
    """The arguments of the runs, the plain one first."""
    lines = [shlex.split(line) for line in COMMANDS.get(folder.name, [])]
    if (folder / "cmd.txt").is_file():
        for line in (folder / "cmd.txt").read_text(judging.ENCODING).splitlines():
            words = shlex.split(line)
            inputs = [word.rpartition(".")[2] for word in words[1:] if word[0] != "-"]
            if words[0] == "tarnwick" and "-ovcoff" in words and set(inputs[:2]) == {"hex", "tmf"}:
                lines.append(words[1:])
    if not lines:
        raise ValueError(f"{folder}: no command line")
    return lines


# --- C types as text --------------------------------------------------------------------------------------------------

INTEGERS = {
    "signed char": "char", "unsigned char": "uchar", "_Bool": "uchar",
    "int": "int", "short int": "int", "unsigned int": "uint", "short unsigned int": "uint",
    "short long int": "slong", "short long unsigned int": "uslong",
    "long int": "long", "long unsigned int": "ulong", "long long int": "long", "long long unsigned int": "ulong",
}  # fmt: skip
# No size of a float is 3 here: the samples' compiler was run with four-byte floats.
OTHERS = {"void": "void", "float": "double", "double": "double"}


class CType:
    """A type as the facts tell it: its base, its derivations from the outermost inward, and its dimensions."""

    def __init__(self, text):
        self.chain, self.dimensions = [], []
        text = re.sub(r"\{[^}]*\}(:\d+)?", "{}", text)
        name = re.match(r"(?:[A-Za-z_]\w*|\{\})(?:\s+(?:[A-Za-z_]\w*|\{\}))*", text).group()
        self.rest = text[len(name) :].replace("const", "").replace("volatile", "").replace(" ", "")
        self.declarator()
        if self.rest:
            raise ValueError(f"cannot read the type {text}")
        words = [word for word in name.split() if word not in ("const", "volatile")]
        self.base = {"struct": "struct", "union": "struct", "enum": "char"}.get(words[0])
        if self.base is None:
            self.base = (INTEGERS | OTHERS)[" ".join(words)]

    def declarator(self):
        """Reads an abstract declarator: what stands nearest to the middle is outermost."""
        pointers = re.match(r"\**", self.rest).group()
        self.rest = self.rest[len(pointers) :]
        if self.rest.startswith("(") and not self.rest.startswith("()"):
            self.rest = self.rest[1:]
            self.declarator()
            if not self.rest.startswith(")"):
                raise ValueError("an open parenthesis")
            self.rest = self.rest[1:]
        while suffix := re.match(r"\(\)|\[(\d*)\]", self.rest):
            self.rest = self.rest[suffix.end() :]
            if suffix.group() == "()":
                self.chain.append("function")
            else:
                self.chain.append("array")
                self.dimensions.append(int(suffix.group(1) or 0))
        self.chain += ["pointer"] * len(pointers)


def type_of(symbol):
    return base(symbol.type), derivations(symbol.type)


# --- the tests --------------------------------------------------------------------------------------------------------


class CoffProgram:
    """The tests of any program; mixed into a class that knows its `folder`."""

    folder = None

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        for path in cls.folder.iterdir():
            if path.is_file():
                shutil.copyfile(path, cls.scratch / path.name)
        cls.runs = []
        for number, arguments in enumerate(command_lines(cls.folder)):
            outcome = judging.run([judging.program(), *arguments], cls.scratch)
            made = cls.scratch / arguments[-1]
            made = made if made.suffix else made.with_suffix(".cof")
            kept = cls.scratch / f"kept-{number}"
            if made.exists():
                made.rename(kept)
            cls.runs.append((arguments, outcome, CoffFile(kept.read_bytes()) if kept.exists() else None))

    def plain(self):
        return self.runs[0][2]

    def test_every_run_says_nothing_and_succeeds(self):
        for arguments, outcome, coff in self.runs:
            with self.subTest(" ".join(arguments)):
                told = (outcome.stdout + outcome.stderr).decode(judging.ENCODING)
                self.assertEqual((outcome.returncode, told), (0, ""))
                self.assertIsNotNone(coff)

    def test_everything_in_the_files_fits_together(self):
        for arguments, _, coff in self.runs:
            with self.subTest(" ".join(arguments)):
                self.assertEqual(coff.faults, [])
                self.assertGreater(len(coff.symbols), 0)

    def test_only_names_of_files_without_symbols_are_left_over(self):
        """A .file that was taken back leaves its string; of arrays and tags that are dropped the samples have none."""
        for arguments, _, coff in self.runs:
            with self.subTest(" ".join(arguments)):
                for text in coff.unused_strings():
                    self.assertRegex(text, r"\\.*\.h$")

    def test_the_sections_hold_the_image(self):
        for arguments, _, coff in self.runs:
            with self.subTest(" ".join(arguments)):
                (path,) = self.folder.glob("*.hex")
                source = judging.intel_hex_bytes(path.read_text(judging.ENCODING))
                self.assertEqual(coff.image(), source)

    def test_the_header_tells_the_chip(self):
        for arguments, _, coff in self.runs:
            with self.subTest(" ".join(arguments)):
                words = next(word for word in arguments if word.startswith("-p"))[2:].split(",")
                self.assertEqual(coff.processor, int(words[1], 16))
                widths = {"KOR12": 12, "KOR14": 14, "KOR16": 16, "KOR18": 8}
                self.assertEqual((coff.rom_width, coff.ram_width), (self.rom_width(words, widths), 8))

    def rom_width(self, words, widths):
        if len(words) > 2 and words[2] in widths:
            return widths[words[2]]
        return 8 if words[0][1] == "8" else 0

    def test_without_leading_underscores_the_rest_is_the_same(self):
        """-m changes names and nothing but names, and at most one character of each."""
        stripped = [(arguments, coff) for arguments, _, coff in self.runs if "-m" in arguments]
        self.assertGreater(len(stripped), 0)
        for arguments, coff in stripped:
            plain_arguments = sorted(word for word in arguments[:-1] if word != "-m")
            twins = [other for arguments, _, other in self.runs if sorted(arguments[:-1]) == plain_arguments]
            if not twins:
                continue
            for plain, bare in zip(twins[0].symbols, coff.symbols, strict=True):
                self.assertEqual((plain.index, plain.value, plain.section, plain.type, plain.cls),
                                 (bare.index, bare.value, bare.section, bare.type, bare.cls))  # fmt: skip
                keeps = plain.cls in (STRUCT_TAG, BIT_FIELD) or not plain.name.startswith("_")
                self.assertEqual(bare.name, plain.name if keeps else plain.name[1:])


class CoffFacts(CoffProgram):
    """The tests of a program that comes with facts, in its plain run."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.facts = json.loads((cls.folder / "facts.json").read_text())

    def path_of(self, name):
        """A source file's name as the output has it."""
        return name.replace("/", "\\")

    def file_around(self, index):
        files = self.plain().files()
        return files[max(at for at in files if at < index)]

    def assert_type(self, symbol, text, size):
        wanted = CType(text)
        self.assertEqual(type_of(symbol), (wanted.base, wanted.chain), text)
        if wanted.dimensions:
            self.assertEqual([one for one in symbol.aux.dimensions if one], wanted.dimensions)
        if wanted.chain[:1] == ["array"] or (wanted.base == "struct" and not wanted.chain):
            of_struct = wanted.base == "struct" and "pointer" in wanted.chain
            if not of_struct:  # an array of pointers to a struct counts the struct's size
                self.assertEqual(symbol.aux.size, size)

    def test_functions(self):
        coff = self.plain()
        brackets = {own.name: (own, first, last) for own, first, last in coff.functions() if own is not None}
        self.assertGreater(len(self.facts["functions"]), 0)
        for function in self.facts["functions"]:
            with self.subTest(function["name"]):
                entries = coff.named(function["label"], VARIABLES)
                self.assertGreaterEqual(len(entries), 2)  # as a member and with its block
                for entry in entries:
                    self.assertEqual(entry.value, function["low"])
                    self.assertEqual(entry.cls, EXTERNAL if function["external"] else STATIC)
                    self.assert_type(entry, function["type"], 0)
                own, first, last = brackets[function["label"]]
                self.assertEqual((own.index, own.section), (entries[-1].index, first.section))
                self.assertEqual((first.value, last.value), (function["low"], function["high"]))
                self.assertEqual((first.aux.line, last.aux.line), (function["line"], function["last_line"]))
                self.assertEqual(self.file_around(first.index), self.path_of(function["file"]))

    def test_variables(self):
        coff = self.plain()
        for variable in self.facts["variables"]:
            with self.subTest(variable["name"]):
                named = coff.named(variable["coff_name"], VARIABLES)
                found = [one for one in named if one.value == variable["address"]]
                self.assertGreater(len(found), 0)
                for symbol in found:
                    classes = (EXTERNAL, EXTERNAL_DEFINITION) if variable["external"] else (STATIC,)
                    self.assertIn(symbol.cls, classes)
                self.assert_type(found[-1], variable["type"], variable["size"])

    def test_locals(self):
        """Locals stand within their function, parameters in front of its block; a register is no location."""
        coff = self.plain()
        brackets = {own.name: (first, last) for own, first, last in coff.functions() if own is not None}
        self.assertGreater(len(self.facts["locals"]), 0)
        for local in self.facts["locals"]:
            with self.subTest(function=local["function"], name=local["name"]):
                first, last = brackets[local["function"]]
                inside = [one for one in coff.symbols if first.index < one.index < last.index]
                found = [one for one in inside if one.name == local["coff_name"] and one.cls in VARIABLES]
                # An auto of the compiled stack goes by its symbol's address, whatever offset stands with it.
                known = [local["loc"]] if local["loc"][0] == "addr" else local["locs"]
                places = [place[1] for place in known if place[0] != "reg"]
                if not places:
                    self.assertEqual(found, [])
                    continue
                found = [one for one in found if one.value == places[0] & 0xFFFFFFFF]
                depths = [self.depth(one, inside) for one in found]
                self.assertIn(local["depth"] + (0 if local["kind"] == "param" else 1), depths)
                symbol = found[depths.index(local["depth"] + (0 if local["kind"] == "param" else 1))]
                self.assertEqual(symbol.cls, STATIC)
                self.assert_type(symbol, local["type"], local["size"])

    def depth(self, symbol, inside):
        before = [one.name for one in inside if one.index < symbol.index]
        return before.count(".bb") - before.count(".eb")

    def test_structs(self):
        """Each struct that an output can hold has a tag, which equal structs share; only recursive ones are distinct
        from module to module."""
        coff = self.plain()
        tags = [one for one in coff.symbols if one.cls == STRUCT_TAG and one.section == 0]
        for struct in self.facts["structs"]:
            names = [member["name"] for member in struct["members"]]
            found = [tag for tag in tags if self.is_tag(tag, struct["tag"])]
            found = [tag for tag in found if [member.name for member in coff.members(tag)] == names]
            with self.subTest(struct["tag"], size=struct["size"]):
                if struct["coff"]:
                    self.assertGreater(len(found), 0)
                for tag in found:
                    self.assertEqual(tag.aux.size, struct["size"])
                    for symbol, member in zip(coff.members(tag), struct["members"], strict=True):
                        self.check_member(symbol, member)
                if len(found) > 1:
                    self.assertTrue(all(tag.index in [m.aux.tag for m in coff.members(tag) if m.aux] for tag in found))

    def is_tag(self, symbol, tag):
        return GENERATED_NAME.match(symbol.name) is not None if tag is None else symbol.name == tag

    def check_member(self, symbol, member):
        if member["bit_size"]:
            self.assertEqual((symbol.cls, symbol.aux.size), (BIT_FIELD, member["bit_size"]))
            self.assertEqual(symbol.value, member["offset"] * 8 + member["bit_offset"])
        else:
            self.assertEqual(symbol.value, member["offset"])
            self.assert_type(symbol, member["type"], member["size"])

    def test_symbols(self):
        """Each symbol of the program stands there, as a label when no variable has its name, and labels are symbols."""
        coff = self.plain()
        for symbol in self.facts["symbols"]:
            with self.subTest(symbol["name"]):
                found = coff.named(symbol["name"], VARIABLES | {LABEL})
                self.assertIn(symbol["value"], [one.value for one in found])
        labels = [one.name for one in coff.symbols if one.cls == LABEL]
        self.assertEqual(len(labels), len(set(labels)))
        self.assertLessEqual(set(labels), {symbol["name"] for symbol in self.facts["symbols"]})
        self.assertEqual(set(labels) & set(self.facts["dropped_symbols"]), set())

    def test_data_segments(self):
        sections = {section.name: section for section in self.plain().sections}
        code = next(word for word in self.runs[0][0] if word.startswith("--code-spaces")).partition("=")[2]
        checked = 0
        for segment in self.facts["segments"]:
            if str(segment["space"]) in code.split(","):
                continue
            with self.subTest(segment["name"]):
                section = sections[segment["name"]]
                self.assertEqual((section.paddr, section.size, section.flags), (segment["link"], segment["size"], 0x80))
                checked += 1
        self.assertGreater(checked, 0)

    def test_lines(self):
        """Each line of a function stands in the section of its function, and each line of assembler in that of its
        address. A function in a section that has no data has none."""
        coff = self.plain()
        files = coff.files()
        written = {(line.line, line.paddr) for section in coff.sections for line in section.lines}
        blocks = {section.number for section in coff.sections if section.is_block}
        spans = [
            (self.file_around(first.index), first.aux.line, last.aux.line)
            for _, first, last in coff.functions()
            if first.section in blocks
        ]
        for name, line, address in self.facts["lines"]:
            if not (name.startswith("/") or name[1:2] == ":"):
                continue  # a relative name is not that of the function's file
            path = self.path_of(name)
            due = any(file == path and low <= line <= high for file, low, high in spans)
            if due or (name.endswith(ASSEMBLER) and address != 0):
                with self.subTest(path, line=line):
                    self.assertIn((line, address), written)
        # A record that names a function is one of a line of it, in a section that the function is in.
        told = {(self.path_of(name), line) for name, line, _ in self.facts["lines"]}
        bounds = {own.index: (first.section, first.aux.line, last.aux.line) for own, first, last in coff.functions()}
        for section in coff.sections:
            for line in section.lines:
                # The first .file has the index 0, which means no file as well.
                self.assertIn((files[line.srcndx], line.line), told)
                if line.fcnndx:
                    number, low, high = bounds[line.fcnndx]
                    self.assertTrue(number == section.number and low <= line.line <= high, line)


class Checker(judging.Judge):
    """The checker itself: whatever link of a good file is bent, it must notice."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        folder = judging.samples_folder() / "blink"
        for name in ("blink.hex", "blink.tmf", "main.sdb", "led.sdb", "timer.sdb"):
            shutil.copyfile(folder / name, cls.scratch / name)

    def good_file(self):
        self.run_silently(shlex.split(COMMANDS["blink"][0]))
        content = (self.scratch / "blink.cof").read_bytes()
        self.assertEqual(CoffFile(content).faults, [])
        return content

    def links_of(self, coff):
        """(place, size) of what ties the parts of a file together, by name."""
        links = {"magic": (1, 1), "sections": (2, 2), "symptr": (8, 4), "nsyms": (12, 4)}
        links |= {"opthdr": (16, 2), "flags": (18, 2)}
        for section in coff.sections:
            at = 38 + 40 * (section.number - 1)
            for name, offset in (("vaddr", 12), ("scnptr", 20), ("relptr", 24), ("lnnoptr", 28), ("flags", 36)):
                links[f"{name} of {section.name}"] = (at + offset, 4)
            if section.is_block:
                links[f"size of {section.name}"] = (at + 16, 4)
            if section.lines:
                links[f"lines of {section.name}"] = (at + 34, 2)
            for number, line in enumerate(section.lines):
                links[f"srcndx of {section.name} {number}"] = (section.lnnoptr + 16 * number, 4)
                if line.fcnndx:
                    links[f"fcnndx of {section.name} {number}"] = (section.lnnoptr + 16 * number + 12, 4)
        for symbol in coff.symbols:
            at = coff.symptr + 20 * symbol.index
            if len(symbol.name) > 8:
                links[f"name of {symbol.index}"] = (at + 4, 4)
            if symbol.aux:
                links[f"count of {symbol.index}"] = (at + 19, 1)
            is_struct = symbol.cls in VARIABLES and base(symbol.type) == "struct"
            if is_struct or symbol.name in (".eos", ".file") or symbol.cls == STRUCT_TAG:
                links[f"tag or string of {symbol.index}"] = (at + 20, 4)
            if symbol.name in (".bf", ".bb") or symbol.cls == STRUCT_TAG:
                links[f"end of {symbol.index}"] = (at + 20 + 12, 4)
        links["size of the string table"] = (coff.symptr + 20 * coff.nsyms, 4)
        return links

    def test_every_bent_link_is_noticed(self):
        content = self.good_file()
        links = self.links_of(CoffFile(content))
        self.assertGreater(len(links), 100)
        for name, (at, size) in links.items():
            with self.subTest(name):
                value = int.from_bytes(content[at : at + size], "little") + 1
                bent = content[:at] + value.to_bytes(size, "little") + content[at + size :]
                self.assertNotEqual(CoffFile(bent).faults, [])

    def test_cut_files_are_noticed(self):
        content = self.good_file()
        for length in range(0, len(content), 7):
            with self.subTest(length):
                self.assertNotEqual(CoffFile(content[:length]).faults, [])


judging.judge_samples(
    __name__, lambda folder: CoffFacts if (folder / "facts.json").is_file() else CoffProgram
)


if __name__ == "__main__":
    judging.main()

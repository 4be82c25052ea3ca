# SPDX-License-Identifier: MIT
"""The format pages: what they show is what the program does today, and they turn into manual pages without a warning.

A page is checked where a comment stands in front of its code:

    <!-- file NAME -->            the code is the content of NAME, for a run that follows
    <!-- binary NAME -->          likewise, told in bytes
    <!-- run [STATUS] ARGUMENT... -->   the program is run in a scratch copy of samples/blink; STATUS is 0 unless told
    <!-- bytes NAME -->           NAME has these bytes at these offsets
    <!-- lines NAME -->           NAME has these lines, one behind the other; a line "..." stands for any lines
    <!-- pattern NAME -->         likewise, with any number for a number and any blanks for blanks
    <!-- package NAME -->         the zip file has these members, and each holds what the file of its name does

NAME may be "output" or "reports": what the last run printed on its standard output or error stream. A line of bytes is
an offset, two blanks, the bytes, and a remark behind two or more blanks.
"""

import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import unittest
import zipfile
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
FORMATS = ROOT / "docs" / "formats"
DOCUMENTS = [ROOT / "docs" / "README.md", *sorted(FORMATS.glob("*.md"))]
PAGES = sorted(FORMATS.glob("*.5.md"))
PAGE_NAMES = {
    "tarnwick-" + name + ".5.md"
    for name in ["map", "sdb", "orbell", "hex", "coff", "elf", "dwarf", "ubrof", "catalogue", "trace"]
}
FIRST_SECTIONS = ["NAME", "DESCRIPTION"]
LAST_SECTIONS = ["EXAMPLE", "DIAGNOSTICS", "SEE ALSO"]
LINE_WIDTH = 72  # of code, so that it fits a terminal's 80 columns with its indentation
PRINTED_WIDTH = 80  # of what the program prints
DIRECTIVE = re.compile(r"<!-- (file|binary|run|bytes|lines|pattern|package) (.+?) -->$")
BYTES_LINE = re.compile(r"([0-9A-F]{4,8})  ((?:[0-9A-F]{2}(?: (?! )|(?=  )|$))+)(?:\s+\S.*)?$")
CHECKS = {"bytes", "lines", "pattern", "package"}
TIMEOUT_SECONDS = 60

sys.dont_write_bytecode = True
sys.path.insert(0, str(ROOT / "docs"))
import md2man  # noqa: E402


def program():
    path = os.environ.get("TARNWICK")
    if not path:
        raise unittest.SkipTest("TARNWICK does not name the program")
    return str(Path(path).resolve())


def headings_of(text):
    return [line[3:] for line in without_code(text).splitlines() if line.startswith("## ")]


def without_code(text):
    return re.sub(r"^```.*?^```$", "", text, flags=re.MULTILINE | re.DOTALL)


def parse_bytes(line):
    """The offset and the bytes of a line of bytes, or None."""
    mark = BYTES_LINE.match(line)
    return (int(mark.group(1), 16), bytes.fromhex(mark.group(2))) if mark else None


def blocks_of_code(text):
    """Each block of code with the directive in front of it, or None; runs come with no code."""
    lines = text.splitlines()
    at, directive = 0, None
    while at < len(lines):
        mark = DIRECTIVE.match(lines[at])
        if mark and mark.group(1) == "run":
            yield ("run", mark.group(2)), [], at + 1
        elif mark:
            directive = mark.groups()
        elif lines[at].startswith("```"):
            end = at + 1
            while lines[end] != "```":
                end += 1
            yield directive, lines[at + 1 : end], at + 1
            at, directive = end, None
        elif directive:
            raise AssertionError(f"line {at + 1}: no code behind the directive")
        at += 1


class Examples:
    """Runs the examples of one page, in their order."""

    def __init__(self, scratch):
        self.scratch = scratch

    def check(self, directive, code):
        kind, argument = directive
        getattr(self, kind)(argument, code)

    def run(self, argument, _code):
        words = shlex.split(argument)
        status = int(words.pop(0)) if words[0].isdigit() else 0
        environment = {k: v for k, v in os.environ.items() if k.endswith("SAN_OPTIONS") or k == "PATH"}
        environment.update(LC_ALL="C", TZ="UTC", SOURCE_DATE_EPOCH="0")
        done = subprocess.run(
            [program(), *words],
            cwd=self.scratch,
            env=environment,
            stdin=subprocess.DEVNULL,
            capture_output=True,
            timeout=TIMEOUT_SECONDS,
        )
        (self.scratch / "output").write_bytes(done.stdout)
        (self.scratch / "reports").write_bytes(done.stderr)
        if done.returncode != status:
            raise AssertionError(f"status {done.returncode} and not {status}: {argument}\n{done.stderr.decode()}")

    def file(self, name, code):
        (self.scratch / name).write_text("\n".join(code) + "\n", encoding="latin-1")

    def binary(self, name, code):
        content = bytearray()
        for line in code:
            offset, data = parse_bytes(line)
            if offset != len(content):
                raise AssertionError(f"offset {offset:X} and not {len(content):X}: {line}")
            content += data
        (self.scratch / name).write_bytes(content)

    def bytes(self, name, code):
        content = (self.scratch / name).read_bytes()
        for line in code:
            if line == "...":
                continue
            told = parse_bytes(line)
            if told is None:
                raise AssertionError(f"not a line of bytes: {line!r}")
            offset, data = told
            found = content[offset : offset + len(data)]
            if found != data:
                raise AssertionError(f"{name} at {offset:X}: {found.hex(' ')} and not {data.hex(' ')}")

    def lines(self, name, code, same=str.__eq__):
        content = (self.scratch / name).read_text(encoding="latin-1").splitlines()
        at = 0
        for run in runs_between_dots(code):
            while not all(map(same, run, content[at : at + len(run)])) or len(content) - at < len(run):
                at += 1
                if at >= len(content):
                    raise AssertionError(f"{name} has no such lines (or no longer in this order):\n" + "\n".join(run))
            at += len(run)

    def pattern(self, name, code):
        def same(shown, found):
            parts = [re.escape(part) for part in re.split(r"[0-9]+", re.sub(r" +", " ", shown))]
            return re.fullmatch("[0-9]+".join(parts).replace(r"\ ", " +"), found) is not None

        self.lines(name, code, same)

    def package(self, name, code):
        with zipfile.ZipFile(self.scratch / name) as archive:
            if archive.testzip() is not None or archive.namelist() != code:
                raise AssertionError(f"{name} holds {archive.namelist()} and not {code}")
            for member in code:
                if archive.read(member) != (self.scratch / member).read_bytes():
                    raise AssertionError(f"{name}: {member} differs from the file")


def runs_between_dots(code):
    run = []
    for line in [*code, "..."]:
        if line != "...":
            run.append(line)
        elif run:
            yield run
            run = []


class PagesAreWhole(unittest.TestCase):
    def test_every_format_has_its_page(self):
        self.assertEqual({page.name for page in PAGES}, PAGE_NAMES)

    def test_sections(self):
        for page in PAGES:
            with self.subTest(page=page.name):
                headings = headings_of(page.read_text(encoding="utf-8"))
                self.assertEqual(headings[:2], FIRST_SECTIONS)
                self.assertEqual(headings[-3:], LAST_SECTIONS)

    def test_names(self):
        for page in PAGES:
            with self.subTest(page=page.name):
                name = page.name.removesuffix(".5.md")
                text = page.read_text(encoding="utf-8")
                self.assertTrue(text.startswith(f"# {name}(5)\n"))
                self.assertRegex(text, rf"\n## NAME\n\n{name} - [a-zA-Z]")

    def test_code_fits_a_terminal(self):
        for page in PAGES:
            for directive, code, line in blocks_of_code(page.read_text(encoding="utf-8")):
                printed = directive in [("lines", "output"), ("lines", "reports")]
                with self.subTest(page=page.name, line=line):
                    self.assertLessEqual(max(map(len, code), default=0), PRINTED_WIDTH if printed else LINE_WIDTH)

    def test_links(self):
        for document in DOCUMENTS:
            text = without_code(document.read_text(encoding="utf-8"))
            for target in re.findall(r"\]\(([^)]+)\)", re.sub(r"`[^`]*`", "", text)):
                with self.subTest(page=document.name, link=target):
                    self.assertNotIn("://", target)
                    self.assertTrue((document.parent / target.partition("#")[0]).exists())

    def test_the_index_names_every_page(self):
        index = (ROOT / "docs" / "README.md").read_text(encoding="utf-8")
        for page in PAGES:
            self.assertIn(f"(formats/{page.name})", index)


class PagesAreTrue(unittest.TestCase):
    def test_examples(self):
        """Each page in a scratch folder of its own, which begins as a copy of the sample."""
        program()
        for page in PAGES:
            with tempfile.TemporaryDirectory() as folder:
                scratch = Path(folder) / "blink"
                shutil.copytree(ROOT / "samples" / "blink", scratch)
                examples, checks = Examples(scratch), 0
                for directive, code, line in blocks_of_code(page.read_text(encoding="utf-8")):
                    if directive:
                        checks += directive[0] in CHECKS
                        with self.subTest(page=page.name, line=line):
                            examples.check(directive, code)
                self.assertGreater(checks, 0, f"{page.name} shows nothing that is checked")

    def test_bytes_are_never_shown_unchecked(self):
        for page in PAGES:
            for directive, code, line in blocks_of_code(page.read_text(encoding="utf-8")):
                with self.subTest(page=page.name, line=line):
                    if any(parse_bytes(shown) for shown in code):
                        self.assertIsNotNone(directive)

    def test_messages_are_those_of_the_catalogue(self):
        catalogue = built_in_catalogue()
        for page in PAGES:
            rows = re.findall(
                r"^\| (\d+) \| (fatal|error|message|warning -?\d+) \| `(.*?)` \|", page.read_text("utf-8"), re.M
            )
            for number, severity, text in rows:
                with self.subTest(page=page.name, message=number):
                    self.assertEqual(catalogue.get(int(number)), (severity, text))


def built_in_catalogue():
    source = (ROOT / "common" / "catalogue_rows.cpp").read_text(encoding="utf-8")
    row = re.compile(r'^ +(fatal|error|message|warning)\((\d+), (?:(-?\d+), )?\s*"((?:[^"\\]|\\.)*)"\)', re.M)
    return {
        int(number): (f"{kind} {level}" if level else kind, text.replace('\\"', '"'))
        for kind, number, level, text in row.findall(source)
    }


class ManualPages(unittest.TestCase):
    def test_all_convert_and_print_without_a_warning(self):
        groff = shutil.which("groff")
        for page in PAGES:
            with self.subTest(page=page.name):
                text = md2man.man_page(
                    page.read_text(encoding="utf-8"), "5", page.name.removesuffix(".5.md"), "Tarnwick", "Formats"
                )
                self.assertTrue(text.isascii())
                if groff:
                    done = subprocess.run(
                        [groff, "-man", "-t", "-Tutf8", "-ww", "-z"], input=text, capture_output=True, text=True
                    )
                    self.assertEqual((done.returncode, done.stderr), (0, ""))
        if not groff:
            self.skipTest("groff is not installed: pages were converted and not printed")

    def test_the_converter_refuses_what_it_does_not_know(self):
        for text in ["> quote", "    indented", "| a |\nno rule", "```\nno end", "| a |\n|---|\n| b | c |", "#bad"]:
            with self.subTest(text=text):
                with self.assertRaises(md2man.PageError):
                    md2man.man_page(text, "5", "x", "", "")

    def test_marks(self):
        for markdown, roff in [
            ("`-a 'b'`", r"\%\fB\-a\ \(aqb\(aq\fR"),
            ("**bold** and *italic*", r"\fBbold\fR and \fIitalic\fR"),
            ("[tarnwick-elf(5)](tarnwick-elf.5.md)", r"\%\fBtarnwick\-elf\fR(5)"),
            ("a \\* b", "a * b"),
            (".start", r"\&.start"),
            ("back\\\\slash", r"back\eslash"),
        ]:
            with self.subTest(markdown=markdown):
                self.assertEqual(md2man.man_page(markdown, "5", "x", "", "").splitlines()[2:], [roff])

    def test_tables_fit_the_page(self):
        rows = "| a | b |\n|---|---|\n| 0 | " + "word " * 40 + "|\n"
        widths, wrapped = md2man.column_widths([["a", "b"], ["0", "word " * 40]])
        self.assertLessEqual(sum(widths) + md2man.COLUMN_GAP, md2man.TEXT_WIDTH)
        self.assertEqual(wrapped, [False, True])
        self.assertIn("T{\nword", md2man.man_page(rows, "5", "x", "", ""))


class TheChecksCanFail(unittest.TestCase):
    """A check that lets everything pass is worse than none."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.examples = Examples(Path(folder.name))
        self.examples.binary("b", ["0000  01 02 03  remark", "0003  04"])
        self.examples.file("t", ["one 17", "two", "three"])

    def test_bytes(self):
        self.examples.bytes("b", ["0001  02 03 04   the rest"])
        for line in ["0001  02 03 05", "0003  04 00", "0010  01"]:
            with self.assertRaises(AssertionError):
                self.examples.bytes("b", [line])

    def test_lines(self):
        self.examples.lines("t", ["one 17", "...", "three"])
        for code in [["one 17", "three"], ["three", "...", "two"], ["one 18"], ["three", "four"]]:
            with self.assertRaises(AssertionError):
                self.examples.lines("t", code)

    def test_pattern(self):
        self.examples.pattern("t", ["one   5", "two"])
        for code in [["one x"], ["two", "two"]]:
            with self.assertRaises(AssertionError):
                self.examples.pattern("t", code)

    def test_package(self):
        with zipfile.ZipFile(self.examples.scratch / "z", "w") as archive:
            archive.write(self.examples.scratch / "b", "b")
            archive.write(self.examples.scratch / "b", "t")
        for code in [["b"], ["t", "b"], ["b", "t"]]:
            with self.assertRaises(AssertionError):
                self.examples.package("z", code)

    def test_the_catalogue_is_found(self):
        self.assertEqual(built_in_catalogue()[636], ("warning 0", 'checksum error in Intel HEX file "%s" on line %d'))
        self.assertGreater(len(built_in_catalogue()), 80)


if __name__ == "__main__":
    unittest.main()

#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The reference is whole and right: manual page, completion, usage text and messages beside the sources they tell of.

What options, messages and variables there are is read from the sources here, and not from the program that makes the
reference, so that one that leaves something out is found.

Environment: TARNWICK, the program; TARNWICK_REFERENCE, the folder of what was made in the build; TARNWICK_SOURCE, the
root of the repository.
"""

import os
import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

PROGRAM = Path(os.environ["TARNWICK"]).resolve()
MADE = Path(os.environ["TARNWICK_REFERENCE"])
ROOT = Path(os.environ["TARNWICK_SOURCE"])

WRITTEN_FORMATS = {"orbell", "ihex", "s19", "vcoff", "elf"}
ALL_FORMATS = WRITTEN_FORMATS | {"tarnsym", "ubrof"}

# A value for each option that wants one.
VALUES = {
    "o": "elf",
    "i": "ihex",
    "p": "N4A",
    "s": "1,ram:0@BANK=0-7",
    "w": "0",
    "edf": "no-such-file",
    "emax": "3",
    "msgdisable": "634",
    "dwarf-use-ranges": "auto",
    "dwarf-use-loclists": "always",
    "dwarf-addr-size": "4",
    "psect-flags": "text=x",
    "code-delta": "2",
    "zrdebug": "assert:ignore",
    "code-spaces": "1",
    "data-spaces": "2",
    "eeprom-spaces": "3",
}


def source(name):
    return (ROOT / name).read_text(encoding="utf-8")


def sources():
    for folder in ["common", "compiler"]:
        for path in sorted((ROOT / folder).rglob("*.cpp")):
            yield path.read_text(encoding="utf-8")


def literal(text):
    """The value of adjacent string literals of C++."""
    content = "".join(re.findall(r'"((?:[^"\\]|\\.)*)"', text))
    return content.replace('\\"', '"').replace("\\n", "").replace("\\\\", "\\")


class Option:
    def __init__(self, row):
        def field(name, pattern):
            found = re.search(rf"\.{name} = {pattern}", row)
            return found.group(1) if found else None

        self.name = field("name", r'"([^"]*)"')
        self.match = field("match", r"(\w+)")
        self.form = field("form", r'"([^"]*)"')
        self.forms = (field("all_forms", r'"([^"]*)"') or self.form).split(", ")
        self.help = literal(field("help", r'((?:"(?:[^"\\]|\\.)*"\s*)+)'))
        self.has_argument = field("argument", r"option_argument::(\w+)") is not None
        self.argument_optional = field("argument_optional", r"(true)") is not None
        self.for_support = field("audience", r"option_audience::(SUPPORT)") is not None
        self.usage_line = int(field("usage_line", r"(\d+)") or 0)

    @property
    def is_offered(self):
        return self.match != "NEVER" and not self.for_support

    @property
    def bare(self):
        return ("-" if self.match == "LETTER" else "--") + self.name

    @property
    def completions(self):
        """The words that stand for the option in a list of options."""
        if self.match == "LETTER" or not self.has_argument:
            return {self.bare}
        return {self.bare, self.bare + "="} if self.argument_optional else {self.bare + "="}

    @property
    def sample(self):
        sign = "" if self.match == "LETTER" else "="
        return self.bare + (sign + VALUES[self.name] if self.name in VALUES else "")


def read_options():
    table = source("compiler/tarnwick/option_table.cpp")
    rows = re.split(r"\{(?=\s*\.name = )", table[: table.index("static_assert")])[1:]
    return [Option(row) for row in rows]


OPTIONS = read_options()
OFFERED = {option.bare for option in OPTIONS if option.is_offered}


def run(arguments, **more):
    return subprocess.run(arguments, capture_output=True, text=True, timeout=60, check=False, **more)


def tarnwick(*arguments, folder=None):
    return run([str(PROGRAM), *arguments], cwd=folder, stdin=subprocess.DEVNULL)


def manual_page():
    """The page as it is made, section by section, without its marks of fonts."""
    text = (MADE / "tarnwick.1").read_text(encoding="ascii")
    text = re.sub(r"\\f[BIR]|\\[%&:|]", "", text)
    for mark, character in {"\\-": "-", "\\(aq": "'", "\\(ti": "~", "\\(ha": "^", "\\ ": " "}.items():
        text = text.replace(mark, character)
    sections = {}
    for part in re.split(r"^\.SH ", text, flags=re.MULTILINE)[1:]:
        head, _, body = part.partition("\n")
        sections[head.strip('"')] = body
    return sections


def terms(section):
    """The heads of a section's definitions."""
    return re.findall(r"^\.TP.*\n(.*)$", section, flags=re.MULTILINE)


class TheTable(unittest.TestCase):
    def test_it_was_read(self):
        self.assertGreaterEqual(len(OPTIONS), 34)
        names = [option.name for option in OPTIONS]
        self.assertEqual(len(names), len(set(names)))
        self.assertEqual(names.count("force-emachine"), 1)

    def test_the_program_takes_each_option(self):
        image = ROOT / "samples" / "blink" / "blink.hex"
        with tempfile.TemporaryDirectory() as folder:
            for option in OPTIONS:
                with self.subTest(option.name):
                    said = tarnwick(option.sample, "-c", str(image), folder=folder)
                    refused = f"Unrecognized option '{option.bare}'" in said.stderr
                    self.assertEqual(refused, option.match == "NEVER", said.stderr)

    def test_the_program_takes_no_other_letter(self):
        letters = {option.name for option in OPTIONS if option.match == "LETTER"}
        for letter in sorted(set("abcdefghijklmnopqrstuvwxyz0123456789") - letters):
            with self.subTest(letter):
                said = tarnwick("-" + letter)
                self.assertTrue(said.stderr.startswith(f"Unrecognized option '-{letter}'"), said.stderr)
                self.assertEqual(said.returncode, 1)


class UsageText(unittest.TestCase):
    def test_the_options_that_belong_there_do(self):
        lines = tarnwick("-h").stderr.splitlines()
        shown = [line.strip() for line in lines if re.match(r" +-", line)]
        rows = sorted((option for option in OPTIONS if option.usage_line), key=lambda option: option.usage_line)
        self.assertEqual([option.usage_line for option in rows], list(range(1, 17)))
        self.assertEqual(shown, [f"{option.form}: {option.help}" for option in rows])


class ManualPage(unittest.TestCase):
    def setUp(self):
        self.page = manual_page()

    def test_each_option_has_its_place(self):
        for option in OPTIONS:
            with self.subTest(option.name):
                here, there = "OPTIONS", "OPTIONS FOR SUPPORT"
                if option.for_support:
                    here, there = there, here
                self.assertIn(", ".join(option.forms), terms(self.page[here]))
                self.assertNotIn(", ".join(option.forms), terms(self.page[there]))

    def test_no_option_is_made_up(self):
        known = {form for option in OPTIONS for form in option.forms}
        for section in ["OPTIONS", "OPTIONS FOR SUPPORT"]:
            for term in terms(self.page[section]):
                for form in term.split(", "):
                    if form.startswith("-"):
                        self.assertIn(form, known)

    def test_options_in_the_text_exist(self):
        bare = {option.bare for option in OPTIONS}
        for name, body in self.page.items():
            for word in re.findall(r"(?<![\w\[-])--[a-z-]+", body, flags=re.IGNORECASE):
                self.assertIn(word, bare, name)

    def test_sub_options_of_the_trace(self):
        text = source("compiler/common/zrdebug.cpp")
        table = text[text.index("SUB_OPTIONS[] = {") :]
        known = re.findall(r'\{"(\w+)", ', table[: table.index("};")])
        self.assertGreaterEqual(len(known), 10)
        forms = [form for term in terms(self.page["OPTIONS FOR SUPPORT"]) for form in term.split(", ")]
        self.assertEqual({form.split(":")[0] for form in forms if not form.startswith("-")}, set(known))

    def test_environment(self):
        read = set()
        for text in sources():
            read |= set(re.findall(r'(?:getenv|environment_or)\(\s*"(\w+)"', text))
            if re.search(r"\b(localtime|ctime|mktime|strftime)(_r)?\(", text):
                read.add("TZ")  # the C library does
            for call in re.findall(r"getenv\(\s*(?!\")(\w+)", text):
                self.assertEqual(call, "name", "a variable is read in a way that this test does not see")
        told = {name for term in terms(self.page["ENVIRONMENT"]) for name in term.split(", ")}
        self.assertIn("SOURCE_DATE_EPOCH", read)
        self.assertEqual(told, read)

    def test_formats(self):
        listed = re.findall(r"^(\w+) {2,}\S", tarnwick("-l").stderr.partition("Key")[2], flags=re.MULTILINE)
        self.assertEqual(set(listed), ALL_FORMATS)
        for key in listed:
            self.assertRegex(self.page["INPUT AND OUTPUT FORMATS"], rf"(?m)^{key}\t")

    def test_see_also(self):
        told = set(re.findall(r"(tarnwick-[\w-]+)\(5\)", self.page["SEE ALSO"]))
        pages = {path.name.removesuffix(".5.md") for path in (ROOT / "docs" / "formats").glob("*.5.md")}
        self.assertEqual(told, pages)

    def test_it_prints_without_a_word(self):
        if not shutil.which("groff"):
            self.skipTest("no groff to print it with")
        printed = run(["groff", "-man", "-t", "-ww", "-Tascii", str(MADE / "tarnwick.1")])
        self.assertEqual(printed.stderr, "")
        self.assertIn("dwarf-addr-size", printed.stdout)


class Examples(unittest.TestCase):
    def test_they_run(self):
        page = source("docs/tarnwick.1.md")
        section = page[page.index("## EXAMPLES") : page.index("## SEE ALSO")]
        commands = [block.replace("\\\n", " ") for block in re.findall(r"```\n(.*?)```", section, flags=re.DOTALL)]
        self.assertGreaterEqual(len(commands), 8)
        with tempfile.TemporaryDirectory() as scratch:
            folder = Path(scratch, "blink")
            shutil.copytree(ROOT / "samples" / "blink", folder)
            tools = Path(scratch, "bin")
            tools.mkdir()
            (tools / "tarnwick").symlink_to(PROGRAM)
            environment = {**os.environ, "PATH": f"{tools}:{os.environ['PATH']}"}
            for command in commands:
                with self.subTest(command):
                    self.assertIn("tarnwick", command)
                    outputs = re.findall(r"(?:-o\w+ +|out:|-e)(\w+\.\w+)", command)
                    for name in outputs:
                        (folder / name).unlink(missing_ok=True)
                    said = run(["bash", "-c", command], cwd=folder, env=environment)
                    self.assertEqual(said.returncode, 0, said.stderr)
                    for name in outputs:
                        self.assertTrue((folder / name).is_file(), name)
                        if not name.endswith(".txt"):
                            self.assertGreater((folder / name).stat().st_size, 0, name)
                    if not outputs:
                        self.assertNotEqual(said.stdout + said.stderr, "")


class BashCompletion(unittest.TestCase):
    SCRIPT = MADE / "tarnwick.bash"

    def complete(self, *words, folder=None):
        """The replies for the last of the words, which are parted as bash parts them."""
        script = (
            'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); '
            "_tarnwick; ((${#COMPREPLY[@]})) && printf '%s\\n' \"${COMPREPLY[@]}\"; exit 0"
        )
        said = run(["bash", "--norc", "-c", script, "bash", str(self.SCRIPT), "tarnwick", *words], cwd=folder)
        self.assertEqual((said.returncode, said.stderr), (0, ""))
        return set(said.stdout.splitlines())

    def test_bash_reads_it(self):
        said = run(["bash", "-n", str(self.SCRIPT)])
        self.assertEqual((said.returncode, said.stderr), (0, ""))
        said = run(["bash", "--norc", "-c", f'source "{self.SCRIPT}"; complete -p tarnwick'])
        self.assertEqual(said.stdout, "complete -F _tarnwick tarnwick\n")

    def test_all_options_and_no_others(self):
        expected = set().union(*(option.completions for option in OPTIONS if option.is_offered))
        self.assertEqual(self.complete("-"), expected)
        self.assertEqual(self.complete("--"), {word for word in expected if word.startswith("--")})

    def test_each_option_from_its_beginning(self):
        for option in OPTIONS:
            if option.is_offered and option.match != "LETTER":
                with self.subTest(option.name):
                    self.assertLessEqual(option.completions, self.complete(option.bare[:-1]))
                    self.assertTrue(option.completions & self.complete(option.bare))

    def test_letters(self):
        self.assertEqual(self.complete("-v"), {"-v"})
        self.assertEqual(self.complete("-q"), set())
        self.assertEqual(self.complete("-pN4"), set())

    def test_formats(self):
        self.assertEqual(self.complete("-o"), {"-o" + key for key in WRITTEN_FORMATS})
        self.assertEqual(self.complete("-i"), {"-i" + key for key in ALL_FORMATS})
        self.assertEqual(self.complete("a.tmf", "-ov"), {"-ovcoff"})
        self.assertEqual(self.complete("a.tmf", "-o", "e"), {"elf"})
        self.assertEqual(self.complete("a.tmf", "-o", "t"), set())

    def test_words(self):
        words = {"never", "auto", "always"}
        self.assertEqual(self.complete("--dwarf-use-ranges", "="), words)
        self.assertEqual(self.complete("--dwarf-use-loclists", "=", "a"), {"auto", "always"})
        self.assertEqual(self.complete("--DWARF-USE-RANGES", "=", "n"), {"never"})
        # Where "=" does not part words.
        self.assertEqual(self.complete("--dwarf-use-ranges=al"), {"--dwarf-use-ranges=always"})
        self.assertEqual(self.complete("--code-spaces", "=", ""), set())

    def test_messages(self):
        warnings = {number for number, kind, _ in catalogue() if kind.startswith("warning")}
        self.assertEqual(self.complete("--Werror", "="), {"all"} | {str(number) for number in warnings})
        wanted = {f"523,{number}" for number in warnings if str(number).startswith("130")}
        self.assertEqual(len(wanted), 5)
        self.assertEqual(self.complete("--msgdisable", "=", "523,130"), wanted)

    def test_files(self):
        with tempfile.TemporaryDirectory() as folder:
            for name in ["one.tmf", "one.hex", "two words.hex"]:
                Path(folder, name).touch()
            self.assertEqual(self.complete("o", folder=folder), {"one.tmf", "one.hex"})
            self.assertEqual(self.complete("t", folder=folder), {"two words.hex"})
            self.assertEqual(self.complete("@one.t", folder=folder), {"@one.tmf"})
            self.assertEqual(self.complete("--edf", "=", "one.t", folder=folder), {"one.tmf"})
            self.assertEqual(self.complete("-eone.t", folder=folder), {"-eone.tmf"})


class ZshCompletion(unittest.TestCase):
    SCRIPT = MADE / "_tarnwick"

    @staticmethod
    def options_of(specifications):
        options = [spec for spec in specifications if spec.startswith("*-")]
        return {re.match(r"\*(--?[\w-]+?)(?:[+-]|=-)?\[", spec).group(1) for spec in options}

    def test_all_options_and_no_others(self):
        text = self.SCRIPT.read_text(encoding="utf-8")
        specifications = re.findall(r"^        '(.*)' \\$", text, flags=re.MULTILINE)
        self.assertEqual(self.options_of(specifications), OFFERED)

    def test_zsh_reads_it(self):
        if not shutil.which("zsh"):
            self.skipTest("zsh is not installed")
        said = run(["zsh", "-f", "-n", str(self.SCRIPT)])
        self.assertEqual((said.returncode, said.stderr), (0, ""))
        said = run(["zsh", "-f", "-c", '_arguments() { print -rl -- "$@" }; source "$1"', "zsh", str(self.SCRIPT)])
        self.assertEqual(said.stderr, "")
        self.assertEqual(self.options_of(said.stdout.splitlines()), OFFERED)
        describe = '_arguments() { }; _describe() { print -rl -- "${(@P)2}" }; source "$1"; _tarnwick_letter_o'
        said = run(["zsh", "-f", "-c", describe, "zsh", str(self.SCRIPT)])
        self.assertEqual({line.partition(":")[0] for line in said.stdout.splitlines()}, WRITTEN_FORMATS)


class FishCompletion(unittest.TestCase):
    SCRIPT = MADE / "tarnwick.fish"

    def complete(self, line):
        with tempfile.TemporaryDirectory() as home:
            command = 'source $argv[1]; complete -C "tarnwick $argv[2]"'
            environment = {**os.environ, "HOME": home}
            said = run(["fish", "--no-config", "-c", command, str(self.SCRIPT), line], env=environment, cwd=home)
        self.assertEqual((said.returncode, said.stderr), (0, ""))
        return {reply.partition("\t")[0] for reply in said.stdout.splitlines()}

    def test_all_options_and_no_others(self):
        text = self.SCRIPT.read_text(encoding="utf-8")
        found = {"-" + letter for letter in re.findall(r"^complete -c tarnwick -o (\w) -d", text, flags=re.MULTILINE)}
        found |= {"--" + name for name in re.findall(r"^complete -c tarnwick -l ([\w-]+) -d", text, flags=re.MULTILINE)}
        found |= set(re.findall(r"-a '(--[\w-]+)=' -d", text))
        self.assertEqual(found, OFFERED)

    def test_fish_reads_it(self):
        if not shutil.which("fish"):
            self.skipTest("fish is not installed")
        wanted = {word for option in OPTIONS if option.is_offered for word in option.completions}
        self.assertEqual(self.complete("-"), wanted - {"--Werror=", "--Wno-error="})
        self.assertEqual(self.complete("-oe"), {"-oelf"})
        self.assertEqual(self.complete("-o e"), {"elf"})
        words = {"--dwarf-use-ranges=auto", "--dwarf-use-ranges=always"}
        self.assertEqual(self.complete("--dwarf-use-ranges=a"), words)
        self.assertEqual(self.complete("--msgdisable=63"), {f"--msgdisable={n}" for n in range(633, 640)})


def catalogue():
    """The rows of the built-in catalogue: number, class as people call it, text."""
    text = source("common/catalogue_rows.cpp")
    rows = []
    row = re.compile(r'^    (fatal|message|error|warning)\((\d+), (?:(-?\d+), )?(".*")\),$', flags=re.MULTILINE)
    for kind, number, level, words in row.findall(text):
        rows.append((int(number), f"warning, level {level}" if kind == "warning" else kind, literal(words)))
    return rows


class Messages(unittest.TestCase):
    def setUp(self):
        self.page = source("docs/messages.md")

    def table(self, heading):
        section = self.page[self.page.index(f"## {heading}\n") :].split("\n## ")[0]
        return dict(re.findall(r"^\| `(.*?)` \| (.+) \|$", section, flags=re.MULTILINE))

    def test_it_is_up_to_date(self):
        made = (MADE / "messages.md").read_text(encoding="utf-8")
        self.assertEqual(self.page, made, "docs/messages.md is old: build the target update-messages")

    def test_every_message_has_cause_and_remedy(self):
        rows = catalogue()
        self.assertGreaterEqual(len(rows), 80)
        entry = re.compile(r"^### (\d+) \((.*)\)\n\n`(.*)`\n\n(.+)\n\n\*What to do:\* (.+)$", flags=re.MULTILINE)
        entries = entry.findall(self.page)
        self.assertEqual([(int(number), kind, text) for number, kind, text, _, _ in entries], rows)
        for number, _, _, cause, remedy in entries:
            for text in (cause, remedy):
                self.assertRegex(text, r"^[`\"A-Z].{10,}[.:]$", number)

    def test_texts_about_the_map_file(self):
        raised = set()
        for text in sources():
            raised |= {literal(words) for words in re.findall(r'\btmf_error\(\s*((?:"(?:[^"\\]|\\.)*"\s*)+)', text)}
        self.assertGreaterEqual(len(raised), 35)
        self.assertEqual(set(self.table("Texts of message 1437")), raised)

    def test_reports_without_a_number(self):
        raised = set()
        for text in sources():
            raised |= {literal(words) for words in re.findall(r'\balert_text\("\w", ("(?:[^"\\]|\\.)*")', text)}
            raised |= {literal(words) for words in re.findall(r'\balert_plain\(("(?:[^"\\]|\\.)*")', text)}
            shown = re.findall(r'fprintf\(stderr, ("(?:Un|En)[a-z]+ (?:[^"\\]|\\.)*")', text)
            raised |= {literal(words) for words in shown}
        raised.discard("too many errors (%u)")  # which has a number in the catalogue
        told = {text.replace("'%s'", "'%.*s'") for text in self.table("Reports without a number")}
        self.assertGreaterEqual(len(raised), 8)
        self.assertEqual(told, raised)


if __name__ == "__main__":
    unittest.main()

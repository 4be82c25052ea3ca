#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The commands of the tour in README.md and of docs/cookbook.md run, and print what stands below them.

Each document is run from its beginning to its end by one bash, in a scratch copy of what it uses of the repository,
with a fresh installation of the program in front on the path.

    ```sh         commands; each block must succeed
    ```console    "$ " and "> " in front of commands, what they print on both streams behind them; a line "..." stands
                  for any lines. A command must succeed unless "$ echo $?" follows and shows its status

and in front of a block

    <!-- file NAME -->      the block, of any language, is the content of NAME
    <!-- needs TOOL -->     the block is left out where there is no TOOL
    <!-- by hand -->        what sets up and builds the checkout is not run by its own tests; what it names must be
                            there

Other blocks of CMake must stand in an example, word for word.

Environment: TARNWICK, the program; TARNWICK_BUILD and CMAKE_PROGRAM, for the installation.
"""

import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

from install_tree import install
from judging import environment, main, program

ROOT = Path(__file__).resolve().parents[2]
USED = ["samples", "examples", "contrib"]
TOOLS = ["bash", "addr2line", "readelf", "objcopy", "llvm-dwarfdump", "srec_cat", "unzip", "cmake", "ninja", "cc"]
TIMEOUT_SECONDS = 300

BLOCK = re.compile(r"((?:^<!-- [^\n]* -->\n)*)^```(\w*)\n(.*?)^```$", re.MULTILINE | re.DOTALL)
DIRECTIVE = re.compile(r"<!-- (?:(file|needs) (\S+)|(by hand)) -->$")
LINK = re.compile(r"\]\(([^)#:]+)(?:#[^)]*)?\)")
MARK = "=-=-= command"


class Block:
    def __init__(self, document, text, match):
        self.place = f"{document}:{text.count(chr(10), 0, match.end(1)) + 1}"
        self.language = match[2]
        self.text = match[3]
        self.file, self.needs, self.by_hand = None, None, False
        for line in match[1].splitlines():
            directive = DIRECTIVE.match(line)
            if not directive:
                raise AssertionError(f"{self.place}: unknown comment {line}")
            self.file = directive[2] if directive[1] == "file" else self.file
            self.needs = directive[2] if directive[1] == "needs" else self.needs
            self.by_hand = self.by_hand or bool(directive[3])


class Command:
    """A piece of a block that is run at one go. `expected` is None where nothing is shown."""

    def __init__(self, place, text, expected=None):
        self.place, self.text, self.expected = place, text, expected


def commands_of_console(block):
    commands = []
    for line in block.text.splitlines():
        if line.startswith("$ "):
            commands.append(Command(block.place, line[2:], []))
        elif line.startswith("> ") and commands and not commands[-1].expected:
            commands[-1].text += "\n" + line[2:]
        elif commands:
            commands[-1].expected.append(line)
        else:
            raise AssertionError(f"{block.place}: begins with no command")
    return commands


def fits(expected, printed):
    """Whether the lines are those that are shown, with any lines for each "..."."""
    pattern = "".join("(?:.*\n)*?" if line == "..." else re.escape(line) + "\n" for line in expected)
    return re.fullmatch(pattern, "".join(line + "\n" for line in printed)) is not None


class Documents(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        missing = [tool for tool in TOOLS if not shutil.which(tool)]
        if missing:
            raise unittest.SkipTest(f"not installed: {', '.join(missing)}")
        cls.scratch = Path(tempfile.mkdtemp(prefix="cookbook-")).resolve()
        cls.addClassCleanup(shutil.rmtree, cls.scratch, ignore_errors=True)
        install(cls.scratch / "tools")
        # The Python that has pyelftools need not be the first one on the path.
        (cls.scratch / "bin").mkdir()
        (cls.scratch / "bin" / "python3").symlink_to(sys.executable)

    def blocks(self, document, section=None):
        text = (ROOT / document).read_text(encoding="utf-8")
        part = text
        if section:
            self.assertIn(section, text)
            part = section + text.split(section, 1)[1].split("\n## ", 1)[0]
        before = text[: text.index(part)]
        found = [Block(document, before + part, match) for match in BLOCK.finditer(before + part, len(before))]
        self.assertEqual(part.count("\n```"), 2 * len(found), f"{document}: a block that is not understood")
        return found

    def commands(self, block):
        """What is to be run for a block, in order; file blocks are commands as well."""
        if block.needs and not shutil.which(block.needs):
            print(f"{block.place}: left out, {block.needs} is not installed")
            return []
        if block.file:
            content = self.scratch / f"{block.place.replace('/', '_')}.content"
            content.write_text(block.text)
            return [Command(block.place, f"cp '{content}' '{block.file}'")]
        if block.language == "sh":
            return [Command(block.place, f"set -e\n{block.text}\nset +e")]
        if block.language == "console":
            return commands_of_console(block)
        self.assertEqual(block.language, "cmake", f"{block.place}: what is to be done with it?")
        examples = [path.read_text() for path in (ROOT / "examples").rglob("CMakeLists.txt")]
        self.assertTrue(any(block.text in example for example in examples), f"{block.place}: stands in no example")
        return []

    def run_all(self, name, commands):
        """Runs the commands in one shell; the status of each and the lines that it printed."""
        checkout = self.scratch / name
        for folder in USED:
            shutil.copytree(ROOT / folder, checkout / folder)
        script = []
        for number, command in enumerate(commands):
            (self.scratch / f"{name}.{number}").write_text(command.text + "\n")
            script.append(f". '{self.scratch}/{name}.{number}' </dev/null; status=$?")
            script.append(f"printf '{MARK} %d\\n' $status; (exit $status)")
        variables = environment(self.scratch)
        variables["PATH"] = f"{self.scratch}/bin:{self.scratch}/tools/bin:{variables['PATH']}"
        outcome = subprocess.run(
            ["bash", "-c", "\n".join(script)],
            cwd=checkout,
            env=variables,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            timeout=TIMEOUT_SECONDS,
            check=False,
        )
        printed = outcome.stdout.decode(errors="replace")
        parts = re.split(rf"{MARK} (\d+)\n", printed)
        self.assertEqual(len(parts), 2 * len(commands) + 1, f"the shell ended early: {printed[-2000:]}")
        return [(int(status), text.splitlines()) for text, status in zip(parts[0::2], parts[1::2])]

    def check(self, name, blocks):
        commands = [command for block in blocks if not block.by_hand for command in self.commands(block)]
        self.assertGreater(len(commands), 10)
        outcomes = self.run_all(name, commands)
        for at, (command, (status, printed)) in enumerate(zip(commands, outcomes)):
            what = f"{command.place}: {command.text}"
            with self.subTest(what):
                tested = at + 1 < len(commands) and commands[at + 1].text == "echo $?"
                if not tested:
                    self.assertEqual(status, 0, "\n".join([what, *printed]))
                if command.expected is not None and not fits(command.expected, printed):
                    self.assertEqual(command.expected, printed, what)

    def test_tour(self):
        blocks = self.blocks("README.md", "\n## A tour\n")
        self.check("tour", blocks)

    def test_tour_by_hand(self):
        text = "".join(block.text for block in self.blocks("README.md", "\n## A tour\n") if block.by_hand)
        presets = {preset["name"] for preset in json.loads((ROOT / "CMakePresets.json").read_text())["buildPresets"]}
        named = re.findall(r"--preset (\S+)", text)
        self.assertEqual(len(named), 2)
        self.assertLessEqual(set(named), presets)
        for script in re.findall(r"scripts/\S+", text):
            self.assertTrue(os.access(ROOT / script, os.X_OK), script)
        folder = re.search(rf"^PATH=\$PWD/build/{named[0]}/(\S+):\$PATH$", text, re.MULTILINE)[1]
        self.assertEqual(Path(os.environ["TARNWICK_BUILD"]).resolve() / folder, Path(program()).parent)

    def test_cookbook(self):
        self.check("cookbook", self.blocks("docs/cookbook.md"))

    def test_links(self):
        for document in ["README.md", "docs/cookbook.md", "examples/cmake-post-link/README.md"]:
            path = ROOT / document
            for link in LINK.findall(path.read_text(encoding="utf-8")):
                self.assertTrue((path.parent / link).exists(), f"{document}: {link}")


class Fitting(unittest.TestCase):
    """The comparison itself: it must be able to fail."""

    def test_fits(self):
        self.assertTrue(fits(["a", "b"], ["a", "b"]))
        self.assertTrue(fits(["a", "...", "d"], ["a", "b", "c", "d"]))
        self.assertTrue(fits(["...", "b"], ["b"]))
        self.assertFalse(fits(["a"], ["a", "b"]))
        self.assertFalse(fits(["a", "...", "d"], ["a", "b", "c"]))
        self.assertFalse(fits(["a.c"], ["abc"]))
        self.assertFalse(fits([], ["a"]))


if __name__ == "__main__":
    main()

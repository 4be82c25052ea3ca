# SPDX-License-Identifier: MIT
"""Installations to run the program from, each test with a fresh one."""

import os
import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

from judging import TIMEOUT_SECONDS, environment

# What the program's own catalogue is called; it counts as a file of this name.
BUILT_IN = "20240104201356_en.msgs"
OLDER = "20200101000000_en.msgs"
NEWER = "20250101000000_en.msgs"
NEWEST = "20260101000000_en.msgs"

# An empty image, and the report that printing one always gives: message 634, as a warning.
IMAGE = ":00000001FF\n"
COMMAND = ["--code-spaces=1", "--data-spaces=2", "-d", "one.hex"]
BUILT_IN_REPORT = 'one.hex: (634) error dumping "one.hex" (warning)\n'


def catalogue(mark, kind="0"):
    return f'# errors must be in numeric order\n634 {kind} {mark} tells of "%s"\n'


def report(mark):
    return f'one.hex: (634) {mark} tells of "one.hex" (warning)\n'


def install(prefix):
    """The program and what it needs; the other components may not have been built."""
    build = os.environ["TARNWICK_BUILD"]
    command = [os.environ["CMAKE_PROGRAM"], "--install", build, "--component", "program", "--prefix", str(prefix)]
    if os.environ.get("TARNWICK_CONFIG"):
        command += ["--config", os.environ["TARNWICK_CONFIG"]]
    outcome = subprocess.run(command, capture_output=True, text=True, timeout=TIMEOUT_SECONDS, check=False)
    if outcome.returncode != 0:
        raise AssertionError(f"{' '.join(command)}\n{outcome.stdout}{outcome.stderr}")


class InstallTree(unittest.TestCase):
    """A test case with a fresh installation: `version` is its prefix, `here` an empty folder elsewhere to run from."""

    maxDiff = None

    def setUp(self):
        self.root = Path(tempfile.mkdtemp(prefix="install-")).resolve()
        self.addCleanup(shutil.rmtree, self.root, ignore_errors=True)
        self.version = self.root / "tools" / "v2"
        self.data = self.version / "kor" / "dat"
        self.here = self.root / "here"
        self.here.mkdir()
        (self.here / "one.hex").write_text(IMAGE)
        install(self.version)

    def move(self, program):
        """The program, from `bin` to another place of the tree."""
        program.parent.mkdir(parents=True, exist_ok=True)
        (self.version / "bin" / "tarnwick").rename(program)
        if not any((self.version / "bin").iterdir()):
            (self.version / "bin").rmdir()
        return program

    def put(self, folder, name, mark, kind="0"):
        folder.mkdir(parents=True, exist_ok=True)
        (folder / name).write_text(catalogue(mark, kind))

    def run_program(self, *arguments, program=None, variables=()):
        return subprocess.run(
            [str(program or self.version / "bin" / "tarnwick"), *arguments],
            cwd=self.here,
            env={**environment(self.root), **dict(variables)},
            stdin=subprocess.DEVNULL,
            capture_output=True,
            text=True,
            timeout=TIMEOUT_SECONDS,
            check=False,
        )

    def told(self, *options, program=None, variables=(), status=0):
        """What the run reports."""
        outcome = self.run_program(*options, *COMMAND, program=program, variables=variables)
        self.assertEqual(outcome.returncode, status, outcome.stderr)
        return outcome.stderr

    def traced(self, *options, program=None):
        """What a run traces from the room of the install directories and from that of the catalogues, one line a text.
        The root of the tree is written as "@"."""
        trace = self.here / "trace.log"
        self.told("--zrdebug=on,out:trace.log", *options, program=program)
        lines = re.findall(r"^(?:zrinstdir|catalogue)\.cpp:\d+ *> *(.*)$", trace.read_text(), re.MULTILINE)
        trace.unlink()
        return [line.replace(str(self.root), "@") for line in lines]

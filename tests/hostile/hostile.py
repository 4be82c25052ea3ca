# SPDX-License-Identifier: MIT
"""What the hostile tests share: the program under limits, measured, and where it may write."""

import os
import resource
import shutil
import signal
import sys
import tempfile
import unittest
from dataclasses import dataclass
from pathlib import Path

sys.path.append(str(Path(__file__).resolve().parents[1] / "judges"))

import judging  # noqa: E402

MEBIBYTE = 1 << 20
KIBIBYTE = 1 << 10

# What a run may take, however its input looks.
CPU_SECONDS = 5
MEMORY_BYTES = 256 * MEBIBYTE
# A run that waits and does not work is ended after this.
WALL_SECONDS = 60

# A build with sanitizers takes more of both.
SANITIZED_CPU, SANITIZED_MEMORY = 6, 8
SANITIZER_STATUS = 99
SANITIZER_OPTIONS = f"exitcode={SANITIZER_STATUS}:detect_leaks=0:quarantine_size_mb=16"

MEMORY_FOLDER = Path("/dev/shm")


def is_sanitized(path):
    return b"__asan_init" in Path(path).read_bytes()


@dataclass
class Outcome:
    status: int  # the exit status; below 0 the signal
    seconds: float  # of processor time
    memory: int  # the largest resident set in bytes
    errors: bytes
    timed_out: bool = False


class Program:
    """The program, started as cheaply as the host allows: thousands of times a test. Works in the current folder."""

    def __init__(self, errors_path):
        self.path = judging.program()
        self.sanitized = is_sanitized(self.path)
        self.cpu_seconds = CPU_SECONDS * (SANITIZED_CPU if self.sanitized else 1)
        self.memory_bytes = MEMORY_BYTES * (SANITIZED_MEMORY if self.sanitized else 1)
        self.errors_path = str(errors_path)
        self.environment = {"PATH": os.environ.get("PATH", ""), "LC_ALL": "C", "TZ": "UTC"}
        self.environment["SOURCE_DATE_EPOCH"] = "1700000000"  # two runs are compared
        if self.sanitized:
            self.environment |= {"ASAN_OPTIONS": SANITIZER_OPTIONS, "UBSAN_OPTIONS": SANITIZER_OPTIONS}

    def run(self, arguments, output="/dev/null"):
        actions = [
            (os.POSIX_SPAWN_OPEN, 0, "/dev/null", os.O_RDONLY, 0),
            (os.POSIX_SPAWN_OPEN, 1, output, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o644),
            (os.POSIX_SPAWN_OPEN, 2, self.errors_path, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o644),
        ]
        process = os.posix_spawn(self.path, [self.path, *arguments], self.environment, file_actions=actions)
        status, usage, timed_out = self._wait(process)
        errors = Path(self.errors_path).read_bytes()
        seconds = usage.ru_utime + usage.ru_stime
        return Outcome(os.waitstatus_to_exitcode(status), seconds, usage.ru_maxrss * KIBIBYTE, errors, timed_out)

    def _wait(self, process):
        timed_out = False

        def end(_number, _frame):
            nonlocal timed_out
            timed_out = True
            os.kill(process, signal.SIGKILL)

        signal.signal(signal.SIGALRM, end)
        signal.setitimer(signal.ITIMER_REAL, WALL_SECONDS)
        _, status, usage = os.wait4(process, 0)
        signal.setitimer(signal.ITIMER_REAL, 0)
        return status, usage, timed_out

    def faults(self, outcome, silent=False):
        """What no input excuses. A `silent` run may have sent its reports elsewhere."""
        found = []
        if outcome.timed_out:
            found.append(f"still running after {WALL_SECONDS} s")
        elif outcome.status < 0:
            found.append(f"ended by signal {signal.Signals(-outcome.status).name}")
        elif outcome.status == SANITIZER_STATUS and self.sanitized:
            found.append("a sanitizer's finding")
        elif outcome.status not in (0, 1):
            found.append(f"exit status {outcome.status}")
        elif outcome.status == 1 and not outcome.errors and not silent:
            found.append("exit status 1 without a word")
        if outcome.seconds > self.cpu_seconds:
            found.append(f"{outcome.seconds:.1f} s of processor time")
        if outcome.memory > self.memory_bytes:
            found.append(f"{outcome.memory // MEBIBYTE} MiB of memory")
        return found


def limit_memory(program):
    """A bound that protects the host, far above what is asked of the program: that is measured, and not a refusal. The
    address sanitizer reserves more addresses than any bound allows."""
    if not program.sanitized:
        bound = 8 * program.memory_bytes
        resource.setrlimit(resource.RLIMIT_AS, (bound, bound))


def scratch_folder(prefix):
    """A folder in memory where the host has such a place: the tests write more than they read."""
    place = MEMORY_FOLDER if os.access(MEMORY_FOLDER, os.W_OK) else None
    return Path(tempfile.mkdtemp(prefix=prefix, dir=place))


class HostileTest(unittest.TestCase):
    """A test case in a scratch folder of its own, which is the current folder."""

    maxDiff = None

    def setUp(self):
        super().setUp()
        before = Path.cwd()
        self.folder = scratch_folder("hostile-")
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.addCleanup(os.chdir, before)
        os.chdir(self.folder)
        self.program = Program(self.folder / "errors.txt")

    def run_program(self, arguments, output="/dev/null"):
        return self.program.run(arguments, output)

# SPDX-License-Identifier: MIT
"""Processes and what they cost.

Times are processor time, user and system, of the process alone. Memory is the peak of the resident set over all runs.
"""

import os
import resource
import shutil
import statistics
import subprocess
from dataclasses import dataclass, field
from pathlib import Path

# A process starts with the peak of the one that made it, and GNU time is much smaller than this script.
GNU_TIME = shutil.which("time")

OWN_MEMORY = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss * 1024  # bytes

ENOUGH_TIME = 2.0  # seconds: a tool that took so long in all is not run again


class Failure(Exception):
    """A tool did not do its work, so there is nothing to report about it."""


@dataclass
class Tool:
    name: str
    command: list
    output: Path
    printed_on: str = ""  # the output is what it prints on "stdout" or "stderr"; the other one does not count
    folder: Path | None = None  # where it runs
    times: list = field(default_factory=list)  # seconds
    memory: int = 0  # bytes
    written: int = 0  # bytes

    def run(self, folder=None):
        self.output.unlink(missing_ok=True)
        peak, told = self.output.with_name("out.peak"), self.output.with_name("out.told")
        wrapper = [GNU_TIME, "--quiet", "--format=%M", f"--output={peak}"] if GNU_TIME else []
        with open(told, "wb") as said, open(self.output if self.printed_on else os.devnull, "wb") as printed:
            status, usage = self.start(wrapper, folder or self.folder, said, printed)
        if status != 0:
            self.fail(f"left with {status}", told)
        if not self.printed_on and told.stat().st_size != 0:
            self.fail("has something to say", told)  # and so did other work than it was to be measured at
        if not self.output.is_file() or self.output.stat().st_size == 0:
            self.fail("wrote nothing", told)
        self.written = self.output.stat().st_size
        self.times.append(usage.ru_utime + usage.ru_stime)
        kilobytes = int(peak.read_text()) if GNU_TIME else usage.ru_maxrss
        self.memory = max(self.memory, kilobytes * 1024)

    def start(self, wrapper, folder, said, printed):
        """Runs the process to its end. It is waited for by hand, because only then its own figures come with it."""
        process = subprocess.Popen(
            wrapper + self.command,
            cwd=folder,
            stdin=subprocess.DEVNULL,
            stdout=printed if self.printed_on == "stdout" else said,
            stderr=printed if self.printed_on == "stderr" else said,
        )
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        return process.returncode, usage

    def fail(self, fault, told):
        lines = told.read_text(errors="replace").splitlines()[:5]
        raise Failure("\n".join([f"{self.name} {fault}: {' '.join(self.command)}", *lines]))

    def time(self):
        return statistics.median(self.times)


def measure(tools, runs):
    """The tools take turns, so that a slow moment of the machine does not fall on one of them alone, and does not look
    like growth. Slow tools run less often: their figures spread little."""
    for _ in range(runs):
        for tool in tools:
            if sum(tool.times) < ENOUGH_TIME:
                tool.run()
                tool.output.unlink()

# SPDX-License-Identifier: MIT
"""Measures the program on large inputs and prints a report. Goals stand beside the figures; missing one is no failure.

Times are processor time, user and system, of the process alone; the runs of all tools on one input take turns, and the
median counts. Memory is the peak of the resident set over all runs.

Exit status: 0 everything was measured, 1 a tool failed.
"""

import argparse
import os
import resource
import shutil
import statistics
import subprocess
import sys
from dataclasses import dataclass, field
from hashlib import sha256
from pathlib import Path

from workloads import ARGUMENTS

ROOT = Path(__file__).resolve().parents[1]
GENERATOR = ROOT / "bench" / "workloads.py"

# A process starts with the peak of the one that made it, and GNU time is much smaller than this script.
GNU_TIME = shutil.which("time")

MIB = 1 << 20

# Goals.
HEX_SPEED = 1.5  # times as fast as the faster peer
HEX_MEMORY = 12  # bytes for each byte of the image, at most
ELF_INPUT_GROWTH, ELF_TIME_GROWTH = 6, 8  # an input 6 times as large takes less than 8 times the time
ELF_MEMORY = 10  # bytes for each byte of the largest input, less than

HEX_SIZES = [8 * MIB, 32 * MIB]
QUICK_HEX_SIZES = [1 * MIB, 4 * MIB]

ELF_SIZES = [(40, 12_000), (120, 54_000), (300, 360_000)]  # modules, line records
QUICK_ELF_SIZES = [(10, 3_000), (40, 18_000)]

RUNS, QUICK_RUNS = 5, 1


class Failure(Exception):
    """A tool did not do its work, so there is nothing to report about it."""


@dataclass
class Tool:
    name: str
    command: list
    output: Path
    times: list = field(default_factory=list)  # seconds
    memory: int = 0  # bytes
    written: int = 0  # bytes

    def run(self, folder):
        self.output.unlink(missing_ok=True)
        peak, told = self.output.with_name("out.peak"), self.output.with_name("out.told")
        wrapper = [GNU_TIME, "--quiet", "--format=%M", f"--output={peak}"] if GNU_TIME else []
        command = wrapper + self.command
        # The process is waited for by hand, because only then its own figures come with it.
        with open(told, "wb") as errors:
            process = subprocess.Popen(command, cwd=folder, stdin=subprocess.DEVNULL, stdout=errors, stderr=errors)
            _, status, usage = os.wait4(process.pid, 0)
            process.returncode = os.waitstatus_to_exitcode(status)
        if process.returncode != 0:
            self.fail(f"left with {process.returncode}", told)
        if told.stat().st_size != 0:
            self.fail("has something to say", told)  # and so did other work than it was to be measured at
        if not self.output.is_file() or self.output.stat().st_size == 0:
            self.fail("wrote nothing", told)
        self.written = self.output.stat().st_size
        self.times.append(usage.ru_utime + usage.ru_stime)
        kilobytes = int(peak.read_text()) if GNU_TIME else usage.ru_maxrss
        self.memory = max(self.memory, kilobytes * 1024)

    def fail(self, fault, told):
        lines = told.read_text(errors="replace").splitlines()[:5]
        raise Failure("\n".join([f"{self.name} {fault}: {' '.join(self.command)}", *lines]))

    def time(self):
        return statistics.median(self.times)


def measure(tools, folder, runs):
    """The tools take turns, so that a slow moment of the machine does not fall on one of them alone."""
    for _ in range(runs):
        for tool in tools:
            tool.run(folder)


# --- inputs -----------------------------------------------------------------------------------------------------------


def made(target, arguments):
    """An input of the generator, made unless this generator made it before. It is a process of its own: the memory that
    it needs must not count for the tools that are started from here."""
    stamp = target.with_name(target.name + ".stamp")
    recipe = sha256(GENERATOR.read_bytes() + " ".join(arguments).encode()).hexdigest()
    if not stamp.is_file() or stamp.read_text() != recipe:
        stamp.unlink(missing_ok=True)
        if target.is_dir():
            shutil.rmtree(target)
        target.parent.mkdir(parents=True, exist_ok=True)
        subprocess.run([sys.executable, "-B", str(GENERATOR), *arguments, str(target)], check=True)
        stamp.write_text(recipe)
    return target


# --- the report -------------------------------------------------------------------------------------------------------


def title(text):
    print(f"\n{text}\n{'-' * len(text)}")


def verdict(met):
    return "met" if met else "MISSED"


def size_text(count):
    return f"{count / MIB:.1f} MiB"


def table(rows):
    """The first row is the heading; the first column stands left."""
    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
    for row in rows:
        cells = [row[0].ljust(widths[0])] + [cell.rjust(width) for cell, width in zip(row[1:], widths[1:])]
        print("  " + "   ".join(cells))


def report_hex(program, work, sizes, runs):
    for size in sizes:
        source = made(work / f"image-{size // MIB}.hex", ["image", str(size)])
        target = work / "out"
        ours = Tool("tarnwick", [program, *ARGUMENTS, str(source), "-os19", f"{target}.s19"], Path(f"{target}.s19"))
        peers = []
        if shutil.which("objcopy"):
            command = ["objcopy", "-I", "ihex", "-O", "srec", str(source), f"{target}.objcopy"]
            peers.append(Tool("objcopy", command, Path(f"{target}.objcopy")))
        if shutil.which("srec_cat"):
            command = ["srec_cat", str(source), "-Intel", "-o", f"{target}.srec_cat", "-Motorola"]
            peers.append(Tool("srec_cat", command, Path(f"{target}.srec_cat")))
        measure([ours, *peers], work, runs)

        title(f"Intel HEX to S-records: {size // MIB} MiB of image, {size_text(source.stat().st_size)} of text")
        rows = [["", "time, s", "memory", "of an image byte", "output"]]
        for tool in [ours, *peers]:
            share = f"{tool.memory / size:.1f} bytes"
            rows.append([tool.name, f"{tool.time():.3f}", size_text(tool.memory), share, size_text(tool.written)])
        table(rows)
        if peers:
            faster = min(peers, key=Tool.time)
            ratio = faster.time() / ours.time()
            goal = f"goal: at least {HEX_SPEED} times; {verdict(ratio >= HEX_SPEED)}"
            print(f"  speed: {ratio:.2f} times as fast as {faster.name}, the faster peer ({goal})")
        else:
            print("  speed: no peer is installed (objcopy, srec_cat)")
        share = ours.memory / size
        goal = f"goal: at most {HEX_MEMORY}; {verdict(share <= HEX_MEMORY)}"
        print(f"  memory: {share:.1f} bytes for each byte of the image ({goal})")


def input_size(folder):
    return sum(path.stat().st_size for path in folder.iterdir() if path.suffix in (".tmf", ".hex", ".sdb"))


def report_elf(program, work, sizes, runs):
    title("Map file, databases and image to ELF, without debugging sections")
    figures = []
    for modules, lines in sizes:
        folder = made(work / f"program-{modules}-{lines}", ["program", str(modules), str(lines)])
        output = work / "out.elf"
        arguments = ["prog.hex", "prog.tmf", "-oelf", str(output), "--disable-dwarf"]
        tool = Tool("tarnwick", [program, *ARGUMENTS, *arguments], output)
        measure([tool], folder, runs)
        figures.append((modules, lines, input_size(folder), tool))

    rows = [["modules", "line records", "input", "time, s", "of a MiB", "memory", "of an input byte", "output"]]
    for modules, lines, size, tool in figures:
        speed = f"{tool.time() / (size / MIB):.4f} s"
        share = f"{tool.memory / size:.1f} bytes"
        rows.append(
            [str(modules), f"{lines:,}", size_text(size), f"{tool.time():.3f}", speed]
            + [size_text(tool.memory), share, size_text(tool.written)]
        )
    table(rows)
    for (*_, small, before), (_, lines, large, after) in zip(figures, figures[1:]):
        growth = large / small
        # The goal is told for six times the input; for other growths it is the same excess over the linear.
        limit = growth * ELF_TIME_GROWTH / ELF_INPUT_GROWTH
        actual = after.time() / before.time()
        goal = f"goal: less than {limit:.1f} times, as {ELF_INPUT_GROWTH} times the input is to take less than "
        goal += f"{ELF_TIME_GROWTH}; {verdict(actual < limit)}"
        print(f"  growth to {lines:,} lines: {growth:.1f} times the input in {actual:.1f} times the time ({goal})")
    *_, size, tool = figures[-1]
    share = tool.memory / size
    goal = f"goal: less than {ELF_MEMORY}; {verdict(share < ELF_MEMORY)}"
    print(f"  memory: {share:.1f} bytes for each byte of the largest input ({goal})")


# --- the run ----------------------------------------------------------------------------------------------------------


def parse_arguments():
    parser = argparse.ArgumentParser(prog="bench", description="Measures the program and prints a report.")
    parser.add_argument("--quick", action="store_true", help="small inputs, one run")
    parser.add_argument("--only", choices=["hex", "elf"], help="one of the two reports")
    parser.add_argument(
        "--program",
        type=Path,
        default=ROOT / "build/release/compiler/tarnwick/tarnwick",
        help="the program to measure (default: the release build)",
    )
    parser.add_argument(
        "--work",
        type=Path,
        default=ROOT / "build/bench/work",
        help="folder for inputs, which stay, and outputs (default: build/bench/work)",
    )
    return parser.parse_args()


def main():
    options = parse_arguments()
    program = str(options.program.resolve())
    work = options.work.resolve()
    work.mkdir(parents=True, exist_ok=True)
    runs = QUICK_RUNS if options.quick else RUNS
    print(f"processor time: median of {runs} run{'s' if runs > 1 else ''}; memory: peak of the resident set")
    if not GNU_TIME:
        own = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss * 1024
        print(f"without GNU time no memory below the {size_text(own)} of this script can be told")
    try:
        if options.only != "elf":
            report_hex(program, work, QUICK_HEX_SIZES if options.quick else HEX_SIZES, runs)
        if options.only != "hex":
            report_elf(program, work, QUICK_ELF_SIZES if options.quick else ELF_SIZES, runs)
    except Failure as failure:
        print(f"bench: {failure}", file=sys.stderr)
        return 1
    finally:
        for path in work.glob("out.*"):
            path.unlink()
    return 0


if __name__ == "__main__":
    sys.exit(main())

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
import struct
import subprocess
import sys
from dataclasses import dataclass, field
from hashlib import sha256
from pathlib import Path

import trace_cost
from workloads import ARGUMENTS

ROOT = Path(__file__).resolve().parents[1]
GENERATOR = ROOT / "bench" / "workloads.py"

# A process starts with the peak of the one that made it, and GNU time is much smaller than this script.
GNU_TIME = shutil.which("time")

MIB = 1 << 20

# Goals; an aim beside a goal is what would be better still.
HEX_SPEED = 1.5  # times as fast as the faster peer
HEX_MEMORY = 12  # bytes for each byte of the image, at most
TEXT_SPEED, TEXT_SPEED_AIM = 33e6, 50e6  # bytes of map file and databases in a second, on the middle size
INPUT_GROWTH, TIME_GROWTH = 6, 8  # an input 6 times as large takes less than 8 times the time
INPUT_MEMORY, INPUT_MEMORY_AIM = 16, 10  # bytes for each byte of input, at most
PRINT_TIME = 2  # times the time of the faster peer, at most
DUMP_SPEED = 16e6  # bytes of debugging sections in a second
DUMP_RATIO, DUMP_RATIO_AIM = 2, 3  # times as fast as the fastest peer
DUMP_MEMORY = 8 * MIB  # beside the size of the file, at most

HEX_SIZES = [8 * MIB, 32 * MIB]
QUICK_HEX_SIZES = [1 * MIB, 4 * MIB]

PROGRAM_SIZES = [(40, 12_000), (120, 54_000), (300, 360_000)]  # modules, line records
QUICK_PROGRAM_SIZES = [(10, 3_000), (40, 18_000)]

PRINT_SIZE = (170, 200_000)  # gives a COFF file of about 10 MB
QUICK_PRINT_SIZE = (20, 20_000)

DUMP_SIZE = (600, 720_000)  # gives about 10 MB of debugging sections
QUICK_DUMP_SIZE = (20, 24_000)
FOREIGN_SIZE = (2500, 6)  # functions, copies linked together: about as much
QUICK_FOREIGN_SIZE = (200, 2)

COFF_TABLE_FIELD = 8  # in the header: where the symbols start, and how many entries there are
COFF_ENTRY_SIZE = 20

RUNS, QUICK_RUNS = 5, 1
TRACE_RUNS = 21  # a difference of one in a hundred shows in many runs only


@dataclass(frozen=True)
class Conversion:
    """A way to convert the programs."""

    title: str
    output: str
    arguments: tuple  # the file name goes behind the first
    speed_counts: bool  # whether the goal for the speed of reading holds


ELF = Conversion("ELF, without debugging sections", "out.elf", ("-oelf", "--disable-dwarf"), True)
DWARF = Conversion("ELF, with debugging sections", "out.elf", ("-oelf", "--dwarf-addr-size=4"), True)
COFF = Conversion("COFF", "out.cof", ("-ovcoff",), False)


class Failure(Exception):
    """A tool did not do its work, so there is nothing to report about it."""


@dataclass
class Tool:
    name: str
    command: list
    output: Path
    prints: bool = False  # the output is what it prints; what it says on the way does not count
    times: list = field(default_factory=list)  # seconds
    memory: int = 0  # bytes
    written: int = 0  # bytes

    def run(self, folder):
        self.output.unlink(missing_ok=True)
        peak, told = self.output.with_name("out.peak"), self.output.with_name("out.told")
        wrapper = [GNU_TIME, "--quiet", "--format=%M", f"--output={peak}"] if GNU_TIME else []
        command = wrapper + self.command
        # The process is waited for by hand, because only then its own figures come with it.
        with open(told, "wb") as errors, open(self.output if self.prints else os.devnull, "wb") as printed:
            out = printed if self.prints else errors
            process = subprocess.Popen(command, cwd=folder, stdin=subprocess.DEVNULL, stdout=out, stderr=errors)
            _, status, usage = os.wait4(process.pid, 0)
            process.returncode = os.waitstatus_to_exitcode(status)
        if process.returncode != 0:
            self.fail(f"left with {process.returncode}", told)
        if not self.prints and told.stat().st_size != 0:
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


def size_of(folder, *suffixes):
    return sum(path.stat().st_size for path in folder.iterdir() if path.suffix in suffixes)


def converter(program, conversion, output):
    """Our program at work on the files of a folder."""
    option, *others = conversion.arguments
    return Tool("tarnwick", [program, *ARGUMENTS, "prog.hex", "prog.tmf", option, str(output), *others], output)


@dataclass
class Figure:
    folder: Path
    modules: int
    lines: int
    text: int  # bytes of map file and databases
    size: int  # bytes of all input
    tool: Tool

    def cells(self):
        return [
            str(self.modules),
            f"{self.lines:,}",
            size_text(self.size),
            f"{self.tool.time():.3f}",
            f"{self.text / self.tool.time() / 1e6:.0f} MB",
            size_text(self.tool.memory),
            f"{self.tool.memory / self.size:.1f} bytes",
            size_text(self.tool.written),
        ]


def report_speed(figure):
    speed = figure.text / figure.tool.time()
    goal = f"goal: at least {TEXT_SPEED / 1e6:.0f}; {verdict(speed >= TEXT_SPEED)}"
    aim = f"aim: {TEXT_SPEED_AIM / 1e6:.0f}; {verdict(speed >= TEXT_SPEED_AIM)}"
    print(f"  speed at {figure.lines:,} lines: {speed / 1e6:.0f} MB of map and databases in a second ({goal}; {aim})")


def report_growth(before, after):
    growth = after.size / before.size
    # The goal is told for six times the input; for other growths it is the same excess over the linear.
    limit = growth * TIME_GROWTH / INPUT_GROWTH
    actual = after.tool.time() / before.tool.time()
    goal = f"goal: less than {limit:.1f} times, as {INPUT_GROWTH} times the input is to take less than "
    goal += f"{TIME_GROWTH}; {verdict(actual < limit)}"
    print(f"  growth to {after.lines:,} lines: {growth:.1f} times the input in {actual:.1f} times the time ({goal})")


def report_memory(figure):
    share = figure.tool.memory / figure.size
    goal = f"goal: at most {INPUT_MEMORY}; {verdict(share <= INPUT_MEMORY)}"
    aim = f"aim: {INPUT_MEMORY_AIM}; {verdict(share <= INPUT_MEMORY_AIM)}"
    print(f"  memory: {share:.1f} bytes for each byte of the largest input ({goal}; {aim})")


def report_program(program, work, conversion, sizes, runs):
    title(f"Map file, databases and image to {conversion.title}")
    figures = []
    for modules, lines in sizes:
        folder = made(work / f"program-{modules}-{lines}", ["program", str(modules), str(lines)])
        text = size_of(folder, ".tmf", ".sdb")
        tool = converter(program, conversion, work / conversion.output)
        figures.append(Figure(folder, modules, lines, text, text + size_of(folder, ".hex"), tool))
    for _ in range(runs):  # the sizes take turns as well, or a slow moment would look like growth
        for figure in figures:
            figure.tool.run(figure.folder)

    heading = ["modules", "line records", "input", "time, s", "text a second", "memory", "of an input byte", "output"]
    table([heading, *[figure.cells() for figure in figures]])
    if conversion.speed_counts:
        report_speed(figures[len(figures) // 2])
    for before, after in zip(figures, figures[1:]):
        report_growth(before, after)
    report_memory(figures[-1])


def coff_symbol_count(path):
    """The symbols of a COFF file, without their auxiliary entries."""
    file = path.read_bytes()
    table, entries = struct.unpack_from("<LL", file, COFF_TABLE_FIELD)
    count = index = 0
    while index < entries:
        auxiliaries = file[table + (index + 1) * COFF_ENTRY_SIZE - 1]  # the last byte of the entry
        index += 1 + auxiliaries
        count += 1
    return count


def report_print(program, work, size, runs):
    """Our printing of a COFF file beside the peers' listing of an ELF file with as many symbols."""
    modules, lines = size
    folder = made(work / f"program-{modules}-{lines}", ["program", str(modules), str(lines)])
    coff = work / "out.cof"
    converter(program, COFF, coff).run(folder)
    count = coff_symbol_count(coff)
    folder = made(work / f"symbols-{count}", ["symbols", str(count)])
    elf = work / "out.elf"
    converter(program, ELF, elf).run(folder)

    ours = Tool("tarnwick -d -v -v", [program, "-d", "-v", "-v", str(coff)], work / "out.tarnwick", prints=True)
    peers = []
    for command in (["nm"], ["readelf", "-s"]):
        if shutil.which(command[0]):
            peers.append(Tool(" ".join(command), [*command, str(elf)], work / f"out.{command[0]}", prints=True))
    measure([ours, *peers], work, runs)

    sizes = f"{size_text(coff.stat().st_size)} of COFF, {size_text(elf.stat().st_size)} of ELF"
    title(f"Printing {count:,} symbols: {sizes}")
    rows = [["", "time, s", "memory", "output"]]
    for tool in [ours, *peers]:
        rows.append([tool.name, f"{tool.time():.3f}", size_text(tool.memory), size_text(tool.written)])
    table(rows)
    if peers:
        faster = min(peers, key=Tool.time)
        ratio = ours.time() / faster.time()
        goal = f"goal: at most {PRINT_TIME} times; {verdict(ratio <= PRINT_TIME)}"
        print(f"  time: {ratio:.2f} times that of {faster.name}, the faster peer ({goal})")
    else:
        print("  time: no peer is installed (nm, readelf)")


ELF_SECTIONS_FIELD, ELF_COUNT_FIELD = 32, 48  # in the header: start of the section headers; their count and the names'
ELF_SECTION = struct.Struct("<10L")  # of a little-endian file; name, offset and size stand at 0, 4 and 5


def debugging_size(path):
    """The bytes of all debugging sections of a 32-bit ELF file."""
    file = path.read_bytes()
    (start,) = struct.unpack_from("<L", file, ELF_SECTIONS_FIELD)
    count, names = struct.unpack_from("<HH", file, ELF_COUNT_FIELD)
    sections = [ELF_SECTION.unpack_from(file, start + i * ELF_SECTION.size) for i in range(count)]
    base = sections[names][4]
    return sum(fields[5] for fields in sections if file.startswith(b".debug_", base + fields[0]))


def foreign_program(work, functions, copies):
    """A program of another compiler, None where it is not there: one object file, linked several times."""
    if not shutil.which("gcc") or not shutil.which("ld"):
        return None
    source = made(work / f"source-{functions}.c", ["source", str(functions)])
    target = work / f"source-{functions}-{copies}.elf"
    if not target.is_file() or target.stat().st_mtime < source.stat().st_mtime:
        target.unlink(missing_ok=True)
        built = work / "out.o"
        compile_options = ["-m32", "-ffreestanding", "-fno-pic", "-fno-asynchronous-unwind-tables", "-O1"]
        compile_options += ["-gdwarf-2", "-gstrict-dwarf", "-gpubnames"]
        link_options = ["-m", "elf_i386", "-e", "0", "--allow-multiple-definition"]
        for command in (
            ["gcc", *compile_options, "-c", str(source), "-o", str(built)],
            ["ld", *link_options, *[str(built)] * copies, "-o", str(target)],
        ):
            outcome = subprocess.run(command, capture_output=True, check=False)
            if outcome.returncode != 0:
                return None  # not for this target
    return target


DUMPERS = [["readelf", "-w"], ["objdump", "--dwarf"], ["llvm-dwarfdump"], ["llvm-dwarfdump", "--all"]]


def report_dump_of(program, work, what, elf, runs):
    """Our printing of a file's debugging sections beside that of others. Ours prints the headers, too; llvm-dwarfdump
    alone prints one of the sections, and with --all it prints them all."""
    size = debugging_size(elf)
    ours = Tool("tarnwick -d", [program, "-d", str(elf)], work / "out.tarnwick", prints=True)
    peers = [
        Tool(" ".join(command), [*command, str(elf)], work / f"out.{'.'.join(command)}", prints=True)
        for command in DUMPERS
        if shutil.which(command[0])
    ]
    measure([ours, *peers], work, runs)

    title(f"Printing {what}: {size / 1e6:.1f} MB of debugging sections in {size_text(elf.stat().st_size)}")
    rows = [["", "time, s", "sections a second", "memory", "output"]]
    for tool in [ours, *peers]:
        speed = f"{size / tool.time() / 1e6:.0f} MB" if tool.time() else "-"
        rows.append([tool.name, f"{tool.time():.3f}", speed, size_text(tool.memory), size_text(tool.written)])
    table(rows)
    speed = size / ours.time()
    goal = f"goal: at least {DUMP_SPEED / 1e6:.0f}; {verdict(speed >= DUMP_SPEED)}"
    print(f"  speed: {speed / 1e6:.0f} MB of debugging sections in a second ({goal})")
    if peers:
        fastest = min(peers, key=Tool.time)
        ratio = fastest.time() / ours.time()
        goal = f"goal: at least {DUMP_RATIO} times; {verdict(ratio >= DUMP_RATIO)}"
        aim = f"aim: {DUMP_RATIO_AIM}; {verdict(ratio >= DUMP_RATIO_AIM)}"
        print(f"  speed: {ratio:.2f} times as fast as {fastest.name}, the fastest peer ({goal}; {aim})")
    else:
        print("  speed: no peer is installed (readelf, objdump, llvm-dwarfdump)")
    beside = ours.memory - elf.stat().st_size
    goal = f"goal: at most {size_text(DUMP_MEMORY)}; {verdict(beside <= DUMP_MEMORY)}"
    print(f"  memory: {beside / MIB:.1f} MiB beside the size of the file ({goal})")


def report_dump(program, work, size, foreign_size, runs):
    modules, lines = size
    folder = made(work / f"program-{modules}-{lines}", ["program", str(modules), str(lines)])
    elf = work / "out.elf"
    converter(program, DWARF, elf).run(folder)
    report_dump_of(program, work, "a program of our own", elf, runs)
    foreign = foreign_program(work, *foreign_size)
    if foreign is None:
        print("\nNo program of another compiler is measured: gcc and ld make none for 32 bits here")
    else:
        report_dump_of(program, work, "a program of GCC", foreign, runs)


def report_trace(work, sizes, runs):
    small, large = [
        made(work / f"program-{modules}-{lines}", ["program", str(modules), str(lines)])
        for modules, lines in (sizes[0], sizes[-1])
    ]

    def make_tool(program):
        return converter(program, DWARF, work / DWARF.output)

    trace_cost.report(ROOT, work, small, large, make_tool, measure, runs)


# --- the run ----------------------------------------------------------------------------------------------------------


def parse_arguments():
    parser = argparse.ArgumentParser(prog="bench", description="Measures the program and prints a report.")
    parser.add_argument("--quick", action="store_true", help="small inputs, one run")
    parser.add_argument("--only", choices=["hex", "elf", "dwarf", "coff", "dump", "trace"], help="one of the reports")
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
        wanted = [options.only] if options.only else ["hex", "elf", "dwarf", "coff", "dump"]
        sizes = QUICK_PROGRAM_SIZES if options.quick else PROGRAM_SIZES
        if "hex" in wanted:
            report_hex(program, work, QUICK_HEX_SIZES if options.quick else HEX_SIZES, runs)
        if "elf" in wanted:
            report_program(program, work, ELF, sizes, runs)
        if "dwarf" in wanted:
            report_program(program, work, DWARF, sizes, runs)
        if "coff" in wanted:
            report_program(program, work, COFF, sizes, runs)
            report_print(program, work, QUICK_PRINT_SIZE if options.quick else PRINT_SIZE, runs)
        if "dump" in wanted:
            foreign_size = QUICK_FOREIGN_SIZE if options.quick else FOREIGN_SIZE
            report_dump(program, work, QUICK_DUMP_SIZE if options.quick else DUMP_SIZE, foreign_size, runs)
        if "trace" in wanted:  # only when asked for: it builds the program twice
            report_trace(work, sizes, QUICK_RUNS if options.quick else TRACE_RUNS)
    except (Failure, trace_cost.Failure) as failure:
        print(f"bench: {failure}", file=sys.stderr)
        return 1
    finally:
        for path in work.glob("out.*"):
            path.unlink()
    return 0


if __name__ == "__main__":
    sys.exit(main())

# SPDX-License-Identifier: MIT
"""Measures every operation of the program at four sizes, beside other tools where there are any. Prints a report, and
writes it as a page (report.md) with a picture (report.svg). Goals stand beside the figures; missing one is no failure.

Exit status: 0 everything was measured, 1 a tool failed.
"""

import argparse
import os
import shutil
import sys
from dataclasses import dataclass
from pathlib import Path

import picture
import report
import trace_cost
from floors import floor_tools, make_floors
from goals import Figures, Sample
from inputs import TO_DWARF, Workshop, size_text
from operations import GROUPS, OPERATIONS, PROGRAMS, QUICK_PROGRAMS, SIZE_LISTS
from tools import GNU_TIME, OWN_MEMORY, Failure, Tool, measure
from workloads import ARGUMENTS

ROOT = Path(__file__).resolve().parents[1]
RELEASE = ROOT / "build" / "release"

RUNS, QUICK_RUNS = 5, 1
EMPTY_RUNS = 21
TRACE_RUNS = 21  # a difference of one in a hundred shows in many runs only


def tool_of(name, command, as_output, places, number):
    """A tool from its command in the table; `number` parts its outputs from those of others."""
    output = places["work"] / f"out.{number}{as_output if as_output.startswith('.') else ''}"
    words = [word.format(out=output, **places) for word in command.split()]
    return Tool(name, words, output, "" if as_output.startswith(".") else as_output, places["folder"])


def sample_of(shop, floors, operation, size, number):
    """An operation at one size, not measured yet; None where its input can't be made here."""
    source = shop.input(operation.make_input, size)
    if source is None:
        return None
    places = {"program": shop.program, "in": source.path, "image": source.image_path, "peer": source.peer}
    places |= {"work": shop.work, "folder": source.folder}
    ours = tool_of("tarnwick", operation.command, operation.as_output, places, f"{number}.ours")
    peers = [
        tool_of(name, command, ".out" if "{out}" in command else "stdout", places, f"{number}.{index}")
        for index, (name, command) in enumerate(operation.peers)
        if shutil.which(command.split()[0])
    ]
    return Sample(source, ours, peers, floor_tools(floors, operation.floors, source, shop.work) if floors else [])


def figures_of(shop, floors, operation, sizes, empty, runs):
    samples = [sample_of(shop, floors, operation, size, number) for number, size in enumerate(sizes)]
    if None in samples:
        return None
    measure([tool for sample in samples for tool in (sample.ours, *sample.peers, *sample.floors)], runs)
    return Figures(operation, samples, empty)


@dataclass
class EmptyRuns:
    """What every run costs."""

    converts: Tool
    prints: Tool

    def of(self, operation):
        return self.prints if operation.prints_input() else self.converts


def measure_empty_runs(shop):
    image, record, output = shop.tiny_image(), shop.tiny_record_file(), shop.work / "out.empty"
    empties = EmptyRuns(
        Tool("tarnwick", [shop.program, *ARGUMENTS, str(image), "-os19", str(output)], output, folder=shop.work),
        Tool("tarnwick", [shop.program, "-d", str(record)], output.with_suffix(".d"), "stdout", shop.work),
    )
    measure([empties.converts, empties.prints], EMPTY_RUNS)
    print(f"an empty run takes {report.cost_text(empties.converts)}, to print {report.cost_text(empties.prints)}")
    return empties


def report_trace(shop, quick):
    """Only when asked for: it builds the program twice."""
    sizes = QUICK_PROGRAMS if quick else PROGRAMS
    small, large = shop.program_folder(sizes[0]), shop.program_folder(sizes[-1])

    def make_tool(program):
        return shop.converter(TO_DWARF, shop.work / "out.trace.elf", program)

    trace_cost.report(ROOT, shop.work, small, large, make_tool, QUICK_RUNS if quick else TRACE_RUNS)


def report_operations(shop, groups, options):
    runs = options.runs or (QUICK_RUNS if options.quick else RUNS)
    busy = os.getloadavg()[0]
    print(f"processor time: median of up to {runs} runs; memory: peak of the resident set")
    if not GNU_TIME:
        print(f"without GNU time no memory below the {size_text(OWN_MEMORY)} of this script can be told")
    empties = measure_empty_runs(shop)
    floors = make_floors(RELEASE, shop.work) if "hex" in groups else None
    all_figures = []
    for operation in OPERATIONS:
        if operation.group in groups:
            sizes = SIZE_LISTS[operation.sizes][options.quick]
            figures = figures_of(shop, floors, operation, sizes, empties.of(operation), runs)
            if figures is None:
                print(f"\n{operation.title}: not measured, no such input can be made here")
                continue
            report.print_figures(figures)
            all_figures.append(figures)
    options.report.mkdir(parents=True, exist_ok=True)
    page = options.report / "report.md"
    load = (busy, os.getloadavg()[0])
    page.write_text(report.page(all_figures, empties, runs, options.quick, load), encoding="utf-8")
    page.with_suffix(".svg").write_text(picture.svg(all_figures), encoding="utf-8")
    print(f"\nwritten: {page} and {page.with_suffix('.svg').name}")


def parse_arguments():
    parser = argparse.ArgumentParser(
        prog="bench", description="Measures every operation at four sizes, beside other tools, and reports it."
    )
    parser.add_argument("--quick", action="store_true", help="small inputs, one run")
    parser.add_argument("--runs", type=int, help=f"runs of each tool, at most (default: {RUNS})")
    parser.add_argument(
        "--only",
        choices=[*GROUPS, "trace"],
        help="one group of operations, or the cost of trace calls, which is measured only so",
    )
    parser.add_argument(
        "--program",
        type=Path,
        default=RELEASE / "compiler/tarnwick/tarnwick",
        help="the program to measure (default: the release build)",
    )
    parser.add_argument(
        "--work",
        type=Path,
        default=ROOT / "build/bench/work",
        help="folder for inputs, which stay, and outputs (default: build/bench/work)",
    )
    parser.add_argument(
        "--report",
        type=Path,
        default=ROOT / "build/bench",
        help="folder for report.md and report.svg (default: build/bench)",
    )
    return parser.parse_args()


def main():
    options = parse_arguments()
    work = options.work.resolve()
    work.mkdir(parents=True, exist_ok=True)
    shop = Workshop(options.program.resolve(), work)
    try:
        if options.only == "trace":
            report_trace(shop, options.quick)
        else:
            report_operations(shop, [options.only] if options.only else GROUPS, options)
    except Failure as failure:
        print(f"bench: {failure}", file=sys.stderr)
        return 1
    finally:
        for path in [*work.glob("out.*"), *work.glob("derived-*")]:
            path.unlink()
    return 0


if __name__ == "__main__":
    sys.exit(main())

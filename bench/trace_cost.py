# SPDX-License-Identifier: MIT
"""What the trace calls and assertions cost while tracing is off: the program as it is beside one built without them.

Instructions are counted where a counter works: that of the processor, else callgrind, on a small program, since it is
slow. Their number is the same from run to run. Times are medians of runs that take turns; they depend on the machine's
other work, so the program with the calls runs twice in each turn: how far it is from itself tells what a difference is
worth.
"""

import os
import re
import shutil
import statistics
import subprocess

from tools import Failure

LIMIT = 1.0  # percent that the calls may cost


def command(*words, **options):
    outcome = subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False, **options)
    if outcome.returncode != 0:
        raise Failure(f"{' '.join(map(str, words))}\n{outcome.stdout[-2000:]}")
    return outcome.stdout


def build(root, work, calls):
    """The program, built as for a release."""
    folder = work / f"trace-{calls.lower()}"
    options = ["-DBUILD_TESTING=OFF", f"-DTARN_TRACE_CALLS={calls}"]
    command("cmake", "--preset", "release", "-S", root, "-B", folder, *options)
    command("cmake", "--build", folder, "--target", "tarnwick", "--parallel", str(os.cpu_count()))
    return folder / "compiler" / "tarnwick" / "tarnwick"


def by_processor(tool, folder, counts):
    """Instructions of a run by the processor's own counter; None where it has none for us."""
    if not shutil.which("perf"):
        return None
    counter = ["perf", "stat", "-x", ",", "-e", "instructions:u", "-o", counts, "--", *tool.command]
    outcome = subprocess.run(counter, cwd=folder, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False)
    found = re.search(r"^(\d+),", counts.read_text(), re.MULTILINE) if outcome.returncode == 0 else None
    return int(found[1]) if found else None


def by_callgrind(tool, folder, counts):
    if not shutil.which("valgrind"):
        return None
    told = command("valgrind", "--tool=callgrind", f"--callgrind-out-file={counts}", *tool.command, cwd=folder)
    return int(re.search(r"Collected : (\d+)", told)[1])


def count(tools, folder, work):
    """The name of the counter, and the instructions of each tool."""
    counts = work / "out.counts"
    for name, counter in (("the processor", by_processor), ("callgrind", by_callgrind)):
        found = [counter(tool, folder, counts) for tool in tools]
        if None not in found:
            return name, found
    return None, []


def verdict(text, percent, noise=0.0):
    met = "met" if percent <= LIMIT else "undecided, the noise is larger" if percent - noise <= LIMIT else "MISSED"
    print(f"  {text}: {percent:+.2f} % (goal: at most {LIMIT:.0f}; {met})")


def excess(left, right):
    """In percent."""
    return (left / right - 1) * 100


def run_all(tools, folder):
    for tool in tools:
        tool.run(folder)


def report(root, work, small, large, make_tool, runs):
    """`small` and `large` are folders with a program; `make_tool` gives the conversion of one by a given executable."""
    print("\nCost of trace calls and assertions while tracing is off: map file, databases and image to ELF with DWARF")
    programs = {calls: str(build(root, work, calls)) for calls in ("ON", "OFF")}
    with_calls, without, again = tools = [make_tool(programs[calls]) for calls in ("ON", "OFF", "ON")]
    with_calls.name, without.name, again.name = "with the calls", "without", "with the calls, again"

    counter, instructions = count([with_calls, without], small, work)
    if counter:
        figures = f"{instructions[0]:,} with, {instructions[1]:,} without"
        print(f"  instructions on {small.name}, counted by {counter}: {figures}")
        verdict("instructions", excess(*instructions))
    else:
        print("  instructions: no counter works here (perf, valgrind)")

    run_all(tools, large)  # the first run of each finds the files not yet in memory
    for tool in tools:
        tool.times.clear()
    for turn in range(runs):  # each stands in every place of a turn: what ran before leaves its mark
        first = turn % len(tools)
        run_all(tools[first:] + tools[:first], large)
    for tool in tools:
        spread = f"{min(tool.times):.3f} to {max(tool.times):.3f}"
        print(f"  time on {large.name}, {tool.name}: {statistics.median(tool.times):.3f} s, {spread} in {runs} runs")
    noise = abs(excess(again.time(), with_calls.time()))
    print(f"  noise: {noise:.2f} % between the medians of the same program")
    verdict("time, medians", excess(statistics.median(with_calls.times + again.times), without.time()), noise)

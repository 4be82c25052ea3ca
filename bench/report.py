# SPDX-License-Identifier: MIT
"""Puts what was measured into words: on the terminal while it goes, and as one page of markdown at the end."""

import os
import platform
from pathlib import Path

from goals import EXPONENT, SPEED_UNIT, TOO_SMALL, WORTH_MEASURING, verdict
from inputs import size_text


def title(text):
    print(f"\n{text}\n{'-' * len(text)}")


def tool_cell(tool):
    return f"{tool.time():.3f} s, {size_text(tool.memory)}"


def rows_of(figures):
    """A table of an operation; the first row is the heading."""
    first = figures.samples[0]
    heading = ["input", "size", "tarnwick", "of an input byte", "input a second", "output"]
    heading += [tool.name for tool in first.peers + first.floors]
    rows = [heading]
    for sample in figures.samples:
        ours = sample.ours
        rows.append(
            [
                sample.input.label,
                size_text(sample.input.size),
                tool_cell(ours),
                f"{ours.memory / sample.input.size:.1f} bytes",
                f"{sample.input.size / ours.time() / SPEED_UNIT:.0f} MB" if ours.time() else "-",
                size_text(ours.written),
                *[tool_cell(tool) for tool in sample.peers + sample.floors],
            ]
        )
    return rows


def remark(figures):
    """What to know about the figures of an operation, or nothing."""
    least = figures.samples[0].ours.time()
    if least >= WORTH_MEASURING:
        return ""
    return f"The smallest input takes {least * 1000:.0f} ms only."


def print_table(rows):
    """The first column stands left."""
    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
    for row in rows:
        cells = [row[0].ljust(widths[0])] + [cell.rjust(width) for cell, width in zip(row[1:], widths[1:])]
        print("  " + "   ".join(cells))


def print_figures(figures):
    title(figures.operation.title)
    print_table(rows_of(figures))
    for outcome in figures.outcomes():
        print(f"  {outcome.what}: {outcome.reached} (goal: {outcome.wanted}; {outcome.verdict})")
    if remark(figures):
        print(f"  {remark(figures)}")


# --- the page ---------------------------------------------------------------------------------------------------------


def markdown_table(rows, mark="--:"):
    """`mark` tells where all columns but the first one stand."""
    marks = ["---"] + [mark] * (len(rows[0]) - 1)
    return ["| " + " | ".join(row) + " |" for row in (rows[0], marks, *rows[1:])]


def processor():
    try:
        lines = Path("/proc/cpuinfo").read_text(encoding="utf-8").splitlines()
    except OSError:
        lines = []
    names = [line.partition(":")[2].strip() for line in lines if line.startswith("model name")]
    return names[0] if names else platform.machine()


def cost_text(tool):
    return f"{tool.time() * 1000:.1f} ms and {size_text(tool.memory)}"


def head_lines(empties, runs, quick, busy):
    """`busy` are the load averages before and after."""
    yield "# What Tarnwick costs"
    yield ""
    yield f"{processor()}, {os.cpu_count()} processors, {platform.system()} {platform.release()}."
    yield f"Load average {busy[0]:.1f} before and {busy[1]:.1f} after."
    if quick:
        yield "Small inputs: the figures say that everything works, and little else."
    yield ""
    yield "Times are processor time, user and system, of a run."
    if runs > 1:
        yield f"The median of up to {runs} runs counts, in which all tools and sizes take turns."
    yield "Memory is the peak of the resident set."
    yield ""
    yield "An exponent is that of the power of the input's size with which a figure grows: by least squares over all"
    yield "sizes, and between the two largest. It is taken from what is above an empty run, and less than 1 MiB above"
    yield f"counts as 1 MiB. An empty run takes {cost_text(empties.converts)} to convert,"
    yield f"{cost_text(empties.prints)} to print."
    yield ""
    yield "![Time and memory by size of input](report.svg)"


def growth_verdict(figures):
    outcomes = list(figures.growth_outcomes())
    missed = [outcome.what.removeprefix("exponent of ") for outcome in outcomes if outcome.verdict == verdict(False)]
    if missed:
        return f"{verdict(False)}: {'; '.join(missed)}"
    return TOO_SMALL if any(outcome.verdict == TOO_SMALL for outcome in outcomes) else verdict(True)


def summary_rows(all_figures):
    heading = ["operation", "largest input", "time", "memory"]
    yield [*heading, "exponent of time", "two largest", "exponent of memory", "two largest", f"at most {EXPONENT}"]
    for figures in all_figures:
        last = figures.samples[-1]
        yield [
            figures.operation.title,
            size_text(last.input.size),
            f"{last.ours.time():.3f} s",
            size_text(last.ours.memory),
            *[f"{number:.2f}" for number in (*figures.time_exponents(), *figures.memory_exponents())],
            growth_verdict(figures),
        ]


def goal_rows(all_figures):
    yield ["operation", "goal", "wanted", "reached", ""]
    for figures in all_figures:
        growth = len(list(figures.growth_outcomes()))
        for outcome in list(figures.outcomes())[growth:]:
            yield [figures.operation.title, outcome.what, outcome.wanted, outcome.reached, outcome.verdict]


def page(all_figures, empties, runs, quick, busy):
    lines = [*head_lines(empties, runs, quick, busy), "", "## Growth", ""]
    lines += markdown_table(list(summary_rows(all_figures)))
    goals = list(goal_rows(all_figures))
    if len(goals) > 1:
        lines += ["", "## Goals", "", *markdown_table(goals, "---")]
    lines += ["", "## Figures"]
    for figures in all_figures:
        lines += ["", f"### {figures.operation.title}", "", *markdown_table(rows_of(figures))]
        if remark(figures):
            lines += ["", remark(figures)]
    return "\n".join(lines) + "\n"

# SPDX-License-Identifier: MIT
"""The figures as an SVG: for each panel time and memory by size of input, all scales logarithmic."""

import math
from html import escape

COLOURS = ["#0072b2", "#d55e00", "#009e73", "#cc79a7", "#e69f00", "#56b4e9", "#444444", "#8c564b"]

PLOT_WIDTH, PLOT_HEIGHT = 360, 260
LEFT, TOP, GAP = 70, 40, 80  # around a plot
LEGEND_WIDTH, LEGEND_ROW = 330, 18
ROW_HEIGHT = TOP + PLOT_HEIGHT + 60
MANY = 64
MARGIN = 1.3  # free space around the points, as a factor

UNITS = {"bytes": ((1 << 30, "GiB"), (1 << 20, "MiB"), (1 << 10, "KiB")), "seconds": ((1, "s"), (1e-3, "ms"))}


def label_of(value, unit):
    for factor, name in UNITS[unit]:
        if value >= factor * 0.999:
            return f"{value / factor:.4g} {name}"
    return f"{value:.2g} {unit}"


class Scale:
    """From values to places, by logarithm."""

    def __init__(self, values, unit, start, end):
        self.low, self.high = min(values) / MARGIN, max(values) * MARGIN
        self.unit, self.start, self.end = unit, start, end

    def place(self, value):
        share = math.log(value / self.low) / math.log(self.high / self.low)
        return self.start + share * (self.end - self.start)

    def ticks(self):
        """Powers of 2 for bytes, of 4 where that would be many, and 1, 2, 5 and their like for seconds."""
        if self.unit == "bytes":
            steps = [2.0**power for power in range(0, 50, 2 if self.high / self.low > MANY else 1)]
        else:
            steps = [digit * 10.0**power for power in range(-6, 5) for digit in (1, 2, 5)]
        return [value for value in steps if self.low <= value <= self.high]


def text(x, y, words, anchor="start", size=12, extra=""):
    return f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" font-size="{size}"{extra}>{escape(words)}</text>'


def line(x1, y1, x2, y2, style):
    return f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" {style}/>'


def curve(points, colour, dashed):
    """A line through the points, with a dot at each unless it is dashed."""
    path = " ".join(f"{x:.1f},{y:.1f}" for x, y in points)
    dash = ' stroke-dasharray="5 4" stroke-width="1.2"' if dashed else ' stroke-width="2"'
    yield f'<polyline points="{path}" fill="none" stroke="{colour}"{dash}/>'
    if not dashed:
        for x, y in points:
            yield f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3" fill="{colour}"/>'


def plot(left, top, heading, unit, curves):
    """`curves` are (points, colour, dashed); a point is a size and a figure."""
    xs = Scale([x for points, _, _ in curves for x, _ in points], "bytes", left, left + PLOT_WIDTH)
    ys = Scale([y for points, _, _ in curves for _, y in points], unit, top + PLOT_HEIGHT, top)
    grid, frame = 'stroke="#dddddd"', 'fill="none" stroke="#888888"'
    yield text(left, top - 10, heading, size=13, extra=' font-weight="bold"')
    for value in xs.ticks():
        x = xs.place(value)
        yield line(x, top, x, top + PLOT_HEIGHT, grid)
        yield text(x, top + PLOT_HEIGHT + 16, label_of(value, "bytes"), "middle", 10)
    for value in ys.ticks():
        y = ys.place(value)
        yield line(left, y, left + PLOT_WIDTH, y, grid)
        yield text(left - 6, y + 4, label_of(value, unit), "end", 10)
    yield f'<rect x="{left}" y="{top}" width="{PLOT_WIDTH}" height="{PLOT_HEIGHT}" {frame}/>'
    yield text(left + PLOT_WIDTH / 2, top + PLOT_HEIGHT + 34, "size of input", "middle", 11)
    yield from linear_growth(xs, ys)
    for points, colour, dashed in curves:
        yield from curve([(xs.place(x), ys.place(y)) for x, y in points], colour, dashed)


def linear_growth(xs, ys):
    """A thin line with the exponent 1, as far as the plot goes, through its lower left corner or near it."""
    most = min(xs.high / xs.low, ys.high / ys.low)
    yield line(
        xs.place(xs.low), ys.place(ys.low), xs.place(xs.low * most), ys.place(ys.low * most),
        'stroke="#999999" stroke-dasharray="1 3"',
    )  # fmt: skip


def time_curves(panel):
    """Dashed is the fastest peer."""
    for figures, colour in zip(panel, COLOURS):
        yield [(sample.input.size, sample.ours.time()) for sample in figures.samples], colour, False
        if all(sample.peers for sample in figures.samples):
            yield [(sample.input.size, sample.fastest_peer().time()) for sample in figures.samples], colour, True


def memory_curves(panel):
    for figures, colour in zip(panel, COLOURS):
        yield [(sample.input.size, sample.ours.memory) for sample in figures.samples], colour, False


def legend(left, top, panel):
    for row, (figures, colour) in enumerate(zip(panel, COLOURS)):
        y = top + row * LEGEND_ROW
        yield line(left, y, left + 24, y, f'stroke="{colour}" stroke-width="2"')
        yield text(left + 32, y + 4, figures.operation.title)
    y = top + (len(panel) + 0.5) * LEGEND_ROW
    if any(sample.peers for figures in panel for sample in figures.samples):
        yield line(left, y, left + 24, y, 'stroke="#444444" stroke-width="1.2" stroke-dasharray="5 4"')
        yield text(left + 32, y + 4, "the fastest peer, in the same colour")
        y += LEGEND_ROW
    yield line(left, y, left + 24, y, 'stroke="#999999" stroke-dasharray="1 3"')
    yield text(left + 32, y + 4, "linear growth")


def panels_of(all_figures):
    panels = {}
    for figures in all_figures:
        panels.setdefault(figures.operation.panel, []).append(figures)
    return panels


def svg(all_figures):
    panels = panels_of(all_figures)
    width, height = 2 * (LEFT + PLOT_WIDTH) + GAP + LEGEND_WIDTH, len(panels) * ROW_HEIGHT
    parts = []
    for row, (name, panel) in enumerate(panels.items()):
        top = row * ROW_HEIGHT + TOP
        second = LEFT + PLOT_WIDTH + GAP
        parts += plot(LEFT, top, f"{name}: time", "seconds", list(time_curves(panel)))
        parts += plot(second, top, f"{name}: memory", "bytes", list(memory_curves(panel)))
        parts += legend(second + PLOT_WIDTH + 30, top + 10, panel)
    opening = f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" font-family="sans-serif">'
    background = f'<rect width="{width}" height="{height}" fill="white"/>'
    return "\n".join([opening, background, *parts, "</svg>"]) + "\n"

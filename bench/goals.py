# SPDX-License-Identifier: MIT
"""Figures of an operation, the exponents of their growth, and the goals that they are held against.

An exponent is that of the power of the input's size with which time or memory grows: 1 is linear. It is taken from what
is above the cost of an empty run, so that neither the start of a process nor the memory it has anyway hides growth.
"""

import math
from dataclasses import dataclass

from inputs import MIB, Input, size_text
from tools import Tool

EXPONENT = 1.1  # at most
LEAST_TIME = 0.0005  # seconds above an empty run; what is less counts as this
LEAST_MEMORY = MIB  # likewise; a program that needs no more than this at any size is constant
WORTH_MEASURING = 0.010  # seconds: a shorter time says little

SPEED_UNIT = 1e6


@dataclass
class Sample:
    """An operation at one size."""

    input: Input
    ours: Tool
    peers: list  # of Tool
    floors: list  # of Tool

    def fastest_peer(self):
        return min(self.peers, key=Tool.time)

    def peer_ratio(self):
        return self.fastest_peer().time() / self.ours.time()

    def floor_ratio(self):
        return self.ours.time() / sum(map(Tool.time, self.floors))


@dataclass
class Outcome:
    what: str
    reached: str
    wanted: str
    verdict: str


TOO_SMALL = "inputs too small"


def verdict(met):
    return "met" if met else "MISSED"


def worth_comparing(samples):
    """Those that are more than the start of a process; one in any case."""
    return [sample for sample in samples if sample.ours.time() >= WORTH_MEASURING] or samples[-1:]


# --- growth -----------------------------------------------------------------------------------------------------------


def slope(points):
    """Of the straight line with the least squares, in logarithms."""
    logs = [(math.log(x), math.log(y)) for x, y in points]
    mean_x = sum(x for x, _ in logs) / len(logs)
    mean_y = sum(y for _, y in logs) / len(logs)
    return sum((x - mean_x) * (y - mean_y) for x, y in logs) / sum((x - mean_x) ** 2 for x, _ in logs)


def exponents(sizes, figures, least):
    """Over all sizes, and between the two largest."""
    points = [(size, max(figure, least)) for size, figure in zip(sizes, figures)]
    return slope(points), slope(points[-2:])


@dataclass
class Figures:
    operation: object
    samples: list
    empty: Tool

    def sizes(self):
        return [sample.input.size for sample in self.samples]

    def time_exponents(self):
        times = [sample.ours.time() - self.empty.time() for sample in self.samples]
        return exponents(self.sizes(), times, LEAST_TIME)

    def memory_exponents(self):
        memories = [sample.ours.memory - self.empty.memory for sample in self.samples]
        return exponents(self.sizes(), memories, LEAST_MEMORY)

    def growth_outcomes(self):
        """Times of inputs that are too small say nothing about growth."""
        judged = self.samples[0].ours.time() >= WORTH_MEASURING
        for what, found in (("time", self.time_exponents()), ("memory", self.memory_exponents())):
            for where, exponent in zip(("all sizes", "two largest"), found):
                met = verdict(exponent <= EXPONENT) if judged or what == "memory" else TOO_SMALL
                yield Outcome(f"exponent of {what}, {where}", f"{exponent:.2f}", f"at most {EXPONENT}", met)

    def outcomes(self):
        yield from self.growth_outcomes()
        for goal in self.operation.goals:
            yield from goal.outcomes(self.samples)


# --- goals ------------------------------------------------------------------------------------------------------------


@dataclass(frozen=True)
class PeerRatio:
    """Times as fast as the fastest peer, at every size worth comparing."""

    least: float

    def outcomes(self, samples):
        what, wanted = "speed beside the fastest peer, lowest of all sizes", f"at least {self.least:g} times"
        if not samples[0].peers:
            yield Outcome(what, "no peer is installed", wanted, "not measured")
            return
        slowest = min(worth_comparing(samples), key=Sample.peer_ratio)
        ratio, peer = slowest.peer_ratio(), slowest.fastest_peer().name
        yield Outcome(what, f"{ratio:.2f} times {peer} at {slowest.input.label}", wanted, verdict(ratio >= self.least))


@dataclass(frozen=True)
class FloorRatio:
    """Times the sum of the floors, at every size worth comparing."""

    most: float

    def outcomes(self, samples):
        what, wanted = "time beside the sum of the floors, highest of all sizes", f"at most {self.most:g} times"
        if not samples[0].floors:
            yield Outcome(what, "the floors are not built", wanted, "not measured")
            return
        slowest = max(worth_comparing(samples), key=Sample.floor_ratio)
        ratio = slowest.floor_ratio()
        yield Outcome(what, f"{ratio:.2f} times at {slowest.input.label}", wanted, verdict(ratio <= self.most))


@dataclass(frozen=True)
class InputSpeed:
    """Bytes of payload in a second, at the size with this index."""

    index: int
    least: float

    def outcomes(self, samples):
        sample = samples[self.index]
        speed = sample.input.payload / sample.ours.time()
        reached, wanted = f"{speed / SPEED_UNIT:.0f} MB in a second", f"at least {self.least / SPEED_UNIT:.0f} MB"
        yield Outcome(f"speed at {sample.input.label}", reached, wanted, verdict(speed >= self.least))


@dataclass(frozen=True)
class BytesEach:
    """Bytes of memory for each byte of the largest input, as `of` measures it."""

    most: float
    of: str  # a field of Input: "size" or "image"
    aim: float = 0  # what would be better still

    def outcomes(self, samples):
        share = samples[-1].ours.memory / getattr(samples[-1].input, self.of)
        byte = "image byte" if self.of == "image" else "input byte"
        what, reached = f"memory for each {byte}", f"{share:.1f} bytes"
        yield Outcome(what, reached, f"at most {self.most:g} bytes", verdict(share <= self.most))
        if self.aim:
            yield Outcome(what, reached, f"as an aim, {self.aim:g} bytes", verdict(share <= self.aim))


@dataclass(frozen=True)
class BytesBeside:
    """Memory beside the size of the largest file."""

    most: int

    def outcomes(self, samples):
        beside = samples[-1].ours.memory - samples[-1].input.path.stat().st_size
        reached, wanted = size_text(beside), f"at most {size_text(self.most)}"
        yield Outcome("memory beside the size of the file", reached, wanted, verdict(beside <= self.most))

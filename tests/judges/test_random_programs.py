#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Programs out of fixed seeds through the program and the reference model, whose outputs must be the same.

    test_random_programs.py                      judges
    test_random_programs.py --write SEED FOLDER  writes the program of a seed and prints how it is run
"""

import sys
import unittest
from pathlib import Path

import judging
from random_program import Program
from reference_model import Model

SEEDS = range(1, 41)

OUTPUTS = ["--disable-dwarf", "-oelf", "o.elf", "-os19", "o.s19", "-oihex", "o.ihex"]

# Arguments, and what they mean to the model.
VARIANTS = [([], {}), (["-b"], {"big_endian": True}), (["-a"], {"fake_abs": True})]


def model_of(made, **settings):
    model = Model(made.options(**settings))
    files = made.files()
    for name in made.reading_order():
        if name == "prog.tmf":
            model.read_map(files[name])
        else:
            model.read_image(files[name])
    model.consolidate()
    return model


def write_program(made, folder):
    folder.mkdir(parents=True, exist_ok=True)
    for name, text in made.files().items():
        (folder / name).write_bytes(text.encode(judging.ENCODING))


class RandomPrograms(judging.Judge):
    """One test for each seed, made below."""

    def judge(self, seed):
        made = Program(seed)
        folder = self.scratch / str(seed)
        write_program(made, folder)
        for flags, settings in VARIANTS:
            arguments = made.arguments(*flags)
            with self.subTest(seed=seed, command=" ".join(arguments)):
                self.run_silently(arguments + OUTPUTS, folder)
                model = model_of(made, **settings)
                self.assert_elf(model, folder / "o.elf")
                self.assert_images(model, folder / "o.s19", folder / "o.ihex")


for number in SEEDS:
    setattr(RandomPrograms, f"test_seed_{number:02}", lambda self, seed=number: self.judge(seed))


class Coverage(unittest.TestCase):
    """The seeds reach what they are there for; a judge of forty empty programs would pass."""

    def test_the_seeds_reach_the_odd_corners(self):
        reached = {}
        for seed in SEEDS:
            made = Program(seed)
            model = model_of(made)
            names = [segment.name for segment in model.segments]
            symbols = {symbol.name for symbol in model.symbols}
            for corner, found in {
                "a segment split at a hole": any(name.endswith("$1") and name[:5] != "dabs$" for name in names),
                "a segment split by flags": any(name.endswith("_1") and name in names[1:] for name in names),
                "stray data": any(name.startswith("_stray_data_1") for name in names),
                "absolute data": any(name.startswith("dabs$") for name in names),
                "a dropped bound": symbols < made.labels.keys(),
                "no image": not model.data,
                "data in no segment": any(block.seg == 0 for block in model.data),
                "overlapping data": any(
                    left.addr <= right.addr < left.end() for left, right in zip(model.data, model.data[1:])
                ),
                "an empty segment": any(segment.size == 0 for segment in model.segments),
                "notes": bool(model.notes),
                "an extended address": any(block.addr > 0xFFFF for block in model.data),
                "an S3 record": any(block.addr > 0xFFFFFF for block in model.data),
                "words": any(segment.delta == 2 for segment in model.segments),
                "a symbol in no segment": any(symbol.seg == 0 and symbol.psect for symbol in model.symbols),
                "a negative load adjustment": any(s.psect and s.load < s.value for s in model.symbols),
            }.items():
                reached[corner] = reached.get(corner, 0) + found
        self.assertEqual([corner for corner, count in reached.items() if count == 0], [])

    def test_one_seed_gives_one_program(self):
        self.assertEqual(Program(7).files(), Program(7).files())
        self.assertNotEqual(Program(7).files(), Program(8).files())


if __name__ == "__main__":
    if sys.argv[1:2] == ["--write"]:
        chosen = Program(int(sys.argv[2]))
        write_program(chosen, Path(sys.argv[3]))
        print("tarnwick", *chosen.arguments(), *OUTPUTS)
    else:
        judging.main()

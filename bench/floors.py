# SPDX-License-Identifier: MIT
"""Builds and runs `floors.cpp`: what a conversion of images costs at the least."""

import json
import shlex
import subprocess
from pathlib import Path

from tools import Failure, Tool

SOURCE = Path(__file__).with_suffix(".cpp")
MODEL = "compiler/tarnwick/main.cpp"  # what is compiled in the same way
CHECK_SIZE = 100_001  # bytes of an image that has an upper address and a short line


def command(*words):
    outcome = subprocess.run(words, capture_output=True, text=True, check=False)
    if outcome.returncode != 0:
        raise Failure(f"{' '.join(map(str, words))}\n{outcome.stderr[-2000:]}")
    return outcome.stdout


def make_floors(build, work):
    """Compiles the floors with the flags of a build folder. None when that doesn't tell its flags."""
    listing = build / "compile_commands.json"
    if not listing.is_file():
        print("the floors are not measured: the release is not built")
        return None
    entries = json.loads(listing.read_text(encoding="utf-8"))
    words = shlex.split(next(entry["command"] for entry in entries if entry["file"].endswith(MODEL)))
    floors = work / "floors"
    command(*words[: words.index("-o")], SOURCE, "-o", floors)
    check(floors, work)
    return floors


def check(floors, work):
    """What one half writes the other one reads."""
    image = work / "out.floors"
    for image_format in ("ihex", "srec"):
        command(floors, "format", image_format, str(CHECK_SIZE), image)
        if int(command(floors, "parse", image_format, image)) != CHECK_SIZE:
            raise Failure(f"the floors for {image_format} don't fit each other")


def floor_tools(floors, formats, source, work):
    """The two halves of a conversion; none for operations that have no floors."""
    if not formats:
        return []
    read, written = formats
    output = work / f"out.floors.{source.image}"
    parsed = output.with_suffix(".parsed")
    parse = [str(floors), "parse", read, str(source.path)]
    write = [str(floors), "format", written, str(source.image), str(output)]
    return [
        Tool(f"floor: parse {read}", parse, parsed, "stdout", work),
        Tool(f"floor: format {written}", write, output, folder=work),
    ]

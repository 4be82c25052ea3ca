#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Checks that the project's includes point downwards only.

    check_includes.py ROOT
    check_includes.py --self-test

Every #include "..." must be written from the root of the repository, must exist, and must name a folder that the
including one may see: a lower room or its own. Each fault is printed as `file:line: reason`; the exit status is 1 when
there is one.
"""

import contextlib
import io
import re
import sys
import tempfile
from pathlib import Path

# Room -> the rooms that it may include. A source belongs to the first room that its path begins with.
ROOMS = {
    "common/": ["common/"],
    "compiler/common/": ["common/", "compiler/common/"],
    "compiler/tarnwick/": ["common/", "compiler/common/", "compiler/tarnwick/"],
    "docs/reference/": ["common/", "compiler/common/", "compiler/tarnwick/", "docs/reference/"],
    "tests/": ["common/", "compiler/common/", "compiler/tarnwick/", "tests/"],
}

SOURCE_SUFFIXES = {".h", ".hpp", ".inc", ".def", ".c", ".cc", ".cpp"}

INCLUDE = re.compile(r'^\s*#\s*include\s*(?:"([^"]*)"|<([^>]*)>)')


def sources_below(root):
    """The rooms' sources. The top folders are walked whole, so that one outside of any room is found too."""
    for top in sorted({room.split("/")[0] for room in ROOMS}):
        for path in sorted((root / top).rglob("*")):
            if path.suffix in SOURCE_SUFFIXES and path.is_file():
                yield path


def fault_of(root, name, allowed, quoted, bracketed):
    """What is wrong with one include of the source `name`, or None."""
    if quoted is None:
        if any(bracketed.startswith(room) for room in ROOMS):
            return f'<{bracketed}> is of this project: write "{bracketed}"'
        return None
    parts = quoted.split("/")
    if quoted.startswith("/") or "." in parts or ".." in parts or not (root / quoted).is_file():
        return f'"{quoted}" is not a file, as seen from the root of the repository'
    if not any(quoted.startswith(room) for room in allowed):
        return f'"{quoted}" points upwards: {name} may include {", ".join(allowed)} only'
    return None


def check(root):
    """Returns the number of sources read and the list of faults."""
    count = 0
    faults = []
    for path in sources_below(root):
        count += 1
        name = path.relative_to(root).as_posix()
        room = next((room for room in ROOMS if name.startswith(room)), None)
        if room is None:
            faults.append(f"{name}: stands in no room of the project")
            continue
        for number, line in enumerate(path.read_text(errors="replace").splitlines(), 1):
            match = INCLUDE.match(line)
            if match:
                fault = fault_of(root, room, ROOMS[room], *match.groups())
                if fault:
                    faults.append(f"{name}:{number}: {fault}")
    return count, faults


def main(root):
    count, faults = check(root)
    for fault in faults:
        print(fault)
    if count == 0:
        print(f"{root}: no sources found, nothing was checked")
        return 1
    print(f"{count} sources read, {len(faults)} faults")
    return 1 if faults else 0


def self_test():
    """Each bad include must be found in a tree that is good without it."""
    good = {
        "common/a.h": "#include <vector>\n",
        "common/a.cpp": '#include "common/a.h"\n',
        "compiler/common/b.h": '#include "common/a.h"\n',
        "compiler/common/b.cpp": '#include "compiler/common/b.h"\n',
        "compiler/tarnwick/c.h": '#include "compiler/common/b.h"\n#include "common/a.h"\n',
        "compiler/tarnwick/c.cpp": '#include "compiler/tarnwick/c.h"\n',
        "tests/unit/common/a_test.cpp": '#include <gtest/gtest.h>\n#include "common/a.h"\n',
        "tests/unit/tarnwick/c_test.cpp": '  # include "compiler/tarnwick/c.h"\n',
    }
    bad = [
        ("common/x.cpp", '#include "compiler/common/b.h"', "points upwards"),
        ("common/x.h", '#include "compiler/tarnwick/c.h"', "points upwards"),
        ("compiler/common/x.cpp", '#include "compiler/tarnwick/c.h"', "points upwards"),
        ("compiler/tarnwick/x.cpp", '#include "tests/unit/common/a_test.cpp"', "points upwards"),
        ("common/deep/x.cpp", '#  include  "compiler/common/b.h"', "points upwards"),
        ("common/x.cpp", '#include "a.h"', "not a file"),
        ("common/x.cpp", '#include "common/gone.h"', "not a file"),
        ("common/x.cpp", '#include "common/../compiler/common/b.h"', "not a file"),
        ("compiler/tarnwick/x.cpp", '#include "../common/b.h"', "not a file"),
        ("compiler/tarnwick/x.cpp", "#include <common/a.h>", "is of this project"),
        ("compiler/other/x.cpp", "", "no room"),
    ]
    wrong = 0

    def run(files):
        with tempfile.TemporaryDirectory() as folder:
            for name, text in files.items():
                path = Path(folder, name)
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(text)
            printed = io.StringIO()
            with contextlib.redirect_stdout(printed):
                status = main(Path(folder))
            return status, printed.getvalue()

    def expect(what, files, want_status, want_text):
        nonlocal wrong
        status, printed = run(files)
        if status != want_status or want_text not in printed:
            wrong += 1
            print(f"self-test: {what}: status {status}, expected {want_status} and {want_text!r}; it printed:\n{printed}")

    expect("the good tree", good, 0, f"{len(good)} sources read, 0 faults")
    expect("an empty tree", {}, 1, "nothing was checked")
    for name, line, reason in bad:
        place = f"{name}:2: " if line else name
        expect(f"{line or 'a source'} in {name}", good | {name: f"\n{line}\n"}, 1, reason)
        expect(f"place of {line or 'a source'} in {name}", good | {name: f"\n{line}\n"}, 1, place)
    print("self-test: " + (f"{wrong} checks failed" if wrong else "passed"))
    return 1 if wrong else 0


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    sys.exit(self_test() if sys.argv[1] == "--self-test" else main(Path(sys.argv[1])))

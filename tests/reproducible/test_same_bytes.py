#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Equal inputs give equal outputs: on any day, in any folder, under any habits of the host, and from any build.

Within one build, the outputs of all samples in all formats are made twice, in two worlds that differ in all that must
not matter: the day of the clock and of the inputs' time stamps, the folder, the order in which the inputs were put
there, umask, language, time zone, size of the environment, what fresh memory holds, where the program lies in memory,
and the name by which it was called. What is printed is compared like what is written. SOURCE_DATE_EPOCH is the same
in both; what happens without it is a test of its own.

Where source names are relative, debugging sections hold the folder of the run, as they must. There the two worlds'
folders have names of one length, and the outputs are the same once one name is put for the other.

Between builds, each run of this test leaves the hashes of its outputs in `outputs.sha256` in its build folder, and
compares them with those that other builds of the very same sources have left beside it: in `scripts/test` the build
by clang with its sanitizers is compared with the optimised one by g++, and a developer's debug build with both. No
hash is kept in the repository: it would be nothing but what the program once wrote.

Environment: TARNWICK, TARNWICK_BUILD, TARNWICK_SOURCE, TARNWICK_SAMPLES, TARNWICK_SHARED_SAMPLES.
"""

import hashlib
import os
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

from judging import environment, find_tool, main, program, samples_folder, shared_samples_folder

HERE = Path(__file__).resolve().parent
SOURCE = Path(os.environ["TARNWICK_SOURCE"]).resolve()
BUILD = Path(os.environ["TARNWICK_BUILD"]).resolve()
TABLE = "outputs.sha256"
TIMEOUT_SECONDS = 240

EPOCH = "1700000000"
OTHER_DAY, YET_ANOTHER_DAY = 951782400, 1830297600  # the 29th of February 2000, the 1st of January 2028

# All formats, with the options that reach further code. Sizes of addresses, byte orders and families vary.
CHIP = "tarnwick -pN4A,1234,KOR14,KORM --code-spaces=1 --data-spaces=2 --eeprom-spaces=3"
BLINK = [
    f"{CHIP} --dwarf-addr-size=4 blink.hex blink.tmf -oelf o1.elf -ovcoff o1.cof -oorbell o1.sym"
    " -oihex o1.hex -os19 o1.s19",
    f"{CHIP} --dwarf-addr-size=2 --dwarf-use-ranges=auto --dwarf-use-loclists=always blink.hex blink.tmf -oelf o2.elf",
    f"{CHIP} --dwarf-addr-size=8 -b -a -k --dwarf-use-ranges=always blink.hex blink.tmf -oelf o3.elf -ovcoff o3.cof",
    f"{CHIP} --disable-dwarf -m -v -v blink.hex blink.tmf -oelf o4.elf -ovcoff o4.cof",
    f"{CHIP} --zrdebug=zip:o5.zip --dwarf-addr-size=4 blink.hex blink.tmf -oelf o5.elf -ovcoff o5.cof",
    f"{CHIP} o1.sym blink.hex -oelf o6.elf --dwarf-addr-size=4 -ovcoff o6.cof -oorbell o6.sym",
    f"{CHIP} o1.cof -oihex o7.hex -os19 o7.s19 -oorbell o7.sym",
    "tarnwick -d -v -v -v o1.elf",
    "tarnwick -d -v -v -v o2.elf",
    "tarnwick -d -v -v o1.cof",
    "tarnwick -d -v -v o6.cof",
    f"{CHIP} blink.tmf -oelf o8.elf",  # a fatal report: no address size
]
LEAST_OUTPUTS = 18  # of BLINK, beside what is printed


def samples():
    """Name, folder and commands of each sample."""
    found = [("blink", samples_folder() / "blink", BLINK)]
    shared = shared_samples_folder()
    for folder in sorted(shared.iterdir()) if shared else []:
        if (folder / "cmd.txt").is_file():
            found.append((folder.name, folder, (folder / "cmd.txt").read_text().split("\n")))
    return found


class World:
    """A folder with copies of all samples, and what a run finds there."""

    def __init__(self, root, folder):
        self.root = root
        self.folder = root / folder
        self.variables = {**environment(root), "SOURCE_DATE_EPOCH": EPOCH}
        self.umask = 0o022
        self.wrapper = []
        self.name = "tarnwick"
        self.reverse = False
        self.age = None  # time stamp of the inputs

    def put(self, name, source):
        here = self.folder / name
        here.mkdir(parents=True)
        for path in sorted(source.iterdir(), reverse=self.reverse):
            if path.is_file():
                shutil.copy(path, here)
                if self.age is not None:
                    os.utime(here / path.name, (self.age, self.age))
        return here

    def run(self, name, source, commands):
        """File -> bytes of all that the commands made of the sample, what they printed and their statuses among it."""
        here = self.put(name, source)
        inputs = {path.name for path in here.iterdir()}
        script = [
            f"{self.called(command)} >printed.{number} 2>reported.{number}; echo $? >status.{number}"
            for number, command in enumerate(commands)
            if command
        ]
        outcome = subprocess.run(
            [*self.wrapper, "/bin/sh", "-c", "\n".join(script)],
            cwd=here,
            env=self.variables,
            umask=self.umask,
            stdin=subprocess.DEVNULL,
            capture_output=True,
            timeout=TIMEOUT_SECONDS,
            check=False,
        )
        if outcome.returncode != 0 or outcome.stderr:
            raise AssertionError(f"{self.wrapper}: {outcome.returncode}, {outcome.stderr}")
        return {path.name: path.read_bytes() for path in sorted(here.iterdir()) if path.name not in inputs}

    def called(self, command):
        words = command.split(" ", 1)
        if words[0] != "tarnwick":
            raise AssertionError(f"no command of the program: {command}")
        return f"'{self.starter()}' {words[1]}"

    def starter(self):
        """The program under the name by which it is called here, which is none of a folder `bin`."""
        folder = self.root / "programs"
        folder.mkdir(exist_ok=True)
        link = folder / self.name
        if not link.is_symlink():
            link.symlink_to(program())
        return link


def other_clock(root):
    """The library that answers in place of the clock."""
    library = root / "other_day.so"
    if not library.exists():
        compiler = find_tool("cc", "gcc", "clang")
        command = [compiler, "-shared", "-fPIC", "-o", str(library), str(HERE / "other_day.c")]
        subprocess.run(command, check=True, timeout=TIMEOUT_SECONDS)
    return library


def on_day(world, day):
    world.variables.update(LD_PRELOAD=str(other_clock(world.root)), OTHER_DAY=str(day))


def in_place(world):
    """The program, its stack and its heap lie at the same addresses in every run. Not every host allows that."""
    wrapper = ["setarch", "-R"]
    if not shutil.which("setarch"):
        return
    if subprocess.run([*wrapper, "true"], stderr=subprocess.DEVNULL, check=False).returncode == 0:
        world.wrapper = wrapper


# What must not matter, one by one.
VARIATIONS = {
    "day": lambda world: on_day(world, OTHER_DAY),
    "age of the inputs": lambda world: setattr(world, "age", OTHER_DAY),
    "order of the inputs in their folder": lambda world: setattr(world, "reverse", True),
    "umask": lambda world: setattr(world, "umask", 0o077),
    "language": lambda world: world.variables.update(LC_ALL="de_DE.UTF-8", LANG="de_DE.UTF-8", LANGUAGE="de"),
    "time zone": lambda world: world.variables.update(TZ="Pacific/Auckland"),
    "size of the environment": lambda world: world.variables.update(FILLER="x" * 100000),
    "fresh memory": lambda world: world.variables.update(MALLOC_PERTURB_="165"),
    "place in memory": in_place,
    "name of the program": lambda world: setattr(world, "name", "another-name"),
}

def tells_time(name, data):
    """Whether it tells a time in the host's time zone: a dump of a COFF file does, and so do zip files."""
    return b"Dated:" in data or name.endswith(".zip")


def same_time_zone(variations):
    return {name: change for name, change in variations.items() if name != "time zone"}


class SameBytes(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.root = Path(tempfile.mkdtemp(prefix="same-")).resolve()
        cls.addClassCleanup(shutil.rmtree, cls.root, ignore_errors=True)
        cls.first = World(cls.root, "first")
        cls.made = {name: cls.first.run(name, *rest) for name, *rest in samples()}

    def assert_same(self, expected, actual, what):
        self.assertEqual(sorted(expected), sorted(actual), what)
        differing = [name for name in expected if expected[name] != actual[name]]
        self.assertEqual(differing, [], f"these differ, by {what}")

    def assert_same_outputs(self, world, chosen, what):
        """Whether the samples' outputs are those of the first world, but for the folder that some of them name."""
        there, here = (str(place.folder).encode() for place in (self.first, world))
        for name, *rest in chosen:
            actual = world.run(name, *rest)
            renamed = {path: data.replace(here, there) for path, data in actual.items()}
            self.assert_same(self.made[name], renamed, f"{what}: {name}")

    def test_outputs_are_there(self):
        """Without outputs there would be nothing to compare."""
        for name, made in self.made.items():
            outputs = [path for path, data in made.items() if path.startswith("o") and data]
            self.assertGreaterEqual(len(outputs), LEAST_OUTPUTS, name)
            self.assertLessEqual({"elf", "cof", "sym", "hex", "s19"}, {path.rsplit(".", 1)[1] for path in outputs})
        statuses = [self.made["blink"][f"status.{number}"] for number in range(len(BLINK))]
        self.assertEqual(statuses, [b"0\n"] * (len(BLINK) - 1) + [b"1\n"])

    def test_other_world(self):
        """All samples, with everything different at once; test_one_by_one tells what makes a difference."""
        world = World(self.root, "again")
        for change in same_time_zone(VARIATIONS).values():
            change(world)
        self.assertEqual(len(str(world.folder)), len(str(self.first.folder)))
        self.assert_same_outputs(world, samples(), "another world")

    def test_one_by_one(self):
        """The bundled sample. The time zone shows where a local time is told, and nowhere else."""
        for number, (what, change) in enumerate(VARIATIONS.items()):
            with self.subTest(what):
                world = World(self.root, f"one{number:02}")
                change(world)
                actual = world.run(*samples()[0])
                expected = dict(self.made["blink"])
                if what == "time zone":
                    timed = [name for name in expected if tells_time(name, expected[name])]
                    self.assertEqual(timed, ["o5.zip", "printed.10", "printed.9"])
                    for name in timed:
                        self.assertNotEqual(expected.pop(name), actual.pop(name), name)
                self.assert_same(expected, actual, what)

    def test_other_folder(self):
        """A folder with a longer name: what does not name it is the same."""
        world = World(self.root, "a folder with a longer name/and deeper")
        here = str(self.first.folder).encode()
        for name, *rest in samples():
            actual = world.run(name, *rest)
            expected = {path: data for path, data in self.made[name].items() if here not in data}
            # Names of the folder are absolute source names in debugging sections, and what is printed of them.
            for path in set(self.made[name]) - set(expected):
                self.assertRegex(path, r"\.elf$|^printed\.|^reported\.", name)
            self.assert_same(expected, {path: actual[path] for path in expected}, f"the folder: {name}")
            if name == "blink":
                self.assertEqual(len(expected), len(actual), "its sources have absolute names")

    def test_order_of_arguments(self):
        """An image is read before the map file, wherever it stands."""
        world = World(self.root, "order")
        commands = [command.replace("blink.hex blink.tmf", "blink.tmf blink.hex") for command in BLINK]
        self.assertNotEqual(commands, BLINK)
        actual = world.run("blink", samples_folder() / "blink", commands)
        self.assert_same(self.made["blink"], actual, "the order of arguments")

    def test_without_a_fixed_day(self):
        """Without SOURCE_DATE_EPOCH the only format that holds a time is COFF, in four bytes behind its second field;
        and the package, whose times are those of the files in it."""
        found = []
        for day in (OTHER_DAY, YET_ANOTHER_DAY):
            world = World(self.root, f"day{day}")
            del world.variables["SOURCE_DATE_EPOCH"]
            on_day(world, day)
            made = world.run(*samples()[0])
            for name in [name for name in made if name.endswith(".cof")]:
                self.assertEqual(made[name][4:8], day.to_bytes(4, "little"), name)
                made[name] = made[name][:4] + made[name][8:]
            found.append({name: data for name, data in made.items() if not tells_time(name, data)})
        self.assertEqual(len([name for name in found[0] if name.endswith(".cof")]), 5)
        self.assert_same(*found, "the day")

    def test_other_builds(self):
        """The hashes of the first world beside those that other builds of the same sources have left."""
        here = str(self.first.folder).encode()
        table = {
            f"{name}/{path}": hashlib.sha256(data.replace(here, b"@")).hexdigest()
            for name, made in self.made.items()
            for path, data in made.items()
        }
        self.assertGreater(len(table), LEAST_OUTPUTS)

        sources = sources_digest(len(here))
        compared = []
        for other in sorted({*BUILD.parent.glob(f"*/{TABLE}"), *(SOURCE / "build").glob(f"*/{TABLE}")}):
            if other.parent.resolve() == BUILD:
                continue
            of_sources, theirs = read_table(other)
            if of_sources == sources:
                self.assert_same(theirs, table, f"the build in {other.parent.name}")
                compared.append(other.parent.name)
        # Written last, so that a build that differs is not what others are compared with.
        write_table(BUILD / TABLE, sources, table)
        print(f"{len(table)} outputs; compared with: {', '.join(compared) or 'none, no other build has run this yet'}")


def sources_digest(length):
    """One hash of all that decides on the outputs: the program's sources, the samples and this test, and the length of
    the folder's name, which some outputs hold."""
    digest = hashlib.sha256(str(length).encode())
    paths = [path for folder in ("common", "compiler") for path in (SOURCE / folder).rglob("*") if path.is_file()]
    paths += [path for _, folder, _ in samples() for path in folder.iterdir() if path.is_file()]
    for path in [*sorted(paths), HERE / "test_same_bytes.py"]:
        digest.update(str(path).encode() + b"\0" + path.read_bytes() + b"\0")
    return digest.hexdigest()


def read_table(path):
    lines = path.read_text().splitlines()
    return lines[0].split()[0], {name: value for value, name in (line.split("  ", 1) for line in lines[1:])}


def write_table(path, sources, table):
    text = f"{sources}  sources\n" + "".join(f"{value}  {name}\n" for name, value in sorted(table.items()))
    # Appears whole, for other builds may look at it now.
    scratch = path.with_suffix(".new")
    scratch.write_text(text)
    scratch.replace(path)


if __name__ == "__main__":
    main()

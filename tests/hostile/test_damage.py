#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Every input of every sample program, cut short and damaged at random, read by every way through the program.

However an input looks, a run ends with status 0 or with a report and status 1, in bounded time and memory.

    test_damage.py            a sample of the runs
    test_damage.py 100000     that many; the cuts then come to nearly every byte of the smaller files

The runs follow from their number and the seed (TARNWICK_SEED), so that one can be had again. What failed is kept in
the folder `hostile-findings`, with the command to run.
"""

import multiprocessing
import os
import random
import shlex
import shutil
import sys
import time
import unittest
from collections import Counter
from dataclasses import dataclass
from pathlib import Path

import hostile
import judging

ORDINARY_RUNS = 6000
SANITIZED_RUNS = 600
WORKERS = 2
MAX_FINDINGS = 20
FINDINGS_FOLDER = Path("hostile-findings")

# --- what is read, and how --------------------------------------------------------------------------------------------

# The inputs of a program: `{image}` and `{map}`. Each line goes another way through the program.
PROGRAM_WAYS = [
    "{image} {map} --dwarf-addr-size=4 -oelf o.elf",
    "{image} {map} --dwarf-addr-size=2 --dwarf-use-ranges=auto --dwarf-use-loclists=auto -a -k -oelf o.elf",
    "{image} {map} --dwarf-addr-size=8 --dwarf-use-ranges=always --dwarf-use-loclists=always -b -oelf o.elf",
    "{image} {map} --disable-dwarf -oelf o.elf -oihex o.hex -os19 o.s19 -oorbell o.sym",
    "{image} {map} -ovcoff o.cof",
    "{image} {map} -a -k -m -e -ovcoff o.cof -oorbell o.sym -w-9",
    "{image} {map} -v -v --dwarf-addr-size=4 -oelf o.elf -ovcoff o.cof",
    "{image} {map} --zrdebug=default,out:o.log --dwarf-addr-size=4 -oelf o.elf -ovcoff o.cof",
    "-itarnsym {map} --emax=1000000 --psect-flags=bss=ws,text=x --dwarf-addr-size=4 -oelf o.elf -ovcoff o.cof",
]
# What is made of a program first, and the ways of each such file.
MADE = [
    ("made.elf", "{image} {map} --dwarf-addr-size=4 -oelf made.elf", ["-d made.elf", "-d -v -ielf made.elf"]),
    (
        "lists.elf",
        "{image} {map} --dwarf-addr-size=2 --dwarf-use-ranges=always --dwarf-use-loclists=always -b -oelf lists.elf",
        ["-d lists.elf", "-b -d lists.elf"],
    ),
    (
        "made.cof",
        "{image} {map} -ovcoff made.cof",
        [
            "-d made.cof",
            "{spaces} made.cof --dwarf-addr-size=4 -oelf o.elf -oihex o.hex",
            "{spaces} -b -v -v -ivcoff made.cof -ovcoff o.cof -oorbell o.sym",
        ],
    ),
    (
        "made.sym",
        "{image} {map} -oorbell made.sym",
        [
            "{spaces} made.sym {image} --dwarf-addr-size=4 -oelf o.elf",
            "{spaces} made.sym -ovcoff o.cof -oorbell o.sym",
            "{spaces} -v -v --emax=100 -iorbell made.sym -oihex o.hex",
        ],
    ),
    (
        "made.s19",
        "{image} {map} -os19 made.s19",
        ["{spaces} made.s19 -oihex o.hex", "{spaces} -is19 made.s19 -oelf o.elf"],
    ),
    ("made.hex", "{image} {map} -oihex made.hex", ["{spaces} -iihex made.hex -os19 o.s19 -oorbell o.sym"]),
]
# Files that no output of the program is: name, content, ways.
UBROF = bytes.fromhex(
    "a51e0f0a040761bd0600 0005ba02be ffbf02c0ffc10501010310040761046d61696e3f9e0d5101000001003914"
) + b"Hello, UBROF world!\n" + bytes.fromhex("3f3048ff")
LEGACY = b"""reset 0 1 text 1
__Ltext 0 1 text 1
__Htext 7F 1 text 1
__Bdata 20 2 data 2
%locals
main.c
counter 20 2 data 2
13 14 1 text
main.obj
_main 10 1 text 1
%segments
text 0 7FF text 4000 1
data 20 2F data 20 2
"""
CATALOGUE = b"""# a catalogue
634 E "error dumping \\"%s\\" %s %d"
605 W "not recognized" -3
1437 M MAP error: %s
141 F can't open %s file "%s": %m
"""
ONE_BYTE = b":0100000055AA\n:00000001FF\n"
ARGUMENTS = b"""--code-spaces=1,7 --data-spaces=2 "--eeprom-spaces=3" '-pA,B,C' -w-9 --emax=5
-s0-1FF,300-3FFh,4000-4FFFh/200 --psect-flags=text=wx,data=s --msgdisable=605:off,12 --Werror=523
--code-delta=2 -a\\ b -oelf o.elf -os19 o.s19 -v
"""
OTHERS = [
    ("prog.d43", UBROF, ["-d prog.d43", "-d -v -iubrof prog.d43", "{spaces} prog.d43 -oelf o.elf"]),
    (
        "prog.sym",
        LEGACY,
        ["{spaces} prog.sym -oorbell o.sym -oelf o.elf", "{spaces} -iorbell prog.sym -v -v -ovcoff o.cof"],
    ),
    ("texts", CATALOGUE, ["--edf=texts {spaces} texts -oelf o.elf"]),
    ("arguments", ARGUMENTS, ["@arguments"]),
]


class Subject:
    """A file to be damaged, the command lines that read it, and the folder with what else these read."""

    def __init__(self, folder, name, ways):
        self.folder, self.name, self.ways = folder, name, ways
        self.content = (folder / name).read_bytes()


def options_of(folder):
    """Processor and spaces of a sample program, as its first command line gives them."""
    command = "-pN4A,1234,KOR14,KORM --code-spaces=1 --data-spaces=2 --eeprom-spaces=3"  # blink
    if (folder / "cmd.txt").is_file():
        command = (folder / "cmd.txt").read_text(judging.ENCODING).splitlines()[0]
    return " ".join(word for word in command.split() if word.startswith("-p") or "-spaces=" in word)


def find(folder, suffix):
    return next(path.name for path in sorted(folder.iterdir()) if path.suffix == suffix)


def prepare(source, folder, program):
    """Copies a sample program, makes files of it, and tells what can be damaged."""
    inputs = [path.name for path in sorted(source.iterdir()) if path.suffix in (".tmf", ".hex", ".sdb")]
    folder.mkdir()
    for name in inputs:
        shutil.copyfile(source / name, folder / name)
    os.chdir(folder)

    options = options_of(source)
    names = {"image": find(folder, ".hex"), "map": find(folder, ".tmf"), "spaces": options}
    ways = [f"{options} {way}".format(**names) for way in PROGRAM_WAYS]
    subjects = [Subject(folder, name, ways) for name in inputs]
    for name, command, made_ways in MADE:
        outcome = program.run(shlex.split(f"{options} {command}".format(**names)))
        if outcome.status != 0:
            raise AssertionError(f"{source.name}: {command}: {outcome.errors.decode(judging.ENCODING)}")
        subjects.append(Subject(folder, name, [way.format(**names) for way in made_ways]))
    return subjects


def prepare_others(folder):
    """Each in a folder of its own: who knows where damaged arguments write to."""
    subjects = []
    for name, content, ways in OTHERS:
        (folder / name).mkdir()
        (folder / name / name).write_bytes(content)
        (folder / name / "one.hex").write_bytes(ONE_BYTE)
        spaces = "--code-spaces=1 --data-spaces=2"
        subjects.append(Subject(folder / name, name, [way.format(spaces=spaces) for way in ways]))
    return subjects


def sample_programs():
    found = [judging.samples_folder() / "blink"]
    if shared := judging.shared_samples_folder():
        found += [path for path in sorted(shared.iterdir()) if path.is_dir()]
    return found


# --- damage -----------------------------------------------------------------------------------------------------------

MARKS = [bytes([mark]) for mark in b"\0\xff\x80\n\r %$[]{}`*(@-S:"]
NUMBERS = b"0 1 -1 65535 100000 7FFFFFFF 80000000 FFFFFFFF 4294967296 99999999999999999999".split()
WORDS = [bytes.fromhex(word) for word in "00000000 ffffffff ffffff7f 7fffffff 80000000 00000080 ffff 0001".split()]


def flip_bit(rng, data, at):
    data[at] ^= 1 << rng.randrange(8)


def put_byte(rng, data, at):
    data[at] = rng.randrange(256)


def put_mark(rng, data, at):
    data[at : at + 1] = rng.choice(MARKS)


def put_word(rng, data, at):
    word = rng.choice(WORDS)
    data[at : at + len(word)] = word


def put_number(rng, data, at):
    """In place of the digits that stand here, if any."""
    end = at
    while end < len(data) and chr(data[end]).isalnum():
        end += 1
    data[at:end] = rng.choice(NUMBERS)


def remove(rng, data, at):
    del data[at : at + rng.randrange(1, 17)]


def remove_line(rng, data, at):
    end = data.find(b"\n", at)
    del data[at : end + 1 if end >= 0 else len(data)]


def copy_piece(rng, data, at):
    start = rng.randrange(len(data))
    data[at:at] = data[start : start + rng.randrange(1, 200)]


def repeat_piece(rng, data, at):
    data[at:at] = data[at : at + rng.randrange(1, 9)] * rng.randrange(1, 300)


SMALL_DAMAGES = [flip_bit, put_byte]  # twice as often as others
DAMAGES = SMALL_DAMAGES * 2 + [put_mark, put_word, put_number, remove, remove_line, copy_piece, repeat_piece]


def damage(rng, content):
    data = bytearray(content)
    for _ in range(rng.choice([1, 1, 1, 2, 3, 8])):
        if data:
            rng.choice(DAMAGES)(rng, data, rng.randrange(len(data)))
    return bytes(data)


# --- the runs ---------------------------------------------------------------------------------------------------------


@dataclass
class Job:
    """A run to come; what is done in it follows from its number and the seed."""

    subject: int
    number: int
    cut: int | None  # where the file ends; None when it is damaged otherwise


def cuts_of(sizes, wanted):
    """How many cuts each file gets: each as many as it has bytes, as long as there are enough for all."""
    low, high = 1, max(sizes)
    while low < high:
        share = (low + high + 1) // 2
        if sum(min(size, share) for size in sizes) <= wanted:
            low = share
        else:
            high = share - 1
    return [min(size, low) for size in sizes]


def plan(subjects, runs, seed):
    rng = random.Random(seed)
    sizes = [len(subject.content) for subject in subjects]
    jobs = []
    for number, (size, count) in enumerate(zip(sizes, cuts_of(sizes, runs // 2))):
        jobs += [(number, cut) for cut in sorted(rng.sample(range(size), count))]
    while len(jobs) < runs:
        jobs.append((len(jobs) % len(subjects), None))
    return [Job(subject, number, cut) for number, (subject, cut) in enumerate(jobs[:runs])]


@dataclass
class Finding:
    faults: list
    command: str
    subject: Subject
    data: bytes
    errors: bytes


def run_job(job, subjects, seed, program):
    """The run of a job, and what is wrong with it, or None."""
    subject = subjects[job.subject]
    rng = random.Random(f"{seed}:{job.number}")
    content = subject.content
    data = content[: job.cut] if job.cut is not None else damage(rng, content)
    way = rng.choice(subject.ways)
    os.chdir(subject.folder)
    path = subject.folder / subject.name
    path.write_bytes(data)
    try:
        outcome = program.run(shlex.split(way))
    finally:
        path.write_bytes(content)
    faults = program.faults(outcome, silent=subject.name == "arguments")
    return outcome, Finding(faults, way, subject, data, outcome.errors) if faults else None


def work(worker, jobs, sources, seed, results):
    """One worker's share of the jobs, in its own copies of the sample programs."""
    scratch = hostile.scratch_folder("damage-")
    try:
        program = hostile.Program(scratch / "errors.txt")
        hostile.limit_memory(program)
        subjects = all_subjects(sources, scratch, program)
        statuses, findings, slowest, largest = Counter(), [], 0.0, 0
        for job in jobs[worker::WORKERS]:
            outcome, finding = run_job(job, subjects, seed, program)
            statuses[outcome.status] += 1
            slowest, largest = max(slowest, outcome.seconds), max(largest, outcome.memory)
            if finding is not None:
                keep(finding, job)
                findings.append((job.number, finding.command, finding.faults))
                if len(findings) == MAX_FINDINGS:
                    break
        results.put((statuses, findings, slowest, largest))
    finally:
        shutil.rmtree(scratch, ignore_errors=True)


def all_subjects(sources, scratch, program):
    subjects = []
    for source in sources:
        subjects += prepare(source, scratch / source.name, program)
    return subjects + prepare_others(scratch)


HERE = Path.cwd()


def keep(finding, job):
    """A folder with all that the run read, and how to run it."""
    folder = HERE / FINDINGS_FOLDER / str(job.number)
    shutil.rmtree(folder, ignore_errors=True)
    shutil.copytree(finding.subject.folder, folder)
    (folder / finding.subject.name).write_bytes(finding.data)
    told = finding.errors[:4000].decode(judging.ENCODING)
    (folder / "finding.txt").write_text(f"tarnwick {finding.command}\n{', '.join(finding.faults)}\n{told}\n")


class Damage(unittest.TestCase):
    runs = 0

    def test_no_damage_brings_the_program_down(self):
        seed = os.environ.get("TARNWICK_SEED", "1")
        program = hostile.Program("/dev/null")
        runs = self.runs or (SANITIZED_RUNS if program.sanitized else ORDINARY_RUNS)
        sources = sample_programs()
        planning = hostile.scratch_folder("damage-")
        self.addCleanup(shutil.rmtree, planning, ignore_errors=True)
        self.addCleanup(os.chdir, HERE)
        subjects = all_subjects(sources, planning, hostile.Program(planning / "errors.txt"))
        jobs = plan(subjects, runs, seed)

        start = time.monotonic()
        results = multiprocessing.SimpleQueue()
        workers = [
            multiprocessing.Process(target=work, args=(number, jobs, sources, seed, results))
            for number in range(WORKERS)
        ]
        for worker in workers:
            worker.start()
        shares = []
        while len(shares) < WORKERS:
            if results.empty() and not any(worker.is_alive() for worker in workers):
                break
            if results.empty():
                time.sleep(0.05)
            else:
                shares.append(results.get())
        for worker in workers:
            worker.join()
        self.assertEqual(len(shares), WORKERS, "a worker did not come to its end")

        statuses = sum((share[0] for share in shares), Counter())
        findings = [finding for share in shares for finding in share[1]]
        cuts = sum(job.cut is not None for job in jobs)
        print(
            f"{sum(statuses.values())} runs ({cuts} cuts) of {len(subjects)} files in "
            f"{time.monotonic() - start:.0f} s; "
            f"statuses {dict(sorted(statuses.items()))}; at most {max(share[2] for share in shares):.2f} s "
            f"and {max(share[3] for share in shares) // hostile.MEBIBYTE} MiB",
            flush=True,
        )
        for number, command, faults in findings:
            print(f"run {number}: {', '.join(faults)}: tarnwick {command}", flush=True)
        self.assertEqual(len(findings), 0, f"see {FINDINGS_FOLDER}")
        # Damage that the program always refuses at the door would test nothing.
        self.assertGreater(statuses[0], runs // 10)
        self.assertGreater(statuses[1], runs // 10)


if __name__ == "__main__":
    if len(sys.argv) > 1:
        Damage.runs = int(sys.argv.pop(1))
    judging.main()

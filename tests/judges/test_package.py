#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The problem package of --zrdebug=zip, as Python's zipfile and unzip see it: names and their order, contents byte for byte,
comments and times; packages that are added to, replaced, damaged or out of room."""

import os
import random
import re
import shutil
import stat
import tempfile
import time
import unittest
import zipfile
from pathlib import Path

import judging

INPUTS = "-pN4A,KORM --code-spaces=1 --data-spaces=2 --eeprom-spaces=3 --disable-dwarf blink.hex blink.tmf".split()
OUTPUTS = "-oelf blink.elf -os19 blink.s19 -oihex out.hex".split()
OUTPUT_NAMES = ["blink.elf", "blink.s19", "out.hex"]
WARNING = "ZRDEBUG (warning): "
DEFAULT_PACKAGE, DEFAULT_TRACE = "zrt_package.zip", "tarnwick-1.out"


class Package(judging.Judge):
    def setUp(self):
        self.folder = self.folder_with_sample()

    def folder_with_sample(self):
        folder = Path(tempfile.mkdtemp(dir=self.scratch))
        for path in (judging.samples_folder() / "blink").iterdir():
            if path.is_file():
                shutil.copyfile(path, folder / path.name)
        return folder

    def tarnwick(self, option, outputs=None, status=0, prefix=()):
        """Runs the program on blink; what it tells, line by line."""
        command = [*prefix, judging.program(), f"--zrdebug={option}", *INPUTS, *(OUTPUTS if outputs is None else outputs)]
        outcome = judging.run(command, self.folder)
        self.assertEqual((outcome.returncode, outcome.stdout), (status, b""), outcome.stderr)
        return outcome.stderr.decode().splitlines()

    def entries(self, package=DEFAULT_PACKAGE):
        with zipfile.ZipFile(self.folder / package) as archive:
            self.assertIsNone(archive.testzip())
            self.assertEqual(archive.comment, b"")
            return archive.infolist(), [archive.read(entry) for entry in archive.infolist()]

    def assert_holds(self, names, package=DEFAULT_PACKAGE, files=None):
        """The package holds the files under these names, in this order, as they lie in the folder."""
        entries, contents = self.entries(package)
        self.assertEqual([entry.filename for entry in entries], names)
        for entry, content, file in zip(entries, contents, files or names):
            self.assert_same_bytes((self.folder / file).read_bytes(), content, entry.filename)
            self.assertEqual(entry.comment, b"")
            if len(content) > 3:
                self.assertEqual(entry.compress_type, zipfile.ZIP_DEFLATED)

    # --- what goes in -------------------------------------------------------------------------------------------------

    def test_outputs_alone(self):
        self.assertEqual(self.tarnwick("zip"), [])
        self.assert_holds(OUTPUT_NAMES)
        self.assertFalse((self.folder / DEFAULT_TRACE).exists())
        self.assertLess((self.folder / DEFAULT_PACKAGE).stat().st_size, sum(
            (self.folder / name).stat().st_size for name in OUTPUT_NAMES))

    def test_unzip(self):
        unzip = judging.find_tool("unzip")
        self.tarnwick("zip:p.zip,on,sdb,dwarf,alerts")
        outcome = judging.run([unzip, "-t", "p.zip"], self.folder)
        self.assertEqual((outcome.returncode, outcome.stderr), (0, b""), outcome.stdout)
        self.assertIn(b"No errors detected", outcome.stdout)
        outcome = judging.run([unzip, "-q", "-d", "taken", "p.zip"], self.folder)
        self.assertEqual((outcome.returncode, outcome.stderr), (0, b""), outcome.stdout)
        for name in [DEFAULT_TRACE, *OUTPUT_NAMES]:
            self.assert_same_bytes((self.folder / name).read_bytes(), (self.folder / "taken" / name).read_bytes(), name)

    def test_the_default_trace_comes_first(self):
        self.assertEqual(self.tarnwick("zip,on,sdb,dwarf"), [])
        self.assert_holds([DEFAULT_TRACE, *OUTPUT_NAMES])
        self.assertEqual(self.tarnwick("num:23,alerts,zip:q.zip"), [])
        self.assert_holds(["tarnwick-23.out", *OUTPUT_NAMES], "q.zip")

    def test_a_named_trace_stays_out(self):
        for option in ("zip,on,out:x.log", "out:x.log,on,zip:q.zip", "on,out:+tarnwick-1.out,zip:r.zip"):
            self.assertEqual(self.tarnwick(option), [])
        self.assertTrue((self.folder / "x.log").exists())
        for package in (DEFAULT_PACKAGE, "q.zip", "r.zip"):
            self.assert_holds(OUTPUT_NAMES, package)

    def test_the_packed_trace_lacks_the_master_lists(self):
        self.assertEqual(self.tarnwick("zip,adt,on"), [])
        entries, contents = self.entries()
        self.assertEqual(entries[0].filename, DEFAULT_TRACE)
        trace = (self.folder / DEFAULT_TRACE).read_bytes()
        self.assertTrue(trace.startswith(contents[0]))
        rest = trace[len(contents[0]) :]
        self.assertEqual((rest.count(b"Master List:"), contents[0].count(b"Master List:")), (3, 0))

    def test_names(self):
        (self.folder / "below").mkdir()
        absolute = self.folder / "absolute.s19"
        outputs = ["-oelf", "below\\x.elf", "-os19", str(absolute), "-oihex", f"../{self.folder.name}/up.hex"]
        self.assertEqual(self.tarnwick("zip", outputs), [])
        self.assert_holds(
            ["below/x.elf", f"SYSTEM_ROOT{absolute}", f"../{self.folder.name}/up.hex"],
            files=["below/x.elf", "absolute.s19", "up.hex"],
        )

    def test_a_nameless_output_takes_the_extension_off_the_one_before(self):
        """`blink.elf` loses its extension where it stands, in the list of outputs too; there is no file `blink`."""
        self.assertEqual(self.tarnwick("zip", ["-oelf", "-oorbell"]), [])
        self.assertTrue((self.folder / "blink.elf").exists())
        self.assert_holds(["blink.sym"])

    def test_large_output(self):
        lines, rest = [], random.Random(6)
        for upper in range(16):
            lines.append(hex_record(0, 4, upper.to_bytes(2, "big")))
            lines.extend(hex_record(at, 0, rest.randbytes(128)) for at in range(0, 0x10000, 128))
        (self.folder / "large.hex").write_text("\n".join([*lines, ":00000001FF", ""]))
        outcome = judging.run(
            [judging.program(), "--zrdebug=zip", *INPUTS[1:3], "large.hex", "-os19", "large.s19"], self.folder)
        self.assertEqual((outcome.returncode, outcome.stderr), (0, b""))
        self.assertGreater((self.folder / "large.s19").stat().st_size, 2 << 20)
        self.assert_holds(["large.s19"])

    # --- packages that are there --------------------------------------------------------------------------------------

    def make_zip(self, package, files):
        with zipfile.ZipFile(self.folder / package, "w", zipfile.ZIP_DEFLATED) as archive:
            for name, content in files.items():
                archive.writestr(name, content)
                archive.getinfo(name).comment = b"kept"

    def test_added_to(self):
        old = {"notes.txt": b"what we saw\n", "photo.bin": random.Random(1).randbytes(3000)}
        self.make_zip("old.zip", old)
        self.assertEqual(self.tarnwick("zip:+old.zip,on"), [])
        self.assertEqual(self.tarnwick("zip:+old.zip", ["-os19", "more.s19"]), [])
        entries, contents = self.entries("old.zip")
        names = [*old, DEFAULT_TRACE, *OUTPUT_NAMES, "more.s19"]
        self.assertEqual([entry.filename for entry in entries], names)
        self.assertEqual(contents[:2], list(old.values()))
        self.assertEqual([entry.comment for entry in entries], [b"kept"] * 2 + [b""] * 5)
        for name, content in zip(names[2:], contents[2:]):
            self.assert_same_bytes((self.folder / name).read_bytes(), content, name)

    def test_replaced(self):
        self.make_zip("p.zip", {"old.txt": b"old"})
        told = [WARNING + 'Package zip "p.zip" already exists and will be over-written']
        self.assertEqual(self.tarnwick("zip:p.zip"), told)
        self.assert_holds(OUTPUT_NAMES, "p.zip")

    # --- ways out -----------------------------------------------------------------------------------------------------

    def test_a_fatal_report_packs_what_is_there(self):
        told = self.tarnwick("zip,on", ["-oelf", "blink.elf", "-os19", "missing/x.s19"], status=1)
        self.assertEqual(len(told), 1)
        self.assertIn("(378)", told[0])
        self.assert_holds([DEFAULT_TRACE, "blink.elf"])

    def test_a_half_written_output_is_packed_and_then_removed(self):
        """An image has no chip, so the ELF writer's assertion on its identity fails."""
        option = "--zrdebug=assert:fatal,zip"
        outcome = judging.run([judging.program(), option, *INPUTS[1:3], "--disable-dwarf", "blink.hex", "-oelf", "x.elf"],
                              self.folder)
        self.assertEqual(outcome.returncode, 1)
        self.assertIn(b"(1503)", outcome.stderr)
        self.assertFalse((self.folder / "x.elf").exists())
        entries, _ = self.entries()
        self.assertEqual([entry.filename for entry in entries], ["x.elf"])

    def test_no_package_of_a_run_that_only_identifies(self):
        outcome = judging.run([judging.program(), "--zrdebug=zip,on", "-c", "blink.hex"], self.folder)
        self.assertEqual(outcome.returncode, 0, outcome.stderr)
        self.assertTrue((self.folder / DEFAULT_TRACE).exists())
        self.assertFalse((self.folder / DEFAULT_PACKAGE).exists())

    # --- times --------------------------------------------------------------------------------------------------------

    def test_times_are_those_of_the_files(self):
        before = time.time()
        self.tarnwick("zip")
        for entry in self.entries()[0]:
            told = time.mktime((*entry.date_time, 0, 0, 0)) - time.timezone  # the program ran with TZ=UTC
            self.assertLessEqual(before - 2, told)
            self.assertLessEqual(told, time.time())

    def test_same_bytes_under_a_fixed_time(self):
        packages = []
        for package in ("p.zip", "q.zip"):
            self.tarnwick(f"zip:{package}", prefix=["env", "SOURCE_DATE_EPOCH=1700000000"])
            packages.append((self.folder / package).read_bytes())
            self.assertEqual({entry.date_time for entry in self.entries(package)[0]}, {(2023, 11, 14, 22, 13, 20)})
            for name in OUTPUT_NAMES:  # later files, same package
                os.utime(self.folder / name, (0, 0))
        self.assert_same_bytes(packages[0], packages[1], "the package of the same run")

    # --- what goes wrong ----------------------------------------------------------------------------------------------

    def assert_outputs_whole(self):
        """The outputs are those of a run without a package."""
        whole = self.folder_with_sample()
        self.run_silently([*INPUTS, *OUTPUTS], whole)
        for name in OUTPUT_NAMES:
            self.assert_same_bytes((whole / name).read_bytes(), (self.folder / name).read_bytes(), name)

    def cannot_append(self, package):
        return [
            f'{WARNING}Unable to open package zip file ({package}) for reading to append "{name}"' for name in OUTPUT_NAMES
        ]

    def test_no_zip_to_add_to(self):
        self.make_zip("whole.zip", {"a.txt": b"text" * 100})
        whole = (self.folder / "whole.zip").read_bytes()
        cases = {"empty": b"", "text": b"no zip at all\n" * 10, "cut": whole[:-1], "half": whole[: len(whole) // 2],
                 "directory": whole.replace(b"PK\1\2", b"PK\1\3")}
        for case, content in cases.items():
            with self.subTest(case):
                (self.folder / "p.zip").write_bytes(content)
                self.assertEqual(self.tarnwick("zip:+p.zip"), self.cannot_append("p.zip"))
                self.assertEqual((self.folder / "p.zip").read_bytes(), content)
                self.assert_outputs_whole()

    def test_a_package_in_the_place_of_an_output(self):
        self.assertEqual(self.tarnwick("zip:blink.s19"), self.cannot_append("blink.s19"))
        self.assert_outputs_whole()

    def test_a_package_in_the_place_of_the_trace(self):
        told = self.tarnwick(f"zip:{DEFAULT_TRACE},on")
        first = f'{WARNING}Unable to open package zip file ({DEFAULT_TRACE}) for reading to append "{DEFAULT_TRACE}"'
        self.assertEqual(told, [first, *self.cannot_append(DEFAULT_TRACE)])
        self.assert_outputs_whole()

    def test_a_package_in_the_place_of_an_input(self):
        told = self.tarnwick("zip:+blink.tmf")
        self.assertEqual(told, self.cannot_append("blink.tmf"))
        self.assert_outputs_whole()

    def test_folders_and_missing_folders(self):
        (self.folder / "p.zip").mkdir()
        told = [WARNING + 'Package zip "p.zip" already exists and will be over-written',
                WARNING + 'Unable to remove "p.zip", it will be updated if possible']
        self.assertEqual(self.tarnwick("zip:p.zip"), told + self.cannot_append("p.zip"))
        told = [f'{WARNING}Unable to init package zip file (no/p.zip) to add "{name}"' for name in OUTPUT_NAMES]
        self.assertEqual(self.tarnwick("zip:no/p.zip"), told)
        self.assert_outputs_whole()

    @unittest.skipIf(os.geteuid() == 0, "root may write what nobody may")
    def test_a_package_that_may_not_be_written(self):
        self.make_zip("p.zip", {"a.txt": b"text"})
        os.chmod(self.folder / "p.zip", stat.S_IRUSR)
        told = [f'{WARNING}Unable to covert package zip file (p.zip) reader to a writer to append "{name}"'
                for name in OUTPUT_NAMES]
        self.assertEqual(self.tarnwick("zip:+p.zip"), told)
        self.assert_outputs_whole()

    def test_devices_stay(self):
        """A link to a full device; the link stands for what it points to."""
        os.symlink("/dev/full", self.folder / "p.zip")
        told = [WARNING + 'Package zip "p.zip" already exists and will be over-written',
                WARNING + 'Unable to remove "p.zip", it will be updated if possible']
        self.assertEqual(self.tarnwick("zip:p.zip"), told + self.cannot_append("p.zip"))
        self.assertTrue((self.folder / "p.zip").is_symlink())
        self.assert_outputs_whole()

    def test_no_room(self):
        """The limit of a file's size stands for a full disk: the package is close to it, the outputs are far."""
        block = 512
        self.make_zip("old.zip", {"noise.bin": random.Random(2).randbytes(100 * block)})
        blocks = (self.folder / "old.zip").stat().st_size // block + 1
        told = self.tarnwick("zip:+old.zip", prefix=["sh", "-c", f'ulimit -f {blocks} && exec "$@"', "sh"])
        self.assertGreater(len(told), 0)
        for line in told:
            self.assertRegex(line, rf"^{re.escape(WARNING)}Unable to .*old\.zip.*")
        self.assertRegex(told[0], r'Unable to (add archive|finalize package zip|end package zip)')
        self.assert_outputs_whole()


def hex_record(address, kind, data):
    body = bytes([len(data)]) + address.to_bytes(2, "big") + bytes([kind]) + data
    return ":" + (body + bytes([-sum(body) & 0xFF])).hex().upper()


if __name__ == "__main__":
    judging.main()

#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Builds that use an installed program through find_package(tarnwick): the example, and projects that get it wrong."""

import os
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

from install_tree import install
from judging import environment, find_tool, intel_hex_bytes, main, s_record_bytes

CMAKE = os.environ["CMAKE_PROGRAM"]
SOURCE = Path(os.environ["TARNWICK_SOURCE"])
TIMEOUT_SECONDS = 120
PRINTED_WITH_DEBUGGING_INFORMATION = b"DW_AT_name"

# What a call of tarnwick_convert needs at least, beside its target.
ENOUGH = {"MAP": "a.tmf", "PROCESSOR": "N4A,KORM", "CODE_SPACES": "1", "DATA_SPACES": "2", "OUTPUTS": "s19 a.s19"}


class Using(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.root = Path(tempfile.mkdtemp(prefix="find-package-")).resolve()
        cls.addClassCleanup(shutil.rmtree, cls.root, ignore_errors=True)
        cls.prefix = cls.root / "tools with a blank" / "v2"
        install(cls.prefix)

    def folder(self):
        return Path(tempfile.mkdtemp(prefix="project-", dir=self.root))

    def run_cmake(self, *arguments, folder, status=0, path=None):
        variables = environment(self.root)
        variables["PATH"] = path or variables["PATH"]
        outcome = subprocess.run(
            [CMAKE, *arguments],
            cwd=folder,
            env=variables,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            timeout=TIMEOUT_SECONDS,
            check=False,
        )
        told = outcome.stdout.decode(errors="replace")
        self.assertEqual(outcome.returncode != 0, status != 0, told)
        return " ".join(told.split())

    def configure(self, lines, status=0, prefix=None):
        """Configures a project of these lines behind find_package; what CMake told, on one line."""
        folder = self.folder()
        text = "cmake_minimum_required(VERSION 3.25)\nproject(user LANGUAGES NONE)\n"
        (folder / "CMakeLists.txt").write_text(text + "\n".join(lines) + "\n")
        prefix = prefix or self.prefix
        return self.run_cmake("-S", ".", "-B", "b", f"-DCMAKE_PREFIX_PATH={prefix}", folder=folder, status=status)


class Example(Using):
    """The example, with the sample beside it, against the installed program."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        find_tool("cc")
        # Copies, since a test changes the sample.
        for folder in ["examples", "samples"]:
            shutil.copytree(SOURCE / folder, cls.root / folder)
        cls.sample = cls.root / "samples" / "blink"
        cls.example = cls.root / "examples" / "cmake-post-link"

    def configure_example(self, generator):
        build = self.folder()
        options = ["-G", generator, f"-DCMAKE_PREFIX_PATH={self.prefix}"]
        self.run_cmake("-S", str(self.example), "-B", str(build), *options, folder=build)
        return build

    def build(self, folder, status=0):
        return self.run_cmake("--build", ".", folder=folder, status=status)

    def check_outputs(self, build):
        image = intel_hex_bytes((self.sample / "blink.hex").read_text())
        self.assertEqual(s_record_bytes((build / "blink.s19").read_text()), image)
        dump = subprocess.run(
            [self.prefix / "bin" / "tarnwick", "-d", "blink.elf"],
            cwd=build,
            env=environment(self.root),
            capture_output=True,
            timeout=TIMEOUT_SECONDS,
            check=True,
        )
        self.assertIn(PRINTED_WITH_DEBUGGING_INFORMATION, dump.stdout)

    def test_ninja(self):
        find_tool("ninja")
        build = self.configure_example("Ninja")
        self.build(build)
        self.check_outputs(build)

    def test_make(self):
        find_tool("make")
        build = self.configure_example("Unix Makefiles")
        self.build(build)
        self.check_outputs(build)

    def test_converts_after_each_link_and_at_no_other_time(self):
        find_tool("ninja")
        build = self.configure_example("Ninja")
        self.build(build)
        output = build / "blink.s19"
        output.write_text("")
        self.assertIn("no work to do", self.build(build))
        self.assertEqual(output.read_text(), "")
        os.utime(self.sample / "src" / "led.c")
        self.build(build)
        self.check_outputs(build)

    def test_outputs_are_known_to_the_build(self):
        find_tool("ninja")
        build = self.configure_example("Ninja")
        self.run_cmake("--build", ".", "--target", "blink.elf", folder=build)
        self.check_outputs(build)

    def test_failed_conversion_fails_the_build(self):
        find_tool("ninja")
        build = self.configure_example("Ninja")
        map_file = self.sample / "blink.tmf"
        text = map_file.read_text()
        self.addCleanup(map_file.write_text, text)
        map_file.write_text(text.replace("maintext CODE 1 8 8 12", "maintext CODE 1 8 8 1Z"))
        self.assertIn("blink.tmf: 16: (1437) TMF error", self.build(build, status=1))
        # And again the next time, rather than to leave it at that.
        self.assertIn("blink.tmf: 16: (1437) TMF error", self.build(build, status=1))
        map_file.write_text(text)
        self.build(build)
        self.check_outputs(build)

    def test_found_by_the_path(self):
        find_tool("ninja")
        build = self.folder()
        path = f"{self.prefix / 'bin'}:{os.environ['PATH']}"
        self.run_cmake("-S", str(self.example), "-B", str(build), "-G", "Ninja", folder=build, path=path)
        self.build(build)
        self.check_outputs(build)


class Package(Using):
    def test_program_can_be_run(self):
        folder = self.folder()
        (folder / "CMakeLists.txt").write_text(
            "cmake_minimum_required(VERSION 3.25)\nproject(user LANGUAGES NONE)\nfind_package(tarnwick REQUIRED)\n"
            "add_custom_target(banner ALL COMMAND tarnwick::tarnwick --ver VERBATIM)\n"
        )
        self.run_cmake("-S", ".", "-B", "b", f"-DCMAKE_PREFIX_PATH={self.prefix}", folder=folder)
        self.assertIn("Component: tarnwick Version: 2.46", self.run_cmake("--build", "b", folder=folder))

    def test_versions(self):
        for version in ["", "2", "2.0", "2.46"]:
            self.configure([f"find_package(tarnwick {version} REQUIRED)"])
        for version in ["2.47", "3", "1.0", "2.45 EXACT"]:
            told = self.configure([f"find_package(tarnwick {version} REQUIRED)"], status=1)
            self.assertIn("version: 2.46", told)

    def test_twice(self):
        self.configure(["find_package(tarnwick REQUIRED)"] * 2)

    def test_program_is_gone(self):
        prefix = self.root / "moved"
        shutil.copytree(self.prefix, prefix)
        (prefix / "bin" / "tarnwick").unlink()
        told = self.configure(["find_package(tarnwick REQUIRED)"], status=1, prefix=prefix)
        self.assertIn(f"The program is not where it was installed: {prefix}/bin/tarnwick", told)


class Arguments(Using):
    """tarnwick_convert tells what is wrong with its arguments, when the project is configured."""

    def convert(self, status=0, target="all-of-it", extra="", **arguments):
        chosen = {**ENOUGH, "TARGET": target, **arguments}
        call = " ".join(f"{name} {value}" for name, value in chosen.items() if value)
        lines = ["find_package(tarnwick REQUIRED)", "add_custom_target(all-of-it)", f"tarnwick_convert({call} {extra})"]
        return self.configure(lines, status)

    def test_enough(self):
        self.convert()

    def test_missing(self):
        for name in ["TARGET", *ENOUGH]:
            arguments = {"target": ""} if name == "TARGET" else {name: ""}
            self.assertIn(f"tarnwick_convert: {name} is missing", self.convert(status=1, **arguments))

    def test_unknown(self):
        # Behind NO_DWARF, which takes no value.
        told = self.convert(status=1, extra="NO_DWARF OUTPUT blink.elf")
        self.assertIn("tarnwick_convert: unknown arguments: OUTPUT", told)
        self.assertIn("there is no target elsewhere", self.convert(status=1, target="elsewhere"))

    def test_outputs(self):
        told = self.convert(status=1, OUTPUTS="s28 a.s28")
        self.assertIn('"s28" is none of the formats elf, vcoff, orbell, ihex, s19', told)
        self.assertIn("OUTPUTS names no file for ihex", self.convert(status=1, OUTPUTS="s19 a.s19 ihex"))

    def test_address_size(self):
        told = self.convert(status=1, OUTPUTS="s19 a.s19 elf a.elf")
        self.assertIn("an ELF output needs DWARF_ADDRESS_SIZE, or NO_DWARF", told)
        self.convert(OUTPUTS="elf a.elf", DWARF_ADDRESS_SIZE="4")
        self.convert(OUTPUTS="elf a.elf", extra="NO_DWARF")

    def test_command(self):
        # What the arguments come to, as the generated build has it.
        folder = self.folder()
        (folder / "CMakeLists.txt").write_text(
            "cmake_minimum_required(VERSION 3.25)\nproject(user LANGUAGES NONE)\nfind_package(tarnwick REQUIRED)\n"
            "add_custom_target(chip)\n"
            "tarnwick_convert(TARGET chip MAP a.tmf HEX a.hex b.hex PROCESSOR N4A,KORM CODE_SPACES 1 4 DATA_SPACES 2\n"
            "    EEPROM_SPACES 3 5 DWARF_ADDRESS_SIZE 2 OPTIONS -w-9 --dwarf-use-ranges=auto\n"
            '    OUTPUTS elf "a b.elf" ihex /far/c.hex WORKING_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}")\n'
        )
        find_tool("ninja")
        self.run_cmake("-S", ".", "-B", "b", "-G", "Ninja", f"-DCMAKE_PREFIX_PATH={self.prefix}", folder=folder)
        rules = (folder / "b" / "build.ninja").read_text().replace("$ ", " ")
        options = "-pN4A,KORM --code-spaces=1,4 --data-spaces=2 --eeprom-spaces=3,5 --dwarf-addr-size=2"
        inputs = "-w-9 --dwarf-use-ranges=auto a.hex b.hex a.tmf"
        self.assertIn(f"{options} {inputs} -oelf 'a b.elf' -oihex /far/c.hex", rules.replace('"a b.elf"', "'a b.elf'"))
        self.assertIn(f"cd {folder} && ", rules)


if __name__ == "__main__":
    main()

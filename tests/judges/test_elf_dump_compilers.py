#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""`tarnwick -d` prints ELF files of other compilers: of GCC and of Clang, in both editions of DWARF that it knows, for
targets of either byte order and of addresses of two and four bytes, relocatable and linked.

Line programs of Clang mark the ends of prologues by an opcode that the dump does not know, and that ends the run. Most
files are made without those marks, so that all sections are reached; some are left as they are.
"""

import shutil
from pathlib import Path

import judging
from elf_dump_check import VERBOSITIES, DumpJudge

SOURCES = ["shapes.c", "measure.c"]
FOLDER = Path(__file__).resolve().parent / "foreign"
COMMON = ["-I", str(FOLDER.parents[2]), "-ffreestanding", "-fno-pic", "-fno-builtin", "-fno-asynchronous-unwind-tables",
          "-gpubnames", "-g3"]  # fmt: skip
EDITIONS = {2: ["-gdwarf-2", "-gstrict-dwarf"], 3: ["-gdwarf-3", "-gstrict-dwarf"]}
CLANG = ["-fdebug-macro", "-gdwarf-aranges"]

TABLES = {".debug_str", ".debug_abbrev", ".debug_info", ".debug_line", ".debug_macinfo", ".debug_pubnames",
          ".debug_pubtypes", ".debug_aranges"}  # fmt: skip


class Compilers(DumpJudge):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        for path in FOLDER.iterdir():
            shutil.copyfile(path, cls.scratch / path.name)

    def build(self, *command):
        outcome = judging.run(command, self.scratch)
        self.assertEqual(outcome.returncode, 0, f"{' '.join(command)}\n{outcome.stderr.decode(errors='replace')}")

    def objects(self, stem, command, edition, level, marks=True):
        """The object files of the sources; without the marks of prologues if so wished."""
        made = []
        for source in SOURCES:
            name = f"{stem}-{source[:-2]}"
            options = [*COMMON, *EDITIONS[edition], f"-O{level}"]
            if marks:
                self.build(*command, *options, "-c", source, "-o", f"{name}.o")
            else:
                self.build(*command, *options, "-S", source, "-o", f"{name}.s")
                path = self.scratch / f"{name}.s"
                path.write_text(path.read_text().replace(" prologue_end", ""))
                assemble = [*command[: -len(CLANG)], "-c", f"-fdebug-default-version={edition}"]
                self.build(*assemble, f"{name}.s", "-o", f"{name}.o")
            made.append(f"{name}.o")
        return made

    def check(self, name, edition, sections=(), **options):
        verbosities = (0, 3) if name.endswith(".o") else VERBOSITIES
        dump, facts = self.check_file(self.scratch / name, verbosities, **options)
        names = {section["name"] for section in facts.sections}
        self.assertEqual((TABLES | set(sections)) - names, set())
        # What readelf prints of lists was understood. It knows those of the older edition's ranges by no attribute.
        for section, found in (".debug_loc", facts.locations), (".debug_ranges", facts.ranges):
            if section in sections and edition == 3 and not facts.relocatable:
                self.assertTrue(found())
        self.assertEqual({unit["version"] for unit in dump.dwarf.sections[".debug_info"]}, {edition})
        return dump, facts

    def check_gcc(self, command, linker, stem, big_endian):
        for edition, level in (2, 0), (3, 2), (2, 2), (3, 0):
            objects = self.objects(f"{stem}-{edition}{level}", command, edition, level)
            lists = [".debug_loc"] if level or edition == 2 else []
            _, facts = self.check(objects[0], edition, [".debug_frame", *lists])
            self.assertEqual((facts.big_endian, facts.relocatable), (big_endian, True))
            if level:
                program = f"{stem}-{edition}.elf"
                self.build(*linker, *objects, "-o", program)
                dump, facts = self.check(program, edition, [".debug_frame", ".debug_loc"])
                self.assertEqual((facts.relocatable, len(dump.dwarf.sections[".debug_info"]) >= 2), (False, True))

    def test_gcc(self):
        """Little-endian."""
        compiler, linker = judging.find_tool("gcc"), judging.find_tool("ld")
        if judging.run([compiler, "-m32", "-E", "-x", "c", "/dev/null"], self.scratch).returncode:
            self.skipTest("gcc does not make 32-bit files here")
        self.check_gcc([compiler, "-m32"], [linker, "-m", "elf_i386", "-e", "start"], "gcc", False)

    def test_gcc_big_endian(self):
        compiler = judging.find_tool("or1k-elf-gcc")
        linker = [compiler, "-nostdlib", "-Wl,-e,start"]
        self.check_gcc([compiler], linker, "or1k", True)

    # Target, edition, optimisation, what is looked at, sections beyond the tables. The objects of targets whose linker
    # relaxes code have no lengths yet.
    CLANG_FILES = [
        ("i386", 2, 2, "object program", [".debug_frame", ".debug_loc"]),
        ("i386", 3, 0, "object", [".debug_frame"]),
        ("mips", 2, 0, "program", [".debug_frame"]),
        ("mips", 3, 2, "object program", [".debug_frame", ".debug_loc", ".debug_ranges"]),
        ("mipsel", 3, 2, "object", [".debug_frame", ".debug_loc", ".debug_ranges"]),
        ("powerpc", 2, 2, "object program", [".debug_frame", ".debug_loc", ".debug_ranges"]),
        ("powerpc", 3, 0, "object", [".debug_frame"]),
        ("armv7-none-eabi", 3, 2, "program", [".debug_frame", ".debug_loc", ".debug_ranges"]),
        ("armebv7-none-eabi", 2, 2, "object", [".debug_frame", ".debug_loc", ".debug_ranges"]),
        ("riscv32", 3, 2, "program", [".debug_frame", ".debug_loc"]),
        ("msp430", 2, 2, "object", [".debug_loc", ".debug_ranges"]),
        ("hexagon", 3, 0, "object", [".debug_frame"]),
    ]  # fmt: skip

    def test_clang(self):
        compiler = judging.find_tool("clang", "clang-14")
        for target, edition, level, looked_at, sections in self.CLANG_FILES:
            stem = f"{target}-{edition}{level}"
            with self.subTest(stem):
                command = [compiler, f"--target={target}", *CLANG]
                objects = self.objects(stem, command, edition, level, marks=False)
                if "object" in looked_at:
                    _, facts = self.check(objects[0], edition, sections)
                    self.assertTrue(facts.relocatable)
                if "program" in looked_at:
                    self.build(judging.find_tool("ld.lld", "ld.lld-14"), *objects, "-e", "start", "-o", f"{stem}.elf")
                    dump, facts = self.check(f"{stem}.elf", edition, sections)
                    self.assertEqual((facts.relocatable, len(dump.dwarf.sections[".debug_info"])), (False, 2))

    def test_clang_marks_prologues(self):
        compiler = judging.find_tool("clang", "clang-14")
        for target, edition in ("mips", 2), ("i386", 3):
            command = [compiler, f"--target={target}", *CLANG]
            objects = self.objects(f"marks-{target}", command, edition, 2)
            dump, facts = self.check(objects[0], edition, unknown_line_opcode=True)
            (unit,) = dump.dwarf.sections[".debug_line"]
            self.assertEqual((unit["opcode_base"], unit["opcodes"][9:]), (13, [(10, 0), (11, 0), (12, 1)]))
            self.assertEqual(dump.lines.rest, f"{len(unit['statements']) + 1:05}: ")


if __name__ == "__main__":
    judging.main()

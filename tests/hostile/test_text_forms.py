#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Text as editors and other hosts leave it: other line ends, no last line end, NULs, names of 10,000 characters."""

from pathlib import Path

import hostile
import judging
from programs import COFF, ELF, FUNCTION, LEGACY, OPTIONS, elf_section, write, write_database, write_map

LONG = "x" * 10_000
OUTPUTS = ["o.elf", "o.cof", "o.hex", "o.s19", "o.sym"]


class TextForms(hostile.HostileTest):
    def setUp(self):
        super().setUp()
        write_map(
            SYMTAB=["_f 100 0 CODE 1 text m.o", "__end_of_f 10C 0 CODE 1 text m.o", "_v 300 0 BSS 2 bss m.o"],
            NOTES=["$note 4", "01 02 03 04"],
        )
        write_database([*FUNCTION, '"9', "[s S1 tag 2 i m 0 2 ]", "[v _v v `S1 1 e 2 0 ]"])
        write("prog.hex", [":0400F00001020304" + "02", ":0101000005F9", ":00000001FF"])
        write("prog.s19", ["S10400F0010A", "S1040100F307"])

    def outputs(self, image="prog.hex"):
        """All that a run writes. Each format is a run of its own, since some change what the next one sees."""
        for arguments in (ELF, COFF, LEGACY):
            self.expect_silence([*arguments[:-2], image, *arguments[-2:]])
        self.expect_silence([*OPTIONS, image, "-oihex", "o.hex", "-os19", "o.s19"])
        return {name: Path(name).read_bytes() for name in OUTPUTS}

    def expect_silence(self, arguments):
        outcome = self.run_program(arguments)
        self.assertEqual((outcome.status, outcome.errors), (0, b""), " ".join(arguments))

    def rewrite(self, change):
        for path in [*Path().glob("prog.*"), Path("m.sdb")]:
            path.write_bytes(change(path.read_bytes()))

    def test_carriage_returns(self):
        before = self.outputs(), self.outputs("prog.s19")
        self.rewrite(lambda content: content.replace(b"\n", b"\r\n"))
        self.assertEqual((self.outputs(), self.outputs("prog.s19")), before)

    def test_no_last_line_end(self):
        before = self.outputs(), self.outputs("prog.s19")
        self.rewrite(lambda content: content.removesuffix(b"\n"))
        self.assertEqual((self.outputs(), self.outputs("prog.s19")), before)

    def test_no_last_line_end_in_a_legacy_file(self):
        """The last line of such a file is dropped."""
        write("whole.sym", ["a 1 1 text 1"])
        Path("cut.sym").write_bytes(b"a 1 1 text 1\nb 2 1 text 1")
        for name in ("whole", "cut"):
            self.expect_silence([*OPTIONS, f"{name}.sym", "-oorbell", f"{name}.out"])
        written = [Path(f"{name}.out").read_text(judging.ENCODING) for name in ("whole", "cut")]
        self.assertEqual(written, [f"%locals\n{name}.sym\na 1 1 text\n" for name in ("whole", "cut")])

    def test_carriage_returns_in_a_legacy_file(self):
        Path("prog.sym").write_bytes(b"a 1 1 text 1\r\n%locals\r\nmain.c\r\nb 2 1 text\r\n")
        self.expect_silence([*OPTIONS, "prog.sym", "-oorbell", "o.out"])
        expected = "%locals\nprog.sym\na 1 1 text\nmain.c\nb 2 1 text\n"
        self.assertEqual(Path("o.out").read_text(judging.ENCODING), expected)

    def test_nuls(self):
        """A NUL in any line of any file is met with a result or with a report."""
        runs = [
            ("prog.tmf", ELF),
            ("m.sdb", ELF),
            ("m.sdb", COFF),
            ("prog.hex", [*OPTIONS, "prog.hex", "-oihex", "o.hex"]),
            ("prog.s19", [*OPTIONS, "prog.s19", "-os19", "o.s19"]),
        ]
        for name, arguments in runs:
            lines = Path(name).read_bytes().splitlines(keepends=True)
            for number, line in enumerate(lines):
                for at in (0, len(line) // 2, len(line) - 1):
                    damaged = [*lines[:number], line[:at] + b"\0" + line[at:], *lines[number + 1 :]]
                    Path(name).write_bytes(b"".join(damaged))
                    outcome = self.run_program(arguments)
                    self.assertEqual(self.program.faults(outcome), [], f"{name}, line {number + 1}, character {at}")
            Path(name).write_bytes(b"".join(lines))

    def test_long_names(self):
        """Each name is told from the others by its first letters, and comes out whole."""
        write_map(
            PSECTS=[f"${LONG}object.o", f"psect{LONG} CODE 1 0 0 1000 1 1"],
            LINETAB=[
                f"${LONG}object.o",
                f"100 psect{LONG} CODE >5:/file{LONG}.c",
                f"108 psect{LONG} CODE >7:/file{LONG}.c",
            ],
            SYMTAB=[
                f"_f{LONG} 100 0 class{LONG} 1 psect{LONG} {LONG}object.o",
                f"__end_of_f{LONG} 10C 0 class{LONG} 1 psect{LONG} {LONG}object.o",
            ],
            SEGMENTS=[f"segment{LONG} 1 0 0 1000 1"],
        )
        # The object's name is too long for a file, so that its database is not found here; a legacy file names another.
        self.expect_silence(ELF)
        self.assertIn(f"_f{LONG}\0".encode(), elf_section(".strtab"))
        self.assertIn(f"segment{LONG}\0".encode(), elf_section(".shstrtab"))
        self.expect_silence(LEGACY)
        symbols = f"{LONG}object.o\n_f{LONG} 100 1 segment{LONG}\n__end_of_f{LONG} 10C 1 segment{LONG}\n"
        lines = f"/file{LONG}.c\n5 100 1 segment{LONG}\n7 108 1 segment{LONG}\n"
        self.assertEqual(Path("o.sym").read_text(judging.ENCODING), f"%locals\n{symbols}{lines}")
        self.expect_silence(COFF)
        self.assertIn(f"_f{LONG}\0".encode(), Path("o.cof").read_bytes())

    def test_long_names_in_a_database(self):
        write_map()
        write_database(
            [
                *FUNCTION,
                '"9',
                f"[s S1 tag{LONG} 2 i member{LONG} 0 2 ]",
                f"[e E1 enum{LONG} `i value{LONG} 1 ]",
                f"[v _variable{LONG} alias{LONG} `S1 1 e 2 @300 ]",
                "[v _e e `E1 1 e 2 @302 ]",
                f"[v _type{LONG} type{LONG} `i 1 t 2 ]",
            ]
        )
        self.expect_silence(ELF)
        entries = elf_section(".debug_info")
        for name in ("tag", "member", "enum", "value", "alias"):
            self.assertIn(f"{name}{LONG}\0".encode(), entries)
        self.expect_silence(COFF)
        strings = Path("o.cof").read_bytes()
        for name in ("tag", "member", "_variable"):  # enumerations have no entries there
            self.assertIn(f"{name}{LONG}\0".encode(), strings)


if __name__ == "__main__":
    judging.main()

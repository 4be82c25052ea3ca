#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The sample program blink as a COFF file and a legacy symbol file of one run: what they hold, the dump of the first in
full, and both read back. What they have to hold is told by blink.tmf and blink.hex."""

import re
import shutil
from collections import Counter

import judging
from coff_checker import EXTERNAL, LABEL, STATIC, CoffFile
from coff_dump_text import dump_text

COMMAND = "-pN4A,1234,{} --code-spaces=1 --data-spaces=2 blink.hex blink.tmf -ovcoff blink.cof -oorbell blink.sym"
SPACES = ["--code-spaces=1", "--data-spaces=2"]

# Files in the order in which the model gets them. The objects come with the psects, by the `hash_string` of their
# names: 0D380847, 0FDA6897, 833BB09B, 910A0675, E1FE8B63. The sources come with the lines, which follow their objects.
OBJECTS = ["main.o", "led.o", "cstack.o", "startup.o", "timer.o"]
SOURCES = [f"/project/blink/{name}" for name in ("main.c", "led.c", "startup.s", "timer.c")]
SEGMENTS = {"code": 1, "data": 2, "eeprom": 3}
SPACE_SEGMENTS = {"1": "code", "2": "data", "3": "eeprom"}

CODE_END = 0x9C  # of the image, in bytes
CODE_WORDS = 0x4E  # the same in the words of two bytes that addresses of the code count
FUNCTIONS = ["_main", "_led_init", "_led_toggle", "_timer_load", "_timer_wait"]


def map_section(text, heading):
    """The rows of one section as tokens; object lines left out."""
    body = text.split("\n" + heading + "\n")[1].split("\n%")[0]
    return [line.split() for line in body.split("\n") if line and line[0] not in "#$"]


class BlinkSymbols(judging.Judge):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        for path in (judging.samples_folder() / "blink").iterdir():
            if path.is_file():
                shutil.copyfile(path, cls.scratch / path.name)
        cls.map_text = (cls.scratch / "blink.tmf").read_text()
        cls.image = judging.intel_hex_bytes((cls.scratch / "blink.hex").read_text())

    def written(self, family):
        """The COFF file and the symbol file of a chip."""
        self.run_silently(COMMAND.format(family).split())
        coff = CoffFile((self.scratch / "blink.cof").read_bytes())
        self.assertEqual(coff.faults, [])
        return coff, (self.scratch / "blink.sym").read_text()

    # --- what the map file tells --------------------------------------------------------------------------------------

    def symbols(self):
        """(object, segment name or None, value, label); the bounds of psects are not taken over. The map file has
        values in bytes. A symbol with a psect has its value in units of the psect's delta."""
        deltas = {row[0]: int(row[6]) for row in map_section(self.map_text, "%PSECTS")}
        found = []
        for row in map_section(self.map_text, "%SYMTAB"):
            label, value, _, _, space, psect, file = row
            # No byte of a segment is behind the last one of the code.
            placed = psect != "-" and int(value, 16) != CODE_END
            if label not in ("__Lbss", "__Hbss"):
                units = int(value, 16) // deltas.get(psect, 1)
                found.append((file, SPACE_SEGMENTS[space] if placed else None, units, label))
        return found

    def lines(self):
        """(source, address, line); addresses in words."""
        found = []
        for row in map_section(self.map_text, "%LINETAB"):
            line, source = re.fullmatch(r">(\d+):(.*)", row[3]).groups()
            found.append((source, int(row[0], 16), int(line)))
        return found

    def symbol_row(self, symbol):
        _, segment, value, label = symbol
        if segment is not None:
            return f"{label} {value:X} {SEGMENTS[segment]} {segment}"
        return f"{label} {value:X}" + ("" if label == "_LEDPORT" else " 0")

    def assert_rows(self, actual, expected):
        """Rows of one file, each with the key that orders them; rows of one key may stand in any order."""
        self.assertEqual(Counter(actual), Counter(row for _, row in expected))
        keys = {row: key for key, row in expected}
        self.assertEqual([keys[row] for row in actual], sorted(keys[row] for row in actual))

    def assert_symbols(self, actual, symbols, row_of):
        expected = [((SEGMENTS.get(one[1], 0), one[2]), row_of(one)) for one in symbols]
        self.assert_rows(actual, expected)

    def files_of(self, text):
        """File -> the rows below its name, of all that stands behind the heading; files in their order."""
        lines = text.split("\n")
        self.assertEqual((lines[0], lines[-1]), ("%locals", ""))
        found = {}
        for line in lines[1:-1]:
            if " " not in line:
                rows = found.setdefault(line, [])
            else:
                rows.append(line)
        return found

    # --- the outputs --------------------------------------------------------------------------------------------------

    def test_the_symbol_file(self):
        _, text = self.written("KOR14")
        files = self.files_of(text)
        self.assertEqual(list(files), OBJECTS + SOURCES)
        for name in OBJECTS:
            self.assert_symbols(files[name], [one for one in self.symbols() if one[0] == name], self.symbol_row)
        self.assertEqual((files["cstack.o"], len(files["timer.o"])), ([], 8))
        for name in SOURCES:
            rows = [f"{line} {address:X} 1 code" for source, address, line in sorted(self.lines()) if source == name]
            self.assertEqual(files[name], rows)

    def test_functions_find_their_section(self):
        """A word's byte is in the image. Of a chip that counts bytes, the number of a word is taken for that of a byte,
        which is in the first half of the image."""
        values = {label: value for _, _, value, label in self.symbols()}
        self.assertEqual((values["_main"], values["__end_of_timer_wait"]), (0x8, CODE_WORDS))
        for family in ("KOR14", "KOR18"):
            coff, _ = self.written(family)
            numbers = {section.name: section.number for section in coff.sections}
            self.assertEqual((numbers["ABS"], numbers["data"]), (1, 2))
            functions = {own.name: (own, first, last) for own, first, last in coff.functions()}
            self.assertEqual(sorted(functions), sorted(FUNCTIONS))
            for name, entries in functions.items():
                with self.subTest(family, name=name):
                    self.assertEqual([entry.section for entry in entries], [numbers["code"]] * 3)
                    end = values[f"__end_of{name}"] - 1
                    self.assertEqual([entry.value for entry in entries], [values[name], values[name], end])

    def test_addresses_of_sections(self):
        """What has bytes in the image is addressed in units of the chip, data without bytes in those of data memory."""
        for family, unit in (("KOR14", 2), ("KOR18", 1)):
            with self.subTest(family):
                coff, _ = self.written(family)
                found = {section.name: (section.paddr, section.size) for section in coff.sections}
                self.assertEqual(found["code"], (0, CODE_END))
                self.assertEqual(found["eeprom1"], (0xF000 // unit, 2))
                self.assertEqual(found["data"], (0x20, 0xD))
                self.assertEqual(coff.image(), self.image)

    def test_variables_find_their_section(self):
        coff, _ = self.written("KOR14")
        numbers = {section.name: section.number for section in coff.sections}
        in_data = [(label, value) for _, segment, value, label in self.symbols() if segment == "data"]
        self.assertEqual(len(in_data), 7)
        for label, value in in_data:
            with self.subTest(label):
                found = coff.named(label, {EXTERNAL, STATIC})
                self.assertGreater(len(found), 0)
                self.assertEqual({(one.value, one.section) for one in found}, {(value, numbers["data"])})

    def test_lines_find_their_section(self):
        """A line has a record at each word from its address to the next line's; but the line at address 0 has none."""
        starts = sorted((address, line) for _, address, line in self.lines())
        ends = [address for address, _ in starts[1:]] + [CODE_WORDS]
        due = [(line, word) for (start, line), end in zip(starts, ends) for word in range(start, end) if start != 0]
        # The first line has two words to itself.
        self.assertEqual([word for _, word in due], list(range(2, CODE_WORDS)))
        for family in ("KOR14", "KOR18"):
            with self.subTest(family):
                coff, _ = self.written(family)
                code = next(section for section in coff.sections if section.name == "code")
                self.assertEqual(Counter((line.line, line.paddr) for line in code.lines), Counter(due))
                self.assertEqual(sum(section.line_count for section in coff.sections), len(due))

    # --- the dump -----------------------------------------------------------------------------------------------------

    def test_the_dump_in_full(self):
        for family in ("KOR14", "KOR18"):
            with self.subTest(family):
                coff, _ = self.written(family)
                outcome = judging.run([judging.program(), "-d", "-v", "-v", "blink.cof"], self.scratch)
                text = outcome.stdout.decode(judging.ENCODING)
                self.assertEqual(outcome.returncode, 0)
                # The driver ends each dump with an empty line.
                self.assertEqual(text.split("\n"), (dump_text(coff) + "\n").split("\n"))

    def test_rows_of_the_dump(self):
        """Some rows as a person would have them. `_main` is at byte 10, which is word 8. `_led_toggle` ends in front
        of byte 66, which is word 33. Of the 78 words, all but the first line's two have a record. Behind the headers,
        20 + 18 + 7 * 40 bytes, stand the code, the two bytes of the eeprom at F000 and the records of lines."""
        self.written("KOR14")
        text = judging.run([judging.program(), "-d", "-v", "-v", "blink.cof"], self.scratch).stdout.decode()
        for row in (
            "\tMagic:\t\t0x1240",
            "\tProcessor:\t0x1234",
            "\tROM width:\t14",
            "Section 1: data: @20 scnptr 0x0 relptr 0x0 lnnoptr 0x0 size 0xD lines 0 relocs 0 flags 0x80 ( bss )",
            "Section 5: code: @0 scnptr 0x13E relptr 0x0 lnnoptr 0x1DC size 0x9C lines 76 relocs 0"
            " flags 0x20 ( text )",
            "Section 6: eeprom1: @7800 scnptr 0x1DA relptr 0x0 lnnoptr 0x0 size 0x2 lines 0 relocs 0"
            " flags 0x20 ( text )",
            "    4:\tdabs$_LEDPORT",
            "   11:\t         external symbol 1 4[4]\t_leds = 21: data array [2] of struct [2]",
            "   26:\t              .bf or .ef 1 0[1]\t.bf = 8: code: line 7, index 34",
            "   59:\t              .bf or .ef 1 0[1]\t.ef = 32: code: line 18, index 0",
            "00007:\tsrcndx: 21, paddr: 0x8, flags 0x0, fcnndx: 25",
        ):
            with self.subTest(row):
                self.assertIn(f"\n{row}\n", text)

    # --- both read back -----------------------------------------------------------------------------------------------

    def test_the_coff_file_reads_back(self):
        coff, _ = self.written("KOR14")
        self.run_silently([*SPACES, "blink.cof", "-os19", "back.s19", "-oorbell", "back.sym"])
        self.assertEqual(judging.s_record_bytes((self.scratch / "back.s19").read_text()), self.image)

        # Lines come without a file, and all symbols are those of the one file ".file".
        lines, _, symbols = (self.scratch / "back.sym").read_text().partition("%locals\n.file\n")
        records = [(line.paddr, f"{line.line} {line.paddr:X} 0") for section in coff.sections for line in section.lines]
        self.assert_rows(lines.split("\n")[:-1], records)
        names = ["", *(section.name for section in coff.sections)]
        expected = []
        for one in coff.symbols:
            if one.cls in (EXTERNAL, STATIC, LABEL):
                row = f"{one.name} {one.value:X} {one.section:X} {names[one.section]}".rstrip()
                expected.append(((one.section, one.value), row))
        self.assert_rows(symbols.split("\n")[:-1], expected)

    def test_the_symbol_file_reads_back(self):
        """The object files are not there, so their names are passed over, and all symbols are those of the input. What
        has no segment's name is absolute."""
        _, text = self.written("KOR14")
        self.run_silently([*SPACES, "blink.sym", "-oorbell", "back.sym"])
        before, after = self.files_of(text), self.files_of((self.scratch / "back.sym").read_text())
        self.assertEqual(list(after), ["blink.sym", *SOURCES])
        self.assertEqual([after[name] for name in SOURCES], [before[name] for name in SOURCES])
        self.assert_symbols(after["blink.sym"], self.symbols(), lambda one: self.symbol_row(one).removesuffix(" 0"))


if __name__ == "__main__":
    judging.main()

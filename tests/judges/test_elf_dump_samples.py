#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""`tarnwick -d` prints the ELF files of every sample program, made with different options for debugging sections."""

import shutil

import judging
from dwarf_reader import DwarfFile
from dwarf_runs import ALWAYS, AUTO, NEVER, commands_of, run_with
from elf_dump_check import VERBOSITIES, DumpJudge
from elf_dump_facts import location_list, range_list

# Address size, mode of range lists, mode of location lists, further options.
COMBINATIONS = [
    (4, NEVER, NEVER, []),
    (4, ALWAYS, ALWAYS, ["-k"]),
    (2, AUTO, AUTO, ["-b"]),
    (8, NEVER, ALWAYS, []),
    (1, ALWAYS, NEVER, []),
]


class Samples(DumpJudge):
    """Each program has its test; see below."""

    def check_program(self, folder):
        place = self.scratch / folder.name
        shutil.copytree(folder, place)
        for number, options in enumerate(COMBINATIONS):
            run = run_with(folder, *options)
            self.run_silently(run.arguments, place)
            path = place / f"o{number}.elf"
            (place / run.output).rename(path)
            # No third-party reader knows addresses of one byte. Verbosity does not reach the debugging sections, as the
            # first of the files shows.
            verbosities = (0,) if number else VERBOSITIES
            dump, facts = self.check_file(path, verbosities, readable=run.address_size != 1)
            self.assertEqual(facts.big_endian, run.big_endian)
            units = dump.dwarf.sections[".debug_info"]
            self.assertEqual({unit["pointer_size"] for unit in units}, {run.address_size})
            self.assertEqual({unit["version"] for unit in units}, {run.version})
            self.check_with_own_reader(dump.dwarf, DwarfFile(path.read_bytes(), cut=run.address_size == 1), run)
        self.check_without_dwarf(folder, place)

    def check_with_own_reader(self, dwarf, reader, run):
        """The entries, rows and tables as the judges' own reader of the program's sections has them."""
        units = dwarf.sections[".debug_info"]
        entries = [entry[1:4] for unit in units for entry in unit["entries"]]
        dies = [(die.offset, die.abbreviation.number, f"DW_TAG_{die.tag}") for die in reader.all_dies()]
        self.assertEqual(entries, dies)
        for unit, other in zip(dwarf.sections[".debug_line"], reader.units):
            # The dump counts on beyond the address size. Where instructions are longer it counts in a way of its own,
            # which other judges follow.
            mask = run.mask if unit["minimum"] == 1 else 0
            rows = [(row[1] & mask, row[3], row[-1]) for sequence in unit["rows"] for row in sequence]
            self.assertEqual(rows, [(row.address & mask, row.line, row.end) for row in other.lines.rows])
        names = [pair for unit in dwarf.sections.get(".debug_pubnames", []) for pair in unit["names"]]
        self.assertEqual(names, [(die.offset - unit.offset, name) for unit in reader.units for die, name in unit.names])
        ranges = [values for unit in dwarf.sections[".debug_aranges"] for values in unit["ranges"]]
        pairs = [pair for unit in reader.units for pair in unit.addresses]
        self.assertEqual(ranges, [(start, start + length, length, length) for start, length in pairs])
        for section, lists in (".debug_ranges", range_list), (".debug_loc", location_list):
            if section in reader.sections:
                content = reader.sections[section]
                self.assertEqual(dwarf.sections[section], lists(content, run.address_size, run.big_endian))

    def check_without_dwarf(self, folder, place):
        words = commands_of(folder)[0].inputs_and_options
        self.run_silently([*words, "--disable-dwarf"], place)
        dump, _ = self.check_file(place / words[words.index("-oelf") + 1])
        self.assertFalse(dump.dwarf.found)

    def test_words(self):
        """Families whose code memory counts words. Sections count bytes nevertheless, so no second value stands behind
        any length or offset; the shapes of the lines have no room for one."""
        for family in "KOR12", "KOR14", "KOR16", "KOR18":
            place = self.scratch / family
            shutil.copytree(judging.samples_folder() / "blink", place)
            options = f"-pN4A,1234,{family},KORM --code-spaces=1 --data-spaces=2 --eeprom-spaces=3"
            inputs = ["blink.hex", "blink.tmf"]
            self.run_silently([*options.split(), *inputs, "--dwarf-addr-size=4", "-oelf", "o.elf"], place)
            dump, _ = self.check_file(place / "o.elf", (0,))
            addresses = [row[1] for unit in dump.dwarf.sections[".debug_line"] for rows in unit["rows"] for row in rows]
            self.assertEqual(min(addresses), 0)
            self.assertLess(max(addresses), 0x60)  # of code words; the bytes reach to 0x9b


def sample_programs():
    found = [judging.samples_folder() / "blink"]
    shared = judging.shared_samples_folder()
    if shared is None:
        print("no folder of further sample programs: blink alone is printed", flush=True)
        return found
    return found + sorted(path.parent for path in shared.glob("*/*.tmf"))


def test_of(folder):
    def test(self):
        self.check_program(folder)

    return test


for sample in sample_programs():
    setattr(Samples, "test_" + "".join(letter if letter.isalnum() else "_" for letter in sample.name), test_of(sample))


if __name__ == "__main__":
    judging.main()

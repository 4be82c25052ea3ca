#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The main job on the sample program blink, fact by fact, as third-party readers see its outputs.

The facts come from blink.tmf and blink.hex, read here or by a person. What stands here by hand is the order: segments,
symbols and notes of a map file are taken over in the order of the `hash_string` of their names, which is given beside
each. A name of n characters c has the hash 5381 * 33^n + c[1] * 33^(n-1) + ... + c[n], modulo 2^32.
"""

import re
import shutil

import judging

COMMAND = (
    "-pN4A,KORM --code-spaces=1 --data-spaces=2 --eeprom-spaces=3 blink.hex blink.tmf "
    "-oelf blink.elf --disable-dwarf -os19 blink.s19"
)

WRITE, ALLOC, EEPROM = 1, 2, 0x20000000

# Section name, type, flags, address (of loading), size, bytes in the file.
# The null section comes first. The segments of the map file follow by hash: code 7C953E80, data 7C95915F, eeprom
# FADB154D. Psects of data spaces have no place in the image. The absolute data come last: first those without a label.
SEGMENT_SECTIONS = [
    ("", "SHT_NULL", 0, 0, 0, 0),
    ("code", "SHT_PROGBITS", ALLOC | WRITE, 0, 0x9C, 0x9C),
    ("data", "SHT_NOBITS", ALLOC | WRITE, 0x20, 0xD, 0),
    ("eeprom", "SHT_PROGBITS", ALLOC | WRITE | EEPROM, 0xF000, 2, 2),
    ("dabs$0", "SHT_NOBITS", ALLOC | WRITE, 0x70, 2, 0),
    ("dabs$_LEDPORT", "SHT_NOBITS", ALLOC | WRITE, 5, 1, 0),
]

# The notes by hash: build_id 180D04C1, codecov_info 7B54B093, codecov_info_hdr 80C6A1D0. The two of code coverage have
# section names and types of their own.
NOTE_SECTIONS = [
    (".build_id", "SHT_LOUSER", bytes.fromhex("B114CAFE")),  # 0x80000000
    (".codecov_info", 0x80000CC0, bytes.fromhex("010204081020")),
    (".codecov_info.hdr", 0x80000CC1, bytes.fromhex("434F563100010000 0000009C00000006")),
]

# Load address and size, address of linking, bytes in the file; all may be read and written.
LOADS = [
    (0x0, 0x9C, 0x0, 0x9C),
    (0x20, 0xD, 0x20, 0),
    (0xF000, 2, 0x0, 2),
    (0x70, 2, 0x70, 0),
    (0x5, 1, 0x5, 0),
]

ABSOLUTE = "SHN_ABS"
FUNCTION, OBJECT, NOTYPE = "STT_FUNC", "STT_OBJECT", "STT_NOTYPE"

# Symbols stand section by section, those of no section first. Within one they come file by file; the files are the
# objects of the psects by hash: main.o 0D380847, led.o 0FDA6897, cstack.o 833BB09B, startup.o 910A0675, timer.o
# E1FE8B63. Within a file they come by the hash of their names.
# `_LEDPORT` is absolute and lies in no segment of the linker's; `__end_of_timer_wait` is behind the code's last byte.
# The bounds `__Lbss` and `__Hbss` are not taken over, for there is a psect `bss`. Values in the code count words of two
# bytes, though the map file has them in bytes.
SYMBOLS = [
    ("_LEDPORT", 0x5, OBJECT, ABSOLUTE),  # led.o A85B01BE; no module declares it, but it labels absolute data
    ("__end_of_timer_wait", 0x4E, NOTYPE, ABSOLUTE),  # timer.o 2E6C96C2
    ("_main", 0x8, FUNCTION, "code"),  # main.o 0EF387E9
    ("__end_of_main", 0x1A, NOTYPE, "code"),  # main.o E81A9552
    ("_led_toggle", 0x2B, FUNCTION, "code"),  # led.o 039BD63A
    ("__end_of_led_toggle", 0x33, NOTYPE, "code"),  # led.o 25BB8E63
    ("_led_init", 0x1A, FUNCTION, "code"),  # led.o 2700AD8C
    ("__end_of_led_init", 0x2B, NOTYPE, "code"),  # led.o 2E524775
    ("reset", 0x0, NOTYPE, "code"),  # startup.o 10474288
    ("start", 0x2, NOTYPE, "code"),  # startup.o 106149D3
    ("_timer_load", 0x33, FUNCTION, "code"),  # timer.o 0C4710E4
    ("_timer_wait", 0x3D, FUNCTION, "code"),  # timer.o 0C4CDE99
    ("__end_of_timer_load", 0x3D, NOTYPE, "code"),  # timer.o 2E66C90D
    ("_blinks", 0x20, OBJECT, "data"),  # main.o 81138307
    ("main@pause", 0x25, OBJECT, "data"),  # main.o A946F948
    ("_leds", 0x21, OBJECT, "data"),  # led.o 0EF30BEC
    ("led_toggle@which", 0x27, OBJECT, "data"),  # led.o 10F9BA2E
    ("timer_wait@spin", 0x2C, OBJECT, "data"),  # timer.o 3254A554
    ("timer_wait@pause", 0x2A, OBJECT, "data"),  # timer.o 7CAB00B8
    ("timer_load@pause", 0x28, OBJECT, "data"),  # timer.o 7D527F43
    ("_saved_pause", 0x0, OBJECT, "eeprom"),  # timer.o D269A1B4
]


def map_rows(text, heading):
    """The rows of one section of a map file, as tokens; object lines left out."""
    body = text.split("\n" + heading + "\n")[1].split("\n%")[0]
    return [line.split() for line in body.split("\n") if line and line[0] not in "#$"]


class Blink(judging.Judge):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        folder = judging.samples_folder() / "blink"
        for path in folder.iterdir():
            if path.is_file():
                shutil.copy(path, cls.scratch)
        cls.map_text = (cls.scratch / "blink.tmf").read_text()
        cls.hex_text = (cls.scratch / "blink.hex").read_text()
        cls.outcome = judging.run([judging.program(), *COMMAND.split()], cls.scratch)
        cls.elf_path = cls.scratch / "blink.elf"
        cls.s19_path = cls.scratch / "blink.s19"

    def elf(self):
        return judging.ElfView(self.elf_path)

    def test_the_run_says_nothing_and_succeeds(self):
        self.assertEqual((self.outcome.returncode, self.outcome.stdout, self.outcome.stderr), (0, b"", b""))

    def test_readelf_does_not_complain(self):
        self.assertEqual(judging.readelf_complaints(self.elf_path), [])

    def test_llvm_readelf_does_not_complain(self):
        self.assertEqual(judging.llvm_readelf_complaints(self.elf_path), [])

    def test_header(self):
        header = self.elf().header
        ident = header["e_ident"]
        self.assertEqual((ident["EI_CLASS"], ident["EI_DATA"]), ("ELFCLASS32", "ELFDATA2LSB"))
        self.assertEqual((ident["EI_VERSION"], ident["EI_OSABI"]), ("EV_CURRENT", 66))
        self.assertEqual((header["e_type"], header["e_machine"]), ("ET_EXEC", "EM_MCHP_PIC"))
        self.assertEqual((header["e_version"], header["e_entry"], header["e_flags"]), ("EV_CURRENT", 0, 5))
        self.assertEqual((header["e_phnum"], header["e_shnum"], header["e_shstrndx"]), (6, 12, 11))

    def test_readelf_sees_that_header(self):
        text = judging.run([judging.find_tool("readelf"), "-h", "-W", str(self.elf_path)], self.scratch).stdout.decode()
        fields = dict(re.findall(r"^ +([^:]+): +(.*?) *$", text, re.MULTILINE))
        self.assertEqual((fields["Class"], fields["Type"]), ("ELF32", "EXEC (Executable file)"))
        self.assertEqual((fields["Data"], fields["Flags"]), ("2's complement, little endian", "0x5"))
        self.assertEqual(fields["OS/ABI"], "<unknown: 42>")

    def test_sections(self):
        elf = self.elf()
        names = [name for name, *_ in SEGMENT_SECTIONS] + [".strtab", ".symtab"]
        names += [name for name, *_ in NOTE_SECTIONS] + [".shstrtab"]
        self.assertEqual([name for name, _ in elf.sections], names)

        offset = 52  # behind the header
        for (name, kind, flags, address, size, in_file), (_, header) in zip(SEGMENT_SECTIONS[1:], elf.sections[1:]):
            with self.subTest(section=name):
                actual = [header[f"sh_{field}"] for field in ("type", "flags", "addr", "offset", "size")]
                self.assertEqual(actual, [kind, flags, address, offset, size])
                self.assertEqual([header[f"sh_{field}"] for field in ("link", "info", "addralign", "entsize")], [0] * 4)
            offset += in_file

        strings, symbols = elf.section(".strtab"), elf.section(".symtab")
        self.assertEqual((strings["sh_type"], strings["sh_offset"]), ("SHT_STRTAB", offset))
        self.assertEqual(strings["sh_size"], 1 + sum(len(name) + 1 for name, *_ in SYMBOLS))
        self.assertEqual((symbols["sh_type"], symbols["sh_offset"]), ("SHT_SYMTAB", offset + strings["sh_size"]))
        self.assertEqual((symbols["sh_size"], symbols["sh_entsize"]), (16 * (1 + len(SYMBOLS)), 16))
        self.assertEqual((symbols["sh_link"], symbols["sh_info"]), (len(SEGMENT_SECTIONS), 0))

    def test_notes(self):
        elf = self.elf()
        for name, kind, data in NOTE_SECTIONS:
            with self.subTest(note=name):
                header = elf.section(name)
                self.assertEqual((header["sh_type"], header["sh_flags"], header["sh_addr"]), (kind, 0, 0))
                self.assertEqual(elf.bytes_of(name), data)

    def test_program_headers(self):
        elf = self.elf()
        headers = elf.segments[0]
        size = 32 * (1 + len(LOADS))
        self.assertEqual((headers["p_type"], headers["p_offset"]), ("PT_PHDR", elf.header["e_phoff"]))
        self.assertEqual((headers["p_filesz"], headers["p_memsz"]), (size, size))
        self.assertEqual(elf.header["e_phoff"] + size, len(elf.content))  # the last thing in the file

        offset = 52
        self.assertEqual(len(elf.segments), 1 + len(LOADS))
        for (load, size, link, in_file), header in zip(LOADS, elf.segments[1:]):
            with self.subTest(load=load):
                actual = [header[f"p_{field}"] for field in ("offset", "vaddr", "paddr", "filesz", "memsz")]
                self.assertEqual(actual, [offset, link, load, in_file, size])
                self.assertEqual((header["p_type"], header["p_flags"], header["p_align"]), ("PT_LOAD", 6, 0))
            offset += in_file

    def test_symbols(self):
        elf = self.elf()
        name, entry = elf.symbols[0]
        self.assertEqual((name, entry["st_value"], entry["st_shndx"]), ("", 0, "SHN_UNDEF"))
        actual = [
            (name, entry["st_value"], entry["st_info"]["type"], elf.section_name(entry["st_shndx"]))
            for name, entry in elf.symbols[1:]
        ]
        self.assertEqual(actual, SYMBOLS)
        for name, entry in elf.symbols[1:]:
            with self.subTest(symbol=name):
                self.assertEqual((entry["st_info"]["bind"], entry["st_size"]), ("STB_GLOBAL", 0))

    def test_the_symbols_are_those_of_the_map_file(self):
        rows = {row[0]: int(row[1], 16) for row in map_rows(self.map_text, "%SYMTAB")}
        bounds = {"__Lbss", "__Hbss"}
        self.assertLess(bounds, rows.keys())
        deltas = {row[0]: int(row[6]) for row in map_rows(self.map_text, "%PSECTS")}
        psects = {row[0]: row[5] for row in map_rows(self.map_text, "%SYMTAB")}
        expected = sorted(
            (name, value // deltas.get(psects[name], 1)) for name, value in rows.items() if name not in bounds
        )
        self.assertEqual(sorted((name, entry["st_value"]) for name, entry in self.elf().symbols[1:]), expected)

    def test_the_segments_are_those_of_the_map_file(self):
        elf = self.elf()
        sizes = {}
        for psect, _, space, _, load, length, *_ in map_rows(self.map_text, "%PSECTS"):
            sizes[space] = sizes.get(space, 0) + int(length, 16)
        for name, space, link, load, size, delta in map_rows(self.map_text, "%SEGMENTS"):
            with self.subTest(segment=name):
                self.assertEqual(sizes[space], int(size, 16))  # the psects of the sample fill their segments
                header = dict(elf.loads())[name]
                actual = (header["p_vaddr"], header["p_paddr"], header["p_memsz"])
                self.assertEqual(actual, (int(link, 16), int(load, 16) // int(delta), int(size, 16) * int(delta)))

    def test_the_segments_hold_the_image(self):
        image = judging.intel_hex_bytes(self.hex_text)
        self.assertEqual(len(image), 0x9E)
        self.assertEqual(self.elf().image(), image)

    def test_the_s_records_hold_the_image(self):
        expected = judging.intel_hex_bytes(self.hex_text)
        self.assertEqual(judging.s_record_bytes(self.s19_path.read_text()), expected)

    def test_srec_cat_reads_the_same_bytes_from_both(self):
        tool = judging.find_tool("srec_cat")
        dumps = []
        # The records have neither a header nor a start address.
        of_records = (
            "srec_cat: blink.s19: 1: warning: no header record "
            "srec_cat: blink.s19: 12: warning: no execution start address record"
        )
        for name, form, complaints in (("blink.hex", "-intel", ""), ("blink.s19", "-motorola", of_records)):
            source, target = self.scratch / name, self.scratch / f"{name}.txt"
            outcome = judging.run([tool, str(source), form, "-o", str(target), "-hex-dump"], self.scratch)
            told = " ".join(outcome.stderr.decode().split())  # long messages run over several lines
            self.assertEqual((outcome.returncode, told.replace(str(self.scratch) + "/", "")), (0, complaints))
            dumps.append(target.read_text())
        self.assertIn("00000000: 0B 0A 45 18", dumps[0])
        self.assertEqual(dumps[0], dumps[1])


if __name__ == "__main__":
    judging.main()

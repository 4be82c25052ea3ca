# SPDX-License-Identifier: MIT
"""Small linked programs out of a seed: a map file and images that are valid, but unlike anything a linker lays out.

Segments overlap, straddle psects, or hold none; data has holes, overlaps, lies nowhere, comes out of order and in
pieces.
One seed always gives one program.
"""

import random
from dataclasses import dataclass, field

from reference_model import Options

PROCESSORS = [
    "-pH2A,18F0,KOR18,KORH",
    "-pH1B,18F1,KOR18,KORHX",
    "-pH1A,1800,KOR18,KORHXV",
    "-pN4A,14A0,KOR14,KORM",
    "-pN5B,14A0,KOR14,KORME",
    "-pN5BV,16F0,KORB",
    "-pN9A,1234,KOR12,KORBE",
    "-pN4A,KOR",
]

OBJECTS = ["main.o", "Main.o", "startup.o", "libc.a(printf.o)", "the io.o", "timer.o", "caf\xe9.o"]
PSECTS = "text init bss data const maintext text_split_1 idata eedata vectors stack nv$0a".split()
SEGMENTS = "code text bss ram rom boot eeprom init seg$x low high".split()
WORDS = "main init tick buffer put get x count caf\xe9 do@it a$b .L".split()

CODE, DATA, EEPROM = range(3)
PIECES = [1, 2, 3, 7, 15, 16, 17, 32]


@dataclass
class Section:
    """A psect: where its ranges may lie, and its addresses in units of its delta."""

    name: str
    space: int
    delta: int
    kind: int
    next_free: int
    ranges: list = field(default_factory=list)  # (link, load, length) in units


class Program:
    def __init__(self, seed):
        self.random = random.Random(seed)
        self.processor = self.random.choice(PROCESSORS)
        first = self.random.choice([0, 1])
        self.spaces = {CODE: [first], DATA: [first + 1], EEPROM: [first + 2]}
        if self.chance(0.3):
            self.spaces[CODE].append(7)
        if self.chance(0.3):
            self.spaces[DATA].append(9)
        self.code_delta = self.random.choice([1, 1, 2])
        self.sections = []
        self.psect_flags = {}
        self.labels = {}  # name -> row of %SYMTAB
        self.loads = []  # (load address in bytes, length, kind) of every psect range
        self.map_text = self.make_map()
        self.images = self.make_images()  # (file name, text)

    def chance(self, probability):
        return self.random.random() < probability

    def number(self, low, high):
        return self.random.randint(low, high)

    # How it is run.

    def arguments(self, *flags):
        def spaces(kind):
            return ",".join(str(space) for space in self.spaces[kind])

        result = [self.processor, f"--code-spaces={spaces(CODE)}", f"--data-spaces={spaces(DATA)}"]
        result += [f"--eeprom-spaces={spaces(EEPROM)}", f"--code-delta={self.code_delta}", *flags]
        if self.psect_flags:
            pieces = [f"{name}={letters}" for name, letters in self.psect_flags.items()]
            result.append("--psect-flags=" + ",".join(pieces))
        return result + self.inputs()

    def inputs(self):
        """An image that is no ".hex" file is read where it stands, ahead of the map file or behind it."""
        names = [name for name, _ in self.images]
        return names[:-1] + ["prog.tmf"] + names[-1:] if self.image_behind else names + ["prog.tmf"]

    def options(self, **settings):
        return Options(
            self.processor.split(",")[1:],
            set(self.spaces[CODE]),
            set(self.spaces[DATA]),
            set(self.spaces[EEPROM]),
            code_delta=self.code_delta,
            psect_flags=self.psect_flags,
            **settings,
        )

    def reading_order(self):
        """Inputs as the program reads them: each ".hex" image goes to the head when it is met."""
        order = []
        for name in self.inputs():
            if name.endswith(".hex"):
                order.insert(0, name)
            else:
                order.append(name)
        return order

    def files(self):
        return {"prog.tmf": self.map_text, **dict(self.images)}

    # The map file.

    def make_map(self):
        sections = {
            "%PSECTS": self.psect_rows(),
            "%UNUSED": [f"CODE {self.number(0, 99):X}-{self.number(100, 4000):X} 1"] * self.number(0, 2),
            "%LINETAB": self.line_rows(),
            "%SYMTAB": [],
            "%SPLITSTAB": self.split_rows(),
            "%DABS": self.dabs_rows(),
            "%SEGMENTS": self.segment_rows(),
            "%NOTES": self.note_rows(),
        }
        sections["%SYMTAB"] = self.symbol_rows()  # when all labels of absolute data are known
        blanks = self.random.choice([" ", " ", "  "])
        rows = ["%TMF", "# made from a seed", ""]
        for heading, body in sections.items():
            rows += ["", "# ----------", heading]
            rows += [row if row[0] == "$" or ">" in row else row.replace(" ", blanks) for row in body]
        end = self.random.choice(["\n", "\n", "\r\n"])
        return end.join(rows) + end

    def make_sections(self):
        base = {CODE: 0, DATA: self.number(0x20, 0x200), EEPROM: self.random.choice([0x7000, 0xF00000, 0x1000000])}
        code_delta = self.random.choice([1, self.code_delta])
        for name in self.random.sample(PSECTS, self.number(3, 8)):
            kind = self.random.choice([CODE, CODE, CODE, DATA, DATA, EEPROM])
            delta = code_delta if kind == CODE else 1
            section = Section(name, self.random.choice(self.spaces[kind]), delta, kind, base[kind])
            base[kind] += self.number(0, 90)
            self.sections.append(section)
            if self.chance(0.3):
                self.psect_flags[name] = "".join(self.random.sample("wxsf", self.random.choice([1, 1, 1, 2])))
            elif self.chance(0.1):
                self.psect_flags[name] = "z"  # no letter that means anything

    def psect_rows(self):
        self.make_sections()
        rows = []
        for name in self.random.sample(OBJECTS, self.number(2, 5)):
            rows.append("$" + name)
            for section in self.random.sample(self.sections, self.number(0, min(5, len(self.sections)))):
                rows.append(self.psect_row(section))
        if not self.loads:
            rows.append(self.psect_row(self.sections[0]))
        return rows

    def psect_row(self, section):
        length = self.number(1, 40)
        link = section.next_free
        load = link if self.chance(0.8) else link + self.number(0, 64)
        section.next_free = link + length + self.random.choice([0, 0, 0, 1, 6])
        section.ranges.append((link, load, length))
        self.loads.append((load * section.delta, length * section.delta, section.kind))
        cls = self.random.choice(["CODE", "CODE", "BSS", "-"])
        alignment = self.random.choice([1, 2, 4])
        return f"{section.name} {cls} {section.space} {link:X} {load:X} {length:X} {section.delta} {alignment}"

    def line_rows(self):
        rows = []
        for name in self.random.sample(["main.o", "timer.o"], self.number(0, 2)):
            rows.append("$" + name)
            for _ in range(self.number(1, 4)):
                section = self.random.choice(self.sections)
                if section.ranges:
                    address = self.random.choice(section.ranges)[0] + self.number(0, 5)
                    file = self.random.choice(["/project/main.c", "/project/a file.c", "start.s", "D:\\x\\io.c"])
                    rows.append(f"{address:X} {section.name} CODE >{self.number(1, 90)}:{file}")
        return rows

    def split_rows(self):
        names = [section.name for section in self.sections if section.ranges]
        return [" ".join(self.random.sample(names, 2))] if len(names) > 1 and self.chance(0.5) else []

    def dabs_rows(self):
        rows = []
        for _ in range(self.number(0, 4)):
            space = self.random.choice(self.spaces[DATA] + self.spaces[CODE][:1])
            address, size = self.number(0, 0x300), self.random.choice([0, 1, 2, 8])
            label = "-" if self.chance(0.4) else self.new_label()
            if label != "-":
                cls, psect = self.random.choice([("-", "-"), ("ABS", "-"), ("BSS", "-"), ("BSS", self.some_psect())])
                self.labels[label] = f"{address:X} 0 {cls} {space} {psect} {self.some_file()}"
            rows.append(f"{label} {space} {address:X} {size:X}")
        return rows

    def segment_rows(self):
        rows = []
        for name in self.random.sample(SEGMENTS, self.number(1, 6)):
            section = self.random.choice(self.sections)
            delta = self.random.choice([section.delta, section.delta, 1, 4])
            if section.ranges and self.chance(0.85):
                load = max(0, self.random.choice(section.ranges)[1] * section.delta - self.random.choice([0, 0, 0, 3]))
            else:
                load = self.number(0, 0x200)
            size = self.random.choice([0, 1, 7, 40, 40, 100, 100, 200]) // delta
            link = load // delta if self.chance(0.7) else self.number(0, 0x200)
            rows.append(f"{name} {section.space} {link:X} {load:X} {size:X} {delta}")
            if section.kind != DATA:
                self.loads.append((load, size * delta, section.kind))
        return rows

    def note_rows(self):
        rows = []
        for name in self.random.sample(["codecov_info", "codecov_info_hdr", "build_id", "x.y"], self.number(0, 4)):
            data = [f"{self.number(0, 255):02X}" for _ in range(self.number(1, 40))]
            rows.append(f"${name} {len(data)}")
            step = self.random.choice([1, 5, 16])
            rows += [" ".join(data[i : i + step]) + " " for i in range(0, len(data), step)]
        return rows

    # Symbols.

    def new_label(self):
        while True:
            name = self.random.choice(["", "_", "__end_of_", "F", "__G"]) + self.random.choice(WORDS)
            name += self.random.choice(["", str(self.number(0, 99))])
            if name not in self.labels:
                self.labels[name] = None
                return name

    def some_psect(self):
        return self.random.choice(self.sections).name

    def some_file(self):
        return self.random.choice(["-", "main.o", "MAIN.O", "timer.o", "libc.a(printf.o)", "late.o"])

    def symbol_rows(self):
        for _ in range(self.number(3, 30)):
            self.labels[self.new_label()] = self.symbol_row()
        for letters in self.random.sample(["LH", "LH", "LHB", "L", "HI"], self.number(0, 3)):
            name = self.random.choice([self.some_psect(), "nothing", "OG", "OGGER", ""])
            low, high = self.random.choice([(0, 0), (0x20, 0x80), (0, 0x80)])
            for letter in letters:
                value = high if letter == "H" else low
                self.labels.setdefault(f"__{letter}{name}", f"{value:X} 0 - {self.spaces[DATA][0]} - -")
        if self.chance(0.3):
            self.labels["isa$xinst"] = f"{self.number(0, 1)} 0 ABS 0 - -"
        rows = [f"{name} {row}" for name, row in self.labels.items()]
        self.random.shuffle(rows)
        return rows

    def symbol_row(self):
        section = self.random.choice(self.sections)
        if self.chance(0.2) or not section.ranges:
            cls = self.random.choice(["ABS", "-", "CODE"])
            return f"{self.number(0, 0x400):X} 0 {cls} {section.space} - {self.some_file()}"
        link, load, length = self.random.choice(section.ranges)
        value = (link + self.number(0, length)) * section.delta + self.random.choice([0, 0, 0, section.delta - 1])
        adjustment = (load - link) * section.delta if self.chance(0.9) else -self.number(0, value)
        sign = "-" if adjustment < 0 else ""
        # A class of ABS keeps even a symbol that names a psect out of it.
        cls = "ABS" if self.chance(0.05) else "CODE"
        return f"{value:X} {sign}{abs(adjustment):X} {cls} {section.space} {section.name} {self.some_file()}"

    # Images.

    def make_images(self):
        self.image_behind = False
        blocks = self.make_blocks()
        if not blocks:
            return []
        records_of, ending = self.random.choice([(intel_hex, ".hex"), (intel_hex, ".ihx"), (s_records, ".s19")])
        if self.chance(0.1):
            # The second image is read first when both are ".hex" files; one that comes behind the map file and its
            # consolidation is in no segment any more.
            half = len(blocks) // 2
            self.image_behind = self.chance(0.5)
            return [
                ("one.hex", "".join(intel_hex(blocks[:half]))),
                (f"two{ending}", "".join(records_of(blocks[half:]))),
            ]
        self.image_behind = self.chance(0.5)
        return [(f"prog{ending}", "".join(records_of(blocks)))]

    def make_blocks(self):
        """(address, bytes) of each record."""
        runs = []
        for load, length, kind in self.loads:
            if kind == DATA and self.chance(0.9):
                continue
            start, end = load, load + length
            if self.chance(0.15):
                start = max(0, start - self.number(1, 20))
            if self.chance(0.15):
                end += self.number(1, 20)
            if self.chance(0.2):
                middle = self.number(start, end)
                runs += [(start, middle), (min(middle + self.number(1, 9), end), end)]
            elif self.chance(0.85):
                runs.append((start, end))
        for _ in range(self.random.choice([0, 0, 1, 3])):
            start = self.random.choice([0x300, 0x400, 0xFFF8, 0x2FFF0, 0xFA0000, 0x1234560]) + self.number(0, 24)
            runs.append((start, start + self.number(0, 40)))

        overlapping = self.chance(0.2)
        taken, blocks = set(), []
        step = self.random.choice(PIECES)
        for start, end in runs:
            # Every address once, unless overlaps are wanted.
            addresses = [address for address in range(start, end) if overlapping or address not in taken]
            taken.update(addresses)
            blocks += self.pieces(addresses, step)
        if self.chance(0.15):
            blocks.append((self.random.choice([0, 0x10, 0x500, 0x20000]), b""))
        if self.chance(0.4):
            self.random.shuffle(blocks)
        return blocks

    def pieces(self, addresses, step):
        """Runs of neighbouring addresses, cut into records."""
        blocks = []
        for address in addresses:
            byte = bytes([self.number(0, 255)])
            if blocks and len(blocks[-1][1]) < step and blocks[-1][0] + len(blocks[-1][1]) == address:
                blocks[-1] = (blocks[-1][0], blocks[-1][1] + byte)
            else:
                blocks.append((address, byte))
        return blocks


# --- images as other tools write them ---------------------------------------------------------------------------------


def intel_hex(blocks):
    """Records of a type 4 set the upper address; a block may run across its end."""

    def record(address, kind, data):
        content = bytes([len(data), address >> 8, address & 0xFF, kind]) + data
        return ":" + content.hex().upper() + f"{-sum(content) & 0xFF:02X}\n"

    upper = 0
    for address, data in blocks:
        if address >> 16 != upper:
            upper = address >> 16
            yield record(0, 4, upper.to_bytes(2, "big"))
        yield record(address & 0xFFFF, 0, data)
    yield record(0, 1, b"")


def s_records(blocks):
    def record(kind, address, width, data):
        content = bytes([width + len(data) + 1]) + address.to_bytes(width, "big") + data
        return f"S{kind}" + content.hex().upper() + f"{~sum(content) & 0xFF:02X}\n"

    yield record(0, 0, 2, b"prog")
    for address, data in blocks:
        width = 2 if address < 0x10000 else 3 if address < 0x1000000 else 4
        yield record(width - 1, address, width, data)
    yield record(9, 0, 2, b"")

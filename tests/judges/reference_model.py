# SPDX-License-Identifier: MIT
"""A second opinion on the way from a map file and an image to ELF, S-records and Intel HEX.

It is plain and slow on purpose: every search walks its whole list, every span is tested byte by byte, and nothing is
indexed. It knows neither symbol databases nor DWARF, so the type nibbles of the symbols' `st_info` stay 0 and must be
masked in what they are compared with. It takes well-formed inputs only and raises ValueError on others. The outputs are
made in reference_outputs.py.

    model = Model(Options(...))
    model.read_image(text)
    model.read_map(text)
    model.consolidate()
    write_elf(model), write_s_records(model), write_intel_hex(model)
"""

from dataclasses import dataclass, field

WRITE, EXEC, NOSPACE, FAKE = 1, 2, 4, 8
FLAG_LETTERS = {"w": WRITE, "x": EXEC, "s": NOSPACE, "f": FAKE}

SYM_ABS, SYM_DABS = 1, 16


def u32(value):
    return value & 0xFFFFFFFF


def s32(value):
    value = u32(value)
    return value - (1 << 32) if value >= 1 << 31 else value


def compare(left, right):
    return (left > right) - (left < right)


# --- containers -------------------------------------------------------------------------------------------------------


def hash_string(text):
    value = 5381
    for byte in text.encode("latin-1"):
        value = u32(value * 33 + (byte - 256 if byte > 127 else byte))
    return value


def skip_list_order(names):
    """The order in which a skip list with string keys is walked: by hash, then by strcmp."""
    return sorted(names, key=lambda name: (hash_string(name), name.encode("latin-1")))


class HashTable:
    """A fixed number of chains; a chain grows at its tail, and a second entry of one key changes nothing."""

    def __init__(self, size):
        self.buckets = [[] for _ in range(size)]

    def chain_of(self, key):
        return self.buckets[hash_string(key) % len(self.buckets)]

    def insert(self, key, value):
        if self.get(key) is None:
            self.chain_of(key).append((key, value))

    def get(self, key):
        for known, value in self.chain_of(key):
            if known == key:
                return value
        return None

    def values(self):
        return [value for chain in self.buckets for _, value in chain]


def quicksort(items, order):
    """The toolchain's own sort. It is not stable: where equal elements end is part of the result."""
    if len(items) < 2:
        return
    stack = []
    low, high = 0, len(items) - 1
    while True:
        while low < high:
            pivot = items[(low + high) // 2]
            i, j = low, high
            while i <= j:
                while order(items[i], pivot) < 0:
                    i += 1
                while order(pivot, items[j]) < 0:
                    j -= 1
                if i <= j:
                    items[i], items[j] = items[j], items[i]
                    i += 1
                    j -= 1
            if j - low >= high - i:
                if low < j:
                    stack.append((low, j))
                low = i
            else:
                if i < high:
                    stack.append((i, high))
                high = j
        if not stack:
            return
        low, high = stack.pop()


# --- the map file -----------------------------------------------------------------------------------------------------

HEADINGS = ["%PSECTS", "%UNUSED", "%LINETAB", "%SYMTAB", "%SPLITSTAB", "%DABS", "%SEGMENTS", "%NOTES"]


class MapFile:
    """The sections that the import reads, each as rows in the order in which the store of map records is walked."""

    def __init__(self, text):
        sections = self.split_sections(text)
        self.psects = self.read_psects(sections["%PSECTS"])
        self.symbols = self.by_key(self.read_symbol(row) for row in sections["%SYMTAB"])
        self.dabs = self.read_dabs(sections["%DABS"])
        self.segments = self.by_key(self.read_segment(row) for row in sections["%SEGMENTS"])
        self.notes = self.read_notes(sections["%NOTES"])

    @staticmethod
    def split_sections(text):
        lines = []
        for line in text.split("\n"):
            line = line[:-1] if line.endswith("\r") else line
            if line and not line.startswith("#"):
                lines.append(line)
        if not lines or not lines[0].startswith("%TMF"):
            raise ValueError("no map file")
        sections = {}
        rows = None
        for line in lines[1:]:
            if line.startswith("%"):
                if line != HEADINGS[len(sections)]:
                    raise ValueError(f"unexpected heading {line}")
                rows = sections[line] = []
            elif rows is None:
                raise ValueError(f"not in a section: {line}")
            else:
                rows.append(line)
        if len(sections) != len(HEADINGS):
            raise ValueError("sections are missing")
        return sections

    @staticmethod
    def tokens(row):
        return [token for token in row.split(" ") if token]

    @staticmethod
    def by_key(rows):
        """Rows are dictionaries; the first of a name stays."""
        found = {}
        for row in rows:
            if row["name"] in found:
                raise ValueError(f"{row['name']} twice")
            found[row["name"]] = row
        return [found[name] for name in skip_list_order(found)]

    def read_psects(self, rows):
        objects = {}
        current = None
        for row in rows:
            if row.startswith("$"):
                current = objects.setdefault(row[1:], {})
                continue
            name, cls, space, link, load, length, delta, reloc = self.tokens(row)
            if name in current:
                raise ValueError(f"psect {name} twice in one object")
            current[name] = {
                "name": name,
                "class": cls,
                "space": int(space),
                "link": int(link, 16),
                "load": int(load, 16),
                "length": int(length, 16),
                "delta": int(delta),
                "reloc": int(reloc),
            }
        # An object line alone brings no psects, and so no entry.
        walked = skip_list_order(name for name, psects in objects.items() if psects)
        return [
            {"object": name, **objects[name][psect]} for name in walked for psect in skip_list_order(objects[name])
        ]

    def read_symbol(self, row):
        name, value, load_adjustment, cls, space, psect, file = self.tokens(row)
        return {
            "name": name,
            "value": int(value, 16),
            "load_adjustment": int(load_adjustment, 16),
            "class": cls,
            "space": int(space),
            "psect": psect,
            "file": file,
        }

    def read_dabs(self, rows):
        unlabelled, labelled = [], {}
        for row in rows:
            name, space, address, size = self.tokens(row)
            record = {"name": name, "space": int(space), "address": int(address, 16), "size": int(size, 16)}
            if name == "-":
                unlabelled.append(record)
            else:
                labelled.setdefault(name, record)
        return unlabelled + [labelled[name] for name in skip_list_order(labelled)]

    def read_segment(self, row):
        name, space, link, file, size, delta = self.tokens(row)
        return {
            "name": name,
            "space": int(space),
            "link": int(link, 16),
            "file": int(file, 16),
            "size": int(size, 16),
            "delta": int(delta),
        }

    def read_notes(self, rows):
        notes = {}
        current = None
        for row in rows:
            if row.startswith("$"):
                current = notes.setdefault(self.tokens(row)[0][1:], bytearray())
            else:
                current += bytes(int(token, 16) for token in self.tokens(row))
        return [(name, bytes(notes[name])) for name in skip_list_order(notes)]


# --- the program model ------------------------------------------------------------------------------------------------


@dataclass
class Options:
    processor_words: list  # the words behind the processor's name
    code_spaces: set
    data_spaces: set
    eeprom_spaces: set = field(default_factory=set)
    fake_abs: bool = False
    big_endian: bool = False
    code_delta: int = 1
    psect_flags: dict = field(default_factory=dict)  # psect name -> letters


@dataclass
class Psect:
    name: str
    space: int
    delta: int
    flags: int
    ranges: list = field(default_factory=list)


@dataclass
class PsectRange:
    psect: Psect
    lo: int
    hi: int  # inclusive; one below `lo` when the range is empty
    load: int


@dataclass
class Segment:
    name: str
    index: int  # the number as stored
    addr: int
    load: int
    size: int
    flags: int
    delta: int
    space: int
    noranges: bool = False
    ranges: list = field(default_factory=list)


@dataclass
class Block:
    addr: int
    data: bytes
    seg: int = 0

    def end(self):
        return self.addr + len(self.data)


@dataclass
class Symbol:
    name: str
    file: int
    value: int
    load: int
    space: int
    psect: Psect
    seg: int = 0
    flags: int = 0


class Model:
    def __init__(self, options):
        self.options = options
        self.files = []  # names; a file's number is its position + 1
        self.psects = HashTable(123)
        self.symbols = []
        self.segments = []
        self.data = []
        self.notes = []
        self.consolidated = False
        self.stray = None
        self.stray_count = 0
        self.fake_abs_segment = 0
        if options.fake_abs:
            self.fake_abs_segment = len(self.segments) + 1
            space = min(options.data_spaces)
            self.add_segment(Segment(f"$FAKE_ABS{space}", 0, 0, 0, 0, WRITE | NOSPACE, 0, space))

    # Files and psects.

    def add_file(self, name):
        def folded(text):
            return "".join(chr(ord(c) + 32) if "A" <= c <= "Z" else c for c in text)

        for i, known in enumerate(self.files):
            if folded(known) == folded(name):
                return i + 1
        self.files.append(name)
        return len(self.files)

    def add_psect(self, name, space, delta):
        found = self.psects.get(name)
        if found is not None:
            return found
        flags = WRITE | NOSPACE if space in self.options.data_spaces else WRITE
        if name in self.options.psect_flags:
            flags = sum({FLAG_LETTERS.get(letter, 0) for letter in self.options.psect_flags[name]})
        psect = Psect(name, space, delta, flags)
        self.psects.insert(name, psect)
        return psect

    # Segments.

    def find_segment(self, name):
        return next((segment for segment in self.segments if segment.name == name), None)

    def unique_segment_name(self, name):
        candidate, i = name, 0
        while self.find_segment(candidate) is not None:
            i += 1
            candidate = f"{name}_{i}"
        return candidate

    def add_segment_ranges(self, segment, psect):
        if psect.flags & FAKE or psect.space != segment.space:
            return
        for candidate in psect.ranges:
            size = u32(candidate.hi + 1 - candidate.lo)
            if size == 0:
                continue
            if candidate.load >= segment.load and candidate.load + size <= segment.load + segment.size:
                segment.ranges.append(candidate)

    def add_segment(self, record, look=True):
        if self.find_segment(record.name) is not None:
            return
        self.segments.append(record)
        if record.noranges:
            return
        if look:
            for psect in self.psects.values():
                self.add_segment_ranges(record, psect)
        quicksort(record.ranges, lambda left, right: s32(left.load - right.load))
        if not record.ranges:
            return

        ranges, record.ranges = record.ranges, []
        record.size = 0
        record.flags = ranges[0].psect.flags
        current = record
        for one in ranges:
            if one.psect.flags != current.flags:
                name = self.unique_segment_name(one.psect.name)
                number = len(self.segments) + 1
                current = Segment(
                    name, number, one.lo, one.load, 0, one.psect.flags, current.delta, current.space, current.noranges
                )
                self.segments.append(current)
            current.ranges.append(one)
            current.size += u32(one.hi + 1 - one.lo)

    def search_segment(self, space, load):
        """From the last segment down; the segment of `-a` takes no part."""
        first = 1 if self.options.fake_abs else 0
        for i in range(len(self.segments) - 1, first - 1, -1):
            segment = self.segments[i]
            if segment.space == space and segment.load <= load < segment.load + segment.size:
                return i + 1
        return 0

    # The import of a map file.

    def read_map(self, text):
        source = MapFile(text)
        self.notes = source.notes
        self.import_psects(source)
        self.import_segments(source)
        self.import_symbols(source)
        self.import_dabs(source)
        self.consolidate()

    def import_psects(self, source):
        for row in source.psects:
            psect = self.add_psect(row["name"], row["space"], row["delta"])
            if row["class"] == "-":
                psect.flags |= WRITE
            self.add_file(row["object"])
            d = psect.delta
            psect.ranges.append(
                PsectRange(
                    psect, u32(row["link"] * d), u32((row["link"] + row["length"]) * d - 1), u32(row["load"] * d)
                )
            )

    def import_segments(self, source):
        for row in source.segments:
            d = row["delta"]
            number = len(self.segments) + 1
            addr, size = u32(row["link"] * d), u32(row["size"] * d)
            self.add_segment(Segment(row["name"], number, addr, row["file"], size, 0, d, row["space"]))

    def is_dropped_bound(self, row, values):
        label = row["name"]
        if len(label) < 4 or label[:2] != "__" or label[2] not in "BHIL" or label.startswith("__LOG"):
            return False
        name = label[3:]
        low, high = "__L" + name, "__H" + name
        if low not in values or high not in values:
            return False
        return self.psects.get(name) is not None or u32(values[low] + values[high]) == 0

    def import_symbols(self, source):
        values = {row["name"]: row["value"] for row in source.symbols}
        dabs_labels = {record["name"] for record in source.dabs if record["name"] != "-"}
        for row in source.symbols:
            if self.is_dropped_bound(row, values):
                continue
            load = u32(row["value"] + row["load_adjustment"])
            symbol = Symbol(row["name"], 0, row["value"], load, row["space"], None)
            if row["class"] == "ABS":
                symbol.flags |= SYM_ABS
            elif row["class"] != "-":
                symbol.psect = self.psects.get(row["psect"])
            symbol.file = self.add_file(row["file"])
            if symbol.psect is not None:
                symbol.value //= symbol.psect.delta
                symbol.seg = self.search_segment(symbol.space, load)
            elif symbol.name in dabs_labels:
                symbol.seg = self.search_segment(symbol.space, load)
            else:
                symbol.seg = self.fake_abs_segment
            self.symbols.append(symbol)

    def import_dabs(self, source):
        counter = 0
        for record in source.dabs:
            if record["size"] != 0 and record["space"] in self.options.data_spaces:
                label = record["name"]
                if label == "-":
                    label = str(counter)
                    counter += 1
                number = len(self.segments) + 1
                address, size, space = record["address"], record["size"], record["space"]
                self.add_segment(
                    Segment(f"dabs${label}", number, address, address, size, WRITE | NOSPACE, 1, space, noranges=True)
                )
            for symbol in self.symbols:
                if symbol.name == record["name"]:
                    symbol.flags |= SYM_DABS

    # The image.

    def read_image(self, text):
        if text.startswith(":"):
            self.read_intel_hex(text)
        else:
            self.read_s_records(text)

    def read_intel_hex(self, text):
        base = 0
        for line in text.split():
            record = bytes.fromhex(line[1:])
            if line[0] != ":" or sum(record) & 0xFF:
                raise ValueError(line)
            count, address, kind = record[0], record[1] << 8 | record[2], record[3]
            data = record[4 : 4 + count]
            if kind == 0:
                self.data.append(Block(u32(base + address), data))
            elif kind == 1:
                return
            elif kind in (2, 4):
                base = int.from_bytes(data, "big") << (4 if kind == 2 else 16)
            else:
                raise ValueError(line)

    def read_s_records(self, text):
        for line in text.split():
            kind = line[1]
            if line[0] != "S":
                raise ValueError(line)
            if kind in "123":
                width = int(kind) + 1
                record = bytes.fromhex(line[4:])
                data = record[width : int(line[2:4], 16) - 1]
                self.data.append(Block(int.from_bytes(record[:width], "big"), data))
            elif kind != "0":
                return

    # Consolidation.

    def consolidate(self):
        if self.consolidated or not self.data:
            return
        self.map_data_to_segments()
        quicksort(self.data, lambda left, right: compare((left.seg, left.addr), (right.seg, right.addr)))
        self.merge_blocks()
        if len(self.data) >= 2:
            self.split_segments()
        self.widen_segments()
        self.consolidated = True

    def map_data_to_segments(self):
        i = 0
        while i < len(self.data):  # the list grows on the way
            self.map_block(self.data[i])
            i += 1

    def map_block(self, block):
        for segment in self.segments:
            if segment.flags & NOSPACE:
                continue

            def inside(offset):
                return segment.load <= block.addr + offset < segment.load + segment.size

            first = next((offset for offset in range(len(block.data)) if inside(offset)), None)
            if first is None:
                continue
            if first != 0:
                self.data.append(Block(block.addr, block.data[:first]))
                block.addr += first
                block.data = block.data[first:]
            behind = next((offset for offset in range(len(block.data)) if not inside(offset)), None)
            if behind is not None:
                self.data.append(Block(block.addr + behind, block.data[behind:]))
                block.data = block.data[:behind]
            block.seg = segment.index
            return
        self.map_stray_block(block)

    def map_stray_block(self, block):
        stray = self.stray
        if stray is not None and stray.load + stray.size == block.addr:
            stray.size += len(block.data)
        else:
            name = f"_stray_data_{self.stray_count}_"
            self.stray_count += 1
            space = min(self.options.code_spaces)
            number = len(self.segments) + 1
            stray = Segment(
                name, number, block.addr, block.addr, len(block.data), WRITE, self.options.code_delta, space
            )
            self.segments.append(stray)
            self.stray = stray
        block.seg = stray.index

    def merge_blocks(self):
        merged = [self.data[0]]
        for block in self.data[1:]:
            last = merged[-1]
            if block.seg == last.seg and block.addr == last.end():
                last.data += block.data
            else:
                merged.append(block)
        self.data = merged

    def split_segments(self):
        groups = []
        for block in self.data:
            if groups and groups[-1][0].seg == block.seg:
                groups[-1].append(block)
            else:
                groups.append([block])
        for group in groups:
            self.split_segment(group[0].seg, group)

    def split_segment(self, number, blocks):
        old = self.segments[number - 1]
        if len(blocks) == 1 and len(blocks[0].data) == old.size:
            return
        for i, block in enumerate(blocks):
            name = f"{old.name}${i}"
            if self.find_segment(name) is not None:
                raise ValueError(f"a segment bears the name {name} already")
            addr = u32(old.addr + block.addr - old.load)
            new = Segment(
                name, number, addr, block.addr, len(block.data), old.flags, old.delta, old.space, ranges=old.ranges
            )
            if i == 0:
                self.segments[number - 1] = new
            else:
                self.segments.append(new)
                new.index = block.seg = len(self.segments)

    def widen_segments(self):
        for i, segment in enumerate(self.segments):
            block = next((block for block in self.data if block.seg == i + 1), None)
            if block is None or not block.data:
                continue
            if block.addr < segment.load:
                segment.addr = u32(segment.addr + block.addr - segment.load)
                segment.load = block.addr
            span = max(segment.load + segment.size, block.end()) - segment.load
            segment.size = max(segment.size, span)

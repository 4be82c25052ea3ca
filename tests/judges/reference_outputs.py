# SPDX-License-Identifier: MIT
"""Intel HEX, S-records and ELF of a reference model. What is said there of being plain holds here, too."""

import struct

from reference_model import EXEC, NOSPACE, WRITE, u32

# --- the images -------------------------------------------------------------------------------------------------------

LINE_BYTES = 16


def image_lines(model):
    """(address, bytes) of each line of an image."""
    for block in model.data:
        for start in range(0, len(block.data), LINE_BYTES):
            yield u32(block.addr + start), block.data[start : start + LINE_BYTES]


def write_intel_hex(model):
    lines = []
    upper = 0
    for address, data in image_lines(model):
        if address & 0xFFFF0000 != upper:
            upper = address & 0xFFFF0000
            # Eight digits of checksum, of a sum to which the address gives its top four bits and its upper half.
            x = ((address >> 28) + (address >> 16) + 6) & 0xFF
            lines.append(f":02000004{address >> 16:04X}{u32(-x):02X}")
        record = bytes([len(data), address >> 8 & 0xFF, address & 0xFF, 0]) + data
        lines.append(":" + record.hex().upper() + f"{-sum(record) & 0xFF:02X}")
    lines.append(":00000001FF")
    return "".join(line + "\n" for line in lines)


def write_s_records(model):
    lines = []
    for address, data in image_lines(model):
        kind, width = (3, 4) if address >= 0x1000000 else (2, 3) if address > 0xFFFF else (1, 2)
        record = bytes([len(data) + width + 1]) + address.to_bytes(width, "big") + data
        lines.append(f"S{kind}" + record.hex().upper() + f"{~sum(record) & 0xFF:02X}")
    return "".join(line + "\n" for line in lines)


# --- ELF --------------------------------------------------------------------------------------------------------------

OS_ABI = [
    (32, "Vantrel Technology (KORB) base-line KOR"),
    (33, "Vantrel Technology (KORBE) enhanced base-line KOR"),
    (35, "Vantrel Technology (KORBIE) enhanced base-line KOR with interrupts"),
    (66, "Vantrel Technology (KORM) mid-range KOR"),
    (67, "Vantrel Technology (KORME) enhanced mid-range KOR"),
    (71, "Vantrel Technology (KORMEX) enhanced mid-range KOR with extended RAM"),
    (130, "Vantrel Technology KORH"),
    (134, "Vantrel Technology KORH (KORHX) with extended RAM"),
    (142, "Vantrel Technology KORH (KORHXV) with extended RAM and multi-vector interrupts"),
    (0, "UNIX System V Revision 4"),
    (1, "HP-UX"),
    (2, "NetBSD"),
    (3, "Linux"),
    (4, "Hurd"),
    (6, "Solaris"),
    (7, "AIX"),
    (8, "IRIX"),
    (9, "FreeBSD"),
    (10, "TRU64 UNIX"),
    (11, "Novell Modesto"),
    (12, "OpenBSD"),
    (97, "ARM"),
    (255, "Standalone (embedded)"),
]

NOTE_SECTIONS = {"codecov_info": (".codecov_info", 0x80000CC0), "codecov_info_hdr": (".codecov_info.hdr", 0x80000CC1)}

SHT_PROGBITS, SHT_SYMTAB, SHT_STRTAB, SHT_NOBITS = 1, 2, 3, 8
SHN_ABS = 0xFFF1
SHF_EEPROM = 0x20000000

EHDR_SIZE, PHDR_SIZE, SHDR_SIZE, SYM_SIZE = 52, 32, 40, 16
ST_INFO_OFFSET = 12


def os_abi(words):
    for word in words:
        for number, text in OS_ABI:
            if word in text:
                return number
    return 0


def header_flags(model, abi):
    if abi & 0x82:
        marks = [symbol for symbol in model.symbols if symbol.name == "isa$xinst"]
        return 0x15 if marks and marks[0].value != 0 else 5
    return 5 if abi & 0x60 else 0


class ElfWriter:
    def __init__(self, model):
        self.model = model
        self.order = ">" if model.options.big_endian else "<"
        self.out = bytearray(EHDR_SIZE)
        self.strtab = bytearray(b"\0")
        self.shstrtab = bytearray(b"\0")
        self.symbols = [bytes(SYM_SIZE)]
        self.sections = [bytes(SHDR_SIZE)]
        self.segments = [bytes(PHDR_SIZE)]
        self.offset = EHDR_SIZE

    def pack(self, layout, *values):
        return struct.pack(self.order + layout, *values)

    @staticmethod
    def add_string(table, text):
        position = len(table)
        table += text.encode("latin-1") + b"\0"
        return position

    def add_section(self, name, kind, flags=0, addr=0, size=0, link=0, entsize=0):
        """The name goes into the table at once; the offset is the running one."""
        position = self.add_string(self.shstrtab, name)
        self.sections.append(
            self.pack("10I", position, kind, flags, addr, self.offset, size, link, 0, 0, entsize)
        )

    def add_symbols(self, section, chosen):
        """`chosen` tells whether a symbol belongs to the section; symbols come file by file."""
        for number in range(1, len(self.model.files) + 1):
            for symbol in self.model.symbols:
                if symbol.file == number and chosen(symbol):
                    name = self.add_string(self.strtab, symbol.name)
                    info = 1 << 4  # global: only symbols of a legacy symbol file are local
                    self.symbols.append(
                        self.pack("IIIBBH", name, symbol.value, 0, info, 0, section if section else SHN_ABS)
                    )

    def put(self, position, data):
        if len(self.out) < position + len(data):
            self.out += bytes(position + len(data) - len(self.out))
        self.out[position : position + len(data)] = data

    def append(self, data):
        self.put(self.offset, data)
        self.offset += len(data)

    def write_segment(self, position, segment):
        delta = segment.delta & 0xFF
        if delta > 127:
            raise ValueError("a delta that is negative as a byte")
        delta = delta or 1

        high = segment.load
        for block in self.model.data:
            if block.seg == position + 1:
                self.put(self.offset + block.addr - segment.load, block.data)
                high = max(high, block.end())
        file_size = high - segment.load

        if segment.size != 0:
            rights = 4 + (2 if segment.flags & WRITE else 0) + (1 if segment.flags & EXEC else 0)
            addr, load = segment.addr // delta, segment.load // delta
            self.segments.append(self.pack("8I", 1, self.offset, addr, load, file_size, segment.size, rights, 0))

        kind = SHT_NOBITS if file_size == 0 and segment.flags & NOSPACE else SHT_PROGBITS
        flags = 2 + (1 if segment.flags & WRITE else 0) + (4 if segment.flags & EXEC else 0)
        if segment.space in self.model.options.eeprom_spaces:
            flags += SHF_EEPROM
        self.add_section(segment.name, kind, flags, segment.load // delta, segment.size)
        self.offset += file_size
        self.add_symbols(position + 1, lambda symbol: symbol.seg != 0 and symbol.seg == segment.index)

    def write(self):
        self.add_symbols(0, lambda symbol: symbol.seg == 0)
        for position, segment in enumerate(self.model.segments):
            self.write_segment(position, segment)
        self.put(self.offset, b"")

        string_section = len(self.sections)
        self.add_section(".strtab", SHT_STRTAB, size=len(self.strtab))
        self.append(self.strtab)

        self.first_symbol = self.offset
        size = len(self.symbols) * SYM_SIZE
        self.add_section(".symtab", SHT_SYMTAB, size=size, link=string_section, entsize=SYM_SIZE)
        self.append(b"".join(self.symbols))

        for name, data in self.model.notes:
            section, kind = NOTE_SECTIONS.get(name, ("." + name, 0x80000000))
            self.add_section(section, kind, size=len(data))
            self.append(data)

        names_section = len(self.sections)
        self.add_section(".shstrtab", SHT_STRTAB, size=len(self.shstrtab) + len(".shstrtab") + 1)
        self.append(self.shstrtab)

        section_headers = self.offset
        self.append(b"".join(self.sections))

        program_headers = self.offset
        size = len(self.segments) * PHDR_SIZE
        self.segments[0] = self.pack("8I", 6, program_headers, 0, 0, size, size, 0, 0)
        self.append(b"".join(self.segments))

        abi = os_abi(self.model.options.processor_words)
        ident = b"\x7fELF" + bytes([1, 2 if self.model.options.big_endian else 1, 1, abi]) + bytes(8)
        self.put(
            0,
            ident
            + self.pack(
                "HHIIIIIHHHHHH",
                2,
                204,
                1,
                0,
                program_headers,
                section_headers,
                header_flags(self.model, abi),
                EHDR_SIZE,
                PHDR_SIZE,
                len(self.segments),
                SHDR_SIZE,
                len(self.sections),
                names_section,
            ),
        )
        return bytes(self.out)


def write_elf(model):
    return ElfWriter(model).write()


def without_symbol_types(elf):
    """An ELF file with the type nibble of each symbol cleared."""
    masked = bytearray(elf)
    order = ">" if elf[5] == 2 else "<"
    (table,) = struct.unpack_from(order + "I", elf, 32)
    (count,) = struct.unpack_from(order + "H", elf, 48)
    for i in range(count):
        header = struct.unpack_from(order + "10I", elf, table + i * SHDR_SIZE)
        if header[1] == SHT_SYMTAB:
            for entry in range(header[4], header[4] + header[5], SYM_SIZE):
                masked[entry + ST_INFO_OFFSET] &= 0xF0
    return bytes(masked)

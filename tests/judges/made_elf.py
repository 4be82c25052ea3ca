# SPDX-License-Identifier: MIT
"""ELF files that no compiler would make: every form, operator, name and opcode, in either byte order and with addresses
of any size."""

import struct

ELF_HEADER_SIZE = 52


def uleb(value):
    content = bytearray()
    while value >= 0x80:
        content.append(value & 0x7F | 0x80)
        value >>= 7
    return bytes([*content, value])


def sleb(value):
    content = bytearray()
    while not -64 <= value < 64:
        content.append(value & 0x7F | 0x80)
        value >>= 7
    return bytes([*content, value & 0x7F])


def text(value):
    return value.encode("latin-1") + b"\0"


class Maker:
    def __init__(self, big_endian, pointer_size):
        self.order = ">" if big_endian else "<"
        self.big_endian, self.pointer_size = big_endian, pointer_size
        # (name, type, flags, address, content)
        self.sections = [("", 0, 0, 0, b"")]
        self.segments = []
        self.symbols = [("", 0, 0, 0, 0, 0)]

    def number(self, value, size):
        return (value & ((1 << 8 * size) - 1)).to_bytes(size, "big" if self.big_endian else "little")

    def u2(self, value):
        return self.number(value, 2)

    def u4(self, value):
        return self.number(value, 4)

    def address(self, value):
        return self.number(value, self.pointer_size)

    def unit(self, content):
        """A unit behind its length."""
        return self.u4(len(content)) + content

    def add(self, name, content, kind=1, flags=0, address=0):
        self.sections.append((name, kind, flags, address, content))

    def elf(self):
        names, symbols = b"\0", b""
        for name, value, size, info, other, section in self.symbols:
            at = 0
            if name:
                at, names = len(names), names + text(name)
            symbols += struct.pack(self.order + "3I2BH", at, value, size, info, other, section)
        self.add(".symtab", symbols, 2)
        self.add(".strtab", names, 3)
        self.add(".shstrtab", b"", 3)
        section_names = b"".join(text(name) for name, *_ in self.sections)
        self.sections[-1] = (".shstrtab", 3, 0, 0, section_names)

        content = bytearray(ELF_HEADER_SIZE)
        for segment in self.segments:
            content += struct.pack(self.order + "8I", *segment)
        headers, name_at = b"", 0
        for index, (name, kind, flags, address, data) in enumerate(self.sections):
            link = len(self.sections) - 2 if name == ".symtab" else 0
            size = len(data) if isinstance(data, bytes) else data
            headers += struct.pack(self.order + "10I", name_at, kind, flags, address, len(content), size, link,
                                   index, 1, 16 * (name == ".symtab"))  # fmt: skip
            content += data if isinstance(data, bytes) else b""
            name_at += len(name) + 1
        start = len(content)
        content += headers
        ident = b"\x7fELF" + bytes([1, 2 if self.big_endian else 1, 1, 0]) + bytes(8)
        content[:ELF_HEADER_SIZE] = ident + struct.pack(
            self.order + "2H5I6H", 2, 0, 1, 0x1234, ELF_HEADER_SIZE, start, 0x50001,
            ELF_HEADER_SIZE, 32, len(self.segments), 40, len(self.sections), len(self.sections) - 1,
        )  # fmt: skip
        return bytes(content)


# --- all there is -----------------------------------------------------------------------------------------------------

DW_AT_location, DW_AT_name, DW_AT_low_pc, DW_AT_const_value, DW_AT_user = 0x02, 0x03, 0x11, 0x1C, 0x3E00
DW_AT_comp_dir, DW_AT_abstract_origin, DW_AT_external, DW_AT_ranges = 0x1B, 0x31, 0x3F, 0x55
DW_TAG_compile_unit, DW_TAG_lexical_block, DW_TAG_variable = 0x11, 0x0B, 0x34
FORM_NAMES = (
    "addr - block2 block4 data2 data4 data8 string block block1 data1 flag sdata strp udata ref_addr ref1 ref2 ref4 "
    "ref8 ref_udata indirect"
)
FORMS = {name: code for code, name in enumerate(FORM_NAMES.split(), 1)}

UNIT, VARIABLE, BLOCK, MOVING, FAR, NULL = 1, 2, 3, 4, 5, b"\0"


def values_of_forms(maker):
    """(attribute, form, bytes): each form with values at its limits."""
    number, long_text = maker.number, text("x" * 300)
    return [
        (DW_AT_low_pc, "addr", maker.address(0x10)),
        (DW_AT_name, "string", text('quoted "name"')),
        (DW_AT_user, "string", long_text),
        (DW_AT_comp_dir, "strp", maker.u4(4)),
        *[(DW_AT_const_value, f"data{size}", number(value, size)) for size in (1, 2, 4, 8)
          for value in (0, 5, 1 << (8 * size - 1), -1)],
        *[(DW_AT_const_value, "sdata", sleb(value))
          for value in (0, -1, 63, -65, 1 << 40, -(1 << 20), -(1 << 40), -(1 << 62))],
        *[(DW_AT_const_value, "udata", uleb(value)) for value in (0, 127, 128, 1 << 31, (1 << 64) - 1)],
        *[(DW_AT_external, "flag", number(value, 1)) for value in (0, 1, 2, 255)],
        (DW_AT_user + 1, "block1", b"\3\0\x0a\xff"),
        (DW_AT_user + 2, "block2", maker.u2(2) + b"\1\2"),
        (DW_AT_user + 3, "block4", maker.u4(1) + b"\x7f"),
        (DW_AT_user + 4, "block", uleb(130) + bytes(130)),
        (DW_AT_user + 6, "ref1", b"\x0b"),
        (DW_AT_user + 7, "ref2", maker.u2(0x10B)),
        (DW_AT_user + 8, "ref4", maker.u4(0x0B)),
        (DW_AT_user + 9, "ref8", number(0x0C, 8)),
        (DW_AT_user + 10, "ref_udata", uleb(0x8B)),
        (DW_AT_ranges, "data4", maker.u4(0)),
    ]  # fmt: skip


def operators(maker):
    """An expression for each operator, and a few that are cut or hold more than one."""
    number = maker.number
    sized = {0x08: 1, 0x15: 1, 0x94: 1, 0x95: 1, 0x09: 1, 0x0A: 2, 0x0B: 2, 0x28: 2, 0x2F: 2, 0x0C: 4, 0x0D: 4,
             0x0E: 8, 0x0F: 8}  # fmt: skip
    unsigned, signed = {0x10, 0x23, 0x90, 0x93}, {0x11, 0x91, *range(0x70, 0x90)}
    found = []
    for code in (0x03, 0x06, *range(0x08, 0x98), 0xEE, 0xFF):
        operand = b""
        if code == 0x03:
            operand = maker.address(0x1234)
        elif code in sized:
            operand = number(-2, sized[code])
        elif code in unsigned:
            operand = uleb(300)
        elif code in signed:
            operand = sleb(-300)
        elif code == 0x92:
            operand = uleb(33) + sleb(-4)
        found.append(bytes([code]) + operand)
    return [*found, b"\x91\x7f\x06", b"\x0c\1\2", b"\x03", b"\x91\x80", b"\x92\x21\x80", b""]


def entry_of(number, *parts):
    return uleb(number) + b"".join(parts)


def abbreviation(number, tag, children, pairs):
    content = uleb(number) + uleb(tag) + bytes([children])
    return content + b"".join(uleb(attribute) + uleb(form) for attribute, form in pairs) + b"\0\0"


def info_and_abbreviations(maker):
    values = values_of_forms(maker)
    used = [
        abbreviation(UNIT, DW_TAG_compile_unit, 1, [(attribute, FORMS[form]) for attribute, form, _ in values]),
        abbreviation(VARIABLE, DW_TAG_variable, 0, [(DW_AT_location, FORMS["block1"])]),
        abbreviation(BLOCK, DW_TAG_lexical_block, 1, []),
        abbreviation(MOVING, DW_TAG_variable, 0, [(DW_AT_location, FORMS["data4"])]),
        abbreviation(FAR, DW_TAG_variable, 0, [(DW_AT_abstract_origin, FORMS["ref_addr"])]),
        b"\0",
    ]
    # Every number there is a name for, and some beyond; nothing refers to these.
    names = [abbreviation(200 + tag, tag, tag % 2, []) for tag in (*range(1, 0x43), 0x4080, 0x4109, 0xFFFF)]
    pairs = [(attribute, FORMS["addr"]) for attribute in (*range(1, 0x58), 0x2000, 0x3FFF)]
    names += [abbreviation(1, DW_TAG_lexical_block, 0, pairs)]
    pairs = [(DW_AT_const_value, form) for form in range(1, 0x17)]
    names += [abbreviation(130, DW_TAG_lexical_block, 1, pairs), b"\0"]

    def unit(version):
        entry = entry_of(UNIT, *(content for *_, content in values))
        for expression in operators(maker):
            entry += entry_of(VARIABLE, bytes([len(expression)]), expression)
        entry += entry_of(MOVING, maker.u4(0)) + entry_of(MOVING, maker.u4(4 * maker.pointer_size + 3))
        # Its size is that of an address; for other readers only up to the second edition.
        if version == 2 or maker.pointer_size == 4:
            entry += entry_of(FAR, maker.address(0x21))
        entry += entry_of(BLOCK) * 40 + entry_of(VARIABLE, b"\1\x30") + NULL * 40
        return maker.unit(maker.u2(version) + maker.u4(0) + bytes([maker.pointer_size]) + entry + NULL)

    return unit(3) + unit(2), b"".join(used + names)


LENGTHS = (0, 1, 1, 1, 1, 0, 0, 0, 1, 0, 0, 1)


def line_unit(maker, version, minimum, opcode_base, directories, files, program):
    tables = b"".join(map(text, directories)) + b"\0"
    tables += b"".join(text(name) + b"".join(map(uleb, rest)) for name, *rest in files) + b"\0"
    fixed = bytes([minimum, 1, 0xFB, 14, opcode_base, *LENGTHS[: opcode_base - 1]])
    return maker.unit(maker.u2(version) + maker.u4(len(fixed + tables)) + fixed + tables + program)


def extended(opcode, content=b""):
    return b"\0" + uleb(1 + len(content)) + bytes([opcode]) + content


END = extended(1)


def lines(maker):
    everything = (
        extended(2, maker.address(0x20)) + b"\x01" + b"\x02\x81\x01" + b"\x03\x7d" + b"\x03\xe4\x00" + b"\x01"
        + b"\x04\x02" + b"\x05\x90\x01" + b"\x06" + b"\x07" + b"\x01" + b"\x08" + b"\x20\x30\xff"
        + b"\x09" + maker.u2(0x102) + b"\x01" + extended(3, text("late.c") + uleb(1) + uleb(0) + uleb(77)) + END
        + b"\x08\x08\x0d" + extended(2, maker.address(0x40)) + b"\x08\xf0" + END
    )  # fmt: skip
    files = [("a.c", 1, 1700000000, 4096), ("b.c", 2, 0, 0), ("c.c", 0, 86400, 1)]
    return (
        line_unit(maker, 2, 4, 13, ["one", "two"], files, everything)
        + line_unit(maker, 3, 1, 10, [], [], everything)
        + line_unit(maker, 3, 2, 10, [], [("x.c", 0, 0, 0)], everything)
        + line_unit(maker, 2, 1, 4, ["d"], [("only.c", 1, 0, 0)], b"\x04\x05\x06" + END + b"\x01\x07")
        + line_unit(maker, 2, 1, 10, [], [], b"")
    )


def frames(maker):
    instructions = (
        b"\x0c\x04\x08" + b"\x85\x01" + b"\x01" + maker.address(0x40) + b"\x02\x10" + b"\x03" + maker.u2(0x120)
        + b"\x04" + maker.u4(0x1234) + b"\x05\x41\x02" + b"\x06\x41" + b"\x07\x03" + b"\x08\x83\x01"
        + b"\x09\x03\x04" + b"\x0a\x0b" + b"\x0d\x05" + b"\x0e\x90\x01" + b"\x47" + b"\xc5\x00" + b"\x00"
    )  # fmt: skip
    common = maker.unit(maker.u4(0xFFFFFFFF) + b"\x01\0" + uleb(4) + sleb(-4) + b"\x08" + b"\x0c\x04\x04")
    other = maker.unit(maker.u4(0xFFFFFFFF) + b"\x03\0" + uleb(300) + sleb(8) + b"\x21")
    first = maker.unit(maker.u4(0) + maker.address(0x20) + maker.address(0x60) + instructions)
    second = maker.unit(maker.u4(len(common)) + maker.address(0x80) + maker.address(0) + b"\x42\x0e\x08\x83\x01\x00")
    # Its last instruction takes its operand out of the next record, which keeps its place nevertheless.
    third = maker.unit(maker.u4(0) + maker.address(0x90) + maker.address(8) + b"\x43\xc3")
    return common + other + first + second + third + second


def names(maker):
    def unit(version, offset, entries, padding=b""):
        body = b"".join(maker.u4(at) + text(name) for at, name in entries) + maker.u4(0)
        return maker.unit(maker.u2(version) + maker.u4(offset) + maker.u4(0x1000) + body + padding)

    quoted = (0x1234, 'with "quotes"')
    return unit(2, 0, [(0x0B, "first"), quoted]) + unit(3, 0x80, []) + unit(2, 9, [(1, "n")], b"\0\0")


def address_ranges(maker, pairs, start):
    """A unit that begins at `start`; the ranges stand where the program's own dump looks for them."""
    size = maker.pointer_size
    at = start + 12
    body = bytes(2 * size - at % (2 * size))
    body += b"".join(maker.address(low) + maker.address(length) for low, length in pairs)
    return maker.unit(maker.u2(2) + maker.u4(0x0B) + bytes([size, 0]) + body + bytes(2 * size))


def location_lists(maker):
    def entry(begin, end, expression):
        return maker.address(begin) + maker.address(end) + maker.u2(len(expression)) + expression

    end = bytes(2 * maker.pointer_size)
    first = entry(0x10, 0x20, b"\x50") + end
    second = maker.address(-1) + maker.address(0x40)
    second += entry(1, 5, b"\x91\x7c") + entry(5, 9, b"\x03" + maker.address(0x77)) + end
    return first + second + end


def range_lists(maker):
    pairs = [(0x10, 0x20), (0x30, 0x31), (-1, 0x80), (0, 4), (0, 0), (0, 0), (5, 6), (0, 0)]
    return b"".join(maker.address(low) + maker.address(high) for low, high in pairs)


def everything(big_endian, pointer_size):
    maker = Maker(big_endian, pointer_size)
    info, abbreviations = info_and_abbreviations(maker)
    maker.add(".text", bytes(range(40)), 1, 6, 0x100)
    maker.add('.a_"quoted"_and_long_name', b"eeprom", 1, 0x20000003, 0xF00000)
    maker.add(".bss", 64, 8, 3, 0x200)
    for kind in (5, 7, 10, 12, 0x60000000, 0x60000001, 0x6FFFFFFF, 0x70000000, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF):
        maker.add(f".type{kind:x}", b"", kind)
    tables = {
        ".debug_info": info, ".debug_abbrev": abbreviations,
        ".debug_str": text("one") + text("the second") + text("") + b"cut",
        ".debug_line": lines(maker), ".debug_frame": frames(maker), ".debug_pubnames": names(maker),
        ".debug_pubtypes": names(maker), ".debug_loc": location_lists(maker), ".debug_ranges": range_lists(maker),
    }  # fmt: skip
    first = address_ranges(maker, [(0x10, 0x20), (0x400, 0x12345)], 0)
    second = address_ranges(maker, [(1, 0xFF)], len(first))
    tables[".debug_aranges"] = first + second + address_ranges(maker, [], len(first + second))
    tables[".debug_macinfo"] = first + b"\1\1FIRST 1 2 3\0" + bytes(20)
    for name, content in tables.items():
        maker.add(name, content)
    for kind in (*range(7), 0x6474E551):
        maker.segments.append((kind, 0x40 * kind % 0x100, 0x100, 0x1000 + kind, kind * 9 % 40, 64, kind % 8, 4))
    # Binding and type in one byte, and the section.
    symbols = [(0x00, 0), (0x11, 1), (0x12, 0xFFF1), (0x20, 2), (0x03, 1), (0x04, 0xFFF1), (0x06, 3), (0x1D, 0xFF01),
               (0xD2, 0xFFF2), (0xA1, 0xFF21)]  # fmt: skip
    for code, section in symbols:
        name = "a_name_wider_than_its_column" if code == 0x12 else f"symbol_{code:x}"
        maker.symbols.append((name, 0x89ABCDEF, 70000 * code, code, code % 4, section))
    maker.symbols.append(("negative", 1, 0xFFFFFFFE, 0x10, 0x80, 1))
    return maker.elf()

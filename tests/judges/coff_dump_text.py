# SPDX-License-Identifier: MIT
"""The text that a dump of a COFF file in full has to be, put together from what coff_checker reads of the file."""

import struct
import time

from coff_checker import (
    BASE_NAMES,
    BIT_FIELD,
    BLOCK,
    END_OF_FILE,
    END_OF_STRUCT,
    EXTERNAL,
    EXTERNAL_DEFINITION,
    FILE,
    FUNCTION,
    HEADER,
    LABEL,
    MEMBER,
    REGISTER,
    STATIC,
    STRUCT_TAG,
    base,
    derivations,
)

# The classes and flags that outputs of the program have.
LABELS = {
    EXTERNAL: "external symbol",
    STATIC: "static",
    REGISTER: "register variable",
    EXTERNAL_DEFINITION: "external definition",
    LABEL: "label",
    MEMBER: "member of structure",
    STRUCT_TAG: "structure tag",
    BIT_FIELD: "bit field",
    BLOCK: ".bb or .eb",
    FUNCTION: ".bf or .ef",
    END_OF_STRUCT: "end of structure",
    FILE: "file name",
    END_OF_FILE: "end of file",
}
SECTION_FLAGS = {0x1000: "absolute", 0x80: "bss", 0x20: "text"}
SIZES = [0, 0, 1, 2, 2, 4, 3, 4, 0, 0, 0, 0, 1, 2, 2, 4, 8, 3, 3, 8, 8]  # by number of base type
POINTER_SIZE = 2
STRUCT = BASE_NAMES.index("struct")


def size_and_count(symbol):
    chain, kind = derivations(symbol.type), symbol.type & 0x1F
    plain = POINTER_SIZE if chain[:1] == ["pointer"] else SIZES[kind]
    if symbol.aux is None:
        return plain, 1
    if chain[:1] == ["array"]:
        inner = [step for at, step in enumerate(chain) if any(outer != "array" for outer in chain[: at + 1])]
        element = POINTER_SIZE if inner[:1] == ["pointer"] else SIZES[kind]
        return symbol.aux.size, symbol.aux.size // element if element else symbol.aux.size
    return (symbol.aux.size if kind == STRUCT else plain), 1


def type_text(symbol):
    """Derivations are shown as far as they lie in the low half of the word."""
    text, dimensions = "", list(symbol.aux.dimensions) if symbol.aux else []
    for step in derivations(symbol.type & 0xFFFF):
        if step == "pointer":
            text += "pointer to "
        elif step == "function":
            text += "function "
            if symbol.aux:
                text += "[lineptr {:X}, endndx {}] ".format(*struct.unpack_from("<Ii", symbol.aux.raw, 8))
            text += "returning "
        else:
            text += f"array [{dimensions.pop(0) if dimensions else ''}] of "
    tag = f" [{symbol.aux.tag}]" if symbol.aux and symbol.type & 0x1F == STRUCT else ""
    return text + base(symbol.type) + tag


def symbol_text(coff, symbol):
    aux = symbol.aux
    named = 1 <= symbol.section <= len(coff.sections)
    section = coff.sections[symbol.section - 1].name if named else "(abs)"
    value = f"{symbol.name} = {symbol.value:X}"
    if symbol.cls in (EXTERNAL, STATIC, LABEL):
        return f"{value}: {section} {type_text(symbol)}"
    if symbol.cls in (REGISTER, MEMBER):
        return f"{value}: {type_text(symbol)}"
    if symbol.cls in (STRUCT_TAG, END_OF_STRUCT):
        return f"{symbol.name}: tag {aux.tag}, size {aux.size}, index {struct.unpack_from('<I', aux.raw, 12)[0]}"
    if symbol.cls == BIT_FIELD:
        return f"{value}: size {aux.size}"
    if symbol.cls in (BLOCK, FUNCTION):
        return f"{value}: {section}: line {aux.line}, index {struct.unpack_from('<I', aux.raw, 12)[0]}"
    if symbol.cls == FILE:
        return f"{coff.string(aux.tag, 'file')} [0]"
    return symbol.name if symbol.cls == END_OF_FILE else ""  # an external definition has a label alone


def header_text(coff):
    opthdr, flags = HEADER.unpack_from(coff.content)[5:]
    return (
        f"COFF header:\n\tMagic:\t\t0x1240\n\tSections:\t{len(coff.sections)}\n"
        f"\tDated:\t\t{time.asctime(time.gmtime(coff.dated))}\n\tSymptr:\t\t0x{coff.symptr:X}\n"
        f"\tNsyms:\t\t{coff.nsyms}\n\tOpthdr:\t\t{opthdr}\n\tFlags:\t\t0x{flags:X} Executable\n\n"
        f"Optional header:\n\tMagic:\t\t0x1388 (Orbell Software)\n\tVersion:\t24600\n"
        f"\tProcessor:\t0x{coff.processor:X}\n\tROM width:\t{coff.rom_width}\n\tRAM width:\t{coff.ram_width}\n\n"
    )


def section_text(section):
    return (
        f"Section {section.number - 1}: {section.name}: @{section.paddr:X} scnptr 0x{section.scnptr:X}"
        f" relptr 0x0 lnnoptr 0x{section.lnnoptr:X} size 0x{section.size:X} lines {section.line_count} relocs 0"
        f" flags 0x{section.flags:X} ( {SECTION_FLAGS[section.flags]} )\n"
    )


def strings_text(coff):
    start = coff.symptr + 20 * coff.nsyms
    text, offset = f"\nString table: {len(coff.strings)} bytes, file offset 0x{start:X}\n", 4
    for string in coff.strings[4:].split(b"\0")[:-1]:
        text += f"{offset:5}:\t{string.decode('latin-1')}\n"
        offset += len(string) + 1
    return text + "\n"


def dump_text(coff):
    """The dump with `-v -v`."""
    text = header_text(coff) + "".join(section_text(section) for section in coff.sections) + strings_text(coff)
    text += "Symbol table:\n"
    for symbol in coff.symbols:
        size, count = size_and_count(symbol)
        text += f"{symbol.index:5}:\t{LABELS[symbol.cls]:>24} {1 if symbol.aux else 0} {size}[{count}]\t"
        text += symbol_text(coff, symbol) + "\n"
    text += "\n"
    for section in coff.sections:
        if section.lines:
            text += f"Section {section.number - 1} line numbers: {section.line_count}"
            text += f", file offset 0x{section.lnnoptr:X}\n"
        for line in section.lines:
            text += f"{line.line:05}:\tsrcndx: {line.srcndx}, paddr: 0x{line.paddr:X}"
            text += f", flags 0x0, fcnndx: {line.fcnndx}\n"
    return text

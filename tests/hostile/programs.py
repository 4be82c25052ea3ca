# SPDX-License-Identifier: MIT
"""Small programs with one thing in them that is large, and a look at what the program makes of them."""

import struct
from pathlib import Path

import judging

SPACES = ["--code-spaces=1", "--data-spaces=2"]
OPTIONS = ["-pN4A,1234,KOR14,KORM", *SPACES]
INPUTS = [*OPTIONS, "prog.tmf"]
ELF = [*INPUTS, "--dwarf-addr-size=4", "-oelf", "o.elf"]
ELF_RANGES = [*ELF[:-2], "--dwarf-use-ranges=auto", "--dwarf-use-loclists=auto", "-k", "-oelf", "o.elf"]
COFF = [*INPUTS, "-ovcoff", "o.cof"]
LEGACY = [*INPUTS, "-oorbell", "o.sym"]
DUMP = ["-d", "o.elf"]


def write(path, lines):
    with open(path, "w", encoding=judging.ENCODING) as stream:
        stream.writelines(line + "\n" for line in lines)


SECTIONS = ["PSECTS", "UNUSED", "LINETAB", "SYMTAB", "SPLITSTAB", "DABS", "SEGMENTS", "NOTES"]
CODE_SIZE = 0x10000
PLAIN = {
    "PSECTS": ["$m.o", f"text CODE 1 0 0 {CODE_SIZE:X} 1 1", "bss BSS 2 300 300 20 1 1"],
    "LINETAB": ["$m.o", "100 text CODE >5:/m.c", "108 text CODE >7:/m.c"],
    "SYMTAB": ["_f 100 0 CODE 1 text m.o", "__end_of_f 200 0 CODE 1 text m.o"],
    "SEGMENTS": [f"code 1 0 0 {CODE_SIZE:X} 1", "data 2 300 300 20 1"],
}


def write_map(**sections):
    """A map file with a function `_f` of the module `m.o`; sections by their heading replace those, or come to be."""

    def lines():
        yield "%TMF"
        for heading in SECTIONS:
            yield f"%{heading}"
            yield from sections.get(heading, PLAIN.get(heading, []))

    write("prog.tmf", lines())


PREFIX = "[p AVOCET KORM STD_MODE IEEE_FLT ]"
FUNCTION = ['"5 /m.c', "[v _f f `(v 1 e 0 0 ]", "{", '"7', "}"]


def write_database(lines, name="m.sdb"):
    write(name, [PREFIX, *lines])


# --- what came out ----------------------------------------------------------------------------------------------------


def coff_symbols(path="o.cof"):
    """The count of symbols, and the names of those that have no more than eight characters."""
    data = Path(path).read_bytes()
    start, count = struct.unpack_from("<LL", data, 8)
    size = 20
    return count, [data[at : at + 8].rstrip(b"\0") for at in range(start, start + count * size, size)]


def elf_section(name, path="o.elf"):
    data = Path(path).read_bytes()
    offset, size, count, names = struct.unpack_from("<L10xHHH", data, 32)
    headers = [struct.unpack_from("<10L", data, offset + i * size) for i in range(count)]
    strings = data[headers[names][4] :]
    for header in headers:
        found = strings[header[0] : strings.index(b"\0", header[0])]
        if found == name.encode():
            return data[header[4] : header[4] + header[5]]
    raise AssertionError(f"no section {name}")

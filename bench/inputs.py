# SPDX-License-Identifier: MIT
"""Inputs of the operations: what `workloads.py` makes, which stays from run to run, and what is made of that by the
program to be measured or by a compiler."""

import shutil
import struct
import subprocess
import sys
from dataclasses import dataclass
from functools import cache
from hashlib import sha256
from pathlib import Path

from tools import Tool
from workloads import ARGUMENTS

GENERATOR = Path(__file__).with_name("workloads.py")

MIB = 1 << 20
TINY_IMAGE = 16  # bytes

TO_ELF = ["-oelf", "--disable-dwarf"]
TO_DWARF = ["-oelf", "--dwarf-addr-size=4"]
TO_COFF = ["-ovcoff"]
TO_LEGACY = ["-oorbell"]


def size_text(count):
    return f"{count / MIB:.1f} MiB"


@dataclass(frozen=True)
class Input:
    label: str
    path: Path
    size: int  # bytes that the operation takes in
    folder: Path  # where the tools run
    payload: int = 0  # bytes that a goal for speed counts: text of map and databases, or debugging sections
    image: int = 0  # bytes of an image
    image_path: Path | None = None
    peer: Path | None = None  # what the peers take, when it is another file


class Workshop:
    """Makes inputs, each one once."""

    def __init__(self, program, work):
        self.program = str(program)
        self.work = work
        self.input = cache(self.input)
        self.derived = cache(self.derived)

    def input(self, kind, size):
        return kind(self, size)

    def made(self, name, *arguments):
        """An input of the generator, made unless this generator made it before. It is a process of its own: the memory
        that it needs must not count for the tools that are started from here."""
        target = self.work / name
        stamp = target.with_name(target.name + ".stamp")
        recipe = sha256(GENERATOR.read_bytes() + " ".join(arguments).encode()).hexdigest()
        if not stamp.is_file() or stamp.read_text() != recipe:
            stamp.unlink(missing_ok=True)
            if target.is_dir():
                shutil.rmtree(target)
            subprocess.run([sys.executable, "-B", str(GENERATOR), *arguments, str(target)], check=True)
            stamp.write_text(recipe)
        return target

    def program_folder(self, size):
        modules, lines = size
        return self.made(f"program-{modules}-{lines}", "program", str(modules), str(lines))

    def tiny_image(self):
        """Stands beside inputs that are no images: an output of images is then next to no work."""
        return self.made(f"image-{TINY_IMAGE}.hex", "image", str(TINY_IMAGE))

    def tiny_record_file(self):
        return self.made("ubrof-0.d43", "ubrof", "0")

    def converter(self, options, output, program=None):
        """The program at work on the files of a folder."""
        option, *others = options
        command = [program or self.program, *ARGUMENTS, "prog.hex", "prog.tmf", option, str(output), *others]
        return Tool("tarnwick", command, output)

    def derived(self, folder, *options):
        """An output for the program of a folder, by the program that is measured, and so made in every run."""
        target = self.work / f"derived-{folder.name}{''.join(options)}.bin"
        self.converter(options, target).run(folder)
        return target


# --- images -----------------------------------------------------------------------------------------------------------


def image_input(path, size):
    return Input(f"{size / MIB:g} MiB", path, path.stat().st_size, path.parent, image=size)


def intel_image(shop, size):
    return image_input(shop.made(f"image-{size}.hex", "image", str(size)), size)


def record_image(shop, size):
    return image_input(shop.made(f"image-{size}.s19", "srecords", str(size)), size)


# --- programs ---------------------------------------------------------------------------------------------------------


def size_of(folder, *suffixes):
    return sum(path.stat().st_size for path in folder.iterdir() if path.suffix in suffixes)


def program_label(size):
    modules, lines = size
    return f"{modules} modules, {lines:,} lines"


def whole_program(shop, size):
    """Map file, databases and image."""
    folder = shop.program_folder(size)
    text = size_of(folder, ".tmf", ".sdb")
    return Input(program_label(size), folder / "prog.tmf", text + size_of(folder, ".hex"), folder, payload=text)


def map_and_databases(shop, size):
    folder = shop.program_folder(size)
    text = size_of(folder, ".tmf", ".sdb")
    return Input(program_label(size), folder / "prog.tmf", text, folder, text, image_path=shop.tiny_image())


def map_alone(shop, size):
    """Databases are looked for in the working folder, where there are none."""
    path = shop.program_folder(size) / "prog.tmf"
    text = path.stat().st_size
    return Input(program_label(size), path, text, shop.work, text, image_path=shop.tiny_image())


# --- outputs that are inputs ------------------------------------------------------------------------------------------


def derived_input(shop, size, options, payload_of=lambda path: 0):
    path = shop.derived(shop.program_folder(size), *options)
    image = shop.tiny_image()
    return Input(program_label(size), path, path.stat().st_size, shop.work, payload_of(path), image_path=image)


def legacy_file(shop, size):
    return derived_input(shop, size, TO_LEGACY)


def coff_file(shop, size):
    return derived_input(shop, size, TO_COFF)


COFF_TABLE_FIELD = 8  # in the header: where the symbols start, and how many entries there are
COFF_ENTRY_SIZE = 20


def coff_symbol_count(path):
    """The symbols of a COFF file, without their auxiliary entries."""
    file = path.read_bytes()
    table, entries = struct.unpack_from("<LL", file, COFF_TABLE_FIELD)
    count = index = 0
    while index < entries:
        auxiliaries = file[table + (index + 1) * COFF_ENTRY_SIZE - 1]  # the last byte of the entry
        index += 1 + auxiliaries
        count += 1
    return count


def coff_to_print(shop, size):
    """The peers list an ELF file with as many symbols."""
    path = shop.derived(shop.program_folder(size), *TO_COFF)
    count = coff_symbol_count(path)
    peer = shop.derived(shop.made(f"symbols-{count}", "symbols", str(count)), *TO_ELF)
    return Input(f"{count:,} symbols", path, path.stat().st_size, shop.work, peer=peer)


def plain_elf(shop, size):
    return derived_input(shop, size, TO_ELF)


ELF_SECTIONS_FIELD, ELF_COUNT_FIELD = 32, 48  # in the header: start of the section headers; their count and the names'
ELF_SECTION = struct.Struct("<10L")  # of a little-endian file; name, offset and size stand at 0, 4 and 5


def debugging_size(path):
    """The bytes of all debugging sections of a 32-bit ELF file."""
    file = path.read_bytes()
    (start,) = struct.unpack_from("<L", file, ELF_SECTIONS_FIELD)
    count, names = struct.unpack_from("<HH", file, ELF_COUNT_FIELD)
    sections = [ELF_SECTION.unpack_from(file, start + i * ELF_SECTION.size) for i in range(count)]
    base = sections[names][4]
    return sum(fields[5] for fields in sections if file.startswith(b".debug_", base + fields[0]))


def own_dwarf(shop, size):
    return derived_input(shop, size, TO_DWARF, debugging_size)


# --- files of others --------------------------------------------------------------------------------------------------

COMPILE = ["gcc", "-m32", "-ffreestanding", "-fno-pic", "-fno-asynchronous-unwind-tables", "-O1"]
COMPILE += ["-gdwarf-2", "-gstrict-dwarf", "-gpubnames", "-c"]
LINK = ["ld", "-m", "elf_i386", "-e", "0", "--allow-multiple-definition"]


def foreign_dwarf(shop, size):
    """A program of another compiler, None where it is not there: one object file, linked several times."""
    functions, copies = size
    source = shop.made(f"source-{functions}.c", "source", str(functions))
    built = source.with_suffix(".o")
    target = shop.work / f"source-{functions}-{copies}.elf"
    for output, command in (
        (built, [*COMPILE, str(source), "-o", str(built)]),
        (target, [*LINK, *[str(built)] * copies, "-o", str(target)]),
    ):
        if not output.is_file() or output.stat().st_mtime < source.stat().st_mtime:
            if not shutil.which(command[0]) or subprocess.run(command, capture_output=True, check=False).returncode:
                output.unlink(missing_ok=True)
                return None  # not for this target
    label = f"{functions * copies:,} functions"
    return Input(label, target, target.stat().st_size, shop.work, payload=debugging_size(target))


def ubrof_file(shop, size):
    path = shop.made(f"ubrof-{size}.d43", "ubrof", str(size))
    return Input(f"{size / MIB:g} MiB", path, path.stat().st_size, shop.work)

# SPDX-License-Identifier: MIT
"""The operations that are measured, as a table, and the sizes of their inputs.

In a command, {program}, {in}, {image} and {out} stand for the program, the input, the image that goes with it and the
output; {peer} is what the peers take. `as_output` tells where the output is found.
"""

from dataclasses import dataclass

import inputs
from goals import BytesBeside, BytesEach, FloorRatio, InputSpeed, PeerRatio
from inputs import MIB
from workloads import ARGUMENTS

SIZES = 4

IMAGES = [4 * MIB, 8 * MIB, 16 * MIB, 32 * MIB]
QUICK_IMAGES = [MIB // 4, MIB // 2, 1 * MIB, 2 * MIB]

# Modules and line records. What is cheaper takes the larger ones, so that the smallest input is worth measuring.
PROGRAMS = [(50, 18_000), (120, 54_000), (200, 140_000), (300, 360_000)]
LARGE_PROGRAMS = [(150, 90_000), (220, 180_000), (300, 360_000), (600, 720_000)]  # at last 10 MB of debugging sections
QUICK_PROGRAMS = [(5, 1_500), (10, 3_000), (20, 9_000), (40, 18_000)]

FOREIGN = [(2500, 1), (2500, 2), (2500, 3), (2500, 6)]  # functions, copies linked together: at last about as much
QUICK_FOREIGN = [(200, 1), (200, 2), (200, 3), (200, 6)]

RECORDS = [2 * MIB, 4 * MIB, 8 * MIB, 16 * MIB]
QUICK_RECORDS = [MIB // 4, MIB // 2, 1 * MIB, 2 * MIB]

SIZE_LISTS = {
    "images": (IMAGES, QUICK_IMAGES),
    "programs": (PROGRAMS, QUICK_PROGRAMS),
    "large programs": (LARGE_PROGRAMS, QUICK_PROGRAMS),
    "foreign": (FOREIGN, QUICK_FOREIGN),
    "records": (RECORDS, QUICK_RECORDS),
}

CONVERT = " ".join(["{program}", *ARGUMENTS])
WITH_DATABASES = f"{CONVERT} {{image}} {{in}}"
PROGRAM_FILES = f"{CONVERT} prog.hex prog.tmf"

# The panels of the picture.
IMAGE_PANEL = "Images"
OUTPUT_PANEL = "Programs: import and outputs"
PRINT_PANEL = "Printing, and reading outputs back"


@dataclass(frozen=True)
class Operation:
    group: str  # what --only names
    panel: str
    title: str
    sizes: str  # of SIZE_LISTS
    make_input: callable
    command: str
    as_output: str  # "stdout", "stderr", or the extension of a file
    peers: tuple = ()  # (name, command), with the same placeholders; they print, or write {out}
    floors: tuple = ()  # the formats that are parsed and formatted
    goals: tuple = ()

    def prints_input(self):
        return " -d " in self.command


HEX_GOALS = (PeerRatio(3), FloorRatio(1.5), BytesEach(12, "image"))
PROGRAM_MEMORY = BytesEach(16, "size", aim=10)
MIDDLE, LARGEST = 1, SIZES - 1
MAIN_GOALS = (InputSpeed(MIDDLE, 80e6), InputSpeed(LARGEST, 60e6), PROGRAM_MEMORY)
DUMP_GOALS = (InputSpeed(LARGEST, 16e6), PeerRatio(3), BytesBeside(8 * MIB))

# llvm-dwarfdump alone prints one of the sections, and with --all it prints them all.
DWARF_PRINTERS = (
    ("readelf -w", "readelf -w {in}"),
    ("objdump --dwarf", "objdump --dwarf {in}"),
    ("llvm-dwarfdump", "llvm-dwarfdump {in}"),
    ("llvm-dwarfdump --all", "llvm-dwarfdump --all {in}"),
)


@dataclass(frozen=True)
class ImageFormat:
    name: str
    make_input: callable
    option: str  # that makes it an output
    objcopy: str  # as objcopy calls it, and our floors
    srec_cat: str


INTEL_HEX = ImageFormat("Intel HEX", inputs.intel_image, "-oihex", "ihex", "-Intel")
S_RECORDS = ImageFormat("S-records", inputs.record_image, "-os19", "srec", "-Motorola")


def image_operation(read, written):
    return Operation(
        group="hex",
        panel=IMAGE_PANEL,
        title=f"{read.name} to {written.name}",
        sizes="images",
        make_input=read.make_input,
        command=f"{CONVERT} {{in}} {written.option} {{out}}",
        as_output=".out",
        peers=(
            ("objcopy", f"objcopy -I {read.objcopy} -O {written.objcopy} {{in}} {{out}}"),
            ("srec_cat", f"srec_cat {{in}} {read.srec_cat} -o {{out}} {written.srec_cat}"),
        ),
        floors=(read.objcopy, written.objcopy),
        goals=HEX_GOALS,
    )


def program_operation(group, title, options, goals):
    command = f"{PROGRAM_FILES} {options[0]} {{out}} {' '.join(options[1:])}"
    return Operation(group, OUTPUT_PANEL, title, "programs", inputs.whole_program, command, ".out", goals=goals)


OPERATIONS = (
    image_operation(INTEL_HEX, S_RECORDS),
    image_operation(S_RECORDS, INTEL_HEX),
    image_operation(INTEL_HEX, INTEL_HEX),
    image_operation(S_RECORDS, S_RECORDS),
    Operation(
        group="import",
        panel=OUTPUT_PANEL,
        title="Import of a map file alone",
        sizes="programs",
        make_input=inputs.map_alone,
        command=f"{WITH_DATABASES} -os19 {{out}}",
        as_output=".out",
        goals=(PROGRAM_MEMORY,),
    ),
    Operation(
        group="import",
        panel=OUTPUT_PANEL,
        title="Import of map file and databases",
        sizes="programs",
        make_input=inputs.map_and_databases,
        command=f"{WITH_DATABASES} -os19 {{out}}",
        as_output=".out",
        goals=(PROGRAM_MEMORY,),
    ),
    program_operation("elf", "To ELF without debugging sections", inputs.TO_ELF, (PROGRAM_MEMORY,)),
    program_operation("dwarf", "To ELF with debugging sections", inputs.TO_DWARF, MAIN_GOALS),
    program_operation("coff", "To COFF", inputs.TO_COFF, (PROGRAM_MEMORY,)),
    program_operation("legacy", "To the legacy file", inputs.TO_LEGACY, (PROGRAM_MEMORY,)),
    Operation(
        group="coff",
        panel=PRINT_PANEL,
        title="Reading COFF",
        sizes="large programs",
        make_input=inputs.coff_file,
        command=f"{CONVERT} {{in}} -os19 {{out}}",
        as_output=".out",
    ),
    Operation(
        group="legacy",
        panel=PRINT_PANEL,
        title="Reading the legacy file",
        sizes="large programs",
        make_input=inputs.legacy_file,
        command=f"{WITH_DATABASES} -os19 {{out}}",
        as_output=".out",
    ),
    Operation(
        group="dump",
        panel=PRINT_PANEL,
        title="Printing databases, with their import",
        sizes="programs",
        make_input=inputs.map_and_databases,
        command=f"{WITH_DATABASES} -v -os19 {{out}}.s19",
        as_output="stderr",
    ),
    Operation(
        group="coff",
        panel=PRINT_PANEL,
        title="Printing COFF",
        sizes="large programs",
        make_input=inputs.coff_to_print,
        command="{program} -d -v -v {in}",
        as_output="stdout",
        peers=(("nm", "nm {peer}"), ("readelf -s", "readelf -s {peer}")),
        goals=(PeerRatio(0.5),),
    ),
    Operation(
        group="dump",
        panel=PRINT_PANEL,
        title="Printing ELF without debugging sections, in full",
        sizes="large programs",
        make_input=inputs.plain_elf,
        command="{program} -d -v -v -v {in}",
        as_output="stdout",
        peers=(("objdump -x -s", "objdump -x -s {in}"),),
        goals=(BytesBeside(8 * MIB),),
    ),
    Operation(
        group="dump",
        panel=PRINT_PANEL,
        title="Printing ELF with debugging sections",
        sizes="large programs",
        make_input=inputs.own_dwarf,
        command="{program} -d {in}",
        as_output="stdout",
        peers=DWARF_PRINTERS,
        goals=DUMP_GOALS,
    ),
    Operation(
        group="dump",
        panel=PRINT_PANEL,
        title="Printing ELF with debugging sections of GCC",
        sizes="foreign",
        make_input=inputs.foreign_dwarf,
        command="{program} -d {in}",
        as_output="stdout",
        peers=DWARF_PRINTERS,
        goals=DUMP_GOALS,
    ),
    Operation(
        group="dump",
        panel=PRINT_PANEL,
        title="Printing UBROF",
        sizes="records",
        make_input=inputs.ubrof_file,
        command="{program} -d -v {in}",
        as_output="stdout",
    ),
)

GROUPS = tuple(dict.fromkeys(operation.group for operation in OPERATIONS))

# SPDX-License-Identifier: MIT
"""Inputs to measure with: large images, programs with map file, databases and image, map files full of symbols, UBROF
files, and sources for other compilers.

Everything follows from its parameters; nothing is random, so two runs on two machines measure the same bytes.

    workloads.py image BYTES FILE
    workloads.py srecords BYTES FILE
    workloads.py program MODULES LINES FOLDER
    workloads.py symbols COUNT FOLDER
    workloads.py ubrof BYTES FILE
    workloads.py source FUNCTIONS FILE
"""

import sys
from dataclasses import dataclass, field
from pathlib import Path

ROW_BYTES = 16
ALL_BYTES = bytes(range(256)) * 2


# --- images -----------------------------------------------------------------------------------------------------------


def filler(row):
    """The bytes of the row with this number: cheap, and no two neighbouring rows alike."""
    start = (row * 37 + (row >> 8)) & 0xFF
    return ALL_BYTES[start : start + ROW_BYTES]


def image_rows(size):
    """The lines of an Intel HEX file with `size` bytes from address 0, as other tools write it."""
    for row in range((size + ROW_BYTES - 1) // ROW_BYTES):
        address = row * ROW_BYTES
        if address & 0xFFFF == 0 and address != 0:
            upper = address >> 16
            yield f":02000004{upper:04X}{-(6 + (upper >> 8) + upper) & 0xFF:02X}\n"
        data = filler(row)[: size - address]
        checksum = -(len(data) + (address >> 8) + address + sum(data)) & 0xFF
        yield f":{len(data):02X}{address & 0xFFFF:04X}00{data.hex().upper()}{checksum:02X}\n"
    yield ":00000001FF\n"


def record_row(kind, address, data):
    """An S-record; `address` is the address as bytes."""
    body = bytes([len(address) + len(data) + 1]) + address + data
    return f"S{kind}{body.hex().upper()}{~sum(body) & 0xFF:02X}\n"


def record_rows(size):
    """The same image as S-records, each as narrow as its address, with a header and a start address."""
    yield record_row(0, bytes(2), b"bench")
    for row in range((size + ROW_BYTES - 1) // ROW_BYTES):
        address = row * ROW_BYTES
        width = 2 if address < 1 << 16 else 3 if address < 1 << 24 else 4
        yield record_row(width - 1, address.to_bytes(width, "big"), filler(row)[: size - address])
    yield record_row(9, bytes(2), b"")


def write_image(path, size):
    with open(path, "w", encoding="ascii") as stream:
        stream.writelines(image_rows(size))


def write_records(path, size):
    with open(path, "w", encoding="ascii") as stream:
        stream.writelines(record_rows(size))


# --- programs ---------------------------------------------------------------------------------------------------------
#
# Space 1 is program memory, 2 data memory, 3 the eeprom; all count bytes, as on a KORH. Each module is a C file whose
# functions are spread over several psects; autos and parameters live in a compiled stack that functions share.

CODE_SPACE, DATA_SPACE, EEPROM_SPACE = 1, 2, 3
ARGUMENTS = ["-pH2A,18F0,KOR18,KORH", "--code-spaces=1", "--data-spaces=2", "--eeprom-spaces=3"]

LINES_PER_FUNCTION = 20
FUNCTIONS_PER_PSECT = 8
GLOBALS_PER_MODULE = 12
VECTORS_SIZE = 0x100
DATA_START, CSTACK_SIZE = 0x200, 0x600
EEPROM_LOAD = 0xF00000
EEPROM_SIZE = 64

SUBSYSTEMS = ["kernel", "drivers", "protocol", "storage", "display", "control"]
VERBS = ["init", "update", "read", "write", "handle", "convert", "check", "schedule", "flush", "report"]
NOUNS = ["sensor", "timer", "frame", "channel", "buffer", "packet", "motor", "filter", "config", "event"]
OBJECTS = ["state", "queue", "table", "index", "limits", "checksum", "timeout"]
LOCALS = ["result", "count", "status", "i", "offset", "temp"]
PARAMETERS = ["self", "length", "flags"]
PARAMETER_TYPES = [("*.39S1", 2), ("ui", 2), ("uc", 1)]
LOCAL_TYPES = [("i", 2), ("ui", 2), ("uc", 1)]
GLOBAL_TYPES = [("uc", 1), ("ui", 2), ("S1", 8), ("ul", 4)]
BASE = "/home/build/firmware/src"


@dataclass
class Function:
    name: str
    address: int
    size: int
    first_line: int
    lines: list  # (address, line)
    variables: list = field(default_factory=list)  # (name, kind letter, type, size, depth)


@dataclass
class Module:
    number: int
    name: str
    folder: str
    psects: list = field(default_factory=list)  # (name, address, size, functions)
    variables: list = field(default_factory=list)  # (name, type, size, address)

    def source(self):
        return f"{BASE}/{self.folder}/{self.name}.c"

    def header(self):
        return f"{BASE}/include/{self.folder}/{self.name}.h"

    def functions(self):
        return [function for _, _, _, functions in self.psects for function in functions]


def pick(choices, number):
    return choices[number % len(choices)]


def make_function(module, number, address, line):
    name = f"{module.name}_{pick(VERBS, number)}_{pick(OBJECTS, number // len(VERBS))}"
    if number >= len(VERBS) * len(OBJECTS):
        name += f"_{number}"
    lines = []
    at = address
    for i in range(LINES_PER_FUNCTION):
        lines.append((at, line + i + i // 5))
        at += 4 + 2 * ((number + i) % 3)
    function = Function(name, address, at - address, line, lines)
    for i in range(1 + number % 3):
        function.variables.append((pick(PARAMETERS, i), "p", *pick(PARAMETER_TYPES, i), 0))
    for i in range(2 + number % 4):
        function.variables.append((pick(LOCALS, i), "a", *pick(LOCAL_TYPES, i), i % 3))
    return function


def make_module(number, functions, address, data_address):
    """A module from these addresses on; the addresses behind it come with it."""
    module = Module(number, f"{pick(NOUNS, number)}_{pick(OBJECTS, number // 7)}{number}", pick(SUBSYSTEMS, number))
    line = 60
    for start in range(0, functions, FUNCTIONS_PER_PSECT):
        first = address
        members = []
        for i in range(start, min(start + FUNCTIONS_PER_PSECT, functions)):
            function = make_function(module, i, address, line)
            members.append(function)
            address += function.size
            line = function.lines[-1][1] + 4
        module.psects.append((f"{module.name}_text{start // FUNCTIONS_PER_PSECT}", first, address - first, members))
    for i in range(GLOBALS_PER_MODULE):
        kind, size = pick(GLOBAL_TYPES, i)
        module.variables.append((f"{module.name}_{pick(NOUNS, i)}{i}", kind, size, data_address))
        data_address += size
    return module, address, data_address


def make_modules(modules, lines):
    functions = lines // LINES_PER_FUNCTION
    address, data_address = VECTORS_SIZE, DATA_START + CSTACK_SIZE
    made = []
    for number in range(modules):
        share = functions * (number + 1) // modules - functions * number // modules
        module, address, data_address = make_module(number, share, address, data_address)
        made.append(module)
    return made, address, data_address


def stack_addresses(function):
    """The place of each variable of a function in the compiled stack, which functions share."""
    at = DATA_START + function.address // 2 % (CSTACK_SIZE - 32)
    for name, _, _, size, _ in function.variables:
        yield name, at
        at += size


def psect_rows(modules):
    yield "$startup.o"
    yield f"vectors CODE {CODE_SPACE} 0 0 {VECTORS_SIZE:X} 1 2"
    for module in modules:
        yield f"${module.name}.o"
        for name, address, size, _ in module.psects:
            yield f"{name} CODE {CODE_SPACE} {address:X} {address:X} {size:X} 1 2"
        start = module.variables[0][3]
        size = sum(size for _, _, size, _ in module.variables)
        yield f"bss BSS {DATA_SPACE} {start:X} {start:X} {size:X} 1 1"
    yield "$cstack.o"
    yield f"cstack BSS {DATA_SPACE} {DATA_START:X} {DATA_START:X} {CSTACK_SIZE:X} 1 1"
    yield "$settings.o"
    yield f"eedata EEDATA {EEPROM_SPACE} 0 {EEPROM_LOAD:X} {EEPROM_SIZE:X} 1 1"


def line_rows(modules):
    for module in modules:
        yield f"${module.name}.o"
        source = module.source()
        for name, _, _, functions in module.psects:
            for function in functions:
                for address, line in function.lines:
                    yield f"{address:X} {name} CODE >{line}:{source}"


def symbol_rows(modules):
    yield f"reset 0 0 CODE {CODE_SPACE} vectors startup.o"
    for module in modules:
        file = f"{module.name}.o"
        for psect, _, _, functions in module.psects:
            for function in functions:
                yield f"_{function.name} {function.address:X} 0 CODE {CODE_SPACE} {psect} {file}"
                end = function.address + function.size
                yield f"__end_of_{function.name} {end:X} 0 CODE {CODE_SPACE} {psect} {file}"
                for name, address in stack_addresses(function):
                    yield f"{function.name}@{name} {address:X} 0 BSS {DATA_SPACE} cstack {file}"
        for name, _, _, address in module.variables:
            yield f"_{name} {address:X} 0 BSS {DATA_SPACE} bss {file}"
    yield f"_PORTA 25 0 ABS {DATA_SPACE} - -"
    for letter, value in (("L", DATA_START + CSTACK_SIZE), ("H", DATA_START + CSTACK_SIZE + 0x100)):
        yield f"__{letter}bss {value:X} 0 - 0 - -"


def map_lines(modules, code_end, data_end):
    yield "%TMF"
    yield "# a large program"
    yield "%PSECTS"
    yield from psect_rows(modules)
    yield "%UNUSED"
    yield f"CODE {code_end:X}-7FFFFF 1"
    yield f"BSS {data_end:X}-FFFFF 1"
    yield "%LINETAB"
    yield from line_rows(modules)
    yield "%SYMTAB"
    yield from symbol_rows(modules)
    yield "%SPLITSTAB"
    yield "%DABS"
    yield f"_PORTA {DATA_SPACE} 25 1"
    yield "%SEGMENTS"
    yield f"text {CODE_SPACE} 0 0 {code_end:X} 1"
    yield f"cstack {DATA_SPACE} {DATA_START:X} {DATA_START:X} {CSTACK_SIZE:X} 1"
    start = DATA_START + CSTACK_SIZE
    yield f"bss {DATA_SPACE} {start:X} {start:X} {data_end - start:X} 1"
    yield f"eeprom {EEPROM_SPACE} 0 {EEPROM_LOAD:X} {EEPROM_SIZE:X} 1"
    yield "%NOTES"
    yield "$build_id 16"
    yield " ".join(f"{byte:02X}" for byte in range(16)) + " "


def declaration_lines(module):
    """What a module's headers bring: types of its own, and a few that all modules see."""
    tag = f"{module.name}_record"
    yield '"12 /opt/toolchain/include/stdint.h'
    yield "[v uint8_t uint8_t `uc 1 t 1 ]"
    yield "[v uint16_t uint16_t `ui 1 t 2 ]"
    yield f'"8 {module.header()}'
    bits = "uc kind 6 1 :0:3 uc ready 6 1 :3:1"
    yield f"[s S1 {tag} 8 uint16_t head 0 2 uint16_t tail 2 2 *.39S1 next 4 2 {bits} uc spare 7 1 ]"
    yield '"18'
    yield f"[u S2 {module.name}_value 4 ul word 0 4 uc 4a bytes 0 4 ]"
    yield '"25'
    prefix = module.name.upper()
    yield f"[e E1 {module.name}_mode `uc {prefix}_IDLE 0 {prefix}_BUSY 1 {prefix}_FAILED 5 ]"
    yield '"30'
    yield f"[v {tag}_t {tag}_t `S1 1 t 8 ]"
    yield f"[v {module.name}_handler {module.name}_handler `*.34(v 1 t 2 ]"


def function_lines(function):
    """The variables of a function stand in blocks as deep as they say; a block opens and closes on lines with code."""
    yield f'"{function.first_line}'
    yield f"[v _{function.name} {function.name} `(ui 1 e 0 0 ]"
    yield "{"
    lines = iter([line for _, line in function.lines[1:]])
    depth = 0
    last = function.first_line
    for offset, (name, kind, type_name, size, wanted) in enumerate(sorted(function.variables, key=lambda one: one[4])):
        last = next(lines)
        yield f'"{last}'
        while depth < wanted:
            yield "{"
            depth += 1
        yield f"[v {function.name}@{name} {name} `{type_name} 1 {kind} {size} {offset} ]"
    while depth > 0:
        last = next(lines)
        yield f'"{last}'
        yield "}"
        depth -= 1
    yield f'"{function.lines[-1][1]}'
    yield "}"
    yield f"{sum(size for _, _, _, size, _ in function.variables)} 0 0 0"


def database_lines(module):
    yield "[p AVOCET IEEE_FLT IEEE_DBL SMALL_MODEL SPACEOPT PRO_MODE ]"
    yield from declaration_lines(module)
    yield f'"40 {module.source()}'
    for name, kind, size, _ in module.variables:
        yield f"[v _{name} {name} `{kind} 1 e {size} 0 ]"
    for function in module.functions():
        yield from function_lines(function)


def write_lines(path, lines):
    with open(path, "w", encoding="ascii") as stream:
        stream.writelines(line + "\n" for line in lines)


def write_program(folder, modules, lines):
    """`prog.tmf`, `prog.hex` and a database for each module; at least `lines` - LINES_PER_FUNCTION + 1 line records."""
    folder.mkdir(parents=True, exist_ok=True)
    made, code_end, data_end = make_modules(modules, lines)
    write_lines(folder / "prog.tmf", map_lines(made, code_end, data_end))
    write_image(folder / "prog.hex", code_end)
    for module in made:
        write_lines(folder / f"{module.name}.sdb", database_lines(module))


# --- symbols ----------------------------------------------------------------------------------------------------------

SYMBOL_SPACING = 2
SYMBOL_IMAGE = 0x100


def symbol_map_lines(count):
    """A map file with so many symbols of one psect; its other sections are there, but empty."""
    size = count * SYMBOL_SPACING
    yield "%TMF"
    yield "%PSECTS"
    yield "$symbols.o"
    yield f"text CODE {CODE_SPACE} 0 0 {size:X} 1 2"
    yield "%UNUSED"
    yield "%LINETAB"
    yield "%SYMTAB"
    for number in range(count):
        name = f"{pick(SUBSYSTEMS, number)}_{pick(VERBS, number // 7)}_{pick(NOUNS, number // 3)}_{number}"
        yield f"_{name} {number * SYMBOL_SPACING:X} 0 CODE {CODE_SPACE} text symbols.o"
    yield "%SPLITSTAB"
    yield "%DABS"
    yield "%SEGMENTS"
    yield f"text {CODE_SPACE} 0 0 {size:X} 1"
    yield "%NOTES"


def write_symbols(folder, count):
    """`prog.tmf` and a `prog.hex` of a few bytes."""
    folder.mkdir(parents=True, exist_ok=True)
    write_lines(folder / "prog.tmf", symbol_map_lines(count))
    write_image(folder / "prog.hex", SYMBOL_IMAGE)


# --- UBROF ------------------------------------------------------------------------------------------------------------

UBROF_START = bytes.fromhex("A5 00 00 0C 01 01 7D")  # the mark, and 2025-01-01 12:00:00
UBROF_VERSION = bytes.fromhex("BD 06 00 00 05 BA 02 BE FF BF 02 C0 FF C1 05")
UBROF_PROGRAM = bytes.fromhex("01 01 03 10 01 01 7D")  # C, of the same day
CRC_TAG, END_TAG = b"\x3F", b"\xFF"
CRC_POLYNOMIAL = 0x8005
STRETCH_VARIANTS = 16
STRETCH_GROUPS = 24  # each of data, symbols and statements; a stretch comes to about 4 KiB


def counted(text):
    return bytes([len(text)]) + text.encode("ascii")


def closed(stretch):
    """A stretch of records with the CRC record that closes it. The bits of a byte enter from bit 0 up."""
    stretch += CRC_TAG
    crc = 0
    for byte in stretch:
        for bit in range(8):
            differs = (crc >> 15 ^ byte >> bit) & 1
            crc = crc << 1 & 0xFFFF ^ (CRC_POLYNOMIAL if differs else 0)
    return stretch + crc.to_bytes(2, "big")


def ubrof_stretch(variant):
    records = b""
    for group in range(STRETCH_GROUPS):
        number = variant * STRETCH_GROUPS + group
        records += b"\x51" + bytes([number % 7]) + (number * 0x40).to_bytes(4, "big")
        for row in range(3):
            records += b"\x39" + bytes([ROW_BYTES]) + filler(number * 3 + row)
        for i in range(2):
            name = f"{pick(SUBSYSTEMS, number)}_{pick(VERBS, number + i)}_{number}"
            address = (number * 0x40 + i).to_bytes(4, "big")
            records += b"\x4C" + bytes([1 + number % 5, 0, 1 + i]) + address + counted(name) + bytes(3)
        for i in range(4):
            line = (number * 4 + i).to_bytes(2, "big")
            records += b"\x47" + line + b"\x00\x01" + line + bytes(3)
    return closed(records)


def write_ubrof(path, size):
    """At least so many bytes, in few different stretches: their CRCs are dear to calculate here."""
    variants = [ubrof_stretch(variant) for variant in range(STRETCH_VARIANTS)]
    with open(path, "wb") as stream:
        stream.write(closed(UBROF_START + UBROF_VERSION + UBROF_PROGRAM + counted("bench")))
        number = 0
        while stream.tell() < size:
            stream.write(pick(variants, number))
            number += 1
        stream.write(END_TAG)


# --- sources ----------------------------------------------------------------------------------------------------------

FUNCTIONS_PER_TYPE = 4


def source_lines(functions):
    """C that needs no headers: structures with pointers to their kind, and functions with blocks and locals."""
    for number in range(functions):
        kind = number // FUNCTIONS_PER_TYPE
        name = f"{pick(VERBS, number)}_{pick(OBJECTS, number // len(VERBS))}_{number}"
        if number % FUNCTIONS_PER_TYPE == 0:
            noun = pick(NOUNS, kind)
            yield f"typedef enum {{ {noun}_idle_{kind}, {noun}_busy_{kind} = 5 }} {noun}_mode_{kind};"
            yield f"struct {noun}_{kind} {{"
            yield f"    int {pick(LOCALS, kind)}; unsigned char flags[{2 + kind % 30}]; {noun}_mode_{kind} mode;"
            yield f"    struct {noun}_{kind} *next;"
            yield "};"
            yield f"struct {noun}_{kind} {noun}_table_{kind}[{1 + kind % 8}];"
        noun = pick(NOUNS, kind)
        yield f"int {name}(struct {noun}_{kind} *self, int length, unsigned limit)"
        yield "{"
        yield "    int count = 0;"
        yield "    for (int i = 0; i < length; ++i) {"
        yield f"        unsigned step = self->flags[i & 1] + {number};"
        yield "        if (step > limit) {"
        yield f"            struct {noun}_{kind} *other = self->next;"
        yield f"            count += other->{pick(LOCALS, kind)};"
        yield "        }"
        yield "        count += (int)step;"
        yield "    }"
        yield "    return count;"
        yield "}"


def write_source(path, functions):
    write_lines(path, source_lines(functions))


# --- the command ------------------------------------------------------------------------------------------------------

# What is written by its name: the parameters are numbers, the target comes behind them.
WRITERS = {
    "image": write_image,
    "srecords": write_records,
    "program": write_program,
    "symbols": write_symbols,
    "ubrof": write_ubrof,
    "source": write_source,
}


def main(arguments):
    writer = WRITERS.get(arguments[0]) if len(arguments) > 2 else None
    if writer is None:
        print(__doc__, file=sys.stderr)
        return 2
    *numbers, target = arguments[1:]
    writer(Path(target), *map(int, numbers))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))

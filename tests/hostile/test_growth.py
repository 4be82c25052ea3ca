#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Input that is deep, wide or long beyond what any tool writes: its result or a clear report, at a cost that grows with
its size and no faster.

Each scenario writes its input in three sizes, each twice the one before, and runs the program over each. The results
were worked out from what the scenario writes. With TARNWICK_FULL set the sizes are those written down here, and a
quarter of them without it.
"""

import os
import traceback
from pathlib import Path

import hostile
import judging
from programs import (
    COFF,
    DUMP,
    ELF,
    ELF_RANGES,
    FUNCTION,
    LEGACY,
    OPTIONS,
    coff_symbols,
    elf_section,
    write,
    write_database,
    write_map,
)

MEBI = 1 << 20

# The largest size of a scenario over its smallest.
GROWTH = 4
# Caches and pages cost large runs more, and the clock of a busy host is no good one. A step that is quadratic has 2.
TIME_EXPONENT = 1.4
MEMORY_EXPONENT = 1.3
ATTEMPTS = 3
# So much of the reports.
LOOKED_AT = 10_000
# What a run costs whatever its size.
BASE_SECONDS = 0.04
BASE_MEMORY = 32 * MEBI
# Sizes are so much smaller in the ordinary run, and in a build with sanitizers.
ORDINARY_SHARE, SANITIZED_SHARE = 4, 16


def apart(function, *arguments):
    """Calls in a process of its own, so that this one stays small: what it has counts as what its children have."""
    process = os.fork()
    if process == 0:
        try:
            function(*arguments)
        except BaseException:  # also of a failed assertion
            traceback.print_exc()
            os._exit(1)
        os._exit(0)
    _, status = os.waitpid(process, 0)
    if status != 0:
        raise AssertionError("see above")


class Growth(hostile.HostileTest):
    def sizes(self, largest):
        if self.program.sanitized:
            largest //= SANITIZED_SHARE
        elif not os.environ.get("TARNWICK_FULL"):
            largest //= ORDINARY_SHARE
        return [largest // GROWTH, largest * 2 // GROWTH, largest]

    def measure(self, arguments, status, errors):
        """The cheapest of a few runs, all of which must end like this."""
        outcome = self.run_program(arguments)
        self.assertFalse(outcome.timed_out, "did not end")
        told = outcome.errors[:LOOKED_AT].decode(judging.ENCODING)
        self.assertEqual((outcome.status, told), (status, errors[:LOOKED_AT]), " ".join(arguments))
        return outcome

    def expect_linear(self, largest, prepare, arguments, status=0, errors="", check=None):
        """`prepare` writes the input of a size, `check` looks at the result; both take the size. A host that is busy
        with other things can make any run slow, but not every time."""
        best = {}
        for _ in range(ATTEMPTS):
            for size in self.sizes(largest):
                apart(prepare, size)
                if arguments is DUMP:
                    self.measure(ELF, 0, "")
                outcome = self.measure(arguments, status, errors(size) if callable(errors) else errors)
                if size not in best:
                    best[size] = outcome
                    if check is not None:
                        apart(check, size)
                best[size] = min(best[size], outcome, key=lambda one: one.seconds)
            too_much = self.excess(list(best.values()))
            if not too_much:
                break
        told = ", ".join(f"{one.seconds:.2f} s {one.memory / MEBI:.0f} MiB" for one in best.values())
        print(f"    {' '.join(arguments[-4:])}: {told}", flush=True)
        self.assertEqual(too_much, [], told)

    def excess(self, outcomes):
        """What grows faster than the input does."""
        if self.program.sanitized:
            return []  # what watches costs more than what runs
        small, large = outcomes[0], outcomes[-1]
        found = []
        if large.seconds - BASE_SECONDS > max(small.seconds, BASE_SECONDS) * GROWTH**TIME_EXPONENT:
            found.append("time")
        if large.memory - BASE_MEMORY > small.memory * GROWTH**MEMORY_EXPONENT:
            found.append("memory")
        return found


class Deep(Growth):
    """Databases that go deep."""

    DEPTH = 100_000

    def write_blocks(self, depth):
        write_map()
        blocks = ["{"] * depth + ["[v f@x x `i 1 a 2 0 ]"] + ["}"] * depth
        write_database([*FUNCTION[:3], *blocks, *FUNCTION[3:]])

    def count_blocks_in_coff(self, depth):
        names = coff_symbols()[1]
        expected = depth + 1  # the function's body is one
        self.assertEqual((names.count(b".bb"), names.count(b".eb")), (expected, expected))

    def test_blocks(self):
        self.expect_linear(self.DEPTH, self.write_blocks, COFF, check=self.count_blocks_in_coff)
        self.expect_linear(self.DEPTH, self.write_blocks, ELF)
        self.expect_linear(self.DEPTH, self.write_blocks, DUMP)

    def write_spanning_blocks(self, depth):
        """Each block opens and ends at addresses of its own; four share a line, since line numbers have 16 bits."""
        count = 2 * depth
        write_map(
            PSECTS=["$m.o", f"text CODE 1 0 0 {4 * count + 0x100:X} 1 1"],
            LINETAB=["$m.o"] + [f"{4 * i:X} text CODE >{i // 4 + 5}:/m.c" for i in range(count + 4)],
            SYMTAB=["_f 0 0 CODE 1 text m.o", f"__end_of_f {4 * (count + 4):X} 0 CODE 1 text m.o"],
            SEGMENTS=[f"code 1 0 0 {4 * count + 0x100:X} 1"],
        )

        def blocks():
            yield from FUNCTION[:3]
            for i in range(depth):
                yield f'"{i // 4 + 5}'
                yield "{"
                yield f"[v f@x{i} x{i} `i 1 a 2 {i} ]"
            for i in range(depth):
                yield f'"{(depth + i) // 4 + 5}'
                yield "}"
            yield f'"{count // 4 + 5}'
            yield "}"

        write_database(blocks())

    def test_blocks_with_lines_of_their_own(self):
        for arguments in (COFF, ELF, ELF_RANGES):
            self.expect_linear(self.DEPTH, self.write_spanning_blocks, arguments)

    def expect_type(self, make):
        def prepare(depth):
            write_map()
            write_database([*FUNCTION, '"9', f"[v _p p `{make(depth)} 1 e 2 0 ]"])

        for arguments in (COFF, ELF, DUMP):
            self.expect_linear(self.DEPTH, prepare, arguments)

    def test_pointers(self):
        self.expect_type(lambda depth: "*" * depth + "i")

    def test_pointers_of_classes(self):
        self.expect_type(lambda depth: "".join(f"*.{i % 50}" for i in range(depth)) + "i")

    def test_arrays(self):
        self.expect_type(lambda depth: "[2]" * depth + "i")

    def test_functions(self):
        self.expect_type(lambda depth: "(" * depth + "v")

    def test_qualifiers(self):
        self.expect_type(lambda depth: "CV" * (depth // 2) + "i")

    def test_qualified_pointers(self):
        self.expect_type(lambda depth: "C*V*" * (depth // 4) + "i")

    def test_distinct_deep_types(self):
        """Types of a hundred elements each, no two of which share an end."""

        def prepare(size):
            write_map()
            kinds = ["*", "[3]", "C*", "[7]"]

            def lines():
                yield from FUNCTION
                for i in range(size // 100):
                    elements = "".join(kinds[(i >> (j % 16)) + j & 3] for j in range(100))
                    yield f'"{i % 60000 + 9}'
                    yield f"[v _p{i} p{i} `{elements}[{i}]i 1 e 2 @{i} ]"

            write_database(lines())

        for arguments in (COFF, ELF):
            self.expect_linear(800_000, prepare, arguments)

    def test_structures_in_structures(self):
        def prepare(depth):
            write_map()

            def lines():
                yield "[s S0 tag0 2 i m 0 2 ]"
                for i in range(1, depth):
                    yield f"[s S{i} tag{i} 2 S{i - 1} m 0 2 ]"
                yield from FUNCTION
                yield f"[v _s s `S{depth - 1} 1 e 2 @300 ]"

            write_database(lines())

        for arguments in (COFF, ELF, DUMP):
            self.expect_linear(self.DEPTH, prepare, arguments)


def single_byte_record(address):
    head = f"06{address:08X}5A"
    return f"S3{head}{~sum(bytes.fromhex(head)) & 0xFF:02X}"


class Wide(Growth):
    """Much of one kind."""

    COUNT = 100_000

    def test_symbols_of_one_name(self):
        """A symbol of a map file is there once; a legacy file may bring it over and over."""

        def prepare(count):
            write("prog.sym", ["same 100 1 text 1"] * count + ["%segments", "text 0 FFFF text 0 1"])

        arguments = [*OPTIONS, "prog.sym"]
        for output in ("-oelf", "-ovcoff", "-oorbell"):
            self.expect_linear(self.COUNT, prepare, [*arguments, output, "o.x"])

    def test_symbols_of_one_name_in_a_map_file(self):
        def prepare(count):
            write_map(SYMTAB=["_f 100 0 CODE 1 text m.o"] * count)
            write_database(FUNCTION)

        def errors(_):
            report = "(1437) TMF error: symbol with the same name (_f) already in the table\n"
            reports = "".join(f"prog.tmf: {line}: {report}" for line in range(13, 33))
            return reports + "prog.tmf: 33: too many errors (21)\n"

        self.expect_linear(self.COUNT, prepare, ELF, status=1, errors=errors)

    def test_variables_of_one_name(self):
        """Each further one is a further location of the first."""

        def prepare(count):
            write_map()

            def lines():
                yield from FUNCTION
                for i in range(count):
                    yield f'"{i % 60000 + 9}'
                    yield f"[v _same same `i 1 e 2 @{i} ]"

            write_database(lines())

        for arguments in (COFF, ELF, ELF_RANGES):
            self.expect_linear(self.COUNT, prepare, arguments)

    def test_distinct_variables(self):
        def prepare(count):
            write_map()
            write_database([*FUNCTION, '"9'] + [f"[v _v{i} v{i} `i 1 e 2 @{i} ]" for i in range(count)])

        for arguments in (COFF, ELF, ELF_RANGES):
            self.expect_linear(self.COUNT, prepare, arguments)

    def test_members(self):
        def prepare(count):
            write_map()
            members = " ".join(f"i m{i} {i} 2" for i in range(count))
            write_database([*FUNCTION, '"9', f"[s S1 tag {count} {members} ]", "[v _s s `S1 1 e 2 @300 ]"])

        for arguments in (COFF, ELF, DUMP):
            self.expect_linear(self.COUNT, prepare, arguments)

    def test_enumerators(self):
        def prepare(count):
            write_map()
            members = " ".join(f"NAME_{i} {i}" for i in range(count))
            write_database([*FUNCTION, '"9', f"[e E1 tag `i {members} ]", "[v _s s `E1 1 e 2 @300 ]"])

        for arguments in (COFF, ELF, DUMP):
            self.expect_linear(60_000, prepare, arguments)  # a 16-bit count of the file format

    def test_segments(self):
        def prepare(count):
            write_map(
                PSECTS=["$m.o"] + [f"p{i} CODE 1 {4 * i:X} {4 * i:X} 4 1 1" for i in range(count)],
                LINETAB=["$m.o"] + [f"{4 * i:X} p{i} CODE >{i % 60000 + 5}:/m.c" for i in range(count)],
                SYMTAB=[f"_s{i} {4 * i:X} 0 CODE 1 p{i} m.o" for i in range(count)],
                SEGMENTS=[f"seg{i} 1 {4 * i:X} {4 * i:X} 4 1" for i in range(count)],
            )
            write_database(FUNCTION)

        for arguments in (ELF, LEGACY):
            self.expect_linear(self.COUNT, prepare, arguments)
        self.expect_linear(30_000, prepare, COFF)  # the file format counts them in 16 bits

    def test_modules(self):
        """Every module has its psect, its lines, a source and a function; most have no database."""

        def prepare(count):
            for path in Path(".").glob("*.sdb"):
                path.unlink()

            def psects():
                for i in range(count):
                    yield f"$m{i}.o"
                    yield f"text CODE 1 {16 * i:X} {16 * i:X} 8 1 1"

            def lines():
                for i in range(count):
                    yield f"$m{i}.o"
                    yield f"{16 * i:X} text CODE >5:/source/m{i}.c"
                    yield f"{16 * i + 4:X} text CODE >7:/source/m{i}.c"

            def symbols():
                for i in range(count):
                    yield f"_f{i} {16 * i:X} 0 CODE 1 text m{i}.o"
                    yield f"__end_of_f{i} {16 * i + 8:X} 0 CODE 1 text m{i}.o"

            write_map(PSECTS=psects(), LINETAB=lines(), SYMTAB=symbols(), SEGMENTS=[f"code 1 0 0 {16 * count:X} 1"])
            for i in range(0, count, 100):
                write_database([f'"5 /source/m{i}.c', f"[v _f{i} f{i} `(v 1 e 0 0 ]", "{", '"7', "}"], f"m{i}.sdb")

        for arguments in (ELF, LEGACY):
            self.expect_linear(self.COUNT, prepare, arguments)
        self.expect_linear(self.COUNT, prepare, COFF)

    def test_source_files_of_a_module(self):
        def prepare(count):
            write_map(
                PSECTS=["$m.o", f"text CODE 1 0 0 {8 * count:X} 1 1"],
                LINETAB=["$m.o"] + [f"{8 * i:X} text CODE >5:/source/h{i}.h" for i in range(count)],
                SEGMENTS=[f"code 1 0 0 {8 * count:X} 1"],
            )

            def lines():
                for i in range(count):
                    yield f'"5 /source/h{i}.h'
                    yield f"[v _v{i} v{i} `i 1 e 2 @{i} ]"

            write_database(lines())

        for arguments in (ELF, COFF):
            self.expect_linear(self.COUNT, prepare, arguments)

    def test_functions_in_splits(self):
        """Each psect is split from the one before it, and one function runs through all."""

        def prepare(count):
            write_map(
                PSECTS=["$m.o"] + [f"p{i} CODE 1 {8 * i:X} {8 * i:X} 8 1 1" for i in range(count)],
                LINETAB=["$m.o"] + [f"{8 * i:X} p{i} CODE >{i % 60000 + 5}:/m.c" for i in range(count)],
                SYMTAB=["_f 0 0 CODE 1 p0 m.o", f"__end_of_f {8 * count:X} 0 CODE 1 p{count - 1} m.o"],
                SPLITSTAB=[f"p0 p{i}" for i in range(count - 1, 0, -1)],
                SEGMENTS=[f"code 1 0 0 {8 * count:X} 1"],
            )
            write_database([*FUNCTION[:3], f'"{min(count, 60000) + 4}', "}"])

        for arguments in (ELF, ELF_RANGES):
            self.expect_linear(self.COUNT, prepare, arguments)

    def test_headings_of_segments(self):
        """Each heading of a legacy file settles what was parked since; bounds of psects stay parked."""

        def prepare(count):
            def lines():
                for i in range(count):
                    yield f"__Lp{i} {4 * i:X} 1 text 1"
                    yield f"__Hp{i} {4 * i + 3:X} 1 text 1"
                    yield "%segments"
                    yield "%locals"

            write("prog.sym", lines())

        self.expect_linear(40_000, prepare, [*OPTIONS, "prog.sym", "-oorbell", "o.sym"])

    def test_psects_of_a_legacy_file(self):
        """Every symbol is offered to every psect."""

        def prepare(count):
            def lines():
                for i in range(count):
                    yield f"__Lp{i} {4 * i:X} 1 text 1"
                    yield f"__Hp{i} {4 * i + 3:X} 1 text 1"
                    yield f"s{i} {4 * i + 1:X} 1 text 1"
                yield "%segments"

            write("prog.sym", lines())

        self.expect_linear(40_000, prepare, [*OPTIONS, "prog.sym", "-oorbell", "o.sym"])

    def test_order_that_hurts_a_quicksort(self):
        """Addresses rise and fall again, so that each comes twice, and the largest ones stand in the middle."""

        def prepare(count):
            order = [*range(count // 2), *reversed(range(count // 2))]
            write("prog.sym", ["%locals", "m.c", *(f"{i % 60000 + 5} {at:X} 1 text" for i, at in enumerate(order))])

        self.expect_linear(self.COUNT, prepare, [*OPTIONS, "prog.sym", "-oorbell", "o.sym"])
        self.expect_linear(self.COUNT, prepare, [*OPTIONS, "prog.sym", "-oelf", "o.elf"])

    def test_data_blocks(self):
        """Single bytes, no two of which touch."""

        def prepare(count):
            write("prog.s19", (single_byte_record(4 * i) for i in range(count)))

        arguments = [*OPTIONS, "prog.s19"]
        for output in ("-oihex", "-os19", "-ovcoff", "-oelf"):
            size = 30_000 if output == "-ovcoff" else self.COUNT
            self.expect_linear(size, prepare, [*arguments, output, "o.x"])

    def test_data_blocks_from_the_top(self):
        def prepare(count):
            write("prog.s19", (single_byte_record(4 * i) for i in reversed(range(count))))

        self.expect_linear(self.COUNT, prepare, [*OPTIONS, "prog.s19", "-oihex", "o.x"])


class Long(Growth):
    """Long lines, long names, long files."""

    LINE = 64 * MEBI

    def expect_line(self, prepare, arguments, **expected):
        self.expect_linear(self.LINE, prepare, arguments, **expected)

    def test_comment_in_a_map_file(self):
        def prepare(length):
            write_map(UNUSED=["#" + "x" * length])
            write_database(FUNCTION)

        self.expect_line(prepare, ELF)

    def test_name_in_a_map_file(self):
        def prepare(length):
            write_map(SYMTAB=[f"_f{'x' * length} 100 0 CODE 1 text m.o"])
            write_database(FUNCTION)

        def check(length):
            self.assertEqual(len(elf_section(".strtab")), length + len("\0_f\0"))

        self.expect_line(prepare, ELF, check=check)
        self.expect_line(prepare, COFF)
        self.expect_line(prepare, LEGACY)

    def test_blanks_in_a_map_file(self):
        def prepare(length):
            write_map(SYMTAB=[" " * length + "_f 100 0 CODE 1 text m.o" + " " * length])
            write_database(FUNCTION)

        self.expect_line(prepare, ELF)

    def test_tokens_in_a_map_file(self):
        """What stands behind a line's last field is not looked at."""

        def prepare(length):
            write_map(SYMTAB=["_f 100 0 CODE 1 text m.o" + " 1" * (length // 2)])
            write_database(FUNCTION)

        self.expect_line(prepare, ELF)

    def test_file_name_in_a_map_file(self):
        def prepare(length):
            write_map(LINETAB=["$m.o", "100 text CODE >5:/" + "x" * length])
            write_database(FUNCTION)

        self.expect_line(prepare, ELF)
        self.expect_line(prepare, LEGACY)

    def test_data_row_in_a_map_file(self):
        def prepare(length):
            write_map(NOTES=["$note 16", "5A " * (length // 3)])
            write_database(FUNCTION)

        # 8 lines of the other sections, 8 headings, and the row is the second of its section
        errors = "prog.tmf: 21: (1437) TMF error: line must contain (0,16] bytes of data\n"
        self.expect_line(prepare, ELF, status=1, errors=errors)

    def test_name_in_a_database(self):
        def prepare(length):
            write_map()
            name = "x" * length
            write_database([*FUNCTION, f"[v _{name} {name} `i 1 e 2 @300 ]"])

        for arguments in (ELF, COFF):
            self.expect_line(prepare, arguments)

    def test_source_in_a_database(self):
        def prepare(length):
            write_map()
            write_database([f'"5 /{"x" * length}', *FUNCTION[1:]])

        for arguments in (ELF, COFF):
            self.expect_line(prepare, arguments)

    def test_words_at_the_start_of_a_database(self):
        def prepare(length):
            write_map()
            write("m.sdb", ["[p KORM" + " IEEE_FLT" * (length // 9) + " ]", *FUNCTION])

        self.expect_line(prepare, ELF)

    def test_line_of_an_image(self):
        """Lines of more than 511 characters are cut: the rest is no record."""

        def prepare(length):
            write("prog.hex", [":" + "00" * (length // 2)])

        errors = 'prog.hex: (635) invalid HEX file "prog.hex" on line 2 (warning)\n'
        self.expect_line(prepare, [*OPTIONS, "-iihex", "prog.hex", "-oihex", "o.hex"], errors=errors)

    def test_line_of_a_legacy_file(self):
        """A line of more than 255 characters ends the file."""

        def prepare(length):
            write("prog.sym", ["a 1 1 text 1", "b" * length + " 2 1 text 1", "c 3 1 text 1"])

        def check(_):
            self.assertEqual(Path("o.sym").read_text(judging.ENCODING), "%locals\nprog.sym\na 1 1 text\n")

        self.expect_line(prepare, [*OPTIONS, "prog.sym", "-oorbell", "o.sym"], check=check)

    def test_arguments(self):
        """An argument of more than 2047 characters is the last one."""

        def prepare(length):
            write("arguments", ["--code-spaces=1 --data-spaces=2 " + "x" * length])

        errors = "(917) argument too long\n" + "x" * 2047 + ": (613) no output file format specified\n"
        self.expect_line(prepare, ["@arguments"], status=1, errors=errors)

    def test_line_of_a_catalogue(self):
        """Lines of more than 255 characters are cut: the rest is no line of a catalogue."""
        catalogue = "30000000000000_en.txt"

        def prepare(length):
            write(catalogue, ["605 F " + "x" * length])
            write("prog.x", [""])

        errors = "Malformed error information on line 1, in file 20240104201356_en.msgs\n\n" * 1000
        self.expect_line(prepare, [f"--edf={catalogue}", *OPTIONS, "prog.x", "-oelf", "o.elf"], status=1, errors=errors)

    def test_lines_of_a_map_file(self):
        """Five million of them."""

        def prepare(count):
            half = count // 2

            def lines():
                yield "$m.o"
                for i in range(half):
                    yield f"{2 * i:X} text CODE >{i % 60000 + 5}:/m.c"

            write_map(
                PSECTS=["$m.o", f"text CODE 1 0 0 {2 * half:X} 1 1"],
                LINETAB=lines(),
                SYMTAB=(f"_symbol_{i} {2 * i:X} 0 CODE 1 text m.o" for i in range(half)),
                SEGMENTS=[f"code 1 0 0 {2 * half:X} 1"],
            )
            write_database(FUNCTION)

        self.expect_linear(5_000_000, prepare, ELF)
        self.expect_linear(5_000_000, prepare, LEGACY)


if __name__ == "__main__":
    judging.main()

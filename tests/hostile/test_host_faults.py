#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""A host that fails: no room on the disk, streams that are closed or go nowhere, names that are no files, no memory.

A run that loses what it should write ends with status 1 and a report. Nothing half-written stays, and no input is
touched before it was read in full.
"""

import os
import resource
import shlex
import shutil
import signal
import subprocess
import unittest
from pathlib import Path

import hostile
import judging
from programs import COFF, ELF, FUNCTION, INPUTS, LEGACY, OPTIONS, write, write_database, write_map

HEX = [*OPTIONS, "prog.hex", "-oihex", "o.hex"]
S19 = [*OPTIONS, "prog.hex", "-os19", "o.s19"]
OUTPUTS = [ELF, COFF, LEGACY, HEX, S19]
LIMIT_SECONDS = 60


def write_error(name):
    return f'(413) write error on "{name}"\n'


def write_errors(name):
    """The reports for an output of any format: the ELF writer tells which debugging section was lost."""
    sections = ("abbrev", "info", "line", "aranges", "pubnames", "ranges", "loc")
    lost = [f'(621) error writing ELF/DWARF section ".debug_{one}" on "{name}"\n' for one in sections]
    return [write_error(name), *lost]


class HostFaults(unittest.TestCase):
    def setUp(self):
        self.folder = hostile.scratch_folder("host-")
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.addCleanup(os.chdir, Path.cwd())
        os.chdir(self.folder)
        symbols = [f"_symbol_{i} {i:X} 0 CODE 1 text m.o" for i in range(4096)]
        write_map(SYMTAB=["_f 100 0 CODE 1 text m.o", "__end_of_f 10C 0 CODE 1 text m.o", *symbols])
        write_database(FUNCTION)
        rows = [f"10{16 * i:04X}00{'5A' * 16}" for i in range(1024)]
        write("prog.hex", [f":{row}{-sum(bytes.fromhex(row)) & 0xFF:02X}" for row in rows] + [":00000001FF"])
        self.program = judging.program()
        self.sanitized = hostile.is_sanitized(self.program)

    def run_program(self, arguments, **options):
        """Exit status and reports; `options` as of subprocess.run."""
        environment = judging.environment(self.folder) | {"SOURCE_DATE_EPOCH": "1700000000"}
        plain = {"stdin": subprocess.DEVNULL, "stdout": subprocess.DEVNULL, "stderr": subprocess.PIPE}
        outcome = subprocess.run(
            [self.program, *arguments], env=environment, timeout=LIMIT_SECONDS, check=False, **(plain | options)
        )
        return outcome.returncode, (outcome.stderr or b"").decode(judging.ENCODING)

    def run_in_shell(self, text):
        """A shell line in which $T is the program."""
        environment = judging.environment(self.folder) | {"T": self.program, "SOURCE_DATE_EPOCH": "1700000000"}
        outcome = subprocess.run(
            ["sh", "-c", text],
            env=environment,
            stdin=subprocess.DEVNULL,
            capture_output=True,
            timeout=LIMIT_SECONDS,
            check=False,
        )
        return outcome.returncode, outcome.stdout.decode(judging.ENCODING), outcome.stderr.decode(judging.ENCODING)

    def content_of_folder(self):
        return {str(path): path.read_bytes() for path in sorted(Path().rglob("*")) if path.is_file()}

    # --- outputs that cannot be written -------------------------------------------------------------------------------

    def test_full_device(self):
        """Small and large outputs, all formats: what is lost may show at the first write or at the last."""
        os.symlink("/dev/full", "full.x")
        write("one.hex", [":0100000055AA", ":00000001FF"])
        small = [[*OPTIONS, "one.hex", output] for output in ("-oihex", "-os19", "-ovcoff")]
        for arguments in [arguments[:-1] for arguments in OUTPUTS] + small:
            if arguments[-1] == "-oelf" and "prog.tmf" in arguments:
                arguments = [*arguments[:-1], "--disable-dwarf", "-oelf"]
            status, told = self.run_program([*arguments, "full.x"])
            first = next(argument for argument in arguments if "prog." in argument or "one." in argument)
            self.assertEqual((status, told), (1, f"{first}: {write_error('full.x')}"), " ".join(arguments))
            self.assertTrue(os.path.islink("full.x"))

    def test_full_disk(self):
        """A file system that holds less than the output, on top of a folder, in a name space of its own."""
        mount = "mkdir -p disk && mount -t tmpfs -o size=8k tmpfs disk"
        status, _, told = self.run_in_shell(f"unshare -Urm sh -c '{mount}'")
        if status != 0:
            raise unittest.SkipTest(f"no file system can be mounted here: {told.strip()}")
        for arguments in OUTPUTS:
            name = f"disk/{arguments[-1]}"
            command = shlex.join([self.program, *arguments[:-1], name])
            script = f'{mount} && {command}; echo "$? $(ls disk)"'
            status, printed, told = self.run_in_shell(f"unshare -Urm sh -c {shlex.quote(script)}")
            self.assertEqual((status, printed), (0, "1 \n"), f"{' '.join(arguments)}: {told}")
            self.assertIn(told.split(": ", 1)[1], write_errors(name))

    def test_limit_of_file_size(self):
        for arguments in OUTPUTS:
            before = self.content_of_folder()
            limit = 4096
            status, told = self.run_program(
                arguments, preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit))
            )
            self.assertEqual(status, 1, " ".join(arguments))
            self.assertIn(told.split(": ", 1)[1], write_errors(arguments[-1]))
            self.assertEqual(self.content_of_folder(), before)

    def test_later_output_fails(self):
        """What was written whole before stays."""
        os.symlink("/dev/full", "full.x")
        status, told = self.run_program([*OPTIONS, "prog.hex", "-os19", "o.s19", "-oihex", "full.x"])
        self.assertEqual((status, told), (1, "prog.hex: " + write_error("full.x")))
        self.assertEqual(len(Path("o.s19").read_text(judging.ENCODING).splitlines()), 1024)

    def test_output_is_a_folder(self):
        os.mkdir("o.elf")
        before = self.content_of_folder()
        for output in ("o.elf", "."):
            status, told = self.run_program([*ELF[:-1], output])
            self.assertEqual((status, told), (1, f"prog.tmf: (378) can't create output file \"{output}\"\n"))
        self.assertEqual(self.content_of_folder(), before)

    def test_output_in_no_folder(self):
        status, told = self.run_program([*ELF[:-1], "none/o.elf"])
        self.assertEqual((status, told), (1, "prog.tmf: (378) can't create output file \"none/o.elf\"\n"))

    def run_without_privileges(self, arguments):
        """As a user to whom permissions matter."""
        if os.geteuid() != 0:
            return self.run_program(arguments)
        nobody = 65534
        os.chmod(self.folder, 0o755)
        if subprocess.run([self.program, "--ver"], user=nobody, capture_output=True, check=False).returncode != 0:
            raise unittest.SkipTest("the program cannot be run by another user here")
        return self.run_program(arguments, user=nobody, group=nobody, extra_groups=[])

    def test_output_in_a_folder_without_permission(self):
        os.mkdir("locked")
        os.chmod("locked", 0o555)
        status, told = self.run_without_privileges([*ELF[:-1], "locked/o.elf"])
        self.assertEqual((status, told), (1, "prog.tmf: (378) can't create output file \"locked/o.elf\"\n"))

    def test_output_without_permission(self):
        Path("o.elf").write_bytes(b"old")
        os.chmod("o.elf", 0o444)
        status, told = self.run_without_privileges(ELF)
        self.assertEqual((status, told), (1, "prog.tmf: (378) can't create output file \"o.elf\"\n"))
        self.assertEqual(Path("o.elf").read_bytes(), b"old")

    def test_current_folder_without_permission(self):
        """The trace file, which is made there unasked, is missed; the run goes on."""
        os.mkdir("locked")
        os.mkdir("open")
        os.chmod("open", 0o777)
        os.chmod("locked", 0o555)
        os.chdir("locked")
        image = [*OPTIONS, "../prog.hex", "-os19", "../open/o.s19"]
        self.assertEqual(self.run_without_privileges(image), (0, ""))
        status, told = self.run_without_privileges([*OPTIONS, "../prog.hex", "-os19", "o.s19"])
        self.assertEqual((status, told), (1, "../prog.hex: (378) can't create output file \"o.s19\"\n"))

    def test_output_to_a_pipe(self):
        """Formats that are written from their start to their end can go there, and an ELF file cannot."""
        os.symlink("/dev/stdout", "out.x")
        for arguments in OUTPUTS:
            self.assertEqual(self.run_program(arguments), (0, ""))
            expected = Path(arguments[-1]).read_bytes().decode(judging.ENCODING)
            command = shlex.join([*arguments[:-1], "out.x"])
            _, printed, told = self.run_in_shell(f"{{ $T {command}; echo $? >status; }} | cat")
            status = Path("status").read_text()
            if arguments is ELF:
                self.assertEqual((status, told), ("1\n", "prog.tmf: " + write_error("out.x")))
            else:
                self.assertEqual((status, told), ("0\n", ""))
                self.assertEqual(printed, expected)

    # --- outputs that are inputs --------------------------------------------------------------------------------------

    def test_output_is_an_input(self):
        """It was read in full when it is written: the result is that of another name."""
        for arguments in (ELF, COFF, LEGACY):
            self.check_output_over("prog.tmf", arguments)
            self.check_output_over("m.sdb", arguments)
        for arguments in (HEX, S19):
            self.check_output_over("prog.hex", arguments)

    def check_output_over(self, name, arguments):
        before = Path(name).read_bytes()
        self.assertEqual(self.run_program(arguments), (0, ""))
        self.assertEqual(self.run_program([*arguments[:-1], name]), (0, ""))
        self.assertEqual(Path(name).read_bytes(), Path(arguments[-1]).read_bytes(), f"{name}: {' '.join(arguments)}")
        Path(name).write_bytes(before)

    def test_refused_run_leaves_the_input_that_is_its_output(self):
        before = self.content_of_folder()
        missing = [*OPTIONS, "prog.hex", "none.hex", "-oihex", "prog.hex"]
        unknown = [*INPUTS, "-ovcoff", "prog.tmf", "-oxyz"]
        for arguments in (missing, unknown):
            self.assertEqual(self.run_program(arguments)[0], 1)
            self.assertEqual(self.content_of_folder(), before)

    # --- inputs that are none -----------------------------------------------------------------------------------------

    def test_input_is_a_folder(self):
        os.mkdir("folder")
        expected = "(141) can't open input file \"folder\": Is a directory\n"
        for arguments in ([*OPTIONS, "folder", "-oelf", "o.elf"], ["-d", "folder"], ["-c", "folder"]):
            status, told = self.run_program(arguments)
            self.assertEqual(status, 1)
            self.assertTrue(told.endswith("folder: " + expected), told)
        os.remove("m.sdb")
        os.mkdir("m.sdb")  # a database that is no file is none: a module without one is an assembler's
        self.assertEqual(self.run_program(ELF), (0, ""))

    def test_input_is_a_pipe(self):
        """An input is looked at before it is read, and a pipe gives its bytes only once."""
        os.mkfifo("pipe")
        command = f"$T {shlex.join(OPTIONS)} pipe -os19 o.s19"
        status, _, told = self.run_in_shell(f"cat prog.hex >pipe & {command}")
        self.assertEqual((status, told), (1, "pipe: (141) can't open input file \"pipe\": Illegal seek\n"))

    def test_input_is_a_pipe_of_a_known_format(self):
        os.mkfifo("pipe")
        command = f"$T {shlex.join(OPTIONS)} -iihex pipe -os19 piped.s19 && $T {shlex.join(OPTIONS)} prog.hex -os19 file.s19"
        status, _, told = self.run_in_shell(f"cat prog.hex >pipe & {command}")
        self.assertEqual((status, told), (0, ""))
        self.assertNotEqual(Path("file.s19").read_bytes(), b"")
        self.assertEqual(Path("piped.s19").read_bytes(), Path("file.s19").read_bytes())

    def test_input_is_a_device_without_end(self):
        """Such a device starts again as often as it is asked to, and never ends."""
        for arguments in ([], ["-iihex"], ["-itarnsym"], ["-d"]):
            told = self.run_program([*OPTIONS, *arguments, "/dev/zero", "-os19", "o.s19"])
            self.assertEqual(told, (1, '/dev/zero: (141) can\'t open input file "/dev/zero": File too large\n'))
        status, told = self.run_program([*OPTIONS, os.devnull, "-os19", "o.s19"])
        self.assertEqual(status, 1)
        self.assertTrue(told.endswith("/dev/null: (605) did not recognize format of input file\n"), told)

    def test_input_without_end(self):
        """What is held of a file at once has a limit, whoever feeds it."""
        os.mkfifo("pipe")
        reader = f"$T {shlex.join(OPTIONS)} -itarnsym pipe -os19 o.s19"
        status, _, told = self.run_in_shell(f"cat /dev/zero >pipe 2>/dev/null & {reader}")
        self.assertEqual((status, told), (1, "pipe: 0: (296) out of memory\n"))
        os.remove("m.sdb")
        os.symlink("/dev/zero", "m.sdb")
        status, told = self.run_program(ELF)
        self.assertEqual(status, 1)
        self.assertTrue(told.endswith("(296) out of memory\n"), told)

    def test_input_that_cannot_be_read(self):
        """A process's own memory is a file whose first page is none."""
        memory = "/proc/self/mem"
        failure = f'can\'t open %s file "{memory}": Input/output error\n'
        for kind in ("ihex", "s19", "tarnsym", "orbell"):
            status, told = self.run_program([*OPTIONS, "-i" + kind, memory, "-os19", "o.s19"])
            self.assertEqual(status, 1, kind)
            self.assertTrue(told.endswith("(141) " + failure % "input"), told)
        self.assertEqual(self.run_program(["@" + memory]), (1, "(141) " + failure % "command"))
        os.remove("m.sdb")
        os.symlink(memory, "m.sdb")
        status, told = self.run_program(ELF)
        self.assertEqual(status, 1)
        self.assertTrue(told.endswith('m.sdb": Input/output error\n'), told)
        self.assertFalse(Path("o.s19").exists())

    def test_input_is_not_readable(self):
        os.chmod("prog.tmf", 0)
        status, told = self.run_without_privileges(ELF)
        self.assertEqual((status, told), (1, "prog.tmf: (141) can't open input file \"prog.tmf\": Permission denied\n"))

    # --- standard streams ---------------------------------------------------------------------------------------------

    def test_closed_streams(self):
        """No file that is opened later gets into the place of a stream that is closed."""
        self.assertEqual(self.run_program(ELF)[0], 0)
        expected = Path("o.elf").read_bytes()
        for closed in ("<&-", ">&-", "2>&-", "<&- >&-", "<&- 2>&-", ">&- 2>&-", "<&- >&- 2>&-"):
            os.remove("o.elf")
            command = f"$T -v -v --zrdebug=default,out:trace.log {shlex.join(ELF)}"
            status, printed, told = self.run_in_shell(f"{command} {closed}")
            self.assertEqual((status, printed), (0, ""), closed)
            self.assertEqual(told == "", "2>&-" in closed, closed)
            self.assertEqual(Path("o.elf").read_bytes(), expected, closed)
            trace = Path("trace.log").read_text(judging.ENCODING)
            self.assertNotIn("==> ", trace, closed)

    def test_closed_streams_of_a_failing_run(self):
        Path("prog.tmf").write_text("%TMF\n%PSECTS\nx\n")
        for closed in ("<&-", ">&-", "2>&-", "<&- >&- 2>&-"):
            status, printed, told = self.run_in_shell(f"$T {shlex.join(ELF)} {closed}")
            self.assertEqual((status, printed), (1, ""), closed)
            self.assertEqual(told == "", "2>&-" in closed, closed)

    def test_arguments_from_a_closed_stream(self):
        """It is as an empty one."""
        expected = (
            "(1451) no code spaces have been defined\n(1451) no data spaces have been defined\n"
            "(613) no output file format specified\n"
        )
        self.assertEqual(self.run_in_shell("$T <&-"), (1, "", expected))

    def dumps(self):
        self.assertEqual(self.run_program(ELF)[0], 0)
        self.assertEqual(self.run_program(COFF)[0], 0)
        return ["o.elf", "o.cof"]

    def test_dump_to_where_nothing_arrives(self):
        for name in self.dumps():
            expected = f"{name}: " + write_error("standard output")
            for place in (">&-", ">/dev/full"):
                self.assertEqual(self.run_in_shell(f"$T -d {name} {place}"), (1, "", expected))
            # One report, and the next input is not begun.
            self.assertEqual(self.run_in_shell(f"$T -d {name} {name} >/dev/full"), (1, "", expected))

    def test_dump_into_a_broken_pipe(self):
        for name in self.dumps():
            reader, writer = os.pipe()
            os.close(reader)
            try:
                status, told = self.run_program(["-d", name], stdout=writer)
            finally:
                os.close(writer)
            self.assertEqual((status, told), (1, f"{name}: " + write_error("standard output")))

    def test_reports_into_a_broken_pipe(self):
        """Nothing can be told, but the result is as ever."""
        for arguments, expected in ((["-v", *ELF], 0), ([*ELF, "-oxyz"], 1)):
            reader, writer = os.pipe()
            os.close(reader)
            try:
                outcome = self.run_program(arguments, stderr=writer)
            finally:
                os.close(writer)
            self.assertEqual(outcome[0], expected)

    # --- memory -------------------------------------------------------------------------------------------------------

    def test_no_memory(self):
        """Whatever it is that finds no memory: the run is refused with a report, or has its result, and never a
        part of it."""
        if self.sanitized:
            raise unittest.SkipTest("the address sanitizer reserves more addresses than any bound allows")
        count = 60_000
        write_map(
            LINETAB=["$m.o"] + [f"{i:X} text CODE >{i + 5}:/m{i % 100}.c" for i in range(count)],
            SYMTAB=[f"_symbol_{i} {i:X} 0 CODE 1 text m.o" for i in range(count)],
        )
        variables = [f"[v _v{i} v{i} `{'*' * (i % 50)}i 1 e 2 @{i} ]" for i in range(count // 4)]
        write_database([*FUNCTION, '"9', *variables])
        for arguments in (ELF, COFF, LEGACY):
            self.assertEqual(self.run_program(arguments), (0, ""))
            expected = Path(arguments[-1]).read_bytes()
            refused = served = 0
            for mebibytes in [*range(8, 64, 2), 1024]:
                os.remove(arguments[-1]) if os.path.exists(arguments[-1]) else None
                bound = mebibytes * hostile.MEBIBYTE
                status, told = self.run_program(
                    arguments, preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (bound, bound))
                )
                where = f"{mebibytes} MiB, {' '.join(arguments)}"
                if status == 0:
                    served += 1
                    self.assertEqual(Path(arguments[-1]).read_bytes(), expected, where)
                else:
                    refused += 1
                    self.assertEqual(status, 1, where)
                    self.assertTrue(told.endswith("out of memory\n"), f"{where}: {told}")
                    self.assertFalse(os.path.exists(arguments[-1]), where)
            self.assertGreater(min(refused, served), 0)

    # --- signals ------------------------------------------------------------------------------------------------------

    def test_hangup_of_a_reader_in_between(self):
        """A reader that takes a little and goes, as `head` does."""
        for name in self.dumps():
            process = subprocess.Popen(
                [self.program, "-d", name], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE
            )
            process.stdout.read(100)
            process.stdout.close()
            told = process.stderr.read().decode(judging.ENCODING)
            process.stderr.close()
            status = process.wait(LIMIT_SECONDS)
            self.assertNotEqual(status, -signal.SIGPIPE)
            if status != 0:  # small dumps fit into the pipe
                self.assertEqual((status, told), (1, f"{name}: " + write_error("standard output")))


if __name__ == "__main__":
    judging.main()

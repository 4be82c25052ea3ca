# SPDX-License-Identifier: MIT
"""What the judges share: running the program in a scratch folder, and the third-party readers."""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

from reference_outputs import without_symbol_types, write_elf, write_intel_hex, write_s_records

try:
    from elftools.elf.elffile import ELFFile
except ImportError:
    ELFFile = None

PASSED, FAILED, SKIPPED = 0, 1, 77
TIMEOUT_SECONDS = 60

# Map files and databases are bytes to the program; here every byte is one character.
ENCODING = "latin-1"

# Steer the sanitizers' run time and not the program.
SANITIZER_VARIABLES = ["ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS"]


def program():
    path = os.environ.get("TARNWICK")
    if not path:
        raise unittest.SkipTest("TARNWICK does not name the program")
    return str(Path(path).resolve())


def samples_folder():
    return Path(os.environ.get("TARNWICK_SAMPLES") or Path(__file__).resolve().parents[2] / "samples")


def shared_samples_folder():
    """The folder of further sample programs, or None where there is none."""
    path = os.environ.get("TARNWICK_SHARED_SAMPLES")
    return Path(path) if path and Path(path).is_dir() else None


def sample_programs():
    """The folders of all sample programs: those of the repository, then the further ones."""
    own = sorted(path.parent for path in samples_folder().glob("*/*.tmf"))
    shared = shared_samples_folder()
    if shared is None:
        print("no folder of further sample programs: the samples of the repository alone are judged", flush=True)
        return own
    return own + sorted(path.parent for path in shared.glob("*/*.tmf"))


def judge_samples(module, tests_of):
    """A test class in this module for each sample program, of the tests that `tests_of` gives for its folder."""
    for folder in sample_programs():
        name = "".join(letter if letter.isalnum() else "_" for letter in folder.name)
        made = type(name, (tests_of(folder), Judge), {"folder": folder, "__module__": module})
        setattr(sys.modules[module], name, made)


def environment(scratch):
    variables = {"PATH": os.environ.get("PATH", ""), "HOME": str(scratch), "LC_ALL": "C", "TZ": "UTC"}
    variables.update({name: os.environ[name] for name in SANITIZER_VARIABLES if name in os.environ})
    return variables


def run(command, scratch):
    return subprocess.run(
        command,
        cwd=scratch,
        env=environment(scratch),
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        timeout=TIMEOUT_SECONDS,
        check=False,
    )


def find_tool(*names):
    """The first of the tools that is installed; the test is skipped when none is."""
    for name in names:
        path = shutil.which(name)
        if path:
            return path
    raise unittest.SkipTest(f"not installed: {' or '.join(names)}")


class Judge(unittest.TestCase):
    """A test case with a scratch folder that lives as long as its class."""

    maxDiff = None

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.scratch = Path(tempfile.mkdtemp(prefix="judge-"))
        cls.addClassCleanup(shutil.rmtree, cls.scratch, ignore_errors=True)

    def run_silently(self, arguments, folder=None):
        """Runs the program, which must succeed and have nothing to say."""
        outcome = run([program(), *arguments], folder or self.scratch)
        told = (outcome.stdout + outcome.stderr).decode(errors="replace")
        self.assertEqual((outcome.returncode, told), (0, ""), f"of: tarnwick {' '.join(arguments)}")

    def assert_same_bytes(self, expected, actual, what):
        """Two files as one fact: the length of a difference of two long byte strings would help nobody."""
        if expected == actual:
            return
        at = next((i for i, pair in enumerate(zip(expected, actual)) if pair[0] != pair[1]), None)
        at = min(len(expected), len(actual)) if at is None else at
        start = max(0, at - 16)
        self.fail(
            f"{what} differs at {at:#x}; lengths {len(expected):#x} and {len(actual):#x}\n"
            f"from {start:#x} expected {expected[start : at + 32].hex(' ')}\n"
            f"from {start:#x} actual   {actual[start : at + 32].hex(' ')}"
        )

    def assert_elf(self, model, path):
        """The reference model's ELF file; the types of symbols come from databases, which it does not read."""
        self.assert_same_bytes(write_elf(model), without_symbol_types(path.read_bytes()), "the ELF file")

    def assert_images(self, model, s_records, intel_hex):
        self.assert_same_bytes(write_s_records(model).encode(), s_records.read_bytes(), "the S-records")
        self.assert_same_bytes(write_intel_hex(model).encode(), intel_hex.read_bytes(), "the Intel HEX")


# --- readers of ELF ---------------------------------------------------------------------------------------------------

# What GNU readelf has to say about every ELF file of this program, and has to:
# - the program headers stand in no loadable segment, since nothing of them goes into the target's memory;
# - `sh_info` of the symbol table is 0, since locals and globals stand mixed, segment by segment.
KNOWN_READELF_COMPLAINTS = {
    "Error: the PHDR segment is not covered by a LOAD segment",
    "Warning: local symbol 0 found at index >= .symtab's sh_info value of 0",
}


def readelf_complaints(path):
    """What `readelf -a` reports about an ELF file beyond the known departures."""
    outcome = run([find_tool("readelf"), "-a", "-W", str(path)], path.parent)
    lines = outcome.stderr.decode(errors="replace").splitlines()
    lines += [line for line in outcome.stdout.decode(errors="replace").splitlines() if "<corrupt" in line]
    told = [re.sub(r"^\S*readelf: ", "", line) for line in lines]
    return [line for line in told if line not in KNOWN_READELF_COMPLAINTS]


def llvm_readelf_complaints(path):
    outcome = run([find_tool("llvm-readelf", "llvm-readelf-14"), "-a", str(path)], path.parent)
    lines = outcome.stderr.decode(errors="replace").splitlines()
    lines += [line for line in outcome.stdout.decode(errors="replace").splitlines() if "<?>" in line]
    return lines + ([] if outcome.returncode == 0 else [f"exit status {outcome.returncode}"])


SHF_ALLOC = 2


class ElfView:
    """An ELF file as pyelftools reads it; numbers stay numbers where it knows names."""

    def __init__(self, path):
        if ELFFile is None:
            raise unittest.SkipTest("not installed: pyelftools")
        with open(path, "rb") as stream:
            elf = ELFFile(stream)
            self.big_endian = not elf.little_endian
            self.header = dict(elf.header)
            self.sections = [(section.name, dict(section.header)) for section in elf.iter_sections()]
            self.segments = [dict(segment.header) for segment in elf.iter_segments()]
            table = elf.get_section_by_name(".symtab")
            self.symbols = [(symbol.name, symbol.entry) for symbol in table.iter_symbols()]
        self.content = Path(path).read_bytes()

    def section(self, name):
        found = [header for known, header in self.sections if known == name]
        if len(found) != 1:
            raise AssertionError(f"{len(found)} sections are named {name}")
        return found[0]

    def bytes_of(self, name):
        header = self.section(name)
        return self.content[header["sh_offset"] : header["sh_offset"] + header["sh_size"]]

    def section_name(self, index):
        """The section of a symbol by name; what is no section keeps its own word (SHN_ABS, SHN_UNDEF)."""
        return self.sections[index][0] if isinstance(index, int) else index

    def loads(self):
        """(section name, program header) of each loadable segment: they stand in the order of their sections."""
        sections = [name for name, header in self.sections if header["sh_flags"] & SHF_ALLOC and header["sh_size"] != 0]
        headers = [header for header in self.segments if header["p_type"] == "PT_LOAD"]
        if len(sections) != len(headers):
            raise AssertionError(f"{len(sections)} sections are loadable, but {len(headers)} segments are")
        return list(zip(sections, headers))

    def image(self, delta_of=lambda section: 1):
        """Byte address -> byte of all that the loadable segments bring to the target's memory. Addresses of an ELF file
        count the address units of their segment; `delta_of` tells how many bytes one of them has."""
        found = {}
        for section, header in self.loads():
            start = header["p_paddr"] * delta_of(section)
            data = self.content[header["p_offset"] : header["p_offset"] + header["p_filesz"]]
            found.update({start + i: byte for i, byte in enumerate(data)})
        return found


# --- images -----------------------------------------------------------------------------------------------------------


def intel_hex_bytes(text):
    """Address -> byte of an Intel HEX file as any tool writes it."""
    found, base = {}, 0
    for line in text.split():
        record = bytes.fromhex(line[1:])
        if line[0] != ":" or sum(record) & 0xFF or len(record) != record[0] + 5:
            raise ValueError(f"no Intel HEX record: {line}")
        address, kind, data = int.from_bytes(record[1:3], "big"), record[3], record[4:-1]
        if kind == 0:
            found.update({base + address + i: byte for i, byte in enumerate(data)})
        elif kind == 1:
            break
        elif kind in (2, 4):
            base = int.from_bytes(data, "big") << (4 if kind == 2 else 16)
        else:
            raise ValueError(f"unexpected record: {line}")
    return found


def s_record_bytes(text):
    """Address -> byte of the S1, S2 and S3 records of a text, checksums tested."""
    found = {}
    for line in text.split():
        record = bytes.fromhex(line[2:])
        if line[0] != "S" or sum(record) & 0xFF != 0xFF or len(record) != record[0] + 1:
            raise ValueError(f"no S-record: {line}")
        width = int(line[1]) + 1
        if width not in (2, 3, 4):
            raise ValueError(f"unexpected record: {line}")
        address = int.from_bytes(record[1 : 1 + width], "big")
        found.update({address + i: byte for i, byte in enumerate(record[1 + width : -1])})
    return found


# --- the end of a judge -----------------------------------------------------------------------------------------------


class CountingResult(unittest.TextTestResult):
    passed = 0

    def addSuccess(self, test):
        super().addSuccess(test)
        self.passed += 1


def main():
    """Runs the tests of the calling script; leaves with 77 and the reasons when nothing could be judged."""
    runner = unittest.TextTestRunner(resultclass=CountingResult, verbosity=2)
    result = unittest.main(module="__main__", exit=False, testRunner=runner).result
    if not result.wasSuccessful():
        sys.exit(FAILED)
    if result.skipped:
        print("skipped: " + "; ".join(sorted({reason for _, reason in result.skipped})), flush=True)
    sys.exit(PASSED if result.passed else SKIPPED)

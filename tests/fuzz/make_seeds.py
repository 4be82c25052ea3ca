#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Makes the inputs that fuzzing starts from: make_seeds.py <tarnwick> <folder> [folder of further samples]

<folder>/<target>/ gets the seeds of a target, named by their content. They come from the sample programs, from the
inputs of the case tests, and from what the program makes of them; COFF and ELF files are such outputs. Where clang is
installed, objects of its own with debugging sections of all versions are among them.
"""

import hashlib
import pathlib
import re
import shutil
import struct
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
SPACES = "--code-spaces=1 --data-spaces=2 --eeprom-spaces=3"
CHIP = "-pN4A,14A0,KOR18,KORM"
LONGEST = 40000  # a longer sample is no good start: runs would be few

# The order in which the target dwarf_dump takes them.
DEBUG_SECTIONS = [
    ".debug_abbrev", ".debug_info", ".debug_line", ".debug_str", ".debug_loc", ".debug_ranges", ".debug_pubnames",
    ".debug_aranges", ".debug_macinfo", ".debug_frame",
]

C_SOURCE = """
struct list { struct list *next; int values[3]; unsigned flag : 3; };
union u { char c; long l; double d; };
enum colour { RED, GREEN = 5 };
typedef int (*operation)(const struct list *, volatile char);
static enum colour colour = GREEN;
union u shared;
static inline int sum(const struct list *p)
{
    int s = 0;
    for (; p; p = p->next) {
        int i;
        for (i = 0; i < 3; i++)
            s += p->values[i];
    }
    return s;
}
int apply(operation f, struct list *p, ...)
{
    {
        register int n = sum(p);
        if (n > 3)
            return f(p, (char)n);
    }
    return colour;
}
"""


class Seeds:
    def __init__(self, folder):
        self.folder = folder
        self.count = 0

    def add(self, target, content):
        if isinstance(content, str):
            content = content.encode("latin-1")
        if not content or len(content) > LONGEST:
            return
        folder = self.folder / target
        folder.mkdir(parents=True, exist_ok=True)
        (folder / hashlib.sha1(content).hexdigest()[:16]).write_bytes(content)
        self.count += 1


def joined(parts):
    """Several files as one input."""
    text = b""
    for name, content in parts:
        if text and not text.endswith(b"\n"):
            text += b"\n"
        text += b"==== " + name.encode() + b"\n" + content
    return text


def sections_of(elf):
    """Name and content of each section of a 32-bit ELF file."""
    order = ">" if elf[5] == 2 else "<"
    offset = struct.unpack_from(order + "I", elf, 32)[0]
    size, count, names_index = struct.unpack_from(order + "3H", elf, 46)
    headers = [struct.unpack_from(order + "10I", elf, offset + i * size) for i in range(count)]
    names = elf[headers[names_index][4]:][:headers[names_index][5]]
    for header in headers:
        name = names[header[0]:names.index(b"\0", header[0])].decode("latin-1")
        yield name, b"" if header[1] == 8 else elf[header[4]:header[4] + header[5]]


def debug_input(elf):
    """What the target dwarf_dump takes in place of an ELF file."""
    contents = dict(sections_of(elf))
    text = bytes([1 if elf[5] == 2 else 0])
    for name in DEBUG_SECTIONS:
        content = contents.get(name, b"")[:0xFFFF]
        text += struct.pack("<H", len(content)) + content
    return text


def add_elf(seeds, elf):
    seeds.add("elf_dump", elf)
    seeds.add("identify", elf[:1024])
    seeds.add("dwarf_dump", debug_input(elf))


class Runner:
    """Runs the program in a folder that holds copies of a sample."""

    def __init__(self, program):
        self.program = program

    def outputs(self, files, commands):
        """For each command line, the files that it made."""
        with tempfile.TemporaryDirectory() as scratch:
            folder = pathlib.Path(scratch)
            for name, content in files:
                (folder / name).write_bytes(content)
            for command in commands:
                known = {path.name for path in folder.iterdir()}
                subprocess.run([self.program, *command.split()], cwd=folder, stdin=subprocess.DEVNULL,
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False, timeout=60)
                for path in sorted(folder.iterdir()):
                    if path.name not in known and path.is_file():
                        yield path.name, path.read_bytes()


def add_by_name(seeds, path):
    """An input of a sample or case, by its extension."""
    content = path.read_bytes()
    suffix = path.suffix
    if suffix == ".tmf":
        seeds.add("map", content)
        seeds.add("import", content)
        seeds.add("run", content)
        seeds.add("identify", content[:512])
    elif suffix == ".sdb":
        seeds.add("database", content)
    elif suffix == ".hex":
        seeds.add("ihex", content[:LONGEST])
        seeds.add("identify", content[:512])
    elif suffix == ".s19":
        seeds.add("s19", content)
        seeds.add("identify", content[:512])
    elif suffix == ".sym":
        seeds.add("orbell", content)
        seeds.add("identify", content[:512])
    elif suffix == ".txt" and re.match(r"\d+_", path.name) or re.match(r"\d{14}", path.name):
        seeds.add("catalogue", content)


def program_files(folder):
    return [(path.name, path.read_bytes()) for path in sorted(folder.iterdir())
            if path.suffix in (".tmf", ".sdb", ".hex")]


def add_program(seeds, runner, folder, spaces):
    """A sample program: all of it, and all that comes out of it."""
    files = [("prog" + pathlib.Path(name).suffix if name.endswith((".tmf", ".hex")) else name, content)
             for name, content in program_files(folder)]
    if not any(name == "prog.tmf" for name, _ in files):
        return
    inputs = " ".join(name for name, _ in files if name.endswith((".hex", ".tmf")))
    base = f"{CHIP} {spaces} {inputs}"
    big = f"-pN5BV,16F0,KOR18,KORB {spaces} {inputs}"
    seeds.add("import", joined([file for file in files if not file[0].endswith(".hex")]))
    traced = "--zrdebug=on,sdb,dwarf,alerts,adt,zip=p.zip,out=t.log,assert=error"
    for command in (base, f"{traced} {base} -v -v",
                    f"{base} -a -k --dwarf-use-ranges=always --dwarf-use-loclists=always",
                    f"{big} -b -m --dwarf-addr-size=8 -ovcoff o.cof -oelf o.elf"):
        seeds.add("run", joined([("command", command.encode() + b"\n")] + files))
    commands = [f"{base} --dwarf-addr-size=4 -oelf a.elf", f"{base} -oelf b.elf --dwarf-use-loclists=always",
                f"{base} -ovcoff a.cof", f"{big} -b -oelf c.elf", f"{base} -oorbell a.sym", f"{base} -oihex a.hex",
                f"{base} -os19 a.s19"]
    for name, content in runner.outputs(files, commands):
        if name.endswith(".elf"):
            add_elf(seeds, content)
        elif name.endswith(".cof"):
            seeds.add("coff_dump", content)
            seeds.add("coff_read", content)
            seeds.add("identify", content[:512])
        elif name.endswith(".sym"):
            seeds.add("orbell", content)
        elif name.endswith(".hex"):
            seeds.add("ihex", content)
        elif name.endswith(".s19"):
            seeds.add("s19", content)


def add_commands(seeds):
    """The command lines of the case tests, as a command on the standard input."""
    for path in sorted((ROOT / "tests/cases").glob("*/cmd")):
        for line in path.read_text(encoding="latin-1").splitlines():
            words = re.findall(r"(?:^|\s)(--?[A-Za-z][^\s;|&<>]*|\S+\.(?:hex|tmf|s19|cof|elf))", line)
            if words:
                seeds.add("options", " ".join(words).replace("$@", "one.hex") + "\n")
                seeds.add("arguments", " ".join(words) + "\n")
    spaces = "--code-spaces=1 --data-spaces=2\n"
    for text in ("-h", "-l", "--ver", "one.hex -os19 out.s19", "-c one.hex", "-d one.hex", "-e3 one.hex",
                 "-elog one.hex", "--edf=one.hex one.hex -oihex", "-s1-2x3 one.hex -oihex x", "-w-9! one.hex -os19",
                 "--zrdebug=on,alerts,out=t.log,assert=warning one.hex -os19 o.s19",
                 "--psect-flags=a=wx,b one.hex -oelf o",
                 "--code-delta=2 -a one.hex -oelf o -ovcoff p -oorbell",
                 "--Werror=634 --Wno-error=634 --msgdisable=634,635",
                 "--eeprom-spaces=3,4 one.hex -pN4A,14A0,KOR18,KORM -oihex"):
        seeds.add("options", spaces + text + "\n")
    for text in ("a b\tc\n", "'a b' \"c d\"\\ e\n", "a\\\\b \\\"c\\n\r\n", "'unfinished\nnext\n", "x" * 2047 + "\n",
                 "x" * 2048):
        seeds.add("arguments", text)


def ubrof_crc(data):
    crc = 0
    for byte in data:
        crc ^= byte << 8
        for _ in range(8):
            crc = (crc << 1 ^ 0x8005 if crc & 0x8000 else crc << 1) & 0xFFFF
    return crc


def add_ubrof(seeds):
    """The records of a small file: head, version, program, data, each kind of the others, end."""
    head = bytes([0xA5, 30, 15, 10, 4, 7, 0x61])
    version = bytes([0xBD, 6, 0, 0, 5, 0xBA, 2, 0xBE, 0xFF, 0xBF, 2, 0xC0, 0xFF, 0xC1, 5])
    program = bytes([1, 1, 3, 0x10, 4, 7, 0x61, 4]) + b"main"
    data = bytes([0x51, 1, 0, 0, 1, 0, 0x39, 5]) + b"hello"
    others = [bytes([tag, 1, 0, 4]) + b"name" + bytes(range(16))
              for tag in (2, 0x47, 0x4A, 0x4C, 0x52, 0x53, 0x54, 0xC0)]
    seeds.add("identify", head)
    for rest in [b"", data] + others:
        body = head + version + program + rest
        for checked in (body + b"\x3F" + struct.pack(">H", ubrof_crc(body + b"\x3F")), body):
            seeds.add("ubrof_dump", checked + b"\xFF")
    case = (ROOT / "tests/cases/ubrof-dump/cmd").read_text()
    text = "".join(re.findall(r"printf '([^']*)'", case))
    seeds.add("ubrof_dump", re.sub(r"\\([0-7]{3}|n)", lambda m: "\n" if m[1] == "n" else chr(int(m[1], 8)), text))


def add_objects(seeds):
    """Objects of another compiler."""
    clang = next(filter(None, map(shutil.which, ("clang", "clang++"))), None)
    if clang is None:
        return
    with tempfile.TemporaryDirectory() as scratch:
        source = pathlib.Path(scratch) / "s.c"
        source.write_text(C_SOURCE)
        result = pathlib.Path(scratch) / "s.o"
        for machine in ("i386-linux-gnu", "mips-linux-gnu", "arm-none-eabi"):
            for version in (2, 3, 4, 5):
                run = subprocess.run(
                    [clang, "-x", "c", "-target", machine, f"-gdwarf-{version}", "-O1", "-fno-inline", "-w", "-c",
                     str(source), "-o", str(result)], capture_output=True, check=False)
                if run.returncode == 0:
                    add_elf(seeds, result.read_bytes())


def lowered_catalogue():
    """A catalogue that makes every fatal report a warning: the program then goes on behind each of them."""
    rows = (ROOT / "common/catalogue_rows.cpp").read_text()
    fatal = re.findall(r"\bfatal\((\d+), \"((?:[^\"\\]|\\.)*)\"", rows)
    return "".join(f"{number} 0 {text}\n" for number, text in fatal).replace('\\"', '"').encode()


def main(arguments):
    program, folder = arguments[:2]
    samples = [pathlib.Path(name) for name in arguments[2:] if name]
    folder = pathlib.Path(folder)
    shutil.rmtree(folder, ignore_errors=True)
    seeds = Seeds(folder)
    runner = Runner(str(pathlib.Path(program).resolve()))

    for path in sorted((ROOT / "tests/cases").glob("*/*")) + sorted((ROOT / "samples").glob("*/*")):
        if path.is_file():
            add_by_name(seeds, path)
    blink = ROOT / "samples/blink"
    add_program(seeds, runner, blink, SPACES)
    for case in sorted((ROOT / "tests/cases").glob("*/prog.tmf")):
        add_program(seeds, runner, case.parent, SPACES)
    for sample in (child for parent in samples for child in sorted(parent.iterdir()) if child.is_dir()):
        words = (sample / "args.txt").read_text().split()
        spaces = " ".join(word for word in words if "-spaces=" in word)
        add_program(seeds, runner, sample, spaces)
        for path in sorted(sample.glob("*.sdb")) + sorted(sample.glob("*.tmf")):
            add_by_name(seeds, path)

    lowered = lowered_catalogue()
    seeds.add("catalogue", lowered)
    seeds.add("catalogue", "# a comment\n602 E %s %u %m %% %08lX %-12.3s|%c\n634 -9 %s%s%s%n\n10000 8 last\n")
    files = [("prog" + path.suffix if path.suffix in (".tmf", ".hex") else path.name, path.read_bytes())
             for path in sorted(blink.iterdir()) if path.suffix in (".tmf", ".hex", ".sdb")]
    seeds.add("run", joined([("command", f"--edf=30000000000000_en.txt {CHIP} {SPACES} prog.hex prog.tmf\n".encode()),
                             ("30000000000000_en.txt", lowered)] + files))
    seeds.add("run", joined([("command", f"{SPACES} -v -v prog.hex in.sym -oorbell o.sym -oelf o.elf\n".encode()),
                             ("in.sym", (ROOT / "tests/cases/orbell-twice/prog.sym").read_bytes()),
                             ("prog.hex", (blink / "blink.hex").read_bytes())]))
    add_commands(seeds)
    add_ubrof(seeds)
    add_objects(seeds)
    print(f"{seeds.count} seeds in {sum(1 for _ in folder.glob('*/*'))} files")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))

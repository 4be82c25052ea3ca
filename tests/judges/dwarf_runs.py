# SPDX-License-Identifier: MIT
"""The runs with which judges of debugging sections look at a sample program.

A program is a folder with a map file, an image and databases. `cmd.txt`, where there is one, holds command lines; those
that make an ELF file with debugging sections of the map file are taken as they stand.
"""

import shlex

import judging

NEVER, AUTO, ALWAYS = MODES = ("never", "auto", "always")

# For programs without `cmd.txt`.
COMMANDS = {
    "blink": "-pN4A,KORM --code-spaces=1 --data-spaces=2 --eeprom-spaces=3 blink.hex blink.tmf "
    "--dwarf-addr-size=4 -oelf o.elf"
}


class Run:
    """One run of the program: its arguments, and what they mean to debugging sections."""

    def __init__(self, arguments, folder):
        self.arguments = arguments
        if arguments[0].startswith("@"):
            arguments = (folder / arguments[0][1:]).read_text(judging.ENCODING).split()
        values = dict(argument.split("=", 1) for argument in arguments if argument.startswith("--") and "=" in argument)
        self.address_size = int(values.get("--dwarf-addr-size", 0))
        self.ranges = values.get("--dwarf-use-ranges", NEVER)
        self.locations = values.get("--dwarf-use-loclists", NEVER)
        self.version = 2 if self.ranges == self.locations == NEVER else 3
        self.big_endian, self.fake_blocks = "-b" in arguments, "-k" in arguments
        self.silent = "-v" not in arguments
        self.inputs_and_options = [argument for argument in arguments if not argument.startswith("--dwarf-")]
        self.output = arguments[arguments.index("-oelf") + 1]
        self.mask = (1 << (8 * self.address_size)) - 1

    def __str__(self):
        return " ".join(self.arguments)


def commands_of(folder):
    """The runs of the command lines that came with a program."""
    text = COMMANDS.get(folder.name, "")
    if (folder / "cmd.txt").is_file():
        text = (folder / "cmd.txt").read_text(judging.ENCODING)
    found = []
    for line in text.splitlines():
        arguments = [argument for argument in shlex.split(line) if argument != "tarnwick"]
        of_map = "-oelf" in arguments and any(argument.endswith(".tmf") for argument in arguments)
        if arguments[0].startswith("@") or (of_map and "--disable-dwarf" not in arguments):
            found.append(Run(arguments, folder))
    if not found:
        raise ValueError(f"{folder}: no command line")
    return found


def run_with(folder, address_size, ranges, locations, options):
    """The first of those, with other options."""
    plain = commands_of(folder)[0].inputs_and_options
    lists = [f"--dwarf-use-ranges={ranges}", f"--dwarf-use-loclists={locations}"]
    before = plain[: plain.index("-oelf")]
    return Run([*before, *options, f"--dwarf-addr-size={address_size}", *lists, "-oelf", "o.elf"], folder)

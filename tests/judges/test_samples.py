#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Every sample program through the main job, without debugging sections: against the reference model byte for byte, and
against the facts that come with a program.

A program is a folder with a map file, an image and databases. `cmd.txt`, where there is one, holds command lines; those
that make an ELF file of the map file and the image are run, the first of them also with `-a`, `-b` and `-k`.
`facts.json`, where there is one, holds what must be found again in an output.
"""

import json
import shlex
import shutil

import judging
from reference_model import MapFile, Model, Options

# For programs without `cmd.txt`.
COMMANDS = {"blink": "-pN4A,KORM --code-spaces=1 --data-spaces=2 --eeprom-spaces=3 blink.hex blink.tmf -oelf o.elf"}

# Options that change nothing but debugging sections or what is told on the way.
PASSED_OVER = ("--dwarf-", "--standard-dwarf", "--disable-dwarf", "-v")

OUTPUTS = ["--disable-dwarf", "-oelf", "o.elf", "-os19", "o.s19", "-oihex", "o.ihex"]


def numbers(text):
    return {int(piece) for piece in text.split(",")}


def flag_lists(text):
    return {name: letters for name, _, letters in (piece.partition("=") for piece in text.split(","))}


class Variant:
    """One way to run a program: the arguments, and what they mean to the model."""

    def __init__(self, arguments):
        self.arguments = arguments
        self.inputs = [argument for argument in arguments if argument[0] != "-"]
        self.options = Options([], set(), set())
        for argument in arguments:
            self.read_argument(argument)

    def read_argument(self, argument):
        name, _, value = argument.partition("=")
        options = self.options
        if argument.startswith("-p"):
            options.processor_words = argument[2:].split(",")[1:]
        elif name == "--code-spaces":
            options.code_spaces = numbers(value)
        elif name == "--data-spaces":
            options.data_spaces = numbers(value)
        elif name == "--eeprom-spaces":
            options.eeprom_spaces = numbers(value)
        elif name == "--code-delta":
            options.code_delta = int(value)
        elif name == "--psect-flags":
            options.psect_flags = flag_lists(value)
        elif argument == "-a":
            options.fake_abs = True
        elif argument == "-b":
            options.big_endian = True
        elif argument[0] == "-" and argument != "-k":
            raise ValueError(f"the judge does not know the option {argument}")

    def with_flags(self, *flags):
        return Variant([argument for argument in self.arguments if argument not in flags] + list(flags))

    def key(self):
        """Equal for two variants that are one run; images are read ahead of map files wherever they stand."""
        return " ".join(sorted(self.arguments))


def variants_of(folder):
    """The plain run first. Command lines that write other formats only, or read no map file, are none."""
    text = COMMANDS.get(folder.name, "")
    if (folder / "cmd.txt").is_file():
        text = (folder / "cmd.txt").read_text(judging.ENCODING)
    found = []
    for line in text.splitlines():
        arguments = [argument for argument in shlex.split(line) if argument != "tarnwick"]
        if "-oelf" not in arguments:
            continue
        ahead = arguments[: next(i for i, argument in enumerate(arguments) if argument.startswith("-o"))]
        if {argument.rpartition(".")[2] for argument in ahead if argument[0] != "-"} == {"hex", "tmf"}:
            found.append(Variant([argument for argument in ahead if not argument.startswith(PASSED_OVER)]))
    if not found:
        raise ValueError(f"{folder}: no command line")
    found += [found[0].with_flags(*flags) for flags in (["-a"], ["-b"], ["-k"], ["-a", "-b", "-k"])]
    return list({variant.key(): variant for variant in found}.values())


def model_of(variant, folder):
    model = Model(variant.options)
    images = [name for name in variant.inputs if name.endswith(".hex")]
    for name in images:
        model.read_image((folder / name).read_text(judging.ENCODING))
    for name in variant.inputs:
        if name not in images:
            model.read_map((folder / name).read_text(judging.ENCODING))
    model.consolidate()
    return model


def declared_names(folder):
    """Every name that a node of a database of the program could bear, and more: all tokens."""
    names = set()
    for path in folder.glob("*.sdb"):
        tokens = path.read_text(judging.ENCODING).split()
        names.update(tokens)
        names.update("_" + token[1:] for token in tokens)  # statics of functions are renamed in this way
    return names


class SampleProgram:
    """The tests of any program, against the reference model and third-party readers; mixed into a class that knows its
    `folder`."""

    folder = None

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        for path in cls.folder.iterdir():
            if path.is_file():
                shutil.copyfile(path, cls.scratch / path.name)
        cls.variants = variants_of(cls.folder)
        cls.models = {variant.key(): model_of(variant, cls.folder) for variant in cls.variants}
        cls.outcomes = {}

    def outputs_of(self, variant):
        """The folder with the outputs of a variant, which is run at its first use."""
        if variant.key() not in self.outcomes:
            outcome = judging.run([judging.program(), *variant.arguments, *OUTPUTS], self.scratch)
            folder = self.scratch / f"outputs-{len(self.outcomes)}"
            folder.mkdir()
            for name in ("o.elf", "o.s19", "o.ihex"):
                if (self.scratch / name).exists():
                    (self.scratch / name).rename(folder / name)
            self.outcomes[variant.key()] = outcome, folder
        return self.outcomes[variant.key()]

    def plain(self):
        return self.outputs_of(self.variants[0])[1]

    def elf(self):
        return judging.ElfView(self.plain() / "o.elf")

    def test_every_run_says_nothing_and_succeeds(self):
        for variant in self.variants:
            with self.subTest(variant.key()):
                outcome, _ = self.outputs_of(variant)
                told = (outcome.stdout + outcome.stderr).decode(judging.ENCODING)
                self.assertEqual((outcome.returncode, told), (0, ""))

    def test_elf_is_that_of_the_model(self):
        for variant in self.variants:
            with self.subTest(variant.key()):
                _, folder = self.outputs_of(variant)
                self.assert_elf(self.models[variant.key()], folder / "o.elf")

    def test_images_are_those_of_the_model(self):
        for variant in self.variants:
            with self.subTest(variant.key()):
                _, folder = self.outputs_of(variant)
                self.assert_images(self.models[variant.key()], folder / "o.s19", folder / "o.ihex")

    def test_readers_do_not_complain(self):
        for variant in (self.variants[0], self.variants[0].with_flags("-b")):
            with self.subTest(variant.key()):
                _, folder = self.outputs_of(variant)
                self.assertEqual(judging.readelf_complaints(folder / "o.elf"), [])
                self.assertEqual(judging.llvm_readelf_complaints(folder / "o.elf"), [])
                self.assertEqual(judging.ElfView(folder / "o.elf").big_endian, variant.options.big_endian)


class SampleFacts(SampleProgram):
    """The tests of a program that comes with facts, in its plain run."""

    def facts(self):
        return json.loads((self.folder / "facts.json").read_text())

    def test_symbols(self):
        """Each symbol of the facts stands there exactly once, and there are no others."""
        facts, elf = self.facts(), self.elf()
        expected = [(symbol["name"], symbol["value"]) for symbol in facts["symbols"] if symbol.get("elf", True)]
        actual = [(name, entry["st_value"]) for name, entry in elf.symbols[1:]]
        self.assertEqual(sorted(actual), sorted(expected))
        self.assertEqual({name for name, _ in actual} & set(facts["dropped_symbols"]), set())
        for name, entry in elf.symbols[1:]:
            self.assertEqual((name, entry["st_info"]["bind"], entry["st_size"]), (name, "STB_GLOBAL", 0))

    def test_symbols_stand_in_the_segments_that_load_them(self):
        facts, elf = self.facts(), self.elf()
        entries = dict(elf.symbols)
        for symbol in facts["symbols"]:
            if not symbol.get("elf", True):
                continue
            holders = [
                segment["name"]
                for segment in facts["segments"]
                if segment["space"] == symbol["space"]
                and segment["load"] <= symbol["load"] < segment["load"] + segment["size"]
            ]
            if symbol["class"] == "ABS" or symbol["psect"] == "-":
                holders = []
            with self.subTest(symbol["name"]):
                section = elf.section_name(entries[symbol["name"]]["st_shndx"])
                self.assertIn(section, holders or ["SHN_ABS"])

    def test_symbol_types(self):
        facts, elf = self.facts(), self.elf()
        types = {name: entry["st_info"]["type"] for name, entry in elf.symbols[1:]}
        functions = {function["label"] for function in facts["functions"]} & types.keys()
        # A static of a function has an assembler name that the database does not look it up by.
        variables = {one["label"] for one in facts["variables"] if one["scope"] == "file"} & types.keys()
        self.assertEqual({types[name] for name in functions}, {"STT_FUNC"} if functions else set())
        self.assertEqual({types[name] for name in variables}, {"STT_OBJECT"} if variables else set())

        labels = {record["name"] for record in self.map_file().dabs}
        unknown = types.keys() - declared_names(self.folder)
        self.assertGreater(len(unknown), 0)
        for name in unknown:
            self.assertEqual((name, types[name]), (name, "STT_OBJECT" if name in labels else "STT_NOTYPE"))

    def map_file(self):
        (path,) = self.folder.glob("*.tmf")
        return MapFile(path.read_text(judging.ENCODING))

    def test_segments(self):
        facts, elf = self.facts(), self.elf()
        loads = dict(elf.loads())
        self.assertLessEqual({segment["name"] for segment in facts["segments"]}, loads.keys())
        for segment in facts["segments"]:
            with self.subTest(segment["name"]):
                header, delta = loads[segment["name"]], segment["delta"]
                actual = (header["p_vaddr"], header["p_paddr"], header["p_memsz"])
                self.assertEqual(actual, (segment["link"] // delta, segment["load"] // delta, segment["size"]))
                section = elf.section(segment["name"])
                self.assertEqual((section["sh_addr"], section["sh_size"]), (header["p_paddr"], segment["size"]))
                in_data = segment["space"] in self.variants[0].options.data_spaces
                self.assertEqual(section["sh_type"], "SHT_NOBITS" if in_data else "SHT_PROGBITS")
                in_eeprom = segment["space"] in self.variants[0].options.eeprom_spaces
                self.assertEqual(bool(section["sh_flags"] & 0x20000000), in_eeprom)

    def test_notes(self):
        facts, elf = self.facts(), self.elf()
        special = {"codecov_info": ".codecov_info", "codecov_info_hdr": ".codecov_info.hdr"}
        for note in facts["notes"]:
            with self.subTest(note["name"]):
                name = special.get(note["name"], "." + note["name"])
                self.assertEqual(elf.bytes_of(name).hex(), note["hex"])
                self.assertEqual((elf.section(name)["sh_flags"], elf.section(name)["sh_addr"]), (0, 0))

    def check_image(self, image):
        """The addresses are those of the facts, the bytes those of the image that went in."""
        addresses = [start + i for start, length in self.facts()["image"]["ranges"] for i in range(length)]
        self.assertEqual(sorted(image), addresses)
        (path,) = self.folder.glob("*.hex")
        source = judging.intel_hex_bytes(path.read_text(judging.ENCODING))
        self.assertEqual(image, source)

    def test_the_segments_hold_the_image(self):
        deltas = {segment["name"]: segment["delta"] for segment in self.facts()["segments"]}
        self.check_image(self.elf().image(lambda section: deltas.get(section, 1)))

    def test_the_s_records_hold_the_image(self):
        self.check_image(judging.s_record_bytes((self.plain() / "o.s19").read_text()))


judging.judge_samples(
    __name__, lambda folder: SampleFacts if (folder / "facts.json").is_file() else SampleProgram
)


if __name__ == "__main__":
    judging.main()

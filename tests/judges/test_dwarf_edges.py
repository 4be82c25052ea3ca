#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""A program of corner cases that no compiler output of the samples holds, entry by entry in the order of the section.

The expected entries were worked out by hand.
"""

import judging
from dwarf_reader import DwarfFile

FILE = "/edge/edge.c"

MAP = f"""%TMF
%PSECTS
$edge.o
text CODE 0 100 100 20 1 1
bss BSS 1 300 300 2 1 1
%UNUSED
%LINETAB
$edge.o
100 text CODE >5:{FILE}
108 text CODE >7:{FILE}
10C text CODE >8:{FILE}
110 text CODE >9:{FILE}
118 text CODE >10:{FILE}
%SYMTAB
_f 100 0 CODE 0 text edge.o
__end_of_f 120 0 CODE 0 text edge.o
_d 300 0 BSS 1 bss edge.o
_inlined$_g 5 0 ABS 0 - -
_inlined$_h 1 0 ABS 0 - -
%SPLITSTAB
%DABS
%SEGMENTS
code 0 100 100 20 1
data 1 300 300 2 1
%NOTES
"""

DATABASE = f"""[p AVOCET KORM STD_MODE IEEE_FLT ]
[d frameptr 4 ]
"1 {FILE}
"2
[v _b3 b3 `b 1 s 0 @83 ]
"3
[v _b5 b5 `b 1 e 0 @85 ]
"4
[v _vcv vcv `*VCv 1 s 2 @100 ]
"5
[v _f f `(Ri 1 e 0 0 ]
{{
"6
[v p p `i 1 p 2 3 ]
"7
{{
"8
[v x x `i 1 a 2 4 ]
"9
}}
2
"10
}}
8
"11
[s S1 s 2 Ni m 0 2 ]
"12
[v _s s `S1 1 s 2 @200 ]
"13
[v _d d `i 0 e 2 0 ]
"14
[e E1 en A -1 B 2 ]
"15
[v _e e `E1 1 s 2 @202 ]
"16
[v vt vt `v 1 t 0 ]
"17
[v _z z `[0]i 1 s 0 @204 ]
"18
[v _fp fp `*(v 1 s 1 @206 ]
"19
[s S2 node 3 *S2 next 0 1 i v 1 2 uc w 0 1 :2:0 ]
"20
[v _n n `S2 1 s 3 @210 ]
[v _pe pe `*.28i 1 s 1 @220 ]
"21
[v _g g `T(v 1 e 0 0 ]
{{
"22
}}
"23
[v _h h `(v 1 e 0 0 ]
{{
"24
{{
[v q q `i 1 a 2 0 ]
"25
}}
"26
}}
"""

# The bits share a byte, 10, and have a type each, for a position is part of a type. Two qualifiers over void: the inner
# one stands first and has no type, the outer one refers to nothing. The pointer is of two bytes, since it may lead to
# the program memory.
BEFORE = """\
base_type name=bit byte_size=1 encoding=7 bit_size=1 bit_offset=3
variable name=b3 decl_file=1 decl_line=2 type=base_type:bit location=addr:10
base_type name=bit byte_size=1 encoding=7 bit_size=1 bit_offset=5
variable name=b5 decl_file=1 decl_line=3 type=base_type:bit external=1 location=addr:10
const_type
volatile_type type=const_type
pointer_type type=volatile_type byte_size=2 address_class=0
variable name=vcv decl_file=1 decl_line=4 type=pointer_type location=addr:100
"""
# A reentrant function counts from its frame: -5 is 3 less its 8 bytes, -6 is 4 less its 8 bytes and the block's 2. The
# qualifier of what it returns has no form, so its type is what is qualified. That is written behind the function, as
# are all types that only a function, a block or a struct asks for.
FUNCTION = """\
subprogram name=f type=base_type:int external=1 decl_file=1 decl_line=5 {code:100:11f} frame_base=addr:4 inline=0
. formal_parameter name=p decl_file=1 decl_line=6 type=base_type:int location=frame:-5
. lexical_block {code:108:110}
. . variable name=x decl_file=1 decl_line=8 type=base_type:int location=frame:-6
base_type name=int byte_size=2 encoding=5
"""
# The member has a qualifier without a form. What is declared only has no location. An enumeration without a type has no
# size. A typedef of void names nothing. An array of no element has the upper bound -1. A bit field of no width is a
# plain member. The pointer within the struct comes behind the variable that brought the struct.
BEHIND = """\
structure_type name=s byte_size=2 decl_file=1 decl_line=11
. member name=m type=base_type:int data_member_location=plus:0
variable name=s decl_file=1 decl_line=12 type=structure_type:s location=addr:200
variable name=d decl_file=1 decl_line=13 type=base_type:int external=1 declaration=1
enumeration_type name=en decl_file=1 decl_line=14
. enumerator name=A const_value=4294967295
. enumerator name=B const_value=2
variable name=e decl_file=1 decl_line=15 type=enumeration_type:en location=addr:202
typedef name=vt decl_file=1 decl_line=16
array_type type=base_type:int
. subrange_type upper_bound=4294967295
variable name=z decl_file=1 decl_line=17 type=array_type location=addr:204
subroutine_type
pointer_type type=subroutine_type byte_size=1 address_class=0
variable name=fp decl_file=1 decl_line=18 type=pointer_type location=addr:206
structure_type name=node byte_size=3 decl_file=1 decl_line=19
. member name=next type=pointer_type data_member_location=plus:0
. member name=v type=base_type:int data_member_location=plus:1
. member name=w type=base_type:unsigned char data_member_location=plus:0
variable name=n decl_file=1 decl_line=20 type=structure_type:node location=addr:210
"""
# Of what a struct asks for, the predefined types come first. A pointer with a class has the size of its class.
DELAYED = """\
base_type name=unsigned char byte_size=1 encoding=8
pointer_type type=structure_type:node byte_size=1 address_class=0
pointer_type type=base_type:int byte_size=1 address_class=28
variable name=pe decl_file=1 decl_line=20 type=pointer_type location=addr:220
"""
# Functions without code of their own: written only where a function may have no range. 3 is for one that was declared
# `inline`. Its type is the one below its qualifier, the function itself. Blocks have no code, variables no place.
INLINED = """\
subprogram name=g type=subroutine_type external=1 decl_file=1 decl_line=21 inline=3
subprogram name=h external=1 decl_file=1 decl_line=23 inline=1
. lexical_block
. . variable name=q decl_file=1 decl_line=24 type=base_type:int
"""


def value_text(value):
    if isinstance(value, tuple):
        return f"{value[0]}:{value[1]}"
    if hasattr(value, "tag"):
        return f"{value.tag}:{value.get('name')}" if value.get("name") else value.tag
    return str(value)


def lines_of(die, depth=0):
    """An entry and those below it, a line each; codes that are lists of ranges show their ranges."""
    pieces = [". " * depth + die.tag]
    for name, _ in die.abbreviation.attributes:
        if name == "ranges":
            pieces.append("ranges=" + ",".join(f"{low:x}:{behind:x}" for low, behind in die.ranges))
        elif name in ("low_pc", "high_pc"):
            pieces.append(f"{name}={die.get(name):x}")
        elif name != "sibling":
            pieces.append(f"{name}={value_text(die.get(name))}")
    found = [" ".join(pieces)]
    for child in die.children:
        found += lines_of(child, depth + 1)
    return found


def with_codes(text, mode):
    """The entries with their code in the form that a mode of `--dwarf-use-ranges=` gives it: a high pc is the last
    address, the end of a range is the one behind it."""
    for low, high in (("100", "11f"), ("108", "110")):
        behind = f"{int(high, 16) + 1:x}"
        code = f"ranges={low}:{behind}" if mode == "always" else f"low_pc={low} high_pc={high}"
        text = text.replace(f"{{code:{low}:{high}}}", code)
    return text


ARGUMENTS = "-pN4A,KORM --code-spaces=0 --data-spaces=1 --eeprom-spaces=2 edge.tmf -oelf o.elf".split()


class Edges(judging.Judge):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        for name, text in (("edge.tmf", MAP), ("edge.sdb", DATABASE)):
            (cls.scratch / name).write_text(text)

    def dwarf(self, *options):
        self.run_silently([*ARGUMENTS, *options])
        dwarf = DwarfFile((self.scratch / "o.elf").read_bytes())
        self.assertEqual(dwarf.faults, [])
        self.assertEqual([unit.die.get("name") for unit in dwarf.units], [FILE])
        return dwarf

    def check(self, mode, *options):
        dwarf = self.dwarf(f"--dwarf-use-ranges={mode}", *options)
        (unit,) = dwarf.units
        expected = BEFORE + FUNCTION + BEHIND + DELAYED + (INLINED if mode != "never" else "")
        actual = [line for child in unit.die.children for line in lines_of(child)]
        self.assertEqual(actual, with_codes(expected, mode).splitlines())
        return unit

    def test_entries(self):
        for size in (2, 4, 8):
            for order in ([], ["-b"]):
                with self.subTest(size=size, order=order):
                    self.check("never", f"--dwarf-addr-size={size}", *order)

    def test_entries_with_range_lists(self):
        for mode in ("auto", "always"):
            with self.subTest(mode):
                self.check(mode, "--dwarf-addr-size=4")

    def test_unit(self):
        unit = self.check("never", "--dwarf-addr-size=4")
        line = lines_of(unit.die)[0].replace(unit.die.get("producer"), "P")
        self.assertEqual(line, f"compile_unit stmt_list=0 producer=P language=1 name={FILE}")
        unit = self.check("auto", "--dwarf-addr-size=4")
        self.assertEqual((unit.die.get("low_pc"), unit.die.get("high_pc")), (0x100, 0x11F))
        unit = self.check("always", "--dwarf-addr-size=4")
        self.assertEqual(unit.die.ranges, [(0x100, 0x120)])

    def test_public_names(self):
        unit = self.check("never", "--dwarf-addr-size=4")
        self.assertEqual([name for _, name in unit.names], ["b5", "f", "d"])
        unit = self.check("auto", "--dwarf-addr-size=4")
        self.assertEqual([name for _, name in unit.names], ["b5", "f", "d", "g", "h"])

    def test_address_sizes_that_are_mended(self):
        """Three bytes become four and six become eight, without a word."""
        for given, taken in ((3, 4), (5, 8), (6, 8), (7, 8)):
            with self.subTest(given):
                self.assertEqual(self.dwarf(f"--dwarf-addr-size={given}").address_size, taken)

    def test_standard_dwarf_changes_nothing(self):
        contents = []
        for options in ([], ["--standard-dwarf"]):
            self.dwarf("--dwarf-addr-size=4", *options)
            contents.append((self.scratch / "o.elf").read_bytes())
        self.assert_same_bytes(contents[0], contents[1], "the ELF file")

    def test_disabled(self):
        self.run_silently([*ARGUMENTS, "--disable-dwarf"])
        self.assertEqual(DwarfFile((self.scratch / "o.elf").read_bytes()).sections, {})

    def test_address_sizes_that_are_refused(self):
        """The option is required, and more than eight bytes are refused; nothing is left of the output."""
        self.dwarf("--dwarf-addr-size=4")
        for size, told in ((None, 0), (0, 0), (9, 9), (256 + 9, 9)):
            with self.subTest(size):
                option = [] if size is None else [f"--dwarf-addr-size={size}"]
                outcome = judging.run([judging.program(), *ARGUMENTS, *option], self.scratch)
                self.assertNotEqual(outcome.returncode, 0)
                self.assertIn(f"can't handle address size ({told})".encode(), outcome.stdout + outcome.stderr)
                self.assertFalse((self.scratch / "o.elf").exists())


if __name__ == "__main__":
    judging.main()

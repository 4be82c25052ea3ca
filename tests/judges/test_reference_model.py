#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""The reference model against results that were worked out by hand: a wrong judge would be worse than none."""

import unittest

import judging
from reference_model import (
    EXEC,
    NOSPACE,
    WRITE,
    Block,
    HashTable,
    Model,
    Options,
    Segment,
    compare,
    hash_string,
    quicksort,
    skip_list_order,
)
from reference_outputs import os_abi, write_elf, write_intel_hex, write_s_records


def new_model(**settings):
    return Model(Options(["KORH"], {1}, {2}, {3}, **settings))


def map_text(psects="", symbols="", dabs="", segments="", notes=""):
    return (
        f"%TMF\n%PSECTS\n{psects}%UNUSED\n%LINETAB\n%SYMTAB\n{symbols}%SPLITSTAB\n%DABS\n{dabs}"
        f"%SEGMENTS\n{segments}%NOTES\n{notes}"
    )


def placed(model):
    return [(segment.name, segment.addr, segment.load, segment.size) for segment in model.segments]


class Containers(unittest.TestCase):
    def test_hash_of_strings(self):
        self.assertEqual(hash_string(""), 5381)
        self.assertEqual(hash_string("a"), 5381 * 33 + 97)
        self.assertEqual(hash_string("ab"), (5381 * 33 + 97) * 33 + 98)
        # A character above 127 counts as a negative number.
        self.assertEqual(hash_string("\xff"), 5381 * 33 - 1)

    def test_equal_hashes_are_told_apart_by_their_text(self):
        # "aB" and "b!" have one hash: 97 * 33 + 66 = 98 * 33 + 33.
        self.assertEqual(hash_string("aB"), hash_string("b!"))
        self.assertEqual(skip_list_order(["b!", "aB", ""]), ["", "aB", "b!"])

    def test_a_hash_table_keeps_the_first_value_and_the_order_of_a_chain(self):
        table = HashTable(1)
        for key, value in [("z", 1), ("a", 2), ("z", 3)]:
            table.insert(key, value)
        self.assertEqual((table.get("z"), table.values()), (1, [1, 2]))

    def test_where_the_sort_leaves_equal_elements(self):
        # All are equal to the pivot, so the scans stop everywhere: 0 and 3 change places, then 1 and 2. The halves
        # {3, 2} and {1, 0} are exchanged in the same way.
        items = [(5, 0), (5, 1), (5, 2), (5, 3)]
        quicksort(items, lambda left, right: compare(left[0], right[0]))
        self.assertEqual([item[1] for item in items], [2, 3, 0, 1])

    def test_the_sort_sorts(self):
        for items in ([], [1], [2, 1], [3, 1, 2], [5, 4, 3, 2, 1], [1, 3, 2, 3, 1, 2, 0]):
            result = list(items)
            quicksort(result, compare)
            self.assertEqual(result, sorted(items))


class Segments(unittest.TestCase):
    def test_ranges_of_two_flag_words_make_two_segments(self):
        model = new_model(psect_flags={"b": "wx"})
        model.read_map(
            map_text(
                "$o\na C 1 0 0 4 1 1\nb C 1 8 8 2 1 1\nc C 1 C C 9 1 1\n",
                segments="s 1 0 0 10 1\nb 1 80 80 1 1\n",
            )
        )
        # `c` straddles the end of `s` and joins nothing; the hole between `a` and `b` is not counted. "b" comes first
        # (its hash is lower) and takes its name, so the second half of `s` becomes "b_1".
        self.assertEqual(placed(model), [("b", 0x80, 0x80, 1), ("s", 0, 0, 4), ("b_1", 8, 8, 2)])
        self.assertEqual([segment.flags for segment in model.segments], [0, WRITE, WRITE | EXEC])

    def test_deltas(self):
        model = new_model()
        model.read_map(map_text("$o\na C 1 10 20 4 2 2\n", "x 21 0 C 1 a o\n", segments="s 1 10 40 4 2\n"))
        self.assertEqual(placed(model), [("s", 0x20, 0x40, 8)])
        self.assertEqual(model.symbols[0].value, 0x10)  # 0x21 bytes are 0x10 units
        self.assertEqual(model.symbols[0].seg, 0)  # its load address 0x21 is in no segment

    def test_symbols(self):
        symbols = (
            "__Lp 4 0 - 1 - -\n__Hp 8 0 - 1 - -\n__Lq 0 0 - 1 - -\n__Hq 0 0 - 1 - -\n"
            "__Lr 1 0 - 1 - -\n__Hr 0 0 - 1 - -\n"
            "__LOGp 0 0 C 1 p o\n__Bp 0 0 - 1 - -\nnear 5 -5 C 1 p o\nabs 5 0 ABS 1 p o\nlabel 6 0 - 1 - -\n"
        )
        text = map_text("$o\np C 1 0 0 8 1 1\n", symbols, "label 2 6 1\n- 2 7 1\n- 1 8 1\n- 2 9 1\n", "s 1 0 0 8 1\n")
        model = new_model()
        model.read_map(text)
        found = {symbol.name: (symbol.seg, symbol.file) for symbol in model.symbols}
        # Dropped: the bounds of a known psect (p) and of an empty one (q), and `__B` beside them. `label` names
        # absolute data, so a segment is sought for it although it has no class. File 1 is the object of the psects.
        self.assertEqual(
            found, {"__Lr": (0, 2), "__Hr": (0, 2), "__LOGp": (1, 1), "near": (1, 1), "abs": (0, 1), "label": (1, 2)}
        )
        # Unlabelled ones first; the one outside the data spaces gets no segment and uses no number.
        self.assertEqual([segment.name for segment in model.segments], ["s", "dabs$0", "dabs$1", "dabs$label"])

        faked = new_model(fake_abs=True)
        faked.read_map(text)
        self.assertEqual((faked.segments[0].name, faked.segments[0].index), ("$FAKE_ABS2", 0))
        self.assertEqual({symbol.name: symbol.seg for symbol in faked.symbols}["abs"], 1)


class Consolidation(unittest.TestCase):
    @staticmethod
    def model_with(segments, blocks):
        model = new_model()
        for name, load, size in segments:
            model.add_segment(Segment(name, len(model.segments) + 1, load, load, size, WRITE, 1, 1))
        model.data = [Block(address, data) for address, data in blocks]
        model.consolidate()
        return model

    def test_a_hole_splits_a_segment(self):
        model = self.model_with([("s", 0, 10), ("t", 20, 4)], [(0, b"ab"), (20, b"wxyz"), (6, b"cd"), (2, b"e")])
        self.assertEqual(placed(model), [("s$0", 0, 0, 3), ("t", 20, 20, 4), ("s$1", 6, 6, 2)])
        self.assertEqual([(block.seg, block.data) for block in model.data], [(1, b"abe"), (3, b"cd"), (2, b"wxyz")])

    def test_a_block_is_cut_at_the_bounds_of_segments(self):
        model = self.model_with([("s", 4, 4)], [(2, b"abcdefgh"), (10, b"i")])
        # Head and tail go to the end of the list, so the block at 10 is stray before them. The tail ends where that one
        # begins, but a stray segment grows at its end only.
        self.assertEqual(
            placed(model),
            [("s", 4, 4, 4), ("_stray_data_0_", 10, 10, 1), ("_stray_data_1_", 2, 2, 2), ("_stray_data_2_", 8, 8, 2)],
        )
        self.assertEqual([block.data for block in model.data], [b"cdef", b"i", b"ab", b"gh"])

    def test_a_stray_segment_grows_at_its_end(self):
        model = self.model_with([], [(2, b"ab"), (4, b"c"), (6, b"d"), (5, b"e")])
        names = [f"_stray_data_{number}_" for number in range(3)]
        self.assertEqual(placed(model), [(names[0], 2, 2, 3), (names[1], 6, 6, 1), (names[2], 5, 5, 1)])

    def test_the_only_block_splits_nothing(self):
        self.assertEqual(placed(self.model_with([("s", 0, 10)], [(2, b"ab")])), [("s", 0, 0, 10)])

    def test_a_lone_narrow_block_shrinks_its_segment(self):
        model = self.model_with([("s", 0, 10), ("t", 20, 1)], [(2, b"ab"), (20, b"c")])
        self.assertEqual(placed(model), [("s$0", 2, 2, 2), ("t", 20, 20, 1)])


class Images(unittest.TestCase):
    @staticmethod
    def model_of(*blocks):
        model = new_model()
        model.data = [Block(address, data) for address, data in blocks]
        return model

    def test_intel_hex(self):
        self.assertEqual(write_intel_hex(self.model_of()), ":00000001FF\n")
        # 2 + FF + F8 = 1F9, and with the data bytes 1 and 2 it is 1FC: the checksum is 04.
        self.assertEqual(write_intel_hex(self.model_of((0xFFF8, b"\1\2"))), ":02FFF800010204\n:00000001FF\n")
        # 3 + 00 + 30 + 06 = 36 and its negative has eight digits. 1 + 0 + 0 + 0 negated is FF.
        text = write_intel_hex(self.model_of((0x300000, b"\0")))
        self.assertEqual(text, ":020000040030FFFFFFCA\n:0100000000FF\n:00000001FF\n")
        # The sum of FA and 6 is 0, which prints as two digits.
        self.assertTrue(write_intel_hex(self.model_of((0xFA0000, b"\0"))).startswith(":0200000400FA00\n"))

    def test_a_line_runs_across_a_boundary_under_the_old_upper_address(self):
        lines = write_intel_hex(self.model_of((0xFFF8, bytes(17)))).split("\n")
        self.assertEqual([line[:9] for line in lines[:3]], [":10FFF800", ":02000004", ":01000800"])

    def test_s_records(self):
        self.assertEqual(write_s_records(self.model_of((5, b""))), "")
        lines = write_s_records(self.model_of((0xFFFF, bytes(17)), (0x1000000, b"\1"))).split("\n")
        # 13 + FF + FF = 211, 5 + 1 + 0 + 0F = 15, 6 + 1 + 1 = 8; the complements are EE, EA and F7.
        self.assertEqual(lines[0], "S113FFFF" + "00" * 16 + "EE")
        self.assertEqual(lines[1:], ["S20501000F00EA", "S3060100000001F7", ""])


class Elf(unittest.TestCase):
    def test_os_abi(self):
        self.assertEqual(os_abi(["KORM"]), 66)
        self.assertEqual(os_abi(["18F0", "KOR18", "KORHX"]), 134)
        self.assertEqual(os_abi(["KOR"]), 32)
        self.assertEqual(os_abi(["none"]), 0)

    def test_the_empty_program(self):
        elf = write_elf(new_model())
        # 52 bytes of header, ".strtab" of 1, ".symtab" of 16, ".shstrtab" of 1 + 8 + 8 + 10 bytes, four section headers
        # and one program header.
        self.assertEqual(len(elf), 52 + 1 + 16 + 27 + 4 * 40 + 32)
        self.assertEqual(elf[:8], b"\x7fELF\x01\x01\x01\x82")
        self.assertEqual(elf[32:36], bytes([96, 0, 0, 0]))
        self.assertEqual(elf[36:40], bytes([5, 0, 0, 0]))
        self.assertEqual(elf[44:52], bytes([1, 0, 40, 0, 4, 0, 3, 0]))

    def test_big_endian(self):
        elf = write_elf(new_model(big_endian=True))
        self.assertEqual((elf[5], elf[16:20], elf[36:40]), (2, bytes([0, 2, 0, 204]), bytes([0, 0, 0, 5])))

    def test_a_segment_without_room_in_the_image(self):
        model = new_model()
        model.segments = [Segment("s", 1, 0, 0, 4, WRITE | NOSPACE, 1, 2)]
        elf = write_elf(model)
        section = elf[int.from_bytes(elf[32:36], "little") + 40 :][:40]
        self.assertEqual([section[4], section[8], section[16], section[20]], [8, 3, 52, 4])


if __name__ == "__main__":
    judging.main()

// SPDX-License-Identifier: MIT
// The symbols of a COFF dump: their rows, sizes and types.
#include <cstdint>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "tests/unit/tarnwick/vcoff_dump_testing.h"

namespace {

using namespace vcoff_dump_testing;

// --- rows of symbols ------------------------------------------------------------------------------------------------

class vcoff_dump_rows : public vcoff_dump_test {};

TEST_F(vcoff_dump_rows, labels_of_classes)
{
    const auto label = [](std::uint32_t cls) { return row({.cls = cls}).substr(7, 24); };
    EXPECT_EQ(label(255), "physical end of function");
    EXPECT_EQ(label(0), "              null class");
    EXPECT_EQ(label(1), "      automatic variable");
    EXPECT_EQ(label(2), "         external symbol");
    EXPECT_EQ(label(3), "                  static");
    EXPECT_EQ(label(4), "       register variable");
    EXPECT_EQ(label(5), "     external definition");
    EXPECT_EQ(label(6), "                   label");
    EXPECT_EQ(label(7), "         undefined label");
    EXPECT_EQ(label(8), "     member of structure");
    EXPECT_EQ(label(9), "       function argument");
    EXPECT_EQ(label(10), "           structure tag");
    EXPECT_EQ(label(11), "         member of union");
    EXPECT_EQ(label(12), "               union tag");
    EXPECT_EQ(label(13), "         type definition");
    EXPECT_EQ(label(14), "        undefined static");
    EXPECT_EQ(label(15), "         enumeration tag");
    EXPECT_EQ(label(16), "   member of enumeration");
    EXPECT_EQ(label(17), "      register parameter");
    EXPECT_EQ(label(18), "               bit field");
    EXPECT_EQ(label(19), "           auto argument");
    EXPECT_EQ(label(20), "dummy entry (end of bloc"); // cut
    EXPECT_EQ(label(100), "              .bb or .eb");
    EXPECT_EQ(label(101), "              .bf or .ef");
    EXPECT_EQ(label(102), "        end of structure");
    EXPECT_EQ(label(103), "               file name");
    EXPECT_EQ(label(104), "line # reformatted as sy");
    EXPECT_EQ(label(105), "           duplicate tag");
    EXPECT_EQ(label(106), "ext symbol in dmert publ");
    EXPECT_EQ(label(107), "             end of file");
    EXPECT_EQ(label(108), " absolute listing toggle");
    EXPECT_EQ(label(109), "                 section");
    EXPECT_EQ(label(127), "       weak symbol (GNU)");
}

TEST_F(vcoff_dump_rows, every_other_class_is_unknown)
{
    for (std::uint32_t cls = 0; cls < 256; ++cls) {
        if (cls <= 20 || (cls >= 100 && cls <= 109) || cls == 127 || cls == 255) {
            continue;
        }
        const std::string label = "??Unknown (" + std::to_string(cls) + ")";
        EXPECT_EQ(row({.cls = cls}), "    0:\t" + std::string(24 - label.size(), ' ') + label + " 0 0[1]\t\n");
    }
}

TEST_F(vcoff_dump_rows, what_rows_tell_by_class)
{
    // Without auxiliary entry; the type is a pointer to char, so size and count are always the same.
    const auto text = [](std::uint32_t cls) {
        const std::string output = row({.value = 0xAB, .section = 1, .type = 0x22, .cls = cls});
        EXPECT_EQ(output.substr(0, 7), "    0:\t");
        EXPECT_EQ(output.substr(31, 8), " 0 2[1]\t");
        return output.substr(39);
    };
    const auto expect = [&](std::initializer_list<std::uint32_t> classes, const std::string &expected) {
        for (const std::uint32_t cls : classes) {
            EXPECT_EQ(text(cls), expected) << cls;
        }
    };
    expect({0, 10, 12, 15, 102, 107}, "n\n");
    expect({1, 4, 8, 9, 11, 13, 16, 17, 19}, "n = AB: pointer to char\n");
    expect({2, 3, 6, 127}, "n = AB: code pointer to char\n");
    expect({18, 109}, "n = AB\n");
    expect({100, 101}, "n = AB: code\n");
    expect({108}, "n: AB\n");
    expect({103, 5, 7, 14, 20, 104, 105, 106, 255}, "\n");
}

TEST_F(vcoff_dump_rows, what_rows_tell_of_auxiliary_entries)
{
    // Tag 0x01020304 or section size, line or relocations 0x0506, size or lines 0x0708, index 0xFFFFFFFE.
    const std::string aux = le32(0x01020304) + le16(0x0506) + le16(0x0708) + zeros(4) + le32(0xFFFFFFFE) + zeros(4);
    const auto text = [&](std::uint32_t cls) {
        const std::string output = row({.value = 0xAB, .section = 2, .type = 12, .cls = cls, .aux = 1}, aux);
        EXPECT_EQ(output.substr(31, 8), " 1 1[1]\t");
        return output.substr(39);
    };
    for (const std::uint32_t cls : {10U, 12U, 15U, 102U}) {
        EXPECT_EQ(text(cls), "n: tag 16909060, size 1800, index 4294967294\n") << cls;
    }
    EXPECT_EQ(text(18), "n = AB: size 1800\n");
    for (const std::uint32_t cls : {100U, 101U}) {
        EXPECT_EQ(text(cls), "n = AB: a_long_section: line 1286, index 4294967294\n") << cls;
    }
    EXPECT_EQ(text(109), "n = AB: size 1020304, relocs 1286, lines 1800\n");
    // The others tell what they tell without one.
    EXPECT_EQ(text(0), "n\n");
    EXPECT_EQ(text(107), "n\n");
    EXPECT_EQ(text(108), "n: AB\n");
    EXPECT_EQ(text(1), "n = AB: uchar\n");
    EXPECT_EQ(text(2), "n = AB: a_long_section uchar\n");
    EXPECT_EQ(text(5), "\n");
}

TEST_F(vcoff_dump_rows, relocations_and_lines_of_sections_are_positive)
{
    const std::string aux = zeros(4) + le16(0xFFFF) + le16(0x8000) + zeros(12);
    EXPECT_EQ(row({.cls = 109, .aux = 1}, aux).substr(39), "n = 0: size 0, relocs 65535, lines 32768\n");
}

TEST_F(vcoff_dump_rows, file_entries)
{
    const std::string start = "    0:\t               file name 1 0[1]\t";
    EXPECT_EQ(row({.name = short_name(".file"), .cls = 103, .aux = 1}, aux_with(0, le32(19))),
              start + "source_file.c [0]\n");
    EXPECT_EQ(row({.cls = 103, .aux = 1}, aux_with(0, le32(26) + le32(0xFFFFFFFF))), start + "file.c [4294967295]\n");
    EXPECT_EQ(row({.cls = 103, .aux = 1}, aux_with(0, le32(1000))), start + " [0]\n"); // outside the table
}

TEST_F(vcoff_dump_rows, listing_toggles)
{
    const auto text = [](const std::string &name) {
        return row({.name = short_name(name), .value = 0x1F, .cls = 108}).substr(39);
    };
    EXPECT_EQ(text(".list"), "ON: 1F\n");
    EXPECT_EQ(text(".nolist"), "OFF: 1F\n");
    EXPECT_EQ(text(".List"), ".List: 1F\n");
    EXPECT_EQ(text(".lis"), ".lis: 1F\n");
    EXPECT_EQ(text(""), "!: 1F\n"); // offset 0: the size of the string table, 33, as text
}

TEST_F(vcoff_dump_rows, sections_of_symbols)
{
    const auto text = [](std::uint32_t section) { return row({.section = section, .cls = 2}).substr(39); };
    EXPECT_EQ(text(0), "n = 0: (abs) null\n");
    EXPECT_EQ(text(1), "n = 0: code null\n");
    EXPECT_EQ(text(2), "n = 0: a_long_section null\n");
    EXPECT_EQ(text(3), "n = 0: (abs) null\n");
    EXPECT_EQ(text(0xFFFE), "n = 0: (abs) null\n");
    EXPECT_EQ(text(0xFFFF), "n = 0: (abs) null\n");
}

TEST_F(vcoff_dump_rows, names_of_eight_characters_and_more)
{
    EXPECT_EQ(row({.name = "12345678", .value = 0xFFFFFFFF, .cls = 6}).substr(39), "12345678 = FFFFFFFF: (abs) null\n");
    EXPECT_EQ(row({.name = long_name(19), .cls = 6}).substr(39), "source_file.c = 0: (abs) null\n");
    EXPECT_EQ(row({.name = long_name(33), .cls = 6}).substr(39), " = 0: (abs) null\n"); // outside the table
}

TEST_F(vcoff_dump_rows, indices_of_rows)
{
    const std::string symbols = symbol_fields{.aux = 2}.bytes() + zeros(40) + symbol_fields{.aux = 1}.bytes() +
                                zeros(20) + symbol_fields{}.bytes();
    EXPECT_EQ(rows(symbols), "    0:\t              null class 2 0[1]\tn\n"
                             "    3:\t              null class 1 0[1]\tn\n"
                             "    5:\t              null class 0 0[1]\tn\n");
}

TEST_F(vcoff_dump_rows, only_the_first_auxiliary_entry_says_anything)
{
    EXPECT_EQ(row({.cls = 10, .aux = 2}, aux_with(6, le16(7)) + aux_with(6, le16(9))),
              "    0:\t           structure tag 2 0[1]\tn: tag 0, size 7, index 0\n");
}

TEST_F(vcoff_dump_rows, wide_indices)
{
    std::string symbols;
    for (int i = 0; i < 394; ++i) {
        symbols += symbol_fields{.aux = 255}.bytes() + zeros(255 * 20);
    }
    const std::string output = rows(symbols);
    EXPECT_EQ(output.substr(output.rfind('\n', output.size() - 2) + 1),
              "100608:\t              null class 255 0[1]\tn\n");
}

// --- sizes and counts -----------------------------------------------------------------------------------------------

class vcoff_dump_sizes : public vcoff_dump_test {
protected:
    // As the row shows it; without auxiliary entry.
    static std::string plain(std::uint32_t type) { return shown({.type = type, .cls = 5}, ""); }
    // With one that tells this size.
    static std::string with_aux(std::uint32_t type, std::uint32_t size)
    {
        return shown({.type = type, .cls = 5, .aux = 1}, aux_with(6, le16(size)));
    }

private:
    static std::string shown(const symbol_fields &symbol, const std::string &aux)
    {
        const std::string output = row(symbol, aux);
        return output.substr(34, output.find('\t', 34) - 34);
    }
};

TEST_F(vcoff_dump_sizes, of_base_types)
{
    constexpr std::uint32_t SIZES[] = {0, 0, 1, 2, 2, 4, 3, 4, 0, 0, 0, 0, 1, 2, 2, 4, 8, 3, 3, 8, 8};
    for (std::uint32_t type = 0; type < std::size(SIZES); ++type) {
        const std::string expected = std::to_string(SIZES[type]) + "[1]";
        EXPECT_EQ(plain(type), expected) << type;
        EXPECT_EQ(with_aux(type, 99), type >= 8 && type <= 10 ? "99[1]" : expected) << type;
    }
    for (std::uint32_t type = 21; type < 32; ++type) {
        EXPECT_EQ(plain(type), "0[1]") << type;
        EXPECT_EQ(with_aux(type, 99), "0[1]") << type;
    }
}

TEST_F(vcoff_dump_sizes, of_pointers)
{
    EXPECT_EQ(plain(0x20 + 5), "2[1]");
    EXPECT_EQ(plain(0x20 + 8), "2[1]"); // nothing tells of the structure
    EXPECT_EQ(with_aux(0x20 + 5, 99), "2[1]");
    EXPECT_EQ(with_aux(0x20 + 8, 99), "99[1]");
    EXPECT_EQ(with_aux(0x20 + 9, 99), "99[1]");
    EXPECT_EQ(with_aux(0x20 + 10, 99), "99[1]");
    EXPECT_EQ(with_aux(0x20 + 11, 99), "2[1]");
    EXPECT_EQ(with_aux((0x60 << 3) + 0x20 + 5, 99), "2[1]"); // to an array
}

TEST_F(vcoff_dump_sizes, of_functions)
{
    EXPECT_EQ(plain(0x40 + 5), "4[1]");
    EXPECT_EQ(plain(0x40 + 8), "0[1]");
    EXPECT_EQ(with_aux(0x40 + 5, 99), "4[1]");
    EXPECT_EQ(with_aux(0x40 + 8, 99), "99[1]");
    EXPECT_EQ(with_aux((0x20 << 3) + 0x40 + 5, 99), "4[1]"); // that returns a pointer
}

TEST_F(vcoff_dump_sizes, of_arrays)
{
    EXPECT_EQ(plain(0x60 + 5), "4[1]"); // nothing tells how many
    EXPECT_EQ(with_aux(0x60 + 5, 20), "20[5]");
    EXPECT_EQ(with_aux(0x60 + 5, 23), "23[5]");
    EXPECT_EQ(with_aux(0x60 + 5, 3), "3[0]");
    EXPECT_EQ(with_aux(0x60 + 6, 0xFFFF), "65535[21845]");
    EXPECT_EQ(with_aux(0x60 + 8, 20), "20[20]"); // of what has no size in the table
    EXPECT_EQ(with_aux(0x60 + 1, 20), "20[20]");
    EXPECT_EQ(with_aux(0x60 + 31, 20), "20[20]");
    EXPECT_EQ(with_aux((0x20 << 3) + 0x60 + 8, 20), "20[10]"); // of pointers
    EXPECT_EQ(with_aux((0x60 << 3) + 0x60 + 2, 20), "20[20]"); // of arrays of char
    EXPECT_EQ(with_aux((0x20 << 6) + (0x60 << 3) + 0x60 + 5, 20), "20[10]");
    EXPECT_EQ(with_aux((0x40 << 3) + 0x60 + 5, 20), "20[5]"); // of functions, as it were
}

TEST_F(vcoff_dump_sizes, of_the_deepest_arrays)
{
    // Nine derivations fill the word; the innermost group is the pointer.
    std::uint32_t type = 5;
    for (int shift = 0; shift < 8; ++shift) {
        type |= 0x60U << 3 * shift;
    }
    EXPECT_EQ(with_aux(type | 0x20U << 24, 20), "20[10]");
    EXPECT_EQ(with_aux(type, 20), "20[5]");
    EXPECT_EQ(with_aux(type | 0x60U << 24, 20), "20[5]");
}

// --- types ----------------------------------------------------------------------------------------------------------

class vcoff_dump_types : public vcoff_dump_test {
protected:
    static std::string plain(std::uint32_t type) { return text(row({.type = type, .cls = 1})); }
    static std::string with_aux(std::uint32_t type, const std::string &aux)
    {
        return text(row({.type = type, .cls = 1, .aux = 1}, aux));
    }

private:
    static std::string text(const std::string &output)
    {
        const std::size_t start = output.find("n = 0: ") + 7;
        return output.substr(start, output.size() - 1 - start);
    }
};

TEST_F(vcoff_dump_types, base_types)
{
    constexpr const char *NAMES[] = {"null",   "void",   "char",   "short", "int",    "long",  "float",
                                     "double", "struct", "union",  "enum",  "moe",    "uchar", "ushort",
                                     "uint",   "ulong",  "lngdbl", "slong", "uslong", "llong", "ullong"};
    static_assert(std::size(NAMES) == 21);
    for (std::uint32_t type = 0; type < std::size(NAMES); ++type) {
        EXPECT_EQ(plain(type), NAMES[type]);
        EXPECT_EQ(with_aux(type, aux_with(0, le32(77))),
                  NAMES[type] + std::string(type >= 8 && type <= 10 ? " [77]" : ""));
    }
    EXPECT_EQ(plain(21), "type 0x15");
    EXPECT_EQ(plain(31), "type 0x1F");
    EXPECT_EQ(with_aux(8, aux_with(0, le32(0xFFFFFFFF))), "struct [4294967295]");
}

TEST_F(vcoff_dump_types, derivations)
{
    EXPECT_EQ(plain(0x20 + 2), "pointer to char");
    EXPECT_EQ(plain(0x40 + 4), "function returning int");
    EXPECT_EQ(plain(0x60 + 12), "array [] of uchar");
    EXPECT_EQ(plain((0x40 << 3) + 0x20 + 1), "pointer to function returning void");
    EXPECT_EQ(plain((0x20 << 3) + 0x40 + 8), "function returning pointer to struct");
    EXPECT_EQ(with_aux((0x20 << 3) + 0x40 + 8, aux_with(0, le32(5))),
              "function [lineptr 0, endndx 0] returning pointer to struct [5]");
    EXPECT_EQ(with_aux(0x40 + 1, aux_with(8, le32(0xABCD) + le32(0xFFFFFFFF))),
              "function [lineptr ABCD, endndx -1] returning void");
    EXPECT_EQ(plain(0x80 + 2), "char"); // of these nothing is known
    EXPECT_EQ(plain((0x20 << 3) + 0xE0 + 2), "pointer to char");
    EXPECT_EQ(plain((0x20 << 3) + 2), "char"); // a group of 0 ends the walk
}

TEST_F(vcoff_dump_types, dimensions)
{
    const std::string aux = aux_with(8, le16(1) + le16(20) + le16(300) + le16(65535));
    EXPECT_EQ(with_aux(0x60 + 2, aux), "array [1] of char");
    EXPECT_EQ(with_aux((0x60 << 3) + 0x60 + 2, aux), "array [1] of array [20] of char");
    EXPECT_EQ(with_aux((0x60 << 6) + (0x20 << 3) + 0x60 + 2, aux), "array [1] of pointer to array [20] of char");
    EXPECT_EQ(plain((0x60 << 3) + 0x60 + 2), "array [] of array [] of char");
}

TEST_F(vcoff_dump_types, only_the_low_half_of_the_word_is_walked)
{
    // Of the fourth derivation two bits lie there, which is enough for the known ones; the fifth is never seen.
    constexpr std::uint32_t FOUR_ARRAYS = 0x60U | 0x60U << 3 | 0x60U << 6 | 0x60U << 9;
    const std::string aux = aux_with(8, le16(1) + le16(20) + le16(300) + le16(65535));
    EXPECT_EQ(with_aux(FOUR_ARRAYS | 0x60U << 12 | 2, aux),
              "array [1] of array [20] of array [300] of array [65535] of char");
    EXPECT_EQ(plain(0x20U | 0x20U << 3 | 0x20U << 6 | 0x20U << 9 | 0x20U << 12 | 5),
              "pointer to pointer to pointer to pointer to long");
    EXPECT_EQ(plain(0x20U | 0x20U << 3 | 0x20U << 6 | 0xA0U << 9 | 5), // its high bit is cut off
              "pointer to pointer to pointer to pointer to long");
    EXPECT_EQ(plain(0xFFFF0000U | 5), "long");
}

} // namespace

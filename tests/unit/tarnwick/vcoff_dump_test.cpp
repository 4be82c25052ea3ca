// SPDX-License-Identifier: MIT
// The dump of COFF files that are put together here byte by byte. All expected text is written by hand.
#include <cstdlib>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/alert.h"
#include "compiler/tarnwick/coff_file.h"
#include "compiler/tarnwick/format.h"
#include "compiler/tarnwick/model.h"
#include "compiler/tarnwick/options.h"
#include "tests/unit/tarnwick/coff_bytes.h"
#include "tests/unit/tarnwick/fresh_model.h"
#include "tests/unit/tarnwick/image_testing.h"

namespace {

using namespace coff_bytes;

struct dump_result {
    bool result;
    std::string output;
    std::string errors;

    bool operator==(const dump_result &) const = default;
};

void PrintTo(const dump_result &r, std::ostream *out)
{
    *out << (r.result ? "true" : "false") << "\noutput:\n" << r.output << "\nerrors:\n" << r.errors;
}

std::string short_read(const std::string &label)
{
    return "(1037) short read on " + label + "\n";
}

const std::string SYMBOL_COUNT = "(1039) inconsistent symbol count\n";

// What a file of two sections prints in front of its symbols.
const std::string SYMBOLS_START = "Symbol table:\n";

class vcoff_dump_test : public testing::Test {
protected:
    void SetUp() override
    {
        setenv("TZ", "UTC", 1);
        tzset();
        set_maxerrors(1000000);
        alert_set_position(nullptr, nullptr);
        alert_set_format_mode(0);
        opt_big_endian = false;
        opt_verbose = 0;
    }
    void TearDown() override
    {
        opt_big_endian = false;
        opt_verbose = 0;
    }

    static dump_result dump_bytes(const std::string &content, std::uint8_t verbose = 0)
    {
        opt_verbose = verbose;
        const image_file file(content);
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const bool result = format_vcoff.dump(file.stream());
        std::fflush(stdout);
        opt_verbose = 0;
        return {result, testing::internal::GetCapturedStdout(), testing::internal::GetCapturedStderr()};
    }
    static dump_result dump(const file_fields &file, std::uint8_t verbose = 0)
    {
        return dump_bytes(file.bytes(), verbose);
    }
    // The output of a clean dump from the first appearance of a text on.
    static std::string from(const std::string &text, const file_fields &file, std::uint8_t verbose = 0)
    {
        const dump_result r = dump(file, verbose);
        EXPECT_TRUE(r.result);
        EXPECT_EQ(r.errors, "");
        const std::size_t start = r.output.find(text);
        return start == std::string::npos ? "no \"" + text + "\"" : r.output.substr(start);
    }
    // The rows of these entries, in a file with the sections "code" and "a_long_section".
    static std::string rows(const std::string &symbols)
    {
        const std::string output = from(SYMBOLS_START, with_symbols(symbols), 1);
        EXPECT_EQ(output.substr(output.size() - 2), "\n\n");
        return output.substr(SYMBOLS_START.size(), output.size() - SYMBOLS_START.size() - 1);
    }
    static std::string row(const symbol_fields &symbol, const std::string &aux = "")
    {
        return rows(symbol.bytes() + aux);
    }
    static file_fields with_symbols(const std::string &symbols)
    {
        return {.sections = {{}, {.name = long_name(4)}},
                .symbols = symbols,
                .strings = string_table({"a_long_section", "source_file.c"})};
    }
};

// --- headers --------------------------------------------------------------------------------------------------------

TEST_F(vcoff_dump_test, a_whole_file_without_details)
{
    file_fields file = {.dated = 1700000000,
                        .optional = optional_header(14, 8, 0x18F4),
                        .sections = {{.paddr = 0x10, .size = 4}, {.name = long_name(4), .size = 0x123, .flags = 0x80}},
                        .between = "data",
                        .symbols = symbol_fields{.cls = 6}.bytes(),
                        .strings = string_table({"a_long_section"})};
    file.sections[0].scnptr = file.between_position();
    EXPECT_EQ(dump(file), (dump_result{true,
                                       "COFF header:\n"
                                       "\tMagic:\t\t0x1240\n"
                                       "\tSections:\t2\n"
                                       "\tDated:\t\tTue Nov 14 22:13:20 2023\n"
                                       "\tSymptr:\t\t0x7A\n"
                                       "\tNsyms:\t\t1\n"
                                       "\tOpthdr:\t\t18\n"
                                       "\tFlags:\t\t0x2 Executable\n"
                                       "\n"
                                       "Optional header:\n"
                                       "\tMagic:\t\t0x1388 (Orbell Software)\n"
                                       "\tVersion:\t24600\n"
                                       "\tProcessor:\t0x18F4\n"
                                       "\tROM width:\t14\n"
                                       "\tRAM width:\t8\n"
                                       "\n"
                                       "Section 0: code: @10 size 0x4 lines 0 relocs 0 flags 0x20\n"
                                       "Section 1: a_long_section: @0 size 0x123 lines 0 relocs 0 flags 0x80\n"
                                       "\n"
                                       "String table: 19 bytes, file offset 0x8E\n"
                                       "\n",
                                       ""}));
}

std::string header_text(const std::string &magic, const std::string &dated, const std::string &symptr,
                        const std::string &flags)
{
    return "COFF header:\n\tMagic:\t\t" + magic + "\n\tSections:\t0\n\tDated:\t\t" + dated + "\n\tSymptr:\t\t" +
           symptr + "\n\tNsyms:\t\t0\n\tOpthdr:\t\t0\n\tFlags:\t\t" + flags + "\n\n";
}

const std::string EPOCH = "Thu Jan  1 00:00:00 1970";
const std::string NO_STRINGS = "\nString table: 4 bytes, file offset 0x14\n\n";

TEST_F(vcoff_dump_test, a_file_without_optional_header)
{
    EXPECT_EQ(dump({.flags = 0, .optional = ""}),
              (dump_result{true, header_text("0x1240", EPOCH, "0x14", "0x0") + NO_STRINGS, ""}));
}

TEST_F(vcoff_dump_test, the_time_is_an_unsigned_number)
{
    EXPECT_EQ(dump({.dated = 0xFFFFFFFF, .flags = 0, .optional = ""}).output,
              header_text("0x1240", "Sun Feb  7 06:28:15 2106", "0x14", "0x0") + NO_STRINGS);
}

TEST_F(vcoff_dump_test, flags_of_the_file)
{
    const auto flags = [](std::uint32_t value) {
        const std::string output = dump({.flags = value, .optional = ""}).output;
        const std::size_t start = output.find("\tFlags:\t\t") + 9;
        return output.substr(start, output.find('\n', start) - start);
    };
    EXPECT_EQ(flags(0x0001), "0x1 Stripped");
    EXPECT_EQ(flags(0x0002), "0x2 Executable");
    EXPECT_EQ(flags(0x0004), "0x4 No lines");
    EXPECT_EQ(flags(0x0008), "0x8 No locals");
    EXPECT_EQ(flags(0x0010), "0x10 0x10");
    EXPECT_EQ(flags(0x0020), "0x20 0x20");
    EXPECT_EQ(flags(0x0040), "0x40 0x40");
    EXPECT_EQ(flags(0x0080), "0x80 16 bit little endian");
    EXPECT_EQ(flags(0x0100), "0x100 32 bit little endian");
    EXPECT_EQ(flags(0x0200), "0x200 32 bit big endian");
    EXPECT_EQ(flags(0x0400), "0x400 0x400");
    EXPECT_EQ(flags(0x0800), "0x800 0x800");
    EXPECT_EQ(flags(0x1000), "0x1000 New style syms");
    EXPECT_EQ(flags(0xE000), "0xE000"); // no labels for these
    EXPECT_EQ(flags(0xFFFF), "0xFFFF Stripped Executable No lines No locals 0x10 0x20 0x40 16 bit little endian "
                             "32 bit little endian 32 bit big endian 0x400 0x800 New style syms");
}

TEST_F(vcoff_dump_test, an_optional_header_of_another_size_is_reported_and_stepped_over)
{
    for (const std::size_t size : {17U, 19U, 300U}) {
        const file_fields file = {.optional = std::string(size, 'x'), .sections = {{}}};
        const dump_result r = dump(file);
        EXPECT_TRUE(r.result);
        EXPECT_EQ(r.errors, "(1036) bad \"optional\" optional header length (0x12 expected)\n");
        EXPECT_NE(r.output.find("\tOpthdr:\t\t" + std::to_string(size) +
                                "\n\tFlags:\t\t0x2 Executable\n\n"
                                "Section 0: code: @0 size 0x0 lines 0"),
                  std::string::npos)
            << r.output;
    }
}

TEST_F(vcoff_dump_test, the_maker_of_the_optional_header)
{
    const auto magic = [](std::uint32_t value) {
        const std::string text = "Optional header:\n\tMagic:\t\t";
        const std::string output = from(text, {.optional = optional_header(8, 8, 0, 24600, value)});
        return output.substr(text.size(), output.find('\n', text.size()) - text.size());
    };
    EXPECT_EQ(magic(4999), "0x1387");
    EXPECT_EQ(magic(5000), "0x1388 (Orbell Software)");
    EXPECT_EQ(magic(5999), "0x176F (Orbell Software)");
    EXPECT_EQ(magic(6000), "0x1770");
}

TEST_F(vcoff_dump_test, another_version_is_reported)
{
    const dump_result r = dump({.optional = optional_header(0xFFFFFFFF, 0, 0xFFFFFFFF, 0xFFFFFFFF)});
    EXPECT_TRUE(r.result);
    EXPECT_EQ(r.errors, "(638) version mismatch: 0x6018 expected (warning)\n");
    EXPECT_NE(r.output.find("\tVersion:\t-1\n\tProcessor:\t0xFFFFFFFF\n\tROM width:\t4294967295\n\tRAM width:\t0\n\n"),
              std::string::npos)
        << r.output;
}

// --- sections and strings -------------------------------------------------------------------------------------------

TEST_F(vcoff_dump_test, all_fields_of_sections)
{
    const file_fields file = {.sections = {{.paddr = 0xFFFFFFFF,
                                            .size = 0xABCDEF,
                                            .scnptr = 0x11,
                                            .relptr = 0x22,
                                            .lnnoptr = 0x33,
                                            .relocs = 65535,
                                            .lines = 0,
                                            .flags = 0}}};
    const auto section = [&](std::uint8_t verbose) {
        const std::string output = from("Section 0", file, verbose);
        return output.substr(0, output.find('\n'));
    };
    EXPECT_EQ(section(0), "Section 0: code: @FFFFFFFF size 0xABCDEF lines 0 relocs 65535 flags 0x0");
    EXPECT_EQ(section(1), section(0));
    EXPECT_EQ(section(2), "Section 0: code: @FFFFFFFF scnptr 0x11 relptr 0x22 lnnoptr 0x33 size 0xABCDEF lines 0 "
                          "relocs 65535 flags 0x0");
    EXPECT_EQ(section(3), section(2));
}

TEST_F(vcoff_dump_test, flags_of_sections)
{
    const auto flags = [](std::uint32_t value) {
        const std::string output = from("Section 0", {.sections = {{.flags = value}}}, 2);
        const std::size_t start = output.find("flags ") + 6;
        return output.substr(start, output.find('\n') - start);
    };
    EXPECT_EQ(flags(0), "0x0");
    EXPECT_EQ(flags(0x00000001), "0x1"); // the lowest has a label and is never shown
    EXPECT_EQ(flags(0x00000002), "0x2 ( noload )");
    EXPECT_EQ(flags(0x00000004), "0x4 ( group )");
    EXPECT_EQ(flags(0x00000008), "0x8 ( padding )");
    EXPECT_EQ(flags(0x00000010), "0x10 ( group end )");
    EXPECT_EQ(flags(0x00000020), "0x20 ( text )");
    EXPECT_EQ(flags(0x00000040), "0x40 ( data )");
    EXPECT_EQ(flags(0x00000080), "0x80 ( bss )");
    EXPECT_EQ(flags(0x00000100), "0x100 ( romdata )");
    EXPECT_EQ(flags(0x00000200), "0x200 ( 0x200 )");
    EXPECT_EQ(flags(0x00000400), "0x400 ( 0x400 )");
    EXPECT_EQ(flags(0x00000800), "0x800 ( 0x800 )");
    EXPECT_EQ(flags(0x00001000), "0x1000 ( absolute )");
    EXPECT_EQ(flags(0x00002000), "0x2000 ( shared )");
    EXPECT_EQ(flags(0x00004000), "0x4000 ( overlaid )");
    EXPECT_EQ(flags(0x00008000), "0x8000 ( access bank )");
    EXPECT_EQ(flags(0x00010000), "0x10000 ( activation record )");
    EXPECT_EQ(flags(0xFFFE0000), "0xFFFE0000");
    EXPECT_EQ(flags(0x00001021), "0x1021 ( absolute, text )");
    EXPECT_EQ(flags(0xFFFFFFFF), "0xFFFFFFFF ( activation record, access bank, overlaid, shared, absolute, 0x800, "
                                 "0x400, 0x200, romdata, bss, data, text, group end, padding, group, noload )");
}

TEST_F(vcoff_dump_test, strings_are_shown_with_details)
{
    const file_fields file = {.optional = "", .strings = string_table({"one", "", std::string(100000, 'x'), "four"})};
    const std::string head = "\nString table: 100015 bytes, file offset 0x14\n";
    EXPECT_EQ(from("\nString", file), head + "\n");
    EXPECT_EQ(from("\nString", file, 1), head + "\nSymbol table:\n\n");
    EXPECT_EQ(from("\nString", file, 2), head + "    4:\tone\n    8:\t\n    9:\t" + std::string(100000, 'x') +
                                             "\n100010:\tfour\n\nSymbol table:\n\n");
}

TEST_F(vcoff_dump_test, an_empty_string_table)
{
    EXPECT_EQ(from("\nString", {.optional = ""}, 2), NO_STRINGS + "Symbol table:\n\n");
}

TEST_F(vcoff_dump_test, a_string_may_end_with_the_table)
{
    EXPECT_EQ(from("    4:", {.optional = "", .strings = le32(7) + "abcdef"}, 2), "    4:\tabc\n\nSymbol table:\n\n");
}

// --- rows of symbols ------------------------------------------------------------------------------------------------

TEST_F(vcoff_dump_test, labels_of_classes)
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

TEST_F(vcoff_dump_test, every_other_class_is_unknown)
{
    for (std::uint32_t cls = 0; cls < 256; ++cls) {
        if (cls <= 20 || (cls >= 100 && cls <= 109) || cls == 127 || cls == 255) {
            continue;
        }
        const std::string label = "??Unknown (" + std::to_string(cls) + ")";
        EXPECT_EQ(row({.cls = cls}), "    0:\t" + std::string(24 - label.size(), ' ') + label + " 0 0[1]\t\n");
    }
}

TEST_F(vcoff_dump_test, what_rows_tell_by_class)
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

TEST_F(vcoff_dump_test, what_rows_tell_of_auxiliary_entries)
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

TEST_F(vcoff_dump_test, relocations_and_lines_of_sections_are_positive)
{
    const std::string aux = zeros(4) + le16(0xFFFF) + le16(0x8000) + zeros(12);
    EXPECT_EQ(row({.cls = 109, .aux = 1}, aux).substr(39), "n = 0: size 0, relocs 65535, lines 32768\n");
}

TEST_F(vcoff_dump_test, file_entries)
{
    const std::string start = "    0:\t               file name 1 0[1]\t";
    EXPECT_EQ(row({.name = short_name(".file"), .cls = 103, .aux = 1}, aux_with(0, le32(19))),
              start + "source_file.c [0]\n");
    EXPECT_EQ(row({.cls = 103, .aux = 1}, aux_with(0, le32(26) + le32(0xFFFFFFFF))), start + "file.c [4294967295]\n");
    EXPECT_EQ(row({.cls = 103, .aux = 1}, aux_with(0, le32(1000))), start + " [0]\n"); // outside the table
}

TEST_F(vcoff_dump_test, listing_toggles)
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

TEST_F(vcoff_dump_test, sections_of_symbols)
{
    const auto text = [](std::uint32_t section) { return row({.section = section, .cls = 2}).substr(39); };
    EXPECT_EQ(text(0), "n = 0: (abs) null\n");
    EXPECT_EQ(text(1), "n = 0: code null\n");
    EXPECT_EQ(text(2), "n = 0: a_long_section null\n");
    EXPECT_EQ(text(3), "n = 0: (abs) null\n");
    EXPECT_EQ(text(0xFFFE), "n = 0: (abs) null\n");
    EXPECT_EQ(text(0xFFFF), "n = 0: (abs) null\n");
}

TEST_F(vcoff_dump_test, names_of_eight_characters_and_more)
{
    EXPECT_EQ(row({.name = "12345678", .value = 0xFFFFFFFF, .cls = 6}).substr(39), "12345678 = FFFFFFFF: (abs) null\n");
    EXPECT_EQ(row({.name = long_name(19), .cls = 6}).substr(39), "source_file.c = 0: (abs) null\n");
    EXPECT_EQ(row({.name = long_name(33), .cls = 6}).substr(39), " = 0: (abs) null\n"); // outside the table
}

TEST_F(vcoff_dump_test, indices_of_rows)
{
    const std::string symbols = symbol_fields{.aux = 2}.bytes() + zeros(40) + symbol_fields{.aux = 1}.bytes() +
                                zeros(20) + symbol_fields{}.bytes();
    EXPECT_EQ(rows(symbols), "    0:\t              null class 2 0[1]\tn\n"
                             "    3:\t              null class 1 0[1]\tn\n"
                             "    5:\t              null class 0 0[1]\tn\n");
}

TEST_F(vcoff_dump_test, only_the_first_auxiliary_entry_says_anything)
{
    EXPECT_EQ(row({.cls = 10, .aux = 2}, aux_with(6, le16(7)) + aux_with(6, le16(9))),
              "    0:\t           structure tag 2 0[1]\tn: tag 0, size 7, index 0\n");
}

TEST_F(vcoff_dump_test, wide_indices)
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

// --- the end of the symbol table ------------------------------------------------------------------------------------

TEST_F(vcoff_dump_test, an_auxiliary_entry_may_stand_one_behind_the_end)
{
    // One entry that claims one more: the index plus the count is not above 1. The bytes are those of the string table:
    // 25 is its size, 0x6463 and 0x6C6B6A69 are "cd" and "ijkl".
    file_fields file = {.symbols = symbol_fields{.cls = 10, .aux = 1}.bytes(),
                        .strings = string_table({"abcdefghijklmnopqrst"})};
    const dump_result r = dump(file, 1);
    EXPECT_TRUE(r.result);
    EXPECT_EQ(r.errors, "");
    EXPECT_EQ(r.output.substr(r.output.find(SYMBOLS_START)),
              SYMBOLS_START + "    0:\t           structure tag 1 0[1]\tn: tag 25, size 25699, index 1818978921\n\n");
}

TEST_F(vcoff_dump_test, too_many_auxiliary_entries_are_reported_behind_their_row)
{
    const file_fields file = {.symbols = symbol_fields{.aux = 2}.bytes(),
                              .strings = string_table({std::string(36, 'x')})};
    const dump_result r = dump(file, 1);
    EXPECT_FALSE(r.result);
    EXPECT_EQ(r.errors, SYMBOL_COUNT);
    EXPECT_EQ(r.output.substr(r.output.find(SYMBOLS_START)),
              SYMBOLS_START + "    0:\t              null class 2 0[1]\tn\n");
    EXPECT_TRUE(dump(file, 0).result); // nobody looks
}

// --- lines ----------------------------------------------------------------------------------------------------------

TEST_F(vcoff_dump_test, line_numbers)
{
    file_fields file = {.sections = {{}, {.lines = 2}, {.lines = 1}},
                        .between = line_record(7, 0x70, 1, 2, 3) +
                                   line_record(65535, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFF, 0xFFFFFFFF)};
    file.sections[1].lnnoptr = file.between_position();
    file.sections[2].lnnoptr = file.between_position() + 16;
    EXPECT_EQ(from(SYMBOLS_START, file, 1),
              "Symbol table:\n\n"
              "Section 1 line numbers: 2, file offset 0x9E\n"
              "00007:\tsrcndx: 1, paddr: 0x70, flags 0x2, fcnndx: 3\n"
              "65535:\tsrcndx: 4294967295, paddr: 0xFFFFFFFF, flags 0xFFFF, fcnndx: 4294967295\n"
              "Section 2 line numbers: 1, file offset 0xAE\n"
              "65535:\tsrcndx: 4294967295, paddr: 0xFFFFFFFF, flags 0xFFFF, fcnndx: 4294967295\n");
    EXPECT_EQ(from(SYMBOLS_START, file, 2), from(SYMBOLS_START, file, 1));
    EXPECT_EQ(dump(file, 0).output.find("line numbers"), std::string::npos);
}

TEST_F(vcoff_dump_test, symbols_in_line_numbers)
{
    file_fields file = {.sections = {{.lines = 7}},
                        .symbols = symbol_fields{.name = short_name(".file"), .cls = 103, .aux = 1}.bytes() +
                                   aux_with(0, le32(4)) +
                                   symbol_fields{.name = short_name("silent"), .cls = 5}.bytes() +
                                   symbol_fields{.name = long_name(11), .cls = 2, .aux = 1}.bytes() + zeros(20) +
                                   symbol_fields{.name = short_name(".file"), .cls = 103}.bytes(),
                        .strings = string_table({"main.c", "a_long_name"})};
    for (const std::uint32_t index : {0U, 1U, 2U, 3U, 5U, 6U, 0xFFFFFFFFU}) {
        file.between += line_record(0, index, 99, 99, 99);
    }
    file.sections[0].lnnoptr = file.between_position();
    EXPECT_EQ(from("Section 0 line", file, 1), "Section 0 line numbers: 7, file offset 0x4E\n"
                                               "Symbol: main.c (0)\n" // the name in its auxiliary entry
                                               "Symbol: ?? (1)\n"     // that entry itself
                                               "Symbol: silent (2)\n"
                                               "Symbol: a_long_name (3)\n"
                                               "Symbol: .file (5)\n"
                                               "Symbol: ?? (6)\n"
                                               "Symbol: ?? (4294967295)\n");
}

// --- short files ----------------------------------------------------------------------------------------------------

TEST_F(vcoff_dump_test, short_headers)
{
    EXPECT_EQ(dump_bytes(""), (dump_result{false, "", short_read("COFF header")}));
    const std::string file = file_fields().bytes();
    EXPECT_EQ(dump_bytes(file.substr(0, 19)), (dump_result{false, "", short_read("COFF header")}));
    const dump_result r = dump_bytes(file.substr(0, 37));
    EXPECT_FALSE(r.result);
    EXPECT_EQ(r.errors, short_read("optional header"));
    EXPECT_EQ(r.output.substr(r.output.find("\tFlags")), "\tFlags:\t\t0x2 Executable\n\n");
}

TEST_F(vcoff_dump_test, short_string_table)
{
    const auto errors = [](const std::string &strings) {
        const dump_result r = dump({.strings = strings});
        EXPECT_EQ(r.output.substr(r.output.find("\tRAM")), "\tRAM width:\t8\n\n");
        EXPECT_FALSE(r.result);
        return r.errors;
    };
    EXPECT_EQ(errors(""), short_read("COFF string table size"));
    EXPECT_EQ(errors(zeros(3)), short_read("COFF string table size"));
    EXPECT_EQ(errors(le32(3)), "(1038) string table length too short\n");
    EXPECT_EQ(errors(le32(5)), short_read("COFF string table"));
    EXPECT_EQ(errors(le32(0xFFFFFFFF)), short_read("COFF string table"));
}

TEST_F(vcoff_dump_test, short_section_header)
{
    // The string table lies where the second header should.
    const dump_result r = dump({.sections = {{}}, .section_count = 2, .strings = string_table({std::string(34, 'x')})});
    EXPECT_FALSE(r.result);
    EXPECT_EQ(r.errors, short_read("COFF section header"));
    EXPECT_EQ(r.output.substr(r.output.find("Section 0")),
              "Section 0: code: @0 size 0x0 lines 0 relocs 0 flags 0x20\n");
}

TEST_F(vcoff_dump_test, short_symbol_table)
{
    // An auxiliary entry that the file does not have, and entries whose number wraps the string table's place.
    dump_result r = dump({.symbols = symbol_fields{.aux = 1}.bytes()}, 1);
    EXPECT_FALSE(r.result);
    EXPECT_EQ(r.errors, short_read("COFF symbol table"));
    EXPECT_EQ(r.output.substr(r.output.find(SYMBOLS_START)), SYMBOLS_START); // no row without it
    r = dump({.symbols = symbol_fields{}.bytes(), .nsyms = 0x40000001}, 1);
    EXPECT_FALSE(r.result);
    EXPECT_EQ(r.errors, short_read("COFF symbol table"));
    EXPECT_EQ(r.output.substr(r.output.find(SYMBOLS_START)),
              SYMBOLS_START + "    0:\t              null class 0 0[1]\tn\n");
}

TEST_F(vcoff_dump_test, the_count_of_symbols_prints_with_a_sign)
{
    const dump_result r = dump({.nsyms = 0xC0000000}); // 20 times that is a whole number of turns
    EXPECT_TRUE(r.result);
    EXPECT_NE(r.output.find("\tNsyms:\t\t-1073741824\n"), std::string::npos) << r.output;
}

TEST_F(vcoff_dump_test, short_line_numbers)
{
    file_fields file = {.sections = {{.lines = 2}}, .between = line_record(7, 0x70) + zeros(11)};
    file.sections[0].lnnoptr = file.between_position();
    const dump_result r = dump(file, 1);
    EXPECT_FALSE(r.result);
    EXPECT_EQ(r.errors, short_read("COFF line number"));
    EXPECT_EQ(r.output.substr(r.output.find("Section 0 line")),
              "Section 0 line numbers: 2, file offset 0x4E\n"
              "00007:\tsrcndx: 0, paddr: 0x70, flags 0x0, fcnndx: 0\n");
}

TEST_F(vcoff_dump_test, data_is_not_looked_at)
{
    EXPECT_TRUE(dump({.sections = {{.size = 0xFFFFFFFF, .scnptr = 0xFFFFFFFF}}}, 3).result);
}

// --- the rest -------------------------------------------------------------------------------------------------------

TEST_F(vcoff_dump_test, the_model_is_not_touched)
{
    fresh_model();
    const std::string symbols = symbol_fields{.cls = 103}.bytes() + symbol_fields{.cls = 2}.bytes();
    EXPECT_TRUE(dump(with_symbols(symbols), 2).result);
    EXPECT_EQ(seg_list.count() + data_list.count() + symbol_list.count() + line_list.count() + file_list.count(), 0U);
}

TEST_F(vcoff_dump_test, the_byte_order_in_force)
{
    opt_big_endian = true;
    const std::string header = std::string("\x40\x12") + zeros(6) + std::string("\0\0\0\x14", 4) + zeros(8);
    EXPECT_EQ(dump_bytes(header + std::string("\0\0\0\4", 4)),
              (dump_result{true, header_text("0x4012", EPOCH, "0x14", "0x0") + NO_STRINGS, ""}));
}

TEST_F(vcoff_dump_test, a_file_that_is_shared_beyond_all_sense_has_ended)
{
    file_fields file = {.sections = std::vector<section_fields>(100, {.lines = 0xFFFF})};
    for (section_fields &section : file.sections) {
        section.lnnoptr = file.between_position();
    }
    file.between = zeros(0xFFFF * 16);
    const dump_result r = dump(file, 1);
    EXPECT_FALSE(r.result);
    EXPECT_EQ(r.errors, short_read("COFF line number"));
    EXPECT_NE(r.output.find("\nSection 4 line numbers: 65535, file offset 0xFC6\n"), std::string::npos);
    EXPECT_EQ(r.output.find("\nSection 32 line numbers"), std::string::npos);
}

TEST_F(vcoff_dump_test, damaged_bytes_come_to_an_end)
{
    file_fields file =
        with_symbols(symbol_fields{.name = short_name(".file"), .cls = 103, .aux = 1}.bytes() + aux_with(0, le32(19)) +
                     symbol_fields{.type = 0x68, .cls = 2, .aux = 1}.bytes() + zeros(20));
    file.between = line_record(0, 0) + line_record(3, 4);
    file.sections[0].lines = 2;
    file.sections[0].lnnoptr = file.between_position();
    const std::string whole = file.bytes();
    EXPECT_TRUE(dump_bytes(whole, 2).result);
    std::mt19937 random(5);
    for (int round = 0; round < 1000; ++round) {
        std::string damaged = whole.substr(0, random() % 4 == 0 ? random() % whole.size() : whole.size());
        for (std::size_t i = random() % 4; i > 0 && !damaged.empty(); --i) {
            damaged[random() % damaged.size()] = static_cast<char>(random() % 3 == 0 ? 0xFF : random() % 256);
        }
        const dump_result r = dump_bytes(damaged, 2);
        EXPECT_TRUE(r.result || r.errors != "") << round; // a failure never goes without a report
    }
}

} // namespace

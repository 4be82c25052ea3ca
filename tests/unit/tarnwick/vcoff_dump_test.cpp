// SPDX-License-Identifier: MIT
// The dump of COFF files that are put together here byte by byte. All expected text is written by hand.
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "compiler/tarnwick/model.h"
#include "tests/unit/tarnwick/fresh_model.h"
#include "tests/unit/tarnwick/vcoff_dump_testing.h"

namespace {

using namespace vcoff_dump_testing;

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

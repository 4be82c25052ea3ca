// SPDX-License-Identifier: MIT
// The dump of ELF files that are put together here byte by byte. All expected text is written by hand.
#include "compiler/tarnwick/elf_dump.h"

#include <array>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/alert.h"
#include "compiler/tarnwick/dwarf_accessors.h"
#include "compiler/tarnwick/elf.h"
#include "compiler/tarnwick/elf_names.h"
#include "compiler/tarnwick/elf_osabi.h"
#include "compiler/tarnwick/encdec.h"
#include "compiler/tarnwick/format.h"
#include "compiler/tarnwick/options.h"
#include "tests/unit/tarnwick/image_testing.h"
#include "tests/unit/tarnwick/trace_log.h"

namespace {

// --- files ---------------------------------------------------------------------------------------------------------

// The fields of the headers in their order.
using section_fields = std::array<std::uint32_t, 10>; // name type flags address offset size link info alignment entry
using segment_fields = std::array<std::uint32_t, 8>;  // type offset virtual physical filesize memsize flags alignment

struct symbol_fields {
    std::uint32_t name;
    std::uint32_t value;
    std::uint32_t size;
    std::uint8_t info;
    std::uint8_t other;
    std::uint16_t section;
};

// Numbers go into a file in the byte order in force.
std::string word(std::uint32_t value)
{
    std::array<std::uint8_t, 4> bytes{};
    put32(bytes.data(), value);
    return {bytes.begin(), bytes.end()};
}

std::string half(std::uint16_t value)
{
    std::array<std::uint8_t, 2> bytes{};
    put16(bytes.data(), value);
    return {bytes.begin(), bytes.end()};
}

std::string symbol_bytes(const std::vector<symbol_fields> &symbols)
{
    std::string bytes;
    for (const symbol_fields &s : symbols) {
        bytes += word(s.name) + word(s.value) + word(s.size);
        bytes += static_cast<char>(s.info);
        bytes += static_cast<char>(s.other);
        bytes += half(s.section);
    }
    return bytes;
}

constexpr std::uint32_t DATA_START = 52; // where `data` stands

// A file of a header, data, section headers and program headers, in this order.
struct elf_fields {
    std::string ident = std::string("\x7F"
                                    "ELF\1\1\1\0\0\0\0\0\0\0\0\0",
                                    16);
    std::uint16_t type = 2;
    std::uint16_t machine = 204;
    std::uint32_t entry = 0;
    std::uint32_t flags = 0;
    std::uint16_t phentsize = 32;
    std::uint16_t shentsize = 40;
    std::uint16_t shstrndx = 0;
    std::string data;
    std::vector<section_fields> sections;
    std::vector<segment_fields> segments;

    std::string bytes() const
    {
        const auto shoff = static_cast<std::uint32_t>(DATA_START + data.size());
        const auto phoff = static_cast<std::uint32_t>(shoff + sections.size() * 40);
        std::string file = ident + half(type) + half(machine) + word(1) + word(entry) + word(phoff) + word(shoff);
        file += word(flags) + half(52) + half(phentsize) + half(static_cast<std::uint16_t>(segments.size()));
        file += half(shentsize) + half(static_cast<std::uint16_t>(sections.size())) + half(shstrndx) + data;
        for (const section_fields &section : sections) {
            for (const std::uint32_t field : section) {
                file += word(field);
            }
        }
        for (const segment_fields &segment : segments) {
            for (const std::uint32_t field : segment) {
                file += word(field);
            }
        }
        return file;
    }
};

// With a name table as the first section and the first of the data.
elf_fields named_file(const std::string &names)
{
    elf_fields file;
    file.data = names;
    file.sections = {{0, 3, 0, 0, DATA_START, static_cast<std::uint32_t>(names.size())}};
    return file;
}

// --- dumping -------------------------------------------------------------------------------------------------------

const std::string SECTION_HEAD =
    "No.   Name                 Type                           Address  Offset   Size     Link     ";
const std::string SYMBOL_HEAD =
    "name                          value       size   binding       type                       other  section\n";
const std::string SEGMENT_HEAD = "\nProgram Headers:\n\n"
                                 "No.   Type                                 Virtual  Physical "
                                 "Memsize  Offset   Filesize Flg ";
const std::string NO_DWARF = "\n\nNo DWARF found\n";

class ElfDump : public testing::Test {
protected:
    void SetUp() override
    {
        set_maxerrors(1000000);
        alert_set_position(nullptr, nullptr);
        alert_set_format_mode(0);
        processor_args.fill(nullptr);
        reset();
    }
    void TearDown() override { reset(); }

    static void reset()
    {
        opt_big_endian = false;
        opt_verbose = 0;
    }

    // Reports less those of the search for debugging sections, which passes over headers without a readable name.
    static std::string without_nameless_sections(std::string reports)
    {
        const std::string nameless = "(1301) invalid ELF section header; skipping (warning)\n";
        while (reports.starts_with(nameless)) {
            reports.erase(0, nameless.size());
        }
        return reports;
    }
    // What a dump prints; "false" in front of it when it failed. Reports are kept in `errors`.
    std::string dump_bytes(const std::string &content, std::uint8_t verbose = 0)
    {
        opt_verbose = verbose;
        const image_file file(content);
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const bool result = format_elf.dump(file.stream());
        std::fflush(stdout);
        errors = testing::internal::GetCapturedStderr();
        const std::string output = testing::internal::GetCapturedStdout();
        return result ? output : "false" + output;
    }
    std::string dump(const elf_fields &file, std::uint8_t verbose = 0)
    {
        std::string output = dump_bytes(file.bytes(), verbose);
        EXPECT_EQ(without_nameless_sections(errors), "");
        return output;
    }
    // The part of a dump from a text on up to another one.
    std::string part(const elf_fields &file, std::uint8_t verbose, const std::string &from, const std::string &to)
    {
        const std::string output = dump(file, verbose);
        const std::size_t start = output.find(from);
        const std::size_t end = output.find(to, start);
        return start == std::string::npos || end == std::string::npos ? "no such part in " + output
                                                                      : output.substr(start, end - start);
    }
    // The line of the header with this label, without label and blanks.
    std::string header_line(const elf_fields &file, std::uint8_t verbose, const std::string &label)
    {
        const std::string text = part(file, verbose, "\t" + label + ":", "\n");
        return text.substr(std::min<std::size_t>(text.size(), 17));
    }
    // The rows of the sections.
    std::string section_rows(const elf_fields &file, std::uint8_t verbose)
    {
        const std::string text = part(file, verbose, SECTION_HEAD, verbose == 0 ? "\nProgram" : "\nString table");
        return text.substr(std::min(text.size(), text.find('\n') + 1));
    }
    std::string symbol_rows(const elf_fields &file, std::uint8_t verbose = 1)
    {
        return part(file, verbose, "\nSymbol Table:", "\nString table");
    }

    std::string errors;
};

// --- what is not dumped --------------------------------------------------------------------------------------------

TEST_F(ElfDump, AShortHeaderIsReported)
{
    EXPECT_EQ(dump_bytes(named_file("").bytes().substr(0, 51)), "false");
    EXPECT_EQ(errors, "(1037) short read on ELF header\n");
}

TEST_F(ElfDump, OtherFilesFailWithoutAReport)
{
    struct wrong_byte {
        std::size_t position;
        char value;
    };
    for (const wrong_byte &wrong :
         {wrong_byte{0, '\x7E'}, {1, 'e'}, {2, 'l'}, {3, 'f'}, {4, 2}, {5, 0}, {5, 3}, {6, 0}, {6, 2}}) {
        elf_fields file = named_file("");
        file.ident[wrong.position] = wrong.value;
        EXPECT_EQ(dump(file), "false") << wrong.position;
    }
}

TEST_F(ElfDump, TheByteOrderIsTheFiles)
{
    opt_big_endian = true;
    elf_fields file = named_file(std::string("\0", 1));
    file.ident[5] = 2;
    file.entry = 0x12345678;
    const std::string content = file.bytes();
    opt_big_endian = false;
    const std::string output = dump_bytes(content);
    EXPECT_NE(output.find("\tData:           2's complement, big-endian\n"), std::string::npos);
    EXPECT_NE(output.find("\tStart addr:     0x12345678\n"), std::string::npos);
    EXPECT_TRUE(opt_big_endian);
}

TEST_F(ElfDump, CutHeadersAreReported)
{
    elf_fields file = named_file("");
    file.segments = {{1}};
    const std::string content = file.bytes();
    EXPECT_EQ(dump_bytes(content.substr(0, 52 + 39)), "false");
    EXPECT_EQ(errors, "(1037) short read on ELF section headers\n");
    EXPECT_EQ(dump_bytes(content.substr(0, 52 + 40 + 31)), "false");
    EXPECT_EQ(errors, "(1037) short read on ELF program headers\n");
}

TEST_F(ElfDump, TheNameTableMustBeASection)
{
    elf_fields file = named_file("");
    file.shstrndx = 1;
    EXPECT_EQ(dump_bytes(file.bytes()), "false");
    EXPECT_EQ(errors, "(1291) bad ELF string table index\n");
}

TEST_F(ElfDump, NoSectionCanBeTheNameTableOfNone)
{
    EXPECT_EQ(dump_bytes(elf_fields().bytes()), "false");
    EXPECT_EQ(errors, "(1291) bad ELF string table index\n");
}

// --- the header ----------------------------------------------------------------------------------------------------

TEST_F(ElfDump, AWholeFileWithoutDetails)
{
    elf_fields file = named_file(std::string("\0names\0", 7));
    file.ident[7] = static_cast<char>(130);
    file.ident[15] = '\x1F';
    file.sections[0][0] = 1;
    file.flags = 0xABC;
    file.entry = 0xABC;
    file.segments = {{1, 0x34, 0x80, 0x90, 5, 6, 5, 1}};
    EXPECT_EQ(dump(file),
              "ELF header:\n"
              "\tMagic:          7f 'E' 'L' 'F' 01 01 01 82 00 00 00 00 00 00 00 1f\n"
              "\tClass:          32-bit objects\n"
              "\tData:           2's complement, little-endian\n"
              "\tVersion:        0x1\n"
              "\tOS ABI:         Vantrel Technology KORH\n"
              "\tType:           Executable file\n"
              "\tMachine:        Vantrel Technology KOR\n"
              "\tFlags:          0xabc\n"
              "\tProg hdrs:      1 at [0x20] 32 bytes each\n"
              "\tSec hdrs:       1 at [0x28] 40 bytes each\n"
              "\tshstrtab index: 0x0\n"
              "\tStart addr:     0xABC\n"
              "\n" +
                  SECTION_HEAD +
                  "Flags\n"
                  "0     \"names\"              String table                   00000000 00000034 00000007 00000000\n" +
                  SEGMENT_HEAD +
                  "\n"
                  "0     Loadable program segment             00000080 00000090 00000006 00000034 00000005 r-x\n" +
                  NO_DWARF);
}

TEST_F(ElfDump, TablesTellTheirPlaceFromVerbosityTwo)
{
    elf_fields file = named_file("");
    file.phentsize = 33;
    file.shentsize = 0x41;
    EXPECT_EQ(header_line(file, 1, "Prog hdrs"), "0 at [0x21] 33 bytes each");
    EXPECT_EQ(header_line(file, 1, "Sec hdrs"), "1 at [0x41] 65 bytes each");
    EXPECT_EQ(header_line(file, 2, "Prog hdrs"), "0 at [0x21] 33 bytes each (@ 0x5C/92 bytes into file)");
    EXPECT_EQ(header_line(file, 2, "Sec hdrs"), "1 at [0x41] 65 bytes each (@ 0x34/52 bytes into file)");
}

TEST_F(ElfDump, NumbersStandBehindNamesFromVerbosityThree)
{
    elf_fields file = named_file("");
    file.type = 1;
    file.machine = 3;
    EXPECT_EQ(header_line(file, 2, "Class"), "32-bit objects");
    EXPECT_EQ(header_line(file, 3, "Class"), "32-bit objects (0x1)");
    EXPECT_EQ(header_line(file, 3, "Data"), "2's complement, little-endian (0x1)");
    EXPECT_EQ(header_line(file, 3, "Version"), "0x1");
    EXPECT_EQ(header_line(file, 3, "OS ABI"), "UNIX System V Revision 4 (0x0)");
    EXPECT_EQ(header_line(file, 3, "Type"), "Relocatable file (0x1)");
    EXPECT_EQ(header_line(file, 3, "Machine"), "Intel 80386 (0x3)");
}

TEST_F(ElfDump, NumbersWithoutANameStandAlone)
{
    elf_fields file = named_file("");
    file.ident[7] = 34;
    file.type = 0xABC;
    file.machine = 0xFEDC;
    for (const std::uint8_t verbose : {std::uint8_t{0}, std::uint8_t{3}}) {
        EXPECT_EQ(header_line(file, verbose, "OS ABI"), "0x22");
        EXPECT_EQ(header_line(file, verbose, "Type"), "0xABC");
        EXPECT_EQ(header_line(file, verbose, "Machine"), "0xFEDC");
    }
}

TEST_F(ElfDump, EveryOsAbiIsNamed)
{
    for (const elf_osabi_row &row : elf_osabi_table) {
        elf_fields file = named_file("");
        file.ident[7] = static_cast<char>(row.number);
        EXPECT_EQ(header_line(file, 0, "OS ABI"), row.text);
    }
}

TEST_F(ElfDump, TablesOfNamesAreInOrder)
{
    for (const std::span<const elf_name> table :
         {elf_class_names, elf_data_names, elf_file_type_names, elf_machine_names, elf_section_type_names,
          elf_segment_type_names, elf_binding_names, elf_symbol_type_names, elf_section_number_names}) {
        for (std::size_t i = 1; i < table.size(); ++i) {
            EXPECT_LT(table[i - 1].number, table[i].number) << table[i].text;
        }
    }
}

TEST_F(ElfDump, TheDumpSelectsAnExtension)
{
    elf_extension = nullptr;
    dwarf_access = nullptr;
    processor_args[0] = "KORH";
    dump(named_file(""));
    EXPECT_EQ(elf_extension, &elf_korh);
    EXPECT_EQ(dwarf_access, elf_korh.accessors());
}

TEST_F(ElfDump, TheDumpIsTraced)
{
    alert_initialise(); // which traces too
    const trace_log log;
    dump_bytes("");
    EXPECT_EQ(trace_log::lines(), (std::vector<std::string>{"ENTER elf_dump", "EXIT elf_dump"}));
}

// --- sections ------------------------------------------------------------------------------------------------------

TEST_F(ElfDump, AllFieldsOfSections)
{
    elf_fields file = named_file(std::string("\0code\0", 6));
    file.sections.push_back({1, 1, 6, 0x12345678, 0x34, 6, 7, 0x89, 0xAB, 0xCD});
    EXPECT_EQ(section_rows(file, 1),
              "0     \"\"                   String table                   00000000 00000034 00000006 00000000\n"
              "1     \"code\"               Program data                   12345678 00000034 00000006 00000007 ALLOC "
              "EXECINSTR\n");
    EXPECT_EQ(section_rows(file, 2), "0     \"\"                   String table                   00000000 00000034 "
                                     "00000006 00000000 00000000 00000000\n"
                                     "1     \"code\"               Program data                   12345678 00000034 "
                                     "00000006 00000007 00000089 000000AB ALLOC EXECINSTR\n");
    EXPECT_EQ(part(file, 2, SECTION_HEAD, "\n0 "), SECTION_HEAD + "Info     Align    Flags");
}

TEST_F(ElfDump, FlagsOfSectionsStandInTheirOrder)
{
    elf_fields file = named_file("");
    struct expectation {
        std::uint32_t flags;
        std::string text;
    };
    for (const expectation &e : {expectation{1, " WRITE"},
                                 {2, " ALLOC"},
                                 {4, " EXECINSTR"},
                                 {0x20000000, " EEDATA"},
                                 {0xDFFFFFF8, ""},
                                 {0xFFFFFFFF, " ALLOC EXECINSTR WRITE EEDATA"}}) {
        file.sections[0][2] = e.flags;
        EXPECT_EQ(section_rows(file, 0),
                  "0     \"(unknown)\"          String table                   00000000 00000034 00000000 00000000" +
                      e.text + "\n");
    }
}

TEST_F(ElfDump, SectionNumbersAreHexadecimal)
{
    elf_fields file = named_file("");
    file.sections.resize(17);
    const std::string rows = section_rows(file, 0);
    EXPECT_NE(rows.find("\nA     \"(unknown)\"          Unused "), std::string::npos);
    EXPECT_NE(rows.find("\n10    \"(unknown)\"          Unused "), std::string::npos);
}

TEST_F(ElfDump, NamesOfSections)
{
    struct expectation {
        std::uint32_t offset;
        std::string text; // of the column
    };
    const std::string names = std::string("\0a\"b\0abcdefghijklmnopqrstuvwxyz\0end", 36);
    for (const expectation &e : {expectation{0, "\"\"                  "},
                                 {1, "\"a\\\"b\"              "},
                                 {5, "\"abcdefghijklmnopqrs"},
                                 {32, "\"end\"               "},
                                 {34, "\"d\"                 "},
                                 {35, "\"(unknown)\"         "},
                                 {0xFFFFFFFF, "\"(unknown)\"         "}}) {
        elf_fields file = named_file(names.substr(0, 35));
        file.sections[0][0] = e.offset;
        EXPECT_EQ(section_rows(file, 0).substr(0, 40), "0     " + e.text + " String table ") << e.offset;
    }
}

TEST_F(ElfDump, TypesOfSections)
{
    struct expectation {
        std::uint32_t type;
        std::string text; // of the column
    };
    for (const expectation &e : {expectation{0, "Unused                        "},
                                 {1, "Program data                  "},
                                 {2, "Symbol table                  "},
                                 {3, "String table                  "},
                                 {4, "Reloc entries with addends    "},
                                 {5, "Symbol hash table             "},
                                 {6, "Dynamic linking information   "},
                                 {7, "Notes                         "},
                                 {8, "Prog space without data (bss) "},
                                 {9, "Reloc entries, no addends     "},
                                 {10, "Reserved                      "},
                                 {11, "Dynamic linker symbol table   "},
                                 {12, "0xC                           "},
                                 {0x60000000, "OS-specific, first            "},
                                 {0x6FFFFFFF, "OS-specific, last             "},
                                 {0x70000000, "Processor-specific, first     "},
                                 {0x7FFFFFFF, "Processor-specific, last      "},
                                 {0x80000000, "Application-specific, first   "},
                                 {0x80000CC0, "0x80000CC0                    "},
                                 {0xFFFFFFFF, "Application-specific, last    "}}) {
        elf_fields file = named_file("");
        file.sections[0][1] = e.type;
        EXPECT_EQ(section_rows(file, 0).substr(27, 40), e.text + " 00000000 ");
    }
    elf_fields file = named_file("");
    file.sections[0][1] = 8;
    EXPECT_EQ(section_rows(file, 3).substr(27, 40), "Prog space without data (bss)  00000000 "); // cut
}

// --- symbols and strings -------------------------------------------------------------------------------------------

// A file with a table of symbols and, unless that is empty, of their names.
elf_fields symbol_file(const std::string &strings, const std::vector<symbol_fields> &symbols)
{
    const std::string names("\0.strtab\0", 9);
    elf_fields file = named_file(names);
    file.data += strings;
    const auto start = static_cast<std::uint32_t>(DATA_START + file.data.size());
    const std::string entries = symbol_bytes(symbols);
    file.data += entries;
    file.sections.push_back({0, 2, 0, 0, start, static_cast<std::uint32_t>(entries.size()), 2, 0, 0, 16});
    if (!strings.empty()) {
        const auto size = static_cast<std::uint32_t>(strings.size());
        file.sections.push_back({1, 3, 0, 0, static_cast<std::uint32_t>(DATA_START + names.size()), size});
    }
    return file;
}

TEST_F(ElfDump, SymbolsArePrintedFromVerbosityOne)
{
    elf_fields file =
        symbol_file(std::string("\0main\0", 6), {{0, 0, 0, 0, 0, 0}, {1, 0x1234, 100000, 0x12, 0xA, 0xFFF1}});
    EXPECT_EQ(dump(file).find("Symbol Table"), std::string::npos);
    EXPECT_EQ(
        symbol_rows(file),
        "\nSymbol Table:\nSymbol entry size: 0x10/16 bytes\n" + SYMBOL_HEAD +
            "\t                          0x00000000  0      Local         unspecified                0x00   UNDEF\n"
            "\tmain                      0x00001234  100000  Global        code object                0x0A   ABS\n");
}

TEST_F(ElfDump, NamesOfSymbolFields)
{
    struct expectation {
        std::uint8_t info;
        std::uint16_t section;
        std::string text;
    };
    for (const expectation &e : {expectation{0x20, 0xFFF2, "Weak          unspecified                0x00   COMMON"},
                                 {0x11, 1, "Global        data object                0x00   0x1"},
                                 {0x03, 0xFF00, "Local         associated with a section  0x00   0xFF00"},
                                 {0x04, 0xFFF1, "Local         file name                  0x00   ABS"},
                                 {0xFF, 0xFFFF, "0xF           0xF                        0x00   0xFFFF"}}) {
        const std::string rows = symbol_rows(symbol_file("x", {{0, 0, 0xFFFFFFFF, e.info, 0, e.section}}));
        EXPECT_EQ(rows.substr(rows.find("\tx")), "\tx                         0x00000000  -1     " + e.text + "\n");
    }
    const std::string rows = symbol_rows(symbol_file("x", {{0, 0, 0, 0x12, 0, 0xFFF2}}), 3);
    EXPECT_EQ(rows.substr(rows.find("\tx")), "\tx                         0x00000000  0      Global (0x1)  "
                                             "code object (0x2)          0x00   COMMON (0xFFF2)\n");
}

TEST_F(ElfDump, SymbolsWithoutANameAreUnknown)
{
    const std::string row = "\t(unknown)                 0x00000000  0      Local         "
                            "unspecified                0x00   UNDEF\n";
    std::string rows = symbol_rows(symbol_file("", {{0, 0, 0, 0, 0, 0}}));
    EXPECT_EQ(rows.substr(rows.find("\t(")), row);
    rows = symbol_rows(symbol_file("x", {{1, 0, 0, 0, 0, 0}}));
    EXPECT_EQ(rows.substr(rows.find("\t(")), row);
}

TEST_F(ElfDump, SymbolEntriesAreSixteenBytesApart)
{
    elf_fields file = symbol_file("xy", {{0, 1, 0, 0, 0, 0}, {1, 2, 0, 0, 0, 0}});
    file.sections[1][9] = 0x20; // what the file says
    file.sections[1][5] = 0x2F; // a table that goes on behind them, with a cut entry
    EXPECT_EQ(symbol_rows(file).substr(0, 48), "\nSymbol Table:\nSymbol entry size: 0x20/32 bytes\n");
    file.sections[1][5] = 0x1F;
    const std::string rows = symbol_rows(file);
    EXPECT_NE(rows.find("\txy                        0x00000001"), std::string::npos);
    EXPECT_EQ(rows.find("0x00000002"), std::string::npos);
}

TEST_F(ElfDump, SymbolsBehindTheEndAreLeftOut)
{
    elf_fields file = symbol_file("xy", {{0, 1, 0, 0, 0, 0}});
    file.sections[1][4] = 0xFFFFFFF0;
    file.sections[1][5] = 0xFFFFFFFF;
    EXPECT_EQ(symbol_rows(file), "\nSymbol Table:\nSymbol entry size: 0x10/16 bytes\n" + SYMBOL_HEAD);
}

TEST_F(ElfDump, TheLastSymbolTableCounts)
{
    elf_fields file = symbol_file("xy", {{0, 1, 0, 0, 0, 0}});
    file.sections.push_back({0, 2, 0, 0, 0, 0, 0, 0, 0, 0x11});
    EXPECT_EQ(symbol_rows(file), "\nSymbol Table:\nSymbol entry size: 0x11/17 bytes\n" + SYMBOL_HEAD);
}

TEST_F(ElfDump, StringTables)
{
    elf_fields file = symbol_file(std::string("\0one\0\0t\"wo", 10), {});
    EXPECT_EQ(part(file, 1, "\nString table: .strtab", "\nProgram"), "\nString table: .strtab\n\n"
                                                                     "00000000: \"\"\n"
                                                                     "00000001: \"one\"\n"
                                                                     "00000005: \"\"\n"
                                                                     "00000006: \"t\"wo\"\n"
                                                                     "\nString table: .shstrtab\n\n"
                                                                     "00000000: \"\"\n"
                                                                     "00000001: \".strtab\"\n");
}

TEST_F(ElfDump, MissingAndEmptyStringTables)
{
    EXPECT_EQ(part(named_file(""), 1, "\nString table: .strtab", "\nProgram"),
              "\nString table: .strtab\n\nEmpty\n\nString table: .shstrtab\n\nEmpty\n");
}

TEST_F(ElfDump, AStringTableEndsWithTheFile)
{
    elf_fields file = named_file("");
    file.sections[0][4] = 52 + 40 - 4; // the entry size of the only section header, which is 0x41424344
    file.sections[0][5] = 0xFFFFFFFF;
    file.sections[0][9] = 0x44434241;
    EXPECT_EQ(part(file, 1, "\nString table: .shstrtab", "\nProgram"),
              "\nString table: .shstrtab\n\n00000000: \"ABCD\"\n");
    file.sections[0][4] = 0xFFFFFFFF;
    EXPECT_EQ(part(file, 1, "\nString table: .shstrtab", "\nProgram"), "\nString table: .shstrtab\n\nEmpty\n");
}

// --- segments and data ---------------------------------------------------------------------------------------------

TEST_F(ElfDump, AllFieldsOfSegments)
{
    elf_fields file = named_file("");
    file.segments = {{6, 1, 2, 3, 4, 5, 0xFFFFFFF8, 7}, {1, 0x89ABCDEF, 0, 0, 0, 0, 4, 0x1000},
                     {2, 0, 0, 0, 0, 0, 2, 0},          {3, 0, 0, 0, 0, 0, 1, 0},
                     {4, 0, 0, 0, 0, 0, 7, 0},          {5, 0, 0, 0, 0, 0, 5, 0},
                     {0, 0, 0, 0, 0, 0, 6, 0},          {0x6474E551, 0, 0, 0, 0, 0, 3, 0}};
    EXPECT_EQ(
        part(file, 2, SEGMENT_HEAD, NO_DWARF),
        SEGMENT_HEAD +
            "Align    \n"
            "0     Program header table                 00000002 00000003 00000005 00000001 00000004 --- 00000007\n"
            "1     Loadable program segment             00000000 00000000 00000000 89ABCDEF 00000000 r-- 00001000\n"
            "2     Dynamic linking information          00000000 00000000 00000000 00000000 00000000 -w- 00000000\n"
            "3     Program interpreter                  00000000 00000000 00000000 00000000 00000000 --x 00000000\n"
            "4     Auxiliary information                00000000 00000000 00000000 00000000 00000000 rwx 00000000\n"
            "5     Reserved                             00000000 00000000 00000000 00000000 00000000 r-x 00000000\n"
            "6     Unused                               00000000 00000000 00000000 00000000 00000000 rw- 00000000\n"
            "7     0x6474E551                           00000000 00000000 00000000 00000000 00000000 -wx 00000000\n");
    EXPECT_EQ(part(named_file(""), 1, "\nProgram Headers", NO_DWARF), SEGMENT_HEAD + "\n");
}

TEST_F(ElfDump, DataIsPrintedFromVerbosityThree)
{
    elf_fields file = symbol_file("x", {{0, 0, 0, 0, 0, 0}});
    file.data += "ABC";
    const auto start = static_cast<std::uint32_t>(DATA_START + file.data.size() - 3); // 52 + 9 + 1 + 16 = 78
    file.sections[1][2] = 2;                                                          // the symbol table, never
    file.sections.push_back({1, 1, 2, 0, start, 3});                                  // shown
    file.sections.push_back({1, 8, 2, 0, start, 3});                                  // without data
    file.sections.push_back({1, 1, 0xFFFFFFFD, 0, start, 3});                         // not in memory
    file.sections.push_back({1, 1, 2, 0, start, 0});                                  // empty
    file.sections.push_back({99, 0x80000CC0, 7, 0, start + 1, 2});                    // shown, of unknown name
    file.segments = {{1, start, 0, 0, 0, 9, 4, 0}, {6, start + 2, 0, 0, 1, 0, 4, 0}};
    EXPECT_EQ(dump(file, 2).find("Data:\t"), std::string::npos);
    EXPECT_EQ(dump(file, 2).find(" Data: "), std::string::npos);
    EXPECT_EQ(part(file, 3, "\nSection Data", "\nProgram"), "\nSection Data: .strtab\n"
                                                            "  offset:  byte data\n"
                                                            "      4E:  41 42 43\n"
                                                            "\n"
                                                            "\nSection Data: (unknown)\n"
                                                            "  offset:  byte data\n"
                                                            "      4F:  42 43\n"
                                                            "\n");
    EXPECT_EQ(part(file, 3, "\nSegment Data", NO_DWARF), "\nSegment Data: No. 1, Program header table (0x6)\n"
                                                         "  offset:  byte data\n"
                                                         "      50:  43\n");
}

TEST_F(ElfDump, DataBehindTheEndIsLeftOut)
{
    elf_fields file = named_file("");
    file.sections[0] = {2, 1, 2, 0, 52 + 40 - 2, 0xFFFFFFFF, 0, 0, 0, 0x01020304};
    file.segments = {};
    EXPECT_EQ(part(file, 3, "\nSection Data", "\nProgram"), "\nSection Data: (unknown)\n"
                                                            "  offset:  byte data\n"
                                                            "      5A:  02 01\n"
                                                            "\n");
    file.sections[0][4] = 0xFFFFFFFF;
    EXPECT_EQ(part(file, 3, "\nSection Data", "\nProgram"), "\nSection Data: (unknown)\n\n");
}

TEST_F(ElfDump, HexRowsHaveSixteenBytes)
{
    const std::string content("0123456789abcdefghijklmnopqrstuvwxyz\xFF\0", 38);
    const image_file file(content);
    struct expectation {
        std::uint32_t offset;
        std::uint32_t length;
        std::string text;
    };
    const std::string head = "  offset:  byte data\n";
    for (const expectation &e :
         {expectation{0, 0, ""},
          {1, 1, head + "       1:  31\n"},
          {0, 16, head + "       0:  30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66\n"},
          {4, 18, head + "       4:  34 35 36 37 38 39 61 62 63 64 65 66 67 68 69 6A\n      14:  6B 6C\n"},
          {36, 100, head + "      24:  FF 00\n"},
          {38, 1, ""},
          {0xFFFFFFFF, 0xFFFFFFFF, ""}}) {
        testing::internal::CaptureStdout();
        elf_hex_rows(e.offset, e.length, file.stream());
        std::fflush(stdout);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), e.text) << e.offset;
    }
}

// --- hostile files -------------------------------------------------------------------------------------------------

constexpr std::size_t LARGE = std::size_t{1} << 18;

TEST_F(ElfDump, ManySymbolsWithOneEndlessNameStayCheap)
{
    const std::vector<symbol_fields> symbols(400, {0, 0, 0, 0, 0, 0}); // 100 MiB, were they believed
    const std::string output = dump(symbol_file(std::string(LARGE, 'x'), symbols), 1);
    EXPECT_LT(output.size(), std::size_t{1} << 22);
    EXPECT_NE(output.find(NO_DWARF), std::string::npos);
}

TEST_F(ElfDump, ManySectionsWithOneDataStayCheap)
{
    elf_fields file = named_file(std::string(LARGE, '\0'));
    file.sections.resize(401, {0, 1, 2, 0, DATA_START, LARGE});
    const std::string output = dump(file, 3);
    EXPECT_LT(output.size(), std::size_t{1} << 24);
    EXPECT_NE(output.find(NO_DWARF), std::string::npos);
}

// Damaged in any one byte, or cut anywhere, a file is dumped or refused.
TEST_F(ElfDump, DamageIsSurvived)
{
    elf_fields file = symbol_file(std::string("\0main\0", 6), {{1, 0, 0, 0x12, 0, 1}});
    file.segments = {{1, DATA_START, 0, 0, 8, 8, 5, 0}};
    const std::string content = file.bytes();
    for (std::size_t i = 0; i < content.size(); ++i) {
        std::string damaged = content;
        damaged[i] = '\xFF';
        const std::string output = dump_bytes(damaged, 3);
        EXPECT_TRUE(output.starts_with("false") || output.ends_with(NO_DWARF)) << i;
        EXPECT_TRUE(dump_bytes(content.substr(0, i), 3).starts_with("false")) << i;
    }
}

} // namespace

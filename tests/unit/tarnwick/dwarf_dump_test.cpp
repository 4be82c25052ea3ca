// SPDX-License-Identifier: MIT
// Which sections are found, in which order they are printed, and what cannot be loaded.
#include "compiler/tarnwick/dwarf_dump.h"

#include <csignal>
#include <utility>

#include <sys/resource.h>
#include <unistd.h>

#include "tests/unit/tarnwick/dwarf_dump_testing.h"

namespace {

// A file of sections, with their headers and names.
class section_file {
public:
    section_file() : file_(std::tmpfile()) {}
    ~section_file() { std::fclose(file_); }
    section_file(const section_file &) = delete;
    section_file &operator=(const section_file &) = delete;

    void add(const std::string &name, const section_bytes &content, std::size_t missing = 0)
    {
        add_header(names_.size(), content.size() + missing);
        names_ += name + '\0';
        std::fwrite(content.data(), 1, content.size(), file_);
        offset_ += content.size();
    }
    void add_header(std::size_t name, std::size_t size) { headers_.b4(name).zeros(12).b4(offset_).b4(size).zeros(16); }
    // A section whose bytes are all zeros and take no room.
    void add_hole(const std::string &name, std::size_t size)
    {
        add_header(names_.size(), size);
        names_ += name + '\0';
        std::fflush(file_);
        EXPECT_EQ(0, ftruncate(fileno(file_), static_cast<off_t>(offset_ + size)));
        std::fseek(file_, 0, SEEK_END);
        offset_ += size;
    }
    // What the headers and names alone say, without looking at what is printed.
    void run() const { dwarf_find_secs(file_, headers_, names_); }
    // Standard output, then standard error.
    std::pair<std::string, std::string> dump()
    {
        alert_initialise();
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        run();
        std::string text = testing::internal::GetCapturedStdout();
        return {std::move(text), testing::internal::GetCapturedStderr()};
    }

private:
    std::FILE *file_;
    section_bytes headers_;
    std::string names_;
    std::size_t offset_ = 0;
};

const std::string NO_INFO = " WARNING: Size of .dwarf_info section is too small, must be at least (7), could not "
                            "continue...\n\n";

TEST(dwarf_dump, a_file_without_entries)
{
    const dwarf_room room;
    section_file file;
    file.add(".debug_str", section_bytes().text("a"));
    file.add(".text", section_bytes().text("a"));
    EXPECT_EQ("\n\nNo DWARF found\n", file.dump().first);
}

TEST(dwarf_dump, a_file_without_abbreviations)
{
    const dwarf_room room;
    section_file file;
    file.add(".debug_info", {});
    file.add(".debug_str", section_bytes().text("a"));
    const auto [out, err] = file.dump();
    EXPECT_EQ("\n\nDWARF:\n", out);
    EXPECT_NE(std::string::npos, err.find("missing abbreviation table"));
}

TEST(dwarf_dump, headings_in_their_order)
{
    const dwarf_room room;
    section_file file;
    for (const char *name : {".debug_ranges", ".debug_loc", ".debug_macinfo", ".debug_aranges", ".debug_pubtypes",
                             ".debug_pubnames", ".debug_frame", ".debug_line", ".debug_info", ".debug_abbrev"}) {
        file.add(name, {});
    }
    file.add(".debug_str", section_bytes().text("a"));
    const auto [out, err] = file.dump();
    EXPECT_EQ("", err);
    EXPECT_EQ("\n\nDWARF:\n"
              "\n\nContents of the .debug_str section:\n  <0>: \"a\"\n"
              "\n\nContents of the .debug_abbrev section:\n\n  Number TAG\n"
              "\n\nThe section .debug_info contains:\n" +
                  NO_INFO +
                  "\n\nDump of debug contents of section .debug_line:\n"
                  "\n\nThe section .debug_frame contains:\n"
                  "\n\nContents of the .debug_pubnames section:\n"
                  "\n\nThe section .debug_aranges contains:\n"
                  "\n\nThe section .debug_macinfo contains:\n"
                  "\n\nContents of the .debug_loc section:\n   Offset   Begin    End      Expression\n"
                  "\n\nContents of the .debug_ranges section:\n      Offset        Begin          End\n",
              out);
}

TEST(dwarf_dump, macro_information_is_printed_as_an_address_table)
{
    const dwarf_room room;
    section_file file;
    file.add(".debug_info", {});
    file.add(".debug_abbrev", {});
    file.add(".debug_macinfo", section_bytes().raw({3, 0, 0, 0, 1, 2, 0}));
    const std::string end = "\n\nThe section .debug_macinfo contains:\n  Length:                   3\n"
                            " WARNING: Length is too small, can not continue...\n";
    const std::string out = file.dump().first;
    EXPECT_EQ(end, out.substr(out.size() - std::min(out.size(), end.size())));
}

TEST(dwarf_dump, a_section_that_the_file_does_not_hold)
{
    const dwarf_room room;
    section_file file;
    file.add(".debug_abbrev", {});
    file.add(".debug_info", {});
    file.add(".debug_line", section_bytes().b1(1), 0xFFFFFF00);
    const auto [out, err] = file.dump();
    EXPECT_NE(std::string::npos, err.find("short read on \".debug_line\" (line number information)"));
    EXPECT_EQ(std::string::npos, out.find(".debug_line"));
}

TEST(dwarf_dump, a_name_outside_of_the_table)
{
    const dwarf_room room;
    section_file file;
    file.add(".text", {});
    file.add_header(6, 0); // the table has six bytes
    const auto [out, err] = file.dump();
    EXPECT_NE(std::string::npos, err.find("invalid ELF section header; skipping"));
    EXPECT_EQ("\n\nNo DWARF found\n", out);
}

const std::string INFO = "\n\nThe section .debug_info contains:\n";
const std::string FORM_WARNING = "\n\nWARNING: invalid attribute form, could not proceed...\n";
const std::string INFO_ERROR = "ERROR occurred while dumping .debug_info section...\n";
const std::string LINE_ERROR = "  Error occurred while reading prolog of .debug_line section, could not proceed.\n";

TEST(dwarf_dump, every_section_is_damaged_and_the_next_goes_on)
{
    const dwarf_room room;
    section_file file;
    file.add(".debug_str", section_bytes().raw({'a', 0, 'b'}));
    file.add(".debug_abbrev", section_bytes().raw({1, 0x34, 0, 3, 8, 0, 0, 2}));
    file.add(".debug_info", section_bytes().b4(7).b2(4).zeros(5));
    file.add(".debug_line", section_bytes().b4(1).b1(2));
    file.add(".debug_frame", section_bytes().b4(4).b4(0));
    file.add(".debug_pubnames", section_bytes().b4(9).zeros(9));
    file.add(".debug_pubtypes", section_bytes().b4(9));
    file.add(".debug_aranges", section_bytes().b4(12).b2(2).b4(0).b1(9).zeros(5));
    file.add(".debug_macinfo", section_bytes().b4(5).zeros(5));
    file.add(".debug_loc", section_bytes().b4(1).b4(2).b2(5));
    file.add(".debug_ranges", section_bytes().b4(1).b4(2).b4(3));
    const auto [out, err] = file.dump();
    EXPECT_EQ("WARNING: content of .dwarf_abbrev goes beyond the section limit.\n", err);
    EXPECT_EQ("\n\nDWARF:\n"
              "\n\nContents of the .debug_str section:\n  <0>: \"a\"\n  <2>: \"b\"\n"
              "\n\nContents of the .debug_abbrev section:\n\n  Number TAG\n"
              "   1      DW_TAG_variable           [no children]\n    DW_AT_name           DW_FORM_string\n" +
                  INFO +
                  "\n  Compilation Unit @ 0:\n   Length:        7\n   Version:       4\n"
                  " WARNING: Unsupported DWARF version (4), can not continue...\n"
                  "\n\nDump of debug contents of section .debug_line:\n"
                  "\n  Statement program at offset 0x0\n  Length:                      1\n"
                  "Prolog is too big (goes beyond the section limit)." +
                  LINE_ERROR +
                  "\n\nThe section .debug_frame contains:\n"
                  "Invalid length information in .debug_frame section, could not continue...\n"
                  "\n\nContents of the .debug_pubnames section:\n\n  Length:                              9\n"
                  " WARNING: Length is too small, can not continue...\n"
                  "\n\nThe section .debug_aranges contains:\n  Length:                   12\n"
                  "  Version:                             2\n  Offset into .debug_info:  0x0\n"
                  "  Pointer Size:             9\n WARNING: Pointer size is too big, can not continue...\n"
                  "\n\nThe section .debug_macinfo contains:\n  Length:                   5\n"
                  " WARNING: Length is too small, can not continue...\n"
                  "\n\nContents of the .debug_loc section:\n   Offset   Begin    End      Expression\n"
                  "\n\nContents of the .debug_ranges section:\n      Offset        Begin          End\n"
                  "           0            1            2\n",
              out);
}

// Texts that end without a newline stand in front of the next heading as they are.
TEST(dwarf_dump, texts_without_a_newline)
{
    const dwarf_room room;
    section_bytes unit = section_bytes().b2(2).b4(5 + 9 + 2).raw({1, 1, 0, 1, 10, 0, 1, 1, 1, 1, 0, 0, 0, 1, 0, 0});
    const auto line_end = [](const section_bytes &line) {
        section_file file;
        file.add(".debug_abbrev", section_bytes().raw({1, 0x34, 0, 3, 0x16, 0, 0, 0}));
        file.add(".debug_info", section_bytes().b4(10).b2(2).b4(0).b1(4).raw({1, 0x0B, 7}));
        file.add(".debug_line", line);
        file.add(".debug_frame", section_bytes().b1(0));
        const std::string out = file.dump().first;
        EXPECT_NE(std::string::npos,
                  out.find("DW_AT_name           :0x7 (7)\n" + FORM_WARNING + INFO_ERROR + "\n\nDump of debug"));
        const std::size_t place = out.find("\n\nThe section .debug_frame");
        return place == std::string::npos || place < 80 ? "no end in " + out : out.substr(place - 80, 80);
    };
    const std::string overrun = line_end(with_length(section_bytes(unit).b1(3)));
    EXPECT_TRUE(overrun.ends_with("00001: \n WARNING: Length field was incorrect")) << overrun;
    unit[11] = 1; // the operands of opcode 1
    const std::string lengths = line_end(with_length(unit));
    EXPECT_TRUE(lengths.ends_with("args\nNon standard opcode length was defined, could not proceed")) << lengths;
}

TEST(dwarf_dump, sections_that_cannot_be_loaded)
{
    struct description {
        std::string name;
        std::string text;
    };
    const dwarf_room room;
    section_file file;
    std::string expected;
    for (const description &d : {description{".debug_str", "string table"},
                                 {".debug_abbrev", "abbreviation table"},
                                 {".debug_info", "debug contributions"},
                                 {".debug_line", "line number information"},
                                 {".debug_frame", "call frame information"},
                                 {".debug_pubnames", "name lookup table"},
                                 {".debug_aranges", "address range table"},
                                 {".debug_macinfo", "macro information"},
                                 {".debug_loc", "location lists"},
                                 {".debug_ranges", "address ranges"}}) {
        file.add(d.name, {}, 100);
        expected += "(666) short read on \"" + d.name + "\" (" + d.text + ") (warning)\n";
    }
    file.add(".debug_pubtypes", {}, 100); // never loaded
    const auto [out, err] = file.dump();
    EXPECT_EQ(expected, err);
    EXPECT_EQ("\n\nDWARF:\n", out);
}

TEST(dwarf_dump, without_its_abbreviations_no_unit_can_be_read)
{
    const dwarf_room room;
    section_file file;
    file.add(".debug_info", section_bytes().b4(7).b2(2).b4(0).b1(4));
    file.add(".debug_abbrev", {}, 1);
    const auto [out, err] = file.dump();
    EXPECT_EQ("(666) short read on \".debug_abbrev\" (abbreviation table) (warning)\n", err);
    EXPECT_EQ("\n\nDWARF:\n" + INFO +
                  "\n  Compilation Unit @ 0:\n   Length:        7\n   Version:       2\n   Abbrev Offset: 0x0\n"
                  " WARNING: Abbrev Offset is too big, beyond the section limit, could not continue...\n",
              out);
}

TEST(dwarf_dump, the_last_section_of_a_name_counts)
{
    const dwarf_room room;
    section_file file;
    file.add(".debug_info", section_bytes().b4(7).b2(9).zeros(5));
    file.add(".debug_abbrev", {});
    file.add(".debug_info", {});
    file.add(".debug_information", {});
    EXPECT_TRUE(file.dump().first.ends_with(INFO + NO_INFO));
}

TEST(dwarf_dump, a_big_endian_file)
{
    const dwarf_room room(true);
    section_file file;
    file.add(".debug_abbrev", section_bytes().raw({1, 0x34, 0, 0x3B, 5, 0, 0, 0}));
    file.add(".debug_info", section_bytes().b4(10).b2(3).b4(0).b1(2).b1(1).b2(0x1234));
    file.add(".debug_ranges", section_bytes().b2(1).b2(0x203));
    const std::string out = file.dump().first;
    EXPECT_TRUE(out.ends_with("   Length:        10\n   Version:       3\n   Abbrev Offset: 0x0\n"
                              "   Pointer Size:  2\n <0><b>: Abbrev Number: 1 (DW_TAG_variable)\n"
                              "     DW_AT_decl_line      :0x1234 (4660)\n"
                              "\n\nContents of the .debug_ranges section:\n      Offset        Begin          End\n"
                              "           0            1          203\n"));
}

// With the sanitizers, too, memory that is not there is a null pointer.
extern "C" const char *__asan_default_options()
{
    return "allocator_may_return_null=1";
}

TEST(dwarf_dump, a_section_that_no_memory_holds)
{
    constexpr std::size_t SIZE = std::size_t{1} << 30;
    const dwarf_room room;
    const auto run = [] {
        section_file file;
        file.add(".debug_abbrev", {});
        file.add(".debug_info", {});
        file.add(".debug_ranges", section_bytes().b4(1).b4(2));
        file.add_hole(".debug_line", SIZE);
        alert_initialise();
        std::size_t pages = 0;
        std::FILE *own = std::fopen("/proc/self/statm", "r");
        if (own == nullptr || std::fscanf(own, "%zu", &pages) != 1) {
            _exit(2);
        }
        const rlim_t in_use = pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        const rlimit limit = {.rlim_cur = in_use + SIZE / 2, .rlim_max = in_use + SIZE / 2};
        setrlimit(RLIMIT_AS, &limit);
        dup2(STDERR_FILENO, STDOUT_FILENO);
        file.run();
        std::fflush(nullptr);
        _exit(static_cast<int>(alert_error_count()));
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(1),
                "\\(157\\) can't allocate 1073741824 bytes of memory\n"
                "\n\nContents of the .debug_ranges section:\n      Offset        Begin          End\n"
                "           0            1            2\n");
}

} // namespace

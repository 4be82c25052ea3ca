// SPDX-License-Identifier: MIT
// Which sections are found, in which order they are printed, and what cannot be loaded.
#include "compiler/tarnwick/dwarf_dump.h"

#include <utility>

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
    // Standard output, then standard error.
    std::pair<std::string, std::string> dump()
    {
        alert_initialise();
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        dwarf_find_secs(file_, headers_, names_);
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

} // namespace

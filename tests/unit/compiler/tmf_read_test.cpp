// SPDX-License-Identifier: MIT
// The parser of the map file: what each line becomes, and every report with its line number.
#include "compiler/common/tmf.h"

#include <algorithm>
#include <cstdio>
#include <random>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "tests/unit/compiler/tmf_testing.h"

namespace {

using TmfRead = MapFile;

std::FILE *stream_of(std::string_view text)
{
    std::FILE *stream = std::tmpfile();
    EXPECT_NE(stream, nullptr);
    EXPECT_EQ(std::fwrite(text.data(), 1, text.size(), stream), text.size());
    return stream; // at its end: the reader has to go back itself
}

bool read_text(std::string_view text)
{
    return tmf_read(stream_of(text), "prog.tmf");
}

constexpr std::string_view HEADINGS[] = {"%PSECTS",    "%UNUSED", "%LINETAB",  "%SYMTAB",
                                         "%SPLITSTAB", "%DABS",   "%SEGMENTS", "%NOTES"};

// A whole map file in which one section has these lines. The first of them stands on line `first_line(heading)`.
std::string map_with(std::string_view heading, std::string_view lines)
{
    std::string text = "%TMF\n";
    for (const std::string_view expected : HEADINGS) {
        text += std::string(expected) + "\n";
        if (expected == heading) {
            text += lines;
        }
    }
    return text;
}

std::uint32_t first_line(std::string_view heading)
{
    std::uint32_t line = 2;
    for (const std::string_view expected : HEADINGS) {
        line++;
        if (expected == heading) {
            break;
        }
    }
    return line;
}

// Reads a map file with these lines in one section. Of each report this leaves its line, counted from 1 for the first of
// these lines, and its text.
texts reports_on(std::string_view heading, std::string_view lines, bool expected_result = true)
{
    texts reports = lines_printed_by([&] { EXPECT_EQ(read_text(map_with(heading, lines)), expected_result); });
    for (std::string &report : reports) {
        constexpr std::string_view file = "prog.tmf: ";
        constexpr std::string_view number = ": (1437) TMF error: ";
        const std::size_t colon = report.find(number);
        if (report.starts_with(file) && colon != std::string::npos) {
            const std::uint32_t line = static_cast<std::uint32_t>(std::stoul(report.substr(file.size())));
            report = std::to_string(line + 1 - first_line(heading)) + ": " + report.substr(colon + number.size());
        }
    }
    return reports;
}

std::string hex(std::uint32_t value)
{
    return str_printf("%X", value);
}

texts psects()
{
    return texts_of(tmf_psects(), [](const tmf_psect *p) {
        return std::string(p->tmfps_obj) + "|" + p->tmfps_name + "|" + p->tmfps_class + "|" +
               std::to_string(p->tmfps_space) + "|" + hex(p->tmfps_link) + "|" + hex(p->tmfps_load) + "|" +
               hex(p->tmfps_length) + "|" + std::to_string(p->tmfps_delta) + "|" + std::to_string(p->tmfps_reloc);
    });
}

texts lines_of(const char *object)
{
    return texts_of(tmf_lines_of(object), [](const tmf_line *line) {
        return hex(line->tmfln_addr) + "|" + line->tmfln_psect + "|" + line->tmfln_class + "|" +
               std::to_string(line->tmfln_line) + "|" + line->tmfln_file;
    });
}

texts symbols()
{
    return texts_of(tmf_symbols(), [](const tmf_symbol *s) {
        return std::string(s->tmfsy_name) + "|" + hex(s->tmfsy_value) + "|" + std::to_string(s->tmfsy_loadadj) + "|" +
               s->tmfsy_class + "|" + std::to_string(s->tmfsy_space) + "|" + s->tmfsy_psect + "|" + s->tmfsy_file;
    });
}

texts splits()
{
    return texts_of(tmf_splits(),
                    [](const tmf_split *s) { return std::string(s->tmfsp_parent) + ">" + s->tmfsp_child; });
}

texts notes()
{
    return texts_of(tmf_notes(), [](const tmf_note *note) {
        std::string text = std::string(note->tmfnp_name) + ":";
        for (std::uint32_t i = 0; i < note->tmfnp_length; i++) {
            text += " " + hex(note->tmfnp_data[i]);
        }
        return text;
    });
}

constexpr std::string_view WHOLE_MAP = "# Map file\n"
                                       "\n"
                                       "%TMF\n"
                                       "# The psects.\n"
                                       "%PSECTS\n"
                                       "$startup.obj\n"
                                       "reset_vec CODE 0 0 0 2 1 1\n"
                                       "$dir with blanks/main.obj\n"
                                       "  text   CODE 0 10 8010 1F 2 4  \n"
                                       "bss - 1 20 20 3 1 1\n"
                                       "%UNUSED\n"
                                       "CODE 2F-7FF 2\n"
                                       "RAM 23-7F 1\n"
                                       "CODE 900-9FF 2\n"
                                       "%LINETAB\n"
                                       "$dir with blanks/main.obj\n"
                                       "12 text CODE >7:C:\\My Files\\main.c\n"
                                       "10 text CODE >5:C:\\My Files\\main.c\n"
                                       "%SYMTAB\n"
                                       "_main 20 8000 CODE 0 text main.obj\n"
                                       "_low 9000 -8000 CODE 0 text main.obj\n"
                                       "STACK 7F 0 - 1 - -\n"
                                       "%SPLITSTAB\n"
                                       "text text_split_1\n"
                                       "%DABS\n"
                                       "- 1 70 4\n"
                                       "buffer 1 74 8\n"
                                       "%SEGMENTS\n"
                                       "text 0 10 8010 1F 2\n"
                                       "%NOTES\n"
                                       "$codecov_info_hdr 18\n"
                                       "00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E FF \n"
                                       "A B\n";

void expect_whole_map()
{
    texts all = psects();
    std::sort(all.begin(), all.end());
    EXPECT_EQ(all,
              (texts{"dir with blanks/main.obj|bss|-|1|20|20|3|1|1",
                     "dir with blanks/main.obj|text|CODE|0|10|8010|1F|2|4", "startup.obj|reset_vec|CODE|0|0|0|2|1|1"}));
    EXPECT_EQ(lines_of("dir with blanks/main.obj"),
              (texts{"10|text|CODE|5|C:\\My Files\\main.c", "12|text|CODE|7|C:\\My Files\\main.c"}));
    EXPECT_EQ(count_of(tmf_symbols()), 3U);
    ASSERT_NE(tmf_find_symbol("_main"), nullptr);
    EXPECT_EQ(tmf_find_symbol("_main")->tmfsy_value, 0x20U);
    EXPECT_EQ(tmf_find_symbol("_main")->tmfsy_loadadj, 0x8000);
    ASSERT_NE(tmf_find_symbol("_low"), nullptr);
    EXPECT_EQ(tmf_find_symbol("_low")->tmfsy_loadadj, -0x8000);
    ASSERT_NE(tmf_find_symbol("STACK"), nullptr);
    EXPECT_STREQ(tmf_find_symbol("STACK")->tmfsy_class, "-");
    EXPECT_STREQ(tmf_find_symbol("STACK")->tmfsy_file, "-");
    EXPECT_EQ(tmf_find_symbol("STACK")->tmfsy_space, 1U);
    EXPECT_EQ(splits(), (texts{"text>text_split_1"}));
    EXPECT_EQ(texts_of(tmf_dabs(),
                       [](const tmf_dabs_record *d) {
                           return std::string(d->tmfda_name) + "|" + std::to_string(d->tmfda_space) + "|" +
                                  hex(d->tmfda_addr) + "|" + hex(d->tmfda_size);
                       }),
              (texts{"-|1|70|4", "buffer|1|74|8"}));
    EXPECT_EQ(texts_of(tmf_segments(),
                       [](const tmf_segment *s) {
                           return std::string(s->tmfsg_name) + "|" + std::to_string(s->tmfsg_space) + "|" +
                                  hex(s->tmfsg_link) + "|" + hex(s->tmfsg_file) + "|" + hex(s->tmfsg_size) + "|" +
                                  std::to_string(s->tmfsg_delta);
                       }),
              (texts{"text|0|10|8010|1F|2"}));
    EXPECT_EQ(notes(), (texts{"codecov_info_hdr: 0 1 2 3 4 5 6 7 8 9 A B C D E FF A B"}));
}

// ---- Whole files

TEST_F(TmfRead, WholeMap)
{
    EXPECT_EQ(lines_printed_by([] { EXPECT_TRUE(read_text(WHOLE_MAP)); }), texts{});
    EXPECT_TRUE(tmf_initialised);
    EXPECT_EQ(tmf_fp, nullptr);
    expect_whole_map();
    // The unused ranges are in the store: another line of the class keeps the first delta.
    const tmf_unused *unused = tmf_add_unused(str_cache("CODE"), 1, 0, 0);
    EXPECT_EQ(unused->tmfun_delta, 2U);
    ASSERT_EQ(unused->tmfun_ranges.count(), 3U);
    EXPECT_EQ(*unused->tmfun_ranges.get(0), (tmf_range{0x2F, 0x7FF}));
    EXPECT_EQ(*unused->tmfun_ranges.get(1), (tmf_range{0x900, 0x9FF}));
}

TEST_F(TmfRead, CarriageReturnsInFrontOfNewlines)
{
    std::string text;
    for (const char c : WHOLE_MAP) {
        text += c == '\n' ? "\r\n" : std::string(1, c);
    }
    EXPECT_EQ(lines_printed_by([&] { EXPECT_TRUE(read_text(text)); }), texts{});
    expect_whole_map();
}

TEST_F(TmfRead, LastLineWithoutNewline)
{
    EXPECT_EQ(lines_printed_by([] { EXPECT_TRUE(read_text(WHOLE_MAP.substr(0, WHOLE_MAP.size() - 1))); }), texts{});
    expect_whole_map();
}

TEST_F(TmfRead, EmptySections)
{
    EXPECT_EQ(reports_on("", ""), texts{});
    EXPECT_TRUE(tmf_initialised);
    EXPECT_EQ(count_of(tmf_psects()), 0U);
}

TEST_F(TmfRead, SecondReadDiscardsTheFirstStore)
{
    lines_printed_by([] {
        EXPECT_TRUE(read_text(WHOLE_MAP));
        EXPECT_TRUE(read_text(map_with("%SYMTAB", "only 1 0 CODE 0 text m.obj\n")));
    });
    EXPECT_EQ(symbols(), (texts{"only|1|0|CODE|0|text|m.obj"}));
    EXPECT_EQ(count_of(tmf_psects()), 0U);
    EXPECT_EQ(count_of(tmf_notes()), 0U);
}

TEST_F(TmfRead, SectionsInAnyOtherOrderAreMissing)
{
    for (const std::string_view missing : HEADINGS) {
        std::string text = "%TMF\n";
        std::uint32_t line = 1;
        bool before = true;
        for (const std::string_view heading : HEADINGS) {
            before = before && heading != missing;
            if (heading != missing) {
                text += std::string(heading) + "\n";
            }
            line += before ? 1 : 0;
        }
        const std::string expected = "prog.tmf: " + std::to_string(line + 1) +
                                     ": (1437) TMF error: Did not find section " + std::string(missing);
        EXPECT_EQ(lines_printed_by([&] { EXPECT_FALSE(read_text(text)); }), (texts{expected}));
        EXPECT_FALSE(tmf_initialised);
        EXPECT_EQ(tmf_fp, nullptr);
    }
}

TEST_F(TmfRead, HeadingsAreComparedInFull)
{
    for (const std::string_view heading : {"%PSECTS ", "%PSECTSX", "%PSECT", " %PSECTS", "%psects", "%EXTRA"}) {
        const std::string text = "%TMF\n" + std::string(heading) + "\n%UNUSED\n";
        EXPECT_EQ(lines_printed_by([&] { EXPECT_FALSE(read_text(text)); }),
                  (texts{"prog.tmf: 2: (1437) TMF error: Did not find section %PSECTS"}));
    }
}

TEST_F(TmfRead, EndOfFileForAHeading)
{
    // Each attempt to read a line counts, those that meet the end of the file too.
    const texts first = {"prog.tmf: 2: (1437) TMF error: Did not find section %PSECTS"};
    EXPECT_EQ(lines_printed_by([] { EXPECT_FALSE(read_text("")); }), first);
    EXPECT_EQ(lines_printed_by([] { EXPECT_FALSE(read_text("%TMF\n")); }), first);
    EXPECT_EQ(lines_printed_by([] { EXPECT_FALSE(read_text("%TMF\n%PSECTS\n%UNUSED\nRAM 1-2 1\n")); }),
              (texts{"prog.tmf: 5: (1437) TMF error: Did not find section %LINETAB"}));
}

TEST_F(TmfRead, QueriesAfterAMissingSectionFindNothing)
{
    lines_printed_by([] { EXPECT_FALSE(read_text("%TMF\n%PSECTS\n$a.obj\ntext CODE 0 0 0 1 1 1\n%UNUSED\n")); });
    EXPECT_EQ(count_of(tmf_psects()), 0U);
}

TEST_F(TmfRead, FirstLineIsNotLookedAt)
{
    EXPECT_EQ(lines_printed_by([] { EXPECT_TRUE(read_text("any" + map_with("", ""))); }), texts{});
}

// ---- Lines

TEST_F(TmfRead, LineNumbersCountEveryLine)
{
    EXPECT_EQ(reports_on("%SEGMENTS", "# comment\n"
                                      "\n"
                                      "\r\n"
                                      "one 0 0 0 0\n"
                                      "#\n"
                                      "two 0 0 0 0\n"),
              (texts{"4: no token at index 5", "4: segment (one) has a zero delta", "6: no token at index 5",
                     "6: segment (two) has a zero delta"}));
}

TEST_F(TmfRead, TabIsPartOfAToken)
{
    EXPECT_EQ(reports_on("%SPLITSTAB", "a\tb c\n"), texts{});
    EXPECT_EQ(splits(), (texts{"a\tb>c"}));
}

TEST_F(TmfRead, TextOfALineEndsAtANul)
{
    using namespace std::string_literals;
    EXPECT_EQ(reports_on("%SPLITSTAB", "a b\0c d\n\0lost line\ne f\r\0\n"s), texts{});
    EXPECT_EQ(splits(), (texts{"a>b", "e>f\r"}));
}

TEST_F(TmfRead, LoneCarriageReturnAtTheEndOfTheFileStays)
{
    // "2\r" is not a number to its end.
    EXPECT_EQ(lines_printed_by([] { read_text(map_with("", "") + "$n 2\r"); }),
              (texts{"prog.tmf: 10: (1437) TMF error: token 1 is not unsigned long of base 10",
                     "prog.tmf: 11: (1437) TMF error: note-psect \"n\" has length 2, but read only 0 bytes"}));
}

TEST_F(TmfRead, LinesOfAnyLength)
{
    for (const std::size_t length : {149U, 150U, 151U, 299U, 300U, 300000U}) {
        const std::string name(length, 'n');
        EXPECT_EQ(reports_on("%SYMTAB", name + " 1 0 CODE 0 text m.obj\n"), texts{});
        EXPECT_EQ(symbols(), (texts{name + "|1|0|CODE|0|text|m.obj"}));
    }
}

TEST_F(TmfRead, LineOfBlanksHasNoTokens)
{
    EXPECT_EQ(reports_on("%SPLITSTAB", "   \n"), (texts{"1: no token at index 1", "1: no token at index 0",
                                                        "1: parent of a psect split is NULL or an empty string"}));
}

namespace {

// The characters that a search for blanks might take for one: their neighbours, and themselves with another top bit.
constexpr std::string_view NO_BLANKS = "\xA0\x21\x1F\x60\t\x7F\x80\xFF\xA1\x9F\x01\xDF\x28\x22\xA8\x24";

// The `number`th token of this length. All of them begin otherwise, with no character that has a meaning there.
std::string token_of(std::size_t length, std::size_t number)
{
    std::string token(1, static_cast<char>('a' + number % 26));
    for (std::size_t at = 1; at < length; ++at) {
        token += NO_BLANKS[(at * 7 + number) % NO_BLANKS.size()];
    }
    return token;
}

constexpr std::size_t LENGTHS[] = {1, 2, 6, 7, 8, 9, 10, 14, 15, 16, 17, 18, 23, 24, 25, 31, 32, 33};

} // namespace

TEST_F(TmfRead, TokensOfAnyLength)
{
    std::string lines;
    texts expected;
    std::size_t number = 0;
    for (const std::size_t first : LENGTHS) {
        for (const std::size_t second : LENGTHS) {
            const std::string parent = token_of(first, ++number);
            const std::string child = token_of(second, ++number);
            lines += parent + " " + child + "\n";
            expected.push_back(parent + ">" + child);
        }
    }
    EXPECT_EQ(reports_on("%SPLITSTAB", lines), texts{});
    EXPECT_EQ(splits(), expected);
}

TEST_F(TmfRead, BlanksInFrontBetweenAndBehind)
{
    std::string lines;
    texts expected;
    std::size_t number = 0;
    for (const std::size_t front : {0U, 1U, 7U, 8U, 9U, 17U}) {
        for (const std::size_t between : {1U, 2U, 7U, 8U, 9U, 16U}) {
            for (const std::size_t behind : {0U, 1U, 8U, 11U}) {
                const std::string parent = token_of(1 + number % 18, number);
                const std::string child = token_of(1 + number / 3 % 18, number + 5);
                lines +=
                    std::string(front, ' ') + parent + std::string(between, ' ') + child + std::string(behind, ' ');
                lines += number % 2 == 0 ? "\n" : "\r\n";
                expected.push_back(parent + ">" + child);
                ++number;
            }
        }
    }
    EXPECT_EQ(reports_on("%SPLITSTAB", lines), texts{});
    EXPECT_EQ(splits(), expected);
}

// Each of the other characters at each place of a token.
TEST_F(TmfRead, OnlyTheBlankSeparates)
{
    std::string lines;
    texts expected;
    for (int c = 1; c <= 0xFF; ++c) {
        if (c == ' ' || c == '\n') {
            continue;
        }
        for (std::size_t at = 1; at <= 9; ++at) {
            std::string token(10, 'x');
            token[at] = static_cast<char>(c);
            lines += token + " y\n";
            expected.push_back(token + ">y");
        }
    }
    EXPECT_EQ(reports_on("%SPLITSTAB", lines), texts{});
    EXPECT_EQ(splits(), expected);
}

TEST_F(TmfRead, RandomTokensAndBlanks)
{
    std::mt19937 random(5);
    std::string lines;
    texts expected;
    for (std::size_t number = 0; number < 5000; ++number) {
        const std::string parent = token_of(1 + random() % 40, number);
        const std::string child = token_of(1 + random() % 40, random());
        lines += std::string(random() % 4 == 0 ? random() % 20 : 0, ' ') + parent;
        lines += std::string(1 + (random() % 3 == 0 ? random() % 20 : 0), ' ') + child;
        lines += std::string(random() % 4 == 0 ? random() % 20 : 0, ' ');
        // Further tokens that nobody looks at.
        for (std::size_t more = random() % 3 == 0 ? random() % 25 : 0; more > 0; --more) {
            lines += " " + token_of(1 + random() % 12, more);
        }
        lines += "\n";
        expected.push_back(parent + ">" + child);
    }
    EXPECT_EQ(reports_on("%SPLITSTAB", lines), texts{});
    EXPECT_EQ(splits(), expected);
}

// The last line ends with the file, in the middle of a step or at its end.
TEST_F(TmfRead, LastTokenEndsWithTheFile)
{
    for (const std::size_t length : LENGTHS) {
        const std::string name(length, 'n');
        EXPECT_EQ(lines_printed_by([&] { read_text(map_with("", "") + "$" + name + " 1\n0000000" + "FE"); }), texts{});
        EXPECT_EQ(notes(), texts{name + ": FE"});
        EXPECT_EQ(
            lines_printed_by([&] { read_text(map_with("", "") + "$" + name + " 1\nFE" + std::string(length, ' ')); }),
            texts{});
        EXPECT_EQ(notes(), texts{name + ": FE"});
    }
}

// As many tokens as a row may have, of all lengths that a number may be written in.
TEST_F(TmfRead, NumbersWithZerosInFront)
{
    std::string row;
    std::string expected = "n:";
    for (std::uint32_t i = 0; i < 16; ++i) {
        row += std::string(1 + i % 5 * 4, ' ') + std::string(i, '0') + hex(0xF0 + i);
        expected += " " + hex(0xF0 + i);
    }
    EXPECT_EQ(reports_on("%NOTES", "$n 00000000000000016\n" + row + "\n"), texts{});
    EXPECT_EQ(notes(), texts{expected});
}

// ---- Numbers

TEST_F(TmfRead, NumbersAreConvertedAsTheLibraryDoes)
{
    EXPECT_EQ(reports_on("%DABS", "a +1 0xFF FFFFFFFFF\n"
                                  "b -1 -1 0X10\n"
                                  "c 4294967296 fF 0\n"),
              texts{});
    EXPECT_EQ(texts_of(tmf_dabs(),
                       [](const tmf_dabs_record *d) {
                           return std::string(d->tmfda_name) + "|" + std::to_string(d->tmfda_space) + "|" +
                                  hex(d->tmfda_addr) + "|" + hex(d->tmfda_size);
                       }),
              (texts{"a|1|FF|FFFFFFFF", "b|4294967295|FFFFFFFF|10", "c|4294967295|FF|0"}));
}

TEST_F(TmfRead, NumberStandsAsFarAsItWasRead)
{
    EXPECT_EQ(reports_on("%DABS", "a 12x 1Fg zz\n"),
              (texts{"1: token 1 is not unsigned long of base 10", "1: token 2 is not unsigned long of base 16",
                     "1: token 3 is not unsigned long of base 16"}));
    const tmf_dabs_record *dabs = tmf_find_dabs("a");
    ASSERT_NE(dabs, nullptr);
    EXPECT_EQ(dabs->tmfda_space, 12U);
    EXPECT_EQ(dabs->tmfda_addr, 0x1FU);
    EXPECT_EQ(dabs->tmfda_size, 0U);
}

TEST_F(TmfRead, LoadAdjustmentIsSigned)
{
    EXPECT_EQ(reports_on("%SYMTAB", "a 0 -10 C 0 p f\n"
                                    "b 0 FFFFFFFF C 0 p f\n"
                                    "c 0 -FFFFFFFF C 0 p f\n"
                                    "d 0 7x C 0 p f\n"),
              (texts{"4: token 2 is not unsigned long of base 16"}));
    EXPECT_EQ(symbols(),
              (texts{"a|0|-16|C|0|p|f", "b|0|2147483647|C|0|p|f", "c|0|-2147483648|C|0|p|f", "d|0|7|C|0|p|f"}));
}

// ---- %PSECTS

TEST_F(TmfRead, PsectFieldsAreFetchedInTheirOrder)
{
    EXPECT_EQ(
        reports_on("%PSECTS", "$a.obj\n"
                              "   \n"),
        (texts{"2: no token at index 1", "2: no token at index 0", "2: no token at index 2", "2: no token at index 6",
               "2: no token at index 7", "2: no token at index 3", "2: no token at index 5", "2: no token at index 4",
               "2: psect name is NULL or an empty string", "2: psect's class name is an empty string",
               "2: psect with a zero length", "2: psect with a zero delta", "2: psect reloc is not a power of 2"}));
    EXPECT_EQ(psects(), (texts{"a.obj|||0|0|0|0|0|0"}));
}

TEST_F(TmfRead, PsectOutsideOfAnObject)
{
    EXPECT_EQ(
        reports_on("%PSECTS", "text CODE 0 0 0 1 1 1\n"),
        (texts{"1: psect defined outside of an object file", "1: psect object file name is NULL or an empty string"}));
    EXPECT_EQ(psects(), (texts{"|text|CODE|0|0|0|1|1|1"}));
}

TEST_F(TmfRead, NamelessObject)
{
    EXPECT_EQ(reports_on("%PSECTS", "$\n"
                                    "text CODE 0 0 0 1 1 1\n"),
              (texts{"1: Nameless object file", "2: psect object file name is NULL or an empty string"}));
}

TEST_F(TmfRead, DuplicatePsectGivesTwoReports)
{
    EXPECT_EQ(reports_on("%PSECTS", "$a.obj\n"
                                    "text CODE 0 0 0 1 1 1\n"
                                    "$b.obj\n"
                                    "text CODE 0 1 1 1 1 1\n"
                                    "$a.obj\n"
                                    "text CODE 0 2 2 1 1 1\n"),
              (texts{"6: psect (text) from object file \"a.obj\" already defined", "6: duplicate psect entry"}));
    EXPECT_EQ(psects().size(), 2U);
}

// ---- %UNUSED

TEST_F(TmfRead, UnusedRangeTokens)
{
    EXPECT_EQ(
        reports_on("%UNUSED", "RAM\n"
                              "RAM 1234 1\n"
                              "RAM -34 1\n"
                              "RAM 1g-2 1\n"
                              "RAM 1-2h 1\n"
                              "RAM x-y 1\n"
                              "RAM 5-4 1\n"
                              "RAM 0-1 x\n"),
        (texts{"1: no token at index 2", "1: no token at index 1", "1: token 1 is not a valid range token",
               "1: unused memory range with a delta of 0", "2: token 1 is not a valid range token",
               "3: token 1 is not a valid range token", "4: low address of token 1 is not an unsigned long of base 16",
               "5: high address of token 1 is not an unsigned long of base 16",
               "6: low address of token 1 is not an unsigned long of base 16",
               "6: high address of token 1 is not an unsigned long of base 16",
               "7: unused memory low address (0x5) is > high address (0x4)",
               "8: token 2 is not unsigned long of base 10", "8: unused memory range with a delta of 0"}));
    const tmf_unused *unused = tmf_add_unused(str_cache("RAM"), 1, 0, 0);
    ASSERT_EQ(unused->tmfun_ranges.count(), 9U);
    EXPECT_EQ(*unused->tmfun_ranges.get(0), (tmf_range{0, 0}));
    EXPECT_EQ(*unused->tmfun_ranges.get(3), (tmf_range{1, 2}));
    EXPECT_EQ(*unused->tmfun_ranges.get(4), (tmf_range{1, 2}));
    EXPECT_EQ(*unused->tmfun_ranges.get(6), (tmf_range{5, 4}));
}

TEST_F(TmfRead, UnusedRangeIsCutAtItsFirstHyphen)
{
    // Behind it stands a number with a sign, or none: both are what the conversion accepts.
    EXPECT_EQ(reports_on("%UNUSED", "RAM 1--1 1\n"
                                    "ROM 0- 1\n"),
              texts{});
    EXPECT_EQ(*tmf_add_unused(str_cache("RAM"), 1, 0, 0)->tmfun_ranges.get(0), (tmf_range{1, 0xFFFFFFFF}));
    EXPECT_EQ(*tmf_add_unused(str_cache("ROM"), 1, 0, 0)->tmfun_ranges.get(0), (tmf_range{0, 0}));
}

TEST_F(TmfRead, UnusedWithoutAClass)
{
    EXPECT_EQ(reports_on("%UNUSED", " \n"), (texts{"1: no token at index 0", "1: no token at index 2",
                                                   "1: no token at index 1", "1: token 1 is not a valid range token",
                                                   "1: unused memory in a class with a NULL name or empty string"}));
}

// ---- %LINETAB

TEST_F(TmfRead, LinesOfAnObject)
{
    EXPECT_EQ(reports_on("%LINETAB", "$b.obj\n"
                                     "20 text CODE >2:b.c\n"
                                     "10 text CODE >1:dir a/b.c: part 2\n"
                                     "$a.obj\n"
                                     "30 text CODE >3:a.c\n"
                                     "$b.obj\n"
                                     "08 data DATA   >  9:b.h\n"),
              texts{});
    EXPECT_EQ(texts_of(tmf_line_objects(), [](const char *object) { return std::string(object); }).size(), 2U);
    EXPECT_EQ(lines_of("a.obj"), (texts{"30|text|CODE|3|a.c"}));
    EXPECT_EQ(lines_of("b.obj"),
              (texts{"8|data|DATA|9|b.h", "10|text|CODE|1|dir a/b.c: part 2", "20|text|CODE|2|b.c"}));
}

TEST_F(TmfRead, LineTokenReports)
{
    EXPECT_EQ(
        reports_on("%LINETAB", "$a.obj\n"
                               "10 text CODE 1:a.c\n"
                               "10 text CODE >\n"
                               "10 text CODE >1\n"
                               "10 text CODE >1:\n"
                               "10 text CODE >:a.c\n"
                               "10 text CODE >1x:a.c\n"
                               "10 text CODE >x:a.c\n"
                               "10\n"
                               "1g text CODE >2:a.c\n"),
        (texts{"2: missing line:file token", "3: missing line:file token", "4: Invalid line:file token",
               "5: Invalid line:file token", "7: line number (1x) is not an unsigned long of base 10",
               "8: line number (x) is not an unsigned long of base 10", "9: no token at index 1",
               "9: no token at index 2", "9: missing line:file token", "10: token 0 is not unsigned long of base 16"}));
    EXPECT_EQ(lines_of("a.obj"), (texts{"1|text|CODE|2|a.c", "10|text|CODE|1|a.c"}));
}

TEST_F(TmfRead, FirstMarkOfTheLineCounts)
{
    EXPECT_EQ(reports_on("%LINETAB", "$a.obj\n"
                                     "10 te>7:x CODE >1:a.c\n"),
              texts{});
    EXPECT_EQ(lines_of("a.obj"), (texts{"10|te>7:x|CODE|7|x CODE >1:a.c"}));
}

TEST_F(TmfRead, LinesWithoutAnObjectBelongToTheLastOneOfThePsects)
{
    const auto map = [](std::string_view unused) {
        return "%TMF\n%PSECTS\n$a.obj\ntext CODE 0 0 0 1 1 1\n%UNUSED\n" + std::string(unused) +
               "%LINETAB\n10 text CODE >1:a.c\n%SYMTAB\n%SPLITSTAB\n%DABS\n%SEGMENTS\n%NOTES\n";
    };
    EXPECT_EQ(lines_printed_by([&] { EXPECT_TRUE(read_text(map(""))); }), texts{});
    EXPECT_EQ(lines_of("a.obj"), (texts{"10|text|CODE|1|a.c"}));
    // Unused memory leaves no object behind, and a line without one is dropped.
    EXPECT_EQ(lines_printed_by([&] { EXPECT_TRUE(read_text(map("RAM 1-2 1\n"))); }), texts{});
    EXPECT_EQ(count_of(tmf_line_objects()), 0U);
}

// ---- %SYMTAB, %SPLITSTAB, %DABS, %SEGMENTS

TEST_F(TmfRead, SymbolWithSixTokens)
{
    EXPECT_EQ(reports_on("%SYMTAB", "_f 10 0 CODE 0 text\n"),
              (texts{"1: no token at index 6", "1: symbol's (_f) object file name is an empty string"}));
    EXPECT_EQ(symbols(), (texts{"_f|10|0|CODE|0|text|"}));
}

TEST_F(TmfRead, SymbolReports)
{
    EXPECT_EQ(
        reports_on("%SYMTAB", " \n"
                              "_f 1 0 C 0 p f extra tokens\n"
                              "_f 2 0 C 0 p f\n"),
        (texts{"1: no token at index 0", "1: no token at index 1", "1: no token at index 2", "1: no token at index 3",
               "1: no token at index 4", "1: no token at index 5", "1: no token at index 6",
               "1: symbol name is NULL or an empty string", "3: symbol with the same name (_f) already in the table"}));
    EXPECT_EQ(symbols(), (texts{"_f|1|0|C|0|p|f"}));
}

TEST_F(TmfRead, SplitWithoutChild)
{
    EXPECT_EQ(reports_on("%SPLITSTAB", "parent\n"),
              (texts{"1: no token at index 1", "1: child of a psect split is NULL or an empty string"}));
    EXPECT_EQ(count_of(tmf_splits()), 0U);
}

TEST_F(TmfRead, DabsReports)
{
    EXPECT_EQ(reports_on("%DABS", " \n"
                                  "- 1 5\n"),
              (texts{"1: no token at index 0", "1: no token at index 1", "1: no token at index 2",
                     "1: no token at index 3", "1: dabs label is an empty string", "2: no token at index 3"}));
    EXPECT_EQ(count_of(tmf_dabs()), 2U);
}

TEST_F(TmfRead, SegmentReports)
{
    EXPECT_EQ(reports_on("%SEGMENTS", " \n"
                                      "a 0 0 0 0 1\n"
                                      "a 0 0 0 0 1\n"),
              (texts{"1: no token at index 0", "1: no token at index 1", "1: no token at index 2",
                     "1: no token at index 3", "1: no token at index 4", "1: no token at index 5",
                     "1: segment name is NULL or an empty string", "3: segment (a) already defined"}));
}

// ---- %NOTES

TEST_F(TmfRead, NoteOverSeveralRows)
{
    EXPECT_EQ(reports_on("%NOTES", "$b 3\n"
                                   "01\n"
                                   "# comment\n"
                                   "  2  fF \n"
                                   "$a 16\n"
                                   "0 1 2 3 4 5 6 7 8 9 a b c d e f\n"),
              texts{});
    EXPECT_EQ(notes(), (texts{"a: 0 1 2 3 4 5 6 7 8 9 A B C D E F", "b: 1 2 FF"}));
}

TEST_F(TmfRead, NoteDataMayComeInSeveralPieces)
{
    EXPECT_EQ(reports_on("%NOTES", "$a 1\n01\n$b 1\n02\n$a 1\n03\n"), texts{});
    EXPECT_EQ(notes(), (texts{"a: 1 3", "b: 2"}));
}

TEST_F(TmfRead, NoteLengthIsCheckedAtItsEnd)
{
    EXPECT_EQ(reports_on("%NOTES", "$n 16\n00 01 02 03 04 05 06 07\n"),
              (texts{"3: note-psect \"n\" has length 16, but read only 8 bytes"}));
    EXPECT_EQ(reports_on("%NOTES", "$n 1\n00 01\n$m 1\n00\n"),
              (texts{"3: note-psect \"n\" has length 1, but read only 2 bytes"}));
    // A "%" line ends the reading without the check.
    EXPECT_EQ(reports_on("%NOTES", "$n 16\n00 01 02 03 04 05 06 07\n%END\n$m 5\nzz\n"), texts{});
    EXPECT_EQ(notes(), (texts{"n: 0 1 2 3 4 5 6 7"}));
}

TEST_F(TmfRead, NoteHeadings)
{
    EXPECT_EQ(reports_on("%NOTES", "$ 1\n"
                                   "$n\n"
                                   "$m 0\n"
                                   "$k 1x\n"
                                   "05\n"),
              (texts{"1: missing note-psect name", "2: note-psect \"\" has length 1, but read only 0 bytes",
                     "2: no token at index 1", "2: note-psect cannot have zero length",
                     "3: note-psect cannot have zero length", "4: token 1 is not unsigned long of base 10"}));
    EXPECT_EQ(notes(), (texts{"k: 5"}));
}

TEST_F(TmfRead, NoteDataWithoutAHeading)
{
    EXPECT_EQ(reports_on("%NOTES", "01 zz\n"
                                   "$n 1\n"
                                   "02\n"),
              (texts{"1: missing note-psect name and length", "1: token 1 is not unsigned long of base 16",
                     "2: note-psect \"(null)\" has length 0, but read only 2 bytes"}));
    EXPECT_EQ(notes(), (texts{"n: 2"}));
}

TEST_F(TmfRead, NoteRowsOfTheWrongSize)
{
    EXPECT_EQ(reports_on("%NOTES", "$n 33\n"
                                   "0 1 2 3 4 5 6 7 8 9 A B C D E F zz\n"
                                   "   \n"
                                   "10 11 12 13 14 15 16 17 18 19 1A 1B 1C 1D 1E 1F 20 21 22 23\n"
                                   "20\n"),
              (texts{"2: line must contain (0,16] bytes of data", "3: line must contain (0,16] bytes of data",
                     "4: line must contain (0,16] bytes of data"}));
    EXPECT_EQ(notes(), (texts{"n: 0 1 2 3 4 5 6 7 8 9 A B C D E F 10 11 12 13 14 15 16 17 18 19 1A 1B 1C 1D 1E 1F "
                              "20"}));
}

TEST_F(TmfRead, NoteBytesThatAreTooWide)
{
    EXPECT_EQ(reports_on("%NOTES", "$n 4\n"
                                   "FF 100 -1 1FFz\n"),
              (texts{"2: value of token 1 (base 16) is wider than unsigned char",
                     "2: value of token 2 (base 16) is wider than unsigned char",
                     "2: token 3 is not unsigned long of base 16",
                     "2: value of token 3 (base 16) is wider than unsigned char"}));
    EXPECT_EQ(notes(), (texts{"n: FF 0 FF FF"}));
}

TEST_F(TmfRead, NotesAreTraced)
{
    const trace_log log(TRACE_ON);
    EXPECT_EQ(reports_on("", ""), texts{});
    EXPECT_EQ(trace_log::lines(), (texts{"ENTER read_notes", "EXIT read_notes"}));
}

// ---- Reports

TEST_F(TmfRead, PositionStaysBehindTheRead)
{
    lines_printed_by([] { read_text(map_with("%NOTES", "$n 0\n")); });
    // The heading stands on line 10; line 11 was the end of the file.
    EXPECT_EQ(lines_printed_by([] { alert(1437, "later"); }), (texts{"prog.tmf: 11: (1437) TMF error: later"}));
}

TEST_F(TmfRead, PositionIsTakenOverByTheFirstReportOnly)
{
    const std::uint32_t line = 3;
    alert_set_position("before.c", &line);
    EXPECT_TRUE(read_text(WHOLE_MAP));
    EXPECT_EQ(lines_printed_by([] { alert(1437, "later"); }), (texts{"before.c: 3: (1437) TMF error: later"}));
    alert_set_position(nullptr, nullptr);
}

void some_hook() {}

TEST_F(TmfRead, OldHookIsRestored)
{
    const alert_hook_function before = alert_hook(some_hook);
    lines_printed_by([] {
        read_text(WHOLE_MAP);
        EXPECT_EQ(alert_current_hook(), some_hook);
        read_text("");
        EXPECT_EQ(alert_current_hook(), some_hook);
    });
    alert_hook(before);
}

TEST_F(TmfRead, TooManyErrorsEndTheRun)
{
    std::string lines;
    std::string expected;
    for (std::uint32_t i = 0; i < 30; i++) {
        lines += "only_parent\n"; // two reports a line
    }
    for (std::uint32_t line = 7; line < 17; line++) {
        const std::string position = "prog.tmf: " + std::to_string(line) + ": ";
        expected += position + "(1437) TMF error: no token at index 1\n" + position +
                    "(1437) TMF error: child of a psect split is NULL or an empty string\n";
    }
    expected += "prog.tmf: 17: too many errors (21)\n";
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // with error counts of its own
    EXPECT_EXIT(
        {
            set_maxerrors(20);
            read_text(map_with("%SPLITSTAB", lines));
        },
        testing::ExitedWithCode(1), testing::Eq(expected));
}

// ---- tmf_isTMF

bool is_tmf(std::string_view text)
{
    std::FILE *stream = stream_of(text);
    const bool result = tmf_isTMF(stream);
    std::fclose(stream);
    return result;
}

TEST_F(TmfRead, IsTmf)
{
    EXPECT_TRUE(is_tmf("%TMF"));
    EXPECT_TRUE(is_tmf("%TMF\n"));
    EXPECT_TRUE(is_tmf("%TMF 1.0\r\n%PSECTS\n"));
    EXPECT_TRUE(is_tmf("%TMFX"));
    EXPECT_TRUE(is_tmf("# comment\n\n\r\n#\n%TMF\n"));
    EXPECT_TRUE(is_tmf(std::string("\0ignored\n%TMF\n", 14)));
    EXPECT_TRUE(is_tmf("#" + std::string(100000, 'x') + "\n%TMF\n"));
    EXPECT_TRUE(is_tmf(WHOLE_MAP));
}

TEST_F(TmfRead, IsNotTmf)
{
    EXPECT_FALSE(tmf_isTMF(nullptr));
    EXPECT_FALSE(is_tmf(""));
    EXPECT_FALSE(is_tmf("\n\n"));
    EXPECT_FALSE(is_tmf("# only a comment"));
    EXPECT_FALSE(is_tmf("%TM"));
    EXPECT_FALSE(is_tmf("%TM\nF"));
    EXPECT_FALSE(is_tmf("%tmf\n"));
    EXPECT_FALSE(is_tmf(" %TMF\n"));
    EXPECT_FALSE(is_tmf(":10000000\n%TMF\n"));
    EXPECT_FALSE(is_tmf("\r%TMF\n"));
    EXPECT_FALSE(is_tmf(std::string("\x7F"
                                    "ELF")));
    EXPECT_FALSE(is_tmf("\xFF\xFF\xFF"));
}

TEST_F(TmfRead, IsTmfRefusesALargeFileFromItsFirstCharacters)
{
    std::FILE *stream = stream_of("%TNF" + std::string(1000000, 'x'));
    EXPECT_FALSE(tmf_isTMF(stream));
    EXPECT_LT(std::ftell(stream), 10);
    std::fclose(stream);
}

} // namespace

// SPDX-License-Identifier: MIT
// Message catalogues: the built-in one, reading of files, the search in a directory, and what a file may change. The
// search in an installed toolchain is tested in zrinstdir_test.cpp.
#include "common/catalogue.h"

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/alert.h"
#include "common/trace.h"
#include "tests/unit/scenario.h"

namespace {

constexpr std::uint32_t ENGLISH = 9;
const std::string BUILT_IN = "20240104201356_en.msgs";
const std::string NEWER = "20250101000000_en.msgs";
const std::string OLDER = "20230101000000_en.msgs";

std::string bad_line(int number, const std::string &file = BUILT_IN)
{
    // The text brings a newline, and the report gets its own.
    return "Malformed error information on line " + std::to_string(number) + ", in file " + file + "\n\n";
}

// ---- The built-in catalogue

struct row {
    std::uint32_t number;
    const char *type; // as a catalogue writes it
    const char *text;
};

constexpr row ROWS[] = {
    {1, "M", "too many errors (%u)"},
    {141, "F", "can't open %s file \"%s\": %m"},
    {157, "E", "can't allocate %u bytes of memory"},
    {294, "F", "can't allocate %u bytes of memory"},
    {296, "F", "out of memory"},
    {378, "F", "can't create %s file \"%s\""},
    {393, "F", "missing argument to -W"},
    {413, "F", "write error on \"%s\""},
    {442, "F", "missing address in -A spec"},
    {443, "F", "bad low address \"%s\" in -A spec"},
    {444, "F", "expected \"-\" in -A spec"},
    {445, "F", "bad high address \"%s\" in -A spec"},
    {448, "F", "bad repeat count \"%s\" in -A spec"},
    {449, "F", "syntax error in -A spec: %s"},
    {523, "0", "argument to -W option (%d) illegal and ignored"},
    {600, "F", "no chip arch given for COFF write"},
    {602, "F", "null file format name"},
    {603, "F", "ambiguous file format name \"%s\""},
    {604, "F", "unknown file format name \"%s\""},
    {605, "F", "did not recognize format of input file"},
    {606, "F", "inconsistent symbol tables"},
    {607, "F", "inconsistent line number tables"},
    {609, "F", "missing processor spec after -P"},
    {611, "F", "too many input files"},
    {612, "F", "too many output files"},
    {613, "F", "no output file format specified"},
    {614, "F", "no input files specified"},
    {621, "F", "error writing ELF/DWARF section \"%s\" on \"%s\""},
    {623, "F", "bad class in type hashing"},
    {624, "F", "bad class in type compare"},
    {627, "F", "missing \"%c\" in SDB file \"%s\" line %u column %u"},
    {629, "F", "bad storage class \"%s\" in SDB file \"%s\" line %u column %u"},
    {630, "F", "invalid syntax for prefix list in SDB file \"%s\""},
    {631, "F", "syntax error at token \"%s\" in SDB file \"%s\" line %u column %u"},
    {632, "F", "can't handle address size (%lu)"},
    {633, "0", "unknown symbol class (%d)"},
    {634, "0", "error dumping \"%s\""},
    {635, "0", "invalid HEX file \"%s\" on line %d"},
    {636, "0", "checksum error in Intel HEX file \"%s\" on line %d"},
    {637, "0", "unknown prefix \"%s\" in SDB file \"%s\""},
    {638, "0", "version mismatch: 0x%X expected"},
    {639, "0", "zero bit width in Vantrel optional header"},
    {666, "0", "short read on \"%s\" (%s)"},
    {667, "0", "missing abbreviation table"},
    {668, "E", "prefix list did not match any SDB types"},
    {669, "E", "prefix list matched more than one SDB type"},
    {917, "E", "argument too long"},
    {1036, "E", "bad \"%s\" optional header length (0x%X expected)"},
    {1037, "E", "short read on %s"},
    {1038, "E", "string table length too short"},
    {1039, "E", "inconsistent symbol count"},
    {1043, "E", "unknown optional header"},
    {1044, "E", "end of file encountered"},
    {1045, "E", "short read on block of %u bytes"},
    {1046, "E", "short string read"},
    {1047, "E", "bad type byte for UBROF file"},
    {1048, "E", "bad time/date stamp"},
    {1049, "E", "wrong CRC on 0x%lX bytes; should be %04X"},
    {1050, "E", "bad date in 0x52 record"},
    {1051, "E", "bad date in 0x01 record"},
    {1052, "E", "unknown record type"},
    {1289, "-9", "line range limit exceeded, possibly affecting ability to debug code"},
    {1291, "E", "bad ELF string table index"},
    {1292, "E", "malformed define in .SDB file %s"},
    {1293, "0", "couldn't find type for \"%s\" in DWARF debugging information entry"},
    {1301, "0", "invalid ELF section header; skipping"},
    {1302, "F", "could not find valid ELF output extension for this device"},
    {1303, "-5", "invalid variable location detected: %s - %s"},
    {1304, "5", "unknown register name: \"%s\""},
    {1305, "5", "inconsistent storage class for variable: \"%s\""},
    {1306, "5", "inconsistent size (%d vs %d) for variable: \"%s\""},
    {1314, "F", "illegal action in memory allocation"},
    {1437, "E", "TMF error: %s"},
    {1450, "E", "invalid --%s-spaces argument (%s)"},
    {1451, "E", "no %s spaces have been defined"},
    {1452, "E", "one or more spaces are defined as data and code"},
    {1501, "0", "assertion failure: %s (%s:%d) "},
    {1502, "E", "assertion failure: %s (%s:%d) "},
    {1503, "F", "assertion failure: %s (%s:%d) "},
    {1521, "F", "internal error encountered creating DWARF information; contact Vantrel support with details"},
    {1606, "E", "w[no-]error option has been passed an invalid or missing message identifier"},
};

std::string type_name(const message_entry *entry)
{
    switch (entry->type) {
    case MESSAGE_FATAL:
        return "F";
    case MESSAGE_PLAIN:
        return "M";
    case MESSAGE_ERROR:
        return "E";
    case MESSAGE_WARNING:
        return std::to_string(entry->level);
    default:
        return "?";
    }
}

TEST(BuiltInCatalogue, HoldsTheRowsAndNoOthers)
{
    std::string expected;
    for (const row &r : ROWS) {
        expected += std::to_string(r.number) + " " + r.type + " " + r.text + "\n";
    }
    expect_run(
        [] {
            enter_scratch_folder();
            alert_initialise();
            for (const message_entry *entry : each(message_table)) {
                if (entry != nullptr) {
                    note("%u %s %s", entry->number, type_name(entry).c_str(), entry->text);
                }
            }
            for (const row &r : ROWS) {
                if (message_table.get(r.number)->number != r.number || message_texts.get(r.number)->text == nullptr) {
                    note("%u is at the wrong place", r.number);
                }
            }
        },
        expected);
}

TEST(BuiltInCatalogue, IsInForceWithoutAFile)
{
    expect_run(
        [] {
            enter_scratch_folder();
            note("%d%d%d", message_table ? 1 : 0, message_texts ? 1 : 0, message_file != nullptr);
            alert_initialise();
            note("%s %d", message_file, message_table.raw() == message_texts.raw());
        },
        "000\n" + BUILT_IN + " 1\n");
}

// ---- Names of catalogue files

TEST(CatalogueFiles, VersionOfAName)
{
    const struct {
        const char *path;
        std::uint64_t version;
    } rows[] = {
        {"20240104201356_en.msgs", 20240104201356},
        {"/a/b/12_en.msgs", 12},
        {"/1/2\\3_en.msgs", 3},
        {"/1/en_msgs.txt", 0},
        {"/1/", 0},
        {"", 0},
        {"-5_en.msgs", 0},
        {" 5_en.msgs", 0},
        {"18446744073709551615_en.msgs", UINT64_MAX},
        {"99999999999999999999_en.msgs", UINT64_MAX},
    };
    for (const auto &r : rows) {
        EXPECT_EQ(getMsgFileVersion(r.path), r.version) << r.path;
    }
}

// The names that are found in a directory of such files, sorted.
std::vector<std::string> found_names(const char *directory, std::uint32_t language, std::uint32_t *count)
{
    auto files = vector_of<const char *>::make();
    *count = findMsgFiles(directory, language, &files);
    std::vector<std::string> names;
    for (const char *name : each(files)) {
        names.emplace_back(name);
    }
    files.free();
    std::sort(names.begin(), names.end());
    return names;
}

void note_names(const char *directory, std::uint32_t language)
{
    std::uint32_t count = 0;
    const std::vector<std::string> names = found_names(directory, language, &count);
    std::string line;
    for (const std::string &name : names) {
        line += " " + name;
    }
    note("%u%s", count, line.c_str());
}

TEST(CatalogueFiles, AreFoundByLanguage)
{
    expect_run(
        [] {
            enter_scratch_folder();
            std::filesystem::create_directory("dir");
            for (const char *name : {"1_en.msgs", "_en.msgs", "x_en.msgs", "en_msgs.txt", "1_de.msgs", "de_msgs.txt",
                                     "1_fr.msgs", "fr_msgs.txt", "1_en.msgs.bak", "1_EN.msgs", "1en.msgs",
                                     "xen_msgs.txt", "EN_msgs.txt", "1_es.msgs"}) {
                write_file(std::string("dir/") + name, "");
            }
            note_names("dir", 7);
            note_names("dir", 12);
            for (const std::uint32_t english : {9U, 255U, 0U, 10U}) {
                note_names("dir", english);
            }
        },
        "2 dir/1_de.msgs dir/de_msgs.txt\n"
        "2 dir/1_fr.msgs dir/fr_msgs.txt\n"
        "4 dir/1_en.msgs dir/_en.msgs dir/en_msgs.txt dir/x_en.msgs\n"
        "4 dir/1_en.msgs dir/_en.msgs dir/en_msgs.txt dir/x_en.msgs\n"
        "4 dir/1_en.msgs dir/_en.msgs dir/en_msgs.txt dir/x_en.msgs\n"
        "4 dir/1_en.msgs dir/_en.msgs dir/en_msgs.txt dir/x_en.msgs\n");
}

TEST(CatalogueFiles, AreAppended)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file("1_en.msgs", "");
            auto files = vector_of<const char *>::make();
            files.push("first");
            note("%u", findMsgFiles(".", ENGLISH, &files));
            note("%u %s %s", files.count(), files.get(0), files.get(1));
            files.free();
        },
        "1\n2 first ./1_en.msgs\n");
}

TEST(CatalogueFiles, NoneWithoutAVectorOrADirectory)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file("1_en.msgs", "");
            auto files = vector_of<const char *>::make();
            note("%u", findMsgFiles(".", ENGLISH, nullptr));
            note("%u", findMsgFiles(nullptr, ENGLISH, &files));
            note("%u", findMsgFiles("", ENGLISH, &files));
            note("%u", findMsgFiles("missing", ENGLISH, &files));
            note("%u", findMsgFiles("1_en.msgs", ENGLISH, &files));
            note("%u", files.count());
            files.free();
        },
        "0\n0\n0\n0\n0\n0\n");
}

// ---- Which file is used

// The chosen one among files of these names in the current directory; the scratch folder's part is cut off.
void expect_choice(const std::vector<std::string> &names, const std::string &chosen, std::uint32_t language = 255)
{
    SCOPED_TRACE(testing::PrintToString(names));
    expect_run(
        [&] {
            const std::string folder = enter_scratch_folder() + "/";
            for (const std::string &name : names) {
                write_file(name, "");
            }
            std::string path = msg_filename(language);
            if (path.starts_with(folder)) {
                path.replace(0, folder.size(), "here:");
            }
            note("%s", path.c_str());
        },
        chosen + "\n");
}

TEST(CatalogueChoice, BuiltInWithoutFiles)
{
    expect_choice({}, BUILT_IN);
    expect_choice({"20250101000000_de.msgs", "readme.txt"}, BUILT_IN);
}

TEST(CatalogueChoice, NewestFirst)
{
    expect_choice({NEWER}, "here:" + NEWER);
    expect_choice({OLDER}, BUILT_IN);
    expect_choice({"en_msgs.txt", "x_en.msgs"}, BUILT_IN);
    expect_choice({OLDER, NEWER, "20260101000000_en.msgs", "en_msgs.txt"}, "here:20260101000000_en.msgs");
    // The built-in name takes part whatever the language.
    expect_choice({"20250101000000_de.msgs"}, "here:20250101000000_de.msgs", 7);
    expect_choice({"20230101000000_de.msgs", NEWER}, BUILT_IN, 7);
}

TEST(CatalogueChoice, ReverseAlphabeticBetweenEqualVersions)
{
    expect_choice({"30000000000000_en.msgs", "030000000000000_en.msgs", "30000000000000-a_en.msgs"},
                  "here:30000000000000_en.msgs");
    // The path begins with "/", which is below "2".
    expect_choice({BUILT_IN}, BUILT_IN);
}

// ---- The file that is found first decides types and texts

void raise_some()
{
    alert(1437, "x");
    alert(634, "x");
    alert(1, 7U);
    note("errors %u warnings %u", alert_error_count(), alert_warning_count());
}

TEST(CatalogueFile, DecidesTypesAndTextsAtTheStart)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file(NEWER, "# errors must be in numeric order\n"
                              "1 e count %u\n"
                              "634 M can't dump %s\n"
                              "1437 0 map file: %s\n");
            raise_some();
        },
        "(1437) map file: x (warning)\ncan't dump x\n(1) count 7\nerrors 1 warnings 1\n");
}

TEST(CatalogueFile, LowersAFatalMessage)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file(NEWER, "296 E no memory\n");
            note("%d", alert(296));
            alert(1521);
        },
        "(296) no memory\n1\n"
        "(1521) internal error encountered creating DWARF information; contact Vantrel support with details\n",
        1);
}

TEST(CatalogueFile, CannotAddMessages)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file(NEWER, "2 M two\n9999 M many\n10000 M most\n");
            alert(2);
            alert(10000);
            alert(157, 3U); // stays
        },
        "(2) An error, warning or message was generated, but no description is available\n"
        "(10000) An error, warning or message was generated, but no description is available\n"
        "(157) can't allocate 3 bytes of memory\n");
}

TEST(CatalogueFile, ATextCannotHarm)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file(NEWER, "1437 E %d%s%n%99999999999s|%s\n634 0 %s %s %s\n");
            alert(634, "x");
            alert(1437, "x");
        },
        // The argument is used up by "%d", for which it is of the wrong kind; nothing is printed for missing ones.
        "(634) x   (warning)\n(1437) %n|\n");
}

TEST(CatalogueFile, WindowsLineEndsAndMissingLastNewline)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file(NEWER, "# comment\r\n1437 E map\rfile: %s\r\n634 0 can't dump %s");
            alert(1437, "x");
            alert(634, "x");
        },
        "(1437) map\rfile: x\n(634) can't dump x (warning)\n");
}

TEST(CatalogueFile, FieldsAndBlanks)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file(NEWER, "1437 \t E\t\t map\t file  # %s  \n"
                              "00634\t0\tdump %s\t\n"
                              "  296 E memory\n"
                              "#1 M no\n"
                              "1 M first\n"
                              "1 M last\n");
            alert(1437, "x");
            alert(634, "x");
            alert(296);
            alert(1);
        },
        "(1437) map\t file  # x  \n(634) dump x\t (warning)\n(296) memory\nlast\n");
}

TEST(CatalogueFile, EveryType)
{
    const struct {
        const char *type;
        const char *line;
        int status;
    } rows[] = {
        {"F", "(1437) x\n", 1},
        {"f", "(1437) x\n", 1},
        {"E", "(1437) x\nerrors 1 warnings 0\n", 0},
        {"e", "(1437) x\nerrors 1 warnings 0\n", 0},
        {"M", "x\nerrors 0 warnings 0\n", 0},
        {"m", "x\nerrors 0 warnings 0\n", 0},
        {"0", "(1437) x (warning)\nerrors 0 warnings 1\n", 0},
        {"8", "(1437) x (warning)\nerrors 0 warnings 1\n", 0},
        {"-9", "errors 0 warnings 0\n", 0}, // below the level
        {"-1", "errors 0 warnings 0\n", 0},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.type);
        expect_run(
            [&] {
                enter_scratch_folder();
                write_file(NEWER, std::string("1437 ") + r.type + " x\n");
                alert(1437, "x");
                note("errors %u warnings %u", alert_error_count(), alert_warning_count());
            },
            r.line, r.status);
    }
}

TEST(CatalogueFile, WarningLevels)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file(NEWER, "634 -9 low\n635 8 high\n");
            for (const std::int32_t level : {-9, -8, 0, 8, 9}) {
                alert_set_level(level);
                note("%d", level);
                alert(634, "x");
                alert(635, "x", 1);
            }
        },
        "-9\n(634) low (warning)\n(635) high (warning)\n"
        "-8\n(635) high (warning)\n0\n(635) high (warning)\n8\n(635) high (warning)\n9\n");
}

// ---- Bad lines

TEST(CatalogueBadLines, AreReportedAndPassedOver)
{
    const std::string lines[] = {
        "",           // blank
        " \t ",       // blank, too
        "x E text",   // no number
        "+1 E text",  // not plain
        "-1 E text",  // outside
        "1x E text",  // not plain
        "0x1 E text", // not decimal
        "10001 E text",
        "99999999999999999999 E text",
        "1437",      // no type
        "1437 ",     // no type
        "1437 E",    // no text
        "1437 E \t", // no text
        "1437\vE x", // one field
        std::string("\0"
                    "1437 E x",
                    9), // ends at the NUL
        std::string("1437 E \0x", 9),
        "\r1437 E x", // a carriage return is no separator
    };
    for (const std::string &line : lines) {
        SCOPED_TRACE(testing::PrintToString(line));
        expect_run(
            [&] {
                enter_scratch_folder();
                write_file(NEWER, "# first\n" + line + "\n296 M memory\n");
                alert(296);
                alert(1437, "x");
            },
            bad_line(2) + "memory\n(1437) TMF error: x\n");
    }
}

TEST(CatalogueBadLines, AnUnknownTypeMakesAnEntryThatCountsAsNothing)
{
    for (const char *type : {"W", "x", "Error", "EE", "9", "-10", "+1", "1x", "-", "99999999999", "*"}) {
        SCOPED_TRACE(type);
        expect_run(
            [&] {
                enter_scratch_folder();
                write_file(NEWER, std::string("1437 ") + type + " map: %s\n");
                note("%d", alert(1437, "x"));
                alert_set_level(9); // no level hides it
                alert_werror("--Werror", false);
                alert(1437, "x");
                note("errors %u warnings %u", alert_error_count(), alert_warning_count());
                alert_override(0, 8);
                note("%d", alert(1437, "x"));
                alert_override(0, 9);
                note("%d", alert(1437, "x"));
            },
            bad_line(1) + "(1437) map: x (warning)\n1\n(1437) map: x (warning)\nerrors 0 warnings 0\n"
                          "(1437) map: x (warning)\n1\n0\n");
    }
}

TEST(CatalogueBadLines, AreMessagesThatCountAsNothing)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file(NEWER, "x\ny\n");
            alert_set_format_mode(1);
            alert_set_position("a.tmf", nullptr);
            alert_initialise();
            note("errors %u warnings %u", alert_error_count(), alert_warning_count());
        },
        "a.tmf: : " + bad_line(1) + "a.tmf: : " + bad_line(2) + "errors 0 warnings 0\n");
}

TEST(CatalogueBadLines, LongLines)
{
    // 255 characters fit, with any line end.
    for (const char *end : {"\n", "\r\n", ""}) {
        expect_run(
            [&] {
                enter_scratch_folder();
                write_file(NEWER, "1437 E " + std::string(248, 'x') + end);
                alert(1437, "");
            },
            "(1437) " + std::string(248, 'x') + "\n");
    }
    // What is longer comes in pieces of 255 characters, and each is a line by itself.
    expect_run(
        [] {
            enter_scratch_folder();
            write_file(NEWER, "1437 E " + std::string(248, 'x') + "634 M dump\n1521 M dwarf\nz\n");
            alert(1437, "");
            alert(634, "x");
            alert(1521);
        },
        bad_line(3) + "(1437) " + std::string(248, 'x') + "\ndump\ndwarf\n");
    expect_run(
        [] {
            enter_scratch_folder();
            write_file(NEWER, std::string(600, 'x') + "\n# " + std::string(600, 'x') + "\n");
            alert_initialise();
        },
        bad_line(1) + bad_line(1) + bad_line(1) + bad_line(2) + bad_line(2));
}

// ---- Loading

TEST(MessageLoad, MissingFileChangesNothing)
{
    expect_run(
        [] {
            enter_scratch_folder();
            alert_initialise();
            const vector *table = message_table.raw();
            note("%d", message_load("missing") ? 1 : 0);
            note("%s %d %d", message_file, message_table.raw() == table, message_texts.raw() == table);
        },
        "0\n" + BUILT_IN + " 1 1\n");
}

TEST(MessageLoad, ASecondCatalogueChangesTextsOnly)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file("a", "1437 0 map: %s\n634 E dump\n");
            write_file("b", "1437 M other: %s\n");
            raise_some();
            const vector *loaded = message_load("a").raw();
            note("%d %s", loaded == message_texts.raw(), message_file);
            raise_some();
            message_load("b");
            raise_some();
            message_load(BUILT_IN.c_str());
            raise_some();
            note("%s", message_file);
        },
        "(1437) TMF error: x\n(634) error dumping \"x\" (warning)\ntoo many errors (7)\nerrors 1 warnings 1\n1 a\n"
        "(1437) map: x\n(634) dump (warning)\ntoo many errors (7)\nerrors 2 warnings 2\n"
        "(1437) other: x\n(634) error dumping \"x\" (warning)\ntoo many errors (7)\nerrors 3 warnings 3\n"
        "(1437) TMF error: x\n(634) error dumping \"x\" (warning)\ntoo many errors (7)\nerrors 4 warnings 4\n" +
            BUILT_IN + "\n");
}

TEST(MessageLoad, AFoundFileThatCannotBeOpenedLeavesTheBuiltInCatalogue)
{
    expect_run(
        [] {
            enter_scratch_folder();
            std::filesystem::create_symlink("nowhere", NEWER);
            note("%s", std::filesystem::path(msg_filename(255)).filename().c_str());
            alert(1437, "x");
            note("%s", message_file);
        },
        NEWER + "\n(1437) TMF error: x\n" + BUILT_IN + "\n");
}

// ---- --edf=

constexpr trace_sink LINE_SINK = {
    .line =
        [](const char *, int, const char *format, std::va_list arguments) {
            std::fputs("trace: ", stderr);
            std::vfprintf(stderr, format, arguments);
            std::fputc('\n', stderr);
        },
    .text = [](const char *, int, const char *) {},
    .enter = [](const char *, int, const char *, const char *, std::va_list) {},
    .exit = [](const char *, int, const char *, const char *, std::va_list) {},
    .raw = [](const char *, std::va_list) {},
    .raw_text = [](const char *) {},
    .alert = [](const char *) {},
    .assert_failed = [](const char *, const char *, int) {},
};

// Loads files of these names one after the other, and tells which is in force after each.
void open_all(const std::vector<std::string> &names)
{
    for (const std::string &name : names) {
        const bool opened = open_edf(name.c_str());
        note("%d %s", opened, message_file != nullptr ? message_file : "none");
    }
}

TEST(OpenEdf, AMissingFileIsRefusedBeforeTheLayerStarts)
{
    expect_run(
        [] {
            enter_scratch_folder();
            open_all({"missing", BUILT_IN, "missing"});
        },
        "0 none\n1 " + BUILT_IN + "\n0 " + BUILT_IN + "\n");
}

TEST(OpenEdf, ChangesTextsOnly)
{
    expect_run(
        [] {
            enter_scratch_folder();
            std::filesystem::create_directory("edf"); // the search at the start must not find it
            write_file("edf/" + NEWER, "1437 0 map: %s\nbad\n");
            open_all({"edf/" + NEWER});
            raise_some();
        },
        // The name is that of the catalogue that is still in force.
        bad_line(2) + "1 edf/" + NEWER +
            "\n(1437) map: x\n(634) error dumping \"x\" (warning)\ntoo many errors (7)\nerrors 1 warnings 1\n");
}

TEST(OpenEdf, BadLinesNameTheFileInForce)
{
    expect_run(
        [] {
            enter_scratch_folder();
            std::filesystem::create_directory("edf"); // the search at the start must not find them
            const std::string newest = "edf/20260101000000_en.msgs";
            write_file("edf/" + NEWER, "bad\n");
            write_file(newest, "# good\n\nbad\n");
            open_all({"edf/" + NEWER, newest});
        },
        bad_line(1) + "1 edf/" + NEWER + "\n" + bad_line(2, "edf/" + NEWER) + bad_line(3, "edf/" + NEWER) +
            "1 edf/20260101000000_en.msgs\n");
}

TEST(OpenEdf, OnlyANewerFileIsLoaded)
{
    expect_run(
        [] {
            enter_scratch_folder();
            std::filesystem::create_directory("edf"); // the search at the start must not find them
            const std::string newest = "edf/20260101000000_en.msgs";
            for (const std::string &name : {"edf/" + OLDER, "edf/" + NEWER, newest, std::string("edf/any.txt")}) {
                write_file(name, "");
            }
            open_all({"edf/" + OLDER, "edf/any.txt", "edf/" + NEWER, newest, "edf/" + NEWER, newest, BUILT_IN});
        },
        "1 " + BUILT_IN + "\n1 " + BUILT_IN + "\n1 edf/" + NEWER +
            "\n1 edf/20260101000000_en.msgs\n1 edf/20260101000000_en.msgs\n1 edf/20260101000000_en.msgs\n"
            "1 edf/20260101000000_en.msgs\n");
}

TEST(OpenEdf, BetweenEqualVersionsTheHigherName)
{
    expect_run(
        [] {
            enter_scratch_folder();
            for (const char *folder : {"a", "b", "1"}) {
                std::filesystem::create_directory(folder);
                write_file(folder + ("/" + BUILT_IN), "");
            }
            open_all({"1/" + BUILT_IN, "b/" + BUILT_IN, "a/" + BUILT_IN, "b/" + BUILT_IN});
        },
        "1 " + BUILT_IN + "\n1 b/" + BUILT_IN + "\n1 b/" + BUILT_IN + "\n1 b/" + BUILT_IN + "\n");
}

TEST(OpenEdf, TracesAFileThatIsNotNewer)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file("old", "");
            trace_install(&LINE_SINK);
            open_edf("old"); // not traced
            gDebugMask = TRACE_ON;
            open_edf("old");
        },
        "trace: \"old\" is not newer than \"" + BUILT_IN + "\"\n");
}

TEST(OpenEdf, IsFalseForAFileThatCannotBeRead)
{
    expect_run(
        [] {
            enter_scratch_folder();
            std::filesystem::create_directory(NEWER); // there, and no file
            open_edf(BUILT_IN.c_str());
            open_all({NEWER});
        },
        "0 " + BUILT_IN + "\n");
}

} // namespace

// SPDX-License-Identifier: MIT
// The trace file and its options, and the assertion handler. Each scenario is a process of its own.
#include "compiler/common/zrdebug.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/alert.h"
#include "common/hash_of.h"
#include "common/skiplist.h"
#include "common/trace.h"
#include "common/vector_of.h"
#include "tests/unit/scenario.h"

namespace {

constexpr const char *DEFAULT_FILE = "tarnwick-1.out";
constexpr const char *SOURCE = "compiler/x/elf.cpp"; // traced with its base name
const std::string WARNING = "ZRDEBUG (warning): ";

// Begins a scenario in a new folder, with these options.
void start(const char *option)
{
    enter_scratch_folder();
    zrdebug_install();
    zrdebug_parse(option);
}

// Prints the trace file, as it is now, and a mark behind it.
void show(const std::string &path = DEFAULT_FILE)
{
    note("%s<end>", read_file(path).c_str());
}

void note_files()
{
    for (const char *name : {"tarnwick-1.out", "tarnwick-7.out", "x.log", "y.log", "dir/tarnwick-1.out"}) {
        if (std::filesystem::exists(name)) {
            note("%s", name);
        }
    }
}

// ---- Options

TEST(ZrdebugOptions, MasksAndModes)
{
    const struct {
        const char *option;
        std::uint32_t mask;
        std::uint32_t mode;
    } rows[] = {
        {"zrdebug=", 0, 0},
        {"zrdebug=default", 1, 0},
        {"zrdebug=on", 1, 0},
        {"zrdebug=sdb", 2, 0},
        {"zrdebug=dwarf", 4, 0},
        {"zrdebug=alerts", 8, 0},
        {"zrdebug=adt", 16, 0},
        {"zrdebug=DWARF", 4, 0},
        {"zrdebug=dwarfish:any", 4, 0}, // the name is a prefix
        {"zrdebug=online,sdb2", 3, 0},
        {"zrdebug=,on,,dwarf,", 5, 0},
        {"on,sdb,dwarf,alerts,adt", 31, 0}, // without "="
        {"zrdebug=assert:ignore", 0, 0},
        {"zrdebug=assert:fatal", 0, 1},
        {"zrdebug=assert:error,sdb", 2, 2},
        {"zrdebug=ASSERT:Warning", 0, 3},
        {"zrdebug=out:x.log", 0, 0},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.option);
        expect_run(
            [&] {
                start(row.option);
                note("%u %u", gDebugMask, gAssertMode);
            },
            std::to_string(row.mask) + " " + std::to_string(row.mode) + "\n");
    }
}

TEST(ZrdebugOptions, Warnings)
{
    const struct {
        const char *option;
        const char *text;
    } rows[] = {
        {"zrdebug=bogus", "unknown option \"bogus\""},
        {"zrdebug=dwar", "unknown option \"dwar\""},
        {"zrdebug=O", "unknown option \"O\""},
        {"zrdebug=bogus:x=1", "unknown option \"bogus:x=1\""},
        {"zrdebug=out", "option \"out\", must have a filename argument"},
        {"zrdebug=out:", "option \"out\", must have a filename argument"},
        {"zrdebug=assert", "option \"assert\", must have an argument"},
        {"zrdebug=assert:Loud", "unknown argument (Loud) given to assert option"},
        {"zrdebug=assert:fatally", "unknown argument (fatally) given to assert option"},
        {"zrdebug=debug", "option \"debug\", must have at least one argument"},
        {"zrdebug=debug::", "option \"debug\", must have at least one argument"},
        {"zrdebug=num", "option \"num\", must have an argument"},
        {"zrdebug=num:0", "\"num\" option must be a decimal integer > 0, using \"1\""},
        {"zrdebug=num:-4", "\"num\" option must be a decimal integer > 0, using \"1\""},
        {"zrdebug=num:x", "\"num\" option must be a decimal integer > 0, using \"1\""},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.option);
        expect_run(
            [&] {
                start(row.option);
                note("%u", gDebugMask);
                note_files();
            },
            WARNING + row.text + "\n0\n");
    }
}

TEST(ZrdebugOptions, ABadPartDoesNotStopTheOthers)
{
    expect_run(
        [] {
            start("zrdebug=num:7,bogus,num:x,sdb,assert,dwarf");
            note("%u", gDebugMask);
            note_files();
        },
        WARNING + "unknown option \"bogus\"\n" + WARNING +
            "\"num\" option must be a decimal integer > 0, using \"7\"\n" + WARNING +
            "option \"assert\", must have an argument\n6\ntarnwick-7.out\n");
}

TEST(ZrdebugOptions, OnlyTheFirstOptionCounts)
{
    expect_run(
        [] {
            start("zrdebug=dwarf");
            zrdebug_parse("zrdebug=sdb,out:x.log");
            zrdebug_parse("zrdebug=");
            note("%u", gDebugMask);
            note_files();
        },
        WARNING + "Ignoring extra --zrdebug options\n" + WARNING +
            "Ignoring extra --zrdebug options\n4\ntarnwick-1.out\n");
    expect_run(
        [] {
            start("zrdebug=");
            zrdebug_parse("zrdebug=sdb");
            note("%u", gDebugMask);
        },
        WARNING + "Ignoring extra --zrdebug options\n0\n");
}

TEST(ZrdebugOptions, DebugTargets)
{
    expect_run(
        [] {
            start("zrdebug=debug:One::two,debug:THREE:one");
            note("%u %u %d%d%d%d", gDebugMask, gDebugTargets.count(), gDebugTargets.contains("ONE"),
                 gDebugTargets.contains("Two"), gDebugTargets.contains("three"), gDebugTargets.contains("four"));
        },
        "0 3 1110\n");
}

// ---- The trace file

TEST(ZrdebugFile, DefaultNameWithItsNumber)
{
    expect_run(
        [] {
            start("zrdebug=on,num:7");
            note_files();
        },
        "tarnwick-7.out\n");
}

TEST(ZrdebugFile, DefaultNameReplacesTheFile)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file(DEFAULT_FILE, "old\n");
            zrdebug_install();
            zrdebug_parse("zrdebug=on");
            trace_raw_text("new");
            show();
        },
        "new\n<end>\n");
}

TEST(ZrdebugFile, OutIsUsedInPlaceOfTheDefault)
{
    for (const char *option : {"zrdebug=dwarf,out:x.log", "zrdebug=out:x.log,dwarf"}) {
        expect_run(
            [=] {
                enter_scratch_folder();
                write_file("x.log", "old\n");
                zrdebug_install();
                zrdebug_parse(option);
                trace_raw_text("new");
                note_files();
                show("x.log");
            },
            "x.log\nnew\n<end>\n");
    }
}

TEST(ZrdebugFile, OutAppendsBehindAPlus)
{
    expect_run(
        [] {
            enter_scratch_folder();
            write_file("x.log", "old\n");
            zrdebug_install();
            zrdebug_parse("zrdebug=out:+x.log,on");
            trace_raw_text("new");
            note_files();
            show("x.log");
        },
        "x.log\nold\nnew\n<end>\n");
}

TEST(ZrdebugFile, OutIntoADirectory)
{
    expect_run(
        [] {
            enter_scratch_folder();
            std::filesystem::create_directory("dir");
            zrdebug_install();
            zrdebug_parse("zrdebug=out:dir,on,num:7"); // the number of the time counts
            trace_raw_text("new");
            note_files();
            show("dir/tarnwick-1.out");
        },
        "dir/tarnwick-1.out\nnew\n<end>\n");
}

TEST(ZrdebugFile, ASecondOutReplacesTheFirst)
{
    expect_run(
        [] {
            start("zrdebug=out:x.log,out:y.log,on");
            trace_raw_text("new");
            show("x.log");
            show("y.log");
        },
        WARNING + "debug-out file was set to \"x.log\", resetting to \"y.log\"\n<end>\nnew\n<end>\n");
}

TEST(ZrdebugFile, AnArgumentKeepsItsFurtherColons)
{
    expect_run(
        [] {
            start("zrdebug=out:x:y,on");
            note("%d", std::filesystem::exists("x:y"));
        },
        "1\n");
}

TEST(ZrdebugFile, OneThatCannotBeOpenedIsFatal)
{
    expect_run([] { start("zrdebug=out:missing/x.log"); },
               "(141) can't open debug-out file \"missing/x.log\": No such file or directory\n", 1);
    expect_run(
        [] {
            enter_scratch_folder();
            std::filesystem::create_directory(DEFAULT_FILE);
            zrdebug_install();
            zrdebug_parse("zrdebug=on");
        },
        "(141) can't open debug-out file \"tarnwick-1.out\": Is a directory\n", 1);
}

TEST(ZrdebugFile, IsCompleteAtAnyExit)
{
    expect_run(
        [] {
            start("zrdebug=on");
            tracef(SOURCE, 1, "a");
            show();
            trace(SOURCE, 2, "b");
            show();
            trace_enter(SOURCE, 3, "f", nullptr);
            show();
            trace_exit(SOURCE, 4, "f", nullptr);
            show();
        },
        "elf.cpp:1           > a\n<end>\n"
        "elf.cpp:1           > a\nelf.cpp:2           > b\n<end>\n"
        "elf.cpp:1           > a\nelf.cpp:2           > b\nelf.cpp:3           > ENTER f()\n<end>\n"
        "elf.cpp:1           > a\nelf.cpp:2           > b\nelf.cpp:3           > ENTER f()\n"
        "elf.cpp:4           > EXIT f()\n<end>\n");
}

TEST(ZrdebugFile, NothingIsWrittenWithoutOne)
{
    expect_run(
        [] {
            start("zrdebug=assert:ignore");
            char *arguments[] = {nullptr};
            tracef(SOURCE, 1, "%s", "");
            tracef(SOURCE, 1, "\n");
            trace(SOURCE, 2, "");
            trace_enter(SOURCE, 3, "f", "%d", 1);
            trace_exit(SOURCE, 4, "f", "%d", 1);
            trace_raw("%d", 1);
            trace_raw_text("x");
            trace_alert("x\n");
            trace_hexdump("x", "x", 1, 1, true);
            trace_args(0, arguments);
            zrdebug_close();
            note_files();
        },
        "");
}

// ---- Lines

TEST(ZrdebugLines, PositionColumn)
{
    expect_run(
        [] {
            start("zrdebug=on");
            tracef("a\\b.cpp", 12, "%s %d", "x", 3);
            tracef("x/seventeen-chars.c", 1, "19 wide");
            tracef("x/seventeen-chars.c", 12, "20 wide");
            tracef("x/seventeen-chars.c", 123, "21 wide");
            show();
        },
        "b.cpp:12            > x 3\n"
        "seventeen-chars.c:1 > 19 wide\n"
        "seventeen-chars.c:12> 20 wide\n"
        "seventeen-chars.c:123> 21 wide\n<end>\n");
}

TEST(ZrdebugLines, AreSplitAtNewlines)
{
    expect_run(
        [] {
            start("zrdebug=on");
            tracef(SOURCE, 1, "a %d\nb %%d\n\nc\n", 5);
            tracef(SOURCE, 2, "\n%s\n", "x\ny"); // the arguments are not split
            trace(SOURCE, 3, "a %d\nb\n\n%%\n");
            show();
        },
        "elf.cpp:1           > a 5\n"
        "elf.cpp:1           > b %%d\n"
        "elf.cpp:1           > c\n"
        "elf.cpp:2           > x\ny\n"
        "elf.cpp:3           > a %d\n"
        "elf.cpp:3           > b\n"
        "elf.cpp:3           > %%\n<end>\n");
}

TEST(ZrdebugLines, NoneAtAllIsAWarning)
{
    expect_run(
        [] {
            start("zrdebug=on");
            const std::string empty;
            tracef(SOURCE, 1, empty.c_str(), 0);
            tracef(SOURCE, 2, "\n\n");
            trace(SOURCE, 3, "");
            trace(SOURCE, 4, "\n");
            show();
        },
        WARNING + "tracef (at compiler/x/elf.cpp:1) contains no lines\n" + WARNING +
            "tracef (at compiler/x/elf.cpp:2) contains no lines\n" + WARNING +
            "trace (at compiler/x/elf.cpp:3) contains no lines\n" + WARNING +
            "trace (at compiler/x/elf.cpp:4) contains no lines\n<end>\n");
}

TEST(ZrdebugLines, CallsIndent)
{
    expect_run(
        [] {
            start("zrdebug=on");
            trace_enter(SOURCE, 1, "outer", "%d, %s", 5, "x");
            tracef(SOURCE, 2, "a\nb");
            trace_enter(SOURCE, 3, "inner", nullptr);
            trace(SOURCE, 4, "c");
            trace_exit(SOURCE, 5, "inner", "%d", 7);
            trace_exit(SOURCE, 6, "outer", nullptr);
            tracef(SOURCE, 7, "d");
            show();
        },
        "elf.cpp:1           > ENTER outer(5, x)\n"
        "elf.cpp:2           >     a\n"
        "elf.cpp:2           >     b\n"
        "elf.cpp:3           >     ENTER inner()\n"
        "elf.cpp:4           >         c\n"
        "elf.cpp:5           >     EXIT inner() -> 7\n"
        "elf.cpp:6           > EXIT outer()\n"
        "elf.cpp:7           > d\n<end>\n");
}

TEST(ZrdebugLines, AnExitAtLevelZeroWarns)
{
    expect_run(
        [] {
            start("zrdebug=on");
            trace_exit(SOURCE, 1, "f", nullptr);
            trace_enter(SOURCE, 2, "g", nullptr);
            tracef(SOURCE, 3, "a");
            show();
        },
        WARNING +
            "min debug-out indent level reached\n"
            "elf.cpp:1           > EXIT f()\nelf.cpp:2           > ENTER g()\nelf.cpp:3           >     a\n<end>\n");
}

TEST(ZrdebugLines, RawOnesHaveNoPrefix)
{
    expect_run(
        [] {
            start("zrdebug=on");
            trace_enter(SOURCE, 1, "f", nullptr);
            trace_raw("# %d\n%s", 1, "x");
            trace_raw_text("# %d");
            show();
        },
        "elf.cpp:1           > ENTER f()\n# 1\nx\n# %d\n<end>\n");
}

TEST(ZrdebugLines, CopiesOfReports)
{
    expect_run(
        [] {
            start("zrdebug=alerts,sdb");
            alert(1437, "x");
            trace_exit(SOURCE, 1, "f", nullptr);
            show();
        },
        "(1437) TMF error: x\n" + WARNING + "min debug-out indent level reached\n" +
            "ALERT> (1437) TMF error: x\nALERT> " + WARNING +
            "min debug-out indent level reached\nelf.cpp:1           > EXIT f()\n<end>\n");
    expect_run(
        [] {
            start("zrdebug=sdb");
            alert(1437, "x");
            show();
        },
        "(1437) TMF error: x\n<end>\n");
}

TEST(ZrdebugLines, Arguments)
{
    expect_run(
        [] {
            start("zrdebug=on");
            std::string words[] = {"@file", "-oelf", "a b"};
            char *arguments[] = {words[0].data(), words[1].data(), words[2].data(), nullptr};
            trace_args(1, arguments);
            trace_args(0, arguments);
            trace_args(2, arguments + 1);
            show();
        },
        "\nAPP: TARNWICK\nARGS: @file\nARGS: None\nARGS: -oelf a b\n<end>\n");
}

// ---- Hex dumps

constexpr std::uint8_t BYTES[] = {0x41, 0x00, 0xFF, 0x7E, 0x7F, 0x20, 0x1F};

// The trace with the address of the bytes written as "@" and those behind it as "@+n".
void show_dump()
{
    std::string text = read_file(DEFAULT_FILE);
    for (std::size_t i = 0; i < std::size(BYTES); i++) {
        char address[32];
        std::snprintf(address, sizeof address, "%p", static_cast<const void *>(BYTES + i));
        for (std::size_t at = 0; (at = text.find(address, at)) != std::string::npos;) {
            text.replace(at, std::strlen(address), i == 0 ? "@" : "@+" + std::to_string(i));
        }
    }
    note("%s<end>", text.c_str());
}

constexpr birth_place WHERE = {SOURCE, 9};

TEST(ZrdebugHexdump, Nothing)
{
    expect_run(
        [] {
            start("zrdebug=on");
            trace_hexdump("none", BYTES, 0, 16, true, WHERE);
            show_dump();
        },
        "elf.cpp:9           > Hexdump: none (@) zero bytes\n<end>\n");
}

TEST(ZrdebugHexdump, OneRow)
{
    expect_run(
        [] {
            start("zrdebug=on");
            trace_enter(SOURCE, 1, "f", nullptr);
            trace_hexdump("row", BYTES, 7, 7, false, WHERE);
            trace_hexdump("row", BYTES, 7, 7, true, WHERE);
            trace_hexdump("short", BYTES, 5, 7, true, WHERE);
            trace_hexdump("short", BYTES, 5, 7, false, WHERE);
            trace_hexdump("any", BYTES, 5, 0, true, WHERE);
            show_dump();
        },
        "elf.cpp:1           > ENTER f()\n"
        "elf.cpp:9           >     Hexdump: row (@) | 41 00 FF 7E 7F 20 1F\n"
        "elf.cpp:9           >     Hexdump: row (@) | 41 00 FF 7E 7F 20 1F | A . . ~ .   .\n"
        "elf.cpp:9           >     Hexdump: short (@) | 41 00 FF 7E 7F       | A . . ~ .\n"
        "elf.cpp:9           >     Hexdump: short (@) | 41 00 FF 7E 7F\n"
        "elf.cpp:9           >     Hexdump: any (@) | 41 00 FF 7E 7F | A . . ~ .\n<end>\n");
}

TEST(ZrdebugHexdump, SeveralRows)
{
    expect_run(
        [] {
            start("zrdebug=on");
            trace_hexdump("rows", BYTES, 7, 3, true, WHERE);
            trace_hexdump("rows", BYTES, 6, 3, false, WHERE);
            show_dump();
        },
        "elf.cpp:9           > Hexdump: rows (@)\n"
        "elf.cpp:9           > @ | 41 00 FF | A . .\n"
        "elf.cpp:9           > @+3 | 7E 7F 20 | ~ .  \n"
        "elf.cpp:9           > @+6 | 1F       | .\n"
        "elf.cpp:9           > Hexdump: rows (@)\n"
        "elf.cpp:9           > @ | 41 00 FF\n"
        "elf.cpp:9           > @+3 | 7E 7F 20\n<end>\n");
}

// ---- Assertions

void fail_assertion()
{
    const int line = __LINE__ + 1;
    DB_ASSERT(line == 0, "ps != NULL");
    note("went on behind line %d", line);
}

constexpr int ASSERTION_LINE = __LINE__ - 4;

TEST(ZrdebugAssert, Modes)
{
    const std::string report = std::string(__FILE__) + ":" + std::to_string(ASSERTION_LINE);
    const std::string text = "assertion failure: ps != NULL (" + report + ") ";
    const std::string went_on = "went on behind line " + std::to_string(ASSERTION_LINE) + "\n";
    expect_run(
        [] {
            start("zrdebug=assert:ignore");
            fail_assertion();
        },
        went_on);
    expect_run(
        [] {
            start("zrdebug=assert:fatal");
            fail_assertion();
        },
        "(1503) " + text + "\n", 1);
    expect_run(
        [] {
            start("zrdebug=assert:error");
            fail_assertion();
            note("%d", alert_exit_status());
        },
        "(1502) " + text + "\n" + went_on + "1\n");
    expect_run(
        [] {
            start("zrdebug=assert:warning");
            const std::uint32_t line = 5;
            alert_set_position("a.tmf", &line);
            fail_assertion();
        },
        "Non line specific message: (1501) " + text + " (warning)\n" + went_on);
}

// ---- The end of the run

std::vector<std::string> heading_lines(const std::string &text)
{
    std::vector<std::string> headings;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = text.find('\n', at);
        const std::string line = text.substr(at, end - at);
        if (line.find("Master List:") != std::string::npos) {
            headings.push_back(line);
        }
        at = end + 1;
    }
    return headings;
}

TEST(ZrdebugClose, MasterListsUnderAdt)
{
    expect_run(
        [] {
            start("zrdebug=adt");
            const auto list = vector_of<std::uint32_t>::make(5, {"some/room.cpp", 77});
            list.push(1);
            hash_of<std::uint32_t, std::uint32_t>::make(7, {"some/room.cpp", 78});
            skiplist_insert(skiplist_new(nullptr, nullptr, nullptr, {"some/room.cpp", 79}), 1, 1);
            zrdebug_close();
            const std::string text = read_file(DEFAULT_FILE);
            for (const std::string &heading : heading_lines(text)) {
                note("%s", heading.c_str());
            }
            for (const char *row : {":77    1/5    Y\n", ":78    0/7    0/7    0    Y    Y    Y\n",
                                    ":79    1    0/1    0    Y    Y    Y\n"}) {
                note("%d", text.find(std::string("some/room.cpp") + row) != std::string::npos);
            }
        },
        "# Living Vector Master List:\n# Hash Table Master List:\n# Skiplist Master List:\n1\n1\n1\n");
}

TEST(ZrdebugClose, NoMasterListsWithoutIt)
{
    expect_run(
        [] {
            start("zrdebug=on,sdb,dwarf,alerts");
            zrdebug_close();
            show();
        },
        "<end>\n");
}

// A catalogue lowers message 141, and what stands under the default name cannot be opened.
void start_without_file(const char *option)
{
    enter_scratch_folder();
    write_file("20250101000000_en.msgs", "141 E no %s %s\n1502 E failed: %s\n");
    std::filesystem::create_directory(DEFAULT_FILE);
    zrdebug_install();
    zrdebug_parse(option);
    tracef(SOURCE, 1, "nowhere");
    zrdebug_close();
}

TEST(ZrdebugClose, ADefaultFileThatIsThereIsTheOpenOne)
{
    expect_run([] { start_without_file("zrdebug=assert:error,sdb"); },
               "(141) no debug-out tarnwick-1.out\n(1502) failed: gFile != NULL\n");
    expect_run([] { start_without_file("zrdebug=assert:error,out:missing/x,sdb"); },
               "(141) no debug-out missing/x\n(141) no debug-out tarnwick-1.out\n");
}

} // namespace

// SPDX-License-Identifier: MIT
// The message layer. Looks and counts of reports and the end of a run are seen from outside: each scenario is a process
// of its own.
#include "common/alert.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "common/trace.h"
#include "tests/unit/common/alert_kinds.h"
#include "tests/unit/scenario.h"

namespace {

void raise_errors(int count)
{
    for (int i = 0; i < count; i++) {
        alert(AN_ERROR, "x");
    }
}

std::string error_lines(int count)
{
    std::string lines;
    for (int i = 0; i < count; i++) {
        lines += "(1437) TMF error: x\n";
    }
    return lines;
}

// ---- The plain layout

TEST(AlertPlainLayout, BeginsWithTheNumberWhenThereIsNoFile)
{
    expect_run([] { alert(AN_ERROR, "x"); }, "(1437) TMF error: x\n");
}

TEST(AlertPlainLayout, FileWithoutLine)
{
    expect_run(
        [] {
            alert_set_position("a.tmf", nullptr);
            alert(AN_ERROR, "x");
        },
        "a.tmf: (1437) TMF error: x\n");
}

TEST(AlertPlainLayout, FileAndLine)
{
    expect_run(
        [] {
            alert_set_position("a.tmf", &LINE);
            alert(AN_ERROR, "x");
        },
        "a.tmf: 12: (1437) TMF error: x\n");
}

TEST(AlertPlainLayout, EmptyNameCountsAsNone)
{
    expect_run(
        [] {
            alert_set_position("", &LINE);
            alert(AN_ERROR, "x");
            alert_noline(AN_ERROR, "x");
        },
        "12: (1437) TMF error: x\n(1437) TMF error: x\n");
}

TEST(AlertPlainLayout, WarningHasMarker)
{
    expect_run(
        [] {
            alert_set_position("a.tmf", nullptr);
            alert(A_WARNING, "x");
        },
        "a.tmf: (634) error dumping \"x\" (warning)\n");
}

TEST(AlertPlainLayout, MessageHasNeitherNumberNorMarker)
{
    expect_run(
        [] {
            alert_set_position("a.tmf", &LINE);
            alert(A_MESSAGE, 7U);
        },
        "a.tmf: 12: too many errors (7)\n");
}

TEST(AlertPlainLayout, NoLine)
{
    expect_run(
        [] {
            alert_noline(AN_ERROR, "x");
            alert_set_position("a.tmf", &LINE);
            alert_noline(AN_ERROR, "x");
            alert(AN_ERROR, "x");
        },
        "(1437) TMF error: x\n"
        "Non line specific message: (1437) TMF error: x\n"
        "a.tmf: 12: (1437) TMF error: x\n");
}

TEST(AlertPlainLayout, NoPositionKeepsTheColonOfAFile)
{
    expect_run(
        [] {
            alert_nopos(BAD_WERROR);
            alert_set_position("a.tmf", &LINE);
            alert_nopos(BAD_WERROR);
        },
        BAD_WERROR_LINE + ": " + BAD_WERROR_LINE);
}

// ---- The layouts of the format strings

TEST(AlertFormats, Defaults)
{
    expect_run(
        [] {
            alert_set_format_mode(1);
            alert_set_position("a.tmf", &LINE);
            alert(A_MESSAGE, 7U);
            alert(AN_ERROR, "x");
            alert(A_WARNING, "x");
            alert(A_FATAL);
        },
        "a.tmf: 12: too many errors (7)\n"
        "a.tmf: 12: (1437) TMF error: x (error)\n"
        "a.tmf: 12: (634) error dumping \"x\" (warning)\n"
        "a.tmf: 12: (296) out of memory (error)\n",
        1);
}

TEST(AlertFormats, AnyModeButZeroUsesThem)
{
    expect_run(
        [] {
            alert_set_format_mode(9);
            alert(AN_ERROR, "x");
            alert_set_format_mode(0);
            alert(AN_ERROR, "x");
        },
        ": : (1437) TMF error: x (error)\n(1437) TMF error: x\n");
}

TEST(AlertFormats, EveryCode)
{
    expect_run(
        [] {
            setenv("OBC_ERR_FORMAT", "%a|%c|%f|%l|%m|%n|%s|%%|%q|%", 1);
            alert_set_format_mode(1);
            alert_set_position("a.tmf", &LINE, &BASE, &COLUMN);
            errno = ENOENT;
            alert(AN_ERROR, "x");
        },
        "tarnwick|5|a.tmf|12|No such file or directory|1437|TMF error: x|%|q|\n");
}

TEST(AlertFormats, EachSeverityHasItsVariable)
{
    expect_run(
        [] {
            setenv("OBC_ERR_FORMAT", "E%n", 1);
            setenv("OBC_WARN_FORMAT", "W%n", 1);
            setenv("OBC_MSG_FORMAT", "M%n", 1);
            alert_set_format_mode(1);
            alert(A_MESSAGE, 7U);
            alert(AN_ERROR, "x");
            alert(A_WARNING, "x");
            alert_text("m", "x");
            alert_text("M", "x");
            alert_text("e", "x");
            alert_text("E", "x");
            alert_text("W", "x");
            alert_text("5", "x");
            alert(A_FATAL);
        },
        "M1\nE1437\nW634\nM0\nM0\nE0\nE0\nW0\nW0\nE296\n", 1);
}

TEST(AlertFormats, EmptyVariableCountsAsSet)
{
    expect_run(
        [] {
            setenv("OBC_MSG_FORMAT", "", 1);
            alert_set_format_mode(1);
            alert(A_MESSAGE, 7U);
        },
        "\n");
}

TEST(AlertFormats, ColumnNeedsBaseColumnLineAndFile)
{
    expect_run(
        [] {
            setenv("OBC_ERR_FORMAT", "[%c]", 1);
            alert_set_format_mode(1);
            alert_set_position("a.tmf", &LINE, &BASE, nullptr);
            alert(AN_ERROR, "x");
            alert_set_position("a.tmf", &LINE, nullptr, &COLUMN);
            alert(AN_ERROR, "x");
            alert_set_position("a.tmf", nullptr, &BASE, &COLUMN);
            alert(AN_ERROR, "x");
            alert_set_position(nullptr, &LINE, &BASE, &COLUMN);
            alert(AN_ERROR, "x");
            alert_set_position("", &LINE, &BASE, &COLUMN);
            alert(AN_ERROR, "x");
            alert_set_position("a.tmf", &LINE, &BASE, &COLUMN);
            alert(AN_ERROR, "x");
            alert_noline(AN_ERROR, "x");
            alert_nopos(AN_ERROR, "x");
        },
        "[]\n[]\n[]\n[]\n[]\n[5]\n[5]\n[]\n");
}

TEST(AlertFormats, FileAndLineCodes)
{
    expect_run(
        [] {
            setenv("OBC_ERR_FORMAT", "[%f][%l]", 1);
            alert_set_format_mode(1);
            alert(AN_ERROR, "x");
            alert_noline(AN_ERROR, "x");
            alert_set_position(nullptr, &LINE);
            alert(AN_ERROR, "x");
            alert_set_position("a.tmf", nullptr);
            alert(AN_ERROR, "x");
            alert_set_position("a.tmf", &LINE);
            alert(AN_ERROR, "x");
            alert_noline(AN_ERROR, "x");
            alert_nopos(AN_ERROR, "x");
        },
        "[][]\n[Non line specific message][]\n[][]\n[a.tmf][]\n[a.tmf][12]\n[Non line specific message][]\n[][]\n");
}

TEST(AlertFormats, NoPositionSwallowsColonAndBlank)
{
    expect_run(
        [] {
            setenv("OBC_ERR_FORMAT", "%f: %l:%c <%f  <%l::<%c; %s", 1);
            alert_set_format_mode(1);
            alert_set_position("a.tmf", &LINE, &BASE, &COLUMN);
            alert_nopos(AN_ERROR, "x");
            alert_noline(AN_ERROR, "x");
        },
        "< <:<; TMF error: x\n"
        "Non line specific message: :5 <Non line specific message  <::<5; TMF error: x\n");
}

TEST(AlertFormats, PercentAtTheEndEndsTheFormat)
{
    expect_run(
        [] {
            setenv("OBC_ERR_FORMAT", "%n%", 1);
            alert_set_format_mode(1);
            alert(AN_ERROR, "x");
        },
        "1437\n");
}

// ---- The system's error

TEST(AlertSystemText, ReplacesTheCodeInATextAndTakesTheErrorAtEntry)
{
    expect_run(
        [] {
            errno = EACCES; // the first report loads the catalogue, which must not disturb it
            alert(AN_ERRNO_FATAL, "input", "x.hex");
        },
        "(141) can't open input file \"x.hex\": Permission denied\n", 1);
}

TEST(AlertSystemText, IsNothingForZero)
{
    expect_run(
        [] {
            setenv("OBC_ERR_FORMAT", "%s[%m]", 1);
            alert_set_format_mode(1);
            errno = 0;
            alert(AN_ERRNO_FATAL, "input", "x.hex");
        },
        "can't open input file \"x.hex\": []\n", 1);
}

TEST(AlertSystemText, StandsInUnnumberedReports)
{
    expect_run(
        [] {
            errno = ENOENT;
            const std::string format = "%d%%m: %m %d"; // no literal: standard C++ has no "%m"
            alert_text("M", format.c_str(), 1, 2);
        },
        "1%m: No such file or directory 2\n");
}

// ---- Limits

TEST(AlertLimits, TextIsCutAt511)
{
    expect_run(
        [] {
            const std::string text(600, 'x');
            alert(AN_ERROR, text.c_str());
            alert_text("M", "%s", text.c_str());
        },
        "(1437) TMF error: " + std::string(500, 'x') + "\n" + std::string(511, 'x') + "\n");
}

TEST(AlertLimits, FormatIsCutAt511)
{
    expect_run(
        [] {
            errno = ENOENT;
            const std::string format = std::string(500, 'x') + "%m"; // room for 11 characters of 25
            alert_text("M", format.c_str(), 0);
        },
        std::string(500, 'x') + "No such fil\n");
}

TEST(AlertLimits, NewlineTakesTheLastPlaceOfAFullLine)
{
    for (const std::size_t length : {8189U, 8190U, 8191U, 8192U, 20000U}) {
        const std::string expected = std::string(std::min<std::size_t>(length, 8190), 'x') + "\n";
        expect_run(
            [&] {
                setenv("OBC_ERR_FORMAT", std::string(length, 'x').c_str(), 1);
                alert_set_format_mode(1);
                alert(AN_ERROR, "");
            },
            expected);
        expect_run([&] { alert_plain("%s", std::string(length, 'x').c_str()); }, expected);
        expect_run(
            [&] {
                const std::string name(length, 'x');
                alert_set_position(name.c_str(), nullptr);
                alert(A_MESSAGE, 1U);
            },
            (std::string(length, 'x') + ": too many errors (1)").substr(0, 8190) + "\n");
    }
}

// ---- Counting and the end of a run

TEST(AlertCounts, ErrorsAndWarnings)
{
    expect_run(
        [] {
            note_counts();
            note("%d", alert(A_MESSAGE, 7U));
            note("%d", alert(A_WARNING, "x"));
            note_counts();
            note("%d", alert(AN_ERROR, "x"));
            note_counts();
        },
        "errors 0 warnings 0 status 0\n"
        "too many errors (7)\n1\n"
        "(634) error dumping \"x\" (warning)\n1\n"
        "errors 0 warnings 1 status 0\n"
        "(1437) TMF error: x\n1\n"
        "errors 1 warnings 1 status 1\n");
}

TEST(AlertCounts, FailOnWarning)
{
    expect_run(
        [] {
            alert_set_fail_on_warning(true);
            note_counts();
            alert(A_WARNING, "x");
            note_counts();
            alert_set_fail_on_warning(false);
            note_counts();
        },
        "errors 0 warnings 0 status 0\n(634) error dumping \"x\" (warning)\n"
        "errors 0 warnings 1 status 1\nerrors 0 warnings 1 status 0\n");
}

TEST(AlertCounts, UnknownNumberIsAnError)
{
    expect_run(
        [] {
            note("%d", alert(UNKNOWN, "x"));
            alert(20000);
            note_counts();
        },
        "(9) An error, warning or message was generated, but no description is available\n1\n"
        "(20000) An error, warning or message was generated, but no description is available\n"
        "errors 2 warnings 0 status 1\n");
}

TEST(AlertCounts, TwentyFirstErrorStopsTheRun)
{
    expect_run([] { raise_errors(30); }, error_lines(20) + "too many errors (21)\n", 1);
}

TEST(AlertCounts, LimitOfOne)
{
    expect_run(
        [] {
            note("%d", set_maxerrors(1));
            note("%d", set_maxerrors(1));
            raise_errors(2);
        },
        "20\n1\n" + error_lines(1) + "too many errors (2)\n", 1);
}

TEST(AlertCounts, LimitOfNoneOrLessStopsAtTheFirst)
{
    for (const std::int32_t limit : {0, -1}) {
        expect_run(
            [=] {
                set_maxerrors(limit);
                raise_errors(1);
            },
            "too many errors (1)\n", 1);
    }
}

TEST(AlertCounts, TheLimitsReportHasAPositionAndALevel)
{
    expect_run(
        [] {
            set_maxerrors(0);
            alert_set_position("a.tmf", &LINE);
            raise_errors(1);
        },
        "a.tmf: 12: too many errors (1)\n", 1);
    expect_run(
        [] {
            set_maxerrors(0);
            alert_set_level(10);
            raise_errors(1);
        },
        "too many errors (1)\n", 1);
    // Level 10 is below 11: the run ends without a word.
    expect_run(
        [] {
            set_maxerrors(0);
            alert_set_level(11);
            raise_errors(1);
        },
        "", 1);
}

TEST(AlertCounts, WarningLevels)
{
    expect_run(
        [] {
            note("%d", alert(A_LOW_WARNING, 1U, 2U)); // -9 is below 0
            note("%d", alert_set_level(-9));
            note("%d", alert(A_LOW_WARNING, 1U, 2U));
            note("%d", alert_set_level(5));
            note("%d", alert(A_HIGH_WARNING, "x"));
            note("%d", alert(A_WARNING, "x"));
            note("%d", alert_set_level(6));
            note("%d", alert(A_HIGH_WARNING, "x"));
            note_counts();
        },
        "0\n0\n(1289) line range limit exceeded, possibly affecting ability to debug code (warning)\n1\n"
        "-9\n(1304) unknown register name: \"x\" (warning)\n1\n0\n5\n0\nerrors 0 warnings 2 status 0\n");
}

TEST(AlertCounts, LevelNineHidesWarningsOnly)
{
    expect_run(
        [] {
            alert_set_level(9);
            probe_kinds();
            alert(A_FATAL);
        },
        "too many errors (7)\n(1437) TMF error: x\nerrors 1 warnings 0 status 1\n(296) out of memory\n", 1);
}

TEST(AlertExit, FatalEndsTheProcess)
{
    expect_run(
        [] {
            alert(A_FATAL);
            note("not reached");
        },
        "(296) out of memory\n", 1);
}

TEST(AlertExit, GoesThroughTheInstalledOperation)
{
    expect_run(
        [] {
            alert_set_exit([](int status) {
                note("leaving with %d", status);
                std::exit(7);
            });
            alert(A_FATAL);
        },
        "(296) out of memory\nleaving with 1\n", 7);
}

TEST(AlertExit, AFatalReportWithinItDoesNotRunItAgain)
{
    expect_run(
        [] {
            alert_set_exit([](int) {
                note("leaving");
                alert(A_FATAL);
            });
            alert(A_FATAL);
        },
        "(296) out of memory\nleaving\n(296) out of memory\n", 1);
}

TEST(AlertExit, DoesNotReturn)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            alert_set_exit([](int) {});
            alert_exit(1);
        },
        testing::KilledBySignal(SIGABRT), "");
}

// ---- Reports without a number

TEST(AlertText, Looks)
{
    expect_run(
        [] {
            alert_text("M", "%s %u", "x", 3U);
            alert_text("E", "x");
            alert_text("W", "x");
            alert_text("3", "x");
            alert_set_position("a.tmf", &LINE);
            alert_text("E", "x");
            note_counts();
        },
        "x 3\n(0) x\n(0) x (warning)\n(0) x (warning)\na.tmf: 12: (0) x\nerrors 2 warnings 0 status 1\n");
}

TEST(AlertText, Levels)
{
    expect_run(
        [] {
            alert_text("0", "shown");
            alert_text("-1", "hidden");
            alert_set_level(3);
            alert_text("2", "hidden");
            alert_text("3", "shown");
            alert_text("-x", "a letter's level");
            alert_set_level(-3);
            alert_text("-4", "hidden");
            alert_text("-3", "shown");
            alert_set_level(10);
            alert_text("9", "hidden");
            alert_text("W", "shown");
            alert_set_level(11);
            alert_text("M", "hidden");
            alert_text("11", "shown");
        },
        "(0) shown (warning)\n(0) shown (warning)\n(0) a letter's level (warning)\n(0) shown (warning)\n"
        "(0) shown (warning)\n(0) shown (warning)\n");
}

TEST(AlertText, AHiddenErrorCounts)
{
    expect_run(
        [] {
            alert_set_level(11);
            alert_text("E", "x");
            note_counts();
        },
        "errors 1 warnings 0 status 1\n");
}

TEST(AlertText, ErrorsKeepToTheLimit)
{
    expect_run(
        [] {
            set_maxerrors(2);
            alert_text("E", "x");
            alert_text("error", "y");
            alert_text("e", "z");
        },
        "(0) x\n(0) y\ntoo many errors (3)\n", 1);
}

TEST(AlertText, FatalEndsTheProcessUnlessHidden)
{
    for (const char *severity : {"F", "f", "Fatal"}) {
        expect_run(
            [=] {
                alert_set_level(11);
                alert_text(severity, "hidden");
                note_counts();
                alert_set_level(10);
                alert_text(severity, "x");
            },
            "errors 0 warnings 0 status 0\n(0) x\n", 1);
    }
}

TEST(AlertPlain, HasNoPositionAndNoNumberAndGetsItsNewline)
{
    expect_run(
        [] {
            alert_set_format_mode(1);
            alert_set_position("a.tmf", &LINE);
            alert_set_level(11);
            alert_plain("Could not open error description file %s\n", "x");
            alert_plain("plain");
            note_counts();
        },
        "Could not open error description file x\n\nplain\nerrors 0 warnings 0 status 0\n");
}

// ---- The hook

std::uint32_t hook_line = 0;

TEST(AlertHook, RunsBeforeEachShownReport)
{
    expect_run(
        [] {
            const alert_hook_function hook = [] {
                hook_line++;
                alert_set_position("a.tmf", &hook_line);
            };
            note("%d", alert_current_hook() == nullptr);
            note("%d", alert_hook(hook) == nullptr);
            note("%d", alert_current_hook() == hook);
            alert(AN_ERROR, "x");
            alert(A_LOW_WARNING, 1U, 2U); // hidden
            alert_text("M", "x");
            note("%d", alert_hook(nullptr) == hook);
            alert(AN_ERROR, "x");
        },
        "1\n1\n1\na.tmf: 1: (1437) TMF error: x\na.tmf: 2: x\n1\na.tmf: 2: (1437) TMF error: x\n");
}

// ---- Reports that are made once

TEST(AlertOnce, DropsTheSameNumberLineAndFile)
{
    expect_run(
        [] {
            std::uint32_t line = 1;
            std::string name = "a.tmf";
            alert_set_position(name.c_str(), &line);
            note("%d", alert_once_noline(AN_ERROR, "x"));
            note("%d", alert_once_noline(AN_ERROR, "other arguments"));
            note("%d", alert_once_noline(A_WARNING, "x"));
            line = 2;
            note("%d", alert_once_noline(AN_ERROR, "x"));
            line = 1;
            name = "b.tmf"; // the name is kept as a text
            note("%d", alert_once_noline(AN_ERROR, "x"));
            alert_set_position(nullptr, &line);
            note("%d", alert_once_noline(AN_ERROR, "x"));
            alert_set_position("", &line);
            note("%d", alert_once_noline(AN_ERROR, "x"));
            alert_set_position("a.tmf", &line);
            note("%d", alert_once_noline(AN_ERROR, "x"));
            note_counts();
        },
        "Non line specific message: (1437) TMF error: x\n1\n"
        "0\n"
        "Non line specific message: (634) error dumping \"x\" (warning)\n1\n"
        "Non line specific message: (1437) TMF error: x\n1\n"
        "Non line specific message: (1437) TMF error: x\n1\n"
        "(1437) TMF error: x\n1\n"
        "0\n0\nerrors 4 warnings 1 status 1\n");
}

TEST(AlertOnce, OtherFormsAreNotEntered)
{
    expect_run(
        [] {
            alert_noline(AN_ERROR, "x");
            alert_once_noline(AN_ERROR, "x");
            alert_noline(AN_ERROR, "x");
        },
        error_lines(3));
}

TEST(AlertOnce, AHiddenReportIsNotEntered)
{
    expect_run(
        [] {
            alert_set_level(1);
            note("%d", alert_once_noline(A_WARNING, "x"));
            alert_set_level(0);
            alert_override(A_WARNING, 2);
            note("%d", alert_once_noline(A_WARNING, "x"));
            alert_override(A_WARNING, 0);
            note("%d", alert_once_noline(A_WARNING, "x"));
        },
        "0\n0\n(634) error dumping \"x\" (warning)\n1\n");
}

// ---- Copies to the trace

constexpr trace_sink ECHO_SINK = {
    .line = [](const char *, int, const char *, std::va_list) {},
    .text = [](const char *, int, const char *) {},
    .enter = [](const char *, int, const char *, const char *, std::va_list) {},
    .exit = [](const char *, int, const char *, const char *, std::va_list) {},
    .raw = [](const char *, std::va_list) {},
    .raw_text = [](const char *) {},
    .alert = [](const char *text) { std::fprintf(stderr, "trace: %s", text); },
    .assert_failed = [](const char *, const char *, int) {},
};

TEST(AlertTrace, CopiesUnderItsBit)
{
    expect_run(
        [] {
            trace_install(&ECHO_SINK);
            gDebugMask = ~std::uint32_t{TRACE_ALERTS};
            alert(AN_ERROR, "x");
            gDebugMask = TRACE_ALERTS;
            alert(AN_ERROR, "x");
            alert_plain("plain");
            alert_text("M", "text");
        },
        "(1437) TMF error: x\n"
        "trace: (1437) TMF error: x\n(1437) TMF error: x\n"
        "trace: plain\nplain\ntrace: text\ntext\n");
}

} // namespace

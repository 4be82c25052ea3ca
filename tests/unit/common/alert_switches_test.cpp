// SPDX-License-Identifier: MIT
// The switches over messages: the override stack, `--msgdisable=` and `--Werror`.
#include "common/alert_switches.h"

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/alert.h"
#include "tests/unit/common/alert_kinds.h"
#include "tests/unit/scenario.h"

namespace {

// ---- Overrides

TEST(AlertOverride, Actions)
{
    const std::string message = "too many errors (7)\n";
    const std::string error = "(1437) TMF error: x\n";
    const std::string warning = "(634) error dumping \"x\" (warning)\n";
    const std::string fatal = "(296) out of memory\n";
    const struct {
        std::uint32_t action;
        std::string expected;
    } rows[] = {
        {0, message + error + warning + "errors 1 warnings 1 status 1\n"},
        {1, error + "errors 1 warnings 0 status 1\n"},
        {2, "errors 0 warnings 0 status 0\n"},
        {3, message + "(1437) TMF error: x (warning)\n" + warning + "errors 0 warnings 2 status 0\n"},
        {4, message + error + "(634) error dumping \"x\"\n" + "errors 2 warnings 0 status 1\n"},
        {5, "errors 0 warnings 0 status 0\n"},
        {11, message + error + warning + "errors 1 warnings 1 status 1\n"}, // no code of this kind
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.action);
        expect_run(
            [&] {
                for (const std::uint32_t number : {A_MESSAGE, AN_ERROR, A_WARNING, A_FATAL}) {
                    alert_override(number, row.action);
                }
                probe_kinds();
                alert(A_FATAL);
            },
            row.expected + fatal, 1);
    }
}

TEST(AlertOverride, AnErrorThatBecomesAWarningHasTheLevelInForce)
{
    expect_run(
        [] {
            alert_override(AN_ERROR, 3);
            alert_set_level(9);
            alert(AN_ERROR, "x");
        },
        "(1437) TMF error: x (warning)\n");
}

TEST(AlertOverride, ConcernsTheNumberAlone)
{
    expect_run(
        [] {
            alert_override(AN_ERROR, 2);
            note("%d", alert(AN_ERROR, "x"));
            alert(UNKNOWN);
            alert_override(UNKNOWN, 2);
            note("%d", alert(UNKNOWN));
        },
        "0\n(9) An error, warning or message was generated, but no description is available\n0\n");
}

TEST(AlertOverride, PushAndPop)
{
    expect_run(
        [] {
            alert_override(0, 7); // the only one stays
            alert_override(AN_ERROR, 2);
            alert_override(0, 6);
            note("%d", alert(AN_ERROR, "x")); // a copy
            alert_override(AN_ERROR, 0);
            alert_override(A_WARNING, 2);
            note("%d", alert(AN_ERROR, "x"));
            note("%d", alert(A_WARNING, "x"));
            alert_override(0, 7);
            note("%d", alert(AN_ERROR, "x"));
            note("%d", alert(A_WARNING, "x"));
            alert_override(0, 7);
            note("%d", alert(AN_ERROR, "x"));
        },
        "0\n(1437) TMF error: x\n1\n0\n0\n(634) error dumping \"x\" (warning)\n1\n0\n");
}

TEST(AlertOverride, AllNumbersAndClearing)
{
    expect_run(
        [] {
            alert_override(0, 8);
            probe_kinds();
            alert_override(0, 9);
            probe_kinds();
            alert(UNKNOWN); // not in the table
            alert_override(0, 10);
            alert_override(BAD_WERROR, 0); // grows over the old actions
            probe_kinds();
            alert_override(0, 9);
            alert(A_FATAL);
        },
        "(1437) TMF error: x\nerrors 1 warnings 0 status 1\n"
        "errors 1 warnings 0 status 1\n"
        "(9) An error, warning or message was generated, but no description is available\n"
        "too many errors (7)\n(1437) TMF error: x\n(634) error dumping \"x\" (warning)\n"
        "errors 3 warnings 1 status 1\n"
        "(296) out of memory\n",
        1);
}

TEST(AlertMsgdisable, Lists)
{
    const std::string message = "too many errors (7)\n";
    const std::string error = "(1437) TMF error: x\n";
    const std::string warning = "(634) error dumping \"x\" (warning)\n";
    const std::string none = "errors 0 warnings 0 status 0\n";
    const std::string one_warning = "errors 0 warnings 1 status 0\n";
    const std::string one_error = "errors 1 warnings 0 status 1\n";
    const std::string both = "errors 1 warnings 1 status 1\n";
    const struct {
        const char *list;
        std::string expected;
    } rows[] = {
        {"", message + error + warning + both},
        {"0", error + one_error},
        {"0,1437:off", error + one_error},    // stops behind the 0
        {"1,0,1437", error + warning + both}, // only at the beginning
        {"1,0634", error + one_error},
        {"634", message + error + one_error},
        {"634:off", message + error + one_error},
        {"1437", message + error + warning + both}, // an error stays
        {"1437:off", message + warning + one_warning},
        {"1437:OFF,634", message + none},
        {"634,1437:Off,1", none},
        {"1437 :off", message + error + warning + both}, // not directly behind
        {"1437:on", message + error + warning + both},
        {",,634,", message + error + one_error},
        {"x,634", message + error + one_error},
        {"4294967295,99999999999:off,-634:off", message + error + warning + both}, // no such numbers
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.list);
        expect_run(
            [&] {
                alert_msgdisable(row.list);
                probe_kinds();
            },
            row.expected);
    }
}

TEST(AlertMsgdisable, AnEntryWithoutANumberActsOnNumberZero)
{
    expect_run(
        [] {
            alert_msgdisable("x:off"); // ":off" is not directly behind a number
            note("%d", alert(0));
            alert_msgdisable(":off");
            note("%d", alert(0));
        },
        "(0) An error, warning or message was generated, but no description is available\n1\n0\n");
}

// ---- Warnings as errors

TEST(AlertWerror, Recognised)
{
    for (const char *yes : {"Werror", "-Werror", "--Werror", "---werror", "--WERROR=", "--Werror=12", "Wno-error",
                            "--wNO-eRROR=all", "--Wno-error=x"}) {
        EXPECT_TRUE(alert_is_werror(yes)) << yes;
    }
    for (const char *no :
         {"", "-", "--Werro", "--Werrors", "--Werror12", "--Wno-errors", "--Wnoerror", "Xerror", "-e", "--Wno-"}) {
        EXPECT_FALSE(alert_is_werror(no)) << no;
    }
}

struct werror_row {
    std::vector<const char *> options;
    bool warning_634;  // is an error
    bool warning_1304; // is an error
};

TEST(AlertWerror, Forms)
{
    const werror_row rows[] = {
        {{"--Werror"}, true, true},
        {{"--Werror=all"}, true, true},
        {{"--werror=ALL"}, true, true},
        {{"--Werror", "--Wno-error"}, false, false},
        {{"--Werror", "--Wno-error=aLL"}, false, false},
        {{"--Werror=634"}, true, false},
        {{"--Werror=634", "--Werror=1304"}, true, true},
        {{"--Werror", "--Wno-error=634"}, false, true},
        {{"--Wno-error=634", "--Werror"}, false, true},
        {{"--Werror=634", "--Wno-error=634"}, false, false},
        {{"--Wno-error=634", "--Werror=634", "--Werror"}, true, true},
        {{"--Werror=634", "--Wno-error"}, true, false}, // the set outlives the switch
        {{"--Wno-error=634"}, false, false},
        {{"--Werrors=634"}, false, false}, // not the option
    };
    for (const werror_row &row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.options));
        std::string expected = "(634) error dumping \"x\"";
        expected += row.warning_634 ? "\n" : " (warning)\n";
        expected += "(1304) unknown register name: \"x\"";
        expected += row.warning_1304 ? "\n" : " (warning)\n";
        expect_run(
            [&] {
                for (const char *option : row.options) {
                    alert_werror(option, false);
                }
                alert(A_WARNING, "x");
                alert(A_HIGH_WARNING, "x");
            },
            expected);
    }
}

TEST(AlertWerror, ConcernsWarningsAloneAndComesBeforeTheLevel)
{
    expect_run(
        [] {
            alert_werror("--Werror", false);
            alert_set_level(9);
            probe_kinds();
        },
        "too many errors (7)\n(1437) TMF error: x\n(634) error dumping \"x\"\nerrors 2 warnings 0 status 1\n");
}

TEST(AlertWerror, OverridesComeAfterIt)
{
    expect_run(
        [] {
            alert_werror("--Werror=634", false);
            alert_override(A_WARNING, 3);
            alert(A_WARNING, "x");
        },
        "(634) error dumping \"x\" (warning)\n");
}

TEST(AlertWerror, BadNumbers)
{
    const struct {
        const char *option;
        bool is_applied;
    } rows[] = {
        {"--Werror=", false},    {"--Werror=0", false},       {"--Werror=x", false},
        {"--Werror=634x", true}, {"--Werror=634,1304", true},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.option);
        const std::string report =
            std::string("(634) error dumping \"x\"") + (row.is_applied ? "" : " (warning)") + "\n";
        expect_run(
            [&] {
                alert_set_position("a.tmf", &LINE);
                alert_werror(row.option, false);
                alert_set_position(nullptr, nullptr);
                alert(A_WARNING, "x");
            },
            ": " + BAD_WERROR_LINE + report);
        expect_run(
            [&] {
                alert_werror(row.option, true);
                alert(A_WARNING, "x");
            },
            report);
    }
}

TEST(AlertWerror, RecordsTheAcceptedForms)
{
    expect_run(
        [] {
            note("%d", alert_werror_options(false) || alert_werror_options(true));
            for (const char *option : {"--Werror", "--Werror=All", "-werror=12", "--Wno-error", "--Wno-error=all",
                                       "--Wno-error=13x", "--Werror=0", "--Wno-error=x", "--Werror=", "--Werrors"}) {
                alert_werror(option, true);
            }
            for (const char *option : each(alert_werror_options(false))) {
                note("%s", option);
            }
            for (const char *option : each(alert_werror_options(true))) {
                note("%s", option);
            }
        },
        "0\n"
        "-Werror\n-Werror=All\n-Werror=12\n-Wno-error\n-Wno-error=all\n-Wno-error=13x\n-Werror=0\n-Wno-error=x\n"
        "--Werror\n--Werror=All\n--Werror=12\n--Wno-error\n--Wno-error=all\n--Wno-error=13x\n");
}

} // namespace

// SPDX-License-Identifier: MIT
// The front of the tracing: what reaches the sink, and when nothing does.
#include "common/trace.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/unit/common/container_testing.h"

namespace {

using lines = std::vector<std::string>;

// Masks and modes are the process's; a test puts them back.
class with_state {
public:
    with_state(std::uint32_t mask, std::uint32_t mode) : mask_(gDebugMask), mode_(gAssertMode)
    {
        gDebugMask = mask;
        gAssertMode = mode;
    }
    ~with_state()
    {
        gDebugMask = mask_;
        gAssertMode = mode_;
    }
    with_state(const with_state &) = delete;
    with_state &operator=(const with_state &) = delete;

private:
    std::uint32_t mask_;
    std::uint32_t mode_;
};

std::string here(int line)
{
    return trace_capture::format("%s:%d> ", __FILE__, line);
}

} // namespace

TEST(Trace, NothingHappensWithoutASink)
{
    {
        const trace_capture capture;
        trace_raw_text("kept");
        trace_install(nullptr);
        tracef("a.c", 1, "%d", 1);
        trace("a.c", 1, "text");
        trace_enter("a.c", 1, "f", nullptr);
        trace_exit("a.c", 1, "f", nullptr);
        trace_raw("%d", 1);
        trace_raw_text("text");
        trace_alert("text\n");
        const with_state state(0, ASSERT_FATAL);
        db_assert("p != NULL", "a.c", 1);
        EXPECT_EQ(trace_capture::lines(), (lines{"kept"}));
    }
}

TEST(Trace, EveryCallReachesTheSink)
{
    const trace_capture capture;
    tracef("a.c", 1, "%d of %s", 2, "three");
    trace("a.c", 2, "100% plain");
    trace_enter("a.c", 3, "f", "%u", 7U);
    trace_enter("a.c", 4, "g", nullptr);
    trace_exit("a.c", 5, "f", "%u", 8U);
    trace_raw("# %c", 'x');
    trace_raw_text("# 100%");
    trace_alert("report\n");
    EXPECT_EQ(trace_capture::lines(), (lines{
                                          "a.c:1> 2 of three",
                                          "a.c:2> 100% plain",
                                          "a.c:3> ENTER f(7)",
                                          "a.c:4> ENTER g()",
                                          "a.c:5> EXIT f() 8",
                                          "# x",
                                          "# 100%",
                                          "ALERT> report\n",
                                      }));
}

TEST(Trace, CallSitesTestABitFirst)
{
    const trace_capture capture;
    int evaluated = 0;
    {
        const with_state state(TRACE_SDB, ASSERT_IGNORE);
        TRACEF(TRACE_DWARF, "%d", ++evaluated);
        EXPECT_EQ(evaluated, 0) << "nothing is formatted before the test";
        TRACEF(TRACE_DWARF | TRACE_SDB, "%d", ++evaluated);
    }
    EXPECT_EQ(trace_capture::lines(), (lines{here(__LINE__ - 2) + "1"}));
}

TEST(Trace, ScopeTracesEveryWayOut)
{
    const trace_capture capture;
    const with_state state(TRACE_DWARF, ASSERT_IGNORE);
    const int line = __LINE__ + 2;
    const auto traced = [](bool early) {
        const trace_scope scope(TRACE_DWARF, "traced");
        if (early) {
            return;
        }
        trace_raw_text("body");
    };
    traced(false);
    traced(true);
    {
        const trace_scope other(TRACE_SDB, "silent");
    }
    const std::string enter = here(line) + "ENTER traced()";
    const std::string exit = here(line) + "EXIT traced() ";
    EXPECT_EQ(trace_capture::lines(), (lines{enter, "body", exit, enter, exit}));
}

TEST(Trace, ScopeEndsAsItBegan)
{
    const trace_capture capture;
    {
        const with_state state(TRACE_ON, ASSERT_IGNORE);
        const trace_scope scope(TRACE_ON, "f");
        gDebugMask = 0;
    }
    EXPECT_EQ(trace_capture::lines().size(), 2U) << "entry and exit stay paired";
}

TEST(Assertions, IgnoredByDefault)
{
    const trace_capture capture;
    const with_state state(0, ASSERT_IGNORE);
    bool evaluated = false;
    DB_ASSERT((evaluated = true, false), "ps != NULL");
    db_assert("ps != NULL", "a.c", 1);
    EXPECT_FALSE(evaluated) << "the condition is evaluated only when assertions are on";
    EXPECT_TRUE(trace_capture::lines().empty());
}

TEST(Assertions, FailuresReachTheSink)
{
    for (const std::uint32_t mode : {ASSERT_FATAL, ASSERT_ERROR, ASSERT_WARNING}) {
        const trace_capture capture;
        const with_state state(0, mode);
        DB_ASSERT(1 + 1 == 2, "holds");
        DB_ASSERT(1 + 1 == 3, "ps != NULL");
        EXPECT_EQ(trace_capture::lines(), (lines{here(__LINE__ - 1) + "ASSERT ps != NULL"}));
    }
}

// SPDX-License-Identifier: MIT
// The argument reader, step by step.
#include "common/getargs.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "common/osdep.h"
#include "tests/unit/common/scratch_dir.h"

namespace {

using arguments = std::vector<std::string>;

arguments collected(char **vector)
{
    arguments result;
    for (; *vector != nullptr; ++vector) {
        result.emplace_back(*vector);
    }
    return result;
}

// What the reader makes of this standard input, without the name in front.
arguments read_from(std::string_view input)
{
    const scratch_dir scratch;
    const std::string path = scratch.write("command", input);
    EXPECT_EQ(file_reopen(path.c_str(), "r", stdin), stdin);
    arguments result = collected(getargs("tarnwick"));
    file_close_input(stdin);
    EXPECT_FALSE(result.empty());
    EXPECT_EQ(result.at(0), "tarnwick");
    result.erase(result.begin());
    return result;
}

TEST(Getargs, AnEmptyInputGivesTheNameAlone)
{
    EXPECT_EQ(read_from(""), arguments{});
}

TEST(Getargs, BlanksSeparate)
{
    EXPECT_EQ(read_from("prog.hex prog.tmf -oelf\n"), (arguments{"prog.hex", "prog.tmf", "-oelf"}));
    EXPECT_EQ(read_from("last line"), (arguments{"last", "line"}));
}

TEST(Getargs, ManyLinesMakeOneCommand)
{
    EXPECT_EQ(read_from("a b\nc\n\n\nd\n"), (arguments{"a", "b", "c", "d"}));
}

TEST(Getargs, BothLineEndsWork)
{
    EXPECT_EQ(read_from("a b\r\n\r\nc\r\n"), (arguments{"a", "b", "c"}));
    EXPECT_EQ(read_from("a\rb\n"), (arguments{"a\rb"}));
}

TEST(Getargs, EmptyArguments)
{
    EXPECT_EQ(read_from("a  b\n"), (arguments{"a", "", "b"}));
    EXPECT_EQ(read_from(" a\n"), (arguments{"", "a"}));
    EXPECT_EQ(read_from("a \n"), (arguments{"a"}));
    EXPECT_EQ(read_from("a  \n"), (arguments{"a", ""}));
    EXPECT_EQ(read_from("\n\n"), arguments{});
    EXPECT_EQ(read_from("\"\" a\n"), (arguments{"", "a"}));
    EXPECT_EQ(read_from("a \"\"\n"), (arguments{"a"}));
    EXPECT_EQ(read_from("a\t\tb\n"), (arguments{"a", "", "b"}));
}

TEST(Getargs, QuotesKeepBlanks)
{
    EXPECT_EQ(read_from("\"a b\" 'c d'\n"), (arguments{"a b", "c d"}));
    EXPECT_EQ(read_from("x\"a b\"y\n"), (arguments{"xa by"}));
    EXPECT_EQ(read_from("\"it's\" 'say \"x\"'\n"), (arguments{"it's", "say \"x\""}));
}

TEST(Getargs, ATabEndsAnArgumentInsideQuotesToo)
{
    EXPECT_EQ(read_from("\"a\tb c\" d\n"), (arguments{"a", "b c", "d"}));
    EXPECT_EQ(read_from("a\tb\n"), (arguments{"a", "b"}));
}

TEST(Getargs, AnOpenQuoteEndsWithItsLine)
{
    EXPECT_EQ(read_from("\"a b\nc d\n"), (arguments{"a b", "c", "d"}));
}

TEST(Getargs, Backslashes)
{
    EXPECT_EQ(read_from(R"(a\ b c)"
                        "\n"),
              (arguments{"a b", "c"}));
    EXPECT_EQ(read_from(R"(\"a\")"
                        "\n"),
              (arguments{"\"a\""}));
    EXPECT_EQ(read_from(R"(\'a b)"
                        "\n"),
              (arguments{"'a", "b"}));
    EXPECT_EQ(read_from(R"("a\" b")"
                        "\n"),
              (arguments{"a\" b"}));
    EXPECT_EQ(read_from(R"(a\\b)"
                        "\n"),
              (arguments{R"(a\b)"}));
    EXPECT_EQ(read_from(R"(a\\ b)"
                        "\n"),
              (arguments{R"(a\)", "b"}));
    EXPECT_EQ(read_from(R"(C:\work\prog.hex)"
                        "\n"),
              (arguments{R"(C:\work\prog.hex)"}));
    EXPECT_EQ(read_from(R"("a\ b")"
                        "\n"),
              (arguments{"a b"}));
    EXPECT_EQ(read_from(R"(\a\b\\\c)"
                        "\n"),
              (arguments{R"(\a\b\\c)"}));
}

TEST(Getargs, TheEscapeEndsWithItsLine)
{
    EXPECT_EQ(read_from("a\\\n\"b c\"\n"), (arguments{"a", "b c"}));
    EXPECT_EQ(read_from("\\\nb\n"), (arguments{"b"}));
}

// The escape waits behind the tab, as nothing there ends it.
TEST(Getargs, AnEscapeCrossesATab)
{
    EXPECT_EQ(read_from("a\\\tb\n"), (arguments{"a", "\\b"}));
}

TEST(Getargs, LinesOfAnyLength)
{
    std::string line;
    arguments expected;
    for (int i = 0; i < 50000; ++i) {
        expected.push_back("argument" + std::to_string(i));
        line += (i > 0 ? " " : "") + expected.back();
    }
    EXPECT_EQ(read_from(line + "\n"), expected);
}

TEST(Getargs, TheLongestArgument)
{
    const std::string longest(2047, 'x');
    testing::internal::CaptureStderr();
    EXPECT_EQ(read_from(longest + " b\n" + longest + "\nc\n"), (arguments{longest, "b", longest, "c"}));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(Getargs, ATooLongArgumentEndsTheReading)
{
    const std::string longest(2047, 'x');
    testing::internal::CaptureStderr();
    EXPECT_EQ(read_from("a " + longest + "y b\nc\n"), (arguments{"a", longest}));
    const std::string report = testing::internal::GetCapturedStderr();
    EXPECT_NE(report.find("917"), std::string::npos) << report;
    EXPECT_NE(report.find("argument too long"), std::string::npos) << report;
}

// A backslash that stands for itself needs its place as well.
TEST(Getargs, TheBackslashCounts)
{
    const std::string almost(2046, 'x');
    testing::internal::CaptureStderr();
    EXPECT_EQ(read_from(almost + "\\y b\n"), (arguments{almost + "\\"}));
    EXPECT_NE(testing::internal::GetCapturedStderr().find("argument too long"), std::string::npos);
}

TEST(Getargs, NoPromptWithoutATerminal)
{
    testing::internal::CaptureStdout();
    read_from("a\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(Getargs, ATerminalIsPromptedBeforeEachLine)
{
    const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(terminal, 0);
    ASSERT_EQ(::grantpt(terminal), 0);
    ASSERT_EQ(::unlockpt(terminal), 0);
    const char *name = ::ptsname(terminal);
    ASSERT_NE(name, nullptr);
    ASSERT_NE(std::freopen(name, "r", stdin), nullptr);
    constexpr std::string_view TYPED = "one two\nthree\n\x04"; // the last one is the terminal's end of file
    ASSERT_EQ(::write(terminal, TYPED.data(), TYPED.size()), static_cast<ssize_t>(TYPED.size()));

    testing::internal::CaptureStdout();
    const arguments result = collected(getargs("tarnwick"));
    const std::string prompts = testing::internal::GetCapturedStdout();
    file_close_input(stdin);
    ::close(terminal);
    EXPECT_EQ(result, (arguments{"tarnwick", "one", "two", "three"}));
    EXPECT_EQ(prompts, "tarnwick> tarnwick> tarnwick> ");
}

TEST(Getargs, ASecondCallReplacesTheFirst)
{
    EXPECT_EQ(read_from("a b c\n"), (arguments{"a", "b", "c"}));
    EXPECT_EQ(read_from("d\n"), (arguments{"d"}));
}

} // namespace

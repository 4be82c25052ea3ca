// SPDX-License-Identifier: MIT
// Scenarios: pieces of a run of the program, each in a process of its own in which every room is as it is at the start.
// What a scenario prints on the standard error stream, and how it ends, is what a test looks at.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "common/base.h"

// Runs the scenario and compares its standard error stream with `errors`, to the byte, and its exit status. A scenario
// that comes to its end has status 0.
template <typename Scenario>
void expect_run(Scenario scenario, const std::string &errors, int status = 0)
{
    // The process is started anew and not forked, so that nothing of other tests is left in it.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            for (const char *name : {"OBC_ERR_FORMAT", "OBC_WARN_FORMAT", "OBC_MSG_FORMAT", "SOURCE_DATE_EPOCH"}) {
                unsetenv(name); // what the program reads must come from the scenario
            }
            scenario();
            std::exit(0);
        },
        testing::ExitedWithCode(status), testing::Eq(errors));
}

// A line of a scenario on the standard error stream.
inline void note(const char *format, ...) PRINTF_LIKE(1, 2);
inline void note(const char *format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stderr, format, arguments);
    va_end(arguments);
    std::fputc('\n', stderr);
}

// A new empty folder, the current one from now on; it is removed when the process ends.
inline const std::string &enter_scratch_folder()
{
    static std::string folder;
    std::string name = testing::TempDir() + "/tarnwick-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) {
        std::perror("mkdtemp");
        std::abort();
    }
    // The path as the program will see it.
    folder = std::filesystem::canonical(name).string();
    std::filesystem::current_path(folder);
    std::atexit([] {
        std::error_code ignored;
        std::filesystem::current_path("/", ignored);
        std::filesystem::remove_all(folder, ignored);
    });
    return folder;
}

inline void write_file(const std::string &path, const std::string &text)
{
    std::ofstream(path, std::ios::binary) << text;
}

inline std::string read_file(const std::string &path)
{
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

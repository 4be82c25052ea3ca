// SPDX-License-Identifier: MIT
// What the program traces and which assertions fail, kept for a test to look at.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "common/trace.h"

// While it lives, traces of the `on` class and failed assertions are recorded, and nothing else happens on them.
class trace_log {
public:
    trace_log()
    {
        lines().clear();
        failed().clear();
        trace_install(&SINK);
        gDebugMask = TRACE_ON;
        gAssertMode = ASSERT_ERROR;
    }
    ~trace_log()
    {
        gDebugMask = 0;
        gAssertMode = ASSERT_IGNORE;
        trace_install(nullptr);
    }
    trace_log(const trace_log &) = delete;
    trace_log &operator=(const trace_log &) = delete;

    // Formatted lines; "ENTER name" and "EXIT name" for functions.
    static std::vector<std::string> &lines()
    {
        static std::vector<std::string> list;
        return list;
    }
    // Texts of the assertions.
    static std::vector<std::string> &failed()
    {
        static std::vector<std::string> list;
        return list;
    }

private:
    static void keep_line(const char *, int, const char *format, std::va_list arguments)
    {
        char text[400];
        std::vsnprintf(text, sizeof text, format, arguments);
        lines().emplace_back(text);
    }

    static constexpr trace_sink SINK = {
        .line = keep_line,
        .text = [](const char *, int, const char *text) { lines().emplace_back(text); },
        .enter = [](const char *, int, const char *function, const char *,
                    std::va_list) { lines().push_back(std::string("ENTER ") + function); },
        .exit = [](const char *, int, const char *function, const char *,
                   std::va_list) { lines().push_back(std::string("EXIT ") + function); },
        .raw = [](const char *, std::va_list) {},
        .raw_text = [](const char *) {},
        .alert = [](const char *) {},
        .assert_failed = [](const char *expression, const char *, int) { failed().emplace_back(expression); },
    };
};

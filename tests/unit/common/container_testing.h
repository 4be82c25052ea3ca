// SPDX-License-Identifier: MIT
// What the tests of the containers share: a trace sink that keeps what it gets, and the death of a failed check.
#pragma once

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/trace.h"

// Collects traces while it lives.
class trace_capture {
public:
    trace_capture()
    {
        kept().clear();
        trace_install(&SINK);
    }
    ~trace_capture() { trace_install(nullptr); }
    trace_capture(const trace_capture &) = delete;
    trace_capture &operator=(const trace_capture &) = delete;

    static std::vector<std::string> lines() { return kept(); }
    // Only the lines that contain `text`.
    static std::vector<std::string> lines_with(const std::string &text)
    {
        std::vector<std::string> found;
        for (const std::string &line : kept()) {
            if (line.find(text) != std::string::npos) {
                found.push_back(line);
            }
        }
        return found;
    }

    static std::string format(const char *format, ...) PRINTF_LIKE(1, 2)
    {
        std::va_list arguments;
        va_start(arguments, format);
        std::string text = expand(format, arguments);
        va_end(arguments);
        return text;
    }

private:
    static std::vector<std::string> &kept()
    {
        static std::vector<std::string> lines;
        return lines;
    }
    static std::string expand(const char *format, std::va_list arguments) PRINTF_LIKE(1, 0)
    {
        char buffer[1024] = "";
        if (format != nullptr) {
            std::vsnprintf(buffer, sizeof(buffer), format, arguments);
        }
        return buffer;
    }
    static std::string at(const char *file, int line) { return std::string(file) + ":" + std::to_string(line) + "> "; }

    static constexpr trace_sink SINK = {
        .line = [](const char *file, int line, const char *format,
                   std::va_list arguments) { kept().push_back(at(file, line) + expand(format, arguments)); },
        .text = [](const char *file, int line, const char *text) { kept().push_back(at(file, line) + text); },
        .enter =
            [](const char *file, int line, const char *function, const char *format, std::va_list arguments) {
                kept().push_back(at(file, line) + "ENTER " + function + "(" + expand(format, arguments) + ")");
            },
        .exit =
            [](const char *file, int line, const char *function, const char *format, std::va_list arguments) {
                kept().push_back(at(file, line) + "EXIT " + function + "() " + expand(format, arguments));
            },
        .raw = [](const char *format, std::va_list arguments) { kept().push_back(expand(format, arguments)); },
        .raw_text = [](const char *text) { kept().push_back(text); },
        .alert = [](const char *text) { kept().push_back(std::string("ALERT> ") + text); },
        .assert_failed = [](const char *expression, const char *file,
                            int line) { kept().push_back(at(file, line) + "ASSERT " + expression); },
    };
};

// A regular expression that matches `text` and nothing else.
inline std::string literally(const std::string &text)
{
    std::string pattern;
    for (const char c : text) {
        if (std::isalnum(static_cast<unsigned char>(c)) == 0 && c != ' ' && c != '<' && c != '>' && c != '_') {
            pattern += '\\';
        }
        pattern += c;
    }
    return pattern;
}

// The statement fails the check that has this text.
#define EXPECT_CHECK(statement, text)                                                                                  \
    EXPECT_DEATH(statement, literally("Assertion failed: " text ", file ") + ".*, line ")

// SPDX-License-Identifier: MIT
// What the tests of the map file share: a fresh store, the reports that an action makes, and what it traces.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "common/alert.h"
#include "common/stringcache.h"
#include "common/trace.h"
#include "compiler/common/tmf.h"

// Traces and failed assertions, collected while it lives. Assertions do nothing else.
class trace_log {
public:
    explicit trace_log(std::uint32_t mask)
    {
        lines().clear();
        trace_install(&SINK);
        gDebugMask = mask;
        gAssertMode = ASSERT_WARNING;
    }
    ~trace_log()
    {
        trace_install(nullptr);
        gDebugMask = 0;
        gAssertMode = ASSERT_IGNORE;
    }
    trace_log(const trace_log &) = delete;
    trace_log &operator=(const trace_log &) = delete;

    static std::vector<std::string> &lines()
    {
        static std::vector<std::string> kept;
        return kept;
    }

private:
    static constexpr trace_sink SINK = {
        .line =
            [](const char *, int, const char *format, std::va_list arguments) {
                char text[256];
                std::vsnprintf(text, sizeof text, format, arguments);
                lines().push_back(text);
            },
        .text = [](const char *, int, const char *text) { lines().push_back(text); },
        .enter = [](const char *, int, const char *function, const char *,
                    std::va_list) { lines().push_back(std::string("ENTER ") + function); },
        .exit = [](const char *, int, const char *function, const char *,
                   std::va_list) { lines().push_back(std::string("EXIT ") + function); },
        .raw = [](const char *, std::va_list) {},
        .raw_text = [](const char *) {},
        .alert = [](const char *) {},
        .assert_failed = [](const char *expression, const char *,
                            int) { lines().push_back(std::string("ASSERT ") + expression); },
    };
};

// The lines that an action prints on the standard error stream.
template <typename Action>
std::vector<std::string> lines_printed_by(Action action)
{
    testing::internal::CaptureStderr();
    action();
    const std::string printed = testing::internal::GetCapturedStderr();
    std::vector<std::string> lines;
    for (std::size_t begin = 0; begin < printed.size();) {
        const std::size_t end = printed.find('\n', begin);
        lines.push_back(printed.substr(begin, end - begin));
        begin = end == std::string::npos ? printed.size() : end + 1;
    }
    return lines;
}

// The texts of the map file errors that an action reports outside of a read; any other line stays whole.
template <typename Action>
std::vector<std::string> errors_of(Action action)
{
    constexpr std::string_view prefix = "(1437) TMF error: ";
    std::vector<std::string> errors = lines_printed_by(action);
    for (std::string &error : errors) {
        if (error.starts_with(prefix)) {
            error.erase(0, prefix.size());
        }
    }
    return errors;
}

using texts = std::vector<std::string>;

class MapFile : public testing::Test {
protected:
    void SetUp() override
    {
        constexpr std::int32_t no_limit = 0x7FFFFFFF;
        set_maxerrors(no_limit);
        alert_set_position(nullptr, nullptr);
        tmf_store_create();
    }
};

inline tmf_psect make_psect(const char *object, const char *name, std::uint32_t link = 0, std::uint32_t length = 1,
                            std::uint32_t delta = 1)
{
    return {.tmfps_obj = str_cache(object),
            .tmfps_name = str_cache(name),
            .tmfps_class = str_cache("CODE"),
            .tmfps_space = 0,
            .tmfps_link = link,
            .tmfps_load = link,
            .tmfps_length = length,
            .tmfps_delta = delta,
            .tmfps_reloc = 1,
            .tmfps_split = {}};
}

inline tmf_symbol make_symbol(const char *name, std::uint32_t value = 0, const char *psect = "text")
{
    return {.tmfsy_name = str_cache(name),
            .tmfsy_value = value,
            .tmfsy_loadadj = 0,
            .tmfsy_class = str_cache("CODE"),
            .tmfsy_space = 0,
            .tmfsy_psect = str_cache(psect),
            .tmfsy_file = str_cache("m.obj")};
}

inline tmf_line make_line(const char *object, std::uint32_t addr, const char *file = "m.c", std::uint32_t line = 1,
                          const char *psect = "text", const char *cls = "CODE")
{
    return {.tmfln_obj = str_cache(object),
            .tmfln_file = str_cache(file),
            .tmfln_line = line,
            .tmfln_addr = addr,
            .tmfln_psect = str_cache(psect),
            .tmfln_class = str_cache(cls)};
}

inline bool operator==(const tmf_range &left, const tmf_range &right)
{
    return left.low == right.low && left.high == right.high;
}

inline std::ostream &operator<<(std::ostream &stream, const tmf_range &range)
{
    return stream << range.low << "-" << range.high;
}

// Both take over a vector that a query made. The elements as texts:
template <typename T, typename TextOf>
texts texts_of(vector_of<T> list, TextOf text_of)
{
    texts result;
    for (T element : each(list)) {
        result.push_back(text_of(element));
    }
    list.free();
    return result;
}
// The number of elements:
template <typename T>
std::uint32_t count_of(vector_of<T> list)
{
    const std::uint32_t count = list.count();
    list.free();
    return count;
}

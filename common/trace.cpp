// SPDX-License-Identifier: MIT
// The front of the tracing: forwards every call to the installed sink, and to a silent one while there is none.
#include "common/trace.h"

std::uint32_t gDebugMask = 0;
std::uint32_t gAssertMode = ASSERT_IGNORE;

namespace {

constexpr trace_sink SILENT_SINK = {
    .line = [](const char *, int, const char *, std::va_list) {},
    .text = [](const char *, int, const char *) {},
    .enter = [](const char *, int, const char *, const char *, std::va_list) {},
    .exit = [](const char *, int, const char *, const char *, std::va_list) {},
    .raw = [](const char *, std::va_list) {},
    .raw_text = [](const char *) {},
    .alert = [](const char *) {},
    .assert_failed = [](const char *, const char *, int) {},
};

const trace_sink *current_sink = &SILENT_SINK;

} // namespace

void trace_install(const trace_sink *sink)
{
    current_sink = sink != nullptr ? sink : &SILENT_SINK;
}

void tracef(const char *file, int line, const char *format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    current_sink->line(file, line, format, arguments);
    va_end(arguments);
}

void trace(const char *file, int line, const char *text)
{
    current_sink->text(file, line, text);
}

void trace_enter(const char *file, int line, const char *function, const char *format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    current_sink->enter(file, line, function, format, arguments);
    va_end(arguments);
}

void trace_exit(const char *file, int line, const char *function, const char *format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    current_sink->exit(file, line, function, format, arguments);
    va_end(arguments);
}

void trace_raw(const char *format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    current_sink->raw(format, arguments);
    va_end(arguments);
}

void trace_raw_text(const char *text)
{
    current_sink->raw_text(text);
}

void trace_alert(const char *text)
{
    current_sink->alert(text);
}

void db_assert(const char *expression, const char *file, int line)
{
    if (gAssertMode != ASSERT_IGNORE) {
        current_sink->assert_failed(expression, file, line);
    }
}

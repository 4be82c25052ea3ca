// SPDX-License-Identifier: MIT
// The front of the tracing and of the assertions: call sites in every room test a bit and call here. The trace file
// itself is written by a sink that the compiler's own tools install at start-up (compiler/common/zrdebug); without a
// sink nothing happens.
#pragma once

#include <cstdarg>
#include <cstdint>

#include "common/base.h"

// Trace classes, chosen by `--zrdebug=`.
enum trace_class : std::uint32_t {
    TRACE_ON = 1,
    TRACE_SDB = 2,
    TRACE_DWARF = 4,
    TRACE_ALERTS = 8,
    TRACE_ADT = 16,
};

enum assert_mode : std::uint32_t {
    ASSERT_IGNORE = 0,
    ASSERT_FATAL = 1,
    ASSERT_ERROR = 2,
    ASSERT_WARNING = 3,
};

// Bits of the active trace classes, and what a failed assertion does. Set once, while options are read.
extern std::uint32_t gDebugMask;
extern std::uint32_t gAssertMode;

// A build without the calls exists only to be measured against; every other build has them.
#ifndef TARN_TRACE_CALLS
#define TARN_TRACE_CALLS 1
#endif
inline constexpr bool TRACE_CALLS = TARN_TRACE_CALLS != 0;

// One test of a bit: what a call site costs while its classes are off.
inline bool tracing(std::uint32_t classes)
{
    return TRACE_CALLS && (gDebugMask & classes) != 0;
}

inline bool asserting()
{
    return TRACE_CALLS && gAssertMode != ASSERT_IGNORE;
}

// What the trace file's owner does for the calls below. `format` may be null in enter and exit.
struct trace_sink {
    void (*line)(const char *file, int line, const char *format, std::va_list arguments);
    void (*text)(const char *file, int line, const char *text);
    void (*enter)(const char *file, int line, const char *function, const char *format, std::va_list arguments);
    void (*exit)(const char *file, int line, const char *function, const char *format, std::va_list arguments);
    void (*raw)(const char *format, std::va_list arguments);
    void (*raw_text)(const char *text);
    void (*alert)(const char *text);
    void (*assert_failed)(const char *expression, const char *file, int line);
};
void trace_install(const trace_sink *sink);

// A formatted trace line, and one with no formatting. Both split at newlines. Compilers keep cold calls out of the way.
[[gnu::cold]] void tracef(const char *file, int line, const char *format, ...) PRINTF_LIKE(3, 4);
[[gnu::cold]] void trace(const char *file, int line, const char *text);
// Function entry and exit; the depth of calls indents what lies between. `format` may be null.
[[gnu::cold]] void trace_enter(const char *file, int line, const char *function, const char *format, ...)
    PRINTF_LIKE(4, 5);
[[gnu::cold]] void trace_exit(const char *file, int line, const char *function, const char *format, ...)
    PRINTF_LIKE(4, 5);
// A line without position or indentation, as the master list reports need it.
void trace_raw(const char *format, ...) PRINTF_LIKE(1, 2);
void trace_raw_text(const char *text);
// A copy of a report; the text brings its own newline.
void trace_alert(const char *text);

// A failed assertion: `expression` is the text that is reported. Does nothing under ASSERT_IGNORE.
[[gnu::cold]] void db_assert(const char *expression, const char *file, int line);

// Nothing is formatted before the test.
#define TRACEF(classes, ...)                                                                                           \
    do {                                                                                                               \
        if (tracing(static_cast<std::uint32_t>(classes))) [[unlikely]] {                                               \
            tracef(__FILE__, __LINE__, __VA_ARGS__);                                                                   \
        }                                                                                                              \
    } while (0)

// The condition is evaluated only when assertions are on; `text` is what a failure reports.
#define DB_ASSERT(condition, text)                                                                                     \
    do {                                                                                                               \
        if (asserting() && !(condition)) [[unlikely]] {                                                                \
            db_assert(text, __FILE__, __LINE__);                                                                       \
        }                                                                                                              \
    } while (0)

// Entry and exit lines of a function that is traced by name, on every way out of it.
class trace_scope {
public:
    trace_scope(std::uint32_t classes, const char *function, birth_place where = birth_place::here())
        : function_(tracing(classes) ? function : nullptr), where_(where)
    {
        if (function_ != nullptr) {
            trace_enter(where_.file, where_.line, function_, nullptr);
        }
    }
    ~trace_scope()
    {
        if (function_ != nullptr) {
            trace_exit(where_.file, where_.line, function_, nullptr);
        }
    }
    trace_scope(const trace_scope &) = delete;
    trace_scope &operator=(const trace_scope &) = delete;

private:
    const char *function_;
    birth_place where_;
};

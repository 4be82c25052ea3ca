// SPDX-License-Identifier: MIT
// The trace file, the options that control it, and the assertion handler.
#include "compiler/common/zrdebug.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>

#include "common/alert.h"
#include "common/convert.h"
#include "common/osdep.h"
#include "common/skiplist.h"
#include "common/stringcache.h"
#include "common/trace.h"
#include "common/vector_of.h"
#include "common/version.h"
#include "compiler/common/problem_package.h"
#include "compiler/common/zrdebug_warning.h"

hash_of<const char *, const char *> gDebugTargets;

namespace {

constexpr std::uint32_t OPEN_MESSAGE = 141;
constexpr std::uint32_t ASSERT_MESSAGE_BASE = 1504; // less the assert mode: 1503 fatal, 1502 error, 1501 warning
constexpr std::uint32_t DEBUG_TARGET_BUCKETS = 13;

std::FILE *gFile = nullptr;               // the open trace file
const char *gFilePath = nullptr;          // cached
bool gDefaultOutput = true;               // no `out` option was given
constexpr std::uint32_t gTraceWidth = 20; // of the source position column
constexpr std::uint32_t gIndentStep = 4;  // columns a call level
std::uint32_t gIndentLevel = 0;           // current call depth
std::uint32_t gIndentColumns = 0;
std::uint32_t gNumber = 1; // in the default file name
bool gOptionsSeen = false; // a `--zrdebug=` option has been processed

// ---- Options

const char *default_file_name()
{
    return str_printf("%s-%u.out", VERSION_COMPONENT, gNumber);
}

// Opens the trace file in place of the present one, which stays when this fails.
void open_trace_file(const char *path, const char *mode)
{
    std::FILE *stream = file_open(path, mode);
    if (stream == nullptr) {
        alert(OPEN_MESSAGE, "debug-out", path);
        return;
    }
    if (gFile != nullptr) {
        std::fclose(gFile);
    }
    gFile = stream;
    gFilePath = path;
}

void parse_out(const char *argument)
{
    gDefaultOutput = false; // even if there is no name: the default file is kept out of the package then
    if (argument == nullptr) {
        zrdebug_warn("option \"out\", must have a filename argument");
        return;
    }
    if (gFilePath != nullptr) {
        zrdebug_warn("debug-out file was set to \"%s\", resetting to \"%s\"", gFilePath, argument);
    }
    const bool appends = argument[0] == '+';
    const char *path = str_cache(appends ? argument + 1 : argument);
    if (is_directory(path)) {
        path = str_path_join(path, default_file_name());
    }
    open_trace_file(path, appends ? "a" : "w");
}

void parse_assert(const char *argument)
{
    struct mode_name {
        const char *name;
        assert_mode mode;
    };
    static constexpr mode_name MODES[] = {
        {"ignore", ASSERT_IGNORE},
        {"fatal", ASSERT_FATAL},
        {"error", ASSERT_ERROR},
        {"warning", ASSERT_WARNING},
    };
    if (argument == nullptr) {
        zrdebug_warn("option \"assert\", must have an argument");
        return;
    }
    for (const mode_name &row : MODES) {
        if (str_compare_nocase(argument, row.name) == 0) {
            gAssertMode = row.mode;
            return;
        }
    }
    zrdebug_warn("unknown argument (%s) given to assert option", argument);
}

void parse_debug(const char *argument)
{
    auto names = argument != nullptr ? str_split(argument, ":") : vector_of<const char *>();
    if (names.empty()) {
        zrdebug_warn("option \"debug\", must have at least one argument");
    } else if (!gDebugTargets) {
        gDebugTargets = hash_of<const char *, const char *>::make_nocase(DEBUG_TARGET_BUCKETS);
    }
    for (const char *name : each(names)) {
        gDebugTargets.insert(name, name);
    }
    names.free();
}

void parse_num(const char *argument)
{
    if (argument == nullptr) {
        zrdebug_warn("option \"num\", must have an argument");
        return;
    }
    const std::int32_t number = text_to_int(argument);
    if (number > 0) {
        gNumber = static_cast<std::uint32_t>(number);
    } else {
        zrdebug_warn("\"num\" option must be a decimal integer > 0, using \"%u\"", gNumber);
    }
}

struct sub_option {
    const char *name;
    std::uint32_t mask;
    void (*parse)(const char *argument); // null when it takes none
};

// In matching order: the first row whose name begins a part is the part's sub-option.
constexpr sub_option SUB_OPTIONS[] = {
    {"default", TRACE_ON, nullptr},    {"on", TRACE_ON, nullptr},       {"out", 0, parse_out},
    {"sdb", TRACE_SDB, nullptr},       {"dwarf", TRACE_DWARF, nullptr}, {"zip", 0, package_parse},
    {"alerts", TRACE_ALERTS, nullptr}, {"assert", 0, parse_assert},     {"debug", 0, parse_debug},
    {"adt", TRACE_ADT, nullptr},       {"num", 0, parse_num},
};

void parse_part(const char *part)
{
    const auto *found = std::find_if(std::begin(SUB_OPTIONS), std::end(SUB_OPTIONS),
                                     [&](const sub_option &row) { return str_starts_with_nocase(part, row.name); });
    if (found == std::end(SUB_OPTIONS)) {
        zrdebug_warn("unknown option \"%s\"", part);
        return;
    }
    gDebugMask |= found->mask;
    if (found->parse != nullptr) {
        const char *colon = std::strchr(part, ':');
        found->parse(colon != nullptr && colon[1] != '\0' ? colon + 1 : nullptr);
    }
}

// ---- The trace file

void put_spaces(std::uint32_t count)
{
    for (std::uint32_t i = 0; i < count; i++) {
        std::fputc(' ', gFile);
    }
}

// The position of the call in its column, then the indentation of its depth. A longer position pushes the rest aside.
void put_prefix(const char *file, int line)
{
    const int written = std::fprintf(gFile, "%s:%d", path_tail(file), line);
    const std::uint32_t width = written > 0 ? static_cast<std::uint32_t>(written) : 0;
    put_spaces(width < gTraceWidth ? gTraceWidth - width : 0);
    std::fputs("> ", gFile);
    put_spaces(gIndentColumns);
}

void end_line()
{
    std::fputc('\n', gFile);
    std::fflush(gFile);
}

// The next line of a text; empty at its end. Newlines in a row part two lines, so no line is empty.
std::string_view next_line(std::string_view *rest)
{
    rest->remove_prefix(std::min(rest->find_first_not_of('\n'), rest->size()));
    const std::string_view line = rest->substr(0, rest->find('\n'));
    rest->remove_prefix(line.size());
    return line;
}

void put_lines(const char *file, int line, std::string_view text)
{
    for (std::string_view part = next_line(&text); !part.empty(); part = next_line(&text)) {
        put_prefix(file, line);
        std::fwrite(part.data(), 1, part.size(), gFile);
        end_line();
    }
}

void sink_line(const char *file, int line, const char *format, std::va_list arguments)
{
    if (gFile == nullptr) {
        return;
    }
    std::string_view rest = format;
    const std::string first(next_line(&rest));
    if (first.empty()) {
        zrdebug_warn("tracef (at %s:%d) contains no lines", file, line);
        return;
    }
    put_prefix(file, line);
    std::vfprintf(gFile, first.c_str(), arguments);
    end_line();
    put_lines(file, line, rest); // only the first line is a format, the others stand for themselves
}

void sink_text(const char *file, int line, const char *text)
{
    if (gFile == nullptr) {
        return;
    }
    std::string_view rest = text;
    if (next_line(&rest).empty()) {
        zrdebug_warn("trace (at %s:%d) contains no lines", file, line);
        return;
    }
    put_lines(file, line, text);
}

void sink_enter(const char *file, int line, const char *function, const char *format, std::va_list arguments)
{
    constexpr std::uint32_t MAX = std::numeric_limits<std::uint32_t>::max();
    if (gFile != nullptr) {
        put_prefix(file, line);
        std::fprintf(gFile, "ENTER %s(", function);
        if (format != nullptr) {
            std::vfprintf(gFile, format, arguments);
        }
        std::fputc(')', gFile);
        end_line();
    }
    if (gIndentLevel < MAX) {
        gIndentLevel++;
    } else {
        zrdebug_warn("max debug-out indent level readched");
    }
    gIndentColumns = gIndentColumns > MAX - gIndentStep ? MAX : gIndentColumns + gIndentStep;
}

void sink_exit(const char *file, int line, const char *function, const char *format, std::va_list arguments)
{
    if (gIndentLevel > 0) {
        gIndentLevel--;
    } else {
        zrdebug_warn("min debug-out indent level reached");
    }
    gIndentColumns = gIndentColumns < gIndentStep ? 0 : gIndentColumns - gIndentStep;
    if (gFile == nullptr) {
        return;
    }
    put_prefix(file, line);
    std::fprintf(gFile, "EXIT %s()", function);
    if (format != nullptr) {
        std::fputs(" -> ", gFile);
        std::vfprintf(gFile, format, arguments);
    }
    end_line();
}

void sink_raw(const char *format, std::va_list arguments)
{
    if (gFile != nullptr) {
        std::vfprintf(gFile, format, arguments);
        end_line();
    }
}

void sink_raw_text(const char *text)
{
    if (gFile != nullptr) {
        std::fputs(text, gFile);
        end_line();
    }
}

void sink_alert(const char *text)
{
    if (gFile != nullptr) {
        std::fprintf(gFile, "ALERT> %s", text);
        std::fflush(gFile);
    }
}

void sink_assert_failed(const char *expression, const char *file, int line)
{
    if (gAssertMode == ASSERT_FATAL || gAssertMode == ASSERT_ERROR || gAssertMode == ASSERT_WARNING) {
        alert_noline(ASSERT_MESSAGE_BASE - gAssertMode, expression, file, line);
    }
}

constexpr trace_sink SINK = {
    .line = sink_line,
    .text = sink_text,
    .enter = sink_enter,
    .exit = sink_exit,
    .raw = sink_raw,
    .raw_text = sink_raw_text,
    .alert = sink_alert,
    .assert_failed = sink_assert_failed,
};

// ---- Hex dumps

void put_row_bytes(const std::uint8_t *row, std::uint32_t count)
{
    for (std::uint32_t i = 0; i < count; i++) {
        std::fprintf(gFile, " %02X", static_cast<unsigned>(row[i]));
    }
}

// The characters of a row, in a column that stands behind a full row.
void put_row_text(const std::uint8_t *row, std::uint32_t count, std::uint32_t width)
{
    constexpr std::uint32_t BYTE_COLUMNS = 3;
    for (std::uint32_t i = count; i < width; i++) {
        put_spaces(BYTE_COLUMNS);
    }
    std::fputs(" |", gFile);
    for (std::uint32_t i = 0; i < count; i++) {
        const bool is_printable = row[i] >= 0x20 && row[i] < 0x7F;
        std::fprintf(gFile, " %c", is_printable ? row[i] : '.');
    }
}

} // namespace

void zrdebug_install()
{
    trace_install(&SINK);
}

void zrdebug_parse(const char *option)
{
    if (gOptionsSeen) {
        zrdebug_warn("Ignoring extra --zrdebug options");
        return;
    }
    gOptionsSeen = true;
    const char *equals = std::strchr(option, '=');
    auto parts = str_split(equals != nullptr ? equals + 1 : option, ",");
    for (const char *part : each(parts)) {
        parse_part(part);
    }
    parts.free();
    if (gDebugMask == 0) {
        return;
    }
    if (gFile == nullptr) {
        gFilePath = default_file_name();
        open_trace_file(gFilePath, "w");
    }
    if ((gDebugMask & TRACE_ADT) != 0) {
        vector_master_list(true);
        hash_master_list(true);
        skiplist_master_list(true);
    }
}

void trace_args(int count, char *const *arguments)
{
    static bool program_is_named = false;
    if (gFile == nullptr) {
        return;
    }
    if (!program_is_named) {
        program_is_named = true;
        std::fprintf(gFile, "\nAPP: %s\n", str_upper(VERSION_COMPONENT));
    }
    std::fputs("ARGS:", gFile);
    for (int i = 0; i < count; i++) {
        std::fprintf(gFile, " %s", arguments[i]);
    }
    if (count <= 0) {
        std::fputs(" None", gFile);
    }
    end_line();
}

void trace_hexdump(const char *name, const void *address, std::uint32_t size, std::uint32_t width, bool show_text,
                   birth_place where)
{
    if (gFile == nullptr) {
        return;
    }
    put_prefix(where.file, where.line);
    std::fprintf(gFile, "Hexdump: %s (%p)", name, address);
    if (size == 0) {
        std::fputs(" zero bytes", gFile);
    }
    const auto *bytes = static_cast<const std::uint8_t *>(address);
    const std::uint32_t row_width = width != 0 ? width : size;
    for (std::uint32_t at = 0, count = 0; at < size; at += count) {
        count = std::min(row_width, size - at);
        if (size <= row_width) {
            std::fputs(" |", gFile);
        } else {
            std::fputc('\n', gFile);
            put_prefix(where.file, where.line);
            std::fprintf(gFile, "%p |", static_cast<const void *>(bytes + at));
        }
        put_row_bytes(bytes + at, count);
        if (show_text) {
            put_row_text(bytes + at, count, row_width);
        }
    }
    end_line();
}

void zrdebug_close()
{
    if (gDefaultOutput && file_exists(gFilePath)) {
        DB_ASSERT(gFile != nullptr, "gFile != NULL");
        zrdebug_add_file(gFilePath, nullptr); // as it is before the master lists
    }
    if ((gDebugMask & TRACE_ADT) != 0) {
        vector_dump_master_list();
        hash_dump_master_list();
        skiplist_dump_master_list();
    }
}

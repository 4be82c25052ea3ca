// SPDX-License-Identifier: MIT
// The message layer: look-up, counting, layout and printing of reports.
#include "common/alert.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "common/alert_switches.h"
#include "common/alloc.h"
#include "common/catalogue.h"
#include "common/catalogue_rows.h"
#include "common/convert.h"
#include "common/hash.h"
#include "common/stringcache.h"
#include "common/trace.h"
#include "common/version.h"

namespace {

constexpr std::size_t TEXT_SIZE = 512;         // of a report's text, with its NUL
constexpr std::size_t LINE_LIMIT = 8191;       // characters of a printed line, newline included
constexpr std::int32_t LETTER_LEVEL = 10;      // of a report whose severity is a letter
constexpr std::uint32_t ONCE_BUCKETS = 199;    // of the history of reports that are made once
constexpr std::int32_t DEFAULT_ERROR_MAX = 20; // `--emax=`
constexpr char NO_LINE_TEXT[] = "Non line specific message";
constexpr char UNKNOWN_TEXT[] = "An error, warning or message was generated, but no description is available";

// A line of output, cut at what it can hold.
class line_buffer {
public:
    void clear() { length_ = 0; }
    void put(char c)
    {
        if (length_ < LINE_LIMIT) {
            text_[length_++] = c;
        }
    }
    void put(std::string_view text)
    {
        const std::size_t taken = std::min(text.size(), LINE_LIMIT - length_);
        std::memcpy(text_.data() + length_, text.data(), taken);
        length_ += taken;
    }
    void put_number(std::uint32_t number)
    {
        char digits[16];
        std::snprintf(digits, sizeof digits, "%u", number);
        put(digits);
    }
    void print(const char *format, std::va_list arguments) PRINTF_LIKE(2, 0)
    {
        const int length = std::vsnprintf(text_.data(), text_.size(), format, arguments);
        length_ = length < 0 ? 0 : std::min(static_cast<std::size_t>(length), LINE_LIMIT);
    }
    // Ends the line: the newline takes the last character's place when the line is full.
    const char *finish()
    {
        length_ = std::min(length_, LINE_LIMIT - 1);
        text_[length_++] = '\n';
        text_[length_] = '\0';
        return text_.data();
    }

private:
    std::array<char, LINE_LIMIT + 1> text_;
    std::size_t length_ = 0;
};

// What the severity of a report decides about its looks.
enum class layout : std::uint8_t { MESSAGE, ERROR, WARNING };

struct once_key {
    std::uint32_t number = 0;
    std::uint32_t line = 0;
    const char *file = nullptr;
};

bool initialised = false;
std::uint32_t error_count = 0;
std::uint32_t warning_count = 0;
std::int32_t max_errors = DEFAULT_ERROR_MAX;
std::int32_t warning_level = 0; // warnings with a lower level are hidden
bool fail_on_warning = false;
int error_format_mode = 0; // 0 is the plain layout, anything else that of the format strings
const char *current_file = nullptr;
const std::uint32_t *current_line = nullptr;
const std::uint32_t *current_base = nullptr;
const std::uint32_t *current_column = nullptr;
bool no_line_flag = false;
bool no_position_flag = false;
const char *error_format = nullptr;
const char *warn_format = nullptr;
const char *message_format = nullptr;
alert_hook_function pre_report_hook = nullptr;
hash_table *once_history = nullptr; // of `once_key` records
int saved_errno = 0;
line_buffer output;
exit_function leave_operation = nullptr;
bool leaving = false; // the exit operation is running

// Raises the position flags of a form for the duration of one report.
class position_flags {
public:
    explicit position_flags(alert_form form) : old_no_line_(no_line_flag), old_no_position_(no_position_flag)
    {
        no_line_flag = form != alert_form::ORDINARY;
        no_position_flag = form == alert_form::NO_POSITION;
    }
    ~position_flags()
    {
        no_line_flag = old_no_line_;
        no_position_flag = old_no_position_;
    }
    position_flags(const position_flags &) = delete;
    position_flags &operator=(const position_flags &) = delete;

private:
    bool old_no_line_;
    bool old_no_position_;
};

layout layout_of(message_type type)
{
    switch (type) {
    case MESSAGE_PLAIN:
        return layout::MESSAGE;
    case MESSAGE_FATAL:
    case MESSAGE_ERROR:
        return layout::ERROR;
    default:
        return layout::WARNING;
    }
}

layout layout_of(char severity)
{
    switch (severity) {
    case 'M':
    case 'm':
        return layout::MESSAGE;
    case 'E':
    case 'e':
    case 'F':
    case 'f':
        return layout::ERROR;
    default:
        return layout::WARNING;
    }
}

// The system's text for the error in force when the report was made.
const char *system_text()
{
    return saved_errno == 0 ? "" : std::strerror(saved_errno);
}

bool has_file()
{
    return current_file != nullptr && current_file[0] != '\0';
}

// Copies a format with each "%m" replaced by the system's text. What does not fit is cut.
void insert_system_text(const char *format, std::array<char, TEXT_SIZE> *work)
{
    std::size_t length = 0;
    const auto put = [&](char c) {
        if (length < TEXT_SIZE - 1) {
            (*work)[length++] = c;
        }
    };
    for (const char *p = format; *p != '\0'; p++) {
        if (p[0] == '%' && p[1] == 'm') {
            for (const char *s = system_text(); *s != '\0'; s++) {
                if (*s == '%') {
                    put('%'); // the result is a format still
                }
                put(*s);
            }
            p++;
        } else if (p[0] == '%' && p[1] == '%') {
            put(*p++);
            put(*p);
        } else {
            put(*p);
        }
    }
    (*work)[length] = '\0';
}

// The line of a report as people read it.
void put_plain_line(layout kind, std::uint32_t number, const char *text)
{
    if (has_file()) {
        // With both flags raised the colon stands alone.
        if (!no_line_flag) {
            output.put(current_file);
        } else if (!no_position_flag) {
            output.put(NO_LINE_TEXT);
        }
        output.put(": ");
    }
    if (current_line != nullptr && !no_line_flag) {
        output.put_number(*current_line);
        output.put(": ");
    }
    if (kind != layout::MESSAGE) {
        output.put('(');
        output.put_number(number);
        output.put(") ");
    }
    output.put(text);
    if (kind == layout::WARNING) {
        output.put(" (warning)");
    }
}

void put_position_code(char code)
{
    const bool has_line = current_line != nullptr && has_file();
    if (code == 'f') {
        if (no_line_flag) {
            output.put(NO_LINE_TEXT);
        } else if (has_file()) {
            output.put(current_file);
        }
    } else if (code == 'l') {
        if (has_line && !no_line_flag) {
            output.put_number(*current_line);
        }
    } else if (has_line && current_base != nullptr && current_column != nullptr) {
        output.put_number(*current_column - *current_base);
    }
}

// A position that is left out takes the ":" and the blank behind its code with it.
const char *skip_position_code(const char *behind)
{
    if (*behind == ':') {
        behind++;
    }
    if (*behind == ' ') {
        behind++;
    }
    return behind;
}

// The line of a report as a format string lays it out, for programs.
void put_formatted_line(layout kind, std::uint32_t number, const char *text)
{
    const char *format = kind == layout::MESSAGE ? message_format : kind == layout::ERROR ? error_format : warn_format;
    for (const char *p = format; *p != '\0';) {
        if (*p != '%') {
            output.put(*p++);
            continue;
        }
        const char code = p[1];
        if (code == '\0') {
            break;
        }
        p += 2;
        switch (code) {
        case 'a':
            output.put(VERSION_COMPONENT);
            break;
        case 'c':
        case 'f':
        case 'l':
            if (no_position_flag) {
                p = skip_position_code(p);
            } else {
                put_position_code(code);
            }
            break;
        case 'm':
            output.put(system_text());
            break;
        case 'n':
            output.put_number(number);
            break;
        case 's':
            output.put(text);
            break;
        default:
            output.put(code);
            break;
        }
    }
}

void print_output()
{
    const char *line = output.finish();
    if (tracing(TRACE_ALERTS)) {
        trace_alert(line);
    }
    std::fputs(line, stderr);
    std::fflush(stderr);
}

void print_report(layout kind, std::uint32_t number, const char *text)
{
    output.clear();
    if (error_format_mode == 0) {
        put_plain_line(kind, number, text);
    } else {
        put_formatted_line(kind, number, text);
    }
    print_output();
}

const message_entry *find_entry(vector_of<message_entry *> table, std::uint32_t number)
{
    if (table) {
        return table.get(number);
    }
    // While the table is being loaded the built-in rows stand in, so that a fatal report ends the process even then.
    for (const message_entry &row : catalogue_rows()) {
        if (row.number == number) {
            return &row;
        }
    }
    return nullptr;
}

message_entry look_up(std::uint32_t number)
{
    message_entry message{MESSAGE_ERROR, number, UNKNOWN_TEXT, 0};
    if (const message_entry *entry = find_entry(message_table, number)) {
        message = *entry;
    }
    if (const message_entry *entry = find_entry(message_texts, number)) {
        message.text = entry->text;
    }
    alert_apply_switches(&message, warning_level);
    return message;
}

void run_hook()
{
    if (pre_report_hook != nullptr) {
        pre_report_hook();
    }
}

// An error that finds the limit reached is not itself printed.
// NOLINTNEXTLINE(misc-no-recursion): the report that the limit is reached is no error
void count_error()
{
    const bool is_over = std::int64_t{error_count} >= std::int64_t{max_errors};
    error_count++;
    if (is_over) {
        alert_text("M", "too many errors (%u)", error_count);
        alert_exit(EXIT_FAILURE);
    }
}

std::uint32_t hash_once_key(word key)
{
    const auto *once = from_word<const once_key *>(key);
    const std::uint32_t file_hash = once->file == nullptr ? 0 : hash_string(once->file);
    return (file_hash * 33 + once->line) * 33 + once->number;
}

// By number, then line, then file; no file comes first.
int compare_once_keys(word left, word right)
{
    const auto *a = from_word<const once_key *>(left);
    const auto *b = from_word<const once_key *>(right);
    if (a->number != b->number) {
        return a->number < b->number ? -1 : 1;
    }
    if (a->line != b->line) {
        return a->line < b->line ? -1 : 1;
    }
    if (a->file == nullptr || b->file == nullptr) {
        return (a->file != nullptr ? 1 : 0) - (b->file != nullptr ? 1 : 0);
    }
    return std::strcmp(a->file, b->file);
}

// Whether no report of this number was made at this position before; enters it.
bool enter_once(std::uint32_t number)
{
    if (once_history == nullptr) {
        once_history = hash_new(ONCE_BUCKETS, hash_once_key, compare_once_keys);
    }
    once_key key{number, current_line != nullptr ? *current_line : 0, has_file() ? current_file : nullptr};
    if (hash_contains(once_history, to_word(&key))) {
        return false;
    }
    key.file = str_cache(key.file);
    const once_key *kept = xnew(key);
    hash_insert(once_history, to_word(kept), to_word(kept));
    return true;
}

const char *environment_or(const char *name, const char *standard)
{
    const char *value = std::getenv(name);
    return value != nullptr ? str_cache(value) : standard;
}

// Entry of every report: the system's error is that of the caller, whatever initialising the layer does to it.
void begin_report()
{
    const int system_error = errno;
    alert_initialise();
    saved_errno = system_error;
}

std::int32_t level_of(const char *severity)
{
    const char *digits = severity[0] == '-' ? severity + 1 : severity;
    return *digits >= '0' && *digits <= '9' ? text_to_int(severity) : LETTER_LEVEL;
}

} // namespace

void alert_initialise()
{
    if (initialised) {
        return;
    }
    initialised = true; // first of all, for the load below may report bad lines
    error_format = environment_or("OBC_ERR_FORMAT", "%f: %l: (%n) %s (error)");
    warn_format = environment_or("OBC_WARN_FORMAT", "%f: %l: (%n) %s (warning)");
    message_format = environment_or("OBC_MSG_FORMAT", "%f: %l: %s");
    catalogue_initialise();
}

int alert_report(alert_form form, std::uint32_t number, std::span<const format_argument> arguments)
{
    begin_report();
    const position_flags flags(form);
    const message_entry message = look_up(number);
    if (message.type == MESSAGE_SUPPRESSED || (message.type == MESSAGE_WARNING && message.level < warning_level)) {
        return 0;
    }
    run_hook();
    // Behind the hook, which brings the position up to date.
    if (form == alert_form::ONCE_NO_LINE && !enter_once(number)) {
        return 0;
    }
    if (message.type == MESSAGE_ERROR) {
        count_error();
    } else if (message.type == MESSAGE_WARNING) {
        warning_count++;
    }
    std::array<char, TEXT_SIZE> work;
    std::array<char, TEXT_SIZE> text;
    insert_system_text(message.text, &work);
    format_text(text.data(), text.size(), work.data(), arguments);
    print_report(layout_of(message.type), number, text.data());
    if (message.type == MESSAGE_FATAL) {
        alert_exit(EXIT_FAILURE);
    }
    return 1;
}

void alert_text(const char *severity, const char *format, ...) // NOLINT(misc-no-recursion): see count_error
{
    begin_report();
    const char letter = static_cast<char>(severity[0] >= 'A' && severity[0] <= 'Z' ? severity[0] | 0x20 : severity[0]);
    if (letter == 'e') {
        count_error(); // ahead of the level test: an error that is hidden counts
    }
    if (warning_level > level_of(severity)) {
        return; // a fatal one too, which then does not end the process
    }
    run_hook();
    std::array<char, TEXT_SIZE> work;
    std::array<char, TEXT_SIZE> text;
    insert_system_text(format, &work);
    std::va_list arguments;
    va_start(arguments, format);
    if (std::vsnprintf(text.data(), text.size(), work.data(), arguments) < 0) {
        text[0] = '\0';
    }
    va_end(arguments);
    print_report(layout_of(severity[0]), 0, text.data());
    if (letter == 'f') {
        alert_exit(EXIT_FAILURE);
    }
}

void alert_plain(const char *format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    output.print(format, arguments);
    va_end(arguments);
    print_output();
}

void alert_set_position(const char *file, const std::uint32_t *line, const std::uint32_t *base,
                        const std::uint32_t *column)
{
    current_file = file;
    current_line = line;
    current_base = base;
    current_column = column;
}

alert_hook_function alert_hook(alert_hook_function hook)
{
    const alert_hook_function old = pre_report_hook;
    pre_report_hook = hook;
    return old;
}

alert_hook_function alert_current_hook()
{
    return pre_report_hook;
}

std::int32_t set_maxerrors(std::int32_t count)
{
    const std::int32_t old = max_errors;
    max_errors = count;
    return old;
}

std::int32_t alert_set_level(std::int32_t level)
{
    const std::int32_t old = warning_level;
    warning_level = level;
    return old;
}

void alert_set_fail_on_warning(bool on)
{
    fail_on_warning = on;
}

void alert_set_format_mode(int mode)
{
    error_format_mode = mode;
}

int alert_exit_status()
{
    return error_count != 0 || (fail_on_warning && warning_count != 0) ? 1 : 0;
}

std::uint32_t alert_error_count()
{
    return error_count;
}

std::uint32_t alert_warning_count()
{
    return warning_count;
}

void alert_set_exit(exit_function leave)
{
    leave_operation = leave;
}

void alert_exit(int status)
{
    if (leave_operation == nullptr || leaving) {
        std::exit(status); // a fatal report within the end-of-run steps cannot run them again
    }
    leaving = true;
    leave_operation(status);
    std::abort();
}

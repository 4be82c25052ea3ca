// SPDX-License-Identifier: MIT
// The message layer: every report of the program goes through here. A report is a number with arguments; the catalogue
// gives its severity and its text.
#pragma once

#include <array>
#include <cstdarg>
#include <cstdint>
#include <span>

#include "common/base.h"
#include "common/textformat.h"
#include "common/vector_of.h"

enum message_type : std::uint8_t {
    MESSAGE_UNTYPED = 0, // a catalogue gave no valid type: printed like a warning, counted as nothing
    MESSAGE_FATAL = 1,
    MESSAGE_PLAIN = 2,
    MESSAGE_ERROR = 3,
    MESSAGE_WARNING = 4,
    MESSAGE_SUPPRESSED = 5,
};

enum class alert_form : std::uint8_t {
    ORDINARY,
    NO_LINE,      // "Non line specific message" in place of the position
    NO_POSITION,  // no position at all
    ONCE_NO_LINE, // as NO_LINE, dropped when number, line and file were reported before
};

// Reads the environment and loads the message table. The first report does it, and so does every operation that needs
// the table; to repeat it is harmless.
void alert_initialise();

int alert_report(alert_form form, std::uint32_t number, std::span<const format_argument> arguments);

template <alert_form Form, typename... Arguments>
int alert_with(std::uint32_t number, const Arguments &...arguments)
{
    const std::array<format_argument, sizeof...(Arguments)> packed{make_format_argument(arguments)...};
    return alert_report(Form, number, packed);
}

// Reports a numbered message. A fatal one ends the process through the end-of-run steps unless a catalogue has lowered
// it, so callers go on with the next step that can be taken. Returns 1 when the report was made, 0 when it was hidden.
template <typename... Arguments>
int alert(std::uint32_t number, const Arguments &...arguments)
{
    return alert_with<alert_form::ORDINARY>(number, arguments...);
}
template <typename... Arguments>
int alert_noline(std::uint32_t number, const Arguments &...arguments)
{
    return alert_with<alert_form::NO_LINE>(number, arguments...);
}
template <typename... Arguments>
int alert_nopos(std::uint32_t number, const Arguments &...arguments)
{
    return alert_with<alert_form::NO_POSITION>(number, arguments...);
}
template <typename... Arguments>
int alert_once_noline(std::uint32_t number, const Arguments &...arguments)
{
    return alert_with<alert_form::ONCE_NO_LINE>(number, arguments...);
}

// A report with no number. `severity` is a letter, which stands for level 10, or a level.
void alert_text(const char *severity, const char *format, ...) PRINTF_LIKE(2, 3);
// Prints with no position, no counting and no number.
void alert_plain(const char *format, ...) PRINTF_LIKE(1, 2);

// The position that reports carry: a name and counters kept by the caller; null for none.
void alert_set_position(const char *file, const std::uint32_t *line, const std::uint32_t *base = nullptr,
                        const std::uint32_t *column = nullptr);
// An operation that runs before each report is formatted; returns the old one.
using alert_hook_function = void (*)();
alert_hook_function alert_hook(alert_hook_function hook);
alert_hook_function alert_current_hook();

std::int32_t set_maxerrors(std::int32_t count);   // returns the old value
std::int32_t alert_set_level(std::int32_t level); // returns the old value
void alert_set_fail_on_warning(bool on);
void alert_set_format_mode(int mode);
int alert_exit_status();
std::uint32_t alert_error_count();
std::uint32_t alert_warning_count();

void alert_msgdisable(const char *list);
bool alert_is_werror(const char *argument);
void alert_werror(const char *argument, bool quiet);
// The forms accepted so far as option texts, to be passed on, with one dash or with two. Null before the first.
vector_of<const char *> alert_werror_options(bool two_dashes);
// Changes the override stack: 0 to 5 store the code as the number's action, 6 pushes, 7 pops, 8 and 9 act on all
// numbers, 10 empties the top.
void alert_override(std::uint32_t number, std::uint32_t code);

// How a fatal report ends the process; the driver installs its end of run. The default is the plain exit.
using exit_function = void (*)(int status);
void alert_set_exit(exit_function leave);
[[noreturn]] void alert_exit(int status);

// SPDX-License-Identifier: MIT
// What each option does.
#include "compiler/tarnwick/option_actions.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/alert.h"
#include "common/ascii.h"
#include "common/catalogue.h"
#include "common/convert.h"
#include "common/osdep.h"
#include "common/set.h"
#include "common/stringcache.h"
#include "common/trace.h"
#include "common/version.h"
#include "compiler/common/lists.h"
#include "compiler/common/zrdebug.h"
#include "compiler/tarnwick/driver.h"
#include "compiler/tarnwick/dwarf_options.h"
#include "compiler/tarnwick/format.h"
#include "compiler/tarnwick/model.h"
#include "compiler/tarnwick/options.h"
#include "compiler/tarnwick/usage.h"

namespace {

constexpr std::int32_t WARNING_LEVEL_MIN = -9;
constexpr int REPORT_FILE_MODE = 1; // error-format mode of reports that go to a file
constexpr std::size_t REPORT_BUFFER_SIZE = 512;

int error_format_mode = 0;
std::int32_t warning_level = 0;
memory_space *memory_description = nullptr; // of -s; nothing reads it

// A failure is not looked at: reports are lost then.
void send_reports_to(const char *path)
{
    static char buffer[REPORT_BUFFER_SIZE];
    file_reopen(path, "a", stderr);
    std::setvbuf(stderr, buffer, _IOLBF, sizeof buffer);
}

// A piece without "=" enters its name with an empty flag word.
void enter_psect_flags(const char *piece)
{
    vector_of<const char *> halves = str_split(piece, "=");
    const char *name = halves.get(0);
    const char *letters = halves.get(1);
    if (name != nullptr) {
        psect_flags_table.remove(name); // the later entry counts
        psect_flags_table.insert(name, letters != nullptr ? psect_flags_parse(letters) : 0);
    }
    halves.free();
}

void add_spaces(set *spaces, const char *word_text, const char *list)
{
    vector_of<const char *> pieces = str_split(list, ",");
    for (const char *piece : each(pieces)) {
        std::uint32_t space = 0;
        if (scan_unsigned(piece, &space)) {
            set_add(spaces, space);
        } else {
            alert(1450, word_text, piece);
        }
    }
    pieces.free();
}

} // namespace

// --- single letters --------------------------------------------------------------------------------------------------

void on_a(const option_use &)
{
    opt_fake_abs = true;
}

void on_b(const option_use &)
{
    opt_big_endian = true;
}

void on_c(const option_use &)
{
    ++opt_verbose;
    opt_identify = true;
}

void on_d(const option_use &)
{
    opt_dump = true;
}

void on_e(const option_use &use)
{
    if (use.value[0] == '\0') {
        opt_strip_ext = true;
    } else if (is_digit(use.value[0]) && use.value[1] == '\0') {
        error_format_mode = use.value[0] - '0';
    } else {
        send_reports_to(use.value);
        error_format_mode = REPORT_FILE_MODE;
    }
    alert_set_format_mode(error_format_mode);
}

void on_f(const option_use &)
{
    opt_fake_locals = true;
}

[[noreturn]] void on_h(const option_use &)
{
    print_usage();
    std::exit(EXIT_FAILURE);
}

void on_i(const option_use &use)
{
    input_format = format_find(use.value);
}

void on_k(const option_use &)
{
    opt_fake_blocks = true;
}

[[noreturn]] void on_l(const option_use &)
{
    print_format_list();
    std::exit(EXIT_SUCCESS);
}

void on_m(const option_use &)
{
    opt_strip_underscore = true;
}

void on_o(const option_use &use)
{
    const char *key = use.value;
    if (key[0] == '\0' && use.rest->more() && use.rest->arguments[use.rest->next][0] != '-') {
        key = use.rest->arguments[use.rest->next++];
    }
    const std::uint32_t number = format_find(key);
    const auto end = output_formats.begin() + output_count;
    // A format that is there already changes nothing: the names that follow still go to the latest one.
    if (number != 0 && output_count < OPTION_LIST_MAX && std::find(output_formats.begin(), end, number) == end) {
        output_formats[output_count++] = number;
    }
}

void on_p(const option_use &use)
{
    if (use.value[0] == '\0') {
        alert(609);
        return;
    }
    vector_of<const char *> pieces = str_split(use.value, ",");
    processor_name = pieces.get(0);
    for (std::uint32_t i = 1; i < pieces.count() && i <= OPTION_LIST_MAX; ++i) {
        processor_args[i - 1] = pieces.get(i);
    }
    pieces.free();
}

void on_s(const option_use &use)
{
    parse_memory_spec(use.value, &memory_description);
}

void on_v(const option_use &)
{
    ++opt_verbose;
}

void on_w(const option_use &use)
{
    if (std::strchr(use.argument, '!') != nullptr) {
        alert_set_fail_on_warning(true);
    }
    if (!is_digit(use.value[0]) && use.value[0] != '-') {
        alert(393);
        return;
    }
    const std::int32_t level = text_to_int(use.value);
    if (level < WARNING_LEVEL_MIN) {
        alert(523, level);
    } else {
        warning_level = level;
    }
    alert_set_level(warning_level);
}

// --- long options ----------------------------------------------------------------------------------------------------

void on_edf(const option_use &use)
{
    if (!open_edf(use.value)) {
        alert_plain("Could not open error description file %s\n", use.value);
    }
}

void on_emax(const option_use &use)
{
    set_maxerrors(text_to_int(use.value));
}

void on_msgdisable(const option_use &use)
{
    alert_msgdisable(use.value);
}

void on_standard_dwarf(const option_use &)
{
    standard_dwarf = true;
}

void on_disable_dwarf(const option_use &)
{
    enable_dwarf = false;
}

void on_dwarf_use_ranges(const option_use &use)
{
    dwarf_parse_use_option(&dwarf_use_ranges, use.value);
}

void on_dwarf_use_loclists(const option_use &use)
{
    dwarf_parse_use_option(&dwarf_use_loclists, use.value);
}

void on_dwarf_addr_size(const option_use &use)
{
    dwarf_addr_size = static_cast<std::uint8_t>(text_to_int(use.value) & 0xFF);
    TRACEF(TRACE_ON, "%s: \"dwarf_addr_size\" command line option is specified with value %u", "main",
           unsigned{dwarf_addr_size});
}

[[noreturn]] void on_ver(const option_use &)
{
    version_banner();
    tarn_exit(EXIT_SUCCESS);
}

void on_psect_flags(const option_use &use)
{
    psect_flags_given = true;
    vector_of<const char *> pieces = str_split(use.value, ",");
    for (const char *piece : each(pieces)) {
        enter_psect_flags(piece);
    }
    pieces.free();
}

void on_code_delta(const option_use &use)
{
    // What was read is in force even when it is refused.
    if (!scan_unsigned(use.value, &code_delta) || code_delta == 0) {
        alert_text("E", "Invalid code space delta specified (%s)", use.value);
    }
}

void on_zrdebug(const option_use &use)
{
    zrdebug_parse(use.argument + 2);
    if (gDebugMask == 0) {
        return;
    }
    if (command_file != nullptr) {
        char *const name = const_cast<char *>(command_file); // the callee takes an argument vector and only reads it
        trace_args(1, &name);
    }
    trace_args(use.rest->count, use.rest->arguments);
}

void on_code_spaces(const option_use &use)
{
    add_spaces(code_spaces, "code", use.value);
}

void on_data_spaces(const option_use &use)
{
    add_spaces(data_spaces, "data", use.value);
}

void on_eeprom_spaces(const option_use &use)
{
    add_spaces(eeprom_spaces, "eeprom", use.value);
}

void on_werror(const option_use &use)
{
    alert_werror(use.argument, false);
}

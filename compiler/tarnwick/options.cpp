// SPDX-License-Identifier: MIT
// The options of the command line: their state, their table and what each of them does.
#include "compiler/tarnwick/options.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>

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
#include "compiler/tarnwick/option_table.h"
#include "compiler/tarnwick/usage.h"

std::uint8_t opt_verbose = 0;
bool opt_identify = false;
bool opt_dump = false;
bool opt_big_endian = false;
bool opt_fake_abs = false;
bool opt_fake_locals = false;
bool opt_fake_blocks = false;
bool opt_strip_underscore = false;
bool opt_strip_ext = false;
const char *processor_name = nullptr;
std::array<const char *, OPTION_LIST_MAX> processor_args{};
std::uint32_t code_delta = 1;
std::uint32_t input_format = 0;
vector_of<const char *> input_files;
std::uint32_t output_count = 0;
std::array<std::uint32_t, OPTION_LIST_MAX> output_formats{};
std::array<const char *, OPTION_LIST_MAX> output_names{};
const char *command_file = nullptr;

namespace {

constexpr char FIRST_INPUTS[] = ".hex"; // images are read first
constexpr std::int32_t WARNING_LEVEL_MIN = -9;
constexpr int REPORT_FILE_MODE = 1; // error-format mode of reports that go to a file
constexpr std::size_t REPORT_BUFFER_SIZE = 512;

int error_format_mode = 0;
std::int32_t warning_level = 0;
memory_space *memory_description = nullptr; // of -s; nothing reads it

char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

[[noreturn]] void refuse(std::string_view shown)
{
    std::fprintf(stderr, "Unrecognized option '%.*s'", static_cast<int>(shown.size()), shown.data());
    print_usage();
    std::exit(EXIT_FAILURE);
}

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

// A failure is not looked at: reports are lost then.
void send_reports_to(const char *path)
{
    static char buffer[REPORT_BUFFER_SIZE];
    file_reopen(path, "a", stderr);
    std::setvbuf(stderr, buffer, _IOLBF, sizeof buffer);
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
        zrdebug_args(1, &name);
    }
    zrdebug_args(use.rest->count, use.rest->arguments);
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

// --- the table -------------------------------------------------------------------------------------------------------

using enum option_match;

constexpr option_row option_rows[] = {
    {"v", LETTER, on_v, "-v", "verbose", 1},
    {"d", LETTER, on_d, "-d", "dump input file", 2},
    {"c", LETTER, on_c, "-c", "identify input files only", 3},
    {"f", LETTER, on_f, "-f", "fake local symbols as globals", 4},
    {"k", LETTER, on_k, "-k", "fake variable redefinitions with inner blocks", 5},
    {"o", LETTER, on_o, "-o<format>", "set output format", 6},
    {"i", LETTER, on_i, "-i<format>", "set input format", 7},
    {"l", LETTER, on_l, "-l", "list available formats", 8},
    {"b", LETTER, on_b, "-b", "specify big-endian byte ordering", 9},
    {"m", LETTER, on_m, "-m", "strip underscore character", 10},
    {"e", LETTER, on_e, "-e", "strip file extensions", 11},
    {"p", LETTER, on_p, "-pname", "set processor name", 12},
    {"a", LETTER, on_a, "-a", "add a segment for absolute data symbols"},
    {"h", LETTER, on_h, "-h", "print the usage text"},
    {"s", LETTER, on_s, "-s<spec>", "describe memory; checked, and otherwise without effect"},
    {"w", LETTER, on_w, "-w<number>[!]", "set the warning level; with \"!\" a warning fails the run"},

    {"edf", PREFIX, on_edf, "--edf=<file>", "take message texts from a catalogue file"},
    {"emax", PREFIX, on_emax, "--emax=<n>", "set the limit of errors"},
    {"msgdisable", PREFIX, on_msgdisable, "--msgdisable=<list>", "disable messages by number"},
    {"standard-dwarf", WHOLE, on_standard_dwarf, "--standard-dwarf",
     "in case of ELF output format, enforce standard DWARF debugging information (not recommended)", 13},
    {"disable-dwarf", WHOLE, on_disable_dwarf, "--disable-dwarf", "don't include DWARF info in ELF output", 15},
    {"dwarf-use-ranges", PREFIX, on_dwarf_use_ranges, "--dwarf-use-ranges=<value>",
     "use range lists in DWARF info: never, auto or always"},
    {"dwarf-use-loclists", PREFIX, on_dwarf_use_loclists, "--dwarf-use-loclists=<value>",
     "use location lists in DWARF info: never, auto or always"},
    // The misspelling belongs to the text.
    {"dwarf-addr-size", PREFIX, on_dwarf_addr_size, "--dwarf-addr-size=<value>",
     "in case of ELF output format, size of addresses in buyes", 14},
    {"ver", WHOLE, on_ver, "--ver", "print the version"},
    {"psect-flags", PREFIX, on_psect_flags, "--psect-flags=<name>=<flags>[,...]",
     "set the flags of psects: letters of w, x, s and f"},
    {"code-delta", PREFIX, on_code_delta, "--code-delta=<n>", "bytes in an address unit of stray data"},
    {"zrdebug", PREFIX, on_zrdebug, "--zrdebug=<spec>", "trace what the run does"},
    {"code-spaces", NAME, on_code_spaces, "--code-spaces=<n>[,<n>...]", "number the code spaces"},
    {"data-spaces", NAME, on_data_spaces, "--data-spaces=<n>[,<n>...]", "number the data spaces"},
    {"eeprom-spaces", NAME, on_eeprom_spaces, "--eeprom-spaces=<n>[,<n>...]", "number the EEPROM spaces"},
    {"Werror", MESSAGE_LAYER, on_werror, "--Werror[=<n>]", "make warnings errors"},
    {"Wno-error", MESSAGE_LAYER, on_werror, "--Wno-error[=<n>]", "leave warnings warnings"},
    // Offered, one column out of line, and refused.
    {"force-emachine", NEVER, nullptr, "--force-emachine=<num>", "Write the e_machine <num> in the ELF header", 16,
     option_row::USAGE_COLUMNS - 1},
};

// --- parsing ---------------------------------------------------------------------------------------------------------

// `argument` begins with two dashes; `name` is what stands between them and the first "=".
bool matches(const option_row &row, const char *argument, std::string_view name, const char *value)
{
    const bool same_name =
        name.size() == std::strlen(row.name) && str_compare_nocase(name.data(), row.name, name.size()) == 0;
    switch (row.match) {
    case PREFIX:
        return same_name && value != nullptr;
    case WHOLE:
        return same_name && value == nullptr;
    case NAME:
        return same_name;
    case MESSAGE_LAYER:
        return alert_is_werror(argument);
    case LETTER:
    case NEVER:
        break;
    }
    return false;
}

void take_long_option(const char *argument, argument_cursor *rest)
{
    const char *name = argument + 2;
    const std::size_t length = std::strcspn(name, "=");
    const char *value = name[length] == '=' ? name + length + 1 : nullptr;
    for (const option_row &row : option_rows) {
        if (matches(row, argument, {name, length}, value)) {
            row.handler({argument, value, rest});
            return;
        }
    }
    refuse({argument, 2 + length}); // the text stops at the "="
}

void take_letter_option(const char *argument, argument_cursor *rest)
{
    for (const option_row &row : option_rows) {
        if (row.match == LETTER && row.name[0] == lower(argument[1])) {
            row.handler({argument, argument + 2, rest});
            return;
        }
    }
    refuse(argument);
}

void take_file(const char *argument)
{
    const char *name = str_cache(argument);
    if (output_count != 0) {
        output_names[output_count - 1] = name;
    } else if (str_ends_with_nocase(name, FIRST_INPUTS)) {
        input_files.insert(name, 0);
    } else {
        input_files.push(name);
    }
}

void take_argument(const char *argument, argument_cursor *rest)
{
    if (argument[0] != '-') {
        take_file(argument);
    } else if (argument[1] == '-') {
        take_long_option(argument, rest);
    } else {
        take_letter_option(argument, rest);
    }
}

} // namespace

constinit const std::span<const option_row> option_table = option_rows;

void parse_options(int count, char *const *arguments)
{
    argument_cursor cursor = {count, arguments, 0};
    while (cursor.more()) {
        take_argument(cursor.arguments[cursor.next++], &cursor);
        if (input_files.count() == OPTION_LIST_MAX) {
            alert(611);
        }
        if (output_count == OPTION_LIST_MAX) {
            alert(612);
        }
    }
}

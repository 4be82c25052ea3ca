// SPDX-License-Identifier: MIT
// The options of the command line: their state, and the reading of the arguments.
#include "compiler/tarnwick/options.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "common/alert.h"
#include "common/ascii.h"
#include "common/stringcache.h"
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

[[noreturn]] void refuse(std::string_view shown)
{
    std::fprintf(stderr, "Unrecognized option '%.*s'", static_cast<int>(shown.size()), shown.data());
    print_usage();
    std::exit(EXIT_FAILURE);
}

// `argument` begins with two dashes; `name` is what stands between them and the first "=".
bool matches(const option_row &row, const char *argument, std::string_view name, const char *value)
{
    const bool same_name =
        name.size() == std::strlen(row.name) && str_compare_nocase(name.data(), row.name, name.size()) == 0;
    using enum option_match;
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
    for (const option_row &row : option_table) {
        if (matches(row, argument, {name, length}, value)) {
            row.handler({argument, value, rest});
            return;
        }
    }
    refuse({argument, 2 + length}); // the text stops at the "="
}

void take_letter_option(const char *argument, argument_cursor *rest)
{
    for (const option_row &row : option_table) {
        if (row.match == option_match::LETTER && row.name[0] == to_lower(argument[1])) {
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
